// The solver against brute force on formats small enough to enumerate.
//
// Random problems over (2, 3) and (3, 4) mix comparisons of variables, their
// fp.neg and fp.abs views and constants, classifications and Boolean
// structure; a second family adds arithmetic (every operation but min and
// max, whose unspecified zeros the differential test covers), ite over
// floating point and rounding-mode variables.  An oracle written from
// IEEE-754 alone (bit fields decoded here, values compared as doubles, which
// hold every value of these formats exactly; arithmetic by the exact
// rational reference of tests/common) checks each answer: a sat model must
// satisfy every assertion, and an unsat answer must survive the enumeration
// of every assignment.  No external program is involved, so this runs
// everywhere the tests run.
#include "engine/solve.h"
#include "smtlib/elaborate.h"

#include "tests/common/exact_fp_oracle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fpsolve {
namespace {

using Format = IEEEFloat::format;

// A value of a tiny format, decoded from its pattern.
struct Bits {
  Format f;
  std::uint64_t p;
  std::uint64_t man() const { return p & ((std::uint64_t{1} << (f.sb - 1)) - 1); }
  std::uint64_t exp() const { return (p >> (f.sb - 1)) & ((std::uint64_t{1} << f.eb) - 1); }
  bool sign() const { return (p >> (f.eb + f.sb - 1)) != 0; }
  bool exp_ones() const { return exp() == (std::uint64_t{1} << f.eb) - 1; }
  bool nan() const { return exp_ones() && man() != 0; }
  double value() const {
    if (nan()) return NAN;
    int const bias = (1 << (f.eb - 1)) - 1, shift = static_cast<int>(f.sb) - 1;
    double const m = exp_ones() ? INFINITY
                     : exp() == 0
                         ? std::ldexp(static_cast<double>(man()), 1 - bias - shift)
                         : std::ldexp(static_cast<double>(man() | (std::uint64_t{1} << shift)),
                                      static_cast<int>(exp()) - bias - shift);
    return sign() ? -m : m;
  }
};

// The exact reference of a format, built once (it tabulates small formats).
qorv::oracle::Oracle const& reference(Format f) {
  static std::map<std::pair<std::uint64_t, std::uint64_t>, qorv::oracle::Oracle> refs;
  auto it = refs.find({f.eb, f.sb});
  if (it == refs.end())
    it = refs.emplace(std::make_pair(f.eb, f.sb), qorv::oracle::Oracle(f.eb, f.sb)).first;
  return it->second;
}

struct Oracle {
  Problem const& p;
  std::vector<std::uint64_t> a; // a pattern per variable; Booleans: 1 true, 0 false

  // The inputs' patterns in `inputs`; the values of terms are computed here.
  Oracle(Problem const& problem, std::vector<std::uint64_t> inputs)
      : p(problem), a(std::move(inputs)) {
    for (Def const& d : p.defs) {
      Format const f = p.vars[d.var].fmt;
      qorv::oracle::Oracle const& ref = reference(f);
      auto arg = [&](std::size_t i) { return mpz_class(operand(d.args[i]).p); };
      // A rounding mode's pattern in (2, 2) is its number (RNE = +0 ...).
      int const rm = d.rm < 0 ? 0 : static_cast<int>(operand(d.rm).p);
      mpz_class r;
      switch (d.op) {
      case FpOp::add:
        r = ref.add(rm, arg(0), arg(1));
        break;
      case FpOp::sub:
        r = ref.sub(rm, arg(0), arg(1));
        break;
      case FpOp::mul:
        r = ref.mul(rm, arg(0), arg(1));
        break;
      case FpOp::div:
        r = ref.div(rm, arg(0), arg(1));
        break;
      case FpOp::fma:
        r = ref.fma(rm, arg(0), arg(1), arg(2));
        break;
      case FpOp::sqrt:
        r = ref.sqrt(rm, arg(0));
        break;
      case FpOp::rem:
        r = ref.rem(arg(0), arg(1));
        break;
      case FpOp::round_to_integral:
        r = ref.round_to_integral(rm, arg(0));
        break;
      case FpOp::ite:
        r = arg(eval(d.cond) ? 0 : 1);
        break;
      default:
        ADD_FAILURE() << "operation outside the brute-force family";
      }
      a[d.var] = r.get_ui();
    }
  }

