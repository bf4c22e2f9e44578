// The split-point rule of the stand-in host and the packed rank it rests on.
//
// Rank of a value in the packed order: +0 is 0, a positive value has the rank
// of its bit pattern, -0 is -1, a negative value with magnitude bits m (the
// pattern without its sign) has rank -m - 1, and every NaN counts as one rank
// below negative infinity.  Ranks are exact GMP integers, so any width works;
// formats of at most 64 bits take a 128-bit integer path with the same result.
// Ranks of non-NaN values are consecutive integers, so neighbours in the packed
// order differ by one rank.  Every value made here has rounding mode 0.
#pragma once

#include "host/ieee_float.h"

#include <gmp.h>

namespace qorv {

// rank(x) into an initialised GMP integer.
void packed_rank(IEEEFloat const& x, mpz_ptr out);
// The value of format f with rank r; the NaN rank (and anything below it) gives
// the quiet NaN; ranks above +inf give +inf.
IEEEFloat from_packed_rank(mpz_srcptr r, IEEEFloat::format f);
// Neighbours in the packed order (NaN below -inf).  next_below(NaN) is NaN and
// next_above(+inf) is +inf.
IEEEFloat next_below(IEEEFloat const& x);
IEEEFloat next_above(IEEEFloat const& x);

namespace fp::utils {
// The value whose rank is the floor of the average of the ranks of the two
// ends (computed exactly).  Lies within [lower, upper] whenever lower <= upper
// in the packed order.  Both ends must share one format; ends of different
// formats are rejected with std::invalid_argument.  NaN and NaN give the quiet
// NaN.
IEEEFloat pick_mid_avg(IEEEFloat lower, IEEEFloat upper);
} // namespace fp::utils

} // namespace qorv
