// fpsolve end to end where enumeration (brute_force_test) and the session
// test cannot look: formats too wide to enumerate, exact literal
// conversion, resource limits, tracing, the model check and input errors.
// Every search runs with the trail/search-state cross-check switched on.
#include "engine/apply.h"
#include "smtlib/driver.h"
#include "tests/common/script_problem.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using fpsolve::DriverOptions;

struct Outcome {
  int status;
  std::string out;
  std::string diagnostic; // statistics and traces
};

Outcome run(std::string const& script, DriverOptions opt = {}) {
  opt.search.check = true;
  std::istringstream in(script);
  std::ostringstream out, diagnostic;
  opt.diagnostic = &diagnostic;
  int status = fpsolve::run_script(in, out, opt);
  return {status, out.str(), diagnostic.str()};
}

std::string answer(std::string const& script) {
  Outcome r = run(script + "\n(check-sat)\n");
  EXPECT_EQ(r.status, 0) << r.out;
  return r.out.substr(0, r.out.find('\n'));
}

// The small formats' semantics are judged by enumeration (brute_force_test);
// these are the formats enumeration cannot reach.
TEST(Fpsolve, WideFormatsHaveKnownAnswers) {
  // Float128: no value strictly between two neighbours; strict cycles.
  std::string const q = "(declare-const q Float128)(declare-const r Float128)";
  EXPECT_EQ(answer(q + "(assert (fp.gt q ((_ to_fp 15 113) RTZ (/ 1 3))))"
                       "(assert (fp.lt q ((_ to_fp 15 113) RTP (/ 1 3))))"),
            "unsat");
  EXPECT_EQ(answer(q + "(assert (fp.lt q r))(assert (fp.leq r (fp.neg (fp.neg q))))"), "unsat");
  EXPECT_EQ(answer(q + "(assert (fp.lt q r (_ +oo 15 113)))(assert (fp.isInfinite r))"), "unsat");
  // Wider than 128 bits, and the smallest format.
  EXPECT_EQ(
      answer("(declare-const w (_ FloatingPoint 20 300))(declare-const v (_ FloatingPoint 20 300))"
             "(assert (fp.lt (_ -oo 20 300) w v (_ -zero 20 300)))(assert (fp.isSubnormal v))"),
      "sat");
  EXPECT_EQ(answer("(declare-const t (_ FloatingPoint 2 2))(assert (not (fp.isNaN t)))(assert (not "
                   "(fp.isInfinite t)))"
                   "(assert (not (fp.isZero t)))(assert (not (fp.isNormal t)))(assert (not "
                   "(fp.isSubnormal t)))"),
            "unsat");
}

TEST(Fpsolve, LiteralsAreExact) {
  // Each pair names one value in two ways, so every check answers sat.
  char const* const same[][2] = {
      {"((_ to_fp 8 24) RNE 0.1)", "(fp #b0 #b01111011 #b10011001100110011001101)"},
      {"((_ to_fp 5 11) RNE 2049.0)", "((_ to_fp 5 11) #x6800)"}, // tie to even: 2048
      {"((_ to_fp 5 11) RNA 2049.0)", "((_ to_fp 5 11) #x6801)"}, // tie away: 2050
      {"((_ to_fp 5 11) RNA 65520.0)", "(_ +oo 5 11)"}, // exactly halfway past the largest
      {"((_ to_fp 5 11) RTN (- 0.00000000001))", "((_ to_fp 5 11) #b1000000000000001)"},
  };
  for (auto const& [a, b] : same)
    EXPECT_EQ(answer(std::string("(assert (= ") + a + " " + b + "))"), "sat") << a;
  EXPECT_EQ(answer("(assert (= ((_ to_fp 5 11) RNE 2049.0) ((_ to_fp 5 11) RNA 2049.0)))"),
            "unsat");
  Outcome r = run(
      "(check-sat)(get-value (((_ to_fp 11 53) RNE (/ 1 3)) (_ NaN 2 3) ((_ to_fp 2 3) #b11101)))");
  EXPECT_EQ(r.out,
            "sat\n((((_ to_fp 11 53) RNE (/ 1 3)) (fp #b0 #b01111111101 "
            "#b0101010101010101010101010101010101010101010101010101))\n"
            " ((_ NaN 2 3) (fp #b0 #b11 #b10))\n (((_ to_fp 2 3) #b11101) (fp #b0 #b11 #b10)))\n");
}

