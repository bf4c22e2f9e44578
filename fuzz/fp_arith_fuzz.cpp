// Differential fuzzing of the arithmetic and conversions against the exact
// oracle of the tests.
//
// Each input is a sequence of cases: a format (eb from 2 to 11, sb from 2 to
// 64 - eb, so the oracle stays quick), a rounding mode, an operation and its
// operands as raw bit patterns, favouring the edges of the format (zeros,
// subnormals, the largest values, infinities, NaN).  Every result must equal
// the oracle's bit for bit, and unspecified results must be reported as such
// exactly where the oracle says so.
#include "fuzz_input.h"
#include "host/fp_arith.h"
#include "host/fp_convert.h"
#include "tests/common/exact_fp_oracle.h"

#include <gmpxx.h>

namespace {

using namespace qorv;
using namespace qorv::swflt;
using format = IEEEFloat::format;
using qorv::fuzz::Input;
using qorv::oracle::Oracle;

std::uint64_t pattern(Input& in, format f) {
  std::uint64_t const w = f.eb + f.sb;
  std::uint64_t const exp_ones = (std::uint64_t{1} << f.eb) - 1;
  std::uint64_t exp = in.u64() & exp_ones;
  switch (in.byte() % 6) {
  case 0:
    exp = 0;
    break;
  case 1:
    exp = exp_ones;
    break;
  case 2:
    exp = exp_ones - 1;
    break;
  default:
    break;
  }
  std::uint64_t const trail = in.u64() & ((std::uint64_t{1} << (f.sb - 1)) - 1);
  return (std::uint64_t{in.flag()} << (w - 1)) | (exp << (f.sb - 1)) | trail;
}

mpz_class bits_of(IEEEFloat const& x) {
  mpz_class z;
  x.get_bits(z.get_mpz_t());
  return z;
}

bool same(std::optional<QNumber> const& got, std::optional<mpz_class> const& want) {
  if (got.has_value() != want.has_value()) return false;
  return !got || got->to_string() == want->get_str();
}

void one_case(Input& in) {
  format f;
  f.eb = 2 + in.below(10);
  f.sb = 2 + in.below(63 - f.eb);
  Oracle const o(f.eb, f.sb);
  int const rm = static_cast<int>(in.below(5));
  auto const m = static_cast<rounding_mode>(rm);
  std::uint64_t const px = pattern(in, f), py = pattern(in, f), pz = pattern(in, f);
  IEEEFloat const x = IEEEFloat::from_bits(px, f), y = IEEEFloat::from_bits(py, f),
                  z = IEEEFloat::from_bits(pz, f);
  mpz_class const bx(px), by(py), bz(pz);
  switch (in.byte() % 14) {
  case 0:
    FUZZ_CHECK(bits_of(add(m, x, y)) == o.add(rm, bx, by));
    break;
  case 1:
    FUZZ_CHECK(bits_of(sub(m, x, y)) == o.sub(rm, bx, by));
    break;
  case 2:
    FUZZ_CHECK(bits_of(mul(m, x, y)) == o.mul(rm, bx, by));
    break;
  case 3:
    FUZZ_CHECK(bits_of(div(m, x, y)) == o.div(rm, bx, by));
    break;
  case 4:
    FUZZ_CHECK(bits_of(fma(m, x, y, z)) == o.fma(rm, bx, by, bz));
    break;
  case 5:
    FUZZ_CHECK(bits_of(sqrt(m, x)) == o.sqrt(rm, bx));
    break;
  case 6:
    FUZZ_CHECK(bits_of(rem(x, y)) == o.rem(bx, by));
    break;
  case 7:
    FUZZ_CHECK(bits_of(round_to_integral(m, x)) == o.round_to_integral(rm, bx));
    break;
  case 8: {
    bool const is_max = in.flag();
    auto const got = is_max ? max(x, y) : min(x, y);
    auto const want = o.min_max(bx, by, is_max);
    FUZZ_CHECK(got.has_value() == want.has_value() && (!got || bits_of(*got) == *want));
    std::partial_ordering const c = compare(x, y);
    int const ours = c == std::partial_ordering::unordered ? 2 : c < 0 ? -1 : c > 0 ? 1 : 0;
    FUZZ_CHECK(ours == o.compare(bx, by));
    break;
  }
  case 9: {
    format to;
    to.eb = 2 + in.below(10);
    to.sb = 2 + in.below(63 - to.eb);
    FUZZ_CHECK(bits_of(convert(m, x, to)) == Oracle(to.eb, to.sb).convert(rm, o, bx));
    break;
  }
  case 10: {
    std::uint64_t const w = 1 + in.below(66);
    FUZZ_CHECK(same(to_ubv(m, x, w), o.to_bv(rm, bx, w, false)));
    FUZZ_CHECK(same(to_sbv(m, x, w), o.to_bv(rm, bx, w, true)));
    break;
  }
  case 11: {
    auto const got = to_real(x);
    auto const want = o.to_real(bx);
    FUZZ_CHECK(got.has_value() == want.has_value() &&
               (!got || got->to_string() == want->get_str()));
    break;
  }
  case 12: {
    std::uint64_t const w = 1 + in.below(64);
    mpz_class const bits(static_cast<unsigned long>(in.u64() & (~std::uint64_t{0} >> (64 - w))));
    mpz_class const s =
        mpz_tstbit(bits.get_mpz_t(), w - 1) ? mpz_class(bits - (mpz_class(1) << w)) : bits;
    FUZZ_CHECK(bits_of(from_ubv(m, bits.get_mpz_t(), w, f)) == o.round_q(bits, rm, false));
    FUZZ_CHECK(bits_of(from_sbv(m, bits.get_mpz_t(), w, f)) == o.round_q(s, rm, false));
    break;
  }
  default: {
    std::int64_t const num = in.edgy_i64(), den = 1 + static_cast<std::int64_t>(in.u64(3));
    if (num == INT64_MIN) break;
    FUZZ_CHECK(bits_of(from_rational(m, QNumber(num, den), f)) ==
               o.round_q(mpq_class(mpz_class(std::to_string(num)), mpz_class(std::to_string(den))),
                         rm, false));
    break;
  }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Input in(data, size);
  for (int i = 0; i < 64 && (i == 0 || in.more()); ++i)
    one_case(in);
  return 0;
}
