// Conflict learning (see learning.h).
#include "engine/learning.h"

#include "engine/bound_levels.h"
#include "engine/propagation.h"

#include "support/invariant.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <string>
#include <utility>

namespace fpsolve {

template <class R>
typename ClauseStore<R>::Truth ClauseStore<R>::truth(BoundLit const& l) const {
  auto const& c = tc_.ev.cur[l.var];
  if (l.lower) return l.rank <= c.lo ? Truth::yes : c.hi < l.rank ? Truth::no : Truth::open;
  return c.hi <= l.rank ? Truth::yes : l.rank < c.lo ? Truth::no : Truth::open;
}

template <class R>
bool ClauseStore<R>::make_true(BoundLit const& l) {
  auto const c = tc_.ev.cur[l.var];
  return l.lower ? tc_.narrow(l.var, l.rank, c.hi) : tc_.narrow(l.var, c.lo, l.rank);
}

template <class R>
typename ClauseStore<R>::BoundLit ClauseStore<R>::negation_of(Level const& lv) {
  R const r = rank_of<R>(lv.value);
  return lv.lower ? BoundLit{lv.var, false, R(r - 1)} : BoundLit{lv.var, true, R(r + 1)};
}

template <class R>
void ClauseStore<R>::report(std::vector<BoundLit> const& lits) const {
  std::vector<LearnedLiteral> out;
  for (BoundLit const& l : lits) {
    LearnedLiteral x;
    x.lower = l.lower;
    if (l.var >= ctx_.first_selector) // "s >= -oo" is the atom, "s <= NaN" its negation
      x.atom = ctx_.p.nodes[ctx_.links[l.var - ctx_.first_selector]].kids[1];
    else
      x.var = l.var;
    x.value = value_of(l.rank, ctx_.p.vars[l.var].fmt);
    out.push_back(x);
  }
  ctx_.opt.learned_clause_hook(out);
}

template <class R>
void ClauseStore<R>::add(std::vector<BoundLit> lits) {
  ++ctx_.stats.learned;
  ctx_.stats.learned_literals += lits.size();
  if (ctx_.opt.learned_clause_hook) report(lits);
  for (BoundLit const& l : lits)
    ctx_.activity[l.var] += ctx_.activity_step;
  ctx_.activity_step /= 0.95;
  if (ctx_.activity_step > 1e100) { // rescaled: the order of activities stays
    for (double& a : ctx_.activity)
      a *= 1e-100;
    ctx_.activity_step *= 1e-100;
  }
  if (lits.size() < 2) return; // a unit: asserted at the root, never undone
  int const id = static_cast<int>(clauses_.size());
  queue_.clause_watch(lits[0].var).push_back(id);
  if (lits[1].var != lits[0].var) queue_.clause_watch(lits[1].var).push_back(id);
  clauses_.push_back(Clause{std::move(lits)});
  if (++live_ > cap_) reduce();
}

// Deletes the older half of the clauses (every clause is a consequence of
// the assertions, so none is needed for soundness) and lets the cap grow, so
// that only finitely many reductions happen.  Watch lists drop the deleted
// clauses when next visited.
template <class R>
void ClauseStore<R>::reduce() {
  std::size_t drop = live_ / 2;
  for (std::size_t c = 0; c + 1 < clauses_.size() && drop > 0; ++c)
    if (!clauses_[c].lits.empty()) {
      std::vector<BoundLit>().swap(clauses_[c].lits);
      --live_;
      --drop;
    }
  cap_ += cap_ * ctx_.opt.clause_growth / 100;
}

template <class R>
bool ClauseStore<R>::propagate_clauses(int v) {
  std::vector<int>& ws = queue_.clause_watch(v);
  std::size_t kept = 0, i = 0;
  bool ok = true;
  for (; i < ws.size() && ok; ++i) {
    int const c = ws[i];
    std::vector<BoundLit>& lits = clauses_[c].lits;
    bool stays = false; // a watch of c is still on v
    for (int w = 0; w < 2 && ok && !lits.empty(); ++w) {
      if (lits[w].var != v) continue;
      stays = true;
      if (truth(lits[w]) != Truth::no) continue;
      std::size_t k = 2;
      while (k < lits.size() && truth(lits[k]) == Truth::no)
        ++k;
      if (k < lits.size()) { // a new watch
        std::swap(lits[w], lits[k]);
        int const to = lits[w].var;
        if (to == v) continue;
        if (lits[1 - w].var != to) queue_.clause_watch(to).push_back(c);
        stays = lits[1 - w].var == v;
        continue;
      }
      BoundLit const other = lits[1 - w]; // every other literal is false
      Truth const t = truth(other);
      ok = t == Truth::yes || (t == Truth::open && make_true(other));
    }
    if (stays) ws[kept++] = c;
  }
  for (; i < ws.size(); ++i)
    ws[kept++] = ws[i];
  ws.resize(kept);
  return ok;
}

template <class R>
bool ClauseStore<R>::drain() {
  while (!queue_.clause_vars_empty()) {
    if (!propagate_clauses(queue_.pop_clause_var())) {
      queue_.clear_clause_vars();
      return false;
    }
  }
  return true;
}

template <class R>
void ClauseStore<R>::check_invariants() const {
  int const nv = static_cast<int>(ctx_.p.vars.size());
  for (std::size_t c = 0; c < clauses_.size(); ++c) {
    std::vector<BoundLit> const& lits = clauses_[c].lits;
    if (!lits.empty() && (lits.size() < 2 || lits[0].var < 0 || lits[0].var >= nv ||
                          lits[1].var < 0 || lits[1].var >= nv))
      qorv::invariant_violated("fpsolve clauses", "a clause without two valid watched literals",
                               std::to_string(c));
  }
  // One pass over the watch lists: bit w of found[c] says that the list of
  // lits[w].var holds c.
  std::vector<unsigned char> found(clauses_.size(), 0);
  for (int u = 0; u < nv && queue_.has_clause_watches(); ++u)
    for (int c : queue_.clause_watch(u)) {
      std::vector<BoundLit> const& lits = clauses_[c].lits;
      if (lits.empty()) continue;
      if (lits[0].var == u) found[c] |= 1;
      if (lits[1].var == u) found[c] |= 2;
    }
  for (std::size_t c = 0; c < clauses_.size(); ++c)
    if (!clauses_[c].lits.empty() && found[c] != 3)
      qorv::invariant_violated("fpsolve clauses", "a clause missing from a watch list",
                               std::to_string(c));
}

template <class R>
bool Learner<R>::resolve_conflict() {
  PhaseTimer const timer(ctx_.stats.learning_time);
  return ctx_.opt.learning ? learn_and_backjump() : backtrack_chronologically();
}

template <class R>
bool Learner<R>::backtrack_chronologically() {
  std::vector<Level>& levels = ctx_.levels;
  assert(!levels.empty() && "a conflict above the root");
  Level const top = levels.back();
  levels.pop_back();
  tc_.backtrack_to(top.trail_length);
  if (queue_.lost) queue_.enqueue_all();
  return clauses_.make_true(ClauseStore<R>::negation_of(top)) && propagation_.deduce();
}

// Minimization pays where the decisions split unrelated parts of a problem
// (a clause without them cuts off every combination of those parts at once)
// and costs where every decision matters and propagation is expensive (the
// griggio programs, where it tripled the time): its propagation stays
// within `minimize-effort` percent of all the other propagation.
template <class R>
bool Learner<R>::minimizing() const {
  if (ctx_.stats.selectors == 0) return false; // no atom to decide: no cases to combine
  std::uint64_t const rest = ctx_.stats.propagations - minimize_propagations_;
  return minimize_propagations_ * 100 < ctx_.opt.minimize_effort * rest;
}

// The clause of refuted bounds when it is asserting (see learning.h); none
// when there is no such clause, else whether propagation after the jump
// went without conflict.  A bound known since the root is false in every
// state the search returns to, so its negation is left out.
template <class R>
std::optional<bool> Learner<R>::learn_refuted() {
  std::vector<BoundLit> bounds;
  if (!refuted_bounds || !refuted_bounds(bounds) || bounds.empty()) return std::nullopt;
  for (BoundLit const& b : bounds)
    if (clauses_.truth(b) != ClauseStore<R>::Truth::yes) return std::nullopt; // a stale conflict
  std::vector<Level>& levels = ctx_.levels;
  std::vector<int> const at = bound_levels(tc_, ctx_.p, levels, bounds);
  std::vector<std::size_t> order(bounds.size());
  for (std::size_t i = 0; i < order.size(); ++i)
    order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return at[a] > at[b]; });
  int const top = at[order[0]];
  int const second = order.size() > 1 ? at[order[1]] : 0;
  if (top > 0 && second == top) { // not asserting
    ++ctx_.stats.lra_lemmas_unused;
    return std::nullopt;
  }
  ++ctx_.stats.lra_lemmas;
  if (top == 0) { // refuted at the root: no model at all
    tc_.backtrack_to(levels.front().trail_length);
    levels.clear();
    return false;
  }
  std::vector<BoundLit> lits;
  for (std::size_t i : order) {
    if (at[i] == 0) break;
    BoundLit const& b = bounds[i];
    lits.push_back(b.lower ? BoundLit{b.var, false, R(b.rank - 1)}
                           : BoundLit{b.var, true, R(b.rank + 1)});
  }
  ctx_.stats.levels_skipped +=
      static_cast<std::uint64_t>(static_cast<int>(levels.size()) - 1 - second);
  tc_.backtrack_to(levels[static_cast<std::size_t>(second)].trail_length);
  levels.resize(static_cast<std::size_t>(second));
  if (queue_.lost) queue_.enqueue_all();
  BoundLit const forced = lits[0];
  clauses_.add(std::move(lits));
  return clauses_.make_true(forced) && propagation_.deduce();
}

