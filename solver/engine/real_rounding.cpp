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

namespace {

// The float nearest to `e` on the inside of a range whose lower end (when
// `lower`) or upper end it is: rounding towards the inside gives the
// extreme float whose value is within the end; on a zero that is the zero
// farther out in the packed order (-0 below +0, both of value 0), and a
// strict end that is itself a float steps to its neighbour inwards.  An
// absent end gives the extreme finite float.
IEEEFloat inner_float(RealEnd const& e, bool lower, IEEEFloat::format f) {
  using RM = IEEEFloat::rounding_mode;
  auto const inward = [lower](IEEEFloat const& x) {
    return lower ? qorv::next_above(x) : qorv::next_below(x);
  };
  if (e.unbounded) return inward(IEEEFloat::inf(f, lower));
  IEEEFloat x = round_real(lower ? RM::rm_toward_positive : RM::rm_toward_negative, e.value, f);
  if (x.is_zero()) x = IEEEFloat::zero(f, lower);
  if (e.strict && !x.is_inf() && exact_value(x) == e.value)
    x = inward(x.is_zero() ? IEEEFloat::zero(f, !lower) : x);
  return x;
}

} // namespace

std::optional<std::pair<IEEEFloat, IEEEFloat>> floats_within(RealRange const& r,
                                                             IEEEFloat::format f) {
  IEEEFloat const lo = inner_float(r.lo, true, f), hi = inner_float(r.hi, false, f);
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
