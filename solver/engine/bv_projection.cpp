// Forward projections of the bit-vector operations (see bv_projection.h).
#include "engine/bv_projection.h"

#include "engine/bv_int.h"
#include "engine/bv_ops.h"

#include "host/fp_convert.h"
#include "host/packed_rank.h"

#include <optional>

namespace fpsolve {

namespace {

namespace sw = qorv::swflt;

mpz_class pow2(std::uint64_t n) {
  return pow2z<mpz_class>(n);
}

mpz_class rank_z(IEEEFloat const& v) {
  mpz_class z;
  qorv::packed_rank(v, z.get_mpz_t());
  return z;
}

IEEEFloat value_z(mpz_class const& r, IEEEFloat::format f) {
  return qorv::from_packed_rank(r.get_mpz_t(), f);
}

struct Hull {
  BvSet out{false, 1, 0};
  void add(mpz_class const& l, mpz_class const& h) {
    if (h < l) return;
    bool const empty = !out.has_num();
    if (empty || l < out.lo) out.lo = l;
    if (empty || out.hi < h) out.hi = h;
  }
  // Two results of a monotone conversion, joined in the numeric order and
  // widened to both zeros when the range touches zero (keys: -0 and +0 are 0).
  void add_keys(IEEEFloat const& x, IEEEFloat const& y) {
    for (IEEEFloat const* v : {&x, &y})
      if (v->is_nan()) out.nan = true;
    if (x.is_nan() || y.is_nan()) return;
    auto key = [](mpz_class const& r) { return r >= 0 ? mpz_class(r) : mpz_class(r + 1); };
    mpz_class kx = key(rank_z(x)), ky = key(rank_z(y));
    if (ky < kx) std::swap(kx, ky);
    add(kx > 0 ? kx : mpz_class(kx - 1), ky >= 0 ? ky : mpz_class(ky - 1));
  }
};

// The non-negative and the negative half of a two's complement range of
// width m: [lo, hi] cut at 2^(m-1).
struct Halves {
  mpz_class lo0, hi0, lo1, hi1; // a half is empty when its lo > hi
  Halves(BvSet const& x, std::uint32_t m) {
    mpz_class const s = pow2(m - 1);
    lo0 = x.lo;
    hi0 = x.hi < s ? x.hi : mpz_class(s - 1);
    lo1 = x.lo > s ? x.lo : s;
    hi1 = x.hi;
  }
};

// fp.to_ubv / fp.to_sbv: monotone where specified; anything of the width
// where some value of the box (NaN included) is out of range.
BvSet project_to_bv(FpOp op, BvSet const& x, IEEEFloat::format xf, unsigned modes,
                    std::uint32_t n) {
  mpz_class const m = pow2(n);
  BvSet const full{false, 0, m - 1};
  if (x.nan || !x.has_num()) return full;
  IEEEFloat const lo = value_z(x.lo, xf), hi = value_z(x.hi, xf);
  Hull h;
  for (int md = 0; md < 5; ++md) {
    if (!(modes >> md & 1)) continue;
    auto const rm = static_cast<IEEEFloat::rounding_mode>(md);
    auto const a = op == FpOp::ubv_of_fp ? sw::to_ubv(rm, lo, n) : sw::to_sbv(rm, lo, n);
    auto const b = op == FpOp::ubv_of_fp ? sw::to_ubv(rm, hi, n) : sw::to_sbv(rm, hi, n);
    if (!a || !b) return full;
    mpz_class za, zb;
    a->get_num(za.get_mpz_t());
    b->get_num(zb.get_mpz_t());
    if (za < 0 && zb >= 0) return full; // the negative part wraps to the top
    if (za < 0) {
      za += m;
      zb += m;
    }
    h.add(za, zb);
  }
  return h.out;
}

// to_fp of a bit pattern: each sign half maps monotonically (increasing for
// the positive half, decreasing for the negative) onto ranks, and the
// patterns beyond infinity are NaN.
BvSet project_bits(BvSet const& x, IEEEFloat::format f) {
  mpz_class const s = pow2(f.eb + f.sb - 1);
  mpz_class const inf = rank_z(IEEEFloat::inf(f, false));
  Halves const hv(x, static_cast<std::uint32_t>(f.eb + f.sb));
  Hull h;
  if (hv.lo0 <= hv.hi0) {
    if (hv.lo0 <= inf) h.add(hv.lo0, hv.hi0 < inf ? hv.hi0 : inf);
    if (hv.hi0 > inf) h.out.nan = true;
  }
  if (hv.lo1 <= hv.hi1) {
    mpz_class const ml = hv.lo1 - s, mh = hv.hi1 - s;
    if (ml <= inf) h.add(-(mh < inf ? mh : inf) - 1, -ml - 1);
    if (mh > inf) h.out.nan = true;
  }
  return h.out;
}

} // namespace

template <class Z>
BvRange<Z> project_bv_ints(FpOp op, BvRange<Z> const* a, std::uint32_t const* widths,
                           std::size_t count, std::uint32_t n) {
  using Rg = BvRange<Z>;
  Z const m = pow2z<Z>(n), top = m - 1;
  Rg const full{Z(0), top};
  bool single = true;
  for (std::size_t i = 0; i < count; ++i) {
    if (a[i].hi < a[i].lo) return Rg{Z(1), Z(0)}; // an operand without values
    single = single && a[i].lo == a[i].hi;
  }
  Rg const& x = a[0];
  if (single && op <= FpOp::bv_ashr) {
    Z const v[2] = {a[0].lo, count > 1 ? a[1].lo : Z(0)};
    Z const r = bv_arith(op, v, n);
    return Rg{r, r};
  }
  auto wrapping = [&](Z const& l, Z const& h) {
    if (h < m && l >= 0) return Rg{l, h};
    if (l >= m) return Rg{Z(l - m), Z(h - m)};
    if (h < 0) return Rg{Z(l + m), Z(h + m)};
    return full;
  };
  // 2^k - 1 for the least k with max < 2^k: every value of at most max's bits.
  auto ones_up_to = [](Z const& max) { return Z(pow2z<Z>(bitlen(max)) - 1); };
  auto larger = [](Z const& p, Z const& q) { return p < q ? q : p; };
  auto smaller = [](Z const& p, Z const& q) { return q < p ? q : p; };
  switch (op) {
  case FpOp::bv_not:
    return Rg{Z(top - x.hi), Z(top - x.lo)};
  case FpOp::bv_neg:
    return x.hi == 0 ? Rg{Z(0), Z(0)} : x.lo > 0 ? Rg{Z(m - x.hi), Z(m - x.lo)} : full;
  case FpOp::bv_and:
    return Rg{Z(0), smaller(x.hi, a[1].hi)};
  case FpOp::bv_or:
    return Rg{larger(x.lo, a[1].lo), ones_up_to(larger(x.hi, a[1].hi))};
  case FpOp::bv_xor:
    return Rg{Z(0), ones_up_to(larger(x.hi, a[1].hi))};
  case FpOp::bv_add:
    return wrapping(Z(x.lo + a[1].lo), Z(x.hi + a[1].hi));
  case FpOp::bv_sub:
    return wrapping(Z(x.lo - a[1].hi), Z(x.hi - a[1].lo));
  case FpOp::bv_mul: {
    Z const hi = x.hi * a[1].hi;
    return hi < m ? Rg{Z(x.lo * a[1].lo), hi} : full;
  }
  case FpOp::bv_udiv: {
    Rg const& y = a[1];
    Rg r{Z(1), Z(0)};
    if (y.hi > 0) r = Rg{Z(x.lo / y.hi), Z(x.hi / larger(y.lo, Z(1)))};
    if (y.lo == 0) r = r.hi < r.lo ? Rg{top, top} : Rg{r.lo, top}; // division by zero
    return r;
  }
  case FpOp::bv_urem: {
    Rg const& y = a[1];
    if (y.lo == 0) return Rg{Z(0), x.hi}; // x % 0 is x
    if (x.hi < y.lo) return x;            // no operand reaches the divisor
    return Rg{Z(0), smaller(x.hi, Z(y.hi - 1))};
  }
  case FpOp::bv_shl: {
    Rg const& y = a[1];
    if (y.lo >= Z(n)) return Rg{Z(0), Z(0)};
    if (y.hi >= Z(n)) return full;
    Z const hi = x.hi << shift_count(y.hi, n);
    return hi < m ? Rg{Z(x.lo << shift_count(y.lo, n)), hi} : full;
  }
  case FpOp::bv_lshr:
    return Rg{Z(x.lo >> shift_count(a[1].hi, n)), Z(x.hi >> shift_count(a[1].lo, n))};
  case FpOp::bv_concat: {
    std::uint32_t const k = widths[1];
    return Rg{Z(Z(x.lo << k) + a[1].lo), Z(Z(x.hi << k) + a[1].hi)};
  }
  case FpOp::bv_trunc:
    if (Z(x.lo >> n) != Z(x.hi >> n)) return full;
    return Rg{Z(x.lo & top), Z(x.hi & top)};
  case FpOp::bv_sext: { // each sign half moves as a block
    std::uint32_t const w = widths[0];
    Z const half = pow2z<Z>(w - 1), up = m - pow2z<Z>(w);
    Z const lo = x.lo < half ? x.lo : Z(x.lo + up);
    Z const hi = x.hi < half ? x.hi : Z(x.hi + up);
    return Rg{lo, hi};
  }
  case FpOp::bv_ashr: { // each sign half is monotone in x and in the shift
    Rg const& y = a[1];
    Z const half = pow2z<Z>(n - 1);
    auto shifted = [&](Z const& v, Z const& k) {
      std::uint64_t const s = shift_count(k, n);
      Z r = v >> s;
      if (v >= half) r += top - (pow2z<Z>(n - s) - 1); // the copied sign bits
      return r;
    };
    Rg r{Z(1), Z(0)};
    if (x.lo < half) r = Rg{shifted(x.lo, y.hi), shifted(smaller(x.hi, Z(half - 1)), y.lo)};
    if (x.hi >= half) {
      Z const l = shifted(larger(x.lo, half), y.lo), h = shifted(x.hi, y.hi);
      r = r.hi < r.lo ? Rg{l, h} : Rg{r.lo, larger(r.hi, h)};
    }
    return r;
  }
  default: // the signed division family: only 0 / y, 0 rem y and 0 mod y are known
    if (x.hi == 0 && op != FpOp::bv_sdiv) return Rg{Z(0), Z(0)};
    if (x.hi == 0) return a[1].lo > 0 ? Rg{Z(0), Z(0)} : full; // 0 / 0 is all ones
    return full;
  }
}

template BvRange<mpz_class> project_bv_ints(FpOp, BvRange<mpz_class> const*, std::uint32_t const*,
                                            std::size_t, std::uint32_t);
template BvRange<qorv::Rank128> project_bv_ints(FpOp, BvRange<qorv::Rank128> const*,
                                                std::uint32_t const*, std::size_t, std::uint32_t);

BvSet project_bv(FpOp op, std::vector<BvSet> const& a, std::vector<IEEEFloat::format> const& fmts,
                 unsigned modes, IEEEFloat::format rfmt) {
  std::uint32_t const n = bv_width(rfmt);
  for (BvSet const& b : a)
    if (!b.nan && !b.has_num()) return BvSet{false, 1, 0}; // an operand without values
  bool single = true;
  for (BvSet const& b : a)
    single = single && b.single();
  if (single && op >= FpOp::fp_of_bits && op != FpOp::ubv_of_fp && op != FpOp::sbv_of_fp) {
    std::vector<IEEEFloat> args;
    for (std::size_t i = 0; i < a.size(); ++i)
      args.push_back(a[i].has_num() ? value_z(a[i].lo, fmts[i]) : IEEEFloat::nan(fmts[i]));
    Hull h;
    for (int md = 0; md < 5; ++md)
      if (modes >> md & 1) {
        // Every operation here but the two conversions to bit-vectors is specified.
        IEEEFloat const r = *bv_apply(op, static_cast<IEEEFloat::rounding_mode>(md), args, rfmt);
        if (r.is_nan())
          h.out.nan = true;
        else
          h.add(rank_z(r), rank_z(r));
      }
    return h.out;
  }
  switch (op) {
  case FpOp::fp_of_bits:
    return project_bits(a[0], rfmt);
  case FpOp::fp_of_ubv:
  case FpOp::fp_of_sbv: {
    std::uint32_t const m = bv_width(fmts[0]);
    Halves const hv(a[0], m);
    Hull h;
    auto ends = [&](mpz_class const& l, mpz_class const& u) {
      if (u < l) return;
      for (int md = 0; md < 5; ++md)
        if (modes >> md & 1) {
          auto const rm = static_cast<IEEEFloat::rounding_mode>(md);
          auto conv = [&](mpz_class const& z) {
            return op == FpOp::fp_of_ubv ? sw::from_ubv(rm, z.get_mpz_t(), m, rfmt)
                                         : sw::from_sbv(rm, z.get_mpz_t(), m, rfmt);
          };
          h.add_keys(conv(l), conv(u));
        }
    };
    if (op == FpOp::fp_of_ubv) {
      ends(a[0].lo, a[0].hi);
    } else { // each half is monotone in the signed value
      ends(hv.lo0, hv.hi0);
      ends(hv.lo1, hv.hi1);
    }
    return h.out;
  }
  case FpOp::ubv_of_fp:
  case FpOp::sbv_of_fp:
    return project_to_bv(op, a[0], fmts[0], modes, n);
  default: {
    std::vector<BvRange<mpz_class>> r;
    std::vector<std::uint32_t> widths;
    for (std::size_t i = 0; i < a.size(); ++i) {
      r.push_back({a[i].lo, a[i].hi});
      widths.push_back(bv_width(fmts[i]));
    }
    BvRange<mpz_class> const out = project_bv_ints(op, r.data(), widths.data(), r.size(), n);
    return BvSet{false, out.lo, out.hi};
  }
  }
}

} // namespace fpsolve
