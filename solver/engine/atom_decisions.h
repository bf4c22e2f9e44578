// Decisions on the truth of atoms: the Boolean side of the search.
//
// A decidable node is an atom that relates two terms (a comparison or an
// equality of two variables' views), a Boolean variable, or a connective
// that is the condition of an ite (Boolean or floating-point), occurring
// under the assertions other than as a conjunct: a node that the
// assertions force through `and` and `not` alone is propagated, never
// decided.  An atom on one term (a classification, a comparison with a
// constant) is left to the value splits, which settle it by narrowing that
// term: deciding it would only cut the term's interval into pieces that the
// value search refutes one by one (spark's assoc_add: is_finite as three
// classifications per term, solved after 16 splits without atom decisions,
// unknown at 20 s when they were decided).  Every decidable node other than a Boolean variable gets
// a selector: a fresh Boolean variable s and a link root "s = node" that the propagation round
// treats like an assertion.  So deciding the node is deciding a bound of s ("s >= -oo" for true, "s
// <= NaN" for false), and the trail, the decision levels, learning and the backjumps need nothing
// new: a learned clause over selectors' bounds is a clause over atoms, and
// a node settled by the intervals settles its selector through the link.
//
// AtomSelectors extends the problem with the selectors for the life of one
// search and restores it afterwards (every index handed out before stays
// valid; each selector's term stays in the term manager, which frees none).
// Selectors come after every variable of the problem (from `first`), are no
// input of a model, and are never split by the value heuristic.
//
// AtomDecider picks the next atom decision.  The rule: among the decidable
// nodes that are undetermined and reachable from the assertions through
// undetermined connectives only (the taken branch of an ite whose condition
// is settled), the one with the highest activity; ties go to the first in a
// depth-first walk from the assertions, so the structure is split top
// down.  Activity is bumped for every literal of a learned clause and
// decays by 5% per clause (VSIDS), so the atoms the conflicts involve come
// first.  The truth value is the one the node has under the node's
// candidate model (its picks with every term computed exactly), so the
// decided atoms tend to stay jointly satisfiable; else the one it last had
// (phase saving), at first the polarity of its first occurrence.  Once
// atom decisions have started (the search starts them at its first
// conflict, search.cpp), value splits come from the decision heuristic only
// while no decidable node is open; selectors of nodes that no longer matter
// are settled after the value splits, with the value their node has by then
// (open_selector).
#pragma once

#include "engine/context.h"
#include "engine/trail_cache.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace fpsolve {

class AtomSelectors {
public:
  // Extends p when `enabled`; restores p on destruction.
  AtomSelectors(Problem& p, bool enabled);
  ~AtomSelectors();
  AtomSelectors(AtomSelectors const&) = delete;
  AtomSelectors& operator=(AtomSelectors const&) = delete;

  struct Decidable {
    int node;
    int var;       // the selector, or the node's own Boolean variable
    bool positive; // the polarity of the node's first occurrence
  };
  std::vector<Decidable> decidable; // in depth-first order from the assertions
  std::vector<int> decidable_of;    // per node: its index in `decidable`, or -1
  std::vector<int> links;           // links[i]: the link root "s = node" of selector first + i
  std::vector<int> def_conds;       // the conditions of the ite Defs the assertions reach
  int first = 0;                    // the first selector variable

private:
  Problem& p_;
  std::size_t vars_ = 0, nodes_ = 0;
};

template <class R>
class AtomDecider {
public:
  AtomDecider(SearchContext& ctx, TrailCache<R> const& tc, AtomSelectors const& sel)
      : ctx_(ctx), tc_(tc), sel_(sel) {
    for (AtomSelectors::Decidable const& d : sel.decidable)
      phase_.push_back(d.positive);
  }

  struct Choice {
    int var = -1; // -1: nothing to decide
    bool truth = true;
  };
  // The next atom decision (see above); the truth value is the one the
  // node has under `witness` (one exact value per variable) when given.
  Choice pick(std::vector<IEEEFloat> const& witness);
  // An undetermined selector, with the value its node has, or the saved one.
  Choice open_selector();

private:
  void walk(int n);
  bool undetermined(int v) const;

  SearchContext& ctx_;
  TrailCache<R> const& tc_;
  AtomSelectors const& sel_;
  std::vector<char> phase_;
  // Both sized at their first use: most problems have no atom to decide,
  // and on long ones each would take room per node or per variable.
  std::vector<unsigned> seen_; // seen_[n] == stamp_: visited by this pick
  std::vector<int> todo_;
  std::optional<Evaluator<R>> exact_; // loaded with a witness: evaluates exactly
  unsigned stamp_ = 0;
  int best_ = -1;
};

} // namespace fpsolve
