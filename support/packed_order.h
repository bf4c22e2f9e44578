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
// inline and branch-free (one 128-bit key comparison); only QNumber payloads
// leave the header.
#pragma once

#include "host/ieee_float.h"

#include <cassert>

namespace qorv {

namespace detail {
// The QNumber-payload halves, out of line.
bool packed_less_wide(IEEEFloat const& a, IEEEFloat const& b, bool sign);
bool payload_equal_wide(IEEEFloat const& a, IEEEFloat const& b);
} // namespace detail

namespace detail {
// Position of a 32/64-bit pattern in the packed order, as a 128-bit key:
// bit 65 is set for every non-NaN, bit 64 for a clear sign, and the low word
// is the pattern, inverted when the sign is set (so larger payloads come
// first).  With one format for both operands, comparing two keys is exactly
// the packed order: NaN status, then sign, then payload.  `top` is the sign
// bit's position and `inf` the magnitude of infinity, both of the format.
__extension__ using PackedKey = unsigned __int128;
// Receives the flag clearing of comparisons that leave the flags alone.
inline unsigned char flags_sink = 0;
inline PackedKey packed_key(std::uint64_t bits, unsigned top, std::uint64_t inf) noexcept {
  std::uint64_t const sign = bits >> top;
  std::uint64_t const magnitude = bits & ((std::uint64_t{1} << top) - 1);
  std::uint64_t const high = (std::uint64_t{magnitude <= inf} << 1) | (sign ^ 1);
  return (PackedKey{high} << 64) | (bits ^ (0 - sign));
}
} // namespace detail

inline bool operator<(IEEEFloat::Packed const& pa, IEEEFloat::Packed const& pb) {
  IEEEFloat const& a = *pa.value;
  IEEEFloat const& b = *pb.value;
  assert(a.get_format() == b.get_format() && "the packed order compares values of one format");
  if (!a.narrow()) {
    bool const sign_a = a.get_sign();
    bool const sign_b = b.get_sign();
    bool const nan_a = a.is_nan();
    bool const nan_b = b.is_nan();
    if (nan_a != nan_b) return nan_a;
    if (sign_a != sign_b) return sign_a;
    return detail::packed_less_wide(a, b, sign_a);
  }
  // Narrow payloads: the whole decision is one comparison of two keys, free
  // of branches, since operands arrive in no predictable order.  The reads
  // have no side effects, so their order does not matter here.
  IEEEFloat::format const f = a.get_format();
  auto const top = static_cast<unsigned>(f.eb + f.sb - 1);
  std::uint64_t const inf = (std::uint64_t{1} << top) - (std::uint64_t{1} << (f.sb - 1));
  detail::PackedKey const ka = detail::packed_key(a.payload_u64(), top, inf);
  detail::PackedKey const kb = detail::packed_key(b.payload_u64(), top, inf);
  // The flags are cleared only when the payloads decided: same NaN status
  // and sign, that is equal high key words.  Without a branch and without
  // reading the flags (which would chain successive comparisons through
  // memory): the 0 goes either to the flags or to a scratch byte.
  bool const payloads_decide = (ka >> 64) == (kb >> 64);
  // Deliberate: nothing here reads the flags, but hosts rely on the clearing.
  *(payloads_decide ? &swflt::float_exception_flags : &detail::flags_sink) = 0;
  return ka < kb;
}

// Bit-pattern equality of two values of one format, by the payload kind of a.
// Clears swflt::float_exception_flags after comparing 32-bit or 64-bit
// payloads.  -0 and +0 differ; two NaNs with one pattern are equal.
inline bool payload_equal(IEEEFloat const& a, IEEEFloat const& b) {
  if (!a.narrow()) return detail::payload_equal_wide(a, b);
  bool const equal = a.payload_u64() == b.payload_u64();
  swflt::float_exception_flags = 0; // deliberate: part of the contract hosts rely on
  return equal;
}

} // namespace qorv
