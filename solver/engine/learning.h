// Conflict learning: clauses over bound literals ("v >= r", "v <= r" in the
// packed order's ranks), their propagation by two watched literals, and what
// the search does after a conflict.
//
// ClauseStore invariants (check_invariants): every live clause has at least
// two literals over valid variables, and sits in the watch lists of the
// variables of lits[0] and lits[1] (the lists are pruned lazily, so they may
// also hold deleted clauses).  A clause is visited only when the interval of
// a watched literal's variable narrows, and the clause queue is drained
// before a propagation round ends without a conflict, so a clause that
// becomes unit is always propagated at the level where it became unit.
//
// Learner: with learning on, a conflict under decisions D0..Dk (each a
// bound) yields "not D0 or ... or not Dk", generalised by a binary search
// for the shortest prefix D0..Dj-1 that still propagates to a contradiction
// together with Dk alone; then, in problems with atoms to decide, the
// decisions on one variable at a time leave it when D0..Dj-1 without them
// and Dk still propagate to a contradiction.  Every test asserts its
// decisions on top of an earlier level's trail, and a test only shortens
// the clause when it has seen the contradiction itself, so the clause is
// sound whatever the shape of the propagators.  The search undoes every
// level above j-1 and asserts "not Dk" there, where all other literals of
// the clause are false.  With learning
// off, the search backtracks chronologically: it undoes Dk alone and asserts
// "not Dk" at level k-1, which D0..Dk-1 imply since they and Dk conflict;
// nothing is kept, and "not Dk" goes when level k-1 is undone.
//
// A conflict of the real constraints may name the bounds it refuted
// (`refuted_bounds`, engine/lra_bridge.h): their negations form a clause
// that holds in every model.  When every bound is still true and exactly
// one became true at the highest level among them, that clause is the
// conflict's: the search undoes every level above the second highest and
// the clause forces the negation of the last bound there (first-UIP
// learning with the theory as the explanation).  Otherwise the decisions'
// clause above is learned.
//
// Termination either way: each conflict strictly narrows an interval at a
// level below k, intervals are finite, so the sequence of interval states
// ordered level by level decreases; a conflict with no decision left is
// unsat.
#pragma once

#include "engine/solve.h"
#include "engine/trail_cache.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace fpsolve {

template <class R>
class Propagation;

template <class R>
class ClauseStore {
public:
  // "var >= rank" when `lower`, else "var <= rank".
  struct BoundLit {
    int var;
    bool lower;
    R rank;
  };
  enum class Truth { no, yes, open };

  ClauseStore(SearchContext& ctx, TrailCache<R>& tc, PropagationQueue& queue)
      : ctx_(ctx), tc_(tc), queue_(queue), cap_(ctx.opt.clause_cap) {}

  Truth truth(BoundLit const& l) const;
  bool make_true(BoundLit const& l);
  // The complement of a decision: a lower bound at m becomes an upper bound
  // at the rank just below m, and the other way round.
  static BoundLit negation_of(Level const& lv);
  // lits[0] is the literal the clause forces, lits[1] the one false at the
  // highest level below: the two watches that stay valid on backtracking.
  void add(std::vector<BoundLit> lits);
  // Visits the clauses of every queued variable; false on a conflict.
  bool drain();
  void check_invariants() const;

private:
  struct Clause {
    std::vector<BoundLit> lits; // lits[0] and lits[1] are watched; empty once deleted
  };
  bool propagate_clauses(int v);
  void report(std::vector<BoundLit> const& lits) const;
  void reduce();

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  PropagationQueue& queue_;
  std::vector<Clause> clauses_;
  std::size_t live_ = 0;
  std::size_t cap_;
};

template <class R>
class Learner {
public:
  Learner(SearchContext& ctx, TrailCache<R>& tc, PropagationQueue& queue,
          Propagation<R>& propagation, ClauseStore<R>& clauses)
      : ctx_(ctx), tc_(tc), queue_(queue), propagation_(propagation), clauses_(clauses) {}

  using BoundLit = typename ClauseStore<R>::BoundLit;

  // After a conflict with a decision left: jumps back (see above) and
  // propagates.  False on a new conflict.
  bool resolve_conflict();
  // Fills bounds (true at the last theory conflict) that no model
  // satisfies together; false when there are none.
  std::function<bool(std::vector<BoundLit>&)> refuted_bounds;

private:
  std::optional<bool> learn_refuted();
  bool learn_and_backjump();
  bool backtrack_chronologically();
  bool minimizing() const;

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  PropagationQueue& queue_;
  Propagation<R>& propagation_;
  ClauseStore<R>& clauses_;
  std::uint64_t minimize_propagations_ = 0; // bounds propagated by minimization tests
};

} // namespace fpsolve
