// The strict-cycle refutation: a cycle of forced comparisons with a strict
// step (x < y <= ... <= x) is a contradiction that bound propagation would
// only discover one value at a time.  The atom propagation notes every
// comparison it forces during a round; when the round stalls, the search
// looks for such a cycle among them.
#pragma once

#include "engine/problem.h"

#include <vector>

namespace fpsolve {

class ComparisonGraph {
public:
  explicit ComparisonGraph(Problem const& problem) : p_(problem) {}

  // The operands' values satisfy from <= to (from < to when strict) in the
  // numeric order, or one of them is NaN.
  void note(int from, int to, bool strict) { edges_.push_back(Edge{from, to, strict}); }
  void clear() { edges_.clear(); }
  // Whether the comparisons noted lie on a cycle with a strict step.
  bool has_strict_cycle() const;

private:
  struct Edge {
    int from, to; // operands
    bool strict;
  };
  Problem const& p_;
  std::vector<Edge> edges_;
};

} // namespace fpsolve
