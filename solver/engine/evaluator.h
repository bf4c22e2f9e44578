// Three-valued evaluation of the problem's nodes over sets of values.
//
// `cur` holds the current rank interval [lo, hi] of every variable.  The image
// of an operand is exact: fp.neg and fp.abs map a rank range onto a rank range
// (plus NaN when the variable may be NaN).  An atom is true only when it
// holds for every combination of values in its operands' images, false only
// when it holds for none; so true and false are sound even where operands
// share a variable, and with every interval a single value the evaluation is
// exact.  Truth values are the library's qorv::lbool.
#pragma once

#include "engine/problem.h"
#include "engine/ranks.h"

#include "host/theory_lit.h"

#include <utility>
#include <vector>

namespace fpsolve {

using qorv::l_False;
using qorv::l_True;
using qorv::l_Undef;
using qorv::lbool;

inline lbool lnot(lbool v) {
  return v == l_True ? l_False : v == l_False ? l_True : l_Undef;
}

template <class R>
class Evaluator {
public:
  struct Iv {
    R lo, hi;
  };

  // The ranks of the problem's formats and constants are few and indexed
  // as the problem indexes them; the only table per variable is `cur`,
  // sized once: several evaluators live through a search, and vectors grown
  // by doubling would hold up to twice the room on long problems.
  explicit Evaluator(Problem const& problem) : p(problem) {
    fr.reserve(p.formats.size());
    for (IEEEFloat::format const& f : p.formats)
      fr.emplace_back(f);
    const_rank.reserve(p.constants.size());
    for (IEEEFloat const& c : p.constants)
      const_rank.push_back(rank_of<R>(c));
    cur.reserve(p.vars.size());
    for (Var const& v : p.vars) {
      FormatRanks<R> const& f = fr[v.fmt_id];
      cur.push_back(Iv{f.nan, f.pinf});
    }
  }

  FormatRanks<R> const& format_of_var(int v) const { return fr[p.vars[v].fmt_id]; }
  FormatRanks<R> const& format_of_operand(int o) const { return fr[p.operands[o].fmt]; }
  // The rank of a constant operand.
  R const& const_rank_of(int o) const { return const_rank[p.operands[o].constant]; }

  Set<R> img(int o) const {
    Operand const& op = p.operands[o];
    FormatRanks<R> const& f = fr[op.fmt];
    if (op.var < 0) {
      R const& c = const_rank[op.constant];
      return c == f.nan ? Set<R>{true, R(1), R(0)} : Set<R>{false, c, c};
    }
    Iv const& iv = cur[op.var];
    Set<R> s{iv.lo == f.nan, mx(iv.lo, R(f.nan + 1)), iv.hi};
    if (op.abs && s.has_num()) {
      if (s.hi < 0)
        s = {s.nan, R(-s.hi - 1), R(-s.lo - 1)};
      else if (s.lo < 0)
        s = {s.nan, R(0), mx(R(-s.lo - 1), s.hi)};
    }
    if (op.neg && s.has_num()) s = {s.nan, R(-s.hi - 1), R(-s.lo - 1)};
    return s;
  }

  // The conjunction of the nodes `roots` (the assertions).
  lbool eval_all(std::vector<int> const& roots) const {
    lbool all = l_True;
    for (int r : roots) {
      lbool const v = eval(r);
      if (v == l_False) return l_False;
      if (v == l_Undef) all = l_Undef;
    }
    return all;
  }

  lbool eval(int n) const {
    Node const& nd = p.nodes[n];
    switch (nd.op) {
    case Op::t:
      return l_True;
    case Op::f:
      return l_False;
    case Op::bvar: {
      Iv const& iv = cur[nd.a];
      R const& nan = fr[p.vars[nd.a].fmt_id].nan;
      return iv.lo > nan ? l_True : iv.hi == nan ? l_False : l_Undef;
    }
    case Op::not_: { // a run of nots in one step: tools nest them thousands deep
      int k = nd.kids[0];
      bool flip = true;
      for (; p.nodes[k].op == Op::not_; flip = !flip)
        k = p.nodes[k].kids[0];
      lbool const v = eval(k);
      return flip ? lnot(v) : v;
    }
    case Op::and_:
    case Op::or_: {
      lbool const stop = nd.op == Op::and_ ? l_False : l_True;
      lbool r = lnot(stop);
      for (int k : nd.kids) {
        lbool v = eval(k);
        if (v == stop) return stop;
        if (v == l_Undef) r = l_Undef;
      }
      return r;
    }
    case Op::xor_: {
      bool parity = false;
      for (int k : nd.kids) {
        lbool v = eval(k);
        if (v == l_Undef) return l_Undef;
        parity ^= v == l_True;
      }
      return parity ? l_True : l_False;
    }
    case Op::iff: {
      lbool a = eval(nd.kids[0]), b = eval(nd.kids[1]);
      if (a == l_Undef || b == l_Undef) return l_Undef;
      return a == b ? l_True : l_False;
    }
    case Op::ite: {
      lbool c = eval(nd.kids[0]);
      if (c != l_Undef) return eval(nd.kids[c == l_True ? 1 : 2]);
      lbool a = eval(nd.kids[1]);
      return a != l_Undef && a == eval(nd.kids[2]) ? a : l_Undef;
    }
    default:
      return atom(nd);
    }
  }

