// The stand-in host: bound elements from the domain's pool, their printed
// form, the trail asserting and undoing bounds in step with intervals, and
// the compacting trail matching a plain one.
#include "host/fp_host.h"

#include <gtest/gtest.h>

#include <random>

#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace qorv {
namespace {

IEEEFloat f32(double d) {
  return IEEEFloat::from_double(d, {8, 24});
}
std::string text(FpBoundElement const& e) {
  std::ostringstream out;
  e.print(out);
  return out.str();
}

// Elements print as literals and come from the pool in distinct blocks; a
// failed value copy giving its block back is the decide() hardening
// scenario's.
TEST(FpHost, NewBoundElementPrintsAndComesFromPool) {
  TermManager tm;
  FpIntervalDomain domain;
  Term const* x = tm.mk_var("x", tm.fp_sort(8, 24));
  FpBoundElement* lo = domain.new_FpBoundElement(true, x, f32(1.5));
  FpBoundElement* hi = domain.new_FpBoundElement(false, x, f32(-2));
  EXPECT_EQ(text(*lo), "x >= " + f32(1.5).to_str());
  EXPECT_EQ(text(*hi), "x <= (fp #b1 #b10000000 #b00000000000000000000000)");
  EXPECT_EQ(text(domain.no_decision), "undef");
  std::set<FpBoundElement*> seen{lo, hi}; // over two chunks
  for (int i = 2; i < 17; ++i)
    seen.insert(domain.new_FpBoundElement(i % 2, x, f32(i)));
  EXPECT_TRUE(seen.size() == 17u && domain.live_elements() == 17u);
  for (FpBoundElement* e : seen)
    domain.release_FpBoundElement(e);
  domain.release_FpBoundElement(&domain.no_decision); // ignored
  EXPECT_EQ(domain.live_elements(), 0u);
}

TEST(FpHost, TrailNarrowsOnlyAndBacktracksInStep) {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail(&tm);
  Term const* x = tm.mk_var("x", tm.fp_sort(8, 24));
  auto ends = [&] {
    fp::FpValueInterval& iv = trail.interval(x);
    return std::to_string(iv.lower().to_double()) + "," + std::to_string(iv.upper().to_double());
  };
  trail.assert_bound(domain.new_FpBoundElement(true, x, f32(-1)));
  trail.assert_bound(domain.new_FpBoundElement(false, x, f32(4)));
  EXPECT_EQ(ends(), "-1.000000,4.000000");
  trail.assert_bound(domain.new_FpBoundElement(true, x, f32(-3)));    // looser: kept
  trail.assert_bound(domain.new_FpBoundElement(false, x, f32(-0.0))); // tighter
  EXPECT_EQ(ends(), "-1.000000,-0.000000");
  EXPECT_EQ(trail.interval(x).flags, (std::vector<bool>{false, true, false, true, false}));
  trail.check_invariants();
  trail.backtrack(2, &domain);
  EXPECT_EQ(ends(), "-1.000000,4.000000");
  EXPECT_EQ(domain.live_elements(), 2u);
  trail.backtrack(0, &domain);
  EXPECT_TRUE(trail.interval(x).lower().is_nan());
  EXPECT_EQ(trail.interval(x).flags.size(), 1u);
  trail.check_invariants();
  EXPECT_EQ(domain.live_elements(), 0u);
}

// A compacting trail and a plain one take the same random bounds, levels,
// merges of the newest level into the one below (a plain trail just forgets
// that mark) and returns to levels, over Float32 terms (kept in words), a
// constant and a Float128 term (kept in the map): after every step every
// current interval is the same on both, the compacting one holds at most one
// bound per term and level however many bounds a level takes, and its view
// of the listed terms, once updated, equals the current intervals while
// unlisted terms get no view entry.  check_invariants runs after every step.
TEST(FpHost, CompactionKeepsOneEntryPerLevelAndBacktracksExactly) {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail plain(&tm), compact(&tm);
  compact.enable_compaction(&domain);
  std::vector<Term const*> terms;
  for (int i = 0; i < 4; ++i)
    terms.push_back(tm.mk_var("t" + std::to_string(i), tm.fp_sort(8, 24)));
  terms.push_back(tm.mk_const(f32(2)));
  terms.push_back(tm.mk_var("q", tm.fp_sort(15, 113)));
  std::vector<Term const*> const listed(terms.begin() + 1, terms.end()); // t0 is never viewed
  ASSERT_TRUE(compact.in_words(terms[0]) && !compact.in_words(terms[5]));
  std::vector<std::size_t> plain_marks, compact_marks; // one per level, in step
  std::mt19937_64 rng(25);
  auto same = [&] {
    for (Term const* t : terms)
      for (bool lower : {true, false})
        if (!payload_equal(plain.current_end(t, lower), compact.current_end(t, lower)))
          return false;
    for (Term const* t : terms) {
      std::size_t n = 0;
      for (FpBoundElement const* e : compact.bounds)
        n += e->term() == t;
      if (n > compact.marks() + 1) return false; // level 0 and one per level
    }
    return true;
  };
  int merges = 0;
  for (int step = 0; step < 6000; ++step) {
    int const what = static_cast<int>(rng() % 10);
    bool const fresh = compact_marks.empty() || compact_marks.back() != compact.size();
    if (what == 0 && fresh && plain_marks.size() < 6) { // a level per length
      plain_marks.push_back(plain.size());
      compact_marks.push_back(compact.mark());
    } else if (what == 1 && !plain_marks.empty()) {
      std::size_t const k = rng() % plain_marks.size(); // back to level k's start
      plain.backtrack(plain_marks[k], &domain);
      compact.backtrack(compact_marks[k], &domain);
      plain_marks.resize(k);
      compact_marks.resize(k);
    } else if (what == 2 && compact_marks.size() >= 2) {
      std::size_t const below = compact.size();
      compact.merge_last_level();
      plain_marks.pop_back();
      compact_marks.pop_back();
      ASSERT_LE(compact.size(), below);
      ++merges;
    } else if (what == 3) {
      compact.update_view(listed);
      for (Term const* t : listed) {
        auto it = compact.intervals.find(t);
        ASSERT_TRUE(it != compact.intervals.end());
        ASSERT_TRUE(payload_equal(it->second.lower(), plain.current_end(t, true)) &&
                    payload_equal(it->second.upper(), plain.current_end(t, false)));
      }
      ASSERT_EQ(compact.intervals.find(terms[0]), compact.intervals.end());
    } else {
      // Skewed towards the first terms, so that a level often lacks some
      // term that the level above has (a merge then moves slots down).
      Term const* t = terms[rng() % (1 + rng() % terms.size())];
      // Mostly tiny steps inward, as a creeping propagation makes them.
      double const v = static_cast<double>(static_cast<int>(rng() % 2001) - 1000) / 8;
      bool const lower = rng() % 2 == 0;
      IEEEFloat const x = IEEEFloat::from_double(v, t == terms[5] ? IEEEFloat::format{15, 113}
                                                                  : IEEEFloat::format{8, 24});
      plain.assert_bound(domain.new_FpBoundElement(lower, t, x));
      compact.assert_bound(domain.new_FpBoundElement(lower, t, x));
    }
    compact.check_invariants();
    ASSERT_TRUE(same()) << "step " << step;
  }
  EXPECT_GT(merges, 50);
  EXPECT_LT(compact.size(), plain.size());
  // A long run below the first mark keeps no bound at all (the Float128
  // term one, in the map); a return to 0 restores the initial intervals,
  // the constant's single value included.
  plain.backtrack(0, &domain);
  compact.backtrack(0, &domain);
  for (int i = 0; i < 1000; ++i) {
    compact.assert_bound(domain.new_FpBoundElement(true, terms[0], f32(i)));
    compact.assert_bound(
        domain.new_FpBoundElement(true, terms[5], IEEEFloat::from_double(i, {15, 113})));
  }
  EXPECT_TRUE(compact.size() == 1u && domain.live_elements() == 1u &&
              compact.current_end(terms[0], true).to_double() == 999.0);
  compact.update_view(listed);
  EXPECT_EQ(compact.interval(terms[0]).entries(), 2u);
  compact.assert_bound(domain.new_FpBoundElement(false, terms[4], f32(1)));
  EXPECT_TRUE(compact.current_end(terms[4], false).to_double() == 1.0);
  compact.backtrack(0, &domain);
  EXPECT_TRUE(compact.current_end(terms[0], true).is_nan() &&
              compact.current_end(terms[4], false).to_double() == 2.0);
  EXPECT_EQ(domain.live_elements(), 0u);
  // Returning into the middle of a level cannot be undone exactly: refused.
  compact.mark();
  compact.assert_bound(domain.new_FpBoundElement(true, terms[0], f32(1)));
  compact.assert_bound(domain.new_FpBoundElement(true, terms[1], f32(1)));
  EXPECT_DEATH(compact.backtrack(1, &domain), "starts no level");
  EXPECT_DEATH(compact.merge_last_level(), "needs two levels");
  compact.backtrack(0, &domain);
}

TEST(FpHost, TermManagerFilesConstantsOnly) {
  TermManager tm;
  DataType const* f16 = tm.fp_sort(5, 11);
  EXPECT_EQ(tm.fp_sort(IEEEFloat::format{5, 11}), f16); // interned
  Term const* a = tm.mk_var("a", f16);
  Term const* c = tm.mk_const(f16, QNumber(0x3C00, 1)); // 1.0
  EXPECT_NE(a->id, c->id);
  EXPECT_EQ(tm.constant_bits().find(a->symbol), tm.constant_bits().end());
  EXPECT_EQ(tm.constant_bits().find(c->symbol)->second, QNumber(0x3C00, 1));
  EXPECT_EQ(c->name(), "(fp #b0 #b01111 #b0000000000)");
  EXPECT_THROW(tm.mk_const(f16, QNumber(1 << 16, 1)), std::invalid_argument);
  EXPECT_THROW(tm.mk_const(tm.bool_sort(), QNumber(0, 1)), std::invalid_argument);
  Term const* wide = tm.mk_const(IEEEFloat::from_double(-0.0, {15, 113}));
  EXPECT_EQ(tm.constant_bits().find(wide->symbol)->second.to_string(),
            "170141183460469231731687303715884105728"); // 2^127: the sign bit
  EXPECT_EQ(tm.term_count(), 3u);                       // rejected constants leave no term behind
}

// Names of every length class (the store's one- and five-byte lengths, one
// longer than a store block) read back whole after thousands more.
TEST(FpHost, TermManagerKeepsEveryName) {
  TermManager tm;
  DataType const* f32 = tm.fp_sort(8, 24);
  std::vector<std::pair<Term const*, std::string>> made;
  for (std::size_t n : {0, 1, 254, 255, 256, 40000}) {
    std::string name(n, 'n');
    if (n > 0) name[n - 1] = 'e';
    made.emplace_back(tm.mk_var(name, f32), name);
  }
  for (int i = 0; i < 5000; ++i)
    made.emplace_back(tm.mk_var("v" + std::to_string(i), f32), "v" + std::to_string(i));
  for (auto const& [t, name] : made)
    ASSERT_EQ(t->name(), name);
  EXPECT_EQ(&made[2].first->name(), &made[2].first->name()); // built once, then kept
}

} // namespace
} // namespace qorv
