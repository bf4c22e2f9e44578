// The state that the parts of one search share: the problem and the
// options, the statistics, the assertions' roots, which variables matter,
// the search variable of every trail term and the decision levels.
//
// Invariants: `relevant[v]` holds exactly for the variables that occur under
// an assertion, directly or through the Defs of relevant variables, and
// `var_of` maps the term of every relevant variable (and only those) to it.
// `levels[i].trail_length` strictly increases with i and stays within the trail, because every
// decision asserts at least one bound.
#pragma once

#include "engine/options.h"
#include "engine/problem.h"
#include "engine/stats.h"

#include <chrono>
#include <cstddef>
#include <gmpxx.h>
#include <vector>

namespace fpsolve {

// One decision: "var >= value" when `lower`, else "var <= value", asserted
// when the trail had `trail_length` bounds.
struct Level {
  std::size_t trail_length;
  int var;
  bool lower;
  IEEEFloat value;
};

struct SearchContext {
  SearchContext(Problem const& problem, Options const& options) : p(problem), opt(options) {}

  // The time or decision limit is reached (the caller answers unknown); the
  // limit counts value splits and atom decisions alike.
  bool out_of_resources() const {
    if (opt.max_decisions && stats.decisions + stats.atom_decisions >= opt.max_decisions)
      return true;
    if (opt.timeout > 0) {
      std::chrono::duration<double> const d = std::chrono::steady_clock::now() - start;
      if (d.count() >= opt.timeout) return true;
    }
    return false;
  }

  Problem const& p;
  Options const& opt;
  // Cross-checks of the search state at every step: on with --check, and
  // always in builds with QORV_DEBUG_INVARIANTS.
#ifdef QORV_DEBUG_INVARIANTS
  bool const checking = true;
#else
  bool const checking = opt.check;
#endif
  Stats stats;
  std::chrono::steady_clock::time_point const start = std::chrono::steady_clock::now();
  std::vector<int> roots; // the assertions' nodes, conjunctions split; entry r is roots[r]
  std::vector<char> relevant;
  // By term id (the term manager numbers its terms densely from 1): the
  // relevant variable of each term, -1 for every other term.  A vector, not
  // a hash map: on long problems a map's nodes cost ten times the room.
  std::vector<int> var_of_id;
  int var_of(qorv::Term const* t) const {
    return t->id < var_of_id.size() ? var_of_id[t->id] : -1;
  }
  std::vector<Level> levels; // the decisions, lowest first
  // The atom selectors (atom_decisions.h): variables from first_selector on,
  // whose link roots follow the assertions in `roots`.
  int first_selector = static_cast<int>(p.vars.size());
  std::vector<int> links;
  // With reals: the values of the real inputs (by real term) that the last
  // feasible check of the linear real arithmetic found (lra_bridge.h).
  std::vector<mpq_class> real_inputs;
  // Per variable: how much the learned clauses have involved it (VSIDS:
  // each literal adds activity_step, which grows by 1/0.95 per clause).
  std::vector<double> activity = std::vector<double>(p.vars.size(), 0.0);
  double activity_step = 1.0;
};

} // namespace fpsolve