  // Whether the binary atom compares two views of one variable.
  bool same_var(Node const& nd) const {
    return nd.b >= 0 && p.operands[nd.a].var >= 0 && p.operands[nd.a].var == p.operands[nd.b].var;
  }

  // For an atom on two views of one variable x: the values of x (within its
  // interval; NaN flag and the hull of the non-NaN ranks) where the atom is
  // `want`.  On each sign half of x both views are x or -x, so with k the
  // key of x the atom is one of k op k, k op -k, -k op k; each holds on a
  // rank range that is read off directly.  Exact, where evaluating the two
  // images independently would lose the correlation.
  Set<R> same_var_set(Node const& nd, bool want) const {
    Operand const& a = p.operands[nd.a];
    Operand const& b = p.operands[nd.b];
    FormatRanks<R> const& f = fr[a.fmt];
    Iv const& iv = cur[a.var];
    bool const ident = nd.op == Op::ident;
    Set<R> out{iv.lo == f.nan && ident == want, R(1), R(0)}; // NaN: only = holds
    R const ninf = f.nan + 1;
    for (int half = 0; half < 2; ++half) {
      R const lo = mx(half ? R(0) : ninf, iv.lo), hi = mn(half ? f.pinf : R(-1), iv.hi);
      if (hi < lo) continue;
      bool const na = (a.abs && !half) != a.neg, nb = (b.abs && !half) != b.neg; // view is -x here
      std::pair<R, R> cond[2];
      int count = 0;
      auto add = [&](R const& l, R const& h) { cond[count++] = {l, h}; };
      if (na == nb) {
        if ((nd.op != Op::lt) == want) add(ninf, f.pinf); // x op x
      } else if (ident) {
        if (!want) add(ninf, f.pinf); // x and -x never share a pattern
      } else {
        // k op -k (na false) or -k op k (na true): a sign condition on k.
        bool const le = nd.op == Op::leq;
        if (nd.op == Op::fp_eq) {
          if (want)
            add(R(-1), R(0));
          else {
            add(ninf, R(-2));
            add(R(1), f.pinf);
          }
        } else if (!na) { // k <= -k: r <= 0;  k < -k: r <= -2
          if (want)
            add(ninf, le ? R(0) : R(-2));
          else
            add(le ? R(1) : R(-1), f.pinf);
        } else { // -k <= k: r >= -1;  -k < k: r >= 1
          if (want)
            add(le ? R(-1) : R(1), f.pinf);
          else
            add(ninf, le ? R(-2) : R(0));
        }
      }
      for (int i = 0; i < count; ++i) {
        R const l = mx(cond[i].first, lo), h = mn(cond[i].second, hi);
        if (h < l) continue;
        bool const empty = !out.has_num();
        if (empty || l < out.lo) out.lo = l;
        if (empty || out.hi < h) out.hi = h;
      }
    }
    return out;
  }

  lbool atom(Node const& nd) const {
    if (same_var(nd)) {
      Set<R> const t = same_var_set(nd, true), fl = same_var_set(nd, false);
      bool const pt = t.nan || t.has_num(), pf = fl.nan || fl.has_num();
      return !pt ? l_False : pf ? l_Undef : l_True;
    }
    Set<R> const a = img(nd.a);
    bool possible_true = false, possible_false = false;
    switch (nd.op) {
    case Op::leq:
    case Op::lt:
    case Op::fp_eq: {
      Set<R> const b = img(nd.b);
      if (!a.has_num() || !b.has_num()) return l_False;
      R const alo = key(a.lo), ahi = key(a.hi), blo = key(b.lo), bhi = key(b.hi);
      if (nd.op == Op::leq) {
        possible_true = alo <= bhi;
        possible_false = ahi > blo;
      } else if (nd.op == Op::lt) {
        possible_true = alo < bhi;
        possible_false = ahi >= blo;
      } else {
        possible_true = alo <= bhi && blo <= ahi;
        possible_false = !(alo == ahi && blo == bhi && alo == blo);
      }
      possible_false = possible_false || a.nan || b.nan;
      break;
    }
    case Op::ident: {
      Set<R> const b = img(nd.b);
      possible_true =
          (a.nan && b.nan) || (a.has_num() && b.has_num() && a.lo <= b.hi && b.lo <= a.hi);
      possible_false = !(a.single() && b.single());
      break;
    }
    case Op::is_nan:
      possible_true = a.nan;
      possible_false = a.has_num();
      break;
    default: {
      auto const& ranges =
          fr[p.operands[nd.a].fmt].holds[static_cast<int>(nd.op) - static_cast<int>(Op::is_inf)];
      possible_false = a.nan;
      bool inside = false;
      if (a.has_num())
        for (auto const& [lo, hi] : ranges) {
          possible_true = possible_true || (lo <= a.hi && a.lo <= hi);
          inside = inside || (lo <= a.lo && a.hi <= hi);
        }
      possible_false = possible_false || (a.has_num() && !inside);
    }
    }
    return !possible_true ? l_False : possible_false ? l_Undef : l_True;
  }

  Problem const& p;
  std::vector<FormatRanks<R>> fr; // per format of the problem
  std::vector<R> const_rank;      // per constant of the problem
  std::vector<Iv> cur;            // current interval of every variable
};

} // namespace fpsolve
