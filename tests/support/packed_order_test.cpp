// The packed order and payload equality on the special values of several
// formats, checked against the list order and against hardware doubles, with
// the exception-flag side effect; plus the to_str / from_bits round trip.
#include "host/ieee_float.h"
#include "support/packed_order.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace qorv {
namespace {

using format = IEEEFloat::format;

struct Mpz {
  Mpz() { mpz_init(v); }
  ~Mpz() { mpz_clear(v); }
  mpz_t v;
};

// The special values of f in ascending packed order: -NaN, +NaN, -inf, -max,
// -1, -min normal, -max subnormal, -min subnormal, -0, +0, ... +inf.
std::vector<IEEEFloat> specials(format f) {
  Mpz m[8]; // +0, min sub, max sub, min normal, 1, max, inf, NaN as magnitudes
  auto ones = [](mpz_ptr out, std::uint64_t n, std::uint64_t shift) {
    mpz_setbit(out, n);
    mpz_sub_ui(out, out, 1);
    mpz_mul_2exp(out, out, shift);
  };
  mpz_set_ui(m[1].v, 1);
  ones(m[2].v, f.sb - 1, 0);
  mpz_setbit(m[3].v, f.sb - 1);
  ones(m[4].v, f.eb - 1, f.sb - 1);
  ones(m[6].v, f.eb, f.sb - 1);
  mpz_sub_ui(m[5].v, m[6].v, 1);
  mpz_setbit(m[7].v, f.sb - 2);
  mpz_add(m[7].v, m[7].v, m[6].v);
  std::vector<int> const order = {-7, 7, -6, -5, -4, -3, -2, -1, -0, 0, 1, 2, 3, 4, 5, 6};
  std::vector<IEEEFloat> out;
  for (std::size_t i = 0; i < order.size(); ++i) {
    Mpz p;
    mpz_set(p.v, m[std::abs(order[i])].v);
    if (i < 9 && i != 1) mpz_setbit(p.v, f.eb + f.sb - 1); // the negative half
    out.push_back(IEEEFloat::from_bits(p.v, f));
  }
  return out;
}

std::vector<format> const formats = {{5, 11}, {8, 24}, {11, 53}, {15, 113}, {3, 5}};

TEST(PackedOrder, SpecialValuesAreStrictlyOrderedAndFlagsClearedOnlyOnPayloadCompare) {
  for (format f : formats) {
    std::vector<IEEEFloat> const v = specials(f);
    for (std::size_t i = 0; i < v.size(); ++i) {
      for (std::size_t j = 0; j < v.size(); ++j) {
        SCOPED_TRACE(v[i].to_str() + " vs " + v[j].to_str());
        swflt::float_exception_flags = 0xA5;
        bool const less = IEEEFloat::Packed{&v[i]} < IEEEFloat::Packed{&v[j]};
        EXPECT_EQ(less, i < j);
        bool const reaches_payload =
            v[i].is_nan() == v[j].is_nan() && v[i].get_sign() == v[j].get_sign();
        EXPECT_EQ(swflt::float_exception_flags, reaches_payload && v[i].narrow() ? 0 : 0xA5);

        swflt::float_exception_flags = 0xA5;
        EXPECT_EQ(payload_equal(v[i], v[j]), i == j);
        EXPECT_EQ(swflt::float_exception_flags, v[i].narrow() ? 0 : 0xA5);

        if (f.eb <= 11 && f.sb <= 53 && !v[i].is_nan() && !v[j].is_nan()) {
          double const a = v[i].to_double(), b = v[j].to_double();
          EXPECT_EQ(less, a < b || (a == b && std::signbit(a) && !std::signbit(b)));
        }
      }
    }
  }
}

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
      Mpz p;
      ASSERT_EQ(mpz_set_str(p.v, bits.c_str(), 2), 0);
      EXPECT_TRUE(payload_equal(IEEEFloat::from_bits(p.v, f), x)) << s;
    }
  }
  EXPECT_EQ(IEEEFloat::from_double(1.0, {8, 24}).to_str(),
            "(fp #b0 #b01111111 #b00000000000000000000000)");
}

} // namespace
} // namespace qorv
