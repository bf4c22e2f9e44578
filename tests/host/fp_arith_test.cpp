// Arithmetic and conversions against the exact oracle: every operation, mode
// and operand pair of three small formats (a sample of triples for fma),
// conversions among them and from every short bit-vector; random operands in
// Float16/32/64 (the hardware fast paths), Float128 and odd wide formats; the
// errors for bad input; no allocation per operation on narrow formats.
#include "host/fp_arith.h"
#include "host/fp_arith_double.h"
#include "host/fp_convert.h"
#include "tests/common/fp_oracle_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>

namespace qorv::swflt {
namespace {

using format = IEEEFloat::format;
using oracle::bits_of;
using oracle::Oracle;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

IEEEFloat value(mpz_class const& bits, format f) {
  return IEEEFloat::from_bits(bits.get_mpz_t(), f);
}
rounding_mode mode(int i) {
  return static_cast<rounding_mode>(i);
}

using oracle::Op;
auto op_of(int i) {
  return static_cast<Op>(i);
}

format const small_formats[] = {{2, 3}, {3, 4}, {4, 3}};

// Under AddressSanitizer (a Debug build) the exhaustive run keeps half
// of the pairs, every x and every y among them, to stay within a minute; the
// ordinary build checks them all.
#ifdef __SANITIZE_ADDRESS__
constexpr unsigned long pair_stride = 2;
#else
constexpr unsigned long pair_stride = 1;
#endif

// Every operation, mode and operand pair of three small formats (fma with a
// random third operand; single-operand ones on a few y only, y picks the
// width); conversions of every value among them and to Float16; rationals.
// Twice: through one double operation rounded once, and through MPFR.
TEST(FpArith, ExhaustiveOnSmallFormats) {
  std::mt19937_64 rng(14);
  Oracle const targets[] = {{2, 3}, {3, 4}, {4, 3}, {5, 11}}; // by eb
  for (bool via_double : {true, false}) {
    swflt::detail::set_double_path(via_double);
    char const* const path = via_double ? "double path" : "MPFR path";
    for (format f : small_formats) {
      Oracle const o(f.eb, f.sb);
      unsigned long const n = 1ul << (f.eb + f.sb);
      for (int rm = 0; rm < 5; ++rm) {
        for (unsigned long x = 0; x < n; ++x) {
          for (format to : {format{2, 3}, format{3, 4}, format{4, 3}, format{5, 11}})
            ASSERT_EQ(bits_of(convert(mode(rm), value(x, f), to)),
                      targets[to.eb - 2].convert(rm, o, x))
                << path << " " << rm << " " << value(x, f).to_str() << " to (" << to.eb << ","
                << to.sb << ")";
          for (unsigned long y = x % pair_stride; y < n; y += pair_stride) {
            for (int op = 0; op < static_cast<int>(Op::count); ++op) {
              Op const k = op_of(op);
              bool const binary =
                  k <= Op::fma || k == Op::rem || k == Op::min || k == Op::max || k == Op::compare;
              if (!binary && y >= 6 * pair_stride) continue;
              ASSERT_EQ(oracle::check(o, {k, rm, f, x, y, rng() % n, y == 5 ? 64 : y + 1}), "")
                  << path;
            }
          }
        }
        for (long num = -70; num <= 70; ++num)
          for (long den = 1; den <= 24; ++den)
            ASSERT_EQ(bits_of(from_rational(mode(rm), QNumber(num, den), f)),
                      o.round_q(mpq_class(num, den), rm, false))
                << path << " " << num << "/" << den;
      }
    }
  }
  swflt::detail::set_double_path(true);
}

// Random operands in Float16/32/64 (the hardware fast paths), Float128 and
// odd wide formats, favouring the edges.  In formats of at most 64 bits also
// sparse significands near 1, which make exact ties for add, mul and fma
// that random patterns almost never do; the double path rounds those itself.
TEST(FpArith, RandomOperandsAndTiesInWiderFormats) {
  std::mt19937_64 rng(1414);
  for (format f : {format{5, 11}, format{8, 24}, format{11, 53}, format{15, 113}, format{4, 12},
                   format{10, 47}, format{15, 64}, format{3, 60}}) {
    Oracle const o(f.eb, f.sb);
    auto const pattern = [&] { return oracle::random_pattern(rng, f.eb, f.sb); };
    auto const sparse = [&] {
      mpz_class const exp = (mpz_class(1) << (f.eb - 1)) - 1 + static_cast<long>(rng() % 3) - 1;
      mpz_class const trail = (mpz_class(1) << (rng() % (f.sb - 1))) + rng() % 2;
      return mpz_class((mpz_class(rng() % 2) << f.eb | exp) << (f.sb - 1) | trail);
    };
    // Wide formats cost the oracle most; the peer test covers them in bulk.
    for (int i = 0; i < (f.eb + f.sb <= 64 ? 2000 : 300); ++i) {
      Op const op = op_of(static_cast<int>(rng() % static_cast<int>(Op::count)));
      int const rm = static_cast<int>(rng() % 5);
      ASSERT_EQ(oracle::check(o, {op, rm, f, pattern(), pattern(), pattern(), 1 + rng() % 70}), "");
      if (f.eb + f.sb > 64) continue;
      Op const k = op_of(static_cast<int>(rng() % 3) * 2); // add, mul or fma
      ASSERT_EQ(oracle::check(o, {k, rm, f, sparse(), sparse(), sparse(), 1}), "");
    }
  }
}

// Exponent ranges beyond the oracle's reach (eb up to 60): values near 1 must
// behave exactly as in (11, sb), and the ends of the range must overflow and
// underflow by the rules.
TEST(FpArith, WideExponentRanges) {
  std::mt19937_64 rng(60);
  for (format f : {format{31, 6}, format{40, 6}, format{60, 4}, format{45, 19}}) {
    format const mid{11, f.sb};
    auto const near_one = [&] {
      mpz_class const exp = 1023 - 60 + static_cast<long>(rng() % 120);
      mpz_class const bits = (mpz_class(rng() % 2) << (10 + f.sb)) | exp << (f.sb - 1) |
                             mpz_class(static_cast<unsigned long>(rng()) % (1ul << (f.sb - 1)));
      return value(bits, mid);
    };
    auto const wide = [&](IEEEFloat const& x) { return convert(RNE, x, f); };
    for (int i = 0; i < 300; ++i) {
      rounding_mode const m = mode(static_cast<int>(rng() % 5));
      IEEEFloat const x = near_one(), y = near_one(), z = near_one();
      IEEEFloat const wx = wide(x), wy = wide(y), wz = wide(z);
      ASSERT_EQ(bits_of(convert(RNE, wx, mid)), bits_of(x));
      auto back = [&](IEEEFloat const& r) { return convert(RNE, r, mid).to_str(); };
      EXPECT_EQ(back(add(m, wx, wy)), add(m, x, y).to_str());
      EXPECT_EQ(back(mul(m, wx, wy)), mul(m, x, y).to_str());
      EXPECT_EQ(back(div(m, wx, wy)), div(m, x, y).to_str());
      EXPECT_EQ(back(fma(m, wx, wy, wz)), fma(m, x, y, z).to_str());
      EXPECT_EQ(back(sqrt(m, abs(wx))), sqrt(m, abs(x)).to_str());
      EXPECT_EQ(back(rem(wx, wy)), rem(x, y).to_str());
      EXPECT_EQ(back(round_to_integral(m, wx)), round_to_integral(m, x).to_str());
      EXPECT_EQ(to_sbv(m, wx, 40).value_or(QNumber(7, 3)),
                to_sbv(m, x, 40).value_or(QNumber(7, 3)));
    }
    // The largest finite value and the smallest subnormal.
    mpz_class const inf_bits = ((mpz_class(1) << f.eb) - 1) << (f.sb - 1);
    IEEEFloat const big = value(inf_bits - 1, f), tiny = value(1, f),
                    two = wide(value(mpz_class(1024) << (f.sb - 1), mid));
    IEEEFloat const inf = IEEEFloat::inf(f, false);
    EXPECT_EQ(bits_of(mul(RTZ, big, big)), bits_of(big));
    EXPECT_EQ(bits_of(mul(RNE, big, big)), bits_of(inf));
    EXPECT_EQ(bits_of(add(RTP, big, tiny)), bits_of(inf));
    EXPECT_EQ(bits_of(add(RNE, big, tiny)), bits_of(big));
    EXPECT_EQ(bits_of(mul(RTP, tiny, tiny)), bits_of(tiny));
    EXPECT_TRUE(mul(RNE, tiny, tiny).is_zero());
    EXPECT_TRUE(div(RNE, tiny, two).is_zero()); // halfway, to the even zero
    EXPECT_EQ(bits_of(div(RNA, tiny, two)), bits_of(tiny));
    EXPECT_FALSE(to_ubv(RNE, big, 64).has_value());
    EXPECT_EQ(bits_of(rem(big, tiny)), 0);
    if (f.eb > 31) {
      EXPECT_THROW(to_real(big), std::length_error);
    }
  }
}

TEST(FpArith, RejectsBadInput) {
  auto const rejects = [](auto&& f, std::string const& what) {
    EXPECT_THAT(f, ThrowsMessage<std::invalid_argument>(HasSubstr(what)));
  };
  IEEEFloat const a(format{8, 24}, RNE), b(format{11, 53}, RNE);
  mpz_class const nine(9);
  rejects([&] { add(RNE, a, b); }, "(8, 24) and (11, 53)");
  rejects([&] { fma(RNE, a, a, b); }, "fma");
  rejects([&] { add(static_cast<rounding_mode>(7), a, a); }, "rounding mode 7");
  rejects([&] { to_ubv(RNE, a, 0); }, "width 0");
  rejects([&] { from_sbv(RNE, nine.get_mpz_t(), 3, format{8, 24}); }, "9 does not fit 3 bits");
  rejects([&] { from_rational_text(RNE, "1.2.3", format{8, 24}); }, "\"1.2.3\"");
  rejects([&] { convert(RNE, a, format{0, 0}); }, "(0, 0)");
  rejects([&] { sqrt(RNE, IEEEFloat(format{61, 4}, RNE)); }, "(61, 4)");
  rejects([] { parse_rounding_mode("RNX"); }, "RNX");
  EXPECT_EQ(parse_rounding_mode("roundTowardNegative"), RTN);
  // Text forms of rationals agree with the fraction.
  format const f{11, 53};
  EXPECT_EQ(from_rational_text(RTP, "-1.25", f).to_double(), -1.25);
  EXPECT_EQ(from_rational_text(RTP, "1/3", f).to_double(),
            from_rational(RTP, QNumber(1, 3), f).to_double());
  EXPECT_EQ(from_rational_text(RNE, "-7", f).to_double(), -7.0);
}

// GMP's allocator is MPFR's too: once the scratch is warm, no operation on
// a narrow format calls it.
TEST(FpArith, NarrowFormatsAllocateNothingOnceWarm) {
  void* (*old_alloc)(std::size_t);
  void* (*old_realloc)(void*, std::size_t, std::size_t);
  void (*old_free)(void*, std::size_t);
  mp_get_memory_functions(&old_alloc, &old_realloc, &old_free);
  static int calls = 0;
  auto const count_alloc = [](std::size_t n) { return ++calls, std::malloc(n); };
  auto const count_realloc = [](void* p, std::size_t, std::size_t n) {
    return ++calls, std::realloc(p, n);
  };
  for (format f : {format{11, 53}, format{5, 11}, format{10, 47}}) {
    IEEEFloat const x = from_rational(RNE, QNumber(10, 3), f),
                    y = from_rational(RNE, QNumber(-7, 5), f);
    // The smallest normal value over 10/3: a subnormal result.
    IEEEFloat const least = IEEEFloat::from_bits(std::uint64_t{1} << (f.sb - 1), f);
    auto const run = [&] {
      for (int rm = 0; rm < 5; ++rm)
        (void)(add(mode(rm), x, y).is_nan() + mul(mode(rm), x, y).is_nan() +
               div(mode(rm), least, x).is_nan() + div(mode(rm), x, y).is_nan() +
               fma(mode(rm), x, y, x).is_nan() + sqrt(mode(rm), x).is_nan() + rem(x, y).is_nan() +
               round_to_integral(mode(rm), x).is_nan() +
               convert(mode(rm), x, format{8, 24}).is_nan());
    };
    run(); // warm up the scratch
    mp_set_memory_functions(count_alloc, count_realloc, old_free);
    calls = 0;
    run();
    mp_set_memory_functions(old_alloc, old_realloc, old_free);
    EXPECT_EQ(calls, 0) << f.eb << "," << f.sb;
  }
}

} // namespace
} // namespace qorv::swflt
