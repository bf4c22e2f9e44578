// The propagation round: the queued entries (assertions and Defs) and the
// learned clauses are propagated to a fixpoint, a conflict, or the round's
// work budget; a round that stalls on its budget tries the strict-cycle
// refutation instead.
//
// A round whose narrowings move ends by single values, more of them than
// twice its entries, is creeping along chains: at 2e + 64 such steps (e
// entries), then at every doubling, the chains of the comparisons it forced
// are jumped to their fixpoint (engine/chain_jump.h).  The doubling keeps
// the jumps' cost within the round's own.
//
// Learned clauses go first and always to their fixpoint: they are cheap,
// and a clause that becomes unit must be propagated at the level where it
// became unit.  Entries left when a round stalls stay queued for the next
// round; a conflict drops them, and `queue.lost` tells the next backtrack to
// queue every entry again.
#pragma once

#include <functional>

#include "engine/chain_jump.h"
#include "engine/def_propagation.h"
#include "engine/learning.h"

namespace fpsolve {

template <class R>
class Propagation {
public:
  Propagation(SearchContext& ctx, PropagationQueue& queue, AtomPropagation<R>& atoms,
              DefPropagation<R>& defs, ClauseStore<R>& clauses, ComparisonGraph& graph)
      : ctx_(ctx), queue_(queue), atoms_(atoms), defs_(defs), clauses_(clauses), graph_(graph),
        jump_(ctx, atoms.trail(), atoms, graph) {}

  // One round of deduction: propagate, and when that stalls, refute a cycle
  // of forced comparisons with a strict step.  False on a conflict.
  bool deduce();
  // A check of the node after each successful round (the linear real
  // arithmetic, lra_bridge.h), whose failure is a conflict like any other:
  // the learning's tests see it through deduce() as well.
  std::function<bool()> node_check;

private:
  enum class Round { fixpoint, conflict, stalled };
  Round propagate();

  SearchContext& ctx_;
  PropagationQueue& queue_;
  AtomPropagation<R>& atoms_;
  DefPropagation<R>& defs_;
  ClauseStore<R>& clauses_;
  ComparisonGraph& graph_;
  ChainJump<R> jump_;
};

} // namespace fpsolve
