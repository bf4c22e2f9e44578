// Value intervals: fresh and constant entries, the NaN test, and entries
// pushed and popped with the strong guarantee.
#include "fp/fp_value_interval.h"
#include "tests/common/alloc_failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

namespace qorv::fp {
namespace {

// init appends a fresh entry, [NaN, +inf] with a clear flag, on top of what
// is there; the NaN status reads the lower end.
TEST(ValueIntervalTest, FreshEntryInitAppends) {
  IEEEFloat::format const f64{11, 53};
  FpValueInterval iv;
  iv.init(f64);
  EXPECT_TRUE(iv.lower().is_nan() && iv.upper().is_inf() && !iv.upper().get_sign());
  EXPECT_TRUE(iv.flags == std::vector<bool>{false} && iv.nan_status() == l_Undef);
  iv.lower_ends.back() = IEEEFloat::from_double(1, f64);
  EXPECT_EQ(iv.nan_status(), l_False);
  iv.init(f64);
  ASSERT_EQ(iv.flags.size(), 2u);
  EXPECT_TRUE(iv.lower().is_nan() && iv.lower_ends[0].to_double() == 1.0);
}

// A constant's interval is its single value (NaN included, then l_True); a
// term of another sort is rejected with nothing appended.
TEST(ValueIntervalTest, ConstantsAreSingleValuesInEveryWidth) {
  TermManager tm;
  for (IEEEFloat::format f : {IEEEFloat::format{5, 11}, {8, 24}, {11, 53}, {15, 113}}) {
    FpValueInterval one, nan;
    one.init(&tm, tm.mk_const(IEEEFloat::from_double(1.0, f)));
    EXPECT_TRUE(one.upper().to_double() == 1.0 && payload_equal(one.upper(), one.lower()));
    nan.init(&tm, tm.mk_const(IEEEFloat::from_double(-NAN, f)));
    EXPECT_TRUE(nan.lower().is_nan() && nan.lower().get_sign() &&
                payload_equal(nan.upper(), nan.lower()));
    EXPECT_TRUE(one.nan_status() == l_False && nan.nan_status() == l_True);
  }
  FpValueInterval b;
  EXPECT_THROW(b.init(&tm, tm.mk_var("b", tm.bool_sort())), std::invalid_argument);
  EXPECT_TRUE(b.lower_ends.empty() && b.upper_ends.empty() && b.flags.empty());
}

// push_entry and pop_entry move the three arrays together, and a failing
// allocation in push_entry leaves the interval as it was.  init of a
// constant appends the open entry before it builds the value: a failure in
// between leaves [NaN, +inf], never a half-narrowed entry.
TEST(ValueIntervalTest, EntriesMoveTogetherAndInitKeepsTheOpenEntryOnFailure) {
  IEEEFloat::format const quad{15, 113};
  IEEEFloat const one = IEEEFloat::from_double(1, quad), two = IEEEFloat::from_double(2, quad);
  FpValueInterval iv;
  iv.init(quad);
  auto const unchanged = [&] {
    ASSERT_TRUE(iv.entries() == 1u && iv.lower_ends.size() == 1u && iv.upper_ends.size() == 1u);
  };
  EXPECT_GT(test::each_failure([&] { iv.push_entry(one, two, true); }, unchanged), 0);
  EXPECT_TRUE(iv.entries() == 2u && payload_equal(iv.upper(), two) && iv.flags.back());
  iv.pop_entry();
  EXPECT_TRUE(iv.entries() == 1u && iv.lower().is_nan() && iv.upper().is_inf());

  TermManager tm;
  Term const* c = tm.mk_const(one);
  FpValueInterval fresh;
  int open_entries = 0;
  auto const open_entry = [&] { // a failure leaves nothing or the open entry
    if (fresh.empty()) return;
    ASSERT_EQ(fresh.entries(), 1u);
    EXPECT_TRUE(fresh.lower().is_nan() && fresh.upper().is_inf() && !fresh.upper().get_sign());
    ++open_entries;
  };
  int const failures =
      test::each_failure([&] { fresh = FpValueInterval(), fresh.init(&tm, c); }, open_entry);
  EXPECT_TRUE(payload_equal(fresh.lower(), one) && payload_equal(fresh.upper(), one));
  EXPECT_TRUE(failures > 0 && open_entries > 0) << "no failure between the entry and the value";
}

} // namespace
} // namespace qorv::fp
