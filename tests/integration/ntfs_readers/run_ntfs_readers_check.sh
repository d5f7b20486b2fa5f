#!/bin/sh
# Unpacks the two Windows-written disk images into the build tree once, then
# checks a set of their files (resident, non-resident and LZNT1-compressed)
# against icat, and the record numbers in directory index blocks against fls.
# Exits 77 (skipped) when the test data or The Sleuth Kit is missing.
set -eu
check=$1
testdata=$2
work=$3

archive=$testdata/win10-compressed-disk.raw.gz
vss_archive=$testdata/win10-vss-disk.tgz
for file in "$archive" "$vss_archive"; do
  if [ ! -r "$file" ]; then
    echo "skipped: $file is not available"
    exit 77
  fi
done
if ! command -v icat >/dev/null 2>&1; then
  echo "skipped: icat (The Sleuth Kit) is not installed"
  exit 77
fi

image=$work/win10-compressed-disk.raw
if [ ! -s "$image" ]; then
  gunzip -c "$archive" | cp --sparse=always /dev/stdin "$image.part"
  mv "$image.part" "$image"
fi

sector=128                 # partition 1 starts at sector 128
offset=$((sector * 512))
status=0
# $MFT, $AttrDef, $UpCase, os_version.txt (resident), 1.txt (LZNT1), desktop.ini (resident)
for record in 0 4 10 38 39 42; do
  expected=$work/record-$record.icat
  icat -o $sector "$image" "$record" > "$expected"
  "$check" "$image" "$offset" "$record" "$expected" || status=1
done

# $Boot's only run starts at cluster 0. A run at volume offset 0 is taken as
# sparse, so the reader gives zeros where icat gives the boot sectors.
boot=$work/record-7.zeros
icat -o $sector "$image" 7 | tr '\000-\377' '\000' > "$boot"
"$check" "$image" "$offset" 7 "$boot" || status=1
# The volume with shadow copies: partition 1 at sector 2048.
# The store tests' copy of the disk is used when they have unpacked it.
vss_image=$work/../store/data/ntfs.raw
if [ ! -s "$vss_image" ] || [ ! -e "$work/../store/data/unpacked.stamp" ]; then
  vss_image=$work/ntfs.raw
  if [ ! -s "$vss_image" ]; then
    tar xzf "$vss_archive" -C "$work"
  fi
fi
sector=2048
offset=$((sector * 512))
# tracking.log (non-resident), file_1.txt and the file with a 228-character name (resident), $UpCase
for record in 38 52 60 10; do
  expected=$work/vss-record-$record.icat
  icat -o $sector "$vss_image" "$record" > "$expected"
  "$check" "$vss_image" "$offset" "$record" "$expected" || status=1
done
# Directories whose index root holds only a pointer to index block 0: the
# block lists every entry (fls adds the virtual $OrphanFiles, 256).
for record in 5 50; do
  fls -o $sector "$vss_image" "$record" | awk '{print $2}' | cut -d- -f1 | tr -d ':' | grep -vx 256 | sort -nu > "$work/fls-$record"
  "$check" --index "$vss_image" "$offset" "$record" > "$work/walk-$record" || status=1
  if ! cmp -s "$work/fls-$record" "$work/walk-$record"; then
    echo "directory $record: index block walk differs from fls"
    diff "$work/fls-$record" "$work/walk-$record" || true
    status=1
  fi
done
exit $status
