#!/usr/bin/env bash
# Installs what building and running needs from Debian's packages, if it is missing.
# With --tests also what the tests, the sanitizers, the fuzzers and the checks need; with --benchmarks
# what the benchmarks need; with --windows what building and testing for Windows needs.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config libboost-dev libtbb-dev libzstd-dev libpng-dev
  libpugixml-dev libhwy-dev libcli11-dev nlohmann-json3-dev)
if [ "${1:-}" = --tests ]; then
  packages+=(libgtest-dev libgmock-dev python3 clang libclang-rt-14-dev clang-format clang-tidy
    ccache git binutils)
  command -v npm >/dev/null || packages+=(nodejs npm)
fi

if [ "${1:-}" = --benchmarks ]; then
  packages+=(libbenchmark-dev zstd time)
fi

if [ "${1:-}" = --windows ]; then
  packages+=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64 dpkg-dev googletest libgtest-dev
    python3 ccache)
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done

install_packages() {
  echo "installing: ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "setup.sh: run this as root, or install sudo" >&2; exit 1; }
    as_root=(sudo)
  fi
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update -qq &&
         "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
           apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "setup.sh: the packages above could not be installed" >&2
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"
}

# Independent readers of LAZ and COPC, of the versions in tests/node/package.json. Tests that need
# them skip themselves where they are missing.
install_node_readers() {
  local folder
  folder="$(dirname "$0")/../tests/node"
  [ ! -d "$folder/node_modules/copc" ] || return 0
  echo "installing: laz-perf and copc for node"
  timeout 240 npm install --prefix "$folder" --no-package-lock --no-audit --no-fund >/dev/null 2>&1 ||
    echo "setup.sh: they could not be installed; their tests will be skipped" >&2
}

[ ${#missing[@]} -eq 0 ] || install_packages
[ "${1:-}" != --tests ] || install_node_readers
