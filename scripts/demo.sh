#!/usr/bin/env bash
# Sets up, builds, and shows the main job on real data:
#   scripts/demo.sh [SCAN.las …]
# Imports the scans (without arguments: a street of two million points that tarn scans itself),
# tells what is in them, makes a picture, runs three queries, and writes the selected points to a LAS
# file. All it makes is below demo/.
set -euo pipefail

scans=()
for scan in "$@"; do scans+=("$(realpath -- "$scan")"); done
cd "$(dirname "$0")/.."

scripts/setup.sh
echo "== building"
cmake --preset release -DBUILD_TESTING=OFF >build-demo.log 2>&1 ||
  { cat build-demo.log >&2; exit 1; }
cmake --build --preset release --target tarn >>build-demo.log 2>&1 || { cat build-demo.log >&2; exit 1; }
rm -f build-demo.log
mkdir -p demo
tarn=build/release/bin/tarn

show() {
  echo
  echo "\$ tarn $*"
  "$tarn" "$@"
}

if [ ${#scans[@]} -eq 0 ]; then
  show synthesize -o demo/street.las --points 2000000 --overwrite
  scans=(demo/street.las)
fi
repository=demo/scan.tarn
show import "${scans[@]}" -o "$repository" --overwrite
show info "$repository" --schema --stats

show render "$repository" -o demo/scan.png --overwrite

# A sphere around the middle of the cloud, as wide as a tenth of it, for the second query.
sphere=$("$tarn" info "$repository" --json | awk '
  corners == 2 { next }  # read to the end: who closes a pipe early makes the writer fail
  /"max": \[/ { corner = "max"; n = 0; next }
  /"min": \[/ { corner = "min"; n = 0; next }
  /"bounds"/ { inside = 1 }
  inside && corner != "" && /[0-9]/ { gsub(/[ ,]/, ""); value[corner, n++] = $0
    if (n == 3) { corner = ""; ++corners } }
  END {
    width = value["max", 0] - value["min", 0]; height = value["max", 1] - value["min", 1]
    printf "%.3f, %.3f, %.3f, %.3f", (value["max", 0] + value["min", 0]) / 2,
      (value["max", 1] + value["min", 1]) / 2, (value["max", 2] + value["min", 2]) / 2,
      (width > height ? width : height) / 10 }')

show query "$repository" '#num{type=uint8_t}("classification", ==, 2)'
show query "$repository" "#within{type=sphere}($sphere)"
show query "$repository" \
  "#and(#within{type=sphere}($sphere), #not(#num{type=uint8_t}(\"classification\", ==, 2)))" \
  -o demo/selected.las --overwrite
echo
echo "picture: demo/scan.png, selected points: demo/selected.las"
