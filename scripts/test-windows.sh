#!/usr/bin/env bash
# Builds everything for 64-bit Windows and runs the tests under wine: installs what is missing, builds
# the other libraries from their Debian sources, the DLLs, the program and the tests, and runs them.
# The first time takes some ten minutes.
#   scripts/test-windows.sh [-R TESTS]     what ctest takes, for instance to run some tests alone
set -euo pipefail
cd "$(dirname "$0")/.."
logs=$(mktemp -d)

# A wine of our own: nothing of it is left running, nothing of the user's is touched.
export WINEPREFIX=$PWD/build/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
temporary=
trap 'wineserver -k 2>/dev/null || true; rm -rf "$logs" $temporary' EXIT

# Runs a command; shows what it said only when it fails.
quietly() {
  "$@" >"$logs/log" 2>&1 || { tail -n 200 "$logs/log" >&2; echo "failed: $*" >&2; exit 1; }
}

scripts/setup.sh --windows
PATH=$PATH:/usr/lib/wine  # where Debian keeps the server
scripts/windows-libraries.sh

# Less optimisation than in what is shipped halves the time.
echo "building for Windows"
quietly cmake --preset windows -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG"
quietly cmake --build --preset windows -j "$(nproc)"
# This system's program, to compare with.
quietly cmake --preset release
quietly cmake --build --preset release -j "$(nproc)" --target tarn

echo "testing under wine"
mkdir "$logs/empty"
export TARN_TEST_DATA=$logs/empty  # no real scans: what is in them is tested on Linux
# Stays between the tests, which saves most of the time of starting one. It refuses to be started
# twice, which is as good.
mkdir -p "$WINEPREFIX"  # which the server does not make itself
wineserver -p || true
quietly timeout 120 wine wineboot -i
if [ -w /dev/shm ]; then  # temporary files in memory: flushing those to a disk takes most of the time
  temporary=$(mktemp -d /dev/shm/tarn-tests-XXXXXX)
  for folder in "$WINEPREFIX"/drive_c/users/*/Temp; do
    rm -rf "$folder"
    ln -s "$temporary" "$folder"
  done
fi
TARN_HERE=$PWD/build/release/bin/tarn ctest --preset windows -j "$(nproc)" "$@" >"$logs/ctest" 2>&1 ||
  { grep -vE ' Passed |^ *Start ' "$logs/ctest" | tail -n 300; exit 1; }
grep -E 'SKIPPED|tests passed|Total Test time' "$logs/ctest"
