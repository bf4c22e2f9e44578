#!/usr/bin/env bash
# Sets up the project and runs its main job: fpsolve, the interval search for
# SMT-LIB floating-point comparison problems.  With no argument it solves the
# built-in showcase problem (--demo); otherwise the arguments go to fpsolve as they are
# (an SMT-LIB file, '-' for standard input, --stats, --trace, ...).  Installs
# only what building and running fpsolve needs.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$here/build"
"$here/scripts/setup.sh" run "$build" -DQORV_BUILD_TESTS=OFF
if [ $# -eq 0 ]; then set -- --demo; fi
exec "$build/tools/fpsolve" "$@"
