// How far one exact evaluation of the problem is from satisfying it.
//
// A point gives every input variable one value; `complete` computes every
// relevant Def's value from them with the host's correctly rounded
// arithmetic (engine/apply.h), so the values are exactly those the model
// check computes.  `to_true(n)` is then a measure of how far node n is from
// being true:
//
//   - it is 0 exactly when n is true under the point (the evaluation is the
//     evaluator's own with every interval a single value), and positive
//     otherwise;
//   - a comparison of two numbers measures the gap between its sides in
//     units in the last place: the difference of their keys in the packed
//     order (ranks, with -0 and +0 sharing key 0), plus one where the
//     comparison is strict, counted as log2(1 + gap) so that one unit costs
//     1 and formats of every width weigh alike; a NaN side, which no order
//     comparison accepts, costs `nan_cost`, more than any gap, and so does
//     making two NaNs differ (= of two NaNs is true): otherwise a point
//     where every result is NaN satisfies the negated comparisons and the
//     followed equalities at once and traps the search for a unit per
//     "these differ";
//   - `and` sums its operands' distances and `or` takes the least, and
//     `not` swaps the distances to true and to false, so each Boolean node
//     carries both.
//
// Distances are doubles (the search only compares them).  A shared node is
// measured once per point.
#pragma once

#include "engine/evaluator.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace fpsolve {

template <class R>
class Distance {
public:
  // `relevant[v]` marks the variables the assertions depend on; the Defs of
  // the others are not computed.
  Distance(Problem const& problem, std::vector<char> const& relevant);

  // The value of variable v (an input) at the point; ranks follow values.
  void set(int v, IEEEFloat const& value);
  IEEEFloat const& value(int v) const { return val_[v]; }
  R const& rank(int v) const { return ev_.cur[v].lo; }
  FormatRanks<R> const& format_of_var(int v) const { return ev_.format_of_var(v); }

  // Makes input v follow operand o: after every completion v takes the
  // value that makes its view `view` (an operand viewing v without fp.abs)
  // identical to o's, as an asserted (= view o) demands.  v must not be in
  // o's cone.
  void follow(int view, int o);
  bool follows(int v) const { return follows_[v] != 0; }

  // Computes every relevant Def that reads an input set since the last
  // completion (all of them the first time, or with an ite), in order,
  // setting each following input as soon as its target is computed; where
  // an input is read before its target is known, passes repeat while the
  // following inputs change (a few at most).
  void complete();
  // The distance of node n from true and from false at the completed point.
  std::pair<double, double> node(int n);
  double to_true(int n) { return node(n).first; }
  // The sum of the distances of `roots` from true.
  double of_roots(std::vector<int> const& roots);

  // Def computations so far (the work of the completions).
  std::uint64_t computed() const { return computed_; }

  // Every value of the point: inputs as set, Defs as completed.
  std::vector<IEEEFloat> const& values() const { return val_; }

  // What a NaN costs in a comparison that needs a number: more than the
  // gap between any two ranks (log2 of 2^130).
  static constexpr double nan_cost = 256;

private:
  std::pair<double, double> atom(Node const& nd) const;
  void compute_defs();
  void compute_def(std::size_t i);
  void store(int v, IEEEFloat const& value); // a value, without marking it changed
  // Sets link l's input from its target; true when the value changed.
  bool apply_link(std::size_t l);

  Problem const& p_;
  std::vector<char> const& relevant_;
  Evaluator<R> ev_; // every interval a single value: evaluation is exact
  std::vector<IEEEFloat> val_;
  // Memo of node distances for the current point: valid where stamp == epoch_.
  std::vector<std::pair<double, double>> memo_;
  std::vector<std::uint64_t> stamp_;
  std::uint64_t epoch_ = 1;
  std::vector<std::pair<int, int>> links_; // (view, operand) of each following input
  std::vector<char> follows_;
  std::vector<std::vector<int>> after_def_; // links set right after each Def
  bool one_pass_ = true;                    // see follow()
  // Incremental completion: the inputs set since the last one, the Defs
  // reading each variable, and marks of the Defs to recompute.
  std::vector<int> changed_;
  std::vector<std::vector<int>> readers_;
  std::vector<std::uint64_t> mark_;
  std::uint64_t mark_epoch_ = 0;
  bool whole_ = false;     // every completion computes every relevant Def
  bool completed_ = false; // a whole completion has run
  std::uint64_t computed_ = 0;
};

} // namespace fpsolve
