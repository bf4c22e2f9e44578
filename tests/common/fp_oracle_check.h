// One operation of the library against the exact oracle on the same
// operands: "" when both agree bit for bit (unspecified results included),
// otherwise a description of the difference.  Shared by the arithmetic tests
// and the fuzz harness.
#pragma once

#include "tests/common/exact_fp_oracle.h"
#include "host/fp_arith.h"
#include "host/fp_convert.h"

#include <string>

namespace qorv::oracle {

enum class Op {
  add,
  sub,
  mul,
  div,
  fma,
  sqrt,
  rem,
  rti,
  min,
  max,
  compare,
  to_ubv,
  to_sbv,
  to_real,
  neg_abs,
  from_ubv,
  from_sbv,
  count
};
inline char const* const op_names[] = {
    "add",     "sub", "mul",     "div",    "fma",    "sqrt",    "rem",     "roundToIntegral",
    "min",     "max", "compare", "to_ubv", "to_sbv", "to_real", "neg/abs", "from_ubv",
    "from_sbv"};

// Operands are bit patterns of format f; `width` is the bit-vector width of
// the conversions (from_ubv/from_sbv read the low `width` bits of x).
struct Case {
  Op op;
  int rm;
  IEEEFloat::format f;
  mpz_class x, y, z;
  unsigned long width;
};

inline std::string check(Oracle const& o, Case const& c) {
  using namespace qorv::swflt;
  auto const value = [&](mpz_class const& p) { return IEEEFloat::from_bits(p.get_mpz_t(), c.f); };
  IEEEFloat const a = value(c.x), b = value(c.y), d = value(c.z);
  auto const m = static_cast<rounding_mode>(c.rm);
  auto const bits = [](IEEEFloat const& v) {
    mpz_class z;
    v.get_bits(z.get_mpz_t());
    return z.get_str();
  };
  auto const maybe = [](auto const& v, auto&& show) { return v ? show(*v) : std::string("none"); };
  auto const q_text = [](QNumber const& q) { return q.to_string(); };
  auto const z_text = [](mpz_class const& z) { return z.get_str(); };
  mpz_class const bv = c.x & ((mpz_class(1) << c.width) - 1);
  mpz_class const sbv =
      mpz_tstbit(bv.get_mpz_t(), c.width - 1) ? mpz_class(bv - (mpz_class(1) << c.width)) : bv;
  std::string got, want;
  switch (c.op) {
  case Op::add:
    got = bits(add(m, a, b)), want = o.add(c.rm, c.x, c.y).get_str();
    break;
  case Op::sub:
    got = bits(sub(m, a, b)), want = o.sub(c.rm, c.x, c.y).get_str();
    break;
  case Op::mul:
    got = bits(mul(m, a, b)), want = o.mul(c.rm, c.x, c.y).get_str();
    break;
  case Op::div:
    got = bits(div(m, a, b)), want = o.div(c.rm, c.x, c.y).get_str();
    break;
  case Op::fma:
    got = bits(fma(m, a, b, d)), want = o.fma(c.rm, c.x, c.y, c.z).get_str();
    break;
  case Op::sqrt:
    got = bits(sqrt(m, a)), want = o.sqrt(c.rm, c.x).get_str();
    break;
  case Op::rem:
    got = bits(rem(a, b)), want = o.rem(c.x, c.y).get_str();
    break;
  case Op::rti:
    got = bits(round_to_integral(m, a)), want = o.round_to_integral(c.rm, c.x).get_str();
    break;
  case Op::min:
  case Op::max:
    got = maybe(c.op == Op::min ? min(a, b) : max(a, b), bits);
    want = maybe(o.min_max(c.x, c.y, c.op == Op::max), z_text);
    break;
  case Op::compare: {
    std::partial_ordering const r = compare(a, b);
    got = std::to_string(r == std::partial_ordering::unordered ? 2 : r < 0 ? -1 : r > 0 ? 1 : 0);
    want = std::to_string(o.compare(c.x, c.y));
    break;
  }
  case Op::to_ubv:
  case Op::to_sbv: {
    bool const s = c.op == Op::to_sbv;
    got = maybe(s ? to_sbv(m, a, c.width) : to_ubv(m, a, c.width), q_text);
    want = maybe(o.to_bv(c.rm, c.x, c.width, s), z_text);
    break;
  }
  case Op::to_real:
    got = maybe(to_real(a), q_text);
    want = maybe(o.to_real(c.x), [](mpq_class const& q) { return q.get_str(); });
    break;
  case Op::neg_abs:
    got = bits(neg(a)) + " " + bits(swflt::abs(a)) + (is_negative(a) ? " -" : " +");
    want = (a.is_nan() ? o.nan() : mpz_class(c.x ^ o.sign_bit())).get_str() + " " +
           (a.is_nan() ? o.nan() : mpz_class(c.x & (o.sign_bit() - 1))).get_str() +
           (!a.is_nan() && a.get_sign() ? " -" : " +");
    break;
  case Op::from_ubv:
    got = bits(from_ubv(m, bv.get_mpz_t(), c.width, c.f)),
    want = o.round_q(bv, c.rm, false).get_str();
    break;
  case Op::from_sbv:
    got = bits(from_sbv(m, bv.get_mpz_t(), c.width, c.f)),
    want = o.round_q(sbv, c.rm, false).get_str();
    break;
  case Op::count:
    break;
  }
  if (got == want) return "";
  return std::string(op_names[static_cast<int>(c.op)]) + " " + std::string(rounding_mode_name(m)) +
         " " + a.to_str() + " " + b.to_str() + " " + d.to_str() + " width " +
         std::to_string(c.width) + ": got " + got + ", want " + want;
}

} // namespace qorv::oracle
