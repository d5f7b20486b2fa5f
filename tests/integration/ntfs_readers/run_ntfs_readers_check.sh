#!/bin/sh
# Unpacks the compressed Windows volume into the build tree once, then checks
# a set of its files (resident, non-resident and LZNT1-compressed) against
# icat. Exits 77 (skipped) when the test data or The Sleuth Kit is missing.
set -eu
check=$1
testdata=$2
work=$3

archive=$testdata/win10-compressed-disk.raw.gz
if [ ! -r "$archive" ]; then
  echo "skipped: $archive is not available"
  exit 77
fi
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
exit $status
