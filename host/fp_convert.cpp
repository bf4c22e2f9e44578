// The conversions, through MPFR: every source value is read exactly at its
// own precision, then rounded once to the target.  Integer results come out
// as QNumber, in its small form whenever they fit a signed word.
#include "host/fp_convert.h"

#include "host/mpfr_bridge.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace qorv::swflt {

using detail::round_general;
using detail::scratch;
using format = IEEEFloat::format;

namespace {

std::uint64_t bit_length(mpz_srcptr z) {
  return mpz_sgn(z) == 0 ? 0 : mpz_sizeinbase(z, 2);
}

// Bits of -z - 1 for a negative z: z fits w-bit two's complement iff < w.
std::uint64_t complement_length(mpz_srcptr z) {
  mpz_t m;
  mpz_init(m);
  mpz_com(m, z);
  std::uint64_t const n = bit_length(m);
  mpz_clear(m);
  return n;
}

std::string integer_text(mpz_srcptr z) {
  if (mpz_sizeinbase(z, 2) > 200)
    return "(a " + std::to_string(mpz_sizeinbase(z, 2)) + "-bit number)";
  std::string t(mpz_sizeinbase(z, 10) + 2, '\0');
  mpz_get_str(t.data(), 10, z);
  t.resize(t.find('\0'));
  return t;
}

void check_width(std::uint64_t width, char const* op) {
  if (width < 1)
    throw std::invalid_argument(std::string("swflt::") + op + ": bit-vector width " +
                                std::to_string(width) + " (need at least 1)");
}

void check_pattern(mpz_srcptr bits, std::uint64_t width, char const* op) {
  check_width(width, op);
  if (mpz_sgn(bits) < 0 || (mpz_sgn(bits) > 0 && mpz_sizeinbase(bits, 2) > width))
    throw std::invalid_argument(std::string("swflt::") + op + ": bit-vector pattern " +
                                integer_text(bits) + " does not fit " + std::to_string(width) +
                                " bits");
}

// An integer as a QNumber over 1, small when it fits.
// True when z fits QNumber's small form (a signed word other than -2^63).
bool fits_small(mpz_srcptr z) {
  return mpz_fits_slong_p(z) && mpz_get_si(z) != INT64_MIN;
}

QNumber integer_q(mpz_srcptr z) {
  if (fits_small(z)) return QNumber(mpz_get_si(z), 1);
  mpz_t one;
  mpz_init_set_ui(one, 1);
  QNumber q(z, one);
  mpz_clear(one);
  return q;
}

// The value of a GMP rational that owns its storage.
class Mpq {
public:
  Mpq() { mpq_init(v_); }
  ~Mpq() { mpq_clear(v_); }
  Mpq(Mpq const&) = delete;
  Mpq& operator=(Mpq const&) = delete;
  mpq_ptr get() noexcept { return v_; }

private:
  mpq_t v_;
};

std::optional<QNumber> to_bv(rounding_mode rm, IEEEFloat const& x, std::uint64_t width,
                             bool is_signed, char const* op) {
  detail::check_rm(rm, op);
  detail::check_arith_format(x.get_format(), op);
  check_width(width, op);
  if (x.is_nan() || x.is_inf()) return std::nullopt;
  detail::Scratch& s = scratch();
  detail::ExpRange const wide;
  detail::load(s.a, x);
  detail::use_prec(s.c, static_cast<mpfr_prec_t>(x.get_format().sb + 1)); // room for a carry
  if (rm == RNA)
    mpfr_round(s.c, s.a);
  else
    mpfr_rint(s.c, s.a, detail::mpfr_rounding(rm));
  // Settle huge magnitudes from the exponent alone, before the integer is
  // materialised (it could have up to 2^59 bits).
  if (!mpfr_zero_p(s.c)) {
    mpfr_exp_t const bits = mpfr_get_exp(s.c); // |c| < 2^bits
    if (bits > static_cast<mpfr_exp_t>(width)) return std::nullopt;
  }
  mpz_ptr z = s.z;
  mpfr_get_z(z, s.c, MPFR_RNDN); // exact: c is an integer
  if (!is_signed) {
    if (mpz_sgn(z) < 0 || bit_length(z) > width) return std::nullopt;
  } else if (mpz_sgn(z) >= 0 ? bit_length(z) >= width : complement_length(z) >= width) {
    return std::nullopt; // outside [-2^(width-1), 2^(width-1))
  }
  return integer_q(z);
}

} // namespace

IEEEFloat convert(rounding_mode rm, IEEEFloat const& x, format to) {
  detail::check_rm(rm, "convert");
  detail::check_arith_format(x.get_format(), "convert");
  detail::check_arith_format(to, "convert");
  detail::Scratch& s = scratch();
  detail::ExpRange const wide;
  detail::load(s.a, x);
  return round_general(rm, to,
                       [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_set(out, s.a, rnd); });
}

