#!/usr/bin/env bash
# Installs the Debian packages the project needs (only those missing), then
# configures and builds into a build directory.  This script is the only
# place that installs anything.  Idempotent; quiet when everything is there.
#
#   scripts/setup.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-"$here/build"}
[ $# -gt 0 ] && shift

packages=(
  # build and test
  g++ cmake ninja-build pkg-config make libgmp-dev libmpfr-dev libgtest-dev libgmock-dev
  # independent solvers the command-line tool is checked against
  z3 cvc5
  # memory checking and fuzzing
  valgrind clang-14 libfuzzer-14-dev libclang-rt-14-dev
  # benchmarks, their peers and the report's plot
  libbenchmark-dev libabsl-dev libboost-dev libflint-dev python3 python3-matplotlib
)

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

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S "$here" -B "$build" -G Ninja "$@" >/dev/null
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! cmake --build "$build" -j "$jobs" >"$log" 2>&1; then
  cat "$log" >&2
  echo "setup: build failed in $build" >&2
  exit 1
fi
