// The packed order of IEEEFloat values and the equality of their payloads.
//
// Order (a strict order on values of one format): every NaN lies below every
// other value; otherwise values with the sign set lie below those without;
// with equal signs, payloads compare as unsigned integers (or as QNumbers for
// wide formats), reversed when the sign is set.  So
//   NaN < -inf < ... < -0 < +0 < ... < +inf,
// two NaNs are ordered by sign and then payload, and equal operands give false
// both ways.  The reads happen in a fixed order: sign of a, sign of b, NaN
// status of a, NaN status of b; the payload kind is read from a only, so both
// operands must share one format.
//
// Comparisons of 32-bit or 64-bit payloads (same NaN status and sign) set
// swflt::float_exception_flags to 0; all other outcomes leave the flags alone.
//
// Both operations sit on the decision hot path, so the 32/64-bit case is
// inline and costs a few machine comparisons; only QNumber payloads leave the
// header.
#pragma once

#include "host/ieee_float.h"

#include <cassert>

namespace qorv {

namespace detail {
// The QNumber-payload halves, out of line.
bool packed_less_wide(IEEEFloat const& a, IEEEFloat const& b, bool sign);
bool payload_equal_wide(IEEEFloat const& a, IEEEFloat const& b);
} // namespace detail

inline bool operator<(IEEEFloat::Packed const& pa, IEEEFloat::Packed const& pb) {
  IEEEFloat const& a = *pa.value;
  IEEEFloat const& b = *pb.value;
  assert(a.get_format() == b.get_format() && "the packed order compares values of one format");
  bool const sign_a = a.get_sign();
  bool const sign_b = b.get_sign();
  bool const nan_a = a.is_nan();
  bool const nan_b = b.is_nan();
  if (nan_a != nan_b) return nan_a;
  if (sign_a != sign_b) return sign_a;
  if (!a.narrow()) return detail::packed_less_wide(a, b, sign_a);
  std::uint64_t const x = a.payload_u64();
  std::uint64_t const y = b.payload_u64();
  bool const less = sign_a ? y < x : x < y;
  swflt::float_exception_flags = 0;
  return less;
}

// Bit-pattern equality of two values of one format, by the payload kind of a.
// Clears swflt::float_exception_flags after comparing 32-bit or 64-bit
// payloads.  -0 and +0 differ; two NaNs with one pattern are equal.
inline bool payload_equal(IEEEFloat const& a, IEEEFloat const& b) {
  if (!a.narrow()) return detail::payload_equal_wide(a, b);
  bool const equal = a.payload_u64() == b.payload_u64();
  swflt::float_exception_flags = 0;
  return equal;
}

} // namespace qorv
