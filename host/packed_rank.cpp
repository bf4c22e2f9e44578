// Packed ranks and neighbours.  Formats of at most 64 bits rank in 128-bit
// integers (a rank needs 65 bits with its sign, a sum of two ranks 66); wider
// formats rank in GMP integers.  Both paths compute the same function.
#include "host/packed_rank.h"

#include "support/mpz.h"

#include <cassert>
#include <cstddef>

namespace qorv {

using format = IEEEFloat::format;

Rank128 rank128_of(mpz_srcptr z) {
  std::uint64_t words[2] = {0, 0};
  std::size_t count = 0;
  mpz_export(words, &count, -1, sizeof(std::uint64_t), 0, 0, z);
  assert(count <= 2 && mpz_sizeinbase(z, 2) < 128 && "rank does not fit 128 bits");
  auto const magnitude = static_cast<Rank128>((static_cast<URank128>(words[1]) << 64) | words[0]);
  return mpz_sgn(z) < 0 ? -magnitude : magnitude;
}

void rank128_to_mpz(Rank128 r, mpz_ptr out) {
  auto const magnitude = static_cast<URank128>(r < 0 ? -r : r);
  std::uint64_t const words[2] = {static_cast<std::uint64_t>(magnitude),
                                  static_cast<std::uint64_t>(magnitude >> 64)};
  mpz_import(out, 2, -1, sizeof(std::uint64_t), 0, 0, words);
  if (r < 0) mpz_neg(out, out);
}

namespace {

void inf_pattern(mpz_ptr out, format f) {
  mpz_set_ui(out, 0);
  mpz_setbit(out, f.eb);
  mpz_sub_ui(out, out, 1);
  mpz_mul_2exp(out, out, f.sb - 1);
}

IEEEFloat rank_step(IEEEFloat const& x, int step) {
  if (x.narrow()) return from_packed_rank128(packed_rank128(x) + step, x.get_format());
  Mpz r;
  packed_rank(x, r);
  if (step > 0)
    mpz_add_ui(r, r, 1);
  else
    mpz_sub_ui(r, r, 1);
  return from_packed_rank(r, x.get_format());
}

} // namespace

void packed_rank(IEEEFloat const& x, mpz_ptr out) {
  format const f = x.get_format();
  if (x.is_nan()) {
    inf_pattern(out, f);
    mpz_neg(out, out);
    mpz_sub_ui(out, out, 2);
    return;
  }
  x.get_bits(out);
  std::uint64_t const sign = f.eb + f.sb - 1;
  if (mpz_tstbit(out, sign) != 0) {
    mpz_clrbit(out, sign);
    mpz_neg(out, out);
    mpz_sub_ui(out, out, 1);
  }
}

IEEEFloat from_packed_rank(mpz_srcptr r, format f) {
  IEEEFloat::check_format(f);
  Mpz inf, pattern;
  inf_pattern(inf, f);
  if (mpz_sgn(r) >= 0) {
    mpz_set(pattern, mpz_cmp(r, inf) > 0 ? inf.get() : r);
  } else {
    mpz_neg(pattern, r);
    mpz_sub_ui(pattern, pattern, 1); // the magnitude
    if (mpz_cmp(pattern, inf) > 0) return IEEEFloat::nan(f);
    mpz_setbit(pattern, f.eb + f.sb - 1);
  }
  return IEEEFloat::from_bits(pattern, f);
}

IEEEFloat next_below(IEEEFloat const& x) {
  return rank_step(x, -1);
}
IEEEFloat next_above(IEEEFloat const& x) {
  return rank_step(x, +1);
}

} // namespace qorv
