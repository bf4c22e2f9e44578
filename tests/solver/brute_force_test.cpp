// The solver against brute force on formats small enough to enumerate.
//
// Random problems over (2, 3) and (3, 4) mix comparisons of variables, their
// fp.neg and fp.abs views and constants, classifications and Boolean
// structure.  An oracle written from IEEE-754 alone (bit fields decoded here,
// values compared as doubles, which hold every value of these formats
// exactly) checks each answer: a sat model must satisfy every assertion, and
// an unsat answer must survive the enumeration of every assignment.  No
// external program is involved, so this runs everywhere the tests run.
#include "engine/search.h"
#include "smtlib/elaborate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace fpsolve {
namespace {

// Whether the assertions hold when variable v has pattern a[v] (Booleans: 1
// for true).
bool holds(Problem const& p, std::vector<std::uint64_t> const& a) {
  struct Bits {
    IEEEFloat::format f;
    std::uint64_t p, man, exp;
    bool sign, ones, nan;
  };
  auto operand = [&](int o) {
    Operand const& op = p.operands[o];
    std::uint64_t const s = std::uint64_t{1} << (op.fmt.eb + op.fmt.sb - 1);
    std::uint64_t b = op.var < 0 ? op.constant.payload_u64() : a[op.var];
    std::uint64_t const man = b & ((std::uint64_t{1} << (op.fmt.sb - 1)) - 1);
    std::uint64_t const exp = (b & (s - 1)) >> (op.fmt.sb - 1);
    bool const ones = exp == (std::uint64_t{1} << op.fmt.eb) - 1, nan = ones && man != 0;
    if (!nan && op.var >= 0) b = op.abs ? (op.neg ? b | s : b & ~s) : (op.neg ? b ^ s : b);
    return Bits{op.fmt, b, man, exp, (b & s) != 0, ones, nan};
  };
  auto value = [](Bits const& x) {
    int const bias = (1 << (x.f.eb - 1)) - 1, shift = static_cast<int>(x.f.sb) - 1;
    double const m = x.nan    ? NAN
                     : x.ones ? INFINITY
                     : x.exp == 0
                         ? std::ldexp(static_cast<double>(x.man), 1 - bias - shift)
                         : std::ldexp(static_cast<double>(x.man + (std::uint64_t{1} << shift)),
                                      static_cast<int>(x.exp) - bias - shift);
    return x.sign ? -m : m;
  };
  std::function<bool(int)> eval = [&](int n) -> bool {
    Node const& nd = p.nodes[n];
    std::size_t truths = 0;
    for (int k : nd.kids)
      truths += eval(k);
    std::size_t const kids = nd.kids.size();
    switch (nd.op) {
    case Op::t:
      return true;
    case Op::f:
      return false;
    case Op::bvar:
      return a[nd.a] != 0;
    case Op::not_:
      return truths == 0;
    case Op::and_:
      return truths == kids;
    case Op::or_:
      return truths > 0;
    case Op::xor_:
      return truths % 2 == 1;
    case Op::iff:
      return truths != 1;
    case Op::ite:
      return eval(nd.kids[0]) ? eval(nd.kids[1]) : eval(nd.kids[2]);
    default:
      break;
    }
    Bits const x = operand(nd.a), y = nd.b >= 0 ? operand(nd.b) : x;
    bool const zero = x.exp == 0 && x.man == 0;
    switch (nd.op) {
    case Op::leq:
      return value(x) <= value(y);
    case Op::lt:
      return value(x) < value(y);
    case Op::fp_eq:
      return value(x) == value(y);
    case Op::ident:
      return (x.nan && y.nan) || x.p == y.p;
    case Op::is_nan:
      return x.nan;
    case Op::is_inf:
      return x.ones && !x.nan;
    case Op::is_zero:
      return zero;
    case Op::is_normal:
      return x.exp != 0 && !x.ones;
    case Op::is_subnormal:
      return x.exp == 0 && !zero;
    case Op::is_negative:
      return !x.nan && x.sign;
    default:
      return !x.nan && !x.sign; // is_positive
    }
  };
  for (int r : p.assertions)
    if (!eval(r)) return false;
  return true;
}

// Whether some assignment of patterns (Booleans: 0 or 1) satisfies p.
bool satisfiable(Problem const& p) {
  std::vector<std::uint64_t> a(p.vars.size(), 0);
  for (;;) {
    if (holds(p, a)) return true;
    std::size_t v = 0;
    for (; v < a.size(); a[v++] = 0) {
      Var const& var = p.vars[v];
      if (++a[v] < (var.is_bool ? 2 : std::uint64_t{1} << (var.fmt.eb + var.fmt.sb))) break;
    }
    if (v == a.size()) return false;
  }
}

// A random problem: variables x0.. of format (eb, sb), a Boolean b, atoms
// over views and constants, 1 to 3 assertions of depth up to 3.
std::string random_problem(std::mt19937& rng, int eb, int sb, int vars) {
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  auto bits = [&](int width) {
    std::string s = "#b";
    for (int i = 0; i < width; ++i)
      s += pick(2) ? '1' : '0';
    return s;
  };
  auto operand = [&]() -> std::string {
    if (pick(4) == 0) return "(fp " + bits(1) + " " + bits(eb) + " " + bits(sb - 1) + ")";
    std::string x = "x" + std::to_string(pick(vars));
    if (pick(3) == 0) x = "(fp.abs " + x + ")";
    return pick(3) == 0 ? "(fp.neg " + x + ")" : x;
  };
  static char const* const atoms[] = {"fp.leq",       "fp.lt",          "fp.geq",
                                      "fp.gt",        "fp.eq",          "=",
                                      "fp.isNaN",     "fp.isInfinite",  "fp.isZero",
                                      "fp.isNormal",  "fp.isSubnormal", "fp.isNegative",
                                      "fp.isPositive"};
  static char const* const connectives[] = {"not", "ite", "and", "or", "xor", "=>", "="};
  std::function<std::string(int)> formula = [&](int depth) -> std::string {
    int const k = pick(depth == 0 ? 3 : 10);
    if (k == 0) return pick(2) ? "b" : "(not b)";
    if (k <= 2) {
      int const atom = pick(13);
      return std::string("(") + atoms[atom] + " " + operand() + (atom < 6 ? " " + operand() : "") +
             ")";
    }
    int const c = k - 3;
    std::string s = std::string("(") + connectives[c] + " " + formula(depth - 1);
    for (int i = c == 0 ? 0 : c == 1 ? 2 : 1; i > 0; --i)
      s += " " + formula(depth - 1);
    return s + ")";
  };
  std::string s = "(declare-const b Bool)";
  for (int v = 0; v < vars; ++v)
    s += "(declare-const x" + std::to_string(v) + " (_ FloatingPoint " + std::to_string(eb) + " " +
         std::to_string(sb) + "))";
  for (int i = pick(3); i >= 0; --i)
    s += "(assert " + formula(3) + ")";
  return s;
}

TEST(BruteForce, AnswersAndModelsOnEnumerableFormats) {
  std::mt19937 rng(7);
  int answers[2] = {0, 0}; // sat, unsat
  for (auto [eb, sb, vars] : {std::tuple{2, 3, 3}, {3, 4, 2}})
    for (int i = 0; i < 200; ++i) {
      std::string const text = random_problem(rng, eb, sb, vars);
      Problem p;
      Elaborator el(p);
      std::istringstream in(text);
      Reader reader(in);
      while (auto cmd = reader.next())
        if (cmd->items[0].is_symbol("assert"))
          el.assert_formula(cmd->items[1]);
        else
          el.declare(cmd->items[1].atom.text, cmd->items[2], cmd->items[1]);
      Options opt;
      opt.check = true;
      Result const r = solve(p, opt);
      ASSERT_NE(r.answer, Answer::unknown) << text;
      ++answers[r.answer == Answer::unsat];
      if (r.answer == Answer::unsat) {
        EXPECT_FALSE(satisfiable(p)) << "unsat, yet satisfiable: " << text;
        continue;
      }
      std::vector<std::uint64_t> a;
      for (std::size_t v = 0; v < p.vars.size(); ++v)
        a.push_back(p.vars[v].is_bool ? !r.model[v].is_nan() : r.model[v].payload_u64());
      EXPECT_TRUE(holds(p, a)) << "model fails: " << text;
    }
  // Both answers must be well represented, or the test proves little.
  EXPECT_GT(answers[0], 60);
  EXPECT_GT(answers[1], 60);
}

} // namespace
} // namespace fpsolve
