// BitFields: the three fields of an IEEEFloat's pattern (sign, biased
// exponent, trailing significand), read in place; the one decoder that
// classification, the conversions and the MPFR bridge share.
//
// Reading never allocates: a narrow value is its payload word, a wide one is
// viewed through a read-only GMP integer over the QNumber's numerator (the
// small form through one limb inside the view).  The view refers to the value
// and must not outlive it; it is not copyable, since it may point into itself.
//
// sign, exp_ones, exp_zero and trail_zero hold for every format.  exponent()
// needs eb <= 64 (every format the arithmetic accepts), trailing() a narrow
// value; the whole pattern and the trailing field as GMP integers serve wide
// values.
#pragma once

#include "ieee_float.h"

#include <cstdint>
#include <gmp.h>

namespace qorv {

class BitFields {
public:
  explicit BitFields(IEEEFloat const& x) noexcept : f_(x.get_format()), narrow_(x.narrow()) {
    if (narrow_)
      word_ = x.payload_u64();
    else
      view_wide(x.payload_q());
  }
  BitFields(BitFields const&) = delete;
  BitFields& operator=(BitFields const&) = delete;

  bool sign() const noexcept {
    return narrow_ ? (word_ >> (f_.eb + f_.sb - 1)) != 0 : mpz_tstbit(wide_, f_.eb + f_.sb - 1);
  }
  // Exponent all ones (infinity or NaN), all zeros (zero or subnormal).
  bool exp_ones() const noexcept;
  bool exp_zero() const noexcept;
  bool trail_zero() const noexcept;
  // The biased exponent; eb <= 64.
  std::uint64_t exponent() const noexcept {
    return narrow_ ? (word_ >> (f_.sb - 1)) & ones(f_.eb) : wide_bits(f_.sb - 1, f_.eb);
  }
  // The trailing significand of a narrow value.
  std::uint64_t trailing() const noexcept { return word_ & ones(f_.sb - 1); }
  // out = the trailing significand (any value), pattern() = the whole pattern
  // (wide values).
  void trailing(mpz_ptr out) const;
  mpz_srcptr pattern() const noexcept { return wide_; }

  // 2^n - 1 for n <= 64.
  static constexpr std::uint64_t ones(std::uint64_t n) noexcept {
    return n >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << n) - 1;
  }

private:
  void view_wide(QNumber const& q) noexcept;
  // Bits [pos, pos + n) of the wide pattern, n <= 64.
  std::uint64_t wide_bits(std::uint64_t pos, std::uint64_t n) const noexcept;

  IEEEFloat::format f_;
  bool narrow_;
  std::uint64_t word_ = 0;
  mp_limb_t limb_ = 0;
  mpz_t tmp_;
  mpz_srcptr wide_ = nullptr;
};

inline bool BitFields::exp_ones() const noexcept {
  if (!narrow_) return mpz_scan0(wide_, f_.sb - 1) >= f_.eb + f_.sb - 1;
  return exponent() == ones(f_.eb);
}

inline bool BitFields::exp_zero() const noexcept {
  if (!narrow_) return mpz_scan1(wide_, f_.sb - 1) >= f_.eb + f_.sb - 1;
  return exponent() == 0;
}

inline bool BitFields::trail_zero() const noexcept {
  return narrow_ ? trailing() == 0 : mpz_scan1(wide_, 0) >= f_.sb - 1;
}

} // namespace qorv
