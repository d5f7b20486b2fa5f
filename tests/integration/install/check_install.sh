#!/usr/bin/env bash
# Installs a build into a fresh prefix, then builds and runs a small consumer
# against it twice: through find_package(tolvar) and through pkg-config.
#   check_install.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$1
work=$2
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
for file in include/tolvar/tolvar.h lib/libtolvar.so bin/tolvar lib/cmake/tolvar/tolvarConfig.cmake \
            lib/pkgconfig/tolvar.pc share/man/man1/tolvar.1.gz; do
  [ -e "$prefix/$file" ] || { echo "FAIL: $file was not installed"; exit 1; }
done
"$prefix/bin/tolvar" --help >/dev/null

echo "--- find_package(tolvar)"
cmake -S "$here/consumer" -B "$work/cmake-consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$work/consumer.log"
cmake --build "$work/cmake-consumer" >>"$work/consumer.log"
"$work/cmake-consumer/consumer"

echo "--- pkg-config tolvar"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
# shellcheck disable=SC2046
cc -std=c99 -o "$work/pkg-config-consumer" "$here/consumer/consumer.c" $(pkg-config --cflags --libs tolvar)
LD_LIBRARY_PATH=$prefix/lib "$work/pkg-config-consumer"
