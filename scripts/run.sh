#!/usr/bin/env bash
# Sets up the project and runs its main job.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$here/build"
"$here/scripts/setup.sh" "$build"
exec "$build/tests/qorv_smoke" "$@"
