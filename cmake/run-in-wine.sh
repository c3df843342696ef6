#!/bin/sh
# Runs a Windows program in wine. What it says goes by way of files: wine starts services of its own
# that outlive the program, and would keep whoever reads from a pipe waiting.
said=$(mktemp -d) || exit 1
# Wine gives programs those letters of their arguments that the locale has.
export LC_ALL=C.UTF-8
trap 'rm -rf "$said"' EXIT
for attempt in 1 2 3; do
  wine "$@" >"$said/out" 2>"$said/err" </dev/null
  code=$?
  # Our programs never fail without a word: then it was wine that could not start one.
  [ $code -eq 0 ] || [ -s "$said/out" ] || [ -s "$said/err" ] || continue
  break
done
[ $attempt -eq 1 ] || echo "wine could not start $1 at once" >>"$said/err"
cat "$said/out"
cat "$said/err" >&2
exit $code
