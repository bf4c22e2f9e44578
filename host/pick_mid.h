// The split-point rule of the stand-in host.
//
// The split point of [lower, upper] is the value whose packed rank
// (host/packed_rank.h) is the floor of the average of the ends' ranks,
// computed exactly for any width.  The rank functions are included here too,
// since every user of the rule also steps by ranks.
#pragma once

#include "ieee_float.h"
#include "packed_rank.h"

namespace qorv::fp::utils {

// Lies within [lower, upper] whenever lower <= upper in the packed order.
// Both ends must share one format; ends of different formats are rejected
// with std::invalid_argument.  NaN and NaN give the quiet NaN.
IEEEFloat pick_mid_avg(IEEEFloat lower, IEEEFloat upper);

} // namespace qorv::fp::utils
