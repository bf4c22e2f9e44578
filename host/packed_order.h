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
// inline and branch-free (word operations on the patterns shifted to the top
// of a 64-bit word); only QNumber payloads leave the header.
#pragma once

#include "ieee_float.h"

#include <cassert>

namespace qorv {

namespace detail {
// The QNumber-payload halves, out of line.
bool packed_less_wide(IEEEFloat const& a, IEEEFloat const& b, bool sign);
bool payload_equal_wide(IEEEFloat const& a, IEEEFloat const& b);
// Receives the flag clearing of comparisons that leave the flags alone.
inline unsigned char flags_sink = 0;
// Where a comparison writes its 0, indexed by whether the payloads decided:
// selecting the target by a load keeps the compiler from turning the choice
// into a branch, which random operands would mispredict half of the time.
inline unsigned char* const flag_targets[2] = {&flags_sink, &swflt::float_exception_flags};
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
  // Narrow payloads: the whole decision is a few word operations, free of
  // branches, since operands arrive in no predictable order.  Both patterns
  // are first shifted up so that the sign lands in the top bit; then
  //   - NaN: the pattern without its sign (shifted once more) lies above
  //     that of infinity, whose exponent bits now fill the top of the word;
  //   - order key: a set sign flips every bit (larger magnitudes come
  //     first), a clear one only the sign bit (those values come after), so
  //     one unsigned comparison of the keys orders by sign, then payload;
  //   - NaN status decides first: a NaN lies below every other value.
  // The low bits shifted in are 0 in both patterns (one format), so they
  // never decide.  The reads have no side effects, so their order does not
  // matter here.
  // The two shift amounts come precomputed in a's tag word (same format as
  // b), so the format itself is not read.
  unsigned const up = a.narrow_up_shift();
  std::uint64_t const x = a.payload_u64() << up;
  std::uint64_t const y = b.payload_u64() << up;
  std::uint64_t const inf = ~std::uint64_t{0} << a.narrow_inf_shift();
  std::uint64_t const top = std::uint64_t{1} << 63;
  bool const nan_x = (x << 1) > inf;
  bool const nan_y = (y << 1) > inf;
  std::uint64_t const kx = x ^ ((0 - (x >> 63)) | top);
  std::uint64_t const ky = y ^ ((0 - (y >> 63)) | top);
  // The flags are cleared only when the payloads decided: same NaN status
  // and sign.  Without a branch and without reading the flags (which would
  // chain successive comparisons through memory): the 0 goes either to the
  // flags or to a scratch byte.  The result is combined with bit operations
  // for the same reason.
  bool const payloads_decide = (nan_x == nan_y) & (((x ^ y) >> 63) == 0);
  // Deliberate: nothing here reads the flags, but hosts rely on the clearing.
  *detail::flag_targets[payloads_decide] = 0;
  // NaN status decides first: with "not NaN" as a 65th key bit above the
  // order key, one 128-bit comparison (compare and subtract with borrow)
  // gives the whole order.
  __extension__ using key128 = unsigned __int128;
  key128 const wx = (key128{!nan_x} << 64) | kx;
  key128 const wy = (key128{!nan_y} << 64) | ky;
  return wx < wy;
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
