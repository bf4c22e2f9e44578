// The two heuristics against their floors, the hash lookups that each call
// cannot avoid, timed in the same run on the same tables:
//   decide()                 one trail-map lookup per term of the term list;
//   get_search_candidates()  per bound, the value element's membership test
//                            and the lookup of the literal's entry.
// decide() runs over n terms, half of them variables (undecided: the fresh
// interval admits NaN) and half constants (single values), all in the first
// segment; the element it returns goes straight back to the domain, so every
// call sees the same state.  get_search_candidates() runs over a trail of n
// Float32 bounds on n/16 terms (random term and flag), three quarters of the
// terms in the value element, with the mark in the middle of the trail.
// Both report heap allocations per call in the timed loop, once warmed up.
#include "bench_util.h"

#include "fp/interval_heuristics.h"
#include "host/fp_host.h"

namespace qorv::bench {
namespace {

struct DecideSetup {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail{&tm};
  FpDecDepManager manager;
  fp::FpIntervalDecisionHeuristic heuristic{domain, trail, manager};

  explicit DecideSetup(std::size_t n) {
    DataType const* sort = tm.fp_sort(8, 24);
    for (std::size_t i = 0; i < n; ++i) {
      if (i % 2 == 0)
        manager.terms.push_back(tm.mk_var("v" + std::to_string(i), sort));
      else
        manager.terms.push_back(
            tm.mk_const(IEEEFloat::from_double(static_cast<double>(i), {8, 24})));
    }
    manager.split = n;
    domain.release_FpBoundElement(heuristic.decide()); // intervals made, list grown
  }
};

void decide(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  DecideSetup s(n);
  AllocationProbe probe;
  for (auto _ : state) {
    FpBoundElement* e = s.heuristic.decide();
    benchmark::DoNotOptimize(e);
    s.domain.release_FpBoundElement(e);
  }
  probe.report(state, state.iterations());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void decide_floor(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  DecideSetup s(n);
  AllocationProbe probe;
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (Term const* t : s.manager.terms)
      sum += s.trail.intervals.find(t)->second.flags.size();
    benchmark::DoNotOptimize(sum);
  }
  probe.report(state, state.iterations());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

struct SearchSetup {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail{&tm};
  FpValueElement element;
  fp::FpIntervalChoiceHeuristic heuristic{domain, trail};
  hsh::HashMap<TheoryLit, std::uint64_t> lit_index; // the floor's second lookup

  explicit SearchSetup(std::size_t n) {
    DataType const* sort = tm.fp_sort(8, 24);
    std::size_t const term_count = n / 16 < 16 ? 16 : n / 16;
    std::vector<Term const*> terms;
    for (std::size_t i = 0; i < term_count; ++i) {
      terms.push_back(tm.mk_var("s" + std::to_string(i), sort));
      if (i % 4 != 3) element.terms.insert(terms.back());
    }
    auto& g = rng();
    for (std::size_t i = 0; i < n; ++i) {
      Term const* t = terms[g() % term_count];
      bool const flag = (g() & 1) != 0;
      auto const v = IEEEFloat::from_double(static_cast<double>(g() % 100000) / 8, {8, 24});
      trail.bounds.push_back(domain.new_FpBoundElement(flag, t, v));
      lit_index[TheoryLit::make(t, flag)] = i;
    }
    heuristic.trail_mark = n / 2;
    // Warmed up: the first call grows the tables and the result array; the
    // second meets the map at its final size, whose chains (no longer
    // reversed by growth) give the frames the order of every later call.
    heuristic.get_search_candidates(element);
    heuristic.get_search_candidates(element);
  }
  ~SearchSetup() {
    for (FpBoundElement* e : trail.bounds)
      domain.release_FpBoundElement(e);
  }
  SearchSetup(SearchSetup const&) = delete;
  SearchSetup& operator=(SearchSetup const&) = delete;
};

void search(benchmark::State& state) {
  SearchSetup s(static_cast<std::size_t>(state.range(0)));
  AllocationProbe probe;
  for (auto _ : state)
    benchmark::DoNotOptimize(s.heuristic.get_search_candidates(s.element).data());
  probe.report(state, state.iterations());
  state.counters["frames"] = static_cast<double>(s.heuristic.search_candidates.size());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void search_floor(benchmark::State& state) {
  SearchSetup s(static_cast<std::size_t>(state.range(0)));
  AllocationProbe probe;
  for (auto _ : state) {
    std::uint64_t sum = 0;
    std::vector<FpBoundElement*> const& bounds = s.trail.bounds;
    for (std::size_t p = bounds.size(); p != 0; --p) {
      TheoryLit const lit = bounds[p - 1]->lit;
      if (!s.element.terms.contains(lit.term())) continue;
      sum += s.lit_index.find(lit)->second;
    }
    benchmark::DoNotOptimize(sum);
  }
  probe.report(state, state.iterations());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

[[maybe_unused]] int const registered = [] {
  for (std::int64_t n : {100, 10000, 1000000}) {
    benchmark::RegisterBenchmark(bench_name("heur.decide", "qorv", n).c_str(), decide)->Arg(n);
    benchmark::RegisterBenchmark(bench_name("heur.decide", "floor", n).c_str(), decide_floor)
        ->Arg(n);
  }
  for (std::int64_t n : {1000, 10000, 100000, 1000000}) {
    benchmark::RegisterBenchmark(bench_name("heur.search", "qorv", n).c_str(), search)->Arg(n);
    benchmark::RegisterBenchmark(bench_name("heur.search", "floor", n).c_str(), search_floor)
        ->Arg(n);
  }
  return 0;
}();

} // namespace
} // namespace qorv::bench
