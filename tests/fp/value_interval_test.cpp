#include "fp/fp_value_interval.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

namespace qorv::fp {
namespace {

TEST(ValueIntervalTest, FreshEntryInitAppendsAndCopiesAreIndependent) {
  FpValueInterval iv;
  iv.init(IEEEFloat::format{11, 53});
  EXPECT_TRUE(iv.lower().is_nan());
  EXPECT_TRUE(iv.upper().is_inf() && !iv.upper().get_sign());
  EXPECT_EQ(iv.flags, std::vector<bool>{false});
  EXPECT_EQ(iv.nan_status(), l_Undef);
  iv.lower_ends.back() = IEEEFloat::from_double(1, {11, 53});
  EXPECT_EQ(iv.nan_status(), l_False);
  FpValueInterval copy(iv);
  iv.init(IEEEFloat::format{11, 53}); // a second, fresh entry on top
  ASSERT_EQ(iv.flags.size(), 2u);
  EXPECT_EQ(iv.lower_ends[0].to_double(), 1.0);
  EXPECT_TRUE(iv.lower().is_nan());
  copy.lower_ends.back() = IEEEFloat::from_double(2, {11, 53});
  EXPECT_EQ(iv.lower_ends[0].to_double(), 1.0);
  EXPECT_EQ(copy.flags.size(), 1u);
}

TEST(ValueIntervalTest, ConstantsAreSingleValuesInEveryWidth) {
  TermManager tm;
  for (IEEEFloat::format f : {IEEEFloat::format{5, 11}, {8, 24}, {11, 53}, {15, 113}}) {
    FpValueInterval one, nan, var;
    one.init(&tm, tm.mk_const(IEEEFloat::from_double(1.0, f)));
    EXPECT_EQ(one.upper().to_double(), 1.0);
    EXPECT_TRUE(payload_equal(one.upper(), one.lower()));
    EXPECT_EQ(one.nan_status(), l_False);
    nan.init(&tm, tm.mk_const(IEEEFloat::from_double(-NAN, f)));
    EXPECT_TRUE(nan.lower().is_nan() && nan.lower().get_sign());
    EXPECT_TRUE(payload_equal(nan.upper(), nan.lower()));
    EXPECT_EQ(nan.nan_status(), l_True);
    var.init(&tm, tm.mk_var("x", tm.fp_sort(f)));
    EXPECT_EQ(var.lower().get_format(), f);
  }
  FpValueInterval b; // not a floating-point sort: rejected, nothing appended
  EXPECT_THROW(b.init(&tm, tm.mk_var("b", tm.bool_sort())), std::invalid_argument);
  EXPECT_TRUE(b.lower_ends.empty() && b.upper_ends.empty() && b.flags.empty());
}

} // namespace
} // namespace qorv::fp
