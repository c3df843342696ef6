#!/usr/bin/env bash
# Sets up, builds and runs every test: checks of the sources, the tests in an optimised build, under
# the address and undefined-behaviour sanitizers, and under the thread sanitizer, a short search by
# each fuzz target, and the tests for Windows under wine.
#   scripts/test.sh [--quick]     --quick: only the optimised build
# FUZZ_SECONDS (default 5) is the time of each fuzz target's search.
set -euo pipefail
cd "$(dirname "$0")/.."
quick=${1:-}
started=$SECONDS
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

stage() { echo "== $* ($((SECONDS - started)) s)"; }

# Runs a command; shows what it said only when it fails.
quietly() {
  "$@" >"$logs/log" 2>&1 || { tail -n 200 "$logs/log" >&2; echo "failed: $*" >&2; exit 1; }
}

build() {
  stage "building: $1"
  quietly cmake --preset "$1" -DOOCPC_UNITY_TESTS=ON
  quietly cmake --build --preset "$1" -j "$(nproc)" "${@:2}"
}

run_tests() {
  stage "testing: $1"
  ctest --preset "$1" -j "$(nproc)" "${@:2}" >"$logs/ctest" 2>&1 ||
    { grep -vE ' Passed |^ *Start ' "$logs/ctest" | tail -n 300; exit 1; }
  grep -E 'Skipped|\*\*\*Not Run' "$logs/ctest" || true
  tail -n 200 "$logs/ctest" | grep -E 'tests passed|Total Test time'
}

stage "installing what is missing"
scripts/setup.sh --tests

stage "checking the sources"
scripts/check-layers.sh
scripts/check-format.sh

build release
if [ "$quick" != --quick ]; then
  stage "clang-tidy"
  scripts/check-tidy.sh

  build asan
  run_tests asan

  # What may be called from several threads. What spreads its work with TBB stays out: TBB's own
  # libraries are not built for the thread sanitizer, which reports them (see cmake/tsan.supp).
  build tsan --target qelsysts_tests oocpointcloud_repository_tests oocpointcloud_containers_tests \
    oocpointcloud_octree_tests oocpointcloud_iterations_tests tarn_repository_tests tarn_lod_tests
  TSAN_OPTIONS="suppressions=$PWD/cmake/tsan.supp" run_tests tsan \
    -E '^(cli|fuzz_replay)\.|symbols$|_NOT_BUILT$'

  stage "fuzzing"
  quietly cmake --preset fuzz
  mapfile -t targets < <(ls fuzz/fuzz_*.cpp | xargs -n 1 basename -s .cpp)
  quietly cmake --build --preset fuzz -j "$(nproc)" --target "${targets[@]}"
  for target in "${targets[@]}"; do
    mkdir -p "build/corpus/${target#fuzz_}"
    quietly "build/fuzz/bin/$target" -max_total_time="${FUZZ_SECONDS:-5}" -timeout=20 \
      "build/corpus/${target#fuzz_}" "fuzz/corpus/${target#fuzz_}"
  done
  echo "fuzzed: ${targets[*]}"

  stage "Windows"
  scripts/test-windows.sh
fi

# Last, so that its totals are the closing lines.
run_tests release
stage "all done"
