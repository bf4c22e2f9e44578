// Writes random floating-point cases with this library's answers, for the
// differential run against other SMT solvers (fp_peer_test.py).
//
//   fp_peer_cases SEED COUNT
//
// One case per line, tab-separated: operation, format "eb,sb", SMT-LIB term,
// expected value as an SMT-LIB term, or "either-zero" where only +0 or -0 is
// allowed.  Cases whose result is unspecified (bit-vector conversions out of
// range, the real value of NaN or infinity) are not written.  The same seed
// gives the same cases.
#include "host/fp_arith.h"
#include "host/fp_convert.h"
#include "tests/common/exact_fp_oracle.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace {

using namespace qorv;
using namespace qorv::swflt;
using format = IEEEFloat::format;

format const formats[] = {{5, 11}, {8, 24},  {11, 53}, {15, 113}, {3, 5},
                          {4, 12}, {10, 47}, {15, 64}, {40, 6}};

std::mt19937_64 rng;

IEEEFloat operand(format f) {
  // Every fourth operand a small integer or simple fraction, so that
  // conversions to integers and exact cancellations happen often.
  if (rng() % 4 == 0) {
    long const num = static_cast<long>(rng() % 2001) - 1000, den = 1L << (rng() % 4);
    return from_rational(RNE, QNumber(num, den), f);
  }
  mpz_class const bits = oracle::random_pattern(rng, f.eb, f.sb);
  return IEEEFloat::from_bits(bits.get_mpz_t(), f);
}

std::string bv(mpz_class v, unsigned long w) {
  if (v < 0) v += mpz_class(1) << w;
  return "(_ bv" + v.get_str() + " " + std::to_string(w) + ")";
}
std::string real(QNumber const& q) {
  mpz_class n, d;
  q.get_num(n.get_mpz_t());
  q.get_den(d.get_mpz_t());
  std::string const body = "(/ " + mpz_class(abs(n)).get_str() + ".0 " + d.get_str() + ".0)";
  return n < 0 ? "(- " + body + ")" : body;
}

// Writes one case; true.
bool emit(std::string const& op, format f, std::string const& term, std::string const& expected) {
  std::cout << op << '\t' << f.eb << ',' << f.sb << '\t' << term << '\t' << expected << '\n';
  return true;
}
// "(op arg...)" written for the case of operation `op`.
bool emit_app(std::string const& op, format f, std::initializer_list<std::string> args,
              std::string const& expected) {
  std::string term = "(" + op;
  for (std::string const& arg : args)
    term += " " + arg;
  return emit(op, f, term + ")", expected);
}
// "(_ name eb sb)"
std::string indexed(char const* name, format f) {
  return std::string("(_ ") + name + " " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ")";
}

