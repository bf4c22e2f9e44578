// The real constraints of a search node, decided by the simplex (see
// lra_bridge.h).
#include "engine/lra_bridge.h"

#include "engine/real_terms.h"

#include "support/invariant.h"

#include <algorithm>
#include <utility>

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
  preimages_.resize(p.real_rounds.size());
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
typename LraBridge<R>::Reason LraBridge<R>::because(std::vector<BoundLit> lits) {
  why_.push_back(std::move(lits));
  return static_cast<Reason>(why_.size() - 1);
}

template <class R>
void LraBridge<R>::operand_ends(int o, std::vector<BoundLit>& out) const {
  int const v = ctx_.p.operands[static_cast<std::size_t>(o)].var;
  if (v < 0) return;
  auto const& c = tc_.ev.cur[static_cast<std::size_t>(v)];
  out.push_back(BoundLit{v, true, c.lo});
  out.push_back(BoundLit{v, false, c.hi});
}

template <class R>
void LraBridge<R>::refute(std::vector<Reason> const& reasons, std::vector<BoundLit> const& extra) {
  refuted_ = extra;
  for (Reason r : reasons)
    refuted_.insert(refuted_.end(), why_[r].begin(), why_[r].end());
  // The conjunction of two bounds on one side is the tighter one.
  std::sort(refuted_.begin(), refuted_.end(), [](BoundLit const& a, BoundLit const& b) {
    if (a.var != b.var) return a.var < b.var;
    if (a.lower != b.lower) return a.lower;
    return a.lower ? b.rank < a.rank : a.rank < b.rank;
  });
  refuted_.erase(std::unique(refuted_.begin(), refuted_.end(),
                             [](BoundLit const& a, BoundLit const& b) {
                               return a.var == b.var && a.lower == b.lower;
                             }),
                 refuted_.end());
  explained_ = true;
}

template <class R>
bool LraBridge<R>::refuted(std::vector<BoundLit>& out) const {
  if (!explained_ || refuted_.empty()) return false;
  out = refuted_;
  return true;
}

template <class R>
bool LraBridge<R>::bound(SVar v, RealEnd const& lo, RealEnd const& hi, Reason lo_why,
                         Reason hi_why) {
  bool const ok = (lo.unbounded ||
                   simplex_.assert_lower(v, lo.strict ? DeltaRational::above(lo.value) : lo.value,
                                         lo_why, conflict_)) &&
                  (hi.unbounded ||
                   simplex_.assert_upper(v, hi.strict ? DeltaRational::below(hi.value) : hi.value,
                                         hi_why, conflict_));
  if (!ok) refute(conflict_);
  return ok;
}

template <class R>
bool LraBridge<R>::equal(SVar v, mpq_class const& value, Reason why) {
  RealEnd const e{false, value, false};
  return bound(v, e, e, why, why);
}

template <class R>
unsigned LraBridge<R>::modes_of(int rm) const {
  Set<R> const m = tc_.ev.img(rm);
  unsigned modes = 0;
  for (R k = m.lo; k <= m.hi && k <= R(4); k = k + 1)
    modes |= 1u << static_cast<int>(rm_of_value(value_of(k, {2, 2})));
  return modes;
}

