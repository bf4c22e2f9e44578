// The solver's statistics: one table (FPSOLVE_STATS) that defines the
// fields of `Stats`, their order and their names in
// `(get-info :all-statistics)` and on the diagnostic channel.  Counters are
// whole numbers; times are seconds of wall-clock time spent in one phase
// (the phases nest in `time`, the whole check-sat, except `parse-time`,
// which the front end measures around reading and elaboration).
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>

namespace fpsolve {

// X(kind, field, name, help); kind is count or time.
#define FPSOLVE_STATS(X)                                                                           \
  X(count, decisions, "decisions", "value splits asked of the decision heuristic")                 \
  X(count, atom_decisions, "atom-decisions", "decisions on the truth of an atom or condition")     \
  X(count, selectors, "atom-selectors", "atoms and conditions open to atom decisions")             \
  X(count, atom_restarts, "atom-restarts", "returns to the root when atom decisions start")        \
  X(count, nan_decisions, "nan-first-decisions", "'is it NaN?' decisions")                         \
  X(count, split_decisions, "split-decisions", "interval splits")                                  \
  X(count, backtracks, "backtracks", "conflicts")                                                  \
  X(count, propagations, "propagations", "bounds asserted by propagation")                         \
  X(count, learned, "learned", "clauses learned (one per conflict)")                               \
  X(count, learned_literals, "learned-literals", "literals of the learned clauses")                \
  X(count, learning_tests, "learning-tests", "conflict tests run to shorten learned clauses")      \
  X(count, minimized, "minimized-decisions", "decisions dropped from clauses below their prefix")  \
  X(count, levels_skipped, "levels-skipped", "levels undone beyond the last by backjumps")         \
  X(count, probes, "probes", "model probes (dives undone afterwards)")                             \
  X(count, chain_jumps, "chain-jumps", "comparison chains jumped to their fixpoint")               \
  X(count, model_searches, "model-searches", "model search runs")                                  \
  X(count, model_search_evals, "model-search-evals", "points the model search evaluated exactly")  \
  X(count, model_search_restarts, "model-search-restarts", "starting points of the model search")  \
  X(count, model_checks, "model-checks", "candidate models checked exactly")                       \
  X(count, lra_checks, "lra-checks", "linear real checks of a node's box by the simplex")          \
  X(count, lra_conflicts, "lra-conflicts", "boxes whose real constraints the simplex refuted")     \
  X(count, lra_lemmas, "lra-lemmas", "real conflicts learned as clauses of the refuted bounds")    \
  X(count, lra_lemmas_unused, "lra-lemmas-unused",                                                 \
    "refuted bounds not learned: two became true at their highest level")                          \
  X(count, lra_narrowings, "lra-narrowings", "float intervals narrowed by real bounds")            \
  X(count, lra_preimages, "lra-preimages",                                                         \
    "rounding preimages computed (not taken from the cache)")                                      \
  X(time, parse_time, "parse-time", "reading and elaborating the script")                          \
  X(time, propagation_time, "propagation-time", "propagation rounds")                              \
  X(time, learning_time, "learning-time", "learning clauses and jumping back")                     \
  X(time, probe_time, "probe-time", "model probes")                                                \
  X(time, model_search_time, "model-search-time", "the model search")                              \
  X(time, check_time, "model-check-time", "exact evaluation of candidate models")                  \
  X(time, lra_time, "lra-time", "the simplex's checks of real constraints")                        \
  X(time, seconds, "time", "the whole check-sat")

struct Stats {
#define FPSOLVE_STAT_FIELD(kind, field, name, help) FPSOLVE_STAT_TYPE_##kind field = 0;
#define FPSOLVE_STAT_TYPE_count std::uint64_t
#define FPSOLVE_STAT_TYPE_time double
  FPSOLVE_STATS(FPSOLVE_STAT_FIELD)
#undef FPSOLVE_STAT_FIELD
#undef FPSOLVE_STAT_TYPE_count
#undef FPSOLVE_STAT_TYPE_time

  // Adds every counter and time of `o` (totals over several check-sats).
  Stats& operator+=(Stats const& o);
};

// The statistics as an SMT-LIB attribute list, one `:name value` per line:
// "(:decisions 3\n :nan-first-decisions 1\n ... :time 0.000120)".
void print_stats(std::ostream& out, Stats const& s);

// Adds the wall-clock time of its scope to a Stats time field.
class PhaseTimer {
public:
  explicit PhaseTimer(double& into) : into_(into) {}
  ~PhaseTimer() {
    std::chrono::duration<double> const d = std::chrono::steady_clock::now() - start_;
    into_ += d.count();
  }
  PhaseTimer(PhaseTimer const&) = delete;
  PhaseTimer& operator=(PhaseTimer const&) = delete;

private:
  double& into_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace fpsolve
