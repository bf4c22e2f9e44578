// The search over the host's bounds trail (see solve.h for what it
// guarantees), assembled from collaborating parts, each with one concern:
//
//   setup.h             which variables matter, what watches them, the first queue
//   queue.h             the propagation queues and their watch lists
//   trail_cache.h       the bridge between the bounds trail and the rank cache
//   atom_propagation.h  Boolean and atom propagation
//   atom_decisions.h    decisions on the truth of atoms, and their selectors
//   def_propagation.h   the projection and shaving of definitions
//   strict_cycle.h      the strict-cycle refutation
//   propagation.h       the propagation round
//   learning.h          learned clauses and what follows a conflict
//   candidates.h        the candidate models and their exact check
//   probe.h             the model probe
//   model_search.h      the model search guided by distance
//
// The loop (run) is: deduce, evaluate, then on a conflict resolve it
// (learning.h), else decide: from the first conflict on, the truth of an
// open atom (atom_decisions.h) while there is one; a value split with
// FpIntervalDecisionHeuristic::decide() otherwise.
//
// Every part that depends on the rank type is a class template over it,
// defined in its own source file and instantiated there for both rank
// types by FPSOLVE_INSTANTIATE_FOR_RANKS (ranks.h): one mechanism, and no
// list of members to keep in step with the code.
#pragma once

#include <memory>

#include "engine/atom_decisions.h"
#include "engine/learning.h"
#include "engine/lra_bridge.h"
#include "engine/model_search.h"
#include "engine/probe.h"
#include "engine/propagation.h"
#include "engine/solve.h"

#include "fp/interval_heuristics.h"

namespace fpsolve {

template <class R>
class Search {
public:
  Search(Problem& problem, Options const& options);
  Result run();

private:
  void trace_backtrack();
  void check_invariants();
  // The decision when an atom is open or only selectors are left: its
  // variable and bound, or a null element.
  qorv::FpBoundElement* decide_atom(bool after_splits, int* var);

  AtomSelectors selectors_; // first: the problem is restored after every other part
  SearchContext ctx_;
  PropagationQueue queue_;
  TrailCache<R> tc_;
  ComparisonGraph graph_;
  AtomPropagation<R> atoms_;
  DefPropagation<R> defs_;
  ClauseStore<R> clauses_;
  Propagation<R> propagation_;
  Learner<R> learner_;
  Candidates<R> candidates_;
  qorv::FpDecDepManager manager_;
  qorv::fp::FpIntervalDecisionHeuristic heuristic_;
  qorv::fp::FpIntervalChoiceHeuristic choice_;
  Prober<R> prober_;
  ModelSearch<R> model_search_;
  AtomDecider<R> decider_;
  std::unique_ptr<LraBridge<R>> lra_; // problems with reals only
  std::vector<IEEEFloat> witness_;    // the node's candidate model, exact, when there is one
  bool atoms_on_ = false;             // atom decisions have started (after atom-delay conflicts)
  bool open_at_root_ = false;         // an atom was open after the root's propagation
};

} // namespace fpsolve