template <class R>
bool LraBridge<R>::assert_box() {
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
    Reason const why = because(
        {truth == l_True ? BoundLit{a.var, true, R(nan + 1)} : BoundLit{a.var, false, nan}});
    if (!(truth == l_True ? bound(c, open, zero, why, why) : bound(c, zero, open, why, why)))
      return false;
  }
  for (std::size_t i = 0; i < p.reals.size(); ++i) {
    RealTerm const& t = p.reals[i];
    if (t.op == RealOp::ite) {
      lbool const c = ev.eval(t.cond);
      if (c != l_Undef) {
        // The condition's value follows from the intervals of the
        // variables under it.
        std::vector<BoundLit> lits;
        std::vector<int> todo{t.cond};
        while (!todo.empty()) {
          Node const& nd = p.nodes[static_cast<std::size_t>(todo.back())];
          todo.pop_back();
          if (nd.op == Op::bvar) {
            auto const& iv = ev.cur[static_cast<std::size_t>(nd.a)];
            lits.push_back(BoundLit{nd.a, true, iv.lo});
            lits.push_back(BoundLit{nd.a, false, iv.hi});
          }
          if (nd.op >= Op::leq) {
            operand_ends(nd.a, lits);
            if (nd.b >= 0) operand_ends(nd.b, lits);
          }
          todo.insert(todo.end(), nd.kids.begin(), nd.kids.end());
        }
        if (!equal(c == l_True ? ite_[i].first : ite_[i].second, 0, because(std::move(lits))))
          return false;
      }
    }
    if (t.op != RealOp::to_real || !relevant(p.operands[static_cast<std::size_t>(t.operand)].var))
      continue;
    Set<R> const s = ev.img(t.operand);
    Operand const& o = p.operands[static_cast<std::size_t>(t.operand)];
    FormatRanks<R> const& fr = ev.format_of_operand(t.operand);
    std::vector<BoundLit> ends;
    operand_ends(t.operand, ends);
    if (s.single() && (s.nan || s.lo == fr.nan + 1 || s.lo == fr.pinf)) {
      std::size_t const k = s.nan ? 0 : s.lo == fr.pinf ? 1 : 2;
      if (!equal(special_[i][k], 0, because(ends))) return false;
    } else if (!s.nan && s.lo > fr.nan + 1 && s.hi < fr.pinf) {
      RealEnd const lo{false, exact_value(value_of(s.lo, p.format_of(t.operand))), false};
      RealEnd const hi{false, exact_value(value_of(s.hi, p.format_of(t.operand))), false};
      // Of a plain variable, a lower end needs only x >= lo and x finite
      // above; the wider the premise, the more states the clause cuts.
      bool const plain = !o.abs && !o.neg;
      Reason const lo_why =
          plain ? because({BoundLit{o.var, true, s.lo}, BoundLit{o.var, false, R(fr.pinf - 1)}})
                : because(ends);
      Reason const hi_why =
          plain ? because({BoundLit{o.var, false, s.hi}, BoundLit{o.var, true, R(fr.nan + 2)}})
                : lo_why;
      if (!bound(col_[i], lo, hi, lo_why, hi_why)) return false;
    }
  }
  for (std::size_t k = 0; k < p.real_rounds.size(); ++k)
    if (relevant(p.real_rounds[k].var) && !assert_rounding(k)) return false;
  return true;
}

template <class R>
bool LraBridge<R>::assert_rounding(std::size_t k) {
  RealRound const& r = ctx_.p.real_rounds[k];
  Evaluator<R> const& ev = tc_.ev;
  unsigned const modes = modes_of(r.rm);
  std::vector<BoundLit> lo_lits, hi_lits;
  operand_ends(r.rm, lo_lits);
  hi_lits = lo_lits;
  auto const& y = ev.cur[static_cast<std::size_t>(r.var)];
  FormatRanks<R> const& fr = ev.format_of_var(r.var);
  lo_lits.push_back(BoundLit{r.var, true, y.lo});
  hi_lits.push_back(BoundLit{r.var, false, y.hi});
  Preimage& pre = preimages_[k];
  if (!pre.valid || pre.lo != y.lo || pre.hi != y.hi || pre.modes != modes) {
    ++ctx_.stats.lra_preimages;
    IEEEFloat::format const f = ctx_.p.vars[static_cast<std::size_t>(r.var)].fmt;
    pre = Preimage{true, y.lo, y.hi, modes, std::nullopt};
    if (y.hi != fr.nan)
      pre.range = rounding_preimage(modes, value_of(y.lo == fr.nan ? R(fr.nan + 1) : y.lo, f),
                                    value_of(y.hi, f));
  }
  if (!pre.range) { // no mode sends a real into y's interval
    lo_lits.push_back(hi_lits.back());
    refute({}, lo_lits);
    return false;
  }
  return bound(col_[static_cast<std::size_t>(r.real)], pre.range->lo, pre.range->hi,
               because(std::move(lo_lits)), because(std::move(hi_lits)));
}

// The bounds the rows imply, one pass over the rows: a chain of rows would
// need a pass per link, but on the generated problems three passes took
// twice the simplex time of one for the same decisions.
template <class R>
bool LraBridge<R>::assert_implied() {
  struct Found {
    SVar v;
    bool upper;
    DeltaRational b;
    std::vector<Reason> reasons;
  };
  std::vector<Found> found;
  simplex_.propagate_bounds(
      [&](SVar v, bool upper, DeltaRational const& b, std::vector<Reason> const& reasons) {
        found.push_back({v, upper, b, reasons});
      });
  for (Found const& f : found) {
    std::vector<BoundLit> lits;
    for (Reason r : f.reasons)
      lits.insert(lits.end(), why_[r].begin(), why_[r].end());
    Reason const why = because(std::move(lits));
    if (!(f.upper ? simplex_.assert_upper(f.v, f.b, why, conflict_)
                  : simplex_.assert_lower(f.v, f.b, why, conflict_))) {
      refute(conflict_);
      return false;
    }
  }
  return true;
}