IEEEFloat from_rational(rounding_mode rm, mpq_srcptr q, format f) {
  detail::check_rm(rm, "from_rational");
  detail::check_arith_format(f, "from_rational");
  detail::ExpRange const wide;
  return round_general(rm, f,
                       [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_set_q(out, q, rnd); });
}

IEEEFloat from_rational(rounding_mode rm, QNumber const& q, format f) {
  Mpq v;
  q.get_num(mpq_numref(v.get()));
  q.get_den(mpq_denref(v.get()));
  return from_rational(rm, v.get(), f);
}

IEEEFloat from_rational_text(rounding_mode rm, std::string_view text, format f) {
  auto bad = [&] {
    return std::invalid_argument("swflt::from_rational_text: malformed number \"" +
                                 std::string(text) + "\" (need an integer, n.d or n/d)");
  };
  std::string_view body = text;
  bool const negative = !body.empty() && body.front() == '-';
  if (negative) body.remove_prefix(1);
  std::size_t const dot = body.find('.'), slash = body.find('/');
  std::string num(body), den = "1";
  if (dot != std::string_view::npos && slash == std::string_view::npos) {
    num = std::string(body.substr(0, dot)) + std::string(body.substr(dot + 1));
    den = "1" + std::string(body.size() - dot - 1, '0');
    if (dot == 0 || dot + 1 == body.size()) throw bad();
  } else if (slash != std::string_view::npos && dot == std::string_view::npos) {
    num = std::string(body.substr(0, slash));
    den = std::string(body.substr(slash + 1));
  }
  for (std::string const* part : {&num, &den})
    if (part->empty() || part->find_first_not_of("0123456789") != std::string::npos) throw bad();
  Mpq v;
  mpz_set_str(mpq_numref(v.get()), num.c_str(), 10);
  mpz_set_str(mpq_denref(v.get()), den.c_str(), 10);
  if (mpz_sgn(mpq_denref(v.get())) == 0) throw bad();
  mpq_canonicalize(v.get());
  if (negative) mpq_neg(v.get(), v.get());
  return from_rational(rm, v.get(), f);
}

IEEEFloat from_ubv(rounding_mode rm, mpz_srcptr bits, std::uint64_t width, format f) {
  detail::check_rm(rm, "from_ubv");
  detail::check_arith_format(f, "from_ubv");
  check_pattern(bits, width, "from_ubv");
  detail::ExpRange const wide;
  return round_general(rm, f,
                       [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_set_z(out, bits, rnd); });
}

IEEEFloat from_sbv(rounding_mode rm, mpz_srcptr bits, std::uint64_t width, format f) {
  detail::check_rm(rm, "from_sbv");
  detail::check_arith_format(f, "from_sbv");
  check_pattern(bits, width, "from_sbv");
  mpz_ptr z = scratch().z;
  mpz_set(z, bits);
  if (mpz_tstbit(bits, width - 1)) { // two's complement: subtract 2^width
    mpz_t top;
    mpz_init(top);
    mpz_setbit(top, width);
    mpz_sub(z, z, top);
    mpz_clear(top);
  }
  detail::ExpRange const wide;
  return round_general(rm, f,
                       [&](mpfr_ptr out, mpfr_rnd_t rnd) { return mpfr_set_z(out, z, rnd); });
}

std::optional<QNumber> to_ubv(rounding_mode rm, IEEEFloat const& x, std::uint64_t width) {
  return to_bv(rm, x, width, false, "to_ubv");
}

std::optional<QNumber> to_sbv(rounding_mode rm, IEEEFloat const& x, std::uint64_t width) {
  return to_bv(rm, x, width, true, "to_sbv");
}

std::optional<QNumber> to_real(IEEEFloat const& x) {
  detail::check_arith_format(x.get_format(), "to_real");
  if (x.is_nan() || x.is_inf()) return std::nullopt;
  detail::Scratch& s = scratch();
  detail::ExpRange const wide;
  detail::load(s.a, x);
  if (mpfr_zero_p(s.a)) return QNumber();
  mpz_t num, den;
  mpz_init(num);
  mpz_init_set_ui(den, 1);
  mpfr_exp_t const e = mpfr_get_z_2exp(num, s.a);
  if (e >= 0)
    mpz_mul_2exp(num, num, static_cast<mp_bitcnt_t>(e));
  else
    mpz_mul_2exp(den, den, static_cast<mp_bitcnt_t>(-e));
  QNumber q = fits_small(num) && fits_small(den) ? QNumber(mpz_get_si(num), mpz_get_si(den))
                                                 : QNumber(num, den);
  mpz_clear(num);
  mpz_clear(den);
  return q;
}

} // namespace qorv::swflt
