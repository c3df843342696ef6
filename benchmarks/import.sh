#!/usr/bin/env bash
# Times a whole import beside the yardstick, `zstd -1 -T1` of the same file, in turn and in one run.
#   benchmarks/import.sh SCAN.las REPOSITORY [--memory SIZE]
# Replaces the repository. Environment: BUILD (default build/release), ROUNDS (default 4).
# The cloud of docs/performance.md: build/release/bin/tile_scan SCAN.las 18 18 big.las
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 SCAN.las REPOSITORY [--memory SIZE]" >&2; exit 2; }
scan=$1
repository=$2
shift 2
build=${BUILD:-$(dirname "$0")/../build/release}
TIMEFORMAT=%R

cat "$scan" >/dev/null
for _ in $(seq "${ROUNDS:-4}"); do
  yardstick=$({ time zstd -q -1 -T1 -f "$scan" -o "$repository.zst"; } 2>&1)
  import=$({ time "$build/bin/tarn" import -q --overwrite "$@" "$scan" -o "$repository"; } 2>&1)
  awk -v y="$yardstick" -v i="$import" \
    'BEGIN { printf "zstd -1 -T1 %.2f s, tarn import %.2f s: %.2f yardsticks\n", y, i, i / y }'
done
rm -f "$repository.zst"
du -sb "$repository" | awk '{ print "the repository has " $1 " bytes" }'
