#!/usr/bin/env bash
# Runs for as long as it is told to what is random in the tests, each round with numbers of its own:
# trees of the query language, and programs killed at any moment. Stops at the first failure and says
# how to repeat it.
#   scripts/test-long.sh [MINUTES] [SEED] [BUILD]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
minutes=${1:-60}
first=${2:-$(date +%s)}
build=${3:-$root/build/release}
times=${TARN_SELECT_TIMES:-5}
end=$((SECONDS + 60 * minutes))
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# repeat COMMAND...: runs it quietly; shows what it said and the command when it fails.
repeat() {
  if env "$@" > "$log" 2>&1; then return; fi
  cat "$log"
  echo "test-long: failed; to repeat it: $*" >&2
  exit 1
}

for operation in import overwrite append; do
  [ "${KILL_ROUNDS:-200}" -gt 0 ] || break
  repeat python3 "$root/tests/cli/kill_test.py" "$build/bin/tarn" --operation $operation \
    --rounds "${KILL_ROUNDS:-200}"
  echo "$operation: killed ${KILL_ROUNDS:-200} times"
done

seed=$first
trees=0
while [ $SECONDS -lt $end ]; do
  repeat TARN_SELECT_TIMES=$times TARN_SELECT_SEED=$seed "$build/bin/host_select_tests" \
    '--gtest_filter=*RandomTrees*'
  trees=$((trees + $(awk '/^asked/ { sum += $2 } END { print sum + 0 }' "$log")))
  seed=$((seed + 1))
done
if grep -q SKIPPED "$log"; then echo "trees: of no real scans, which are not here"; fi
echo "trees: $trees, seeds $first to $((seed - 1)), all answered alike"
