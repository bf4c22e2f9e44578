// The jump of comparison chains to their fixpoint.
//
// Bound propagation along a chain x0 < x1 < ... < xn moves each bound one
// value per visit of the chain, so it needs about n visits of n atoms where
// the fixpoint is known at once: the upper end of x_i is the (n - i)-th value
// below the upper end of x_n, the lower end the i-th above that of x0.  The
// jump computes that fixpoint for every chain of the comparisons the round
// has forced (and of the identity Defs, x + 0), in one pass over them.
//
// Soundness: each step u -> v of the graph holds in every model of the
// current trail: u is NaN exactly when v is, and otherwise key(u) <= key(v)
// (minus one when strict).  Inside a strongly connected component all keys
// are equal, so a strict step there is a conflict (the strict-cycle
// argument); across components the steps form a DAG, on which the longest
// paths from the ends give bounds every model meets.  Only the numeric part
// of an interval is narrowed; NaN stays where it was allowed.  The jump
// records nothing for learning, like every other propagator: a conflict it
// finds is a conflict of the trail, which the learning tests by propagation.
#pragma once

#include "engine/atom_propagation.h"

#include <cstddef>
#include <vector>

namespace fpsolve {

template <class R>
class ChainJump {
public:
  ChainJump(SearchContext& ctx, TrailCache<R>& tc, AtomPropagation<R>& atoms,
            ComparisonGraph const& graph)
      : ctx_(ctx), tc_(tc), atoms_(atoms), graph_(graph) {}

  // Narrows every variable on the graph's steps to the bounds its chains
  // force; false on a conflict.  Time linear in the steps and variables.
  bool jump();

private:
  bool jump_once();
  void components(std::size_t nv);

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  AtomPropagation<R>& atoms_;
  ComparisonGraph const& graph_;
  // Scratch of one jump, freed after it: a jump comes after at least as
  // many single-value steps as the queue has entries, so allocating it
  // again costs no more than the jump itself, and its room (a few words per
  // variable) does not stay through the rest of the search.
  std::vector<ComparisonGraph::VarStep> steps_;
  std::vector<std::size_t> first_;  // steps of variable v: first_[v] .. first_[v + 1]
  std::vector<int> by_from_;        // step indices sorted by `from`
  std::vector<int> comp_, members_; // component of each variable; variables by component
  std::vector<std::size_t> comp_first_;
  std::vector<R> lo_, hi_; // per component: the key range
};

} // namespace fpsolve