TEST(Fpsolve, LimitsStatsAndTrace) {
  // Unsat, and only by exhausting the search: the chain never becomes false
  // on intervals until x and z are single values.  A small format keeps the
  // exhaustion short.
  std::string const hard =
      "(define-sort F () (_ FloatingPoint 3 4))"
      "(declare-const x F)(declare-const y F)(declare-const z F)"
      "(assert (or (fp.lt x y z) (fp.gt x y z)))(assert (fp.eq x z))(check-sat)";
  DriverOptions limited;
  limited.search.max_decisions = 1;
  EXPECT_EQ(run(hard, limited).out, "unknown\n");
  // An embedding that fixes the limits keeps them whatever the script sets;
  // the standard options stay settable.
  limited.script_sets_limits = false;
  Outcome fixed =
      run("(set-option :max-decisions 0)(set-option :print-success true)" + hard, limited);
  EXPECT_NE(fixed.out.find("is fixed by the embedding"), std::string::npos) << fixed.out;
  EXPECT_NE(fixed.out.find("success\nsuccess\n"), std::string::npos) << fixed.out;
  EXPECT_EQ(fixed.out.substr(fixed.out.size() - 8), "unknown\n") << fixed.out;
  std::ostringstream trace;
  DriverOptions traced;
  traced.search.stats = true;
  traced.search.trace = true;
  traced.search.trace_out = &trace;
  Outcome r = run(hard, traced);
  EXPECT_EQ(r.out, "unsat\n"); // statistics go to the diagnostic channel
  EXPECT_NE(r.diagnostic.find("(:decisions "), std::string::npos);
  EXPECT_NE(r.diagnostic.find(" :backtracks "), std::string::npos);
  EXPECT_NE(trace.str().find("; backtrack 1:"), std::string::npos);
  EXPECT_NE(trace.str().find("S["), std::string::npos) << trace.str();
  // x <= y < x + z: no pick of interval ends meets it at once, and bisection
  // alone runs on for hours in Float64; the model probe fixes one input at
  // a time and finds a model before the first decision.
  Outcome probed = run("(declare-const x Float64)(declare-const y Float64)(declare-const z Float64)"
                       "(assert (fp.leq x y))(assert (fp.lt y (fp.add RNE x z)))(check-sat)",
                       traced);
  EXPECT_EQ(probed.out, "sat\n");
  EXPECT_EQ(probed.diagnostic.substr(0, 14), "(:decisions 0\n") << probed.diagnostic;
  EXPECT_NE(probed.diagnostic.find(":probes 1\n"), std::string::npos) << probed.diagnostic;
  // Without arithmetic too: x = y but x distinct from |y| needs a negative x;
  // bisection alone took 18,732 decisions (most of the positive half).
  // In Float128 the probe's middle of [NaN, +inf] spans almost 2^128 ranks.
  for (char const* sort : {"Float16", "Float128"}) {
    std::string const s = sort;
    probed = run("(declare-const x " + s + ")(declare-const y " + s +
                     ")(assert (= x y))(assert (distinct x (fp.abs y)))(check-sat)",
                 traced);
    EXPECT_EQ(probed.out + probed.diagnostic.substr(0, 14), "sat\n(:decisions 0\n")
        << probed.diagnostic;
  }
}

