// Exact bit-vector operations and conversions (see bv_ops.h).
#include "engine/bv_ops.h"

#include "engine/bv_int.h"

#include "host/fp_convert.h"
#include "host/packed_rank.h"

#include <cassert>
#include <stdexcept>

namespace fpsolve {

mpz_class bv_value(IEEEFloat const& v) {
  mpz_class z;
  qorv::packed_rank(v, z.get_mpz_t());
  assert(z >= 0 && "a bit-vector value has a non-negative rank");
  return z;
}

std::string bv_text(IEEEFloat const& v, std::uint32_t n) {
  std::string const digits = bv_value(v).get_str(2);
  return "#b" + std::string(n - digits.size(), '0') + digits;
}

std::string bv_sort_text(std::uint32_t n) {
  return "(_ BitVec " + std::to_string(n) + ")";
}

IEEEFloat bv_make(mpz_class const& z, std::uint32_t n) {
  mpz_class r;
  mpz_fdiv_r_2exp(r.get_mpz_t(), z.get_mpz_t(), n);
  return qorv::from_packed_rank(r.get_mpz_t(), bv_format(n));
}

namespace {

mpz_class pow2(std::uint64_t n) {
  return pow2z<mpz_class>(n);
}

template <class Z>
Z udiv(Z const& s, Z const& t, std::uint32_t n) {
  return t == 0 ? Z(pow2z<Z>(n) - 1) : Z(s / t);
}

template <class Z>
Z urem(Z const& s, Z const& t) {
  return t == 0 ? s : Z(s % t);
}

} // namespace

template <class Z>
Z bv_arith(FpOp op, Z const* a, std::uint32_t n) {
  Z const& s = a[0];
  Z const ones = pow2z<Z>(n) - 1;
  auto neg = [&](Z const& x) { return wrap(Z(-x), n); };
  switch (op) {
  case FpOp::bv_not:
    return Z(ones - s);
  case FpOp::bv_and:
    return Z(s & a[1]);
  case FpOp::bv_or:
    return Z(s | a[1]);
  case FpOp::bv_xor:
    return Z(s ^ a[1]);
  case FpOp::bv_neg:
    return neg(s);
  case FpOp::bv_add:
    return wrap(Z(s + a[1]), n);
  case FpOp::bv_sub:
    return wrap(Z(s - a[1]), n);
  case FpOp::bv_mul:
    return wrap(Z(s * a[1]), n);
  case FpOp::bv_udiv:
    return udiv(s, a[1], n);
  case FpOp::bv_urem:
    return urem(s, a[1]);
  case FpOp::bv_sdiv:
  case FpOp::bv_srem:
  case FpOp::bv_smod: {
    Z const& t = a[1];
    bool const ms = msb(s, n), mt = msb(t, n);
    Z const as = ms ? neg(s) : s, at = mt ? neg(t) : t;
    if (op == FpOp::bv_sdiv) {
      Z const q = udiv(as, at, n);
      return ms != mt ? neg(q) : q;
    }
    Z const u = urem(as, at);
    if (op == FpOp::bv_srem) return ms ? neg(u) : u;
    if (u == 0 || ms == mt) return ms ? neg(u) : u;
    return wrap(ms ? Z(t - u) : Z(u + t), n);
  }
  case FpOp::bv_shl:
    return wrap(Z(s << shift_count(a[1], n)), n);
  case FpOp::bv_lshr:
  case FpOp::bv_ashr: {
    std::uint64_t const k = shift_count(a[1], n);
    Z r = s >> k;
    if (op == FpOp::bv_ashr && msb(s, n)) r += ones - (pow2z<Z>(n - k) - 1); // the sign bits
    return r;
  }
  default:
    throw std::logic_error("bv_arith: not a bit-vector operation of one width");
  }
}

template mpz_class bv_arith<mpz_class>(FpOp, mpz_class const*, std::uint32_t);
template qorv::Rank128 bv_arith<qorv::Rank128>(FpOp, qorv::Rank128 const*, std::uint32_t);

std::optional<IEEEFloat> bv_apply(FpOp op, IEEEFloat::rounding_mode rm,
                                  std::vector<IEEEFloat> const& a, IEEEFloat::format to) {
  namespace sw = qorv::swflt;
  std::uint32_t const n = bv_width(to); // the result's width, for bit-vector results
  switch (op) {
  case FpOp::bv_concat:
    return bv_make((bv_value(a[0]) << static_cast<mp_bitcnt_t>(bv_width(a[1].get_format()))) +
                       bv_value(a[1]),
                   n);
  case FpOp::bv_trunc:
    return bv_make(bv_value(a[0]), n);
  case FpOp::bv_sext: {
    std::uint32_t const m = bv_width(a[0].get_format());
    mpz_class const x = bv_value(a[0]);
    return bv_make(msb(x, m) ? mpz_class(x - pow2(m)) : x, n);
  }
  case FpOp::fp_of_bits: {
    IEEEFloat const v = IEEEFloat::from_bits(bv_value(a[0]).get_mpz_t(), to);
    return canonical(v);
  }
  case FpOp::fp_of_ubv:
  case FpOp::fp_of_sbv: {
    std::uint32_t const m = bv_width(a[0].get_format());
    mpz_class const x = bv_value(a[0]);
    return canonical(op == FpOp::fp_of_ubv ? sw::from_ubv(rm, x.get_mpz_t(), m, to)
                                           : sw::from_sbv(rm, x.get_mpz_t(), m, to));
  }
  case FpOp::ubv_of_fp:
  case FpOp::sbv_of_fp: {
    std::optional<qorv::QNumber> const q =
        op == FpOp::ubv_of_fp ? sw::to_ubv(rm, a[0], n) : sw::to_sbv(rm, a[0], n);
    if (!q) return std::nullopt;
    mpz_class z;
    q->get_num(z.get_mpz_t());
    return bv_make(z, n);
  }
  default: {
    std::vector<mpz_class> v;
    for (IEEEFloat const& x : a)
      v.push_back(bv_value(x));
    return bv_make(bv_arith(op, v.data(), n), n);
  }
  }
}

} // namespace fpsolve
