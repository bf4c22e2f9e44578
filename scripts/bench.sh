#!/usr/bin/env bash
# Builds the benchmarks in Release and runs the whole suite (ours and every
# peer side by side, one process; the floating-point arithmetic against
# hardware double and bare MPFR included), then writes
#   bench-results/results.json  Google Benchmark's machine-readable output,
#   bench-results/ratios.md     ratios against each peer, goals met or missed,
#   bench-results/plot.png      time per operation against size.
# A few minutes on a 2-core machine.
#   scripts/bench.sh [extra Google Benchmark arguments, e.g. --benchmark_filter=hash]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$here/build-bench"
out="$here/bench-results"
# Release (-O3) without -Werror: GCC 12 reports false -Wrestrict warnings
# inside std::string at -O3; the CI build of the benchmarks keeps -Werror.
"$here/scripts/setup.sh" "$build" -DCMAKE_BUILD_TYPE=Release -DQORV_BUILD_BENCH=ON \
  -DQORV_BUILD_TESTS=OFF -DQORV_BUILD_TOOLS=OFF
mkdir -p "$out"
"$build/bench/qorv_bench" --benchmark_min_time=0.1 \
  --benchmark_out="$out/results.json" --benchmark_out_format=json "$@"
# Debian's interpreter: it is the one that sees python3-matplotlib.
py=/usr/bin/python3
[ -x "$py" ] || py=python3
"$py" "$here/scripts/bench_report.py" "$out/results.json" "$out/ratios.md" "$out/plot.png"
echo "bench: wrote $out/results.json, $out/ratios.md and $out/plot.png"
