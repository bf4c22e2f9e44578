// Packed ranks and the split point.  Formats of at most 64 bits rank in
// 128-bit integers (a rank needs 65 bits with its sign, a sum of two ranks 66);
// wider formats rank in GMP integers.  Both paths compute the same function.
#include "host/pick_mid.h"

#include <stdexcept>
#include <string>

namespace qorv {

namespace {

__extension__ typedef __int128 Rank128;

using format = IEEEFloat::format;

// Pattern of +inf, which is also the magnitude of -inf.
std::uint64_t inf_pattern64(format f) {
  return (std::uint64_t{1} << (f.eb + f.sb - 1)) - (std::uint64_t{1} << (f.sb - 1));
}

Rank128 rank64(IEEEFloat const& x) {
  format const f = x.get_format();
  std::uint64_t const sign_bit = std::uint64_t{1} << (f.eb + f.sb - 1);
  std::uint64_t const p = x.payload_u64();
  if (x.is_nan()) return -Rank128{inf_pattern64(f)} - 2;
  Rank128 const magnitude = p & (sign_bit - 1);
  return (p & sign_bit) != 0 ? -magnitude - 1 : magnitude;
}

IEEEFloat quiet_nan(format f) {
  IEEEFloat r(f, IEEEFloat::rm_nearest_even);
  r.self_nan();
  return r;
}

IEEEFloat from_rank64(Rank128 r, format f) {
  Rank128 const inf = inf_pattern64(f);
  if (r >= 0) return IEEEFloat::from_bits(static_cast<std::uint64_t>(r > inf ? inf : r), f);
  Rank128 const magnitude = -r - 1;
  if (magnitude > inf) return quiet_nan(f);
  std::uint64_t const sign_bit = std::uint64_t{1} << (f.eb + f.sb - 1);
  return IEEEFloat::from_bits(sign_bit | static_cast<std::uint64_t>(magnitude), f);
}

// An initialised GMP integer, cleared on scope exit.
struct Mpz {
  Mpz() { mpz_init(v); }
  ~Mpz() { mpz_clear(v); }
  Mpz(Mpz const&) = delete;
  Mpz& operator=(Mpz const&) = delete;
  mpz_t v;
};

void inf_pattern(mpz_ptr out, format f) {
  mpz_set_ui(out, 0);
  mpz_setbit(out, f.eb);
  mpz_sub_ui(out, out, 1);
  mpz_mul_2exp(out, out, f.sb - 1);
}

// Ranks of both ends of a neighbour step or a split must share one format.
void check_same_format(IEEEFloat const& a, IEEEFloat const& b) {
  format const fa = a.get_format();
  format const fb = b.get_format();
  if (!(fa == fb))
    throw std::invalid_argument("pick_mid_avg: ends of different formats (" +
                                std::to_string(fa.eb) + ", " + std::to_string(fa.sb) +
                                ") and (" + std::to_string(fb.eb) + ", " +
                                std::to_string(fb.sb) + ")");
}

IEEEFloat rank_step(IEEEFloat const& x, int step) {
  if (x.narrow()) return from_rank64(rank64(x) + step, x.get_format());
  Mpz r;
  packed_rank(x, r.v);
  if (step > 0) mpz_add_ui(r.v, r.v, 1);
  else mpz_sub_ui(r.v, r.v, 1);
  return from_packed_rank(r.v, x.get_format());
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
  inf_pattern(inf.v, f);
  if (mpz_sgn(r) >= 0) {
    mpz_set(pattern.v, mpz_cmp(r, inf.v) > 0 ? inf.v : r);
  } else {
    mpz_neg(pattern.v, r);
    mpz_sub_ui(pattern.v, pattern.v, 1); // the magnitude
    if (mpz_cmp(pattern.v, inf.v) > 0) return quiet_nan(f);
    mpz_setbit(pattern.v, f.eb + f.sb - 1);
  }
  return IEEEFloat::from_bits(pattern.v, f);
}

IEEEFloat next_below(IEEEFloat const& x) { return rank_step(x, -1); }
IEEEFloat next_above(IEEEFloat const& x) { return rank_step(x, +1); }

namespace fp::utils {

IEEEFloat pick_mid_avg(IEEEFloat lower, IEEEFloat upper) {
  check_same_format(lower, upper);
  format const f = lower.get_format();
  if (lower.narrow()) {
    // Arithmetic shift: the floor of the average, also for negative sums.
    return from_rank64((rank64(lower) + rank64(upper)) >> 1, f);
  }
  Mpz a, b;
  packed_rank(lower, a.v);
  packed_rank(upper, b.v);
  mpz_add(a.v, a.v, b.v);
  mpz_fdiv_q_2exp(a.v, a.v, 1);
  return from_packed_rank(a.v, f);
}

} // namespace fp::utils

} // namespace qorv