template <class R>
RealRange LraBridge<R>::range_of(SVar v) const {
  RealRange r;
  // A lower bound c - k*delta (k > 0) is weaker than c: it is left out.
  if (std::optional<DeltaRational> const lo = simplex_.lower(v); lo && lo->delta >= 0)
    r.lo = RealEnd{false, lo->real, lo->delta > 0};
  if (std::optional<DeltaRational> const hi = simplex_.upper(v); hi && hi->delta <= 0)
    r.hi = RealEnd{false, hi->real, hi->delta < 0};
  return r;
}

template <class R>
bool LraBridge<R>::narrow_float(int v, R lo, R hi, SVar col, std::vector<BoundLit> const& extra) {
  auto const c = tc_.ev.cur[static_cast<std::size_t>(v)];
  if (!(c.lo < lo) && !(hi < c.hi)) return true;
  if (tc_.narrow(v, lo, hi)) {
    ++ctx_.stats.lra_narrowings;
    return true;
  }
  std::vector<Reason> reasons;
  if (std::optional<Reason> const r = simplex_.lower_reason(col)) reasons.push_back(*r);
  if (std::optional<Reason> const r = simplex_.upper_reason(col)) reasons.push_back(*r);
  std::vector<BoundLit> lits = extra;
  lits.push_back(BoundLit{v, true, c.lo});
  lits.push_back(BoundLit{v, false, c.hi});
  refute(reasons, lits);
  return false;
}

template <class R>
bool LraBridge<R>::narrow_floats() {
  Problem const& p = ctx_.p;
  Evaluator<R> const& ev = tc_.ev;
  for (std::size_t i = 0; i < p.reals.size(); ++i) {
    if (p.reals[i].op != RealOp::to_real) continue;
    Operand const& o = p.operands[static_cast<std::size_t>(p.reals[i].operand)];
    if (o.var < 0 || o.abs || o.neg || !ctx_.relevant[static_cast<std::size_t>(o.var)]) continue;
    RealRange const range = range_of(col_[i]);
    if (range.lo.unbounded && range.hi.unbounded) continue;
    FormatRanks<R> const& fr = ev.format_of_var(o.var);
    auto const c = ev.cur[static_cast<std::size_t>(o.var)];
    // NaN and -oo lie below every finite value, +oo above: while one is
    // possible, its side cannot be cut (its real value is free).
    bool const low_special = c.lo <= R(fr.nan + 1), high_special = c.hi == fr.pinf;
    R lo = c.lo, hi = c.hi;
    if (auto const fin = floats_within(range, p.vars[static_cast<std::size_t>(o.var)].fmt)) {
      if (!low_special) lo = rank_of<R>(fin->first);
      if (!high_special) hi = rank_of<R>(fin->second);
    } else { // only the specials remain (none when neither side has one)
      if (!high_special) hi = R(fr.nan + 1);
      if (!low_special) lo = fr.pinf;
    }
    if (!narrow_float(o.var, lo, hi, col_[i], {})) return false;
  }
  for (RealRound const& r : p.real_rounds) {
    if (!ctx_.relevant[static_cast<std::size_t>(r.var)]) continue;
    SVar const col = col_[static_cast<std::size_t>(r.real)];
    RealRange const range = range_of(col);
    if (range.lo.unbounded && range.hi.unbounded) continue;
    auto const [ylo, yhi] =
        rounding_image(modes_of(r.rm), range, p.vars[static_cast<std::size_t>(r.var)].fmt);
    std::vector<BoundLit> modes;
    operand_ends(r.rm, modes);
    if (!narrow_float(r.var, rank_of<R>(ylo), rank_of<R>(yhi), col, modes)) return false;
  }
  return true;
}

template <class R>
bool LraBridge<R>::check() {
  PhaseTimer const timer(ctx_.stats.lra_time);
  ++ctx_.stats.lra_checks;
  why_.assign(1, {});
  refuted_.clear();
  explained_ = false;
  simplex_.push();
  bool ok = assert_box();
  if (ok && !simplex_.check(conflict_)) {
    refute(conflict_);
    ok = false;
  }
  if (ok) {
    Problem const& p = ctx_.p;
    for (std::size_t i = 0; i < p.reals.size(); ++i)
      if (p.reals[i].op == RealOp::var) ctx_.real_inputs[i] = simplex_.model_value(col_[i]);
    ok = !ctx_.opt.real_narrowing || (assert_implied() && narrow_floats());
  }
  simplex_.pop(1);
  // Popped back to the rows alone: nothing of this check stays.
  if (ctx_.checking && (simplex_.level() != 0 || !simplex_.check_invariants()))
    qorv::invariant_violated("fpsolve reals", "the simplex kept a level after a check");
  if (!ok) ++ctx_.stats.lra_conflicts;
  return ok;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(LraBridge)

} // namespace fpsolve
