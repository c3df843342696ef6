#!/usr/bin/env bash
# Runs clang-tidy over the sources (not the tests), several of a folder as one.
#   scripts/check-tidy.sh            all of them
#   scripts/check-tidy.sh FILE...    some of them, each alone, as build/release compiles it
set -euo pipefail
cd "$(dirname "$0")/.."

tidy() { xargs -P "$(nproc)" -n 1 clang-tidy --quiet --extra-arg=-Wno-unknown-warning-option "$@" 2>&1; }
# What it says of warnings that it does not show.
without_counts() { grep -vE '^[0-9]+ warnings? |^Suppressed |^Use -header' || true; }

# Takes out what clang does not know of the other compiler's options.
for_clang() { sed 's/ -fno-gnu-unique//g' "$1/compile_commands.json"; }

if [ $# -gt 0 ]; then
  mkdir -p build/tidy-alone
  for_clang build/release >build/tidy-alone/compile_commands.json
  printf '%s\n' "$@" | tidy -p build/tidy-alone | without_counts
else
  rm -rf build/tidy
  cmake --preset tidy >/dev/null
  commands=$(for_clang build/tidy)
  echo "$commands" >build/tidy/compile_commands.json
  sources=$(python3 scripts/join_sources.py build/tidy)
  # The longest first, so that none is left over for one processor alone.
  ls -S $sources | tidy -p build/tidy | without_counts | python3 scripts/join_sources.py --name
fi
echo "tidy: sound"
