// The strict-cycle refutation: a cycle of forced comparisons with a strict
// step (x < y <= ... <= x) is a contradiction that bound propagation would
// only discover one value at a time.  The atom propagation notes every
// comparison it forces during a round; when the round stalls, the search
// looks for such a cycle among them.
//
// Besides the comparisons of the round, the graph knows the Defs that are
// their operand numerically (x + 0, x - 0: the sum is exact, so equal to x,
// and NaN exactly when x is); they tie the two variables with a
// non-strict step both ways, so chains and cycles run through them.  So do
// the ites whose condition the round has settled: the result is the taken
// branch, NaN or not, for as long as the condition stays settled, which is
// the rest of the round.
#pragma once

#include "engine/problem.h"

#include <vector>

namespace fpsolve {

class ComparisonGraph {
public:
  explicit ComparisonGraph(Problem const& problem);

  // The operands' values satisfy from <= to (from < to when strict) in the
  // numeric order, or one of them is NaN.
  void note(int from, int to, bool strict) { edges_.push_back(Edge{from, to, strict}); }
  // Variables a and b have one value (an ite and its taken branch).
  void note_equal(int a, int b) { equal_.push_back({a, b}); }
  // Called at the start of every round.  A round that noted many
  // comparisons (the first, at the root, notes every one of a long chain)
  // gives its room back: later rounds note few, and the search would
  // otherwise carry the largest round's room to its end.
  void clear() {
    if (edges_.capacity() > 4096)
      std::vector<Edge>().swap(edges_);
    else
      edges_.clear();
    equal_.clear();
  }
  // Whether the comparisons noted lie on a cycle with a strict step.
  bool has_strict_cycle() const;

  // One step between two variables, each seen as itself (no fp.neg or
  // fp.abs): when `from` is not NaN, neither is `to`, and
  // key(from) <= key(to) - (strict ? 1 : 0) in the numeric order.
  struct VarStep {
    int from, to;
    bool strict;
  };
  // The comparisons noted between plain variables, and both directions of
  // every identity Def and noted equality.
  void var_steps(std::vector<VarStep>* out) const;
  std::size_t noted() const { return edges_.size(); }

private:
  struct Edge {
    int from, to; // operands
    bool strict;
  };
  Problem const& p_;
  std::vector<Edge> edges_;
  std::vector<std::pair<int, int>> identities_; // (result, operand) variables
  std::vector<std::pair<int, int>> equal_;      // noted in this round
};

} // namespace fpsolve
