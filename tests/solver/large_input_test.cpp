// Long and deeply nested scripts, as tools write them, read and elaborated
// through run_script: a quadratic scan fails these on the ctest timeout, and
// recursion as deep as the input overflows the stack (more so under
// AddressSanitizer).
#include "smtlib/driver.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

struct Outcome {
  int status;
  std::string out;
};

Outcome run(std::string const& script) {
  fpsolve::DriverOptions opt;
  opt.search.max_nesting = 1'000'000;
  std::istringstream in(script);
  std::ostringstream out, diagnostic;
  opt.diagnostic = &diagnostic;
  return {fpsolve::run_script(in, out, opt), out.str()};
}

std::string repeat(std::string const& s, int n) {
  std::string r;
  r.reserve(s.size() * static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i)
    r += s;
  return r;
}

// The answers depend on every level: an even number of negations through a
// let chain and a deep term leaves x itself, so asserting it negative next
// to a positive x is unsat; one level less is sat (checked on a shorter
// chain, to keep sanitizer builds within their time).
TEST(FpsolveReading, DeepLetsTermsAndLongConjunctionsKeepTheirMeaning) {
  auto script = [](int depth, int last, int negations) {
    std::string lets = "(let ((t0 x))";
    for (int i = 1; i <= depth; ++i)
      lets += "\n(let ((t" + std::to_string(i) + " (fp.neg t" + std::to_string(i - 1) + ")))";
    return "(declare-const x Float16)(declare-const y Float16)\n"
           "(assert (and" +
           repeat(" (fp.leq y x)", 100'000) + "))\n(assert (fp.isPositive x))\n(assert " + lets +
           " (fp.isNegative t" + std::to_string(last) + ")" + std::string(depth + 1, ')') +
           ")\n(assert (fp.isPositive " + repeat("(fp.neg ", negations) + "x" +
           std::string(negations, ')') + "))\n(check-sat)\n";
  };
  EXPECT_EQ(run(script(200'000, 200'000, 100'000)).out, "unsat\n");
  EXPECT_EQ(run(script(20'000, 19'999, 10'000)).out, "sat\n");
}

// Deep arithmetic, macro applications and named terms elaborate; an error at
// the bottom of a deep term keeps its position and leaves the elaborator
// usable; get-value prints a deep term back.  (The search over this many
// terms is left out: with the invariant checks of a debug build it would
// take minutes.)
TEST(FpsolveReading, DeepArithmeticMacrosAndErrors) {
  int const depth = 50'000;
  std::string const sum = repeat("(fp.add RNE y ", depth) + "x" + std::string(depth, ')');
  std::string const calls = repeat("(twice ", depth) + "x" + std::string(depth, ')');
  std::string const bad = repeat("(fp.neg ", depth) + "z" + std::string(depth, ')');
  Outcome r =
      run("(declare-const x Float32)(declare-const y Float32)\n"
          "(define-fun twice ((a Float32)) Float32 (fp.mul RNE a ((_ to_fp 8 24) RNE 2.0)))\n"
          "(assert (! (fp.leq " +
          sum + " " + calls + ") :named deep))\n(assert (fp.isNaN " + bad +
          "))\n(assert (fp.isNaN (fp.neg deep)))\n(exit)\n");
  EXPECT_EQ(r.status, fpsolve::kExitInputError);
  std::string const column =
      std::to_string(std::string("(assert (fp.isNaN ").size() + 8 * depth + 1);
  EXPECT_EQ(r.out, "(error \"line 4 column " + column +
                       ": undeclared name 'z'; expected a declared constant\")\n"
                       "(error \"line 5 column 27: wrong sort: expected a floating-point term, "
                       "found Bool\")\n");
  std::string const abs = repeat("(fp.abs ", 2'000) + "x" + std::string(2'000, ')');
  r = run("(set-option :produce-models true)(declare-const x Float32)(assert (fp.isZero x))"
          "(check-sat)(get-value (" +
          abs + "))");
  EXPECT_EQ(r.out, "sat\n((" + abs + " (fp #b0 #b00000000 #b00000000000000000000000)))\n");
}

// Chains of functions, each applying the one before, elaborate in time
// proportional to their length and without recursion as deep: expanded as
// macros, a chain applying the one before once costs its length squared,
// twice 2^length.  The answer depends on the parity of the negations
// through every link.
TEST(FpsolveReading, FunctionChainsElaborateOncePerApplication) {
  auto script = [](int links) {
    auto link = [](char f, int i, std::string const& body) {
      return "(define-fun " + std::string(1, f) + std::to_string(i) + " ((a Float32)) Float32 " +
             body + ")\n";
    };
    std::string s = "(declare-const x Float32)\n" + link('f', 0, "a") + link('g', 0, "a");
    for (int i = 1; i <= links; ++i)
      s += link('f', i, "(fp.neg (f" + std::to_string(i - 1) + " a))");
    for (int i = 1; i <= 64; ++i) {
      std::string const twice = "(g" + std::to_string(i - 1) + " a)";
      s += link('g', i, "(fp.mul RNE " + twice + " " + twice + ")");
    }
    return s + "(define-fun squared () Float32 (g64 x))\n(assert (fp.isPositive x))\n" +
           "(assert (fp.isNegative (f" + std::to_string(links) + " x)))\n(check-sat)\n";
  };
  EXPECT_EQ(run(script(100'001)).out, "sat\n");
  EXPECT_EQ(run(script(10'000)).out, "unsat\n");
}

} // namespace
