// The 128-bit and the GMP rank paths of the search agree on formats of 65
// to 128 bits, where both are possible: the same generated problems solved
// with and without `big_ranks` must take the same search, step for step.
// Ranks are the search's only representation of values, so any difference
// between the two paths (a midpoint, a carry at bit 64, the rank of a
// subnormal or of NaN) changes a decision or a propagation and shows up in
// the answer, the counters or the model.  The probe is off, so sat answers
// come from splits too.  A decision limit keeps long bisections short (its
// unknown must agree as well); a clock limit guards against the few
// problems whose propagation is slow in these formats, and a run it stops
// is left out, since where the clock stops a search is not reproducible.
#include "engine/solve.h"
#include "tests/common/script_problem.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>
#include <string>

namespace fpsolve {
namespace {

std::string random_problem(std::mt19937& rng, IEEEFloat::format f) {
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  std::string const fs =
      "(_ FloatingPoint " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
  static char const* const reals[] = {"0.1", "(- 3)", "2.5", "(/ 1 3)", "65536.5", "0.0"};
  std::function<std::string(int)> term = [&](int depth) -> std::string {
    int const k = depth == 0 ? pick(4) : pick(20);
    if (k == 0) {
      if (pick(3) == 0) { // any value: high bits of wide ranks, subnormals, NaN
        std::string bits[3];
        for (std::uint64_t i = 0; i < f.eb + f.sb; ++i)
          bits[i == 0 ? 0 : i <= f.eb ? 1 : 2] += pick(2) ? '1' : '0';
        return "(fp #b" + bits[0] + " #b" + bits[1] + " #b" + bits[2] + ")";
      }
      if (pick(2))
        return "((_ to_fp " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ") RNE " +
               reals[pick(6)] + ")";
      return std::string("(_ ") + (pick(2) ? "+zero " : "+oo ") + std::to_string(f.eb) + " " +
             std::to_string(f.sb) + ")";
    }
    if (k < 4 || k >= 12) return "x" + std::to_string(pick(3));
    std::string const rm = pick(3) == 0 ? "r" : pick(2) ? "RNE" : "RTZ";
    // Division, square root and fma are left out: in these formats some of
    // their propagations take seconds.
    static char const* const with_rm[] = {"fp.add", "fp.sub", "fp.mul", "fp.add"};
    if (k < 8)
      return std::string("(") + with_rm[k - 4] + " " + rm + " " + term(depth - 1) + " " +
             term(depth - 1) + ")";
    if (k == 8) return "(fp.roundToIntegral " + rm + " " + term(depth - 1) + ")";
    if (k == 9) return "(fp.abs " + term(depth - 1) + ")";
    if (k == 10) return "(fp.neg " + term(depth - 1) + ")";
    return "(fp.min " + term(depth - 1) + " " + term(depth - 1) + ")";
  };
  std::function<std::string(int)> formula = [&](int depth) -> std::string {
    int const k = depth == 0 ? pick(3) : pick(7);
    static char const* const cmp[] = {"fp.leq", "fp.lt", "fp.eq", "=", "fp.gt"};
    static char const* const cls[] = {"fp.isNaN", "fp.isZero", "fp.isSubnormal", "fp.isNegative",
                                      "fp.isInfinite"};
    if (k == 0) return std::string("(") + cmp[pick(5)] + " " + term(1) + " " + term(1) + ")";
    if (k == 1) return std::string("(") + cls[pick(5)] + " " + term(1) + ")";
    if (k == 2) return "b";
    static char const* const conn[] = {"not", "and", "or", "xor"};
    std::string s = std::string("(") + conn[k - 3] + " " + formula(depth - 1);
    return s + (k == 3 ? "" : " " + formula(depth - 1)) + ")";
  };
  std::string s = "(declare-const b Bool)(declare-const r RoundingMode)";
  for (int v = 0; v < 3; ++v)
    s += "(declare-const x" + std::to_string(v) + " " + fs + ")";
  for (int i = 2 + pick(4); i >= 0; --i)
    s += "(assert " + formula(2) + ")";
  return s;
}

constexpr std::uint64_t kMaxDecisions = 100;

Result solve_text(std::string const& text, bool big_ranks) {
  Problem p;
  test::elaborate_script(p, text);
  Options opt;
  opt.big_ranks = big_ranks;
  opt.timeout = 2;
  opt.probe = false; // sat from the search, so every problem splits
  opt.max_decisions = kMaxDecisions;
  return solve(p, opt);
}

TEST(RankAgreement, NarrowAndGmpRanksTakeTheSameSearch) {
  std::mt19937 rng(5);
  int answered = 0, cut_runs = 0;
  std::uint64_t decisions = 0, backtracks = 0;
  for (IEEEFloat::format f : {IEEEFloat::format{8, 57}, {11, 64}, {15, 64}, {15, 113}, {4, 124}})
    for (int i = 0; i < 8; ++i) {
      std::string const text = random_problem(rng, f);
      Result const narrow = solve_text(text, false), big = solve_text(text, true);
      // Only the decision limit stops both runs at the same point; the clock
      // may stop them anywhere, and those runs are not compared.
      auto const cut = [](Result const& r) {
        return r.answer == Answer::unknown && r.stats.decisions < kMaxDecisions;
      };
      if (cut(narrow) || cut(big)) {
        ++cut_runs;
        continue;
      }
      ASSERT_EQ(narrow.answer, big.answer) << text;
      EXPECT_EQ(narrow.stats.decisions, big.stats.decisions) << text;
      EXPECT_EQ(narrow.stats.backtracks, big.stats.backtracks) << text;
      EXPECT_EQ(narrow.stats.propagations, big.stats.propagations) << text;
      ASSERT_EQ(narrow.model.size(), big.model.size()) << text;
      for (std::size_t v = 0; v < narrow.model.size(); ++v)
        EXPECT_EQ(narrow.model[v].to_str(), big.model[v].to_str())
            << "variable " << v << ": " << text;
      answered += narrow.answer != Answer::unknown;
      decisions += narrow.stats.decisions;
      backtracks += narrow.stats.backtracks;
    }
  std::printf("[ searches ] %d answered of 40, %d cut by the clock, %llu decisions, %llu "
              "backtracks\n",
              answered, cut_runs, static_cast<unsigned long long>(decisions),
              static_cast<unsigned long long>(backtracks));
  EXPECT_GT(backtracks, 0u); // conflicts and learning are compared too
  EXPECT_GT(answered, 20);   // most problems end within the limits
}

} // namespace
} // namespace fpsolve
