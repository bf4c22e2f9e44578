// The projection and shaving of definitions (see def_propagation.h).
#include "engine/def_propagation.h"

namespace fpsolve {

// The values of operand i that can still yield a result in z: its ends are
// cut while the forward projection of the cut part (the other operands as
// they are) misses z.  Each cut rests on one projection that misses, so it
// is as sound as the projection, whatever the shape of the operation; the
// binary search only decides where to look.
template <class R>
Set<R> DefPropagation<R>::shave(FpOp op, std::vector<Bounds<R>> a, std::size_t i, unsigned modes,
                                FormatRanks<R> const& rf, IEEEFloat::format fmt, Set<R> const& z,
                                bool same) const {
  auto misses = [&](Set<R> part) {
    a[i].s = part;
    if (same) a[1 - i].s = part; // one term: the part is the only choice for both
    Set<R> const pr = project(op, a, modes, rf, fmt, same);
    return !((pr.nan && z.nan) || (pr.has_num() && z.has_num() && pr.lo <= z.hi && z.lo <= pr.hi));
  };
  Set<R> s = a[i].s;
  if (s.nan && misses(Set<R>{true, R(1), R(0)})) s.nan = false;
  if (!s.has_num()) return s;
  if (misses(Set<R>{false, s.lo, s.hi})) return Set<R>{s.nan, R(1), R(0)};
  if (misses(Set<R>{false, s.lo, s.lo})) { // [s.lo, bad] has no candidate
    R bad = s.lo, good = s.hi;
    while (R(bad + 1) < good) {
      R const mid = mid_rank(bad, good);
      if (misses(Set<R>{false, s.lo, mid}))
        bad = mid;
      else
        good = mid;
    }
    s.lo = bad + 1;
  }
  if (misses(Set<R>{false, s.hi, s.hi})) { // [bad, s.hi] has no candidate
    R bad = s.hi, good = s.lo;
    while (R(good + 1) < bad) {
      R const mid = mid_rank(good, bad);
      if (misses(Set<R>{false, mid, s.hi}))
        bad = mid;
      else
        good = mid;
    }
    s.hi = bad - 1;
  }
  return s;
}

// Two operands that are the same view of one variable.
template <class R>
bool DefPropagation<R>::same_term(int x, int y) const {
  Operand const &a = ctx_.p.operands[x], &b = ctx_.p.operands[y];
  return a.var >= 0 && a.var == b.var && a.abs == b.abs && a.neg == b.neg;
}

template <class R>
unsigned DefPropagation<R>::rm_modes(int o) const {
  Operand const& op = ctx_.p.operands[o];
  R lo, hi;
  if (op.var < 0) {
    lo = hi = tc_.ev.const_rank_of(o);
  } else {
    lo = tc_.ev.cur[op.var].lo;
    hi = tc_.ev.cur[op.var].hi;
  }
  unsigned modes = 0;
  for (int m = 0; m < 5; ++m)
    if (lo <= R(m) && R(m) <= hi) modes |= 1u << m;
  return modes;
}

// Forward: the Def's variable is narrowed to the projection of its
// operands.  Backward, only steps that hold exactly: the chosen branch of an
// ite equals its result, and a result that cannot be NaN has no NaN operand
// (every operation but min and max turns a NaN operand into NaN).
template <class R>
bool DefPropagation<R>::prop_def(int d) {
  Def const& df = ctx_.p.defs[d];
  int const v = df.var;
  FormatRanks<R> const& rf = tc_.ev.format_of_var(v);
  auto result_set = [&]() {
    Iv const& c = tc_.ev.cur[v];
    return Set<R>{c.lo == rf.nan, mx(c.lo, R(rf.nan + 1)), c.hi};
  };
  if (df.op == FpOp::ite) {
    lbool const c = tc_.ev.eval(df.cond);
    if (c != l_Undef) {
      int const branch = df.args[c == l_True ? 0 : 1];
      Operand const& b = ctx_.p.operands[branch];
      if (b.var >= 0 && !b.neg && !b.abs) atoms_.graph().note_equal(v, b.var);
      return atoms_.restrict_var(v, tc_.ev.img(branch)) && atoms_.restrict_to(branch, result_set());
    }
    Set<R> a = tc_.ev.img(df.args[0]);
    Set<R> const b = tc_.ev.img(df.args[1]);
    a.nan = a.nan || b.nan;
    if (!a.has_num()) {
      a.lo = b.lo;
      a.hi = b.hi;
    } else if (b.has_num()) {
      a.lo = mn(a.lo, b.lo);
      a.hi = mx(a.hi, b.hi);
    }
    return atoms_.restrict_var(v, a);
  }
  std::vector<Bounds<R>> a;
  a.reserve(df.args.size());
  for (int o : df.args)
    a.push_back(Bounds<R>{tc_.ev.img(o), &tc_.ev.format_of_operand(o), ctx_.p.format_of(o)});
  unsigned const modes = df.rm >= 0 ? rm_modes(df.rm) : 1u;
  if (modes == 0) return false;
  IEEEFloat::format const fmt = ctx_.p.vars[v].fmt;
  bool const same = df.args.size() == 2 && same_term(df.args[0], df.args[1]);
  Set<R> const forward = project(df.op, a, modes, rf, fmt, same);
  if (!atoms_.restrict_var(v, forward)) return false;
  // Backward: where the result's interval is narrower than the forward
  // projection, shave each operand's ends (see shave).
  Set<R> const z = result_set();
  bool const narrower = (forward.nan && !z.nan) || forward.lo < z.lo || z.hi < forward.hi;
  if (narrower && df.op != FpOp::rem && df.op != FpOp::min && df.op != FpOp::max)
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (ctx_.p.operands[df.args[i]].var < 0) continue;
      Set<R> const s = shave(df.op, a, i, modes, rf, fmt, z, same);
      if (!atoms_.restrict_to(df.args[i], s)) return false;
      a[i].s = tc_.ev.img(df.args[i]);
    }
  // fp.to_ubv and fp.to_sbv of NaN have a value.
  if (df.op != FpOp::min && df.op != FpOp::max && df.op != FpOp::ubv_of_fp &&
      df.op != FpOp::sbv_of_fp && tc_.ev.cur[v].lo > rf.nan)
    for (int o : df.args) {
      Set<R> s = tc_.ev.img(o);
      if (!s.nan) continue;
      s.nan = false;
      if (!atoms_.restrict_to(o, s)) return false;
    }
  return true;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(DefPropagation)

} // namespace fpsolve
