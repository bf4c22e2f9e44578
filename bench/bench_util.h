// Shared helpers of the benchmarks: the allocation counter, reproducible
// random data, live terms to key the tables with, and the naming scheme.
//
// Every benchmark is named "<area>.<operation>/<implementation>/<size>";
// implementation "qorv" is ours and every other one is a peer measured in the
// same run.  scripts/bench_report.py divides each peer's time per item by
// ours, so a ratio above 1 means that we are faster.  Benchmarks report
// items (operations) per iteration so that times compare per operation.
#pragma once

#include "host/terms.h"
#include "tests/common/alloc_failure.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qorv::bench {

// Heap allocations made so far by this process through operator new and
// through malloc calls of the library (its pool chunks).  The counting hooks
// are the tests' allocation-failure hooks, never armed here.
inline std::uint64_t allocation_count() noexcept {
  return static_cast<std::uint64_t>(qorv::test::allocations_seen());
}

// Allocations made while a benchmark's timed loop ran, per call of the
// operation under test; reported as the "allocs_per_call" counter.
class AllocationProbe {
public:
  AllocationProbe() noexcept : start_(allocation_count()) {}
  void report(benchmark::State& state, std::uint64_t calls) const {
    double const n = static_cast<double>(allocation_count() - start_);
    state.counters["allocs_per_call"] = calls ? n / static_cast<double>(calls) : 0.0;
  }

private:
  std::uint64_t start_;
};

inline std::mt19937_64& rng() {
  static std::mt19937_64 engine(20240601);
  return engine;
}

template <class T>
void shuffle(std::vector<T>& v) {
  std::shuffle(v.begin(), v.end(), rng());
}

// n live Float32 variables of one process-wide term manager; the manager
// only grows, so earlier terms keep their addresses.
inline std::vector<Term const*> const& live_terms(std::size_t n) {
  static TermManager tm;
  static std::vector<Term const*> terms;
  DataType const* sort = tm.fp_sort(8, 24);
  while (terms.size() < n)
    terms.push_back(tm.mk_var("x" + std::to_string(terms.size()), sort));
  return terms;
}

inline std::string bench_name(char const* area_op, char const* impl, std::int64_t size) {
  return std::string(area_op) + "/" + impl + "/" + std::to_string(size);
}

} // namespace qorv::bench
