#!/usr/bin/env bash
# Installs what building and running needs from Debian's packages, if it is missing.
# With --tests also what the tests, the sanitizers, the fuzzers and the checks need; with --benchmarks
# what the benchmarks need.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config libboost-dev libtbb-dev libzstd-dev libpng-dev libhwy-dev libcli11-dev
  nlohmann-json3-dev)
if [ "${1:-}" = --tests ]; then
  packages+=(libgtest-dev libgmock-dev python3 clang libclang-rt-14-dev clang-format clang-tidy
    ccache git binutils)
fi

if [ "${1:-}" = --benchmarks ]; then
  packages+=(libbenchmark-dev zstd)
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup.sh: run this as root, or install sudo" >&2; exit 1; }
  as_root=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update -qq &&
       "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
         apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "setup.sh: the packages above could not be installed" >&2
  exit 1
fi
