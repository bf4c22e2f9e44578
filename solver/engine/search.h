// The search: sat, unsat or unknown for the assertions of a Problem.
//
// Every term has an interval on the host's bounds trail.  Three-valued
// evaluation of the assertions over the intervals prunes; unit propagation
// through the Boolean structure narrows intervals by the atoms it forces;
// decisions come only from FpIntervalDecisionHeuristic::decide() and are
// asserted on the trail.  On a conflict the search undoes the trail to the
// newest untried decision and asserts its complement (a lower bound at m
// becomes an upper bound at the value just below m, and the other way
// round).  Every decision and every complement strictly shrinks a finite
// interval, so the search ends; when it answers sat, every assertion is true
// for every value left in the intervals, so any choice from them is a model.
//
// Deterministic: the heuristic's generator is seeded, and nothing depends on
// addresses or hash order that varies between runs.
#pragma once

#include "engine/problem.h"

#include <cstdint>
#include <ostream>
#include <vector>

namespace fpsolve {

struct Options {
  std::uint64_t max_decisions = 0; // 0: no limit
  double timeout_seconds = 0;      // 0: no limit
  std::ostream* trace = nullptr;   // search frames at every backtrack
  bool check = false;              // verify the trail against the search state at every step
};

struct Stats {
  std::uint64_t decisions = 0;
  std::uint64_t nan_decisions = 0;   // "is it NaN?" decisions
  std::uint64_t split_decisions = 0; // interval splits
  std::uint64_t backtracks = 0;
  std::uint64_t propagations = 0; // bounds asserted by propagation
  double seconds = 0;
};

enum class Answer { sat, unsat, unknown };

struct Result {
  Answer answer = Answer::unknown;
  // One value per variable; Booleans: true when not NaN; rounding modes
  // as rm_value.  The values of terms (Def variables) are their exact values.
  std::vector<IEEEFloat> model;
  Stats stats;
};

Result solve(Problem& p, Options const& options);

// Exact values under a model (every input variable one value; the values
// of terms are computed, see complete_model).
bool eval_bool(Problem const& p, std::vector<IEEEFloat> const& model, int node);
IEEEFloat eval_fp(Problem const& p, std::vector<IEEEFloat> const& model, int operand);

} // namespace fpsolve
