// The distance measure on hand-made points, and the model search on
// problems whose only models are needles: each is answered before the first
// decision with the search and not within the decision limit without it,
// and every run of a file gives the same statistics.
#include "engine/distance.h"
#include "smtlib/driver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

using fpsolve::Def;
using fpsolve::Distance;
using fpsolve::FpOp;
using fpsolve::i128;
using fpsolve::Op;
using fpsolve::Operand;
using fpsolve::Problem;
using qorv::IEEEFloat;

IEEEFloat f32(double d) {
  return IEEEFloat::from_double(d, {8, 24});
}
IEEEFloat up(IEEEFloat x, int ulps) {
  IEEEFloat::format const f = x.get_format();
  return fpsolve::value_of<i128>(fpsolve::rank_of<i128>(x) + ulps, f);
}

TEST(ModelSearch, DistanceCountsUlpsAndFollowsBooleanStructure) {
  Problem p;
  IEEEFloat::format const f{8, 24};
  int const x = p.add_var("x", false, f), y = p.add_var("y", false, f);
  Operand vx, vy;
  vx.var = x;
  vy.var = y;
  int const ox = p.add_operand(vx), oy = p.add_operand(vy);
  int const leq = p.add_node(Op::leq, ox, oy), lt = p.add_node(Op::lt, ox, oy);
  int const eq = p.add_node(Op::fp_eq, ox, oy), ident = p.add_node(Op::ident, ox, oy);
  int const both = p.add_node(Op::and_, -1, -1, {leq, lt});
  int const either = p.add_node(Op::or_, -1, -1, {eq, p.add_node(Op::not_, -1, -1, {leq})});
  Def mul;
  mul.op = FpOp::mul, mul.rm = p.add_rm_constant(IEEEFloat::rm_nearest_even), mul.args = {ox, oy};
  int const s = p.add_def(mul, f);
  int const is_zero = p.add_node(Op::is_zero, s);
  std::vector<char> relevant(p.vars.size(), 1);
  Distance<i128> d(p, relevant);

  d.set(x, f32(1.0));
  d.set(y, up(f32(1.0), 3));
  d.complete();
  EXPECT_DOUBLE_EQ(d.to_true(leq), 0.0);
  EXPECT_DOUBLE_EQ(d.node(leq).second, std::log2(5.0)); // 4 ulps to x > y
  EXPECT_DOUBLE_EQ(d.to_true(eq), 2.0);                 // 3 ulps apart
  EXPECT_DOUBLE_EQ(d.to_true(both), 0.0);
  EXPECT_DOUBLE_EQ(d.node(both).second, std::log2(4.0)); // the nearer of x > y, x >= y
  EXPECT_DOUBLE_EQ(d.to_true(either), 2.0);              // the nearer of x = y, x > y
  EXPECT_DOUBLE_EQ(d.node(either).second, 0.0);

  // Strictness costs one unit; fp.eq identifies the zeros, = does not; a
  // NaN fails every order comparison by more than any gap.
  d.set(y, f32(1.0));
  d.complete();
  EXPECT_DOUBLE_EQ(d.to_true(lt), 1.0);
  EXPECT_DOUBLE_EQ(d.node(eq).second, 1.0);
  d.set(x, f32(0.0));
  d.set(y, IEEEFloat::zero(f, true));
  d.complete();
  EXPECT_DOUBLE_EQ(d.to_true(eq), 0.0);
  EXPECT_DOUBLE_EQ(d.to_true(ident), 1.0);
  EXPECT_DOUBLE_EQ(d.to_true(is_zero), 0.0);
  d.set(y, IEEEFloat::nan(f));
  d.complete();
  EXPECT_DOUBLE_EQ(d.to_true(leq), Distance<i128>::nan_cost);
  EXPECT_DOUBLE_EQ(d.to_true(is_zero), Distance<i128>::nan_cost);
  // Two NaNs are identical, and as far from differing as a NaN is from a
  // number: a point where every result is NaN is no cheap resting place.
  d.set(x, IEEEFloat::nan(f));
  d.complete();
  EXPECT_DOUBLE_EQ(d.to_true(ident), 0.0);
  EXPECT_DOUBLE_EQ(d.node(ident).second, Distance<i128>::nan_cost);
  d.set(y, f32(2.0));
  d.set(x, up(f32(0.0), 5));
  d.complete();
  EXPECT_DOUBLE_EQ(d.to_true(is_zero), std::log2(1.0 + 10)); // s = 10 ulps of zero

  // A following input takes the value that makes its view equal the term.
  Problem q;
  int const a = q.add_var("a", false, f), b = q.add_var("b", false, f);
  Operand va, vb;
  va.var = a;
  vb.var = b, vb.neg = true;
  int const oa = q.add_operand(va), onb = q.add_operand(vb);
  Def sq = mul;
  sq.rm = q.add_rm_constant(IEEEFloat::rm_nearest_even), sq.args = {oa, oa};
  int const t = q.add_def(sq, f);
  q.assertions.push_back(q.add_node(Op::ident, onb, t));
  std::vector<char> all(q.vars.size(), 1);
  Distance<i128> e(q, all);
  e.follow(onb, t);
  e.set(a, f32(3.0));
  e.complete();
  EXPECT_EQ(e.value(b).to_str(), f32(-9.0).to_str());
  EXPECT_DOUBLE_EQ(e.of_roots(q.assertions), 0.0);
}

