// Long but easy problems: propagation that reaches the fixpoint of a chain
// in one jump instead of a value per visit, conjunctions that cost their
// size, a compacting trail that stores less without changing the search,
// and per-term records that stay small.  A quadratic regression fails on
// the ctest timeout.
#include "engine/problem.h"
#include "smtlib/driver.h"

#include <gtest/gtest.h>

#include <bitset>
#include <cstdint>
#include <sstream>
#include <string>

// A problem holds one Var per term; its name lives in the term only.  Long
// problems hold about two operands, a Def and a node per term besides.
static_assert(sizeof(fpsolve::Var) <= 32, "a variable's record grew");
static_assert(sizeof(fpsolve::Operand) <= 20, "an operand's record grew");
static_assert(sizeof(fpsolve::Def) <= 32, "a Def's record grew");
static_assert(sizeof(fpsolve::Node) <= 28, "a node's record grew");

namespace {

struct Outcome {
  std::string answer;
  std::string stats;
};

Outcome run(std::string const& script, bool jump = true, bool compact = true,
            bool ordered = false) {
  fpsolve::DriverOptions opt;
  opt.search.check = true;
  opt.search.stats = true;
  opt.search.chain_jump = jump;
  opt.search.compact_trail = compact;
  opt.search.ordered_queue = ordered;
  // These tests observe propagation and the trail; the model search would
  // answer some problems before the search they observe has run.
  opt.search.model_search = false;
  std::istringstream in(script + "(check-sat)");
  std::ostringstream out, diagnostic;
  opt.diagnostic = &diagnostic;
  EXPECT_EQ(fpsolve::run_script(in, out, opt), 0) << out.str();
  return {out.str().substr(0, out.str().find('\n')), diagnostic.str()};
}

std::uint64_t stat(Outcome const& r, std::string const& name) {
  std::size_t const at = r.stats.find(":" + name + " ");
  EXPECT_NE(at, std::string::npos) << r.stats;
  return at == std::string::npos ? 0 : std::stoull(r.stats.substr(at + name.size() + 2));
}

std::string declare(int n, std::string const& sort) {
  std::string s;
  for (int i = 0; i < n; ++i)
    s += "(declare-const x" + std::to_string(i) + " " + sort + ")";
  return s;
}

// x0 < x1 + 0 < ... (or x0 < x1 < ... without the identity Defs).
std::string chain(int n, bool through_defs, std::string const& zero) {
  std::string s;
  for (int i = 0; i + 1 < n; ++i) {
    std::string const next = "x" + std::to_string(i + 1);
    s += "(assert (fp.lt x" + std::to_string(i) + " " +
         (through_defs ? "(fp.add RNE " + next + " " + zero + ")" : next) + "))";
  }
  return s;
}

// The Float16 value whose bit pattern is 1.0's plus k (k values above 1).
std::string half_above_one(unsigned k) {
  std::string const bits = std::bitset<16>(0x3C00u + k).to_string();
  return "(fp #b" + bits.substr(0, 1) + " #b" + bits.substr(1, 5) + " #b" + bits.substr(6) + ")";
}

TEST(FpsolveScaling, ChainsAndConjunctionsConvergeInLinearWork) {
#ifdef QORV_DEBUG_INVARIANTS
  int const n = 600; // the trail checks itself whole after every bound
#else
  int const n = 3000;
#endif
  Outcome const c = run(declare(n, "Float32") + chain(n, true, "(_ +zero 8 24)"));
  EXPECT_EQ(c.answer, "sat");
  EXPECT_GE(stat(c, "chain-jumps"), 1u);
  EXPECT_LT(stat(c, "propagations"), 20u * n); // a value per visit: about n * n
  std::string wide = declare(2 * n, "Float32") + "(assert (and";
  for (int i = 0; i < n; ++i)
    wide += " (fp.lt (fp.add RNE x" + std::to_string(i) + " ((_ to_fp 8 24) RNE 1.0)) x" +
            std::to_string(n + i) + ")";
  Outcome const w = run(wide + "))");
  EXPECT_EQ(w.answer, "sat");
  EXPECT_LT(stat(w, "propagations"), 20u * n);
}

// k strict steps up from 1.0 need k values above it: with one value less
// the chain is refuted without a decision, with exactly k it fits.  The
// answers agree with plain propagation, which gets there a value at a time,
// in either order of the queue.
TEST(FpsolveScaling, StrictChainsThatCannotFitAreRefutedAtOnce) {
  int const k = 40;
  for (bool defs : {true, false}) {
    std::string const base = declare(k + 1, "Float16") + chain(k + 1, defs, "(_ -zero 5 11)") +
                             "(assert (fp.leq " + half_above_one(0) + " x0))";
    for (unsigned room : {k - 1u, unsigned{k}}) {
      std::string const p =
          base + "(assert (fp.leq x" + std::to_string(k) + " " + half_above_one(room) + "))";
      Outcome const jumped = run(p);
      EXPECT_EQ(jumped.answer, room < k ? "unsat" : "sat") << defs << " " << room;
      if (room < k) {
        EXPECT_EQ(stat(jumped, "decisions"), 0u);
      }
      EXPECT_EQ(run(p, false).answer, jumped.answer);
      EXPECT_EQ(run(p, false, true, true).answer, jumped.answer);
    }
  }
  // A cycle through an identity Def: x < y + 0 and y < x.
  EXPECT_EQ(run(declare(2, "Float32") +
                "(assert (fp.lt x0 (fp.add RNE x1 (_ +zero 8 24))))(assert (fp.lt x1 x0))")
                .answer,
            "unsat");
}

// The compacting trail is bookkeeping: the same decisions, conflicts and
// propagated bounds as the plain one, on problems that backtrack.
TEST(FpsolveScaling, CompactTrailLeavesTheSearchUnchanged) {
  std::string const problems[] = {
      "(define-sort F () (_ FloatingPoint 3 4))"
      "(declare-const x F)(declare-const y F)(declare-const z F)"
      "(assert (or (fp.lt x y z) (fp.gt x y z)))(assert (fp.eq x z))",
      "(define-sort F () (_ FloatingPoint 4 5))(declare-const a F)(declare-const b F)"
      "(assert (= (fp.add RNE a b) (fp.add RTZ b a)))(assert (not (fp.eq a b)))"
      "(assert (fp.isNormal (fp.div RNE a b)))"};
  for (std::string const& p : problems) {
    Outcome const on = run(p), off = run(p, true, false);
    EXPECT_EQ(on.answer, off.answer) << p;
    for (char const* s : {"decisions", "backtracks", "propagations", "learned"})
      EXPECT_EQ(stat(on, s), stat(off, s)) << s << " on " << p;
    EXPECT_GT(stat(on, "backtracks") + stat(on, "decisions"), 0u) << p;
    EXPECT_EQ(run(p, true, true, true).answer, on.answer) << "ordered queue on " << p;
  }
}

// The Def index keeps only the operand of each Def and reads its key off
// the Def: equal operations share one term, through rehashes and after the
// Def table moved, and any difference in operation, rounding mode, operand
// order or result format makes a term of its own.
TEST(FpsolveScaling, DefIndexSharesExactlyTheEqualDefs) {
  using fpsolve::Def;
  using fpsolve::FpOp;
  fpsolve::Problem p;
  qorv::IEEEFloat::format const f32{8, 24}, f16{5, 11};
  auto var = [&](std::string const& name, qorv::IEEEFloat::format f) {
    fpsolve::Operand o;
    o.var = p.add_var(name, false, f);
    return p.add_operand(o);
  };
  int const x = var("x", f32), y = var("y", f32);
  int const rne = p.add_rm_constant(qorv::IEEEFloat::rm_nearest_even);
  int const rtz = p.add_rm_constant(qorv::IEEEFloat::rm_toward_zero);
  auto def = [&](FpOp op, int rm, std::vector<int> args, qorv::IEEEFloat::format to) {
    Def d;
    d.op = op;
    d.rm = rm;
    d.args = std::move(args);
    return p.add_def(d, to);
  };
  int const sum = def(FpOp::add, rne, {x, y}, f32);
  std::vector<int> distinct{sum,
                            def(FpOp::add, rne, {y, x}, f32),
                            def(FpOp::add, rtz, {x, y}, f32),
                            def(FpOp::sub, rne, {x, y}, f32),
                            def(FpOp::convert, rne, {x}, f16),
                            def(FpOp::convert, rne, {x}, f32)};
  // Many more Defs: the index rehashes and the Def table reallocates.
  int prev = x, first_mul = -1;
  for (int i = 0; i < 3000; ++i) {
    prev = def(FpOp::mul, rne, {prev, y}, f32);
    if (i == 0) first_mul = prev;
  }
  std::size_t const defs = p.defs.size();
  EXPECT_EQ(def(FpOp::add, rne, {x, y}, f32), sum);
  EXPECT_EQ(def(FpOp::convert, rne, {x}, f16), distinct[4]);
  EXPECT_EQ(def(FpOp::mul, rne, {x, y}, f32), first_mul);
  EXPECT_EQ(p.defs.size(), defs) << "a lookup added a Def";
  for (std::size_t i = 0; i < distinct.size(); ++i)
    for (std::size_t j = i + 1; j < distinct.size(); ++j)
      EXPECT_NE(distinct[i], distinct[j]) << i << " and " << j;
}

} // namespace
