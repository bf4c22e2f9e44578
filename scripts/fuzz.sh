#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang-14 (address and undefined-behaviour
# sanitizers, library instrumented for coverage) and runs each for a bounded
# time, one per core at a time, starting from its seed corpus in fuzz/corpus/<name>.
# Prints executions and coverage per harness; fails when a harness finds a
# crash, a leak, a time-out or a difference from its oracle (the input is
# kept as build-fuzz/artifacts/<name>-crash-*).
#
#   scripts/fuzz.sh [SECONDS_PER_HARNESS]     default 90: six harnesses, one
#                                             per core at a time
# Environment: QORV_FUZZ_BUILD (build directory, default build-fuzz),
# QORV_FUZZ_JOBS (harnesses run at once, default: the number of cores).
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${QORV_FUZZ_BUILD:-"$here/build-fuzz"}
seconds=${1:-90}
jobs=${QORV_FUZZ_JOBS:-$(nproc)}

"$here/scripts/setup.sh" fuzz
CC=clang-14 CXX=clang++-14 cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQORV_BUILD_FUZZ=ON -DQORV_BUILD_TESTS=OFF -DQORV_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" >"$build/fuzz-build.log" 2>&1 || { cat "$build/fuzz-build.log" >&2; exit 1; }

mkdir -p "$build/logs" "$build/artifacts"
names=()
for bin in "$build"/fuzz/fuzz_*; do names+=("$(basename "$bin" | sed 's/^fuzz_//')"); done
[ ${#names[@]} -gt 0 ] || { echo "fuzz: no harness was built" >&2; exit 1; }

run_one() {
  local name=$1 dict=()
  mkdir -p "$build/corpus/$name"
  [ -f "$here/fuzz/$name.dict" ] && dict=(-dict="$here/fuzz/$name.dict")
  # The first corpus directory collects new inputs; the seeds stay untouched.
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:malloc_context_size=8:quarantine_size_mb=64 UBSAN_OPTIONS=print_stacktrace=1 \
    "$build/fuzz/fuzz_$name" "$build/corpus/$name" "$here/fuzz/corpus/$name" "${dict[@]}" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=2048 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" \
    >"$build/logs/$name.log" 2>&1
}
export -f run_one
export build here seconds

echo "fuzz: ${#names[@]} harnesses, ${seconds}s each, $jobs at a time"
status=0
printf '%s\n' "${names[@]}" | xargs -P "$jobs" -I{} bash -c 'run_one {} || echo {} >>"$build/logs/failed"' || true
printf '%-20s %12s %8s %8s  %s\n' harness executions cov ft result
for name in "${names[@]}"; do
  log="$build/logs/$name.log"
  execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | awk '{print $2}' | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | awk '{print $2}')
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | awk '{print $2}')
  result=ok
  if grep -qx "$name" "$build/logs/failed" 2>/dev/null; then result="FAILED (see $log)"; status=1; fi
  printf '%-20s %12s %8s %8s  %s\n' "$name" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$result"
done
rm -f "$build/logs/failed"
exit $status
