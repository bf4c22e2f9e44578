// Differential fuzzing of get_search_candidates against a plain model of the
// frames.
//
// The input grows and shrinks a bounds trail (terms of mixed formats, both
// flags), moves the trail mark, and asks for the candidates of value
// elements holding a subset of the terms.  The model walks the trail from
// the start: per literal, its newest bound gives the value, the newest bound
// at or before the mark the maximum limit M (else the infinite limit), and
// the bounds after the mark at positions p1 < ... < pk with values x1 ... xk
// give the fixed limits (-1, M), (p1, M), (p2, x1), ..., (pk, x(k-1)).
// Frames must come in the working map's iteration order (bucket index
// ascending), once per literal.
#include "float_model.h"
#include "fp/interval_heuristics.h"

#include <map>
#include <vector>

namespace {

using namespace qorv;
using qorv::fuzz::same_pattern;

struct Want {
  IEEEFloat const* value = nullptr;
  IEEEFloat const* max = nullptr; // null: the infinite limit
  std::vector<std::pair<int, IEEEFloat const*>> after;
};

void check(fp::FpIntervalChoiceHeuristic& h, FpValueElement const& element) {
  std::vector<FpBoundElement*> const& bounds = h.trail.bounds;
  std::map<std::uint64_t, Want> want;
  for (std::size_t p = 1; p <= bounds.size(); ++p) {
    FpBoundElement const& e = *bounds[p - 1];
    if (!element.terms.contains(e.term())) continue;
    Want& w = want[e.lit.word];
    w.value = &e.value;
    if (p > h.trail_mark)
      w.after.emplace_back(static_cast<int>(p), &e.value);
    else
      w.max = &e.value;
  }

  std::vector<fp::FpIntervalSearchFrame> const& got = h.get_search_candidates(element);
  FUZZ_CHECK(&got == &h.search_candidates && got.size() == want.size());
  auto in_map = h.frames_by_lit.begin();
  std::uint64_t last_bucket = 0;
  for (fp::FpIntervalSearchFrame const& f : got) {
    FUZZ_CHECK(in_map != h.frames_by_lit.end() && in_map->first == f.lit);
    std::uint64_t const bucket = f.lit.word % h.frames_by_lit.bucket_count();
    FUZZ_CHECK(bucket >= last_bucket);
    last_bucket = bucket;
    ++in_map;

    auto it = want.find(f.lit.word);
    FUZZ_CHECK(it != want.end() && it->second.value); // each literal once
    Want& w = it->second;
    FUZZ_CHECK(same_pattern(f.value, *w.value) && f.counter == 0);
    IEEEFloat::format const fmt = w.value->get_format();
    IEEEFloat const infinite = f.flag() ? IEEEFloat::nan(fmt) : IEEEFloat::inf(fmt, false);
    IEEEFloat const& m = w.max ? *w.max : infinite;
    FUZZ_CHECK(same_pattern(f.max_limit, m) && f.limits.size() == w.after.size() + 1);
    FUZZ_CHECK(f.limits[0].first == -1 && same_pattern(f.limits[0].second, m));
    for (std::size_t i = 0; i < w.after.size(); ++i)
      FUZZ_CHECK(f.limits[i + 1].first == w.after[i].first &&
                 same_pattern(f.limits[i + 1].second, i == 0 ? m : *w.after[i - 1].second));
    FUZZ_CHECK(f.max_limit_inf() == (f.flag() ? fuzz::model_of(m).nan : same_pattern(m, infinite)));
    w.value = nullptr;
  }
  h.frames_by_lit.check_invariants();
  h.lits_with_max_limit.check_invariants();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::Input in(data, size);
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail(&tm);
  fp::FpIntervalChoiceHeuristic h(domain, trail);
  std::vector<Term const*> terms;
  for (int i = 0; i < 5; ++i)
    terms.push_back(tm.mk_var("t" + std::to_string(i), tm.fp_sort(fuzz::pick_format(in))));

  while (in.more() && trail.bounds.size() < 2000) {
    std::uint8_t const op = in.byte() % 8;
    if (op < 4) { // a bound of some term, either flag
      Term const* t = terms[in.below(terms.size())];
      bool const flag = in.flag();
      IEEEFloat::format const f{t->symbol->get_output_type()->eb, t->symbol->get_output_type()->sb};
      IEEEFloat const v = fuzz::pick_value(in, f);
      for (int n = in.byte() % 4; n >= 0; --n)
        trail.bounds.push_back(domain.new_FpBoundElement(flag, t, v));
    } else if (op == 4) { // backtrack
      std::size_t const keep = in.below(trail.bounds.size() + 1);
      for (; trail.bounds.size() > keep; trail.bounds.pop_back())
        domain.release_FpBoundElement(trail.bounds.back());
    } else if (op == 5) {
      h.trail_mark = in.flag() ? in.u64() : in.below(trail.bounds.size() + 2);
    } else {
      FpValueElement element;
      std::uint8_t const mask = in.byte();
      for (std::size_t i = 0; i < terms.size(); ++i)
        if (mask & (1u << i)) element.terms.insert(terms[i]);
      check(h, element);
    }
  }
  for (FpBoundElement* e : trail.bounds)
    domain.release_FpBoundElement(e);
  return 0;
}
