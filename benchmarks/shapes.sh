#!/usr/bin/env bash
# Imports scans whose points lie as scanners seldom lay them, and tells time, peak of memory and size
# of each. Everything is verified.
#   benchmarks/shapes.sh FOLDER [--memory SIZE]
# FOLDER takes the scans and repositories, which are removed again. Environment: BUILD (default
# build/release), POINTS (default 20000000).
set -euo pipefail
[ $# -ge 1 ] || { echo "usage: $0 FOLDER [--memory SIZE]" >&2; exit 2; }
folder=$1
shift
build=${BUILD:-$(dirname "$0")/../build/release}
mkdir -p "$folder"
trap 'rm -rf "$folder"/shape.las "$folder"/shape.tarn "$folder"/facts' EXIT

for shape in line plane clusters equal dense volume; do
  "$build/bin/shape_scan" "$shape" "${POINTS:-20000000}" "$folder/shape.las"
  command time -f "%e s, peak %M KiB" -o "$folder/facts" \
    "$build/bin/tarn" import -q --overwrite "$@" "$folder/shape.las" -o "$folder/shape.tarn"
  "$build/bin/tarn" verify -q "$folder/shape.tarn"
  echo "$shape: $(cat "$folder/facts"), $(du -sb "$folder/shape.tarn" | cut -f 1) bytes"
done