// One term on both sides of an operation is refuted without enumerating
// Float64: x - x is a zero (negative only under RTN), x * x is no less than
// zero, x / x is 1 or NaN.
TEST(Fpsolve, OneTermOnBothSides) {
  DriverOptions limited;
  limited.search.max_decisions = 1000;
  std::string const x = "(declare-fun x () Float64)";
  for (char const* a : {"(assert (fp.isNegative (fp.sub RTZ x x)))",
                        "(assert (fp.lt (fp.mul RTP x x) (_ -zero 11 53)))",
                        "(assert (fp.gt (fp.div RNE x x) ((_ to_fp 11 53) RNE 1.0)))"})
    EXPECT_EQ(run(x + a + "(check-sat)", limited).out, "unsat\n") << a;
  EXPECT_EQ(run(x + "(assert (fp.isNegative (fp.sub RTN x x)))(check-sat)", limited).out, "sat\n");
}

// The exact check that guards every sat: a model whose term values or
// assertions are off is refused, naming what fails.
TEST(Fpsolve, ModelCheckRefusesWrongModels) {
  fpsolve::Problem p;
  fpsolve::test::elaborate_script(p, "(declare-fun x () (_ FloatingPoint 3 4))"
                                     "(assert (fp.eq (fp.mul RNE x x) ((_ to_fp 3 4) RNE 4.0)))");
  auto value = [](double d) {
    return fpsolve::IEEEFloat::from_narrow_bits(d == 2 ? 0x20 : 0x18, {3, 4}); // 2.0 or 1.0
  };
  std::string why;
  std::vector<fpsolve::IEEEFloat> good{value(2)}, bad{value(1)};
  EXPECT_TRUE(fpsolve::verify_model(p, good, &why)) << why;
  EXPECT_FALSE(fpsolve::verify_model(p, bad, &why));
  EXPECT_EQ(why, "assertion 1 is false under the model");
  std::vector<fpsolve::IEEEFloat> lying{value(2), value(1)}; // x * x claimed to be 1
  EXPECT_FALSE(fpsolve::verify_model(p, lying, &why));
  EXPECT_NE(why.find("term @t0 is"), std::string::npos) << why;
}

