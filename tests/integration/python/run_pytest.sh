#!/usr/bin/env bash
# Installs the Python package into a fresh virtual environment with pip (no
# network: the build uses Debian's setuptools), makes the image builder's
# volumes, then runs the package's pytest tests against the built library
# and command, found as an installed package finds them: the library through
# the system's loader (LD_LIBRARY_PATH), the command on PATH.
# Exits 77 when images cannot be made here.
#   run_pytest.sh WORK_DIR PACKAGE_DIR LIBRARY COMMAND MKVSSIMAGE VERSION [PYTEST_ARGS...]
set -euo pipefail
work=$1
package=$2
library=$3
command=$4
tool=$5
version=$6
shift 6
root=$(cd "$(dirname "$0")/../../.." && pwd)

# The sanitized build preloads its runtimes; only the tests load that library.
preload=${LD_PRELOAD:-}
unset LD_PRELOAD

rm -rf "$work"
mkdir -p "$work"
/usr/bin/python3 -m venv --system-site-packages "$work/venv"
# pip builds in the folder it is given: a copy keeps the source tree clean.
mkdir "$work/source"
cp -r "$package/pyproject.toml" "$package/README.md" "$package/tolvar" "$work/source/"
"$work/venv/bin/python" -m pip install --quiet --no-index --no-build-isolation "$work/source" >"$work/pip.log" 2>&1 ||
  { cat "$work/pip.log"; exit 1; }

for scenario in default file_services; do
  status=0
  /usr/bin/python3 "$tool" build "$scenario" -o "$work/$scenario" >"$work/$scenario.log" 2>&1 || status=$?
  if [ "$status" -eq 77 ]; then
    echo "SKIP: the image builder cannot make images on this machine"
    exit 77
  fi
  [ "$status" -eq 0 ] || { cat "$work/$scenario.log"; exit 1; }
done

export TOLVAR_TEST_WORK=$work
export TOLVAR_TEST_LIBRARY=$library
export TOLVAR_TEST_COMMAND=$command
export TOLVAR_TEST_VERSION=$version
export TOLVAR_TEST_ROOT=$root
export LD_LIBRARY_PATH=$(dirname "$library")${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
export PATH=$(dirname "$command"):$PATH
unset TOLVAR_LIBRARY TOLVAR_COMMAND
# Run from the work folder, so that the package imported is the installed one.
cd "$work"
export PYTHONDONTWRITEBYTECODE=1
if [ -n "$preload" ]; then export LD_PRELOAD=$preload; fi
exec "$work/venv/bin/python" -m pytest -p no:cacheprovider -q --basetemp "$work/pytest" "$package/tests" "$@"