  Bits operand(int o) const {
    Operand const& op = p.operands[o];
    if (op.var < 0) return {op.fmt, op.constant.payload_u64()};
    Bits b{op.fmt, a[op.var]};
    std::uint64_t const sign = std::uint64_t{1} << (op.fmt.eb + op.fmt.sb - 1);
    if (!b.nan() && op.abs) b.p &= ~sign;
    if (!b.nan() && op.neg) b.p ^= sign;
    return b;
  }
  bool eval(int n) const {
    Node const& nd = p.nodes[n];
    auto kid = [&](int i) { return eval(nd.kids[i]); };
    switch (nd.op) {
    case Op::t:
      return true;
    case Op::f:
      return false;
    case Op::bvar:
      return a[nd.a] != 0;
    case Op::not_:
      return !kid(0);
    case Op::and_:
    case Op::or_: {
      bool const all = nd.op == Op::and_;
      for (std::size_t i = 0; i < nd.kids.size(); ++i)
        if (kid(static_cast<int>(i)) != all) return !all;
      return all;
    }
    case Op::xor_: {
      bool r = false;
      for (std::size_t i = 0; i < nd.kids.size(); ++i)
        r ^= kid(static_cast<int>(i));
      return r;
    }
    case Op::iff:
      return kid(0) == kid(1);
    case Op::ite:
      return kid(0) ? kid(1) : kid(2);
    default:
      break;
    }
    Bits const x = operand(nd.a);
    double const v = x.value();
    bool const zero = x.exp() == 0 && x.man() == 0;
    switch (nd.op) {
    case Op::leq:
      return v <= operand(nd.b).value();
    case Op::lt:
      return v < operand(nd.b).value();
    case Op::fp_eq:
      return v == operand(nd.b).value();
    case Op::ident: {
      Bits const y = operand(nd.b);
      return (x.nan() && y.nan()) || x.p == y.p;
    }
    case Op::is_nan:
      return x.nan();
    case Op::is_inf:
      return x.exp_ones() && x.man() == 0;
    case Op::is_zero:
      return zero;
    case Op::is_normal:
      return x.exp() != 0 && !x.exp_ones();
    case Op::is_subnormal:
      return x.exp() == 0 && !zero;
    case Op::is_negative:
      return !x.nan() && x.sign();
    case Op::is_positive:
      return !x.nan() && !x.sign();
    default:
      ADD_FAILURE() << "unknown node";
      return false;
    }
  }
  bool holds() const {
    for (int r : p.assertions)
      if (!eval(r)) return false;
    return true;
  }
};

// Whether some assignment of patterns (Booleans: 0 or 1) satisfies p.
bool satisfiable(Problem const& p) {
  std::vector<std::uint64_t> a(p.vars.size(), 0);
  for (;;) {
    if (Oracle(p, a).holds()) return true;
    std::size_t v = 0;
    for (; v < a.size(); a[v++] = 0) {
      Var const& var = p.vars[v];
      std::uint64_t const values = var.def >= 0  ? 1
                                   : var.is_bool ? 2
                                   : var.is_rm   ? 5
                                                 : std::uint64_t{1} << (var.fmt.eb + var.fmt.sb);
      if (++a[v] < values) break;
    }
    if (v == a.size()) return false;
  }
}

// A random problem: variables x0.. of format f, a Boolean b, atoms over
// views and constants, 1 to 3 assertions of depth up to 3.
std::string random_problem(std::mt19937& rng, Format f, int vars) {
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  auto bits = [&](std::uint64_t width) {
    std::string s;
    for (std::uint64_t i = 0; i < width; ++i)
      s += pick(2) ? '1' : '0';
    return s;
  };
  auto operand = [&]() -> std::string {
    if (pick(4) == 0) return "(fp #b" + bits(1) + " #b" + bits(f.eb) + " #b" + bits(f.sb - 1) + ")";
    std::string x = "x" + std::to_string(pick(vars));
    if (pick(3) == 0) x = "(fp.abs " + x + ")";
    if (pick(3) == 0) x = "(fp.neg " + x + ")";
    return x;
  };
  static char const* const binary[] = {"fp.leq", "fp.lt", "fp.geq", "fp.gt", "fp.eq", "="};
  static char const* const unary[] = {"fp.isNaN",     "fp.isInfinite",  "fp.isZero",
                                      "fp.isNormal",  "fp.isSubnormal", "fp.isNegative",
                                      "fp.isPositive"};
  std::function<std::string(int)> formula = [&](int depth) -> std::string {
    int const k = depth == 0 ? pick(3) : pick(10);
    if (k == 0) return std::string("(") + binary[pick(6)] + " " + operand() + " " + operand() + ")";
    if (k == 1) return std::string("(") + unary[pick(7)] + " " + operand() + ")";
    if (k == 2) return pick(2) ? "b" : "(not b)";
    if (k == 3) return "(not " + formula(depth - 1) + ")";
    if (k == 4)
      return "(ite " + formula(depth - 1) + " " + formula(depth - 1) + " " + formula(depth - 1) +
             ")";
    static char const* const nary[] = {"and", "or", "xor", "=>", "="};
    return std::string("(") + nary[k - 5] + " " + formula(depth - 1) + " " + formula(depth - 1) +
           ")";
  };
  std::string s = "(declare-const b Bool)";
  for (int v = 0; v < vars; ++v)
    s += "(declare-const x" + std::to_string(v) + " (_ FloatingPoint " + std::to_string(f.eb) +
         " " + std::to_string(f.sb) + "))";
  for (int i = pick(3); i >= 0; --i)
    s += "(assert " + formula(3) + ")";
  return s;
}

// The same with arithmetic: terms of depth up to 2 over x0.. (format f),
// constants, every operation but min and max, ite, and the rounding modes
// RNE, RTP and the variable r.
std::string random_arith_problem(std::mt19937& rng, Format f, int vars) {
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  std::string const fs =
      "(_ FloatingPoint " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
  auto rm = [&]() -> std::string { return pick(3) == 0 ? "RNE" : pick(2) ? "RTP" : "r"; };
  std::function<std::string(int)> term = [&](int depth) -> std::string {
    int const k = depth == 0 ? pick(4) : pick(13);
    if (k == 0) {
      std::string b;
      for (std::uint64_t i = 0; i < f.eb + f.sb; ++i)
        b += pick(2) ? '1' : '0';
      return "((_ to_fp " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ") #b" + b + ")";
    }
    if (k < 4) return "x" + std::to_string(pick(vars));
    static char const* const binary[] = {"fp.add", "fp.sub", "fp.mul", "fp.div"};
    if (k < 8)
      return std::string("(") + binary[k - 4] + " " + rm() + " " + term(depth - 1) + " " +
             term(depth - 1) + ")";
    if (k == 8)
      return "(fp.fma " + rm() + " " + term(depth - 1) + " " + term(depth - 1) + " " +
             term(depth - 1) + ")";
    if (k == 9) return "(fp.sqrt " + rm() + " " + term(depth - 1) + ")";
    if (k == 10) return "(fp.roundToIntegral " + rm() + " " + term(depth - 1) + ")";
    if (k == 11) return "(fp.rem " + term(depth - 1) + " " + term(depth - 1) + ")";
    return "(ite (fp.lt " + term(0) + " " + term(0) + ") " + term(depth - 1) + " " +
           term(depth - 1) + ")";
  };
  static char const* const binary[] = {"fp.leq", "fp.lt", "fp.eq", "="};
  static char const* const unary[] = {"fp.isNaN", "fp.isInfinite", "fp.isZero", "fp.isNegative"};
  auto atom = [&]() -> std::string {
    if (pick(3) == 0) return std::string("(") + unary[pick(4)] + " " + term(2) + ")";
    return std::string("(") + binary[pick(4)] + " " + term(2) + " " + term(2) + ")";
  };
  std::string s = "(declare-const r RoundingMode)";
  for (int v = 0; v < vars; ++v)
    s += "(declare-const x" + std::to_string(v) + " " + fs + ")";
  for (int i = pick(2); i >= 0; --i) {
    int const k = pick(4);
    s += "(assert " +
         (k == 0   ? "(not " + atom() + ")"
          : k == 1 ? "(or " + atom() + " " + atom() + ")"
                   : atom()) +
         ")";
  }
  return s;
}

void build(Problem& p, std::string const& text) {
  Elaborator el(p);
  std::istringstream in(text);
  Reader reader(in);
  while (auto cmd = reader.next()) {
    auto const& it = cmd->items;
    std::string const head = it[0].atom.text;
    if (head == "declare-const")
      el.declare(it[1].atom.text, it[2], it[1]);
    else
      el.assert_formula(it[1]);
  }
}

struct Round {
  Format f;
  int vars, problems;
  bool arith;
};

void check_rounds(std::mt19937& rng, std::vector<Round> const& rounds, int least) {
  int sat = 0, unsat = 0;
  std::uint64_t skipped = 0; // levels undone by backjumps beyond the last
  for (Round const& round : rounds)
    for (int i = 0; i < round.problems; ++i) {
      std::string const text = round.arith ? random_arith_problem(rng, round.f, round.vars)
                                           : random_problem(rng, round.f, round.vars);
      // Each problem twice: with the model probe, as fpsolve runs, and
      // without it, where every sat comes from the search and the search
      // meets more conflicts (learning and backjumps at work).
      Problem p;
      build(p, text);
      Options opt;
      opt.check = true;
      opt.probe = false;
      Result const bare = solve(p, opt);
      opt.probe = true;
      Result const r = solve(p, opt);
      ASSERT_NE(r.answer, Answer::unknown) << text;
      ASSERT_EQ(r.answer, bare.answer) << text;
      skipped += bare.stats.levels_skipped;
      if (r.answer == Answer::sat) {
        for (Result const* run : {&bare, &r}) {
          std::vector<std::uint64_t> a;
          for (std::size_t v = 0; v < p.vars.size(); ++v) {
            IEEEFloat const& x = run->model[v];
            a.push_back(p.vars[v].is_bool ? !x.is_nan() : x.payload_u64());
          }
          EXPECT_TRUE(Oracle(p, a).holds()) << "model fails: " << text;
        }
        ++sat;
      } else {
        EXPECT_FALSE(satisfiable(p)) << "unsat, yet satisfiable: " << text;
        ++unsat;
      }
    }
  // Both answers must be well represented, or the test proves little.
  EXPECT_GT(sat, least);
  EXPECT_GT(unsat, least);
  // The answers above also check the learned clauses and the backjumps.
  EXPECT_GT(skipped, 0u);
  std::printf("[ learning ] %llu levels skipped by backjumps\n",
              static_cast<unsigned long long>(skipped));
}

TEST(BruteForce, AnswersAndModelsOnEnumerableFormats) {
  std::mt19937 rng(7);
  check_rounds(rng, {{{2, 3}, 3, 200, false}, {{3, 4}, 2, 200, false}}, 60);
}

TEST(BruteForce, ArithmeticAnswersAndModels) {
  std::mt19937 rng(11);
  check_rounds(rng, {{{2, 3}, 2, 90, true}, {{3, 4}, 1, 60, true}}, 25);
}

} // namespace
} // namespace fpsolve
