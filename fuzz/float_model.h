// An independent model of floating-point values for the harnesses: bit
// patterns generated per format, and the packed order computed from the
// pattern alone (NaN flag, then a signed rank: +0 is 0, a positive pattern
// is its own rank, a negative one with magnitude m has rank -m - 1).
#pragma once

#include "fuzz_input.h"
#include "host/ieee_float.h"

#include <gmpxx.h>

namespace qorv::fuzz {

// Narrow and wide formats, the hardware ones included, with widths on both
// sides of 32, 63, 64 and 65 bits.
inline IEEEFloat::format pick_format(Input& in) {
  static constexpr IEEEFloat::format formats[] = {{8, 24},   {11, 53}, {5, 11},  {2, 2},  {3, 5},
                                                  {15, 113}, {2, 30},  {3, 29},  {2, 61}, {4, 60},
                                                  {5, 60},   {2, 63},  {20, 80}, {11, 54}};
  return formats[in.below(std::size(formats))];
}

// A bit pattern of format f: mostly the values where comparisons turn (zeros,
// infinities, NaNs with small and large payloads, extremes), else raw bits.
inline mpz_class pick_pattern(Input& in, IEEEFloat::format f) {
  unsigned long const w = f.eb + f.sb, t = f.sb - 1; // width, trailing bits
  mpz_class const sign = mpz_class(1) << (w - 1);
  mpz_class const inf = ((mpz_class(1) << f.eb) - 1) << t;
  // Zero, infinity, the least signalling NaN, the quiet NaN, the largest
  // finite value; the smallest subnormals; any magnitude.
  mpz_class const edges[] = {0, inf, inf + 1, inf + (mpz_class(1) << (t - 1)), inf - 1};
  std::uint8_t const mode = in.byte();
  mpz_class m = mode % 8 < 5 ? edges[mode % 8] : mpz_class(0);
  if (mode % 8 == 5) m = 1 + in.byte() % 3;
  if (mode % 8 > 5) {
    for (unsigned long i = 0; i < w; i += 8)
      m = (m << 8) + in.byte();
    m %= sign;
  }
  return (mode & 0x80) ? m + sign : m;
}

inline IEEEFloat pick_value(Input& in, IEEEFloat::format f) {
  return IEEEFloat::from_bits(pick_pattern(in, f).get_mpz_t(), f);
}

struct Model {
  bool nan;
  mpz_class rank;
};

inline Model model_of(IEEEFloat const& x) {
  IEEEFloat::format const f = x.get_format();
  unsigned long const w = f.eb + f.sb, t = f.sb - 1;
  mpz_class bits;
  x.get_bits(bits.get_mpz_t());
  mpz_class const sign = mpz_class(1) << (w - 1);
  bool const negative = bits >= sign;
  mpz_class const mag = negative ? mpz_class(bits - sign) : bits;
  mpz_class const exponent = mag >> t;
  mpz_class const trailing = mag - (exponent << t);
  bool const nan = exponent == (mpz_class(1) << f.eb) - 1 && trailing != 0;
  return {nan, negative ? mpz_class(-mag - 1) : mag};
}

inline bool model_less(IEEEFloat const& a, IEEEFloat const& b) {
  Model const x = model_of(a), y = model_of(b);
  if (x.nan != y.nan) return x.nan;
  return x.rank < y.rank;
}

// The split point of [lo, hi] (of one format): the pattern whose rank is the
// floor of the average of the ends' ranks, every NaN ranking as the quiet NaN
// just below -inf.
inline mpz_class split_pattern(IEEEFloat const& lo, IEEEFloat const& hi) {
  IEEEFloat::format const f = lo.get_format();
  mpz_class const inf = ((mpz_class(1) << f.eb) - 1) << (f.sb - 1), nan_rank = -inf - 2;
  auto const rank = [&](IEEEFloat const& x) {
    return model_of(x).nan ? nan_rank : model_of(x).rank;
  };
  mpz_class r = rank(lo) + rank(hi);
  mpz_fdiv_q_2exp(r.get_mpz_t(), r.get_mpz_t(), 1);
  if (r == nan_rank) return inf + (mpz_class(1) << (f.sb - 2));
  return r >= 0 ? r : mpz_class((mpz_class(1) << (f.eb + f.sb - 1)) - r - 1);
}

inline bool same_pattern(IEEEFloat const& a, IEEEFloat const& b) {
  mpz_class x, y;
  a.get_bits(x.get_mpz_t());
  b.get_bits(y.get_mpz_t());
  return a.get_format() == b.get_format() && x == y;
}

} // namespace qorv::fuzz
