#!/usr/bin/env bash
# Fails when a lower folder includes a higher one. Each layer uses only those above it here.
set -euo pipefail
cd "$(dirname "$0")/.."
failed=0

# forbid FOLDER PATTERN: no include in FOLDER may match PATTERN.
forbid() {
  if grep -rnE "#include [<\"]($2)" "$1" --include='*.h' --include='*.cpp'; then
    echo "check-layers: $1 must not include $2" >&2
    failed=1
  fi
}

forbid QelSysTS 'OOCPointCloud|host/|apps/'
forbid OOCPointCloud 'OOCPointCloudTarn|host/|apps/'
forbid OOCPointCloudTarn 'host/|apps/'
forbid OOCPointCloudTarn/query 'OOCPointCloudTarn/(evaluation|repository)/'
forbid OOCPointCloudTarn/evaluation 'OOCPointCloudTarn/repository/'
forbid OOCPointCloudTarn/repository 'OOCPointCloudTarn/(query|evaluation)/'
forbid host 'apps/'
forbid host/formats 'host/(build|cloud|lod|select|render|synthesize)/'
forbid host/cloud 'host/(build|lod|select|render|synthesize)/'
forbid host/lod 'host/(build|select|render|synthesize)/'
forbid host/select 'host/(build|lod|render|synthesize)/'
forbid host/render 'host/(build|synthesize)/'
forbid host/build 'host/repair/'
forbid host/repair 'host/(lod|select|render|synthesize)/'

[ $failed -eq 0 ] && echo "layers: sound"
exit $failed
