// The search loop over the host's bounds trail (see search.h for what it
// guarantees).  Internal to search.cpp, which instantiates it for the two
// rank types.
//
// State kept in step with the trail: for every trail position the variable
// it bounds (`trail_var_`), and per variable the stack of its rank intervals
// (`history_`, whose top is Evaluator::cur).  Every bound goes through
// push_bound/assert_element and every undo through backtrack_to, so the two
// never drift apart (check_invariants compares them with the trail).
#pragma once

#include "engine/evaluator.h"
#include "engine/search.h"

#include "fp/interval_heuristics.h"
#include "host/fp_host.h"

#include <chrono>
#include <deque>

namespace fpsolve {

template <class R>
class Solver : public Evaluator<R> {
  using Iv = typename Evaluator<R>::Iv;
  using Evaluator<R>::p;
  using Evaluator<R>::cur;
  using Evaluator<R>::eval;
  using Evaluator<R>::img;

public:
  Solver(Problem& problem, Options const& options)
      : Evaluator<R>(problem), opt_(options), trail_(&problem.tm),
        heuristic_(domain_, trail_, manager_), choice_(domain_, trail_) {}

  ~Solver() { trail_.backtrack(0, &domain_); }

  Result run();

private:
  struct Level {
    std::size_t trail_length; // trail length before the decision
    int var;
    bool flag;
    IEEEFloat value;
    bool flipped; // the complement is on the trail
  };
  struct Edge {
    int from, to; // operands, from <= to in the numeric order
    bool strict;
  };

  void setup();
  bool propagate();
  bool prop(int n, bool want);
  bool atom_prop(Node const& nd, bool want);
  bool restrict_to(int o, Set<R> t);
  bool narrow(int v, R lo, R hi);
  void push_bound(int v, bool lower, R const& rank, Iv next);
  bool assert_element(qorv::FpBoundElement* e, int v);
  void backtrack_to(std::size_t length);
  void enqueue_watchers(int v);
  void note_edge(int from, int to, bool strict) { edges_.push_back(Edge{from, to, strict}); }
  bool strict_cycle() const;
  L eval_all() const;
  void trace_backtrack();
  bool out_of_resources() const;
  std::vector<IEEEFloat> model() const;
  void check_invariants();

  Options const& opt_;
  qorv::FpIntervalDomain domain_;
  qorv::FpBoundsTrail trail_;
  qorv::FpDecDepManager manager_;
  qorv::fp::FpIntervalDecisionHeuristic heuristic_;
  qorv::fp::FpIntervalChoiceHeuristic choice_;
  qorv::hsh::HashMap<qorv::Term const*, int> var_of_term_;
  std::vector<int> roots_;
  std::vector<std::vector<int>> watchers_; // per variable: the roots it occurs in
  std::vector<char> relevant_;
  std::vector<std::vector<Iv>> history_;
  std::vector<int> trail_var_;
  std::deque<int> queue_;
  std::vector<char> queued_;
  std::vector<Edge> edges_;
  std::vector<Level> levels_;
  Stats stats_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace fpsolve
