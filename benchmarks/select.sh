#!/usr/bin/env bash
# Measures selections beside the yardstick, `zstd -1 -T1` of the cloud's LAS file, in one run.
#   benchmarks/select.sh SCAN.las REPOSITORY [BUILD]
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 SCAN.las REPOSITORY [BUILD]" >&2; exit 2; }
scan=$1
repository=$2
build=${3:-$(dirname "$0")/../build/release}
TIMEFORMAT=%R

cat "$scan" > /dev/null
yardstick=$( { time zstd -q -1 -T1 -c "$scan" > /dev/null; } 2>&1 )
echo "yardstick: zstd -1 -T1 takes $yardstick s for $(stat -c %s "$scan") bytes"
measured=$("$build/bin/bench_select" "$repository" "$yardstick")
echo "$measured"

sphere=$(sed -n 's/^count a sphere.*points  //p' <<< "$measured")
best=
for _ in 1 2 3 4 5 6 7; do
  seconds=$( { time "$build/bin/tarn" query "$repository" "$sphere" --local --count > /dev/null; } 2>&1 )
  if [ -z "$best" ] || awk "BEGIN { exit !($seconds < $best) }"; then best=$seconds; fi
done
echo "the same sphere, the whole program: $best s"
