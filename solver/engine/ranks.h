// Values as ranks of the packed order, and sets of values as rank ranges.
//
// The rank of a value is its place in the packed order (NaN < -inf < ... <
// -0 < +0 < ... < +inf): +0 is 0, a positive value the integer of its bit
// pattern, a negative value with magnitude bits m is -m - 1, and the one NaN
// of SMT-LIB sits one rank below -inf.  Ranks of consecutive values differ by
// one, so an interval of the bounds trail is exactly a rank range, a split
// point's complement is "rank - 1" or "rank + 1", and
//   fp.neg:  r  ->  -r - 1          (an involution on non-NaN ranks)
//   key(r) = r >= 0 ? r : r + 1     (the numeric order: -0 and +0 share key 0)
// turn IEEE comparisons into integer comparisons.
//
// R is the integer type of the ranks: __int128 when every format of the
// problem has at most 128 bits (ranks then lie strictly inside its range),
// otherwise mpz_class.  Both offer the same operators, so the search is
// written once as a template over R.
#pragma once

#include "host/ieee_float.h"
#include "host/pick_mid.h"

#include <cassert>
#include <cstdint>
#include <gmpxx.h>
#include <vector>

namespace fpsolve {

using qorv::IEEEFloat;
__extension__ typedef __int128 i128;
__extension__ typedef unsigned __int128 u128;

inline void rank_from_mpz(mpz_srcptr z, i128* out) {
  std::uint64_t words[2] = {0, 0};
  std::size_t count = 0;
  mpz_export(words, &count, -1, sizeof(std::uint64_t), 0, 0, z);
  assert(count <= 2 && "rank does not fit 128 bits");
  auto const mag = static_cast<i128>((static_cast<u128>(words[1]) << 64) | words[0]);
  *out = mpz_sgn(z) < 0 ? -mag : mag;
}
inline void rank_from_mpz(mpz_srcptr z, mpz_class* out) {
  mpz_set(out->get_mpz_t(), z);
}

inline void rank_to_mpz(i128 r, mpz_class* out) {
  auto const mag = static_cast<u128>(r < 0 ? -r : r);
  std::uint64_t words[2] = {static_cast<std::uint64_t>(mag), static_cast<std::uint64_t>(mag >> 64)};
  mpz_import(out->get_mpz_t(), 2, -1, sizeof(std::uint64_t), 0, 0, words);
  if (r < 0) *out = -*out;
}
inline void rank_to_mpz(mpz_class const& r, mpz_class* out) {
  *out = r;
}

template <class R>
R rank_of(IEEEFloat const& v) {
  mpz_class z;
  qorv::packed_rank(v, z.get_mpz_t());
  R r;
  rank_from_mpz(z.get_mpz_t(), &r);
  return r;
}

template <class R>
IEEEFloat value_of(R const& r, IEEEFloat::format f) {
  mpz_class z;
  rank_to_mpz(r, &z);
  return qorv::from_packed_rank(z.get_mpz_t(), f);
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
    IEEEFloat inf(f, IEEEFloat::rm_nearest_even);
    inf.self_inf(false);
    pinf = rank_of<R>(inf);
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
