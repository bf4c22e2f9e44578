// Packed ranks: the place of a value in the packed order, as an integer.
//
// Rank of a value: +0 is 0, a positive value has the rank of its bit pattern,
// -0 is -1, a negative value with magnitude bits m (the pattern without its
// sign) has rank -m - 1, and every NaN counts as one rank below negative
// infinity.  Ranks of non-NaN values are consecutive integers, so neighbours
// in the packed order differ by one rank, and comparing ranks is comparing
// in the packed order.  Ranks are exact GMP integers for any width; formats
// of at most 64 bits also rank in a 128-bit integer, with the same result.
// Every value made here has rounding mode 0.
#pragma once

#include "ieee_float.h"

#include <cassert>
#include <cstdint>
#include <gmp.h>

namespace qorv {

__extension__ typedef __int128 Rank128;
__extension__ typedef unsigned __int128 URank128;

// rank(x) into an initialised GMP integer.
void packed_rank(IEEEFloat const& x, mpz_ptr out);
// The value of format f with rank r; the NaN rank (and anything below it) gives
// the quiet NaN; ranks above +inf give +inf.
IEEEFloat from_packed_rank(mpz_srcptr r, IEEEFloat::format f);

namespace detail {
// Pattern of +inf in a format of at most 64 bits, also the magnitude of -inf.
inline std::uint64_t inf_pattern64(IEEEFloat::format f) noexcept {
  return (std::uint64_t{1} << (f.eb + f.sb - 1)) - (std::uint64_t{1} << (f.sb - 1));
}
} // namespace detail

// The same two for formats of at most 64 bits (x.narrow()), without GMP.
// Inline: the split point and the solver call them on every step.
inline Rank128 packed_rank128(IEEEFloat const& x) {
  assert(x.narrow() && "packed_rank128 needs a format of at most 64 bits");
  IEEEFloat::format const f = x.get_format();
  std::uint64_t const sign_bit = std::uint64_t{1} << (f.eb + f.sb - 1);
  std::uint64_t const p = x.payload_u64();
  if (x.is_nan()) return -Rank128{detail::inf_pattern64(f)} - 2;
  Rank128 const magnitude = p & (sign_bit - 1);
  return (p & sign_bit) != 0 ? -magnitude - 1 : magnitude;
}
inline IEEEFloat from_packed_rank128(Rank128 r, IEEEFloat::format f) {
  assert(IEEEFloat::kind_of(f) != IEEEFloat::kind_qnumber &&
         "from_packed_rank128 needs a format of at most 64 bits");
  Rank128 const inf = detail::inf_pattern64(f);
  if (r >= 0) return IEEEFloat::from_bits(static_cast<std::uint64_t>(r > inf ? inf : r), f);
  Rank128 const magnitude = -r - 1;
  if (magnitude > inf) return IEEEFloat::nan(f);
  std::uint64_t const sign_bit = std::uint64_t{1} << (f.eb + f.sb - 1);
  return IEEEFloat::from_bits(sign_bit | static_cast<std::uint64_t>(magnitude), f);
}

// Exact conversions between GMP integers and 128-bit ranks; rank128_of
// requires |z| < 2^127, which holds for the ranks of formats of at most 128
// bits.
Rank128 rank128_of(mpz_srcptr z);
void rank128_to_mpz(Rank128 r, mpz_ptr out);

// Neighbours in the packed order (NaN below -inf).  next_below(NaN) is NaN and
// next_above(+inf) is +inf.
IEEEFloat next_below(IEEEFloat const& x);
IEEEFloat next_above(IEEEFloat const& x);

} // namespace qorv
