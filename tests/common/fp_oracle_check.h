// One operation of the library against the exact oracle on the same
// operands: "" when both agree bit for bit (unspecified results included),
// otherwise a description of the difference.  Shared by the arithmetic tests
// and the fuzz harness.
#pragma once

#include "host/fp_arith.h"
#include "host/fp_convert.h"
#include "tests/common/exact_fp_oracle.h"

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

// The bit pattern of a value of the library.
inline mpz_class bits_of(IEEEFloat const& v) {
  mpz_class z;
  v.get_bits(z.get_mpz_t());
  return z;
}

inline std::string check(Oracle const& o, Case const& c) {
  using namespace qorv::swflt;
  auto const value = [&](mpz_class const& p) { return IEEEFloat::from_bits(p.get_mpz_t(), c.f); };
  IEEEFloat const a = value(c.x), b = value(c.y), d = value(c.z);
  auto const m = static_cast<rounding_mode>(c.rm);
  auto const bits = [](IEEEFloat const& v) { return bits_of(v).get_str(); };
  auto const maybe = [](auto const& v, auto&& show) { return v ? show(*v) : std::string("none"); };
  auto const q_text = [](QNumber const& q) { return q.to_string(); };
  auto const z_text = [](mpz_class const& z) { return z.get_str(); };
  auto const diff = [&](std::string const& got, std::string const& want) {
    if (got == want) return std::string();
    return std::string(op_names[static_cast<int>(c.op)]) + " " +
           std::string(rounding_mode_name(m)) + " " + a.to_str() + " " + b.to_str() + " " +
           d.to_str() + " width " + std::to_string(c.width) + ": got " + got + ", want " + want;
  };
  auto const rounded = [&](IEEEFloat const& g, mpz_class const& w) {
    return diff(bits(g), w.get_str());
  };
  using Lib = IEEEFloat (*)(rounding_mode, IEEEFloat const&, IEEEFloat const&);
  using Ref = mpz_class (Oracle::*)(int, mpz_class const&, mpz_class const&) const;
  static Lib const lib[] = {add, sub, mul, div};
  static Ref const ref[] = {&Oracle::add, &Oracle::sub, &Oracle::mul, &Oracle::div};
  int const i = static_cast<int>(c.op);
  bool const s = c.op == Op::to_sbv || c.op == Op::from_sbv || c.op == Op::max;
  mpz_class bv = c.x & ((mpz_class(1) << c.width) - 1);
  if (c.op <= Op::div) return rounded(lib[i](m, a, b), (o.*ref[i])(c.rm, c.x, c.y));
  if (c.op == Op::fma) return rounded(fma(m, a, b, d), o.fma(c.rm, c.x, c.y, c.z));
  if (c.op == Op::sqrt) return rounded(sqrt(m, a), o.sqrt(c.rm, c.x));
  if (c.op == Op::rem) return rounded(rem(a, b), o.rem(c.x, c.y));
  if (c.op == Op::rti) return rounded(round_to_integral(m, a), o.round_to_integral(c.rm, c.x));
  if (c.op == Op::min || c.op == Op::max)
    return diff(maybe(s ? max(a, b) : min(a, b), bits), maybe(o.min_max(c.x, c.y, s), z_text));
  if (c.op == Op::compare) {
    std::partial_ordering const r = compare(a, b);
    int const got = r == std::partial_ordering::unordered ? 2 : r < 0 ? -1 : r > 0 ? 1 : 0;
    return diff(std::to_string(got), std::to_string(o.compare(c.x, c.y)));
  }
  if (c.op == Op::to_ubv || c.op == Op::to_sbv)
    return diff(maybe(s ? to_sbv(m, a, c.width) : to_ubv(m, a, c.width), q_text),
                maybe(o.to_bv(c.rm, c.x, c.width, s), z_text));
  if (c.op == Op::to_real)
    return diff(maybe(to_real(a), q_text),
                maybe(o.to_real(c.x), [](mpq_class const& q) { return q.get_str(); }));
  if (c.op == Op::neg_abs) {
    mpz_class const n = a.is_nan() ? o.nan() : mpz_class(c.x ^ o.sign_bit());
    return diff(bits(neg(a)) + " " + bits(swflt::abs(a)) + (is_negative(a) ? " -" : " +"),
                n.get_str() + " " + mpz_class(n & (o.sign_bit() - 1)).get_str() +
                    (!a.is_nan() && a.get_sign() ? " -" : " +"));
  }
  IEEEFloat const r = (s ? from_sbv : from_ubv)(m, bv.get_mpz_t(), c.width, c.f);
  if (s && mpz_tstbit(bv.get_mpz_t(), c.width - 1)) bv -= mpz_class(1) << c.width;
  return rounded(r, o.round_q(bv, c.rm, false)); // from_ubv, from_sbv
}

} // namespace qorv::oracle
