#!/usr/bin/env bash
# Builds the benchmarks in Release and runs the whole suite (ours and every
# peer side by side, one process; the floating-point arithmetic against
# hardware double and bare MPFR included), then writes
#   bench-results/results.json  Google Benchmark's machine-readable output,
#   bench-results/ratios.md     ratios against each peer, goals met or missed,
#   bench-results/plot.png      time per operation against size.
# A few minutes on a 2-core machine.  QORV_BENCH_BEFORE=<results.json of an
# earlier run> adds that run's ratios to the goals table.
#   scripts/bench.sh [extra Google Benchmark arguments, e.g. --benchmark_filter=hash]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$here/build-bench"
out="$here/bench-results"
# Release (-O3) without -Werror: GCC 12 reports false -Wrestrict warnings
# inside std::string at -O3; the CI build of the benchmarks keeps -Werror.
"$here/scripts/setup.sh" bench "$build" -DCMAKE_BUILD_TYPE=Release -DQORV_BUILD_BENCH=ON \
  -DQORV_BUILD_TESTS=OFF -DQORV_BUILD_TOOLS=OFF
mkdir -p "$out"
# Three repetitions, reported by their medians: the ratios of a shared
# machine move less than single runs.
"$build/bench/qorv_bench" --benchmark_min_time=0.05 --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true \
  --benchmark_out="$out/results.json" --benchmark_out_format=json "$@"
# The plot needs matplotlib: take the first python3 on PATH that has it
# (Debian's python3-matplotlib is seen by the system interpreter only).
py=python3
for c in $(type -ap python3); do
  if "$c" -c 'import matplotlib' 2>/dev/null; then py=$c; break; fi
done
# QORV_BENCH_BEFORE=results.json of an earlier run adds its ratios to the goals.
"$py" "$here/scripts/bench_report.py" "$out/results.json" "$out/ratios.md" "$out/plot.png" \
  ${QORV_BENCH_BEFORE:+"$QORV_BENCH_BEFORE"}
echo "bench: wrote $out/results.json, $out/ratios.md and $out/plot.png"
