#!/usr/bin/env bash
# Times the reading and the whole import of one scan in every format.
#   benchmarks/formats.sh SCAN.las FOLDER
# Makes the files in FOLDER, about 2 GB for four million points. Environment: BUILD (default
# build/release, configured with -DOOCPC_BENCHMARKS=ON), ROUNDS (default 3).
# The scan of docs/performance.md: build/release/bin/tile_scan SCAN.las 6 6 tiles.las
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: $0 SCAN.las FOLDER" >&2; exit 2; }
scan=$1
folder=$2
bin=${BUILD:-$(dirname "$0")/../build/release}/bin
TIMEFORMAT="%U %S %R"

mkdir -p "$folder"
"$bin/tarn" import -q --overwrite "$scan" -o "$folder/scan.tarn"
for ending in laz ply pcd csv; do
  "$bin/tarn" export -q --overwrite "$folder/scan.tarn" -o "$folder/all.$ending"
done
"$bin/write_scans" "$scan" "$folder/plain"
files=("$folder"/all.{laz,ply,pcd,csv}
  "$folder"/plain{-ascii.ply,-ascii.pcd,-compressed.pcd,.e57,.xyz})

echo "reading"
"$bin/bench_read_scans" "${files[@]}" --runs "${ROUNDS:-3}"
echo "whole imports"
for file in "$scan" "${files[@]}"; do
  for _ in $(seq "${ROUNDS:-3}"); do
    times=$({ time "$bin/tarn" import -q --overwrite "$file" -o "$folder/scan.tarn"; } 2>&1)
    echo "$times"
  done | sort -n | head -1 |
    awk -v f="$(basename "$file")" '{ printf "%s: %.2f s of the processor, %.2f s\n", f, $1 + $2, $3 }'
done