template <class R>
bool Learner<R>::learn_and_backjump() {
  if (std::optional<bool> const jumped = learn_refuted()) return *jumped;
  std::vector<Level>& levels = ctx_.levels;
  int const k = static_cast<int>(levels.size());
  assert(k > 0 && "a conflict above the root");
  Level const top = levels.back();
  auto assert_decision = [&](Level const& lv) {
    auto* e = tc_.domain.new_FpBoundElement(lv.lower, ctx_.p.vars[lv.var].term, lv.value);
    return tc_.assert_element(e, lv.var);
  };
  // The trail holds D0..Dintact-1 as decided, and nothing above them when
  // `clean` (else the trail of a test or of the conflict).
  int intact = k - 1;
  bool clean = false;
  std::vector<char> dropped(static_cast<std::size_t>(k), 0);
  // Whether D0..Dj-1, the decisions of Dj..Dupto-1 not dropped and not on
  // variable `skip`, and Dk propagate to a conflict.
  auto conflicts_from = [&](int j, int upto, int skip) {
    ++ctx_.stats.learning_tests;
    intact = j;
    clean = false;
    tc_.backtrack_to(levels[j].trail_length);
    tc_.mark(); // the test is undone back to here
    if (queue_.lost) queue_.enqueue_all();
    std::uint64_t const before = ctx_.stats.propagations;
    bool ok = true;
    for (int i = j; ok && i < upto; ++i)
      if (!dropped[i] && levels[i].var != skip) ok = assert_decision(levels[i]);
    // After a round that reached its fixpoint no assertion is false (see
    // the probe), so only a stalled one needs the evaluation.
    bool const conflict = !(ok && assert_decision(top) && propagation_.deduce() &&
                            (queue_.entries_empty() || tc_.ev.eval_all(ctx_.roots) != l_False));
    if (skip >= 0) minimize_propagations_ += ctx_.stats.propagations - before;
    return conflict;
  };
  // Asserts Dintact..Dto-1 again, each at its own mark, after undoing
  // every level above `to`; -1, or the level whose decision now conflicts
  // (clauses learned since it was first decided bite).
  auto redecide = [&](int to) {
    if (!clean || to < intact) {
      intact = std::min(intact, to);
      tc_.backtrack_to(levels[intact].trail_length);
      if (queue_.lost) queue_.enqueue_all();
    }
    clean = true;
    for (; intact < to; ++intact) {
      levels[intact].trail_length = tc_.mark();
      if (!(assert_decision(levels[intact]) && propagation_.deduce())) return intact;
    }
    return -1;
  };
  std::vector<BoundLit> lits{ClauseStore<R>::negation_of(top)};
  // Decisions are dropped from the top down, by 1, 2, 4, ... levels, while
  // the conflict stays; the first test that finds none ends this search.
  int hi = k - 1; // the conflict is known with D0..Dhi-1 and Dk
  for (int step = 1; hi > 0; step *= 2) {
    int const from = std::max(k - 1 - step, 0);
    if (!conflicts_from(from, from, -1)) break;
    hi = from;
  }
  // Then the decisions on one variable at a time, taken by their lowest
  // level from the top, leave the clause together when the conflict stays
  // without them: splits of terms that the conflict does not involve, made
  // between the ones it needs, would make the clause cut off the current
  // region of those terms only, where without them it cuts off all.  One
  // test per variable, not per decision, bounds the cost.
  int bite = redecide(hi);
  std::vector<int> lowest; // (by variable) the lowest level of its decisions below hi
  std::vector<std::pair<int, int>> groups; // (lowest level, variable)
  for (int j = 0; j < hi; ++j) {
    int const v = levels[j].var;
    if (static_cast<int>(lowest.size()) <= v) lowest.resize(static_cast<std::size_t>(v) + 1, -1);
    if (lowest[v] < 0) {
      lowest[v] = j;
      groups.push_back({j, v});
    }
  }
  for (auto g = groups.rbegin(); bite < 0 && g != groups.rend() && minimizing(); ++g)
    if (conflicts_from(g->first, hi, g->second))
      for (int j = g->first; j < hi; ++j)
        if (levels[j].var == g->second) {
          dropped[j] = 1;
          ++ctx_.stats.minimized;
        }
  for (int j = hi - 1; j >= 0; --j)
    if (!dropped[j]) lits.push_back(ClauseStore<R>::negation_of(levels[j]));
  // The search jumps back as far as the prefix allows, not further: the
  // clause is unit there too, and jumping past the levels that the dropped
  // decisions hold (to the highest decision kept) threw away work the
  // griggio programs needed (test_v5_r5_vr5: 256 decisions became 791).
  if (bite < 0) {
    ctx_.stats.levels_skipped += static_cast<std::uint64_t>(k - 1 - hi);
    bite = redecide(hi);
    if (bite < 0) {
      levels.resize(static_cast<std::size_t>(hi));
      BoundLit const forced = lits[0];
      clauses_.add(std::move(lits));
      return clauses_.make_true(forced) && propagation_.deduce();
    }
  }
  levels.resize(static_cast<std::size_t>(bite) + 1);
  clauses_.add(std::move(lits));
  return false;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(ClauseStore)
FPSOLVE_INSTANTIATE_FOR_RANKS(Learner)

} // namespace fpsolve
