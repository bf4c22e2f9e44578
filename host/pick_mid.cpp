// The split-point rule: the floor of the average of two packed ranks, in
// 128-bit integers for formats of at most 64 bits and in GMP integers above.
#include "host/pick_mid.h"

#include "support/mpz.h"

#include <stdexcept>
#include <string>

namespace qorv {

namespace {

using format = IEEEFloat::format;

// Both ends of a split must share one format.
void check_same_format(IEEEFloat const& a, IEEEFloat const& b) {
  format const fa = a.get_format();
  format const fb = b.get_format();
  if (!(fa == fb))
    throw std::invalid_argument("pick_mid_avg: ends of different formats " + format_text(fa) +
                                " and " + format_text(fb));
}

} // namespace

namespace fp::utils {

IEEEFloat pick_mid_avg(IEEEFloat lower, IEEEFloat upper) {
  check_same_format(lower, upper);
  format const f = lower.get_format();
  if (lower.narrow()) {
    // Arithmetic shift: the floor of the average, also for negative sums.
    return from_packed_rank128((packed_rank128(lower) + packed_rank128(upper)) >> 1, f);
  }
  Mpz a, b;
  packed_rank(lower, a);
  packed_rank(upper, b);
  mpz_add(a, a, b);
  mpz_fdiv_q_2exp(a, a, 1);
  return from_packed_rank(a, f);
}

} // namespace fp::utils

} // namespace qorv
