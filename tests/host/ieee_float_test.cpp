// IEEEFloat: validation, classification and double conversions against the
// exact oracle, and value semantics of wide values including allocation
// failure.
#include "host/bit_fields.h"
#include "host/ieee_float.h"
#include "host/packed_order.h"
#include "tests/common/alloc_failure.h"
#include "tests/common/fp_oracle_check.h"

#include <gmock/gmock.h>
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

namespace qorv {
namespace {

using format = IEEEFloat::format;
format const f32{8, 24}, f64{11, 53}, f128{15, 113};

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(IEEEFloat, RejectsInvalidFormatsAndPatterns) {
  for (format bad :
       {format{1, 5}, format{5, 1}, format{IEEEFloat::max_width, 2}, format{~std::uint64_t{0}, 3}})
    EXPECT_THAT([&] { IEEEFloat(bad, IEEEFloat::rm_nearest_even); },
                ThrowsMessage<std::invalid_argument>(
                    HasSubstr(std::to_string(bad.eb) + ", " + std::to_string(bad.sb))));
  EXPECT_THAT([] { IEEEFloat::from_bits(std::uint64_t{1} << 32, f32); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("4294967296")));
  EXPECT_THAT([] { IEEEFloat::from_bits(QNumber(1, 2), f32); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("1/2")));
  EXPECT_THROW(IEEEFloat::from_bits(QNumber(-1, 1), f128), std::invalid_argument);
  mpz_class p = mpz_class(1) << 128;
  EXPECT_THROW(IEEEFloat::from_bits(p.get_mpz_t(), f128), std::invalid_argument);
  p -= 1; // all ones: a negative NaN
  IEEEFloat const x = IEEEFloat::from_bits(p.get_mpz_t(), f128);
  EXPECT_TRUE(x.is_nan() && x.get_sign() && x.payload_q().is_big());
}

// from_double and to_double round to nearest-even exactly as the oracle
// converts: every value of (3, 5), classified by its fields, and the doubles
// at and next to the midpoints between neighbours (past the max, rounding
// acts as if the exponent went on, so 16 is the next value); random doubles
// into Float64 and Float128 and spread around the Float32 range
// (subnormals and overflow included).
// The one field decoder against shifts of the whole pattern, in formats whose
// exponent field crosses a limb boundary, starts a limb, or lies inside one,
// with patterns in both QNumber forms (small while they fit a signed word).
TEST(IEEEFloat, BitFieldsMatchThePattern) {
  std::mt19937_64 gen(7);
  for (format f : {format{20, 60}, format{15, 113}, format{60, 5}, format{8, 57}, format{3, 65},
                   format{11, 53}, format{5, 11}}) {
    std::uint64_t const w = f.eb + f.sb;
    for (int i = 0; i < 200; ++i) {
      mpz_class p = 0;
      for (std::uint64_t b = 0; b < w; b += 64)
        p = (p << 64) + mpz_class(std::to_string(gen()));
      p &= (mpz_class(1) << (i % 3 == 0 ? std::min<std::uint64_t>(40, w) : w)) -
           1;                                                          // some fit the small form
      if (i % 5 == 0) p |= ((mpz_class(1) << f.eb) - 1) << (f.sb - 1); // infinity or NaN
      IEEEFloat const x = IEEEFloat::from_bits(p.get_mpz_t(), f);
      BitFields const v(x);
      mpz_class const exp = (p >> (f.sb - 1)) & ((mpz_class(1) << f.eb) - 1);
      mpz_class const trail = p & ((mpz_class(1) << (f.sb - 1)) - 1);
      mpz_class t;
      v.trailing(t.get_mpz_t());
      EXPECT_EQ(v.sign(), mpz_tstbit(p.get_mpz_t(), w - 1) != 0);
      EXPECT_EQ(mpz_class(std::to_string(v.exponent())), exp);
      EXPECT_EQ(t, trail);
      EXPECT_EQ(v.exp_ones(), exp == (mpz_class(1) << f.eb) - 1);
      EXPECT_EQ(v.exp_zero(), exp == 0);
      EXPECT_EQ(v.trail_zero(), trail == 0);
    }
  }
}

TEST(IEEEFloat, DoubleConversionsRoundLikeTheOracle) {
  using oracle::Oracle;
  Oracle const o64(11, 53), o35(3, 5), o32(8, 24), o128(15, 113);
  auto const check = [&](double d, format f, Oracle const& o) {
    mpz_class const want = o.convert(oracle::kRNE, o64, std::bit_cast<std::uint64_t>(d));
    IEEEFloat const x = IEEEFloat::from_double(d, f);
    ASSERT_EQ(oracle::bits_of(x), want) << d;
    ASSERT_EQ(std::bit_cast<std::uint64_t>(x.to_double()),
              o64.convert(oracle::kRNE, o, want).get_ui())
        << d;
  };
  format const f35{3, 5};
  for (std::uint64_t p = 0; p < 256; ++p) {
    IEEEFloat const x = IEEEFloat::from_bits(p, f35);
    std::uint64_t const exp = (p >> 4) & 7, trail = p & 15;
    EXPECT_TRUE(x.is_nan() == (exp == 7 && trail) && x.is_inf() == (exp == 7 && !trail) &&
                x.is_normal() == (exp && exp < 7) && x.is_subnormal() == (!exp && trail))
        << p;
    if (exp == 7) continue;
    double const d = x.to_double();
    double const next =
        (p & 127) == 111 ? std::copysign(16.0, d) : IEEEFloat::from_bits(p + 1, f35).to_double();
    double const mid = (d + next) / 2;
    for (double e : {d, mid, std::nextafter(mid, 0.0), std::nextafter(mid, 2 * next)})
      check(e, f35, o35);
  }
  EXPECT_EQ(IEEEFloat::from_double(-std::numeric_limits<double>::quiet_NaN(), f35).to_str(),
            "(fp #b1 #b111 #b1000)");
  std::mt19937_64 rng(42);
  for (int i = 0; i < 2000; ++i) {
    std::uint64_t const bits = rng();
    check(-std::ldexp(std::bit_cast<double>((bits >> 12) | 0x3ff0000000000000),
                      int(bits % 300) - 160),
          f32, o32);
    if (std::isnan(std::bit_cast<double>(bits))) continue;
    check(std::bit_cast<double>(bits), f64, o64);
    check(std::bit_cast<double>(bits), f128, o128);
  }
}

// Float128 -> double on the rounding boundaries, and a format whose exponent
// range dwarfs any machine word.
TEST(IEEEFloat, WideFormatsRoundToDouble) {
  // 2^exp * (1 + trailing / 2^112); `flip` bits set in 0, or cleared in all ones.
  auto f128_value = [](std::int64_t exp, std::initializer_list<int> flip, bool ones = false) {
    mpz_class p = (mpz_class(exp + 16383 + (ones ? 1 : 0)) << 112) - (ones ? 1 : 0);
    for (int b : flip)
      ones ? mpz_clrbit(p.get_mpz_t(), b) : mpz_setbit(p.get_mpz_t(), b);
    return IEEEFloat::from_bits(p.get_mpz_t(), f128).to_double();
  };
  EXPECT_EQ(f128_value(0, {59}), 1.0);                          // tie to even
  EXPECT_EQ(f128_value(0, {59, 0}), 1 + std::ldexp(1.0, -52));  // just above the tie
  EXPECT_EQ(f128_value(0, {60, 59}), 1 + std::ldexp(1.0, -51)); // tie, odd below
  EXPECT_EQ(f128_value(-1074, {111}), std::ldexp(2.0, -1074));  // subnormal tie
  EXPECT_EQ(f128_value(-1075, {}), 0.0);                        // half the least: 0
  EXPECT_EQ(f128_value(-1075, {0}), std::ldexp(1.0, -1074));
  EXPECT_EQ(f128_value(1023, {}, true), HUGE_VAL); // rounds past the max
  EXPECT_EQ(f128_value(1023, {59}, true), std::numeric_limits<double>::max());

  std::mt19937_64 rng(7);
  for (int i = 0; i < 2000; ++i) {
    double const d = std::bit_cast<double>(rng() >> 1);
    int e = 0;
    double const m = std::frexp(d, &e);
    double const expect = std::ldexp(std::nearbyint(std::ldexp(m, 10)), e - 10);
    EXPECT_TRUE(!std::isfinite(d) || IEEEFloat::from_double(d, {70, 10}).to_double() == expect)
        << d;
  }
}

// Wide values copy deeply; a copy that fails to allocate throws and leaves
// the destination as it was (LeakSanitizer checks leaks).  Copies across
// formats are the packed order test's.
TEST(IEEEFloat, ValueSemanticsAndFailedCopies) {
  IEEEFloat const big = IEEEFloat::from_double(-3.0, f128);
  IEEEFloat const tiny = IEEEFloat::from_bits(std::uint64_t{3}, f128); // small form
  IEEEFloat a = big;
  a.self_nan();
  EXPECT_EQ(big.to_double(), -3.0);
  IEEEFloat narrow = big; // a big QNumber stays big, holding a small pattern
  narrow = tiny;
  IEEEFloat const& alias = narrow;
  narrow = alias;
  EXPECT_TRUE(narrow.payload_q().is_big() && narrow.is_subnormal() && payload_equal(narrow, tiny));
  IEEEFloat moved = std::move(a);
  EXPECT_TRUE(moved.is_nan() && a.is_zero() && a.get_format() == f32);

  for (IEEEFloat const& start : {IEEEFloat::from_double(0.5, f32), tiny}) {
    IEEEFloat dest = start;
    EXPECT_GT(
        test::each_failure([&] { dest = big; }, [&] { EXPECT_EQ(dest.to_str(), start.to_str()); }),
        0);
    EXPECT_EQ(dest.to_str(), big.to_str());
  }
  test::AllocationFailure guard(0);
  EXPECT_THROW(IEEEFloat{big}, std::bad_alloc);
}

} // namespace
} // namespace qorv
