#!/usr/bin/env bash
# Makes the Debian package of a build with cpack and checks it: its name,
# lintian (no errors), its files, its declared dependencies against the
# packages that own the libraries its binaries need, the man page against
# the command's --help, and tolvar list (and the Python package) run from the
# unpacked files on a sample volume. Exits 77 when the sample volume cannot
# be made here.
#   check_debian_package.sh BUILD_DIR WORK_DIR VERSION MKVSSIMAGE PYTHON_PACKAGE_DIR
set -euo pipefail
build=$1
work=$2
version=$3
tool=$4
python_package=$5
fail() { echo "FAIL: $*"; exit 1; }

rm -rf "$work"
mkdir -p "$work"
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; exit 1; }
arch=$(dpkg --print-architecture)
deb=$work/out/tolvar_${version}_${arch}.deb
[ -f "$deb" ] || fail "cpack made $(ls "$work/out"), not $(basename "$deb")"
echo "--- $(basename "$deb")"

echo "--- lintian (errors only)"
# lintian exits 1 when it finds errors and 2 when it cannot check.
status=0
lintian --fail-on error --tag-display-limit 0 "$deb" >"$work/lintian.log" 2>&1 || status=$?
grep -v 'root privileges' "$work/lintian.log" || true
[ "$status" -ne 2 ] || fail "lintian could not check the package"
[ "$status" -eq 0 ] && ! grep -q '^E: ' "$work/lintian.log" || fail "lintian found errors"

echo "--- files"
root=$work/root
dpkg-deb -x "$deb" "$root"
for file in usr/bin/tolvar usr/lib/libtolvar.so usr/include/tolvar/tolvar.h usr/lib/pkgconfig/tolvar.pc \
            usr/lib/cmake/tolvar/tolvarConfig.cmake usr/share/man/man1/tolvar.1.gz usr/share/doc/tolvar/copyright \
            usr/share/doc/tolvar/changelog.gz; do
  [ -e "$root/$file" ] || fail "$file is not in the package"
done
grep -qx 'prefix=/usr' "$root/usr/lib/pkgconfig/tolvar.pc" || fail "tolvar.pc does not name /usr: $(cat "$root/usr/lib/pkgconfig/tolvar.pc")"

echo "--- dependencies"
# The packages that own what the binaries need, outside the package itself.
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
needed=()
while read -r soname; do
  [ -e "$root/usr/lib/$soname" ] && continue
  owner=$(dpkg -S "*/$multiarch/$soname" | cut -d: -f1 | sort -u)
  [ "$(echo "$owner" | wc -l)" -eq 1 ] || fail "$soname is owned by several packages: $owner"
  needed+=("$owner")
done < <(for elf in "$root/usr/bin/tolvar" "$root/usr/lib/libtolvar.so"; do
           readelf -d "$elf" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'
         done | sort -u)
expected=$(printf '%s\n' "${needed[@]}" | sort -u | paste -sd' ')
declared=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/(.*)//; s/ //g' | grep -v '^$' | sort -u | paste -sd' ')
echo "Depends: $(dpkg-deb -f "$deb" Depends)"
[ "$declared" = "$expected" ] || fail "the package depends on '$declared'; its binaries link '$expected'"

echo "--- man page"
page=$(zcat "$root/usr/share/man/man1/tolvar.1.gz")
echo "$page" | grep -q "^\.TH TOLVAR \"1\" .* \"tolvar $version\"" || fail "the man page has no title line for tolvar $version"
commands=$("$root/usr/bin/tolvar" --help | sed -n 's/^  tolvar \([a-z][a-z]*\).*/\1/p')
[ -n "$commands" ] || fail "tolvar --help names no command"
for command in $commands; do
  echo "$page" | grep -q "^tolvar $command " || fail "the man page does not show 'tolvar $command'"
done
echo "commands in the man page: $(echo $commands)"
[ "$("$root/usr/bin/tolvar" --version)" = "tolvar $version" ] || fail "tolvar --version: $("$root/usr/bin/tolvar" --version)"

echo "--- tolvar list from the unpacked files"
status=0
/usr/bin/python3 "$tool" build default -o "$work/default" >"$work/image.log" 2>&1 || status=$?
if [ "$status" -eq 77 ]; then
  echo "SKIP: the image builder cannot make images on this machine"
  exit 77
fi
[ "$status" -eq 0 ] || { cat "$work/image.log"; exit 1; }
expected_ids=$(/usr/bin/python3 -c '
import json, sys
print(" ".join(s["shadow_copy_id"] for s in json.load(open(sys.argv[1]))["snapshots"]))' "$work/default.manifest.json")
listed=$(env -i PATH=/usr/bin:/bin "$root/usr/bin/tolvar" list "$work/default.img")
echo "$listed"
listed_ids=$(echo "$listed" | awk 'NR > 1 { print $2 }' | paste -sd' ')
[ "$listed_ids" = "$expected_ids" ] || fail "tolvar list gave '$listed_ids', the image builder made '$expected_ids'"

echo "--- the Python package over the unpacked library and command"
from_python=$(env -i PATH="$root/usr/bin:/usr/bin:/bin" LD_LIBRARY_PATH="$root/usr/lib" PYTHONPATH="$python_package" \
  PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -c '
import sys, tolvar, tolvar._library as library
copies = tolvar.list_shadow_copies(sys.argv[1])
with tolvar.open(sys.argv[1], copies[0].shadow_copy_id, copies[-1].shadow_copy_id) as diff:
    print(library.library_path(), " ".join(c.shadow_copy_id for c in copies), diff.changed_count)' "$work/default.img")
echo "$from_python"
read -r loaded python_ids < <(echo "$from_python" | cut -d' ' -f1-4)
[ "$loaded" = "libtolvar.so" ] || fail "Python loaded $loaded"
[ "$python_ids" = "$expected_ids" ] || fail "Python listed '$python_ids'"
echo "the package is sound"