TEST(Fpsolve, BadInputNamesPlaceAndExpectation) {
  struct Case {
    char const* script;
    char const* message;
  } const cases[] = {
      {"(declare-const x Float32)\n(assert (fp.leq ((_ fp.to_ubv 8) RNE x) x))",
       "(error \"line 2 column 17: wrong sort: expected a floating-point term, found (_ BitVec "
       "8)\")"},
      {"(declare-const a (_ BitVec 4))\n(assert (bvult a #b101))",
       "(error \"line 2 column 18: wrong sort: argument 2 of bvult is (_ BitVec 3), expected (_ "
       "BitVec 4)\")"},
      {"(declare-const a (_ BitVec 4))\n(assert (= a ((_ extract 4 1) a)))",
       "(error \"line 2 column 15: invalid extract indices 4 1 of a bit-vector of width 4"},
      {"(declare-const x Float32)\n(assert (fp.isNaN (fp.to_real x)))",
       "(error \"line 2 column 19: wrong sort: expected a floating-point term, found Real"},
      {"(assert (forall ((y Float32)) (fp.isNaN y)))",
       "(error \"line 1 column 10: unsupported quantifier 'forall'"},
      {"(declare-const x Float32)\n(assert (fp.isNaN (fp.add RNE x)))",
       "(error \"line 2 column 19: fp.add expects 3 arguments (a rounding mode first)\")"},
      {"(declare-const x Float32)\n(assert (fp.leq x true))",
       "(error \"line 2 column 19: wrong sort: expected a floating-point term, found Bool\")"},
      {"(declare-const x Float32)(declare-const y Float64)\n(assert (fp.lt x y))",
       "(error \"line 2 column 18: wrong sort: argument 2 of fp.lt is (_ FloatingPoint 11 53), "
       "expected (_ FloatingPoint 8 24)\")"},
      {"(declare-const x Float32)\n(assert (fp.isNaN x)",
       "(error \"line 2 column 21: unbalanced parentheses: expected ')' to close the '(' at line 2 "
       "column 1"},
      {"(check-sat))", "sat\n(error \"line 1 column 12: unbalanced parentheses: unexpected ')'"},
      {"(declare-const x (_ FloatingPoint 1 8))",
       "(error \"line 1 column 35: invalid floating-point format"},
      {"(assert (= (fp #b0 #b1 #b0) (_ NaN 2 2)))",
       "(error \"line 1 column 12: expected an exponent of at least 2 bits"},
      {"(assert (= ((_ to_fp 2 3) #b0101) (_ NaN 2 3)))",
       "(error \"line 1 column 27: wrong sort: expected a bit-vector of 5 bits"},
      {"(assert \"text)", "(error \"line 1 column 9: unterminated string literal"},
      {"(assert (fp.isNaN 1.5))",
       "(error \"line 1 column 19: wrong sort: expected a floating-point term, found Real"},
      {"(declare-sort U 0)\n(declare-const u U)",
       "(error \"line 2 column 18: unsupported uninterpreted sort 'U' (outside QF_FP)\")"},
  };
  for (auto const& c : cases) {
    Outcome r = run(c.script);
    EXPECT_EQ(r.status, 1) << c.script;
    EXPECT_EQ(r.out.substr(0, std::string(c.message).size()), c.message) << c.script;
  }
  // What benchmarks in the wild write and other solvers read: an unused
  // uninterpreted sort, a backslash in a quoted symbol (kept in the model).
  Outcome ok = run("(declare-sort U 0)(declare-const |a\\b| Float16)(assert (fp.isNaN |a\\b|))"
                   "(check-sat)(get-model)");
  EXPECT_EQ(ok.status, 0);
  EXPECT_NE(ok.out.find("(define-fun |a\\b| () (_ FloatingPoint 5 11) (fp #b0 #b11111 #b1"),
            std::string::npos)
      << ok.out;
  // A function's body is checked where it is defined, with each function it
  // applies standing for a value of its result sort; where that value would
  // fold (a constant factor, a zero divisor) the body is expanded instead.
  Outcome r =
      run("(declare-const r Real)(define-fun f ((a Float32)) Float32 (fp.neg a))\n"
          "(define-fun g ((a Float32)) Float32 (f (f a) a))\n"
          "(define-fun h ((a Float32)) Float32 (f (fp.isNaN a)))\n"
          "(define-fun two ((y Real)) Real 2.0)(define-fun same ((y Real)) Real y)\n"
          "(define-fun lin ((y Real)) Real (* (two y) y))(define-fun nonlin ((y Real)) Real "
          "(* (same y) y))\n(define-fun q ((y Real)) Real (/ y (- (two y) 2.0)))\n"
          "(assert (= (lin r) 4.0))(check-sat)");
  EXPECT_EQ(r.out,
            "(error \"line 2 column 37: 'f' expects 1 arguments, found 2\")\n"
            "(error \"line 3 column 40: wrong sort: argument 1 of 'f' is Bool\")\n"
            "(error \"line 5 column 82: unsupported non-linear term (* (same y) y); a "
            "product needs every factor but one constant\")\n"
            "(error \"line 6 column 36: division by zero in (/ y (- (two y) 2.0))\")\nsat\n");
  // Deep nesting is an error, not a stack overflow; the limit is an option.
  EXPECT_EQ(run(std::string(20000, '(')).status, 1);
  DriverOptions shallow;
  shallow.search.max_nesting = 3;
  EXPECT_EQ(run("(assert (not (not (not true))))(check-sat)", shallow).out,
            "(error \"line 1 column 19: expressions nested deeper than max-nesting (3)\")\nsat\n");
}

} // namespace
