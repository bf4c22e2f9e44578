// The search loop over the host's bounds trail and the evaluation of models
// (see search.h and solver.h).  The loop is written once as a template over
// the rank type and instantiated for 128-bit and GMP ranks.
#include "engine/search.h"

#include "engine/apply.h"

#include "engine/solver.h"

#include "host/pick_mid.h"
#include "support/invariant.h"

#include <cassert>

namespace fpsolve {

template <class R>
void Solver<R>::setup() {
  roots_ = p_.assertions;
  std::size_t const nv = p_.vars.size();
  int const nr = static_cast<int>(roots_.size());
  watchers_.assign(nv, {});
  clause_watch_.assign(nv, {});
  clause_var_queued_.assign(nv, 0);
  relevant_.assign(nv, 0);
  auto watch = [&](int v, int entry) {
    if (watchers_[v].empty() || watchers_[v].back() != entry) watchers_[v].push_back(entry);
  };
  std::vector<int> work; // relevant variables whose Def is still to be visited
  auto mark = [&](int v) {
    if (relevant_[v]) return;
    relevant_[v] = 1;
    work.push_back(v);
  };
  // The variables that occur directly in the atoms under a node (not
  // through Defs), each reported to f.
  std::vector<int> seen(p_.nodes.size(), -1);
  int stamp = 0;
  auto node_vars = [&](int root, auto const& f) {
    ++stamp;
    std::vector<int> todo{root};
    while (!todo.empty()) {
      int n = todo.back();
      todo.pop_back();
      if (seen[n] == stamp) continue;
      seen[n] = stamp;
      Node const& nd = p_.nodes[n];
      if (nd.op == Op::bvar)
        f(nd.a);
      else if (nd.op >= Op::leq) {
        if (p_.operands[nd.a].var >= 0) f(p_.operands[nd.a].var);
        if (nd.b >= 0 && p_.operands[nd.b].var >= 0) f(p_.operands[nd.b].var);
      }
      for (int k : nd.kids)
        todo.push_back(k);
    }
  };
  for (int r = 0; r < nr; ++r)
    node_vars(roots_[r], [&](int v) {
      watch(v, r);
      mark(v);
    });
  while (!work.empty()) {
    int const v = work.back();
    work.pop_back();
    int const d = p_.vars[v].def;
    if (d < 0) continue;
    Def const& df = p_.defs[d];
    int const entry = nr + d;
    watch(v, entry);
    auto use = [&](int u) {
      watch(u, entry);
      mark(u);
    };
    for (int o : df.args)
      if (p_.operands[o].var >= 0) use(p_.operands[o].var);
    if (df.rm >= 0 && p_.operands[df.rm].var >= 0) use(p_.operands[df.rm].var);
    if (df.cond >= 0) node_vars(df.cond, use);
  }
  // Inputs first (Booleans, rounding modes, then floating point), so that
  // the Boolean structure is settled before values; the Defs' variables form
  // the second segment, decided only when every input is a single value
  // (then only unspecified results are left to choose).
  for (int pass = 0; pass < 4; ++pass) {
    if (pass == 3) manager_.split = manager_.terms.size();
    for (std::size_t v = 0; v < nv; ++v) {
      Var const& var = p_.vars[v];
      int const kind = var.def >= 0 ? 3 : var.is_bool ? 0 : var.is_rm ? 1 : 2;
      if (relevant_[v] && kind == pass) {
        manager_.terms.push_back(var.term);
        var_of_term_[var.term] = static_cast<int>(v);
      }
    }
  }
  // Defs first, in their topological order, so the first round carries
  // values forward before the roots are looked at.
  queued_.assign(roots_.size() + p_.defs.size(), 0);
  for (std::size_t d = 0; d < p_.defs.size(); ++d)
    if (relevant_[p_.defs[d].var]) {
      queued_[nr + d] = 1;
      queue_.push_back(nr + static_cast<int>(d));
    }
  for (int r = 0; r < nr; ++r) {
    queued_[r] = 1;
    queue_.push_back(r);
  }
  // Rounding-mode variables range over the five modes.
  for (std::size_t v = 0; v < nv; ++v)
    if (relevant_[v] && p_.vars[v].is_rm) narrow(static_cast<int>(v), R(0), R(4));
}

template <class R>
void Solver<R>::enqueue_all() {
  lost_ = false;
  int const nr = static_cast<int>(roots_.size());
  for (std::size_t d = 0; d < p_.defs.size(); ++d)
    if (relevant_[p_.defs[d].var] && !queued_[nr + d]) {
      queued_[nr + d] = 1;
      queue_.push_back(nr + static_cast<int>(d));
    }
  for (int r = 0; r < nr; ++r)
    if (!queued_[r]) {
      queued_[r] = 1;
      queue_.push_back(r);
    }
}

template <class R>
void Solver<R>::enqueue_watchers(int v) {
  if (!clause_watch_[v].empty() && !clause_var_queued_[v]) {
    clause_var_queued_[v] = 1;
    clause_vars_.push_back(v);
  }
  for (int r : watchers_[v])
    if (!queued_[r]) {
      queued_[r] = 1;
      queue_.push_back(r);
    }
}

template <class R>
void Solver<R>::assert_on_trail(qorv::FpBoundElement* e, int v) {
  trail_.assert_bound(e);
  reload_end(v, e->flag());
}

template <class R>
void Solver<R>::reload_end(int v, bool lower) {
  qorv::fp::FpValueInterval const& iv = trail_.interval(p_.vars[v].term);
  Iv& c = ev_.cur[v];
  if (lower)
    c.lo = rank_of<R>(iv.lower());
  else
    c.hi = rank_of<R>(iv.upper());
}

template <class R>
void Solver<R>::push_bound(int v, bool lower, R const& rank) {
  IEEEFloat const value = value_of(rank, p_.vars[v].fmt);
  assert_on_trail(domain_.new_FpBoundElement(lower, p_.vars[v].term, value), v);
}

template <class R>
bool Solver<R>::narrow(int v, R lo, R hi) {
  Iv const c = ev_.cur[v];
  if (lo < c.lo) lo = c.lo;
  if (c.hi < hi) hi = c.hi;
  if (hi < lo) return false;
  // A Boolean known to be true (not NaN) is pinned to one value so that the
  // decision heuristic never splits it.
  if (p_.vars[v].is_bool && lo > ev_.format_of_var(v).nan) hi = lo;
  if (lo == c.lo && hi == c.hi) return true;
  if (lo != c.lo) {
    push_bound(v, true, lo);
    ++stats_.propagations;
  }
  if (hi != c.hi) {
    push_bound(v, false, hi);
    ++stats_.propagations;
  }
  enqueue_watchers(v);
  return true;
}

template <class R>
bool Solver<R>::assert_element(qorv::FpBoundElement* e, int v) {
  assert_on_trail(e, v);
  Iv const next = ev_.cur[v];
  if (next.hi < next.lo) return false;
  enqueue_watchers(v);
  return narrow(v, next.lo, next.hi);
}

template <class R>
void Solver<R>::backtrack_to(std::size_t length) {
  while (trail_.size() > length) {
    qorv::FpBoundElement const* e = trail_.bounds.back();
    auto const it = var_of_term_.find(e->term());
    assert(it != var_of_term_.end() && "every bound on the trail is on a search variable");
    int const v = it->second;
    bool const lower = e->flag();
    trail_.backtrack(trail_.size() - 1, &domain_);
    reload_end(v, lower);
  }
}

// The operand's value must lie in t: narrow its variable to the hull of the
// preimage (fp.neg undone first, then fp.abs).
template <class R>
bool Solver<R>::restrict_to(int o, Set<R> t) {
  Operand const& op = p_.operands[o];
  FormatRanks<R> const& f = ev_.format_of_operand(o);
  if (op.var < 0) {
    R const& c = ev_.const_rank[o];
    return c == f.nan ? t.nan : (t.lo <= c && c <= t.hi);
  }
  if (op.neg && t.has_num()) t = {t.nan, R(-t.hi - 1), R(-t.lo - 1)};
  if (op.abs && t.has_num()) {
    if (t.hi < 0)
      t = {t.nan, R(1), R(0)};
    else
      t = {t.nan, R(-t.hi - 1), t.hi};
  }
  if (t.has_num()) return narrow(op.var, t.nan ? f.nan : t.lo, t.hi);
  if (t.nan) return narrow(op.var, f.nan, f.nan);
  return false;
}

template <class R>
bool Solver<R>::atom_prop(Node const& nd, bool want) {
  if (ev_.same_var(nd)) {
    Set<R> const t = ev_.same_var_set(nd, want);
    R const nan = ev_.format_of_operand(nd.a).nan;
    int const v = p_.operands[nd.a].var;
    if (t.has_num()) return narrow(v, t.nan ? nan : t.lo, t.hi);
    return t.nan && narrow(v, nan, nan);
  }
  Set<R> const a = ev_.img(nd.a);
  FormatRanks<R> const& f = ev_.format_of_operand(nd.a);
  R const ninf = f.nan + 1;
  switch (nd.op) {
  case Op::leq:
  case Op::lt: {
    Set<R> const b = ev_.img(nd.b);
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
    note_edge(lo_op, hi_op, strict);
    R const d = strict ? 1 : 0;
    return restrict_to(lo_op, {false, ninf, max_rank_key_le(R(key(hi.hi) - d))}) &&
           restrict_to(hi_op, {false, min_rank_key_ge(R(key(lo.lo) + d)), f.pinf});
  }
  case Op::fp_eq: {
    Set<R> const b = ev_.img(nd.b);
    if (want) {
      if (!a.has_num() || !b.has_num()) return false;
      note_edge(nd.a, nd.b, false);
      note_edge(nd.b, nd.a, false);
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
    return cut(nd.a, a, b) && cut(nd.b, ev_.img(nd.b), ev_.img(nd.a));
  }
  case Op::ident: {
    Set<R> const b = ev_.img(nd.b);
    if (want) {
      note_edge(nd.a, nd.b, false);
      note_edge(nd.b, nd.a, false);
      return restrict_to(nd.a, b) && restrict_to(nd.b, ev_.img(nd.a));
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
    return cut(nd.a, a, b) && cut(nd.b, ev_.img(nd.b), ev_.img(nd.a));
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
bool Solver<R>::prop(int n, bool want) {
  L const v = ev_.eval(n);
  L const good = want ? L::T : L::F;
  if (v == good) return true;
  if (v == lnot(good)) return false;
  Node const& nd = p_.nodes[n];
  switch (nd.op) {
  case Op::t:
  case Op::f:
    return false; // evaluated above
  case Op::bvar: {
    R const nan = ev_.format_of_var(nd.a).nan;
    return want ? narrow(nd.a, R(nan + 1), R(nan + 1)) : narrow(nd.a, nan, nan);
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
      L kv = ev_.eval(k);
      if (kv == L::U) {
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
      L kv = ev_.eval(k);
      if (kv == L::U) {
        if (unknown >= 0) return true;
        unknown = k;
      } else {
        parity ^= kv == L::T;
      }
    }
    return unknown < 0 || prop(unknown, want != parity);
  }
  case Op::iff: {
    L a = ev_.eval(nd.kids[0]), b = ev_.eval(nd.kids[1]);
    if (a != L::U) return prop(nd.kids[1], want == (a == L::T));
    if (b != L::U) return prop(nd.kids[0], want == (b == L::T));
    return true;
  }
  case Op::ite: {
    L c = ev_.eval(nd.kids[0]);
    if (c != L::U) return prop(nd.kids[c == L::T ? 1 : 2], want);
    if (ev_.eval(nd.kids[1]) == lnot(good))
      return prop(nd.kids[0], false) && prop(nd.kids[2], want);
    if (ev_.eval(nd.kids[2]) == lnot(good)) return prop(nd.kids[0], true) && prop(nd.kids[1], want);
    return true;
  }
  default:
    return atom_prop(nd, want);
  }
}

template <class R>
bool Solver<R>::restrict_var(int v, Set<R> const& t) {
  R const nan = ev_.format_of_var(v).nan;
  if (t.has_num()) return narrow(v, t.nan ? nan : t.lo, t.hi);
  return t.nan && narrow(v, nan, nan);
}

// The values of operand i that can still yield a result in z: its ends are
// cut while the forward projection of the cut part (the other operands as
// they are) misses z.  Each cut rests on one projection that misses, so it
// is as sound as the projection, whatever the shape of the operation; the
// binary search only decides where to look.
template <class R>
Set<R> Solver<R>::shave(FpOp op, std::vector<Bounds<R>> a, std::size_t i, unsigned modes,
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
bool Solver<R>::same_term(int x, int y) const {
  Operand const &a = p_.operands[x], &b = p_.operands[y];
  return a.var >= 0 && a.var == b.var && a.abs == b.abs && a.neg == b.neg;
}

template <class R>
unsigned Solver<R>::rm_modes(int o) const {
  Operand const& op = p_.operands[o];
  R lo, hi;
  if (op.var < 0) {
    lo = hi = ev_.const_rank[o];
  } else {
    lo = ev_.cur[op.var].lo;
    hi = ev_.cur[op.var].hi;
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
bool Solver<R>::prop_def(int d) {
  Def const& df = p_.defs[d];
  int const v = df.var;
  FormatRanks<R> const& rf = ev_.format_of_var(v);
  auto result_set = [&]() {
    Iv const& c = ev_.cur[v];
    return Set<R>{c.lo == rf.nan, mx(c.lo, R(rf.nan + 1)), c.hi};
  };
  if (df.op == FpOp::ite) {
    L const c = ev_.eval(df.cond);
    if (c != L::U) {
      int const branch = df.args[c == L::T ? 0 : 1];
      return restrict_var(v, ev_.img(branch)) && restrict_to(branch, result_set());
    }
    Set<R> a = ev_.img(df.args[0]);
    Set<R> const b = ev_.img(df.args[1]);
    a.nan = a.nan || b.nan;
    if (!a.has_num()) {
      a.lo = b.lo;
      a.hi = b.hi;
    } else if (b.has_num()) {
      a.lo = mn(a.lo, b.lo);
      a.hi = mx(a.hi, b.hi);
    }
    return restrict_var(v, a);
  }
  std::vector<Bounds<R>> a;
  a.reserve(df.args.size());
  for (int o : df.args)
    a.push_back(Bounds<R>{ev_.img(o), &ev_.format_of_operand(o), p_.operands[o].fmt});
  unsigned const modes = df.rm >= 0 ? rm_modes(df.rm) : 1u;
  if (modes == 0) return false;
  IEEEFloat::format const fmt = p_.vars[v].fmt;
  bool const same = df.args.size() == 2 && same_term(df.args[0], df.args[1]);
  Set<R> const forward = project(df.op, a, modes, rf, fmt, same);
  if (!restrict_var(v, forward)) return false;
  // Backward: where the result's interval is narrower than the forward
  // projection, shave each operand's ends (see shave).
  Set<R> const z = result_set();
  bool const narrower = (forward.nan && !z.nan) || forward.lo < z.lo || z.hi < forward.hi;
  if (narrower && df.op != FpOp::rem && df.op != FpOp::min && df.op != FpOp::max)
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (p_.operands[df.args[i]].var < 0) continue;
      Set<R> const s = shave(df.op, a, i, modes, rf, fmt, z, same);
      if (!restrict_to(df.args[i], s)) return false;
      a[i].s = ev_.img(df.args[i]);
    }
  if (df.op != FpOp::min && df.op != FpOp::max && ev_.cur[v].lo > rf.nan)
    for (int o : df.args) {
      Set<R> s = ev_.img(o);
      if (!s.nan) continue;
      s.nan = false;
      if (!restrict_to(o, s)) return false;
    }
  return true;
}

// A cycle of forced comparisons with a strict step (x < y <= ... <= x) is a
// contradiction that bound propagation would only discover one value at a
// time; it is found here instead.  Nodes are the views x, -x, |x|, -|x| of
// the variables; every edge u <= v also gives -v <= -u, and |x| is tied to
// x by x <= |x| and -|x| <= x.  Each step holds only for non-NaN values,
// and a cycle through a comparison forces all of its nodes non-NaN.
template <class R>
bool Solver<R>::strict_cycle() const {
  std::size_t const nn = 4 * p_.vars.size();
  std::vector<std::vector<std::pair<int, bool>>> out(nn);
  std::vector<char> has_abs(p_.vars.size(), 0);
  auto id = [&](int o) {
    Operand const& op = p_.operands[o];
    return op.var * 4 + (op.abs ? 2 : 0) + (op.neg ? 1 : 0);
  };
  auto add = [&](int u, int v, bool s) {
    out[u].push_back({v, s});
    out[v ^ 1].push_back({u ^ 1, s});
  };
  for (Edge const& e : edges_) {
    if (p_.operands[e.from].var < 0 || p_.operands[e.to].var < 0) continue;
    add(id(e.from), id(e.to), e.strict);
    for (int o : {e.from, e.to})
      if (p_.operands[o].abs) has_abs[p_.operands[o].var] = 1;
  }
  for (std::size_t v = 0; v < has_abs.size(); ++v)
    if (has_abs[v]) {
      int x = static_cast<int>(v) * 4;
      add(x, x + 2, false); // x <= |x|
      add(x + 3, x, false); // -|x| <= x
    }
  // A strict edge u -> v lies on a cycle when u is reachable from v.
  std::vector<int> mark(nn, -1), stack;
  int round = 0;
  for (std::size_t u = 0; u < nn; ++u)
    for (auto const& [v0, strict] : out[u]) {
      if (!strict) continue;
      ++round;
      stack.assign(1, v0);
      mark[v0] = round;
      while (!stack.empty()) {
        int w = stack.back();
        stack.pop_back();
        if (w == static_cast<int>(u)) return true;
        for (auto const& [x, s] : out[w])
          if (mark[x] != round) {
            mark[x] = round;
            stack.push_back(x);
          }
      }
    }
  return false;
}

template <class R>
typename Solver<R>::Round Solver<R>::propagate() {
  edges_.clear();
  std::size_t work = 0;
  std::size_t const budget = 32 * queued_.size() + 1000;
  Round outcome = Round::fixpoint;
  // Learned clauses first and always to their fixpoint: they are cheap, and
  // a clause must be propagated at the level where it becomes unit.
  for (;;) {
    if (!drain_clauses()) {
      outcome = Round::conflict;
      break;
    }
    if (queue_.empty()) break;
    int r = queue_.front();
    queue_.pop_front();
    queued_[r] = 0;
    // Past the budget, propagation is creeping: leave the rest to the
    // decisions, which halve intervals instead of shaving single values.
    // The entries left stay queued for the next round; a conflict drops
    // them, and the next backtrack queues every entry again (lost_).
    // Past the time limit, the round stops too; the caller then answers
    // unknown.
    if (++work > budget || (work % 64 == 0 && out_of_resources())) {
      queue_.push_front(r);
      queued_[r] = 1;
      lost_ = true;
      return Round::stalled;
    }
    if (r < static_cast<int>(roots_.size()) ? !prop(roots_[r], true)
                                            : !prop_def(r - static_cast<int>(roots_.size()))) {
      outcome = Round::conflict;
      break;
    }
  }
  if (outcome == Round::conflict) {
    for (int q : queue_)
      queued_[q] = 0;
    queue_.clear();
    for (int u : clause_vars_)
      clause_var_queued_[u] = 0;
    clause_vars_.clear();
  }
  return outcome;
}

template <class R>
bool Solver<R>::deduce() {
  Round const outcome = propagate();
  if (outcome == Round::stalled) return !strict_cycle();
  return outcome == Round::fixpoint;
}

template <class R>
L Solver<R>::eval_all() const {
  L all = L::T;
  for (int r : roots_) {
    L v = ev_.eval(r);
    if (v == L::F) return L::F;
    if (v == L::U) all = L::U;
  }
  return all;
}

template <class R>
bool Solver<R>::out_of_resources() const {
  if (opt_.max_decisions && stats_.decisions >= opt_.max_decisions) return true;
  if (opt_.timeout > 0) {
    std::chrono::duration<double> d = std::chrono::steady_clock::now() - start_;
    if (d.count() >= opt_.timeout) return true;
  }
  return false;
}

template <class R>
void Solver<R>::trace_backtrack() {
  std::ostream& out = *opt_.trace_out;
  qorv::FpValueElement element;
  for (qorv::FpBoundElement const* e : trail_.bounds)
    element.terms.insert(e->term());
  choice_.trail_mark = levels_.empty() ? trail_.size() : levels_.back().trail_length;
  auto const& frames = choice_.get_search_candidates(element);
  out << "; backtrack " << stats_.backtracks << ": decision level " << levels_.size() << ", trail "
      << trail_.size() << ", mark " << choice_.trail_mark << "\n";
  for (auto const& frame : frames)
    out << ";   " << frame.to_str() << "\n";
}

template <class R>
R Solver<R>::pick(int v) const {
  Iv const& iv = ev_.cur[v];
  FormatRanks<R> const& f = ev_.format_of_var(v);
  if (p_.vars[v].is_bool)
    return relevant_[v] && iv.hi > f.nan ? R(f.nan + 1) : f.nan; // true when possible
  if (p_.vars[v].is_rm) return relevant_[v] ? iv.lo : R(0);
  if (iv.lo <= 0 && 0 <= iv.hi) return 0;
  return iv.hi < 0 ? iv.hi : iv.lo;
}

template <class R>
std::vector<IEEEFloat> Solver<R>::model() const {
  std::vector<IEEEFloat> m;
  for (std::size_t v = 0; v < p_.vars.size(); ++v)
    m.push_back(value_of(pick(static_cast<int>(v)), p_.vars[v].fmt));
  return m;
}

template <class R>
bool Solver<R>::try_candidate(std::vector<IEEEFloat>* out) const {
  *out = model();
  if (p_.defs.empty()) return true; // evaluation over the intervals was exact enough
  std::string why;
  return verify_model(p_, *out, &why, &relevant_);
}

template <class R>
bool Solver<R>::all_single() const {
  for (std::size_t v = 0; v < p_.vars.size(); ++v)
    if (relevant_[v] && !(ev_.cur[v].lo == ev_.cur[v].hi)) return false;
  return true;
}

template <class R>
void Solver<R>::check_invariants() {
  trail_.check_invariants();
  for (std::size_t i = 0; i < manager_.terms.size(); ++i) {
    qorv::Term const* t = manager_.terms[i];
    int v = var_of_term_[t];
    auto const& iv = trail_.interval(t);
    if (!(rank_of<R>(iv.lower()) == ev_.cur[v].lo) || !(rank_of<R>(iv.upper()) == ev_.cur[v].hi))
      qorv::invariant_violated("fpsolve search", "interval out of step with the trail", t->name());
  }
}

template <class R>
Result Solver<R>::run() {
  setup();
  Result res;
  bool ok = deduce();
  for (;;) {
    if (opt_.check) check_invariants();
    if (ok) {
      L const s = eval_all();
      if (s != L::F) {
        // The picked inputs with every term computed exactly: sat when they
        // satisfy the assertions.  With every value single, a failure can
        // only come from two unspecified results that chose differently for
        // the same operands (a conflict), or from an unsound step, which
        // the caller's own check of the model reports.  Without Defs the
        // candidate can only succeed where the assertions are true over the
        // intervals (then every value of the box is a model), so it is tried
        // only there; the probe narrows first, so it is worth a try anywhere.
        std::vector<IEEEFloat> m;
        bool const candidate = s == L::T || !p_.defs.empty();
        if ((candidate && try_candidate(&m)) || (opt_.probe && probe_due() && probe(&m))) {
          res.answer = Answer::sat;
          res.model = std::move(m);
          break;
        }
        if (s == L::T && all_single()) {
          std::vector<IEEEFloat> searched = model();
          // A term whose single value is not its exact value (propagation
          // stalled before it) or an unspecified choice that differs for
          // equal operands: this box holds no model.  Nothing changed: the
          // evaluation disagrees with the exact check, which the caller's
          // check of the model reports.
          if (!complete_model(p_, searched, nullptr, &relevant_)) {
            res.answer = Answer::sat;
            res.model = model();
            break;
          }
          ok = false;
        }
      }
      ok = ok && s != L::F;
    }
    if (!ok) {
      ++stats_.backtracks;
      if (opt_.trace && opt_.trace_out) trace_backtrack();
      if (levels_.empty()) {
        res.answer = Answer::unsat;
        break;
      }
      ok = learn_and_backjump();
      continue;
    }
    if (out_of_resources()) break;
    qorv::FpBoundElement* e = heuristic_.decide();
    // Undetermined assertions leave some search variable with more than one
    // value (with every interval a single value, evaluation is exact).
    if (domain_.is_no_decision(e))
      qorv::invariant_violated("fpsolve search", "no decision while an assertion is undetermined");
    int const v = var_of_term_[e->term()];
    R const r = rank_of<R>(e->value);
    ++stats_.decisions;
    if (ev_.cur[v].lo == ev_.format_of_var(v).nan)
      ++stats_.nan_decisions;
    else
      ++stats_.split_decisions;
    if (e->flag() && r == ev_.cur[v].lo) {
      // "At least the lower end" narrows nothing and its complement is empty;
      // decide the split just above it instead, so both branches shrink.
      IEEEFloat up = qorv::next_above(e->value);
      domain_.release_FpBoundElement(e);
      e = domain_.new_FpBoundElement(true, p_.vars[v].term, up);
    }
    levels_.push_back(Level{trail_.size(), v, e->flag(), e->value});
    ok = assert_element(e, v) && deduce();
  }
  backtrack_to(0);
  std::chrono::duration<double> d = std::chrono::steady_clock::now() - start_;
  stats_.seconds = d.count();
  res.stats = stats_;
  return res;
}

// Every member defined above, for both rank types (learning.cpp defines
// and instantiates its own).
template class Solver<i128>;
template class Solver<mpz_class>;

namespace {

// Ranks of a format of w bits lie within +-2^(w-1), so 128 bits suffice up to
// w = 128 (Float128 included).
bool fits_128(Problem const& p) {
  for (Operand const& o : p.operands)
    if (o.fmt.eb + o.fmt.sb > 128) return false;
  for (Var const& v : p.vars)
    if (v.fmt.eb + v.fmt.sb > 128) return false;
  return true;
}

template <class R>
void load_model(Evaluator<R>& ev, std::vector<IEEEFloat> const& model) {
  for (std::size_t v = 0; v < model.size(); ++v) {
    R r = rank_of<R>(canonical(model[v]));
    ev.cur[v] = {r, r};
  }
}

} // namespace

Result solve(Problem& p, Options const& options) {
  if (fits_128(p)) return Solver<i128>(p, options).run();
  return Solver<mpz_class>(p, options).run();
}

bool eval_bool(Problem const& p, std::vector<IEEEFloat> const& given, int node) {
  std::vector<IEEEFloat> model = given;
  complete_model(p, model);
  Evaluator<mpz_class> ev(p);
  load_model(ev, model);
  L v = ev.eval(node);
  assert(v != L::U && "a model gives every atom a truth value");
  return v == L::T;
}

IEEEFloat eval_fp(Problem const& p, std::vector<IEEEFloat> const& given, int operand) {
  std::vector<IEEEFloat> model = given;
  complete_model(p, model);
  return operand_value(p, model, operand);
}

} // namespace fpsolve
