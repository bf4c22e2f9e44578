// The real constraints of a search node, decided by the simplex (see
// lra_bridge.h).
#include "engine/lra_bridge.h"

#include "engine/real_terms.h"

namespace fpsolve {

template <class R>
LraBridge<R>::LraBridge(SearchContext& ctx, TrailCache<R>& tc) : ctx_(ctx), tc_(tc) {
  Problem const& p = ctx.p;
  // A column fixed to 1 for the constants of linear forms, at the base level.
  SVar const one = simplex_.new_var();
  simplex_.assert_lower(one, DeltaRational(1), 0, conflict_);
  simplex_.assert_upper(one, DeltaRational(1), 0, conflict_);
  col_.resize(p.reals.size());
  ite_.resize(p.reals.size());
  special_.resize(p.reals.size());
  for (std::size_t i = 0; i < p.reals.size(); ++i) {
    RealTerm const& t = p.reals[i];
    if (t.op != RealOp::linear) {
      col_[i] = simplex_.new_var();
      continue;
    }
    std::vector<Simplex::Term> terms;
    if (t.constant != 0) terms.emplace_back(one, t.constant);
    for (auto const& [u, k] : t.sum)
      terms.emplace_back(col_[static_cast<std::size_t>(u)], k);
    col_[i] = simplex_.add_row(terms);
  }
  auto diff = [&](std::size_t i, int u) {
    std::vector<Simplex::Term> const terms{{col_[i], 1}, {col_[static_cast<std::size_t>(u)], -1}};
    return simplex_.add_row(terms);
  };
  for (std::size_t i = 0; i < p.reals.size(); ++i) {
    RealTerm const& t = p.reals[i];
    if (t.op == RealOp::ite) ite_[i] = {diff(i, t.a), diff(i, t.b)};
    if (t.op == RealOp::to_real)
      for (std::size_t k = 0; k < 3; ++k)
        special_[i][k] = diff(i, t.special[k]);
  }
  ctx.real_inputs.assign(p.reals.size(), mpq_class(0));
}

template <class R>
bool LraBridge<R>::narrow_at_root() {
  for (RealRound const& r : ctx_.p.real_rounds)
    if (ctx_.relevant[static_cast<std::size_t>(r.var)]) {
      FormatRanks<R> const& f = tc_.ev.format_of_var(r.var);
      if (!tc_.narrow(r.var, R(f.nan + 1), f.pinf)) return false;
    }
  return true;
}

template <class R>
bool LraBridge<R>::constrains() const {
  for (RealAtom const& a : ctx_.p.real_atoms)
    if (ctx_.relevant[static_cast<std::size_t>(a.var)]) return true;
  for (RealRound const& r : ctx_.p.real_rounds)
    if (ctx_.relevant[static_cast<std::size_t>(r.var)]) return true;
  return false;
}

template <class R>
bool LraBridge<R>::bound(SVar v, RealEnd const& lo, RealEnd const& hi) {
  if (!lo.unbounded && !simplex_.assert_lower(
                           v, lo.strict ? DeltaRational::above(lo.value) : lo.value, 0, conflict_))
    return false;
  return hi.unbounded ||
         simplex_.assert_upper(v, hi.strict ? DeltaRational::below(hi.value) : hi.value, 0,
                               conflict_);
}

template <class R>
bool LraBridge<R>::equal(SVar v, mpq_class const& value) {
  return simplex_.assert_lower(v, value, 0, conflict_) &&
         simplex_.assert_upper(v, value, 0, conflict_);
}

template <class R>
bool LraBridge<R>::feasible() {
  Problem const& p = ctx_.p;
  Evaluator<R> const& ev = tc_.ev;
  auto relevant = [&](int v) { return v >= 0 && ctx_.relevant[static_cast<std::size_t>(v)]; };
  RealEnd const open;
  for (RealAtom const& a : p.real_atoms) {
    if (!relevant(a.var)) continue;
    auto const& iv = ev.cur[static_cast<std::size_t>(a.var)];
    R const& nan = ev.format_of_var(a.var).nan;
    lbool const truth = iv.lo > nan ? l_True : iv.hi == nan ? l_False : l_Undef;
    if (truth == l_Undef) continue;
    SVar const c = col_[static_cast<std::size_t>(a.term)];
    // "t < 0" false is t >= 0; "t <= 0" false is t > 0.
    RealEnd const zero{false, 0, truth == l_True ? a.strict : !a.strict};
    if (!(truth == l_True ? bound(c, open, zero) : bound(c, zero, open))) return false;
  }
  for (std::size_t i = 0; i < p.reals.size(); ++i) {
    RealTerm const& t = p.reals[i];
    if (t.op == RealOp::ite) {
      lbool const c = ev.eval(t.cond);
      if (c != l_Undef && !equal(c == l_True ? ite_[i].first : ite_[i].second, 0)) return false;
    }
    if (t.op != RealOp::to_real || !relevant(p.operands[static_cast<std::size_t>(t.operand)].var))
      continue;
    Set<R> const s = ev.img(t.operand);
    IEEEFloat::format const f = p.operands[static_cast<std::size_t>(t.operand)].fmt;
    FormatRanks<R> const& fr = ev.format_of_operand(t.operand);
    if (s.single() && (s.nan || s.lo == fr.nan + 1 || s.lo == fr.pinf)) {
      std::size_t const k = s.nan ? 0 : s.lo == fr.pinf ? 1 : 2;
      if (!equal(special_[i][k], 0)) return false;
    } else if (!s.nan && s.lo > fr.nan + 1 && s.hi < fr.pinf) {
      RealEnd const lo{false, exact_value(value_of(s.lo, f)), false};
      RealEnd const hi{false, exact_value(value_of(s.hi, f)), false};
      if (!bound(col_[i], lo, hi)) return false;
    }
  }
  for (RealRound const& r : p.real_rounds) {
    if (!relevant(r.var)) continue;
    Set<R> const m = ev.img(r.rm);
    unsigned modes = 0;
    for (R k = m.lo; k <= m.hi && k <= R(4); k = k + 1)
      modes |= 1u << static_cast<int>(rm_of_value(value_of(k, {2, 2})));
    auto const& y = ev.cur[static_cast<std::size_t>(r.var)];
    IEEEFloat::format const f = p.vars[static_cast<std::size_t>(r.var)].fmt;
    FormatRanks<R> const& fr = ev.format_of_var(r.var);
    if (y.hi == fr.nan) return false;
    std::optional<RealRange> const pre = rounding_preimage(
        modes, value_of(y.lo == fr.nan ? R(fr.nan + 1) : y.lo, f), value_of(y.hi, f));
    if (!pre || !bound(col_[static_cast<std::size_t>(r.real)], pre->lo, pre->hi)) return false;
  }
  if (!simplex_.check(conflict_)) return false;
  for (std::size_t i = 0; i < p.reals.size(); ++i)
    if (p.reals[i].op == RealOp::var) ctx_.real_inputs[i] = simplex_.model_value(col_[i]);
  return true;
}

template <class R>
bool LraBridge<R>::check() {
  PhaseTimer const timer(ctx_.stats.lra_time);
  ++ctx_.stats.lra_checks;
  simplex_.push();
  bool const ok = feasible();
  simplex_.pop(1);
  if (!ok) ++ctx_.stats.lra_conflicts;
  return ok;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(LraBridge)

} // namespace fpsolve
