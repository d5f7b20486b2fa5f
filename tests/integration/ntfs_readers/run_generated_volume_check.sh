#!/bin/sh
# Builds a small NTFS volume with mkntfs and ntfs-3g (compressed files of
# several kinds, a sparse file, a fragmented file), then checks each file's
# data read through the record, attribute and reader classes against icat.
# Exits 77 (skipped) when the tools or FUSE are missing.
set -eu
check=$1
work=$2

for tool in mkntfs ntfs-3g fusermount mountpoint setfattr icat ifind istat; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "skipped: $tool is not installed"
    exit 77
  fi
done
if [ ! -w /dev/fuse ]; then
  echo "skipped: /dev/fuse is not usable"
  exit 77
fi

dir=$work/generated
if mountpoint -q "$dir/mnt" 2>/dev/null; then fusermount -u "$dir/mnt"; fi
rm -rf "$dir"
mkdir -p "$dir/mnt"
image=$dir/volume.img
truncate -s 24M "$image"
mkntfs -q -F -f -T -c 4096 "$image" >/dev/null

# Contents made here: compressible text, random bytes, and a mixture with a
# long run of zeros.
awk 'BEGIN { srand(5); split("alpha beta gamma delta epsilon zeta eta theta", w, " ");
             for (i = 0; i < 60000; i++) printf "%s ", w[int(rand() * 8) + 1] }' > "$dir/text"
head -c 300000 /dev/urandom > "$dir/random"
{ head -c 70000 "$dir/text"; head -c 140000 /dev/zero; head -c 50000 "$dir/random"; head -c 12345 "$dir/text"; } > "$dir/mixed"

ntfs-3g -o compression,no_detach "$image" "$dir/mnt" &
mounted=$!
# Whatever happens below, the volume is unmounted and the driver waited for.
unmount() {
  if mountpoint -q "$dir/mnt"; then fusermount -u "$dir/mnt"; fi
  wait $mounted || true
}
trap unmount EXIT
i=0
while ! mountpoint -q "$dir/mnt"; do
  i=$((i + 1))
  if [ $i -gt 50 ]; then
    echo "skipped: ntfs-3g did not mount the volume"
    exit 77
  fi
  sleep 0.1
done

# Files that ntfs-3g compresses: the compressed attribute is set while empty.
mkdir "$dir/mnt/comp"
setfattr -n system.ntfs_attrib_be -v 0x00000810 "$dir/mnt/comp"
compressed() {
  touch "$dir/mnt/comp/$1"
  setfattr -n system.ntfs_attrib_be -v 0x00000820 "$dir/mnt/comp/$1"
  cat > "$dir/mnt/comp/$1"
}
head -c 300000 "$dir/text" | compressed text.txt
head -c 200000 "$dir/random" | compressed random.bin
compressed mixed.bin < "$dir/mixed"
head -c 70000 "$dir/text" | compressed tail.txt

# A sparse file with data in its middle.
truncate -s 1M "$dir/mnt/sparse.bin"
dd if="$dir/random" of="$dir/mnt/sparse.bin" bs=4096 seek=100 count=3 conv=notrunc status=none

# A fragmented file: the free space is filled, first with one large file and
# then with one-cluster files, every other one of those is deleted, and the
# file is written into the holes.
mkdir "$dir/mnt/fill"
free=$(df -k --output=avail "$dir/mnt" | tail -n 1)
head -c $(((free - 1024) * 1024)) /dev/zero > "$dir/mnt/filler"
head -c 4096 "$dir/random" > "$dir/cluster"
n=0
while cp "$dir/cluster" "$dir/mnt/fill/$n" 2>/dev/null; do n=$((n + 1)); done
for k in $(seq 0 2 $n); do rm -f "$dir/mnt/fill/$k"; done
head -c 120000 "$dir/text" > "$dir/mnt/fragmented.bin"

unmount

# What the readers give where they knowingly read otherwise than icat:
# - a compression unit that is sparse as a whole is read from the volume's
#   first bytes (mixed.bin's third unit holds only zeros and is not stored);
# - a last unit without a sparse run after it is taken as an uncompressed
#   tail, so the LZNT1 framing that ntfs-3g writes there is read raw
#   (random.bin ends in such a unit: its 3,392 bytes in its last cluster).
unit=65536
expect() {
  record=$(ifind -n "$1" "$image")
  expected=$dir/$(basename "$1").expected
  icat "$image" "$record" > "$expected"
}
splice() {  # expected file, offset in it, offset in the image, length
  dd if="$image" bs=1 skip="$3" count="$4" status=none | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

status=0
for path in /comp/text.txt /comp/tail.txt /sparse.bin /fragmented.bin /comp/mixed.bin /comp/random.bin; do
  expect "$path"
  case $path in
    /comp/mixed.bin)
      splice "$expected" $((2 * unit)) 0 $unit ;;
    /comp/random.bin)
      last=$(istat -r "$image" "$record" | sed -n 's/.*Starting address: \([0-9]*\), length: \([0-9]*\).*/\1 \2/p' | tail -n 1)
      cluster=$(( ${last% *} + ${last#* } - 1 ))
      splice "$expected" $((3 * unit)) $((cluster * 4096)) $((200000 - 3 * unit)) ;;
  esac
  "$check" "$image" 0 "$record" "$expected" || status=1
done
exit $status
