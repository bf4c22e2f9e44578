// The preimages of rounding: which reals to_fp of a real term sends to a
// given float or beyond, as rational ends with strict or non-strict bounds.
//
// Rounding a real to a format is monotone in the packed order (-0 below
// +0, real 0 rounds to +0), so {t : round(t) >= v} is a half-line
// [L, oo) or (L, oo) (or every real, or none) and {t : round(t) <= v} one
// (-oo, U] or (-oo, U).  The end lies at a neighbour of v, at the midpoint
// between v and that neighbour, or at v itself (an infinity stands for the
// next value the exponent range would have, 2^(emax+1)); rounding is
// constant between those points, so one correctly rounded conversion
// (MPFR) at each point and between each pair decides the end and whether
// it is included.  Nothing here is a hand-written rounding rule.
#pragma once

#include "engine/problem.h"

#include <gmpxx.h>
#include <optional>
#include <utility>

namespace fpsolve {

struct RealEnd {
  bool unbounded = true; // no end: every real on that side
  mpq_class value;
  bool strict = false; // the end itself is excluded
};

// The lower end of {t : round(rm, t) >= v}, none when the set is empty.
std::optional<RealEnd> rounding_at_least(IEEEFloat::rounding_mode rm, IEEEFloat const& v);
// The upper end of {t : round(rm, t) <= v}, none when the set is empty.
std::optional<RealEnd> rounding_at_most(IEEEFloat::rounding_mode rm, IEEEFloat const& v);

// The ends of the reals that round into [lo, hi] under some rounding mode
// of `modes` (bit m for mode m): the hull over the modes; none when no mode
// sends any real there.
struct RealRange {
  RealEnd lo, hi;
};
std::optional<RealRange> rounding_preimage(unsigned modes, IEEEFloat const& lo,
                                           IEEEFloat const& hi);

// The least and the greatest finite float of format f (packed order: -0
// below +0) whose exact value lies within [lo, hi] (each end strict or not,
// or absent); none when no finite float does.
std::optional<std::pair<IEEEFloat, IEEEFloat>> floats_within(RealRange const& r,
                                                             IEEEFloat::format f);

// Ends of {round(m, t) : t within r, m in modes} (modes not empty): the
// least and greatest rounding of the ends (an absent end gives an
// infinity).  A strict end is rounded as it stands, which is never tighter
// than the truth.
std::pair<IEEEFloat, IEEEFloat> rounding_image(unsigned modes, RealRange const& r,
                                               IEEEFloat::format f);

} // namespace fpsolve
