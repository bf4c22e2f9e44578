// Forward projections of the bit-vector operations and of the conversions
// between the theories: from sets of operand values to a set that holds
// every result (projection.h calls these for every op from bv_not on; the
// shaving of def_propagation.cpp gives the backward direction from them).
//
// Sets are rank ranges as exact integers, so a bit-vector's set is an
// interval of its unsigned values and a float's one of its packed ranks
// (plus NaN).  Each rule is a hull that contains every result: exact for
// concatenation, not, the monotone operations and the conversions (the
// images of the ends under every rounding mode still possible, pieces
// joined); a sum, difference or product that may wrap, and the signed
// operations, give the full range unless every operand is a single value,
// which is evaluated exactly.  An unspecified result (fp.to_ubv/fp.to_sbv
// out of range) may be any value of the width.
#pragma once

#include "engine/problem.h"

#include <gmpxx.h>
#include <vector>

namespace fpsolve {

struct BvSet {
  bool nan = false; // floats only
  mpz_class lo, hi; // no value when lo > hi
  bool has_num() const { return lo <= hi; }
  bool single() const { return nan ? !has_num() : lo == hi; }
};

// Unsigned ranges of bit-vector values (empty when lo > hi).
template <class Z>
struct BvRange {
  Z lo, hi;
};

// The projection of the operations between bit-vectors (bv_not to bv_sext)
// on unsigned ranges: `widths` are the operands' widths, n the result's.  Z
// is mpz_class, or the 128-bit integer when every width is at most
// fits_128 (bv_int.h) holds, the search's fast path.
template <class Z>
BvRange<Z> project_bv_ints(FpOp op, BvRange<Z> const* a, std::uint32_t const* widths,
                           std::size_t count, std::uint32_t n);

// `fmts` are the operands' formats; `modes` has bit m set for every rounding
// mode m still possible (1 for operations without one).
BvSet project_bv(FpOp op, std::vector<BvSet> const& a, std::vector<IEEEFloat::format> const& fmts,
                 unsigned modes, IEEEFloat::format rfmt);

} // namespace fpsolve
