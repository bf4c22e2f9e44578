// The search loop over the host's bounds trail (see search.h for what it
// guarantees).  Internal to search.cpp, which instantiates it for the two
// rank types.
//
// One source of truth: the intervals live on the host's bounds trail (its
// value intervals hold the history).  The evaluator's `cur` is a cache of
// the trail's current entries as ranks, written only by reload_end, which
// assert_on_trail and backtrack_to call for the one end each bound moves;
// check_invariants compares the cache with the trail.
//
// The search loop (run) is: deduce (propagation, and when propagation stalls
// on its budget, the strict-cycle refutation), evaluate, then on a conflict
// learn a clause and backjump (learn_and_backjump), else decide.
//
// Learned clauses are disjunctions of bound literals ("v >= r", "v <= r" in
// the packed order's ranks), watched by two literals: a clause is visited
// only when the interval of a watched literal's variable narrows, and every
// clause queue is drained before a round of propagation ends without a
// conflict, so a clause that becomes unit is always propagated at the level
// where it became unit.
#pragma once

#include "engine/evaluator.h"
#include "engine/projection.h"
#include "engine/search.h"

#include "fp/interval_heuristics.h"
#include "host/fp_host.h"

#include <chrono>
#include <deque>

namespace fpsolve {

template <class R>
class Solver {
  using Iv = typename Evaluator<R>::Iv;

public:
  Solver(Problem& problem, Options const& options)
      : p_(problem), ev_(problem), opt_(options), trail_(&problem.tm),
        heuristic_(domain_, trail_, manager_), choice_(domain_, trail_) {}

  ~Solver() { trail_.backtrack(0, &domain_); }

  Result run();

private:
  struct Level {
    std::size_t trail_length; // trail length before the decision
    int var;
    bool flag; // a lower bound
    IEEEFloat value;
  };
  // "var >= rank" when `lower`, else "var <= rank".
  struct BoundLit {
    int var;
    bool lower;
    R rank;
  };
  enum class Truth { no, yes, open };
  struct Edge {
    int from, to; // operands, from <= to in the numeric order
    bool strict;
  };

  // How a round of propagation ended.
  enum class Round { fixpoint, conflict, stalled };

  void setup();
  // Unit propagation of the queued roots, to a fixpoint, a conflict, or the
  // round's work budget (stalled).
  Round propagate();
  // One round of deduction: propagate, and when that stalls, refute a cycle
  // of forced comparisons with a strict step (strict_cycle).  False on a
  // conflict.
  bool deduce();
  bool prop(int n, bool want);
  // Forward projection of a Def onto its variable, and the backward steps
  // that are sound (see search.cpp).
  bool prop_def(int d);
  unsigned rm_modes(int o) const;
  Set<R> shave(FpOp op, std::vector<Bounds<R>> a, std::size_t i, unsigned modes,
               FormatRanks<R> const& rf, IEEEFloat::format fmt, Set<R> const& z, bool same) const;
  bool same_term(int x, int y) const;
  bool restrict_var(int v, Set<R> const& t);
  // sat when the picked inputs, with every Def computed exactly, satisfy
  // every assertion; the model is left in `out`.
  bool try_candidate(std::vector<IEEEFloat>* out) const;
  bool all_single() const;
  bool atom_prop(Node const& nd, bool want);
  bool restrict_to(int o, Set<R> t);
  bool narrow(int v, R lo, R hi);
  // Every bound reaches the trail through assert_on_trail, every undo
  // through backtrack_to; both refresh the cached end with reload_end.
  void assert_on_trail(qorv::FpBoundElement* e, int v);
  void reload_end(int v, bool lower);
  void push_bound(int v, bool lower, R const& rank);
  bool assert_element(qorv::FpBoundElement* e, int v);
  void backtrack_to(std::size_t length);
  void enqueue_watchers(int v);
  void enqueue_all();
  void note_edge(int from, int to, bool strict) { edges_.push_back(Edge{from, to, strict}); }
  bool strict_cycle() const;
  // Learning (learning.cpp): on a conflict, learn a clause over bound
  // literals and jump back to the level where it forces its first literal.
  // False on a conflict.
  bool learn_and_backjump();
  Truth truth(BoundLit const& l) const;
  bool make_true(BoundLit const& l);
  BoundLit negation_of(Level const& lv) const;
  void add_clause(std::vector<BoundLit> lits);
  // Visits the clauses watching v; false on a conflict.
  bool propagate_clauses(int v);
  bool drain_clauses();
  void reduce_clauses();
  L eval_all() const;
  void trace_backtrack();
  bool out_of_resources() const;
  // The value the node's candidate model gives v (a rank of v's interval).
  R pick(int v) const;
  std::vector<IEEEFloat> model() const;
  // The model probe (probe.cpp): due after 0, 1, 2, 4, ... decisions; a dive
  // that fixes the inputs one by one with propagation, undone afterwards.
  // True, with the model in `out`, when the exact check confirms its values.
  bool probe_due();
  bool probe(std::vector<IEEEFloat>* out);
  void check_invariants();

  Problem const& p_;
  Evaluator<R> ev_; // ev_.cur caches the trail's current entries
  Options const& opt_;
  qorv::FpIntervalDomain domain_;
  qorv::FpBoundsTrail trail_;
  qorv::FpDecDepManager manager_;
  qorv::fp::FpIntervalDecisionHeuristic heuristic_;
  qorv::fp::FpIntervalChoiceHeuristic choice_;
  qorv::hsh::HashMap<qorv::Term const*, int> var_of_term_;
  std::vector<int> roots_;
  // Propagation entries: roots 0 .. roots_.size()-1, then Def d at
  // roots_.size() + d.
  std::vector<std::vector<int>> watchers_; // per variable: the entries it occurs in
  std::vector<char> relevant_;
  std::deque<int> queue_;
  std::vector<char> queued_;
  bool lost_ = false; // a stalled round left entries that a conflict dropped
  std::vector<Edge> edges_;
  std::vector<Level> levels_;
  struct Clause {
    std::vector<BoundLit> lits; // lits[0] and lits[1] are watched; empty once deleted
  };
  std::vector<Clause> clauses_;
  std::vector<std::vector<int>> clause_watch_; // per variable: clauses watching it (lazily pruned)
  std::vector<int> clause_vars_;               // variables whose watching clauses are due
  std::vector<char> clause_var_queued_;
  std::size_t live_clauses_ = 0;
  std::size_t clause_cap_ = 4000;
  std::uint64_t next_probe_ = 0; // decisions before the next model probe
  Stats stats_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace fpsolve
