#!/usr/bin/env bash
# Sets up the project and runs every test.  Warnings are errors here.
#   scripts/test.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-"$here/build"}
[ $# -gt 0 ] && shift
"$here/scripts/setup.sh" test "$build" -DQORV_WERROR=ON -DQORV_BUILD_TESTS=ON "$@"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
