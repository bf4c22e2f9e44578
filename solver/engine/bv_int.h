// The few integer steps the bit-vector code needs, for both integer types
// it runs on: mpz_class for any width, and a 128-bit integer for widths of
// at most kWideBvWidth bits (the widest whose format ranks in 128 bits),
// where sums and differences fit; products and left shifts fit only up to
// kSmallBvWidth bits (a product of two values stays below 2^124).  Values
// are always non-negative except for the intermediate results that wrap()
// brings back.
#pragma once

#include "engine/problem.h"

#include "host/packed_rank.h"

#include <cstdint>
#include <gmpxx.h>
#include <type_traits>

namespace fpsolve {

inline constexpr std::uint32_t kSmallBvWidth = 62;
inline constexpr std::uint32_t kWideBvWidth = 125;

// Whether op on bit-vectors of at most `width` bits runs on 128-bit integers.
inline bool fits_128(FpOp op, std::uint32_t width) {
  bool const grows = op == FpOp::bv_mul || op == FpOp::bv_shl;
  return width <= (grows ? kSmallBvWidth : kWideBvWidth);
}

template <class Z>
Z pow2z(std::uint64_t n) {
  if constexpr (std::is_same_v<Z, mpz_class>) {
    mpz_class r;
    mpz_ui_pow_ui(r.get_mpz_t(), 2, n);
    return r;
  } else {
    return Z(1) << n;
  }
}

// z modulo 2^n, for any sign of z (both types and-mask in two's complement).
template <class Z>
Z wrap(Z const& z, std::uint64_t n) {
  return Z(z & Z(pow2z<Z>(n) - 1));
}

template <class Z>
bool msb(Z const& z, std::uint64_t n) {
  return Z(Z(z >> (n - 1)) & Z(1)) != 0;
}

// The number of bits of z >= 0 (0 for 0).
template <class Z>
std::uint64_t bitlen(Z const& z) {
  if constexpr (std::is_same_v<Z, mpz_class>) {
    return z == 0 ? 0 : mpz_sizeinbase(z.get_mpz_t(), 2);
  } else {
    std::uint64_t b = 0;
    for (Z x = z; x != 0; x >>= 1)
      ++b;
    return b;
  }
}

// z as a shift count, capped at cap (every larger shift acts alike).
template <class Z>
std::uint64_t shift_count(Z const& z, std::uint64_t cap) {
  if (z >= Z(cap)) return cap;
  if constexpr (std::is_same_v<Z, mpz_class>)
    return z.get_ui();
  else
    return static_cast<std::uint64_t>(z);
}

} // namespace fpsolve
