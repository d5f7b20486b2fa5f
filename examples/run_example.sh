#!/usr/bin/env bash
# Runs one example client on the image builder's `default` volume: copies the
# oldest snapshot's image, lets the client bring it up to the newest shadow
# copy, and compares the result with the newest snapshot's image outside the
# store files. Exits 77 when images cannot be made here.
#   run_example.sh MKVSSIMAGE WORK_DIR CLIENT_COMMAND...
set -euo pipefail
tool=$1
work=$2
shift 2
root=$(cd "$(dirname "$0")/.." && pwd)

mkdir -p "$work"
status=0
env -u LD_PRELOAD /usr/bin/python3 "$tool" build default -o "$work/volume" || status=$?
if [ "$status" -eq 77 ]; then
  echo "SKIP: the image builder cannot make images on this machine"
  exit 77
fi
[ "$status" -eq 0 ] || exit 1

read -r older newer first last < <(/usr/bin/python3 -c '
import json, sys
s = json.load(open(sys.argv[1]))["snapshots"]
print(s[0]["shadow_copy_id"], s[-1]["shadow_copy_id"], s[0]["image"], s[-1]["image"])' "$work/volume.manifest.json")
cp --sparse=always "$work/$first" "$work/restored.img"
"$@" "$work/volume.img" "$older" "$newer" "$work/restored.img"
env -u LD_PRELOAD "$root/scripts/compare-images" "$work/volume.manifest.json" "$work/restored.img" "$work/$last"
