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
#include <utility>
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

// The order of 32/64-bit values reads its shift amounts from the value, not
// from the format: values that reached their format by assignment over a
// value of another format (narrow or wide), by moves, or from the default
// (moved-from) state must order exactly like freshly made ones.
TEST(PackedOrder, ValuesReachedByCopiesMovesAndFactoriesOrderAsFresh) {
  for (format f : formats) {
    std::vector<IEEEFloat> const fresh = specials(f);
    std::vector<IEEEFloat> reached;
    for (std::size_t i = 0; i < fresh.size(); ++i) {
      IEEEFloat v = IEEEFloat::from_double(1.5, formats[i % formats.size()]);
      v = fresh[i];               // over another format, maybe wide
      IEEEFloat w = std::move(v); // v is now the default Float32 +0
      v = w;
      reached.push_back(i % 2 ? std::move(v) : IEEEFloat(v));
      if (fresh[i].narrow()) // the unchecked factory the arithmetic uses
        reached.back() = IEEEFloat::from_narrow_bits(fresh[i].payload_u64(), f);
    }
    IEEEFloat moved_from = IEEEFloat::from_double(2.0, f);
    IEEEFloat sink = std::move(moved_from);
    for (std::size_t i = 0; i < fresh.size(); ++i) {
      for (std::size_t j = 0; j < fresh.size(); ++j) {
        bool const lt = IEEEFloat::Packed{&reached[i]} < IEEEFloat::Packed{&fresh[j]};
        EXPECT_EQ(lt, i < j) << f.eb << "," << f.sb << " " << i << " " << j;
      }
    }
    if (f == format{8, 24}) { // the default value is Float32 +0, position 9
      for (std::size_t j = 0; j < fresh.size(); ++j) {
        EXPECT_EQ(IEEEFloat::Packed{&moved_from} < IEEEFloat::Packed{&fresh[j]}, 9 < j) << j;
        EXPECT_EQ(IEEEFloat::Packed{&fresh[j]} < IEEEFloat::Packed{&moved_from}, j < 9) << j;
      }
      EXPECT_TRUE(payload_equal(moved_from, fresh[9]));
    }
  }
}

} // namespace
} // namespace qorv
