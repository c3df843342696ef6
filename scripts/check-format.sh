#!/usr/bin/env bash
# Fails when a source file is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(find QelSysTS OOCPointCloud OOCPointCloudTarn host apps tests fuzz benchmarks \
  examples \( -name '*.cpp' -o -name '*.h' \) 2>/dev/null | sort)
clang-format --dry-run --Werror "${files[@]}"
echo "format: ${#files[@]} files"
