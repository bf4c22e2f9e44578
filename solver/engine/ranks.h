// Values as ranks of the packed order, and sets of values as rank ranges.
//
// The rank of a value is its packed rank (host/packed_rank.h: NaN < -inf <
// ... < -0 < +0 < ... < +inf, +0 is 0, -0 is -1), computed by the host's
// code; the one NaN of SMT-LIB sits one rank below -inf.  Ranks of
// consecutive values differ by one, so an interval of the bounds trail is exactly a rank range, a
// split point's complement is "rank - 1" or "rank + 1", and
//   fp.neg:  r  ->  -r - 1          (an involution on non-NaN ranks)
//   key(r) = r >= 0 ? r : r + 1     (the numeric order: -0 and +0 share key 0)
// turn IEEE comparisons into integer comparisons.
//
// R is the integer type of the ranks: __int128 when every format of the
// problem has at most 128 bits (ranks then lie strictly inside its range),
// otherwise mpz_class.  Both offer the same operators, so the search is
// written once as a template over R.
// FPSOLVE_INSTANTIATE_FOR_RANKS(T) instantiates a class template of the
// search for both rank types: each part is defined in its own source file
// and instantiated there, once, with every member it defines.
#pragma once

#include "host/ieee_float.h"
#include "host/packed_rank.h"

#include <cassert>
#include <cstdint>
#include <gmpxx.h>
#include <type_traits>
#include <vector>

namespace fpsolve {

using qorv::IEEEFloat;
using i128 = qorv::Rank128;

#define FPSOLVE_INSTANTIATE_FOR_RANKS(T)                                                           \
  template class T<i128>;                                                                          \
  template class T<mpz_class>;

inline void rank_from_mpz(mpz_srcptr z, i128* out) {
  *out = qorv::rank128_of(z);
}
inline void rank_from_mpz(mpz_srcptr z, mpz_class* out) {
  mpz_set(out->get_mpz_t(), z);
}
inline void rank_to_mpz(i128 r, mpz_class* out) {
  qorv::rank128_to_mpz(r, out->get_mpz_t());
}
inline void rank_to_mpz(mpz_class const& r, mpz_class* out) {
  *out = r;
}

// Values of at most 64 bits take the host's 128-bit path, wider ones GMP.
template <class R>
R rank_of(IEEEFloat const& v) {
  if constexpr (std::is_same_v<R, i128>)
    if (v.narrow()) return qorv::packed_rank128(v);
  mpz_class z;
  qorv::packed_rank(v, z.get_mpz_t());
  R r;
  rank_from_mpz(z.get_mpz_t(), &r);
  return r;
}

template <class R>
IEEEFloat value_of(R const& r, IEEEFloat::format f) {
  if constexpr (std::is_same_v<R, i128>)
    if (IEEEFloat::kind_of(f) != IEEEFloat::kind_qnumber) return qorv::from_packed_rank128(r, f);
  mpz_class z;
  rank_to_mpz(r, &z);
  return qorv::from_packed_rank(z.get_mpz_t(), f);
}

// floor((a + b) / 2) for a <= b.  Two ranks of a 128-bit format can lie
// almost 2^128 apart, so b - a is never formed for 128-bit ranks; the sum is
// split into its common and differing bits instead (a + b = 2 (a & b) +
// (a ^ b), and >> rounds toward -inf).
template <class R>
R mid_rank(R const& a, R const& b) {
  if constexpr (std::is_same_v<R, i128>)
    return (a & b) + ((a ^ b) >> 1);
  else
    return a + (b - a) / 2;
}

template <class R>
R mx(R const& a, R const& b) {
  return a < b ? b : a;
}
template <class R>
R mn(R const& a, R const& b) {
  return b < a ? b : a;
}

template <class R>
R key(R const& r) {
  return r >= 0 ? R(r) : R(r + 1);
}
// The largest rank whose key is at most k, and the least whose key is at least k.
template <class R>
R max_rank_key_le(R const& k) {
  return k >= 0 ? R(k) : R(k - 1);
}
template <class R>
R min_rank_key_ge(R const& k) {
  return k > 0 ? R(k) : R(k - 1);
}

// A set of values of one format: maybe NaN, and the non-NaN ranks lo..hi
// (none when lo > hi).
template <class R>
struct Set {
  bool nan;
  R lo, hi;
  bool has_num() const { return lo <= hi; }
  bool single() const { return nan ? !has_num() : lo == hi; }
};

// The constants of one format, in ranks.
template <class R>
struct FormatRanks {
  R nan;  // the NaN rank, one below -inf
  R pinf; // +inf; -inf is nan + 1
  R half; // 2^(sb-1): the first positive normal; 1 .. half-1 are subnormal
  // The non-NaN ranks where each classification holds (is_inf .. is_positive,
  // in the order of Op), and where it fails.
  std::vector<std::vector<std::pair<R, R>>> holds, fails;

  explicit FormatRanks(IEEEFloat::format f) {
    pinf = rank_of<R>(IEEEFloat::inf(f, false));
    nan = -pinf - 2;
    mpz_class h = mpz_class(1) << static_cast<mp_bitcnt_t>(f.sb - 1);
    rank_from_mpz(h.get_mpz_t(), &half);
    R const ninf = nan + 1;
    using V = std::vector<std::pair<R, R>>;
    V inf_r{{ninf, ninf}, {pinf, pinf}};
    V zero{{R(-1), R(0)}};
    V sub{{R(-half), R(-2)}, {R(1), R(half - 1)}};
    V normal{{R(-pinf), R(-half - 1)}, {half, R(pinf - 1)}};
    V neg{{ninf, R(-1)}};
    V pos{{R(0), pinf}};
    holds = {inf_r, zero, normal, sub, neg, pos};
    fails = {{{R(ninf + 1), R(pinf - 1)}},
             {{ninf, R(-2)}, {R(1), pinf}},
             {{ninf, ninf}, {R(-half), R(half - 1)}, {pinf, pinf}},
             {{ninf, R(-half - 1)}, {R(-1), R(0)}, {half, pinf}},
             pos,
             neg};
  }
};

} // namespace fpsolve
