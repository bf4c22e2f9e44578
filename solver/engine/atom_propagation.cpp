// Boolean and atom propagation (see atom_propagation.h).
#include "engine/atom_propagation.h"

#include <utility>

namespace fpsolve {

template <class R>
bool AtomPropagation<R>::restrict_to(int o, Set<R> t) {
  Operand const& op = ctx_.p.operands[o];
  FormatRanks<R> const& f = tc_.ev.format_of_operand(o);
  if (op.var < 0) {
    R const& c = tc_.ev.const_rank_of(o);
    return c == f.nan ? t.nan : (t.lo <= c && c <= t.hi);
  }
  if (op.neg && t.has_num()) t = {t.nan, R(-t.hi - 1), R(-t.lo - 1)};
  if (op.abs && t.has_num()) {
    if (t.hi < 0)
      t = {t.nan, R(1), R(0)};
    else
      t = {t.nan, R(-t.hi - 1), t.hi};
  }
  if (t.has_num()) return tc_.narrow(op.var, t.nan ? f.nan : t.lo, t.hi);
  if (t.nan) return tc_.narrow(op.var, f.nan, f.nan);
  return false;
}

template <class R>
bool AtomPropagation<R>::restrict_var(int v, Set<R> const& t) {
  R const nan = tc_.ev.format_of_var(v).nan;
  if (t.has_num()) return tc_.narrow(v, t.nan ? nan : t.lo, t.hi);
  return t.nan && tc_.narrow(v, nan, nan);
}

template <class R>
bool AtomPropagation<R>::atom_prop(Node const& nd, bool want) {
  Evaluator<R> const& ev = tc_.ev;
  if (ev.same_var(nd)) {
    Set<R> const t = ev.same_var_set(nd, want);
    R const nan = ev.format_of_operand(nd.a).nan;
    int const v = ctx_.p.operands[nd.a].var;
    if (t.has_num()) return tc_.narrow(v, t.nan ? nan : t.lo, t.hi);
    return t.nan && tc_.narrow(v, nan, nan);
  }
  Set<R> const a = ev.img(nd.a);
  FormatRanks<R> const& f = ev.format_of_operand(nd.a);
  R const ninf = f.nan + 1;
  switch (nd.op) {
  case Op::leq:
  case Op::lt: {
    Set<R> const b = ev.img(nd.b);
    int lo_op = nd.a, hi_op = nd.b;
    bool strict = nd.op == Op::lt;
    Set<R> lo = a, hi = b;
    if (!want) { // not (a <= b) is a NaN or b < a; only the latter narrows
      if (a.nan || b.nan) return true;
      std::swap(lo_op, hi_op);
      std::swap(lo, hi);
      strict = !strict;
    }
    if (!lo.has_num() || !hi.has_num()) return false;
    graph_.note(lo_op, hi_op, strict);
    R const d = strict ? 1 : 0;
    return restrict_to(lo_op, {false, ninf, max_rank_key_le(R(key(hi.hi) - d))}) &&
           restrict_to(hi_op, {false, min_rank_key_ge(R(key(lo.lo) + d)), f.pinf});
  }
  case Op::fp_eq: {
    Set<R> const b = ev.img(nd.b);
    if (want) {
      if (!a.has_num() || !b.has_num()) return false;
      graph_.note(nd.a, nd.b, false);
      graph_.note(nd.b, nd.a, false);
      return restrict_to(nd.a, {false, min_rank_key_ge(key(b.lo)), max_rank_key_le(key(b.hi))}) &&
             restrict_to(nd.b, {false, min_rank_key_ge(key(a.lo)), max_rank_key_le(key(a.hi))});
    }
    if (a.nan || b.nan) return true;
    // Cut a single key of one side off the ends of the other.
    auto cut = [&](int o, Set<R> s, Set<R> const& other) {
      if (!other.has_num() || key(other.lo) != key(other.hi)) return true;
      R const k = key(other.lo);
      if (key(s.lo) == k) s.lo = min_rank_key_ge(R(k + 1));
      if (key(s.hi) == k) s.hi = max_rank_key_le(R(k - 1));
      return restrict_to(o, s);
    };
    return cut(nd.a, a, b) && cut(nd.b, ev.img(nd.b), ev.img(nd.a));
  }
  case Op::ident: {
    Set<R> const b = ev.img(nd.b);
    if (want) {
      graph_.note(nd.a, nd.b, false);
      graph_.note(nd.b, nd.a, false);
      return restrict_to(nd.a, b) && restrict_to(nd.b, ev.img(nd.a));
    }
    auto cut = [&](int o, Set<R> s, Set<R> const& other) {
      if (!other.single()) return true;
      if (other.nan) {
        s.nan = false;
      } else {
        if (s.lo == other.lo) s.lo = s.lo + 1;
        if (s.hi == other.lo) s.hi = s.hi - 1;
      }
      return restrict_to(o, s);
    };
    return cut(nd.a, a, b) && cut(nd.b, ev.img(nd.b), ev.img(nd.a));
  }
  case Op::is_nan:
    return restrict_to(nd.a, want ? Set<R>{true, R(1), R(0)} : Set<R>{false, a.lo, a.hi});
  default: {
    int const k = static_cast<int>(nd.op) - static_cast<int>(Op::is_inf);
    auto const& ranges = want ? f.holds[k] : f.fails[k];
    Set<R> t{!want && a.nan, R(1), R(0)};
    bool any = false;
    if (a.has_num())
      for (auto const& [lo, hi] : ranges) {
        if (hi < a.lo || a.hi < lo) continue;
        R l = mx(lo, a.lo), h = mn(hi, a.hi);
        if (!any || l < t.lo) t.lo = l;
        if (!any || t.hi < h) t.hi = h;
        any = true;
      }
    return restrict_to(nd.a, t);
  }
  }
}

template <class R>
bool AtomPropagation<R>::prop(int n, bool want) {
  Evaluator<R> const& ev = tc_.ev;
  // A run of nots is one flip of `want`: evaluating each level again
  // would make a chain of nots quadratic in its depth.
  for (; ctx_.p.nodes[n].op == Op::not_; want = !want)
    n = ctx_.p.nodes[n].kids[0];
  lbool const v = ev.eval(n);
  lbool const good = want ? l_True : l_False;
  if (v == good) return true;
  if (v == lnot(good)) return false;
  Node const& nd = ctx_.p.nodes[n];
  switch (nd.op) {
  case Op::t:
  case Op::f:
    return false; // evaluated above
  case Op::bvar: {
    R const nan = ev.format_of_var(nd.a).nan;
    return want ? tc_.narrow(nd.a, R(nan + 1), R(nan + 1)) : tc_.narrow(nd.a, nan, nan);
  }
  case Op::not_:
    return prop(nd.kids[0], !want);
  case Op::and_:
  case Op::or_: {
    bool const all = (nd.op == Op::and_) == want; // every kid must be `want`
    if (all) {
      for (int k : nd.kids)
        if (!prop(k, want)) return false;
      return true;
    }
    int unknown = -1; // the one kid left to satisfy, if only one
    for (int k : nd.kids) {
      if (ev.eval(k) == l_Undef) {
        if (unknown >= 0) return true;
        unknown = k;
      }
    }
    return unknown < 0 || prop(unknown, want);
  }
  case Op::xor_: {
    int unknown = -1;
    bool parity = false;
    for (int k : nd.kids) {
      lbool const kv = ev.eval(k);
      if (kv == l_Undef) {
        if (unknown >= 0) return true;
        unknown = k;
      } else {
        parity ^= kv == l_True;
      }
    }
    return unknown < 0 || prop(unknown, want != parity);
  }
  case Op::iff: {
    lbool const a = ev.eval(nd.kids[0]), b = ev.eval(nd.kids[1]);
    if (a != l_Undef) return prop(nd.kids[1], want == (a == l_True));
    if (b != l_Undef) return prop(nd.kids[0], want == (b == l_True));
    return true;
  }
  case Op::ite: {
    lbool const c = ev.eval(nd.kids[0]);
    if (c != l_Undef) return prop(nd.kids[c == l_True ? 1 : 2], want);
    if (ev.eval(nd.kids[1]) == lnot(good)) return prop(nd.kids[0], false) && prop(nd.kids[2], want);
    if (ev.eval(nd.kids[2]) == lnot(good)) return prop(nd.kids[0], true) && prop(nd.kids[1], want);
    return true;
  }
  default:
    return atom_prop(nd, want);
  }
}

FPSOLVE_INSTANTIATE_FOR_RANKS(AtomPropagation)

} // namespace fpsolve
