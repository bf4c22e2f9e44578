// The to_str / from_bits round trip on the special values of several formats.
// The packed order and payload equality on those values, the exception-flag
// side effect and the hardware comparison are the packed_order fuzz
// harness's oracles; its corpus replays as a test.
#include "host/ieee_float.h"
#include "support/packed_order.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace qorv {
namespace {

using format = IEEEFloat::format;

// The special values of f in ascending packed order: -NaN, +NaN, -inf, -max,
// -1, -min normal, -max subnormal, -min subnormal, -0, +0, ... +inf.
std::vector<IEEEFloat> specials(format f) {
  mpz_class const one = 1, normal = one << (f.sb - 1), inf = ((one << f.eb) - 1) << (f.sb - 1);
  mpz_class const magnitude[] = {0,
                                 1,
                                 normal - 1,
                                 normal,
                                 ((one << (f.eb - 1)) - 1) << (f.sb - 1),
                                 inf - 1,
                                 inf,
                                 inf + (one << (f.sb - 2))};
  int const order[] = {-7, 7, -6, -5, -4, -3, -2, -1, -0, 0, 1, 2, 3, 4, 5, 6};
  std::vector<IEEEFloat> out;
  for (std::size_t i = 0; i < 16; ++i) {
    mpz_class bits = magnitude[std::abs(order[i])];
    if (i < 9 && i != 1) bits += one << (f.eb + f.sb - 1); // the negative half
    out.push_back(IEEEFloat::from_bits(bits.get_mpz_t(), f));
  }
  return out;
}

std::vector<format> const formats = {{5, 11}, {8, 24}, {11, 53}, {15, 113}, {3, 5}};

TEST(PackedOrder, ToStrRoundTripsThroughFromBits) {
  for (format f : formats) {
    for (IEEEFloat const& x : specials(f)) {
      std::string const s = x.to_str();
      std::string bits; // the digits after "(fp"
      for (char c : s.substr(3))
        if (c == '0' || c == '1') bits += c;
      ASSERT_EQ(bits.size(), f.eb + f.sb) << s;
      EXPECT_EQ(s, "(fp #b" + bits.substr(0, 1) + " #b" + bits.substr(1, f.eb) + " #b" +
                       bits.substr(f.eb + 1) + ")");
      EXPECT_TRUE(payload_equal(IEEEFloat::from_bits(mpz_class(bits, 2).get_mpz_t(), f), x)) << s;
    }
  }
  EXPECT_EQ(IEEEFloat::from_double(1.0, {8, 24}).to_str(),
            "(fp #b0 #b01111111 #b00000000000000000000000)");
}

} // namespace
} // namespace qorv
