#!/bin/sh
# Runs a Windows program in wine. What it says goes by way of files: wine starts services of its own
# that outlive the program, and would keep whoever reads from a pipe waiting.
said=$(mktemp -d) || exit 1
trap 'rm -rf "$said"' EXIT
wine "$@" >"$said/out" 2>"$said/err" </dev/null
code=$?
cat "$said/out"
cat "$said/err" >&2
exit $code
