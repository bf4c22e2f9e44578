// Arithmetic and conversions against the exact oracle: every operation, mode
// and operand pair of three small formats (a sample of triples for fma),
// conversions among them and from every short bit-vector; random operands in
// Float16/32/64 (the hardware fast paths), Float128 and odd wide formats; the
// errors for bad input; no allocation per operation on narrow formats.
#include "tests/common/exact_fp_oracle.h"
#include "host/fp_arith.h"
#include "host/fp_convert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace qorv::swflt {
namespace {

using format = IEEEFloat::format;
using oracle::Oracle;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
constexpr int kRNEIndex = 0;

mpz_class bits_of(IEEEFloat const& x) {
  mpz_class z;
  x.get_bits(z.get_mpz_t());
  return z;
}
IEEEFloat value(mpz_class const& bits, format f) {
  return IEEEFloat::from_bits(bits.get_mpz_t(), f);
}
std::string show(std::optional<IEEEFloat> const& v) {
  return v ? v->to_str() : "unspecified";
}
std::string show(std::optional<mpz_class> const& v, format f) {
  return v ? value(*v, f).to_str() : "unspecified";
}
rounding_mode mode(int i) {
  return static_cast<rounding_mode>(i);
}

// Checks every operation on the operands x, y, z (patterns of format f).
// Mode-independent operations run only under RNE.
void check_all(Oracle const& o, format f, int rm, mpz_class const& x, mpz_class const& y,
               mpz_class const& z, bool with_fma) {
  IEEEFloat const a = value(x, f), b = value(y, f), c = value(z, f);
  rounding_mode const m = mode(rm);
  auto const where = [&] {
    return std::string(rounding_mode_name(m)) + " " + a.to_str() + " " + b.to_str();
  };
  auto expect = [&](char const* op, IEEEFloat const& got, mpz_class const& want) {
    ASSERT_EQ(bits_of(got), want) << op << " " << where() << ": got " << got.to_str() << ", want "
                                  << value(want, f).to_str();
  };
  expect("add", add(m, a, b), o.add(rm, x, y));
  expect("sub", sub(m, a, b), o.sub(rm, x, y));
  expect("mul", mul(m, a, b), o.mul(rm, x, y));
  expect("div", div(m, a, b), o.div(rm, x, y));
  if (with_fma) expect("fma", fma(m, a, b, c), o.fma(rm, x, y, z));
  if (rm == kRNEIndex) {
    expect("rem", rem(a, b), o.rem(x, y));
    EXPECT_EQ(show(min(a, b)), show(o.min_max(x, y, false), f)) << "min " << where();
    EXPECT_EQ(show(max(a, b)), show(o.min_max(x, y, true), f)) << "max " << where();
    std::partial_ordering const c2 = compare(a, b);
    int const want = o.compare(x, y);
    EXPECT_EQ(c2 == std::partial_ordering::unordered ? 2
              : c2 < 0                               ? -1
              : c2 > 0                               ? 1
                                                     : 0,
              want)
        << "compare " << where();
  }
}

// Single-operand operations and conversions to integers and reals.
void check_unary(Oracle const& o, format f, int rm, mpz_class const& x) {
  IEEEFloat const a = value(x, f);
  rounding_mode const m = mode(rm);
  ASSERT_EQ(bits_of(sqrt(m, a)), o.sqrt(rm, x)) << "sqrt " << rm << " " << a.to_str();
  ASSERT_EQ(bits_of(round_to_integral(m, a)), o.round_to_integral(rm, x))
      << "roundToIntegral " << rm << " " << a.to_str();
  for (unsigned long w : {1ul, 2ul, 3ul, 5ul, 64ul}) {
    for (bool is_signed : {false, true}) {
      auto const got = is_signed ? to_sbv(m, a, w) : to_ubv(m, a, w);
      auto const want = o.to_bv(rm, x, w, is_signed);
      ASSERT_EQ(got.has_value(), want.has_value()) << "to_bv " << w << " " << a.to_str();
      ASSERT_EQ(got ? got->to_string() : "-", want ? want->get_str() : "-")
          << "to_bv " << w << a.to_str();
    }
  }
  if (rm == 0) {
    auto const r = to_real(a);
    auto const want = o.to_real(x);
    EXPECT_EQ(r ? r->to_string() : "-", want ? want->get_str() : "-") << a.to_str();
    EXPECT_EQ(bits_of(neg(a)), a.is_nan() ? o.nan() : x ^ o.sign_bit());
    EXPECT_EQ(bits_of(abs(a)), a.is_nan() ? o.nan() : x & (o.sign_bit() - 1));
    EXPECT_EQ(is_negative(a), !a.is_nan() && a.get_sign());
  }
}

format const small_formats[] = {{2, 3}, {3, 4}, {4, 3}};

TEST(FpArith, ExhaustiveOnSmallFormats) {
  std::mt19937_64 rng(14);
  for (format f : small_formats) {
    Oracle const o(f.eb, f.sb);
    unsigned long const n = 1ul << (f.eb + f.sb);
    for (int rm = 0; rm < 5; ++rm) {
      for (unsigned long x = 0; x < n; ++x) {
        check_unary(o, f, rm, x);
        for (unsigned long y = 0; y < n; ++y) {
          // fma on every pair with a third operand drawn at random.
          check_all(o, f, rm, x, y, mpz_class(rng() % n), true);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(FpArith, ExhaustiveConversions) {
  for (format from : small_formats) {
    Oracle const src(from.eb, from.sb);
    for (format to : {format{2, 3}, format{3, 4}, format{4, 3}, format{5, 11}}) {
      Oracle const dst(to.eb, to.sb);
      for (int rm = 0; rm < 5; ++rm)
        for (unsigned long x = 0; x < (1ul << (from.eb + from.sb)); ++x)
          ASSERT_EQ(bits_of(convert(mode(rm), value(x, from), to)), dst.convert(rm, src, x))
              << rm << " " << value(x, from).to_str() << " to (" << to.eb << "," << to.sb << ")";
    }
    for (int rm = 0; rm < 5; ++rm) {
      for (unsigned long w = 1; w <= 7; ++w) {
        for (unsigned long p = 0; p < (1ul << w); ++p) {
          mpz_class const bits(p);
          mpz_class const s = p >> (w - 1) ? mpz_class(mpz_class(p) - (mpz_class(1) << w)) : bits;
          ASSERT_EQ(bits_of(from_ubv(mode(rm), bits.get_mpz_t(), w, from)),
                    src.round_q(bits, rm, false));
          ASSERT_EQ(bits_of(from_sbv(mode(rm), bits.get_mpz_t(), w, from)),
                    src.round_q(s, rm, false));
        }
      }
      for (long num = -70; num <= 70; ++num)
        for (long den = 1; den <= 24; ++den)
          ASSERT_EQ(bits_of(from_rational(mode(rm), QNumber(num, den), from)),
                    src.round_q(mpq_class(num, den), rm, false))
              << num << "/" << den;
    }
  }
}

TEST(FpArith, RandomOperandsInWiderFormats) {
  std::mt19937_64 rng(1414);
  for (format f : {format{5, 11}, format{8, 24}, format{11, 53}, format{15, 113}, format{4, 12},
                   format{10, 47}, format{15, 64}, format{3, 60}}) {
    Oracle const o(f.eb, f.sb);
    // Wide formats cost the oracle most; the peer test covers them in bulk.
    for (int i = 0; i < (f.eb + f.sb <= 64 ? 400 : 60); ++i) {
      int const rm = static_cast<int>(rng() % 5);
      mpz_class const x = oracle::random_pattern(rng, f.eb, f.sb),
                      y = oracle::random_pattern(rng, f.eb, f.sb),
                      z = oracle::random_pattern(rng, f.eb, f.sb);
      check_all(o, f, i % 3 == 0 ? 0 : rm, x, y, z, true);
      check_unary(o, f, rm, x);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(FpArith, RejectsBadInput) {
  IEEEFloat const a(format{8, 24}, RNE), b(format{11, 53}, RNE);
  EXPECT_THAT([&] { add(RNE, a, b); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("(8, 24) and (11, 53)")));
  EXPECT_THAT([&] { fma(RNE, a, a, b); }, ThrowsMessage<std::invalid_argument>(HasSubstr("fma")));
  EXPECT_THAT([&] { add(static_cast<rounding_mode>(7), a, a); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("rounding mode 7")));
  EXPECT_THAT([&] { to_ubv(RNE, a, 0); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("width 0")));
  mpz_class const nine(9);
  EXPECT_THAT(
      [&] {
        from_sbv(RNE, nine.get_mpz_t(), 3, format{8, 24});
      },
      ThrowsMessage<std::invalid_argument>(HasSubstr("9 does not fit 3 bits")));
  EXPECT_THAT(
      [&] {
        from_rational_text(RNE, "1.2.3", format{8, 24});
      },
      ThrowsMessage<std::invalid_argument>(HasSubstr("\"1.2.3\"")));
  EXPECT_THAT(
      [&] {
        convert(RNE, a, format{0, 0});
      },
      ThrowsMessage<std::invalid_argument>(HasSubstr("(0, 0)")));
  EXPECT_THAT(
      [&] {
        sqrt(RNE, IEEEFloat(format{61, 4}, RNE));
      },
      ThrowsMessage<std::invalid_argument>(HasSubstr("(61, 4)")));
  EXPECT_THAT([] { parse_rounding_mode("RNX"); },
              ThrowsMessage<std::invalid_argument>(HasSubstr("RNX")));
  EXPECT_EQ(parse_rounding_mode("roundTowardNegative"), RTN);
  // Text forms of rationals agree with the fraction.
  format const f{11, 53};
  EXPECT_EQ(from_rational_text(RTP, "-1.25", f).to_double(), -1.25);
  EXPECT_EQ(from_rational_text(RTP, "1/3", f).to_double(),
            from_rational(RTP, QNumber(1, 3), f).to_double());
  EXPECT_EQ(from_rational_text(RNE, "-7", f).to_double(), -7.0);
}

// GMP's allocator is MPFR's too; count its calls next to operator new.
int gmp_allocations = 0;
void* counting_alloc(std::size_t n) {
  ++gmp_allocations;
  return std::malloc(n);
}
void* counting_realloc(void* p, std::size_t, std::size_t n) {
  ++gmp_allocations;
  return std::realloc(p, n);
}
void counting_free(void* p, std::size_t) {
  std::free(p);
}

TEST(FpArith, NarrowFormatsAllocateNothingOnceWarm) {
  void* (*old_alloc)(std::size_t);
  void* (*old_realloc)(void*, std::size_t, std::size_t);
  void (*old_free)(void*, std::size_t);
  mp_get_memory_functions(&old_alloc, &old_realloc, &old_free);
  for (format f : {format{11, 53}, format{5, 11}, format{10, 47}}) {
    IEEEFloat const x = from_rational(RNE, QNumber(10, 3), f),
                    y = from_rational(RNE, QNumber(-7, 5), f);
    auto const run = [&] {
      for (int rm = 0; rm < 5; ++rm)
        (void)(add(mode(rm), x, y).is_nan() + mul(mode(rm), x, y).is_nan() +
               div(mode(rm), x, y).is_nan() + fma(mode(rm), x, y, x).is_nan() +
               sqrt(mode(rm), x).is_nan() + rem(x, y).is_nan() +
               round_to_integral(mode(rm), x).is_nan() +
               convert(mode(rm), x, format{8, 24}).is_nan());
    };
    run(); // warm up the scratch
    mp_set_memory_functions(counting_alloc, counting_realloc, counting_free);
    gmp_allocations = 0;
    run();
    mp_set_memory_functions(old_alloc, old_realloc, old_free);
    EXPECT_EQ(gmp_allocations, 0) << f.eb << "," << f.sb;
  }
}

} // namespace
} // namespace qorv::swflt
