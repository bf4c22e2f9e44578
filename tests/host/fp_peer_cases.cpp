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
#include "tests/common/exact_fp_oracle.h"
#include "host/fp_arith.h"
#include "host/fp_convert.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace {

using namespace qorv;
using namespace qorv::swflt;
using format = IEEEFloat::format;

format const formats[] = {{5, 11}, {8, 24}, {11, 53}, {15, 113},
                          {3, 5},  {4, 12}, {10, 47}, {15, 64}};

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

std::string fmt_text(format f) {
  return std::to_string(f.eb) + "," + std::to_string(f.sb);
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
std::string boolean(bool b) {
  return b ? "true" : "false";
}

void emit(char const* op, format f, std::string const& term, std::string const& expected) {
  std::cout << op << '\t' << fmt_text(f) << '\t' << term << '\t' << expected << '\n';
}

// One random case; false when its result is unspecified (nothing written).
bool one_case() {
  format const f = formats[rng() % std::size(formats)];
  rounding_mode const rm = static_cast<rounding_mode>(rng() % 5);
  std::string const m(rounding_mode_name(rm));
  IEEEFloat const x = operand(f), y = operand(f), z = operand(f);
  std::string const a = x.to_str(), b = y.to_str(), c = z.to_str();
  switch (rng() % 19) {
  case 0:
  case 15:
  case 16:
  case 17: {
    static char const* names[] = {"fp.add", "fp.sub", "fp.mul", "fp.div"};
    static IEEEFloat (*ops[])(rounding_mode, IEEEFloat const&, IEEEFloat const&) = {add, sub, mul,
                                                                                    div};
    unsigned const i = rng() % 4;
    emit(names[i], f, "(" + std::string(names[i]) + " " + m + " " + a + " " + b + ")",
         ops[i](rm, x, y).to_str());
    return true;
  }
  case 1:
  case 2:
    emit("fp.fma", f, "(fp.fma " + m + " " + a + " " + b + " " + c + ")",
         fma(rm, x, y, z).to_str());
    return true;
  case 3:
    emit("fp.sqrt", f, "(fp.sqrt " + m + " " + a + ")", sqrt(rm, x).to_str());
    return true;
  case 4:
    emit("fp.rem", f, "(fp.rem " + a + " " + b + ")", rem(x, y).to_str());
    return true;
  case 5:
    emit("fp.roundToIntegral", f, "(fp.roundToIntegral " + m + " " + a + ")",
         round_to_integral(rm, x).to_str());
    return true;
  case 6: {
    bool const is_max = rng() % 2 != 0;
    auto const r = is_max ? max(x, y) : min(x, y);
    char const* name = is_max ? "fp.max" : "fp.min";
    emit(name, f, "(" + std::string(name) + " " + a + " " + b + ")",
         r ? r->to_str() : "either-zero");
    return true;
  }
  case 7: {
    static char const* names[] = {"fp.eq", "fp.lt", "fp.leq", "fp.gt", "fp.geq"};
    static bool (*ops[])(IEEEFloat const&, IEEEFloat const&) = {eq, lt, leq, gt, geq};
    unsigned const i = rng() % 5;
    // Equal operands half of the time for eq/leq/geq to matter.
    IEEEFloat const& y2 = rng() % 2 ? x : y;
    emit(names[i], f, "(" + std::string(names[i]) + " " + a + " " + y2.to_str() + ")",
         boolean(ops[i](x, y2)));
    return true;
  }
  case 8: {
    static char const* names[] = {"fp.isNormal",   "fp.isSubnormal", "fp.isZero",
                                  "fp.isInfinite", "fp.isNaN",       "fp.isNegative",
                                  "fp.isPositive", "fp.abs",         "fp.neg"};
    unsigned const i = rng() % 9;
    bool const results[] = {x.is_normal(), x.is_subnormal(), x.is_zero(),   x.is_inf(),
                            x.is_nan(),    is_negative(x),   is_positive(x)};
    std::string const expected = i == 7   ? abs(x).to_str()
                                 : i == 8 ? neg(x).to_str()
                                          : boolean(results[i]);
    emit(names[i], f, "(" + std::string(names[i]) + " " + a + ")", expected);
    return true;
  }
  case 9:
  case 10: {
    format const to = formats[rng() % std::size(formats)];
    emit("to_fp", to,
         "((_ to_fp " + std::to_string(to.eb) + " " + std::to_string(to.sb) + ") " + m + " " + a +
             ")",
         convert(rm, x, to).to_str());
    return true;
  }
  case 11: {
    // A fraction with a numerator of up to 200 bits; or a decimal.
    mpz_class num = 0, den = 1;
    for (unsigned long i = rng() % 7; i-- > 0;)
      num = (num << 32) + static_cast<unsigned long>(rng() >> 32);
    for (unsigned long i = rng() % 4; i-- > 0;)
      den = (den << 32) + static_cast<unsigned long>(rng() >> 32);
    if (rng() % 2) den = mpz_class(1) << (rng() % 1200);
    if (rng() % 3 == 0) {
      mpz_ui_pow_ui(den.get_mpz_t(), 10, rng() % 40);
    }
    if (den == 0) den = 1;
    bool const negative = rng() % 2;
    mpq_class q(num, den);
    q.canonicalize();
    if (negative) q = -q;
    QNumber const qn(q.get_num_mpz_t(), q.get_den_mpz_t());
    emit("to_fp_real", f,
         "((_ to_fp " + std::to_string(f.eb) + " " + std::to_string(f.sb) + ") " + m + " " +
             real(qn) + ")",
         from_rational(rm, qn, f).to_str());
    return true;
  }
  case 12: {
    unsigned long const w = 1 + rng() % 140;
    mpz_class bits = 0;
    for (unsigned long i = 0; i < w; i += 32)
      bits = (bits << 32) + static_cast<unsigned long>(rng() >> 32);
    bits &= (mpz_class(1) << w) - 1;
    if (rng() % 2) bits >>= rng() % w; // smaller magnitudes too
    bool const is_signed = rng() % 2;
    std::string const fmt = std::to_string(f.eb) + " " + std::to_string(f.sb);
    emit(is_signed ? "to_fp_sbv" : "to_fp_unsigned", f,
         std::string(is_signed ? "((_ to_fp " : "((_ to_fp_unsigned ") + fmt + ") " + m + " " +
             bv(bits, w) + ")",
         (is_signed ? from_sbv(rm, bits.get_mpz_t(), w, f) : from_ubv(rm, bits.get_mpz_t(), w, f))
             .to_str());
    return true;
  }
  case 13:
  case 14: {
    unsigned long const w = 1 + rng() % 70;
    bool const is_signed = rng() % 2;
    auto const r = is_signed ? to_sbv(rm, x, w) : to_ubv(rm, x, w);
    if (!r) return false;
    mpz_class v;
    r->get_num(v.get_mpz_t());
    char const* name = is_signed ? "fp.to_sbv" : "fp.to_ubv";
    emit(name, f, "((_ " + std::string(name) + " " + std::to_string(w) + ") " + m + " " + a + ")",
         bv(v, w));
    return true;
  }
  case 18:
  default: {
    auto const r = to_real(x);
    if (!r) return false;
    emit("fp.to_real", f, "(fp.to_real " + a + ")", real(*r));
    return true;
  }
  }
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
