// fpsolve::api::Solver: answers and models as the command gives them, scopes,
// options, and every input error reported as the header promises.
#include "api/solver.h"

#include "host/fp_arith.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using fpsolve::api::Answer;
using fpsolve::api::Solver;
using qorv::IEEEFloat;

constexpr IEEEFloat::format kHalf{5, 11};

TEST(SolverApi, ModelOfEverySortSatisfiesTheAssertions) {
  Solver s;
  s.declare_fp("x", kHalf);
  s.declare_fp("|odd name|", kHalf);
  s.declare_bool("b");
  s.declare_rounding_mode("r");
  s.assert_formula(
      "(and b (= r RTZ) (fp.lt ((_ to_fp 5 11) RNE 1.5) x) (fp.isNegative |odd name|))");
  s.assert_formula("(fp.eq (fp.mul r x x) ((_ to_fp 5 11) RNE 4.0))");
  ASSERT_EQ(s.check(), Answer::sat);
  EXPECT_TRUE(s.reason_unknown().empty());
  EXPECT_TRUE(s.bool_value("b"));
  EXPECT_EQ(s.rounding_mode_value("r"), IEEEFloat::rm_toward_zero);
  IEEEFloat const x = s.fp_value("x");
  EXPECT_TRUE(qorv::swflt::eq(qorv::swflt::mul(qorv::swflt::RTZ, x, x),
                              IEEEFloat::from_double(4.0, kHalf)));
  EXPECT_TRUE(qorv::swflt::is_negative(s.fp_value("|odd name|")));
  // Any term, computed exactly from the model.
  EXPECT_EQ(s.value_text("(fp.mul r x x)"), IEEEFloat::from_double(4.0, kHalf).to_str());
  EXPECT_EQ(s.value_text("r"), "RTZ");
  std::string const model = s.model_text();
  EXPECT_NE(model.find("(define-fun x () (_ FloatingPoint 5 11) " + x.to_str() + ")"),
            std::string::npos);
  EXPECT_NE(model.find("(define-fun |odd name| () (_ FloatingPoint 5 11) "), std::string::npos);
  EXPECT_NE(model.find("(define-fun b () Bool true)"), std::string::npos);
}

TEST(SolverApi, ScopesUndoAssertionsAndDeclarations) {
  Solver s;
  s.declare_fp("x", kHalf);
  s.assert_formula("(fp.isNaN x)");
  s.push();
  s.declare_fp("y", kHalf);
  s.assert_formula("(not (fp.isNaN x))");
  EXPECT_EQ(s.check(), Answer::unsat);
  EXPECT_THROW(s.fp_value("x"), std::logic_error); // no model after unsat
  s.pop();
  EXPECT_THROW(s.pop(), std::logic_error);
  EXPECT_THROW(s.assert_formula("(fp.isZero y)"), std::invalid_argument); // y is gone
  ASSERT_EQ(s.check(), Answer::sat);
  EXPECT_TRUE(s.fp_value("x").is_nan());
  s.declare_fp("y", {8, 24});                      // the name is free again, in another format
  EXPECT_THROW(s.fp_value("x"), std::logic_error); // any change drops the model
}

TEST(SolverApi, OptionsComeFromTheOptionTable) {
  Solver s;
  EXPECT_EQ(s.get_option("max-decisions"), "0");
  s.set_option("max-decisions", "1");
  s.set_option("probe", "false");
  s.set_option("model-search", "false");
  EXPECT_EQ(s.get_option("probe"), "false");
  EXPECT_THROW(s.set_option("max-decisions", "-1"), std::invalid_argument);
  EXPECT_THROW(s.set_option("no-such-option", "1"), std::invalid_argument);
  EXPECT_EQ(s.get_option("max-decisions"), "1"); // a rejected value changes nothing
  // Without the probe and the model search, a product's model takes more
  // than one decision.
  s.declare_fp("x", {8, 24});
  s.declare_fp("y", {8, 24});
  s.assert_formula("(and (fp.lt x y) (fp.eq (fp.mul RNE x y) ((_ to_fp 8 24) RNE 7.0)))");
  EXPECT_EQ(s.check(), Answer::unknown);
}

TEST(SolverApi, InputErrorsNameTheirPlaceAndChangeNothing) {
  Solver s;
  s.declare_fp("x", kHalf);
  auto message = [&](char const* term) {
    try {
      s.assert_formula(term);
    } catch (std::invalid_argument const& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ(message("(fp.isNaN x) (fp.isNaN x)").rfind("line 1 column 14: ", 0), 0u);
  EXPECT_EQ(message("").rfind("line 1 column 1: ", 0), 0u);
  EXPECT_NE(message("(fp.isNaN z)").find("z"), std::string::npos);
  EXPECT_NE(message("x").find("wrong sort"), std::string::npos);
  EXPECT_THROW(s.declare_bool("x"), std::invalid_argument);
  EXPECT_THROW(s.declare_bool("(x)"), std::invalid_argument);
  EXPECT_THROW(s.declare_fp("w", {1, 8}), std::invalid_argument);
  ASSERT_EQ(s.check(), Answer::sat); // nothing above was asserted
  EXPECT_THROW(s.bool_value("x"), std::invalid_argument);
  EXPECT_THROW(s.fp_value("(fp.isNaN x)"), std::invalid_argument);
}

} // namespace
