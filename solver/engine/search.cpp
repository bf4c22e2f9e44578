// The search loop (see search.h): decisions, candidate models, resource
// checks and the trace.
#include "engine/search.h"

#include "engine/setup.h"

#include "support/invariant.h"

#include <string>
#include <utility>

namespace fpsolve {

template <class R>
Search<R>::Search(Problem& problem, Options const& options)
    : selectors_(problem, options.atom_decisions), ctx_(problem, options),
      tc_(problem, ctx_, queue_), graph_(problem), atoms_(ctx_, tc_, graph_),
      defs_(ctx_, tc_, atoms_), clauses_(ctx_, tc_, queue_),
      propagation_(ctx_, queue_, atoms_, defs_, clauses_, graph_),
      learner_(ctx_, tc_, queue_, propagation_, clauses_), candidates_(ctx_, tc_),
      heuristic_(tc_.domain, tc_.trail, manager_), choice_(tc_.domain, tc_.trail),
      prober_(ctx_, tc_, queue_, propagation_, candidates_, manager_),
      model_search_(ctx_, tc_, candidates_), decider_(ctx_, tc_, selectors_) {
  atoms_on_ = options.atom_decisions && options.atom_delay == 0;
  ctx_.first_selector = selectors_.first;
  ctx_.links = selectors_.links;
  ctx_.stats.selectors = selectors_.decidable.size();
  // Reals: the simplex checks every node after propagation.  The probe and
  // the model search pick float values alone, which fix no real, so they
  // stay off there (real_inputs come from the simplex of the node).
  if (problem.has_reals()) {
    lra_ = std::make_unique<LraBridge<R>>(ctx_, tc_);
    propagation_.node_check = [this] { return lra_->check(); };
    learner_.refuted_bounds = [this](std::vector<typename Learner<R>::BoundLit>& out) {
      return ctx_.opt.real_lemmas && lra_ && lra_->refuted(out);
    };
  }
}

template <class R>
qorv::FpBoundElement* Search<R>::decide_atom(bool after_splits, int* var) {
  if (selectors_.decidable.empty()) return nullptr;
  // Without Defs the picks are the candidate's exact values; with Defs the
  // failed candidate left its exact values in witness_.
  if (witness_.empty() && !after_splits) witness_ = candidates_.model();
  typename AtomDecider<R>::Choice const c =
      after_splits ? decider_.open_selector() : decider_.pick(witness_);
  if (c.var < 0) return nullptr;
  ++ctx_.stats.atom_decisions;
  *var = c.var;
  // True: "s >= -oo", the least value above NaN; false: "s <= NaN".
  R const nan = tc_.ev.format_of_var(c.var).nan;
  IEEEFloat const value = value_of(c.truth ? R(nan + 1) : nan, ctx_.p.vars[c.var].fmt);
  return tc_.domain.new_FpBoundElement(c.truth, ctx_.p.vars[c.var].term, value);
}

template <class R>
void Search<R>::trace_backtrack() {
  std::ostream& out = *ctx_.opt.trace_out;
  qorv::FpValueElement element;
  for (qorv::FpBoundElement const* e : tc_.trail.bounds)
    element.terms.insert(e->term());
  std::vector<Level> const& levels = ctx_.levels;
  choice_.trail_mark = levels.empty() ? tc_.trail.size() : levels.back().trail_length;
  auto const& frames = choice_.get_search_candidates(element);
  out << "; backtrack " << ctx_.stats.backtracks << ": decision level " << levels.size()
      << ", trail " << tc_.trail.size() << ", mark " << choice_.trail_mark << "\n";
  for (auto const& frame : frames)
    out << ";   " << frame.to_str() << "\n";
}

template <class R>
void Search<R>::check_invariants() {
  tc_.check_invariants();
  queue_.check_invariants();
  clauses_.check_invariants();
  std::size_t below = 0; // the trail length of the level below, plus one
  for (Level const& lv : ctx_.levels) {
    if (lv.trail_length < below || lv.trail_length > tc_.trail.size())
      qorv::invariant_violated("fpsolve search", "level trail lengths do not increase",
                               std::to_string(lv.trail_length));
    below = lv.trail_length + 1;
  }
}

template <class R>
Result Search<R>::run() {
  setup_search(ctx_, queue_, manager_);
  if (lra_ && !lra_->constrains()) { // no relevant real atom or rounding: floats alone
    propagation_.node_check = nullptr;
    lra_.reset();
  }
  // Rounding-mode variables range over the five modes, bit-vectors of width
  // n over the ranks 0 .. 2^n - 1.
  for (std::size_t v = 0; v < ctx_.p.vars.size(); ++v)
    if (ctx_.relevant[v] && ctx_.p.vars[v].is_rm) tc_.narrow(static_cast<int>(v), R(0), R(4));
  for (std::size_t v = 0; v < ctx_.p.vars.size(); ++v)
    if (ctx_.relevant[v] && ctx_.p.vars[v].bv > 0) {
      R top;
      mpz_class const z = (mpz_class(1) << ctx_.p.vars[v].bv) - 1;
      rank_from_mpz(z.get_mpz_t(), &top);
      tc_.narrow(static_cast<int>(v), R(0), top);
    }
  Problem const& p = ctx_.p;
  Stats& stats = ctx_.stats;
  Result res;
  bool ok = (!lra_ || lra_->narrow_at_root()) && propagation_.deduce();
  open_at_root_ = ok && ctx_.opt.atom_decisions && decider_.pick({}).var >= 0;
  for (;;) {
    if (ctx_.checking) check_invariants();
    if (ok) {
      // The assertions decide sat; a false link (a selector against its
      // atom) is a conflict as well.
      lbool s = tc_.ev.eval_all(p.assertions);
      if (s != l_False && tc_.ev.eval_all(ctx_.links) == l_False) s = l_False;
      if (s != l_False) {
        // The picked inputs with every term computed exactly: sat when they
        // satisfy the assertions.  With every value single, a failure can
        // only come from two unspecified results that chose differently for
        // the same operands (a conflict), or from an unsound step, which
        // the caller's own check of the model reports.  Without Defs the
        // candidate can only succeed where the assertions are true over the
        // intervals (then every value of the box is a model), so it is tried
        // only there; the probe narrows first, so it is worth a try anywhere.
        // The model search starts, among other points, from the values the
        // probe or the candidate left in m.
        std::vector<IEEEFloat>& m = witness_;
        bool const candidate = s == l_True || !p.defs.empty();
        m.clear();
        if ((candidate && candidates_.try_candidate(&m)) ||
            (ctx_.opt.probe && !lra_ && prober_.due() && prober_.probe(&m)) ||
            (ctx_.opt.model_search && !lra_ && model_search_.due() &&
             model_search_.search(&m, &m))) {
          res.answer = Answer::sat;
          res.model = std::move(m);
          break;
        }
        if (s == l_True && candidates_.all_single()) {
          std::vector<IEEEFloat> searched = candidates_.model();
          // A term whose single value is not its exact value (propagation
          // stalled before it) or an unspecified choice that differs for
          // equal operands: this box holds no model.  Nothing changed: the
          // evaluation disagrees with the exact check, which the caller's
          // check of the model reports.
          if (!candidates_.completion_differs(searched)) {
            res.answer = Answer::sat;
            res.model = candidates_.model();
            break;
          }
          ok = false;
        }
      }
      ok = ok && s != l_False;
    }
    if (!ok) {
      ++stats.backtracks;
      if (ctx_.opt.trace && ctx_.opt.trace_out) trace_backtrack();
      if (ctx_.levels.empty()) {
        res.answer = Answer::unsat;
        break;
      }
      if (!atoms_on_ && ctx_.opt.atom_decisions && stats.backtracks >= ctx_.opt.atom_delay) {
        // The value search has met conflicts: from here on the Boolean
        // structure is decided first.  When an atom was open at the root,
        // the search starts over from there (once, so it still ends), so
        // that the value splits made so far do not fix the region the atoms
        // are decided in; the clauses learned before stay.
        atoms_on_ = true;
        if (open_at_root_) {
          ++stats.atom_restarts;
          tc_.backtrack_to(ctx_.levels.front().trail_length);
          ctx_.levels.clear();
          queue_.enqueue_all();
          ok = propagation_.deduce();
          continue;
        }
      }
      ok = learner_.resolve_conflict();
      continue;
    }
    if (ctx_.out_of_resources()) {
      bool const decisions_out = ctx_.opt.max_decisions &&
                                 stats.decisions + stats.atom_decisions >= ctx_.opt.max_decisions;
      res.reason_unknown = decisions_out ? "resourceout" : "timeout";
      break;
    }
    int atom_var = -1;
    if (qorv::FpBoundElement* a = atoms_on_ ? decide_atom(false, &atom_var) : nullptr) {
      ctx_.levels.push_back(Level{tc_.mark(), atom_var, a->flag(), a->value});
      ok = tc_.assert_element(a, atom_var) && propagation_.deduce();
      continue;
    }
    // The heuristic reads the trail's map, which a compacting trail keeps
    // up to date only on request.
    tc_.trail.update_view(manager_.terms);
    qorv::FpBoundElement* e = heuristic_.decide();
    if (tc_.domain.is_no_decision(e)) {
      // Every value single: the selectors of atoms that stopped mattering are
      // settled last (with every value single, their atoms are known).
      if (qorv::FpBoundElement* a = decide_atom(true, &atom_var)) {
        ctx_.levels.push_back(Level{tc_.mark(), atom_var, a->flag(), a->value});
        ok = tc_.assert_element(a, atom_var) && propagation_.deduce();
        continue;
      }
      // Undetermined assertions leave some search variable with more than
      // one value (with every interval a single value, evaluation is exact).
      qorv::invariant_violated("fpsolve search", "no decision while an assertion is undetermined");
    }
    int const v = ctx_.var_of(e->term());
    R const r = rank_of<R>(e->value);
    auto const& cur = tc_.ev.cur[v];
    ++stats.decisions;
    if (cur.lo == tc_.ev.format_of_var(v).nan)
      ++stats.nan_decisions;
    else
      ++stats.split_decisions;
    if (e->flag() && r == cur.lo) {
      // "At least the lower end" narrows nothing and its complement is empty;
      // decide the split just above it instead, so both branches shrink.
      IEEEFloat up = qorv::next_above(e->value);
      tc_.domain.release_FpBoundElement(e);
      e = tc_.domain.new_FpBoundElement(true, p.vars[v].term, up);
    }
    ctx_.levels.push_back(Level{tc_.mark(), v, e->flag(), e->value});
    ok = tc_.assert_element(e, v) && propagation_.deduce();
  }
  tc_.backtrack_to(0);
  std::chrono::duration<double> const d = std::chrono::steady_clock::now() - ctx_.start;
  stats.seconds = d.count();
  if (res.model.size() > static_cast<std::size_t>(selectors_.first)) // selectors are no inputs
    res.model.erase(res.model.begin() + selectors_.first, res.model.end());
  if (res.answer == Answer::sat) res.real_inputs = ctx_.real_inputs;
  res.stats = stats;
  return res;
}

FPSOLVE_INSTANTIATE_FOR_RANKS(Search)

} // namespace fpsolve
