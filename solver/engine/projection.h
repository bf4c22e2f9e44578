// Forward projections: from sets of operand values to a set that contains
// every result of an operation (a Def other than ite) under every rounding
// mode that is still possible.
//
// Soundness rests on three facts.  Rounding is monotone, so on a box of
// operands where the exact operation is monotone in each argument (add, sub,
// sqrt, roundToIntegral, conversion) or bilinear (mul, fma's product) or
// monotone on each sign side of a divisor that excludes zero (div), the
// results lie between the rounded results at the corners.  Corners are
// compared by the numeric order (keys), and the result range is widened to
// both zeros whenever it touches zero, since the sign of a zero result
// depends on operands inside the box, not only on the corners.  Where an
// operand box contains an invalid combination (inf - inf, 0 * inf, a zero
// divisor, any infinity in fma), or for rem, min and max, the projection
// gives every value and NaN unless every operand is a single value, which is
// evaluated exactly.  An unspecified result (min or max of +0 and -0) gives
// both zeros.
#pragma once

#include "engine/apply.h"
#include "engine/bv_int.h"
#include "engine/bv_projection.h"
#include "engine/ranks.h"

#include "host/fp_convert.h"

#include <vector>

namespace fpsolve {

// An operand's possible values, with its format.
template <class R>
struct Bounds {
  Set<R> s;
  FormatRanks<R> const* f;
  IEEEFloat::format fmt;

