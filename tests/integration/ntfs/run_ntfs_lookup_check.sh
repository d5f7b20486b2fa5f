#!/bin/sh
# Prepares one volume and runs the oracle driver on it.
#   run_ntfs_lookup_check.sh generated CLUSTER QUERY SOURCE_DIR WORK
#   run_ntfs_lookup_check.sh windows compressed|vss QUERY SOURCE_DIR WORK TESTDATA
# Generated images are built with the image builder into WORK. The Windows
# images are unpacked once, where the readers' test keeps them too (the
# store test's copy of the shadow-copy disk is used when it exists).
# Exits 77 (skipped) when a tool, FUSE or the test data is missing.
set -eu
kind=$1
which=$2
query=$3
source_dir=$4
work=$5
python=/usr/bin/python3
driver=$(dirname "$0")/check_ntfs_lookup.py

if [ ! -x "$python" ]; then
  echo "skipped: $python is not available"
  exit 77
fi

case $kind in
generated)
  dir=$work/generated-$which
  image=$dir/features.img
  if [ ! -s "$image" ] || [ ! -e "$dir/built.stamp" ]; then
    rm -rf "$dir"
    mkdir -p "$dir"
    status=0
    "$python" "$source_dir/tools/mkvssimage/mkvssimage" build ntfs_features -o "$dir/features" -c "$which" \
      > "$dir/build.log" 2>&1 || status=$?
    if [ $status -eq 77 ]; then
      echo "skipped: the image builder cannot make images here:"
      tail -n 3 "$dir/build.log"
      exit 77
    fi
    if [ $status -ne 0 ]; then
      echo "the image builder failed:"
      tail -n 5 "$dir/build.log"
      exit 1
    fi
    touch "$dir/built.stamp"
  fi
  exec "$python" "$driver" "$query" "$image" 0 "$dir/work"
  ;;
windows)
  testdata=$6
  shared=$work/../ntfs_readers
  mkdir -p "$shared"
  case $which in
  compressed)
    archive=$testdata/win10-compressed-disk.raw.gz
    image=$shared/win10-compressed-disk.raw
    sector=128
    if [ ! -r "$archive" ]; then
      echo "skipped: $archive is not available"
      exit 77
    fi
    if [ ! -s "$image" ]; then
      gunzip -c "$archive" | cp --sparse=always /dev/stdin "$image.part"
      mv "$image.part" "$image"
    fi
    ;;
  vss)
    archive=$testdata/win10-vss-disk.tgz
    sector=2048
    if [ ! -r "$archive" ]; then
      echo "skipped: $archive is not available"
      exit 77
    fi
    store_copy=$work/../store/data
    if [ -s "$store_copy/ntfs.raw" ] && [ -e "$store_copy/unpacked.stamp" ]; then
      image=$store_copy/ntfs.raw
    else
      image=$shared/ntfs.raw
      if [ ! -s "$image" ]; then
        tar xzf "$archive" -C "$shared"
      fi
    fi
    ;;
  esac
  exec "$python" "$driver" "$query" "$image" "$sector" "$work/windows-$which"
  ;;
esac
echo "unknown kind $kind"
exit 2
