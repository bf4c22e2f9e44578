// IEEEFloat: validation, classification and exact double conversion against
// brute force and hardware, and value semantics of wide values including
// allocation failure.
#include "host/ieee_float.h"
#include "support/packed_order.h"
#include "tests/common/alloc_failure.h"

#include <gmock/gmock.h>
#include <gmpxx.h>
#include <gtest/gtest.h>

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
  EXPECT_EQ(IEEEFloat::kind_of({11, 21}), IEEEFloat::kind_u32);
  EXPECT_EQ(IEEEFloat::kind_of({11, 53}), IEEEFloat::kind_u64);
  EXPECT_EQ(IEEEFloat::kind_of({11, 54}), IEEEFloat::kind_qnumber);
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

// Every value of (3, 5) against the definition of the format; doubles round
// into it exactly, and midpoints go to the even pattern (past the max,
// rounding acts as if the exponent went on, so 16 is the next value).
TEST(IEEEFloat, SmallFormatBruteForce) {
  format const f{3, 5};
  for (std::uint64_t p = 0; p < 256; ++p) {
    IEEEFloat const x = IEEEFloat::from_bits(p, f);
    std::uint64_t const exp = (p >> 4) & 7, trail = p & 15;
    double const d = x.to_double(), sign = p >= 128 ? -1 : 1;
    EXPECT_EQ(x.is_nan(), exp == 7 && trail != 0) << p;
    EXPECT_EQ(x.is_inf(), exp == 7 && trail == 0) << p;
    if (exp == 7) continue;
    double const expect = sign * (exp == 0 ? std::ldexp(trail / 16.0, -2)
                                           : std::ldexp(1 + trail / 16.0, int(exp) - 3));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(d), std::bit_cast<std::uint64_t>(expect)) << p;
    EXPECT_EQ(x.is_subnormal(), d != 0 && std::fabs(d) < 0.25) << p;
    EXPECT_EQ(x.is_normal(), std::fabs(d) >= 0.25) << p;
    EXPECT_EQ(IEEEFloat::from_double(d, f).payload_u32(), p);
    if (p >= 127) continue;
    double const mid = (d + (p == 111 ? 16.0 : IEEEFloat::from_bits(p + 1, f).to_double())) / 2;
    EXPECT_EQ(IEEEFloat::from_double(mid, f).payload_u32(), p % 2 == 0 ? p : p + 1);
    EXPECT_EQ(IEEEFloat::from_double(std::nextafter(mid, 0.0), f).payload_u32(), p);
    EXPECT_EQ(IEEEFloat::from_double(std::nextafter(mid, 99.0), f).payload_u32(), p + 1);
  }
  EXPECT_EQ(IEEEFloat::from_double(-std::numeric_limits<double>::quiet_NaN(), f).to_str(),
            "(fp #b1 #b111 #b1000)");
}

TEST(IEEEFloat, DoubleConversionsMatchHardware) {
  std::mt19937_64 rng(42);
  for (int i = 0; i < 20000; ++i) {
    std::uint64_t const bits = rng();
    double const d = std::bit_cast<double>(bits);
    if (!std::isnan(d)) {
      EXPECT_EQ(std::bit_cast<std::uint64_t>(IEEEFloat::from_bits(bits, f64).to_double()), bits);
      EXPECT_EQ(IEEEFloat::from_double(d, f64).payload_u64(), bits);
      EXPECT_EQ(IEEEFloat::from_double(d, f128).to_double(), d);
    }
    // Doubles spread around the float range, subnormals and overflow included.
    double const near = -std::ldexp(std::bit_cast<double>((bits >> 12) | 0x3ff0000000000000),
                                    int(bits % 300) - 160);
    EXPECT_EQ(IEEEFloat::from_double(near, f32).payload_u32(),
              std::bit_cast<std::uint32_t>(static_cast<float>(near)))
        << near;
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

// Wide values copy deeply and across formats; a copy that fails to allocate
// throws and leaves the destination as it was (LeakSanitizer checks leaks).
TEST(IEEEFloat, ValueSemanticsAndFailedCopies) {
  IEEEFloat const big = IEEEFloat::from_double(-3.0, f128);
  IEEEFloat const tiny = IEEEFloat::from_bits(std::uint64_t{3}, f128); // small form
  IEEEFloat a = big;
  a.self_nan();
  EXPECT_EQ(big.to_double(), -3.0);
  IEEEFloat narrow; // Float32 +0
  narrow = big;
  EXPECT_EQ(narrow.to_str(), big.to_str());
  narrow = tiny; // a big QNumber stays big, holding a small pattern
  IEEEFloat const& alias = narrow;
  narrow = alias;
  EXPECT_TRUE(narrow.payload_q().is_big() && narrow.is_subnormal() && payload_equal(narrow, tiny));
  EXPECT_FALSE(IEEEFloat::Packed{&narrow} < IEEEFloat::Packed{&tiny});
  IEEEFloat moved = std::move(a);
  EXPECT_TRUE(moved.is_nan() && a.is_zero() && a.get_format() == f32);

  for (IEEEFloat const& start : {IEEEFloat::from_double(0.5, f32), tiny}) {
    bool fired = true;
    for (int k = 0; fired; ++k) {
      IEEEFloat dest = start;
      bool threw = false;
      {
        test::AllocationFailure guard(k);
        try {
          dest = big;
        } catch (std::bad_alloc const&) {
          threw = true;
        }
        fired = test::allocation_failure_fired();
      }
      EXPECT_TRUE(threw == fired && dest.to_str() == (threw ? start : big).to_str()) << k;
    }
  }
  test::AllocationFailure guard(0);
  EXPECT_THROW(IEEEFloat{big}, std::bad_alloc);
}

} // namespace
} // namespace qorv
