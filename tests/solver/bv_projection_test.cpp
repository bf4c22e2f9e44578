// The bit-vector projections are sound: for every operand box of tiny widths
// and formats, every exact result of every value combination lies in the
// projected set, on the GMP path and on the 128-bit path alike (which must
// also agree with each other).  A hull rule that forgets a wrap, a sign half
// or a shift past the width fails here with the box that shows it.
#include "engine/bv_ops.h"
#include "engine/bv_projection.h"

#include "host/packed_rank.h"

#include "engine/bv_int.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace fpsolve {
namespace {

using Rg = BvRange<mpz_class>;

std::vector<Rg> all_ranges(int n) {
  std::vector<Rg> out;
  for (int lo = 0; lo < (1 << n); ++lo)
    for (int hi = lo; hi < (1 << n); ++hi)
      out.push_back({lo, hi});
  return out;
}

std::string text(Rg const& r) {
  return "[" + r.lo.get_str() + ", " + r.hi.get_str() + "]";
}

TEST(BvProjection, EveryOperationContainsEveryResultOfItsBox) {
  struct Shape {
    FpOp op;
    std::uint32_t w0, w1, n; // operand widths (w1 0: unary) and result width
  };
  std::vector<Shape> shapes;
  for (int o = static_cast<int>(FpOp::bv_not); o <= static_cast<int>(FpOp::bv_ashr); ++o) {
    auto const op = static_cast<FpOp>(o);
    bool const unary = op == FpOp::bv_not || op == FpOp::bv_neg;
    shapes.push_back({op, 3, unary ? 0u : 3u, 3});
  }
  shapes.push_back({FpOp::bv_concat, 2, 3, 5});
  shapes.push_back({FpOp::bv_trunc, 5, 0, 3});
  shapes.push_back({FpOp::bv_sext, 3, 0, 5});
  for (Shape const& s : shapes) {
    std::vector<Rg> const xs = all_ranges(static_cast<int>(s.w0));
    std::vector<Rg> const ys = s.w1 ? all_ranges(static_cast<int>(s.w1)) : std::vector<Rg>{{0, 0}};
    std::uint32_t const widths[2] = {s.w0, s.w1};
    for (Rg const& x : xs)
      for (Rg const& y : ys) {
        Rg const box[2] = {x, y};
        std::size_t const count = s.w1 ? 2 : 1;
        Rg const r = project_bv_ints(s.op, box, widths, count, s.n);
        BvRange<qorv::Rank128> const small[2] = {
            {static_cast<qorv::Rank128>(x.lo.get_ui()), static_cast<qorv::Rank128>(x.hi.get_ui())},
            {static_cast<qorv::Rank128>(y.lo.get_ui()), static_cast<qorv::Rank128>(y.hi.get_ui())}};
        BvRange<qorv::Rank128> const r128 = project_bv_ints(s.op, small, widths, count, s.n);
        std::string const where = "op " + std::to_string(static_cast<int>(s.op)) + " on " +
                                  text(x) + (s.w1 ? " " + text(y) : "");
        ASSERT_TRUE(r128.lo == static_cast<qorv::Rank128>(r.lo.get_ui()) &&
                    r128.hi == static_cast<qorv::Rank128>(r.hi.get_ui()))
            << where;
        for (mpz_class a = x.lo; a <= x.hi; ++a)
          for (mpz_class b = y.lo; b <= y.hi; ++b) {
            std::vector<IEEEFloat> args{bv_make(a, s.w0)};
            if (s.w1) args.push_back(bv_make(b, s.w1));
            mpz_class const z =
                bv_value(*bv_apply(s.op, IEEEFloat::rm_nearest_even, args, bv_format(s.n)));
            ASSERT_TRUE(r.lo <= z && z <= r.hi)
                << where << " gives " << text(r) << " without " << z.get_str();
          }
      }
  }
}

// Wide bit-vectors on the 128-bit path (every operation that fits_128 up to
// 125 bits): random boxes must project exactly as on the GMP path, so no
// intermediate value overflows.
TEST(BvProjection, WideBoxesTakeThe128BitPathExactly) {
  std::mt19937_64 rng(5);
  auto value = [&](std::uint32_t w) {
    mpz_class z = 0;
    for (std::uint32_t i = 0; i < w; i += 32)
      z = (z << 32) + static_cast<unsigned long>(rng() & 0xffffffffu);
    mpz_fdiv_r_2exp(z.get_mpz_t(), z.get_mpz_t(), w);
    if (rng() % 4 == 0) z = rng() % 2 ? mpz_class(0) : mpz_class((mpz_class(1) << w) - 1);
    return z;
  };
  auto to128 = [](mpz_class const& z) {
    qorv::Rank128 r = 0;
    for (int i = static_cast<int>(mpz_sizeinbase(z.get_mpz_t(), 2)); i-- > 0;)
      r = (r << 1) |
          static_cast<qorv::Rank128>(mpz_tstbit(z.get_mpz_t(), static_cast<mp_bitcnt_t>(i)));
    return r;
  };
  for (int round = 0; round < 20000; ++round) {
    auto const op =
        static_cast<FpOp>(static_cast<int>(FpOp::bv_not) + static_cast<int>(rng() % 19));
    bool const unary =
        op == FpOp::bv_not || op == FpOp::bv_neg || op == FpOp::bv_trunc || op == FpOp::bv_sext;
    std::uint32_t const n = 63 + static_cast<std::uint32_t>(rng() % (kWideBvWidth - 62));
    if (!fits_128(op, n)) continue;
    std::uint32_t w0 = n, w1 = unary ? 0 : n, out = n;
    if (op == FpOp::bv_concat) {
      w0 = 1 + static_cast<std::uint32_t>(rng() % (n - 1));
      w1 = n - w0;
    } else if (op == FpOp::bv_trunc) {
      out = 1 + static_cast<std::uint32_t>(rng() % n);
    } else if (op == FpOp::bv_sext) {
      w0 = 1 + static_cast<std::uint32_t>(rng() % n);
    }
    Rg box[2];
    std::uint32_t const widths[2] = {w0, w1};
    for (int i = 0; i < (unary ? 1 : 2); ++i) {
      mpz_class a = value(widths[i]), b = rng() % 3 == 0 ? a : value(widths[i]);
      if (b < a) std::swap(a, b);
      box[i] = {a, b};
    }
    std::size_t const count = unary ? 1 : 2;
    Rg const r = project_bv_ints(op, box, widths, count, out);
    BvRange<qorv::Rank128> const small[2] = {{to128(box[0].lo), to128(box[0].hi)},
                                             {to128(box[1].lo), to128(box[1].hi)}};
    BvRange<qorv::Rank128> const r128 = project_bv_ints(op, small, widths, count, out);
    ASSERT_TRUE(r.hi < r.lo ? r128.hi < r128.lo : r128.lo == to128(r.lo) && r128.hi == to128(r.hi))
        << "op " << static_cast<int>(op) << " widths " << w0 << " " << w1 << " on " << text(box[0])
        << " " << text(box[1]) << " gives " << text(r);
  }
}

// The conversions between bit-vectors of 5 (patterns) or 3 bits and floats
// of (2, 3), under each rounding mode alone and under all five at once.
TEST(BvProjection, ConversionsContainEveryResultOfTheirBox) {
  IEEEFloat::format const f{2, 3};
  auto rank = [](IEEEFloat const& v) {
    mpz_class z;
    qorv::packed_rank(v, z.get_mpz_t());
    return z;
  };
  mpz_class const nan_rank = -rank(IEEEFloat::inf(f, false)) - 2;
  auto contains = [&](BvSet const& s, IEEEFloat const& v) {
    if (v.is_nan()) return s.nan;
    mpz_class const r = rank(v);
    return s.lo <= r && r <= s.hi;
  };
  struct Case {
    FpOp op;
    std::uint32_t width; // of the bit-vector side
  };
  for (Case const c :
       {Case{FpOp::fp_of_bits, 5}, Case{FpOp::fp_of_ubv, 3}, Case{FpOp::fp_of_sbv, 3},
        Case{FpOp::ubv_of_fp, 3}, Case{FpOp::sbv_of_fp, 3}})
    for (unsigned modes : {1u, 2u, 4u, 8u, 16u, 31u}) {
      bool const from_bv = c.op != FpOp::ubv_of_fp && c.op != FpOp::sbv_of_fp;
      IEEEFloat::format const in = from_bv ? bv_format(c.width) : f;
      IEEEFloat::format const out = from_bv ? f : bv_format(c.width);
      // Operand boxes: bit-vector ranges, or float rank ranges with and without NaN.
      std::vector<BvSet> boxes;
      if (from_bv) {
        for (Rg const& r : all_ranges(static_cast<int>(c.width)))
          boxes.push_back({false, r.lo, r.hi});
      } else {
        mpz_class const top = -nan_rank - 2;
        for (mpz_class lo = nan_rank + 1; lo <= top; ++lo)
          for (mpz_class hi = lo; hi <= top; ++hi)
            for (bool nan : {false, true})
              boxes.push_back({nan, lo, hi});
      }
      for (BvSet const& box : boxes) {
        BvSet const r = project_bv(c.op, {box}, {in}, modes, out);
        std::vector<IEEEFloat> values;
        for (mpz_class v = box.lo; v <= box.hi; ++v)
          values.push_back(qorv::from_packed_rank(v.get_mpz_t(), in));
        if (box.nan) values.push_back(IEEEFloat::nan(in));
        for (IEEEFloat const& v : values)
          for (int m = 0; m < 5; ++m) {
            if (!(modes >> m & 1)) continue;
            std::optional<IEEEFloat> const z =
                bv_apply(c.op, static_cast<IEEEFloat::rounding_mode>(m), {v}, out);
            std::string const where = "op " + std::to_string(static_cast<int>(c.op)) + " modes " +
                                      std::to_string(modes) + " on [" + box.lo.get_str() + ", " +
                                      box.hi.get_str() + (box.nan ? "] with NaN" : "]") + " at " +
                                      v.to_str();
            if (z) {
              ASSERT_TRUE(contains(r, *z)) << where << " misses " << z->to_str();
            } else { // unspecified: any value of the width
              ASSERT_TRUE(r.lo == 0 && r.hi == (mpz_class(1) << c.width) - 1) << where;
            }
          }
      }
    }
}

} // namespace
} // namespace fpsolve
