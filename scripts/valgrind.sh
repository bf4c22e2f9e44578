#!/usr/bin/env bash
# Runs every test program once under valgrind memcheck, in its own build
# without sanitizers: the unit tests (each gtest program whole, not test by
# test), the allocation-failure scenarios and the seed-corpus replays.  Any
# memcheck error (invalid access, use of uninitialised memory, bad free,
# definite or indirect leak) fails the run.  Prints the error count per
# program and in total.
#
#   scripts/valgrind.sh [BUILD_DIR]        default build-valgrind
#
# The test programs replace operator new and wrap malloc for failure
# injection.  memcheck would by default replace that operator new with its
# own (and the injected failures would never fire), so it is told to
# intercept only the shared libraries' allocation functions
# (somalloc=nouserintercepts): the test programs' operator new and delete
# then end in the C library's malloc and free, which memcheck tracks.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-"$here/build-valgrind"}

"$here/scripts/setup.sh" test
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQORV_SANITIZE=OFF \
  -DQORV_BUILD_TESTS=ON -DQORV_BUILD_BENCH=OFF -DQORV_BUILD_FUZZ=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" >"$build/valgrind-build.log" 2>&1 || { cat "$build/valgrind-build.log" >&2; exit 1; }

# The exhaustive and random arithmetic checks, the solver's brute force
# (every tiny format, with and without atom decisions), the bit-vector
# projections on every box,
# the clause check by enumeration, the needles, the real scripts against
# enumeration and the random simplex systems take minutes under memcheck;
# the AddressSanitizer run covers them.
export GTEST_FILTER='-FpArith.Exhaustive*:FpArith.RandomOperands*:BruteForce.*:BvProjection.EveryOperation*:BvProjection.Conversions*:AtomDecisions.*:ModelSearch.Needles*:Reals.AgreeWithEnumeration*:RealRounding.*:Simplex.AgreesWith*'
mkdir -p "$build/valgrind"
runs=()
for p in "$build"/tests/qorv_*_tests "$build"/tests/solver/fpsolve_tests "$build"/tests/api/fpsolve_api_tests; do
  [ -x "$p" ] && runs+=("$p")
done
for p in "$build"/fuzz/replay_*; do
  [ -x "$p" ] && runs+=("$p $here/fuzz/corpus/${p##*/replay_}")
done

total=0
failed=0
for run in "${runs[@]}"; do
  prog=${run%% *}
  name=$(basename "$prog")
  log="$build/valgrind/$name.log"
  # shellcheck disable=SC2086 # the replay programs take their corpus as argument
  if valgrind --tool=memcheck --error-exitcode=99 --leak-check=full \
       --soname-synonyms=somalloc=nouserintercepts \
       --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
       --num-callers=30 --log-file="$log" $run >"$log.out" 2>&1; then
    status=0
  else
    status=$?
  fi
  errors=$(grep -o 'ERROR SUMMARY: [0-9]*' "$log" | awk '{print $3}' | tail -1)
  errors=${errors:-?}
  if [ "$status" -ne 0 ] || [ "$errors" != 0 ]; then
    failed=1
    printf '%-28s %s errors, exit %s  (see %s)\n' "$name" "$errors" "$status" "$log"
  else
    printf '%-28s 0 errors\n' "$name"
  fi
  [[ "$errors" =~ ^[0-9]+$ ]] && total=$((total + errors))
done
echo "valgrind memcheck: ${#runs[@]} programs, $total errors"
exit $failed
