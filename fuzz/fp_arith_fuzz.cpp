// Differential fuzzing of the arithmetic and conversions against the exact
// oracle of the tests.
//
// Each input is a sequence of cases: a format (eb from 2 to 11, sb from 2 to
// 64 - eb, so the oracle stays quick), a rounding mode, an operation (every
// one of the shared check, conversions between formats, rationals) and its
// operands as raw bit patterns, favouring the edges of the format (zeros,
// subnormals, the largest values, infinities, NaN).  Every result must equal
// the oracle's bit for bit, and unspecified results must be reported as such
// exactly where the oracle says so.
#include "fuzz_input.h"
#include "host/fp_arith.h"
#include "host/fp_convert.h"
#include "tests/common/fp_oracle_check.h"

#include <gmpxx.h>

namespace {

using namespace qorv;
using namespace qorv::swflt;
using format = IEEEFloat::format;
using qorv::fuzz::Input;
using qorv::oracle::bits_of;
using qorv::oracle::Op;
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

format read_format(Input& in) {
  format f;
  f.eb = 2 + in.below(10);
  f.sb = 2 + in.below(63 - f.eb);
  return f;
}

void one_case(Input& in) {
  format const f = read_format(in);
  Oracle const o(f.eb, f.sb);
  int const rm = static_cast<int>(in.below(5));
  auto const m = static_cast<rounding_mode>(rm);
  std::uint64_t const px = pattern(in, f), py = pattern(in, f), pz = pattern(in, f);
  unsigned const kind = in.below(static_cast<unsigned>(Op::count) + 2);
  if (kind < static_cast<unsigned>(Op::count)) {
    oracle::Case const c{static_cast<Op>(kind), rm, f, px, py, pz, 1 + in.below(66)};
    std::string const diff = oracle::check(o, c);
    if (!diff.empty()) std::fprintf(stderr, "%s\n", diff.c_str());
    FUZZ_CHECK(diff.empty());
  } else if (kind == static_cast<unsigned>(Op::count)) {
    format const to = read_format(in);
    FUZZ_CHECK(bits_of(convert(m, IEEEFloat::from_bits(px, f), to)) ==
               Oracle(to.eb, to.sb).convert(rm, o, px));
  } else {
    std::int64_t const num = in.edgy_i64(), den = 1 + static_cast<std::int64_t>(in.u64(3));
    if (num == INT64_MIN) return;
    mpq_class q(mpz_class(std::to_string(num)), mpz_class(std::to_string(den)));
    q.canonicalize();
    FUZZ_CHECK(bits_of(from_rational(m, QNumber(num, den), f)) == o.round_q(q, rm, false));
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Input in(data, size);
  for (int i = 0; i < 64 && (i == 0 || in.more()); ++i)
    one_case(in);
  return 0;
}