struct Answer {
  std::string answer, counts; // the first line, and the statistics without times
};

Answer solve(std::string const& script, bool model_search, std::uint64_t max_decisions = 300) {
  fpsolve::DriverOptions opt;
  opt.search.check = true;
  opt.search.stats = true;
  opt.search.max_decisions = max_decisions;
  opt.search.model_search = model_search;
  std::istringstream in(script + "(check-sat)\n");
  std::ostringstream out, diagnostic;
  opt.diagnostic = &diagnostic;
  EXPECT_EQ(fpsolve::run_script(in, out, opt), 0) << out.str();
  Answer r{out.str().substr(0, out.str().find('\n')), ""};
  std::istringstream lines(diagnostic.str());
  for (std::string line; std::getline(lines, line);)
    if (line.find("time") == std::string::npos) r.counts += line + "\n";
  return r;
}

TEST(ModelSearch, NeedlesAreFoundWithItAndNotWithout) {
  // Averages that differ only where a half of a small input loses its last
  // bit (Float32 through Float64, Float64 through Float128): inputs of two
  // odd significands just above the smallest normal.
  auto average = [](std::string const& f, std::string const& wide, std::string const& smallest) {
    std::string const two = "((_ to_fp " + f + ") RNE 2.0)";
    return "(declare-const a (_ FloatingPoint " + f + "))(declare-const b (_ FloatingPoint " + f +
           "))(assert (fp.leq ((_ to_fp " + f + ") " + smallest + ") a b ((_ to_fp " + f +
           ") RNE 1.0)))(assert (not (fp.eq (fp.add RNE (fp.div RNE a " + two + ") (fp.div RNE b " +
           two + ")) ((_ to_fp " + f + ") RNE (fp.div RNE (fp.add RNE ((_ to_fp " + wide +
           ") RNE a) ((_ to_fp " + wide + ") RNE b)) ((_ to_fp " + wide + ") RNE 2.0))))))";
  };
  // Two Newton steps for the square root of a, each leaving a residue below
  // a bound under a: the guess g and the scale h must meet a, and no end of
  // their intervals does.
  std::string const newton =
      "(declare-const a Float32)(declare-const g Float32)(declare-const lower Float32)"
      "(declare-const h Float64)"
      "(define-fun step ((x Float32)) Float32 (fp.add RNE x ((_ to_fp 8 24) RNE (fp.div RNE "
      "((_ to_fp 11 53) RNE (fp.sub RNE a (fp.mul RNE x x))) (fp.mul RNE ((_ to_fp 11 53) RNE x) "
      "h)))))"
      "(define-fun x1 () Float32 (step (fp.div RNE a g)))(define-fun x2 () Float32 (step x1))"
      "(assert (fp.lt lower a))(assert (fp.lt (fp.sub RNE a (fp.mul RNE x1 x1)) lower))"
      "(assert (fp.lt (fp.sub RNE a (fp.mul RNE x2 x2)) lower))";
  // An unrolled loop whose variable is copied from step to step through a
  // chain of equal inputs, listed so that each copy meets the next input
  // before the first step's term: the whole chain follows that term, so
  // only a, g, h and lower are searched and the model comes at once.
  std::string const copies =
      newton.substr(0, newton.find("(define-fun x1")) +
      "(declare-const y1 Float32)(declare-const y2 Float32)(declare-const y3 Float32)"
      "(declare-const y4 Float32)"
      "(define-fun res ((x Float32)) Float32 (fp.sub RNE a (fp.mul RNE x x)))"
      "(assert (= (step (fp.div RNE a g)) y1))(assert (not (= (step y1) y1)))"
      "(assert (not (= (step y2) y2)))(assert (not (= (step y3) y3)))(assert (fp.lt lower a))"
      "(assert (fp.lt (res y1) lower))(assert (fp.lt (res y2) lower))"
      "(assert (fp.lt (res y3) lower))(assert (fp.lt (res y4) lower))"
      "(assert (= y3 y4))(assert (= y2 y3))(assert (= y1 y2))";
  for (std::string const& script :
       {average("8 24", "11 53", "#x00800000"), average("11 53", "15 113", "#x0010000000000000"),
        newton, copies}) {
    Answer const with = solve(script, true);
    EXPECT_EQ(with.answer, "sat") << script;
    EXPECT_EQ(with.counts.substr(0, 14), "(:decisions 0\n") << with.counts;
    EXPECT_EQ(solve(script, true).counts, with.counts); // the same run every time
    // (The copies' problem is slow to bisect: a shorter limit says as much.)
    EXPECT_EQ(solve(script, false, script == copies ? 30 : 300).answer, "unknown") << script;
  }
  Answer const chain = solve(copies, true);
  std::size_t const at = chain.counts.find(":model-search-evals ");
  ASSERT_NE(at, std::string::npos);
  EXPECT_LT(std::stoul(chain.counts.substr(at + 20)), 20u) << chain.counts;
}

} // namespace
