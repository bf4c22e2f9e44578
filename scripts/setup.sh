#!/usr/bin/env bash
# Installs the Debian packages one purpose needs (only those missing), then,
# given a build directory, configures and builds into it.  This script is
# the only place that installs anything.  Idempotent; quiet when everything
# is there.
#
#   scripts/setup.sh PURPOSE [BUILD_DIR [extra cmake arguments...]]
#
# PURPOSE is what the packages are for:
#   run    build the library and fpsolve (compiler, CMake, GMP, MPFR)
#   test   run, plus GoogleTest, z3 and cvc5 (the differential test), valgrind,
#          clang-format (the format check)
#   bench  run, plus Google Benchmark, the peers (abseil, Boost, FLINT, GLPK) and the plot
#   fuzz   run, plus clang-14 and libFuzzer
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
usage() { echo "usage: scripts/setup.sh run|test|bench|fuzz [BUILD_DIR [cmake arguments...]]" >&2; exit 2; }
[ $# -gt 0 ] || usage
purpose=$1
shift

packages=(g++ cmake ninja-build pkg-config make libgmp-dev libmpfr-dev)
case "$purpose" in
  run) ;;
  test) packages+=(libgtest-dev libgmock-dev python3 z3 cvc5 valgrind clang-format-14) ;;
  bench) packages+=(libbenchmark-dev libabsl-dev libboost-dev libflint-dev libglpk-dev python3 python3-matplotlib) ;;
  fuzz) packages+=(clang-14 libfuzzer-14-dev libclang-rt-14-dev) ;;
  *) usage ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}" >&2
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq >/dev/null
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

[ $# -gt 0 ] || exit 0
build=$1
shift
cmake -S "$here" -B "$build" -G Ninja "$@" >/dev/null
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! cmake --build "$build" -j "$(nproc)" >"$log" 2>&1; then
  cat "$log" >&2
  echo "setup: build failed in $build" >&2
  exit 1
fi
