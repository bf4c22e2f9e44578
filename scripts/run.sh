#!/usr/bin/env bash
# Sets up the project and runs its main job: fpsolve, the interval search for
# SMT-LIB floating-point comparison problems.  With no argument it solves the
# built-in showcase problem; otherwise the arguments go to fpsolve as they are
# (an SMT-LIB file, '-' for standard input, --stats, --trace, ...).
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$here/build"
"$here/scripts/setup.sh" "$build"
exec "$build/tools/fpsolve" "$@"