  bool num() const { return s.has_num(); }
  bool may_pinf() const { return num() && s.hi == f->pinf; }
  bool may_ninf() const { return num() && s.lo == f->nan + 1; }
  bool may_inf() const { return may_pinf() || may_ninf(); }
  bool may_zero() const { return num() && key(s.lo) <= 0 && 0 <= key(s.hi); }
  IEEEFloat lo() const { return value_of(s.lo, fmt); }
  IEEEFloat hi() const { return value_of(s.hi, fmt); }
  IEEEFloat single_value() const { return s.nan ? IEEEFloat::nan(fmt) : lo(); }
};

// `modes` has bit m set for every rounding mode m still possible (1 for
// operations without a rounding mode).  With `same`, both operands of a
// binary operation are one term (x + x, x - x, x * x, x / x), which is
// exact where two independent boxes would not be: x - x is a zero, x * x
// is no less than zero, x / x is 1.
// The bit-vector family (bv_projection.h), its sets handed over as exact
// integers.
template <class R>
Set<R> project_bv_family(FpOp op, std::vector<Bounds<R>> const& a, unsigned modes,
                         IEEEFloat::format rfmt) {
  if constexpr (std::is_same_v<R, i128>) {
    // Between bit-vectors that fit (fits_128): on the ranks
    // themselves, without GMP.
    bool small = op <= FpOp::bv_sext && fits_128(op, bv_width(rfmt)) && a.size() <= 2;
    BvRange<i128> r[2];
    std::uint32_t widths[2];
    for (std::size_t i = 0; small && i < a.size(); ++i) {
      r[i] = {a[i].s.lo, a[i].s.hi};
      widths[i] = bv_width(a[i].fmt);
      small = fits_128(op, widths[i]);
    }
    if (small) {
      BvRange<i128> const out = project_bv_ints(op, r, widths, a.size(), bv_width(rfmt));
      return Set<R>{false, out.lo, out.hi};
    }
  }
  std::vector<BvSet> sets(a.size());
  std::vector<IEEEFloat::format> fmts;
  for (std::size_t i = 0; i < a.size(); ++i) {
    sets[i].nan = a[i].s.nan;
    rank_to_mpz(a[i].s.lo, &sets[i].lo);
    rank_to_mpz(a[i].s.hi, &sets[i].hi);
    fmts.push_back(a[i].fmt);
  }
  BvSet const r = project_bv(op, sets, fmts, modes, rfmt);
  Set<R> out{r.nan, R(1), R(0)};
  if (r.has_num()) {
    rank_from_mpz(r.lo.get_mpz_t(), &out.lo);
    rank_from_mpz(r.hi.get_mpz_t(), &out.hi);
  }
  return out;
}

template <class R>
Set<R> project(FpOp op, std::vector<Bounds<R>> const& a, unsigned modes, FormatRanks<R> const& rf,
               IEEEFloat::format rfmt, bool same = false) {
  if (bv_family(op)) {
    // One term on both sides: x xor x and x - x are 0, x and x and x or x are x.
    if (same && (op == FpOp::bv_xor || op == FpOp::bv_sub)) return Set<R>{false, R(0), R(0)};
    if (same && (op == FpOp::bv_and || op == FpOp::bv_or)) return a[0].s;
    return project_bv_family(op, a, modes, rfmt);
  }
  Set<R> out{false, R(1), R(0)};
  auto hull = [&](R const& l, R const& h) {
    bool const empty = !out.has_num();
    if (empty || l < out.lo) out.lo = l;
    if (empty || out.hi < h) out.hi = h;
  };
  auto add_value = [&](IEEEFloat const& v) {
    if (v.is_nan()) {
      out.nan = true;
      return;
    }
    R const r = rank_of<R>(v);
    hull(r, r);
  };
  auto add_keys = [&](IEEEFloat const& x, IEEEFloat const& y) {
    R const kx = key(rank_of<R>(x)), ky = key(rank_of<R>(y));
    hull(min_rank_key_ge(mn(kx, ky)), max_rank_key_le(mx(kx, ky)));
  };
  bool nan_in = false, single = true;
  for (Bounds<R> const& b : a) {
    if (!b.s.nan && !b.num()) return out; // an operand without values
    nan_in = nan_in || b.s.nan;
    single = single && b.s.single();
  }
  auto const full = [&](bool nan) { return Set<R>{nan, R(rf.nan + 1), rf.pinf}; };
  auto const rm = [](int m) { return static_cast<IEEEFloat::rounding_mode>(m); };
  // min and max of a NaN are the other operand; rem has no simple bounds.
  if (!single && (op == FpOp::min || op == FpOp::max || op == FpOp::rem)) return full(true);
  if (single) {
    std::vector<IEEEFloat> args;
    for (Bounds<R> const& b : a)
      args.push_back(b.single_value());
    for (int m = 0; m < 5; ++m)
      if (modes >> m & 1) {
        if (std::optional<IEEEFloat> r = apply_op(op, rm(m), args, rfmt))
          add_value(*r);
        else
          hull(R(-1), R(0)); // either zero
      }
    return out;
  }
  bool all_num = true;
  for (Bounds<R> const& b : a)
    all_num = all_num && b.num();
  out.nan = nan_in;
  if (!all_num) return out; // some operand is NaN only: so is the result
  Bounds<R> const& x = a[0];
  if (same && op != FpOp::add) {
    auto has = [&](R const& l, R const& h) { return !(h < x.s.lo || x.s.hi < l); };
    bool const finite = has(R(rf.nan + 2), R(rf.pinf - 1));
    bool const finite_nonzero = has(R(rf.nan + 2), R(-2)) || has(R(1), R(rf.pinf - 1));
    switch (op) {
    case FpOp::sub: // a zero, NaN from infinities
      out.nan = out.nan || x.may_inf();
      if (finite)
        for (int m = 0; m < 5; ++m)
          if (modes >> m & 1) add_value(IEEEFloat::zero(rfmt, m == IEEEFloat::rm_toward_negative));
      return out;
    case FpOp::div: // 1, NaN from zeros and infinities
      out.nan = out.nan || x.may_inf() || x.may_zero();
      if (finite_nonzero)
        add_value(qorv::swflt::from_rational_text(IEEEFloat::rm_nearest_even, "1", rfmt));
      return out;
    case FpOp::mul: { // the square of the magnitude, monotone in it
      R const klo = key(x.s.lo), khi = key(x.s.hi);
      R const small = x.may_zero() ? R(0) : klo > 0 ? x.s.lo : R(-x.s.hi - 1);
      R const large = mx(R(khi < 0 ? R(-khi) : khi), R(klo < 0 ? R(-klo) : klo));
      IEEEFloat const u = value_of(small, x.fmt), v = value_of(large, x.fmt);
      for (int m = 0; m < 5; ++m)
        if (modes >> m & 1) add_keys(qorv::swflt::mul(rm(m), u, u), qorv::swflt::mul(rm(m), v, v));
      return out;
    }
    default:
      break;
    }
  }
  switch (op) {
  case FpOp::add:
  case FpOp::sub: {
    Bounds<R> const& y = a[1];
    bool const add = op == FpOp::add;
    bool const clash = same  ? false // x + x: inf + inf is inf
                       : add ? (x.may_pinf() && y.may_ninf()) || (x.may_ninf() && y.may_pinf())
                             : (x.may_pinf() && y.may_pinf()) || (x.may_ninf() && y.may_ninf());
    if (clash) return full(true);
    for (int m = 0; m < 5; ++m)
      if (modes >> m & 1) {
        if (add)
          add_keys(qorv::swflt::add(rm(m), x.lo(), y.lo()),
                   qorv::swflt::add(rm(m), x.hi(), y.hi()));
        else
          add_keys(qorv::swflt::sub(rm(m), x.lo(), y.hi()),
                   qorv::swflt::sub(rm(m), x.hi(), y.lo()));
      }
    return out;
  }
  case FpOp::mul:
  case FpOp::div: {
    Bounds<R> const& y = a[1];
    bool const mul = op == FpOp::mul;
    bool const clash = mul ? (x.may_zero() && y.may_inf()) || (x.may_inf() && y.may_zero())
                           : y.may_zero() || (x.may_inf() && y.may_inf());
    if (clash) return full(true);
    IEEEFloat const xs[2] = {x.lo(), x.hi()}, ys[2] = {y.lo(), y.hi()};
    for (int m = 0; m < 5; ++m)
      if (modes >> m & 1)
        for (IEEEFloat const& u : xs)
          for (IEEEFloat const& v : ys) {
            IEEEFloat const r = mul ? qorv::swflt::mul(rm(m), u, v) : qorv::swflt::div(rm(m), u, v);
            add_keys(r, r);
          }
    return out;
  }
  case FpOp::fma: {
    Bounds<R> const &y = a[1], &z = a[2];
    if (x.may_inf() || y.may_inf() || z.may_inf()) return full(true);
    IEEEFloat const xs[2] = {x.lo(), x.hi()}, ys[2] = {y.lo(), y.hi()};
    IEEEFloat const zl = z.lo(), zh = z.hi();
    for (int m = 0; m < 5; ++m)
      if (modes >> m & 1)
        for (IEEEFloat const& u : xs)
          for (IEEEFloat const& v : ys)
            add_keys(qorv::swflt::fma(rm(m), u, v, zl), qorv::swflt::fma(rm(m), u, v, zh));
    return out;
  }
  case FpOp::sqrt: {
    if (key(x.s.lo) < 0) out.nan = true; // a negative operand
    if (key(x.s.hi) < 0) return out;
    IEEEFloat const lo = value_of(mx(x.s.lo, R(-1)), x.fmt); // -0 at the least
    for (int m = 0; m < 5; ++m)
      if (modes >> m & 1) add_keys(qorv::swflt::sqrt(rm(m), lo), qorv::swflt::sqrt(rm(m), x.hi()));
    return out;
  }
  case FpOp::round_to_integral:
  case FpOp::convert:
    for (int m = 0; m < 5; ++m)
      if (modes >> m & 1) {
        if (op == FpOp::convert)
          add_keys(qorv::swflt::convert(rm(m), x.lo(), rfmt),
                   qorv::swflt::convert(rm(m), x.hi(), rfmt));
        else
          add_keys(qorv::swflt::round_to_integral(rm(m), x.lo()),
                   qorv::swflt::round_to_integral(rm(m), x.hi()));
      }
    return out;
  default:
    return full(true);
  }
}

} // namespace fpsolve
