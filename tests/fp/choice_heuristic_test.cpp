#include "fp/interval_heuristics.h"
#include "support/alloc_failure.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace qorv::fp {
namespace {

using Seen = std::vector<std::pair<int, std::string>>; // limits, front first
Seen seen(FpIntervalSearchFrame const* f) {
  Seen out;
  for (auto const& [p, v] : f->limits) out.emplace_back(p, v.to_str());
  return out;
}
std::string f32(double d) { return IEEEFloat::from_double(d, {8, 24}).to_str(); }
// The infinite limit's literal, written out from the format alone.
std::string inf_text(IEEEFloat::format f, bool flag) {
  return "(fp #b0 #b" + std::string(f.eb, '1') + " #b" + (flag ? "1" : "0") +
         std::string(f.sb - 2, '0') + ")";
}

struct ChoiceHeuristicTest : ::testing::Test {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail{&tm};
  FpValueElement element;
  FpIntervalChoiceHeuristic h{domain, trail};
  Term const* t = tm.mk_var("t", tm.fp_sort(8, 24));
  Term const* u = tm.mk_var("u", tm.fp_sort(8, 24));
  std::string const nan = inf_text({8, 24}, true), inf = inf_text({8, 24}, false);

  ~ChoiceHeuristicTest() override { release_all(); }
  void release_all() {
    for (FpBoundElement* e : trail.bounds) domain.release_FpBoundElement(e);
    trail.bounds.clear();
  }
  void add(Term const* term, bool flag, IEEEFloat const& v) {
    trail.bounds.push_back(domain.new_FpBoundElement(flag, term, v));
  }
  void add(Term const* term, bool flag, double d) { add(term, flag, IEEEFloat::from_double(d, {8, 24})); }
  FpIntervalSearchFrame const* frame(Term const* term, bool flag) const {
    for (FpIntervalSearchFrame const& f : h.search_candidates)
      if (f.lit == TheoryLit::make(term, flag)) return &f;
    return nullptr;
  }
  void expect_map_order() const { // the result follows the map's iteration order
    std::vector<TheoryLit> want, got;
    for (auto const& entry : h.frames_by_lit) want.push_back(entry.first);
    for (FpIntervalSearchFrame const& f : h.search_candidates) got.push_back(f.lit);
    EXPECT_EQ(got, want);
  }
};

TEST_F(ChoiceHeuristicTest, WorkedExampleAndMarksAtTheEnds) {
  add(t, false, 1), add(t, false, 2), add(u, true, 3), add(t, false, 4), add(t, false, 5);
  element.terms.insert(t), element.terms.insert(u);
  h.trail_mark = 2;
  ASSERT_EQ(h.get_search_candidates(element).size(), 2u);
  expect_map_order();
  FpIntervalSearchFrame const *a = frame(t, false), *b = frame(u, true);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(a->value.to_str(), f32(5));
  EXPECT_EQ(a->max_limit.to_str(), f32(2));
  EXPECT_EQ(seen(a), (Seen{{-1, f32(2)}, {4, f32(2)}, {5, f32(4)}}));
  EXPECT_EQ(b->value.to_str(), f32(3));
  EXPECT_EQ(b->max_limit.to_str(), nan);
  EXPECT_EQ(seen(b), (Seen{{-1, nan}, {3, nan}}));

  h.trail_mark = 0;
  h.get_search_candidates(element);
  EXPECT_EQ(seen(frame(t, false)), (Seen{{-1, inf}, {1, inf}, {2, f32(1)}, {4, f32(2)}, {5, f32(4)}}));
  for (std::uint64_t mark : {5u, 1000u}) {
    h.trail_mark = mark;
    h.get_search_candidates(element);
    EXPECT_EQ(seen(frame(t, false)), (Seen{{-1, f32(5)}}));
    EXPECT_EQ(seen(frame(u, true)), (Seen{{-1, f32(3)}}));
  }
}

TEST_F(ChoiceHeuristicTest, FramesPerLiteralOfElementTermsThroughOneReference) {
  Term const* outside = tm.mk_var("v", tm.fp_sort(8, 24));
  auto const& result = h.get_search_candidates(element);
  EXPECT_TRUE(result.empty()); // empty trail
  add(t, true, 1), add(outside, false, 9), add(t, false, 2), add(outside, true, 9);
  EXPECT_TRUE(h.get_search_candidates(element).empty()); // element without terms
  element.terms.insert(t);
  h.trail_mark = 1;
  EXPECT_EQ(&h.get_search_candidates(element), &result);
  ASSERT_EQ(result.size(), 2u); // both flags of t, nothing of v
  EXPECT_EQ(seen(frame(t, true)), (Seen{{-1, f32(1)}}));
  EXPECT_EQ(seen(frame(t, false)), (Seen{{-1, inf}, {3, inf}}));

  // Warmed up, a call that keeps no frame allocates nothing.
  FpValueElement others;
  others.terms.insert(u); // u has no bound
  h.get_search_candidates(others);
  test::disarm_allocation_failure();
  EXPECT_TRUE(h.get_search_candidates(others).empty());
  EXPECT_EQ(test::allocations_seen(), 0);
}

// Random trails against a model that keeps every bound of each literal.
TEST_F(ChoiceHeuristicTest, MatchesAReferenceModelOnRandomTrails) {
  std::mt19937_64 rng(7);
  IEEEFloat::format const formats[] = {{5, 11}, {3, 5}, {8, 24}, {11, 53}, {15, 113}, {2, 80}};
  std::vector<Term const*> terms;
  for (auto f : formats) terms.push_back(tm.mk_var("x", tm.fp_sort(f)));
  for (int round = 0; round < 300; ++round) {
    release_all();
    FpValueElement el;
    for (Term const* term : terms)
      if (rng() % 3) el.terms.insert(term);
    std::uint64_t const n = rng() % 40;
    std::map<std::uint64_t, std::vector<std::pair<std::uint64_t, std::string>>> model;
    for (std::uint64_t p = 1; p <= n; ++p) {
      std::size_t const i = rng() % terms.size();
      bool const flag = rng() % 2;
      mpz_class bits = (mpz_class(static_cast<unsigned long>(rng())) << 64) + static_cast<unsigned long>(rng());
      bits &= (mpz_class(1) << static_cast<unsigned long>(formats[i].eb + formats[i].sb)) - 1;
      add(terms[i], flag, IEEEFloat::from_bits(bits.get_mpz_t(), formats[i]));
      if (el.terms.contains(terms[i]))
        model[TheoryLit::make(terms[i], flag).word].emplace_back(p, trail.bounds.back()->value.to_str());
    }
    std::uint64_t const marks[] = {0, n, n + 3, rng() % (n + 1)};
    h.trail_mark = marks[rng() % 4];

    ASSERT_EQ(h.get_search_candidates(el).size(), model.size());
    expect_map_order();
    for (FpIntervalSearchFrame const& f : h.search_candidates) {
      auto const& bounds = model.at(f.lit.word);
      std::string m = inf_text(f.value.get_format(), f.lit.flag());
      Seen want; // each position paired with the value held just before it
      for (std::size_t i = 0; i < bounds.size(); ++i) {
        if (bounds[i].first <= h.trail_mark) m = bounds[i].second;
        else want.emplace_back(static_cast<int>(bounds[i].first), want.empty() ? m : bounds[i - 1].second);
      }
      want.insert(want.begin(), {-1, m});
      EXPECT_EQ(f.value.to_str(), bounds.back().second);
      EXPECT_EQ(f.max_limit.to_str(), m);
      EXPECT_EQ(seen(&f), want) << "round " << round << " mark " << h.trail_mark;
      EXPECT_EQ(f.counter, 0);
    }
  }
}

} // namespace
} // namespace qorv::fp