// One random case; false when its result is unspecified (nothing written).
bool one_case() {
  format const f = formats[rng() % std::size(formats)];
  rounding_mode const rm = static_cast<rounding_mode>(rng() % 5);
  std::string const m(rounding_mode_name(rm));
  IEEEFloat const x = operand(f), y = operand(f), z = operand(f);
  std::string const a = x.to_str(), b = y.to_str(), c = z.to_str();
  unsigned const kind = rng() % 19;
  if (kind == 0 || (kind >= 15 && kind <= 17)) {
    static char const* names[] = {"fp.add", "fp.sub", "fp.mul", "fp.div"};
    static IEEEFloat (*ops[])(rounding_mode, IEEEFloat const&, IEEEFloat const&) = {add, sub, mul,
                                                                                    div};
    unsigned const i = rng() % 4;
    return emit_app(names[i], f, {m, a, b}, ops[i](rm, x, y).to_str());
  }
  if (kind == 1 || kind == 2) return emit_app("fp.fma", f, {m, a, b, c}, fma(rm, x, y, z).to_str());
  if (kind == 3) return emit_app("fp.sqrt", f, {m, a}, sqrt(rm, x).to_str());
  // z3's remainder takes time linear in the exponent difference (2^39 here).
  if (kind == 4) return f.eb <= 20 && emit_app("fp.rem", f, {a, b}, rem(x, y).to_str());
  if (kind == 5)
    return emit_app("fp.roundToIntegral", f, {m, a}, round_to_integral(rm, x).to_str());
  if (kind == 6) {
    bool const is_max = rng() % 2 != 0;
    auto const r = is_max ? max(x, y) : min(x, y);
    return emit_app(is_max ? "fp.max" : "fp.min", f, {a, b}, r ? r->to_str() : "either-zero");
  }
  if (kind == 7) {
    static char const* names[] = {"fp.eq", "fp.lt", "fp.leq", "fp.gt", "fp.geq"};
    static bool (*ops[])(IEEEFloat const&, IEEEFloat const&) = {eq, lt, leq, gt, geq};
    unsigned const i = rng() % 5;
    // Equal operands half of the time for eq/leq/geq to matter.
    IEEEFloat const& y2 = rng() % 2 ? x : y;
    return emit_app(names[i], f, {a, y2.to_str()}, ops[i](x, y2) ? "true" : "false");
  }
  if (kind == 8) {
    static char const* names[] = {"fp.isNormal",   "fp.isSubnormal", "fp.isZero",
                                  "fp.isInfinite", "fp.isNaN",       "fp.isNegative",
                                  "fp.isPositive", "fp.abs",         "fp.neg"};
    unsigned const i = rng() % 9;
    bool const results[] = {x.is_normal(), x.is_subnormal(), x.is_zero(),   x.is_inf(),
                            x.is_nan(),    is_negative(x),   is_positive(x)};
    std::string const expected = i == 7       ? abs(x).to_str()
                                 : i == 8     ? neg(x).to_str()
                                 : results[i] ? "true"
                                              : "false";
    return emit_app(names[i], f, {a}, expected);
  }
  if (kind == 9 || kind == 10) {
    format const to = formats[rng() % std::size(formats)];
    return emit("to_fp", to, "(" + indexed("to_fp", to) + " " + m + " " + a + ")",
                convert(rm, x, to).to_str());
  }
  if (kind == 11) {
    // A fraction with a numerator of up to 200 bits; or a decimal.
    mpz_class num = 0, den = 1;
    for (unsigned long i = rng() % 7; i-- > 0;)
      num = (num << 32) + static_cast<unsigned long>(rng() >> 32);
    for (unsigned long i = rng() % 4; i-- > 0;)
      den = (den << 32) + static_cast<unsigned long>(rng() >> 32);
    if (rng() % 2) den = mpz_class(1) << (rng() % 1200);
    if (rng() % 3 == 0) mpz_ui_pow_ui(den.get_mpz_t(), 10, rng() % 40);
    if (den == 0) den = 1;
    bool const negative = rng() % 2;
    mpq_class q(negative ? mpz_class(-num) : num, den);
    q.canonicalize();
    QNumber const qn(q.get_num_mpz_t(), q.get_den_mpz_t());
    return emit("to_fp_real", f, "(" + indexed("to_fp", f) + " " + m + " " + real(qn) + ")",
                from_rational(rm, qn, f).to_str());
  }
  if (kind == 12) {
    unsigned long const w = 1 + rng() % 140;
    mpz_class bits = 0;
    for (unsigned long i = 0; i < w; i += 32)
      bits = (bits << 32) + static_cast<unsigned long>(rng() >> 32);
    bits &= (mpz_class(1) << w) - 1;
    if (rng() % 2) bits >>= rng() % w; // smaller magnitudes too
    bool const is_signed = rng() % 2;
    std::string const head = indexed(is_signed ? "to_fp" : "to_fp_unsigned", f);
    IEEEFloat const r = (is_signed ? from_sbv : from_ubv)(rm, bits.get_mpz_t(), w, f);
    return emit(is_signed ? "to_fp_sbv" : "to_fp_unsigned", f,
                "(" + head + " " + m + " " + bv(bits, w) + ")", r.to_str());
  }
  if (kind == 13 || kind == 14) {
    unsigned long const w = 1 + rng() % 70;
    bool const is_signed = rng() % 2;
    // z3 takes time linear in the exponent here, zeros included: keep
    // nonzero magnitudes near 1 in formats with wide exponents.
    IEEEFloat const ax = abs(x);
    if (f.eb > 20 && (x.is_zero() || lt(ax, from_rational(RNE, QNumber(1, 1 << 20), f)) ||
                      gt(ax, from_rational(RNE, QNumber(std::int64_t{1} << 62, 1), f))))
      return false;
    auto const r = is_signed ? to_sbv(rm, x, w) : to_ubv(rm, x, w);
    if (!r) return false;
    mpz_class v;
    r->get_num(v.get_mpz_t());
    std::string const name = is_signed ? "fp.to_sbv" : "fp.to_ubv";
    return emit(name, f, "((_ " + name + " " + std::to_string(w) + ") " + m + " " + a + ")",
                bv(v, w));
  }
  if (f.eb > 20) return false; // exact values near 2^(2^39) are out of reach
  auto const r = to_real(x);
  return r && emit_app("fp.to_real", f, {a}, real(*r));
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fp_peer_cases SEED COUNT\n");
    return 2;
  }
  rng.seed(std::strtoull(argv[1], nullptr, 10));
  for (long n = std::atol(argv[2]); n > 0;)
    if (one_case()) --n;
  return 0;
}
