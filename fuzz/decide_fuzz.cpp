// Fuzzing decide() against the rules it must obey.
//
// The input builds terms (variables and constants of mixed formats), a term
// list with a split position (past the end too), interval ends of its own
// choosing (single values, NaN ends, inverted intervals), and interleaves
// decisions with assertions and backtracking.  Before each call the harness
// works out from the pattern model (float_model.h) which segment is looked
// at and which terms are candidates; the answer must then be:
//   - no candidate: the domain's no-decision element, generator and last
//     decision untouched;
//   - a candidate admitting NaN: the first such one in list order, flag set,
//     negative infinity of its format, no draw;
//   - else the candidate after the last decided term when that is still a
//     candidate (one draw, for the flag), or a drawn one (two draws); the
//     value is the split point (the floor of the average of the ends' ranks
//     in the packed order, float_model.h), inside the interval when it is
//     ordered.
// The last decision always copies the returned element; a single value is
// never chosen.
#include "float_model.h"
#include "fp/interval_heuristics.h"

#include <algorithm>
#include <vector>

namespace {

using namespace qorv;
using fuzz::model_less;
using fuzz::same_pattern;

std::uint64_t lcg(std::uint64_t s) {
  return (s * 0x5DEECE66DULL + 11) & ((1ULL << 48) - 1);
}

IEEEFloat::format format_of(Term const* t) {
  DataType const* d = t->symbol->get_output_type();
  return {d->eb, d->sb};
}

struct Harness {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail{&tm};
  FpDecDepManager manager;
  fp::FpIntervalDecisionHeuristic h{domain, trail, manager};
  std::vector<Term const*> terms;
  std::vector<FpBoundElement*> unasserted;

  ~Harness() {
    trail.backtrack(0, &domain);
    for (FpBoundElement* e : unasserted)
      domain.release_FpBoundElement(e);
    FUZZ_CHECK(domain.live_elements() == 0);
  }

  bool single(fp::FpValueInterval const& iv) { return same_pattern(iv.upper(), iv.lower()); }
  bool admits_nan(fp::FpValueInterval const& iv) {
    return !model_less(iv.upper(), iv.lower()) && fuzz::model_of(iv.lower()).nan;
  }

  FpBoundElement* decide_and_check() {
    std::vector<Term const*> const& list = manager.terms;
    std::size_t const split = std::min(manager.split, list.size());
    std::vector<Term const*> cands;
    for (std::size_t seg = 0; seg < 2 && cands.empty(); ++seg) // second only if first has none
      for (std::size_t i = seg ? split : 0; i < (seg ? list.size() : split); ++i)
        if (!single(trail.interval(list[i]))) cands.push_back(list[i]);
    std::uint64_t const s0 = h.generator_state();
    TheoryLit const last = h.last_decision().lit;
    IEEEFloat const last_value = h.last_decision().value;

    FpBoundElement* e = h.decide();
    FUZZ_CHECK(e != nullptr && domain.is_no_decision(e) == cands.empty());
    if (cands.empty()) {
      FUZZ_CHECK(h.generator_state() == s0 && h.last_decision().lit == last &&
                 same_pattern(h.last_decision().value, last_value));
      return nullptr;
    }
    unasserted.push_back(e);
    FUZZ_CHECK(h.last_decision().lit == e->lit && same_pattern(h.last_decision().value, e->value));
    auto nan_first = std::find_if(cands.begin(), cands.end(),
                                  [this](Term const* t) { return admits_nan(trail.interval(t)); });
    if (nan_first != cands.end()) {
      IEEEFloat const minus_inf = IEEEFloat::inf(format_of(*nan_first), true);
      FUZZ_CHECK(e->lit == TheoryLit::make(*nan_first, true) && same_pattern(e->value, minus_inf) &&
                 h.generator_state() == s0);
      return e;
    }
    auto const k = static_cast<std::uint32_t>(cands.size());
    auto round_robin = std::find(cands.begin(), cands.end(), last.term());
    std::uint64_t s = lcg(s0);
    std::uint32_t index;
    if (last.term() && round_robin != cands.end()) {
      index = static_cast<std::uint32_t>((round_robin - cands.begin() + 1) % k);
    } else {
      index = static_cast<std::uint32_t>(s >> 16) % k;
      s = lcg(s);
    }
    FUZZ_CHECK(h.generator_state() == s &&
               e->lit == TheoryLit::make(cands[index], ((s >> 16) & 1) != 0));
    fp::FpValueInterval const& iv = trail.interval(cands[index]);
    mpz_class bits;
    e->value.get_bits(bits.get_mpz_t());
    FUZZ_CHECK(bits == fuzz::split_pattern(iv.lower(), iv.upper()));
    if (!model_less(iv.upper(), iv.lower()))
      FUZZ_CHECK(!model_less(e->value, iv.lower()) && !model_less(iv.upper(), e->value));
    return e;
  }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::Input in(data, size);
  Harness x;
  for (int i = 0; i < 6; ++i) {
    DataType const* sort = x.tm.fp_sort(fuzz::pick_format(in));
    IEEEFloat::format const f{sort->eb, sort->sb};
    if (in.byte() % 4 == 0)
      x.terms.push_back(x.tm.mk_const(
          sort, QNumber(fuzz::pick_pattern(in, f).get_mpz_t(), mpz_class(1).get_mpz_t())));
    else
      x.terms.push_back(x.tm.mk_var("v" + std::to_string(i), sort));
  }
  int steps = 0;
  while (in.more() && ++steps < 400) {
    switch (in.byte() % 6) {
    case 0: // a new term list and split position
      x.manager.terms.clear();
      for (std::size_t n = in.below(10); n > 0; --n)
        x.manager.terms.push_back(x.terms[in.below(x.terms.size())]);
      x.manager.split = in.below(x.manager.terms.size() + 2);
      break;
    case 1: { // interval ends chosen freely: single values, NaN, inverted
      Term const* t = x.terms[in.below(x.terms.size())];
      fp::FpValueInterval& iv = x.trail.interval(t);
      iv.lower_ends.back() = fuzz::pick_value(in, format_of(t));
      iv.upper_ends.back() = in.byte() % 4 == 0 ? iv.lower() : fuzz::pick_value(in, format_of(t));
      break;
    }
    case 2: // backtrack
      x.trail.backtrack(in.below(x.trail.size() + 1), &x.domain);
      break;
    case 3:
    case 4: // decide and assert, as a search would
      if (FpBoundElement* e = x.decide_and_check())
        x.unasserted.pop_back(), x.trail.assert_bound(e);
      break;
    default:
      x.decide_and_check();
    }
  }
  x.trail.check_invariants();
  return 0;
}
