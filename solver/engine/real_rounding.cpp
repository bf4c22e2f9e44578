// Preimages of rounding (see real_rounding.h).
#include "engine/real_rounding.h"

#include "engine/ranks.h"
#include "engine/real_terms.h"

#include "host/packed_rank.h"

#include <array>

namespace fpsolve {

namespace {

// The value of x, with 2^(emax+1) for +oo and its negation for -oo: one ulp
// of the largest finite value beyond it.
mpq_class point_of(IEEEFloat const& x) {
  if (!x.is_inf()) return exact_value(x);
  IEEEFloat::format const f = x.get_format();
  IEEEFloat const max = qorv::next_below(IEEEFloat::inf(f, false));
  mpq_class const m = exact_value(max);
  mpq_class const top = m + (m - exact_value(qorv::next_below(max)));
  return x.get_sign() ? mpq_class(-top) : top;
}

int order(IEEEFloat const& a, IEEEFloat const& b) {
  mpz_class const ra = rank_of<mpz_class>(a), rb = rank_of<mpz_class>(b);
  return ra < rb ? -1 : ra > rb ? 1 : 0;
}

// The first of the five probes (points at even positions, the midpoints
// between them at odd ones) where `holds` is true: the end is that point,
// or for a midpoint the point before it, excluded.
template <class F>
std::optional<RealEnd> first_end(std::array<mpq_class, 3> const& pts, F const& holds) {
  for (std::size_t i = 0; i < 5; ++i) {
    mpq_class const probe = i % 2 == 0 ? pts[i / 2] : (pts[i / 2] + pts[i / 2 + 1]) / 2;
    if (holds(probe)) {
      RealEnd e;
      e.unbounded = false;
      e.value = pts[i / 2];
      e.strict = i % 2 == 1;
      return e;
    }
  }
  return std::nullopt;
}

} // namespace

std::optional<RealEnd> rounding_at_least(IEEEFloat::rounding_mode rm, IEEEFloat const& v) {
  IEEEFloat::format const f = v.get_format();
  if (v.is_inf() && v.get_sign()) return RealEnd{};
  IEEEFloat const prev = qorv::next_below(v);
  mpq_class const a = point_of(prev), c = point_of(v);
  std::optional<RealEnd> e = first_end<>(
      {a, (a + c) / 2, c}, [&](mpq_class const& t) { return order(round_real(rm, t, f), v) >= 0; });
  // Beyond -2^(emax+1) every real rounds as that point does.
  if (e && prev.is_inf() && e->value == a && !e->strict) return RealEnd{};
  return e;
}

std::optional<RealEnd> rounding_at_most(IEEEFloat::rounding_mode rm, IEEEFloat const& v) {
  IEEEFloat::format const f = v.get_format();
  if (v.is_inf() && !v.get_sign()) return RealEnd{};
  if (v.is_zero() && v.get_sign()) // real 0 rounds to +0, every small negative to -0 or below
    return RealEnd{false, 0, true};
  IEEEFloat const next = qorv::next_above(v);
  mpq_class const b = point_of(next), c = point_of(v);
  // Walking down from the neighbour: the probes in descending order.
  std::optional<RealEnd> e = first_end<>({-b, -(b + c) / 2, -c}, [&](mpq_class const& t) {
    return order(round_real(rm, -t, f), v) <= 0;
  });
  if (e) e->value = -e->value;
  // Beyond 2^(emax+1) every real rounds as that point does.
  if (e && next.is_inf() && e->value == b && !e->strict) return RealEnd{};
  return e;
}

std::optional<RealRange> rounding_preimage(unsigned modes, IEEEFloat const& lo,
                                           IEEEFloat const& hi) {
  std::optional<RealRange> hull;
  for (int m = 0; m < 5; ++m) {
    if (!(modes >> m & 1u)) continue;
    auto const rm = static_cast<IEEEFloat::rounding_mode>(m);
    std::optional<RealEnd> const l = rounding_at_least(rm, lo), u = rounding_at_most(rm, hi);
    if (!l || !u) continue;
    if (!l->unbounded && !u->unbounded &&
        (l->value > u->value || (l->value == u->value && (l->strict || u->strict))))
      continue;
    if (!hull) {
      hull = RealRange{*l, *u};
      continue;
    }
    RealEnd& hl = hull->lo;
    if (l->unbounded ||
        (!hl.unbounded && (l->value < hl.value || (l->value == hl.value && !l->strict))))
      hl = *l;
    RealEnd& hh = hull->hi;
    if (u->unbounded ||
        (!hh.unbounded && (u->value > hh.value || (u->value == hh.value && !u->strict))))
      hh = *u;
  }
  return hull;
}

std::optional<std::pair<IEEEFloat, IEEEFloat>> floats_within(RealRange const& r,
                                                             IEEEFloat::format f) {
  using RM = IEEEFloat::rounding_mode;
  IEEEFloat lo = IEEEFloat::inf(f, true), hi = IEEEFloat::inf(f, false);
  // Rounding towards +oo gives the least float whose value is at least the
  // end; on a zero that is +0, below which -0 has the same value (and the
  // other way round for the upper end).
  if (r.lo.unbounded) {
    lo = qorv::next_above(lo);
  } else {
    lo = round_real(RM::rm_toward_positive, r.lo.value, f);
    if (lo.is_zero()) lo = IEEEFloat::zero(f, true);
    if (r.lo.strict && !lo.is_inf() && exact_value(lo) == r.lo.value)
      lo = lo.is_zero() ? qorv::next_above(IEEEFloat::zero(f, false)) : qorv::next_above(lo);
  }
  if (r.hi.unbounded) {
    hi = qorv::next_below(hi);
  } else {
    hi = round_real(RM::rm_toward_negative, r.hi.value, f);
    if (hi.is_zero()) hi = IEEEFloat::zero(f, false);
    if (r.hi.strict && !hi.is_inf() && exact_value(hi) == r.hi.value)
      hi = hi.is_zero() ? qorv::next_below(IEEEFloat::zero(f, true)) : qorv::next_below(hi);
  }
  if (lo.is_inf() || hi.is_inf() || rank_of<mpz_class>(lo) > rank_of<mpz_class>(hi))
    return std::nullopt;
  return std::make_pair(lo, hi);
}

std::pair<IEEEFloat, IEEEFloat> rounding_image(unsigned modes, RealRange const& r,
                                               IEEEFloat::format f) {
  std::optional<IEEEFloat> lo, hi;
  for (int m = 0; m < 5; ++m) {
    if (!(modes >> m & 1u)) continue;
    auto const rm = static_cast<IEEEFloat::rounding_mode>(m);
    if (!r.lo.unbounded) {
      IEEEFloat const v = round_real(rm, r.lo.value, f);
      if (!lo || order(v, *lo) < 0) lo = v;
    }
    if (!r.hi.unbounded) {
      IEEEFloat const v = round_real(rm, r.hi.value, f);
      if (!hi || order(v, *hi) > 0) hi = v;
    }
  }
  return {lo ? *lo : IEEEFloat::inf(f, true), hi ? *hi : IEEEFloat::inf(f, false)};
}

} // namespace fpsolve
