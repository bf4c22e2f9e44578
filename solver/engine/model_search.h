// The model search: a local search over the input values of the current
// node's box, guided by the distance of each point from satisfying the
// assertions (engine/distance.h), for models that bisection and the probe
// do not come near (a product that must hit one exact value, a chain whose
// only model sits far from every interval end).
//
// Guarantees:
//   - The inputs it moves stay inside the node's intervals (an input that
//     an asserted equality fixes follows its term instead); every point is
//     evaluated exactly, and one at distance 0 is returned only after the
//     same exact check as every model (Candidates::verify).
//   - It reads the search's state and writes none of it (no bound, queue,
//     clause or decision), so the interval search is the same with or
//     without it; only a sat answer can come sooner.
//   - Its choices come from its own generator with a fixed seed, and its
//     schedule and budgets count decisions and evaluations, never time: a
//     file gives the same answer and statistics on every run.
#pragma once

#include "engine/candidates.h"
#include "engine/distance.h"

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace fpsolve {

template <class R>
class ModelSearch {
public:
  ModelSearch(SearchContext& ctx, TrailCache<R> const& tc, Candidates<R>& candidates);

  // Due after 0, 1, 2, 4, ... decisions.
  bool due();
  // Searches the current node's box with this run's budget of evaluations;
  // true with the model in `out` when one passed the exact check.  `seed`,
  // when given, is a point to restart from (the probe's last values).
  bool search(std::vector<IEEEFloat> const* seed, std::vector<IEEEFloat>* out);

private:
  struct Input {
    int var;
    R lo, hi; // the non-NaN ranks of its interval in the node (lo <= hi)
    bool nan; // NaN is in its interval
  };

  // Inputs that an asserted (= x t) or (fp.eq x t) fixes follow t instead
  // of being searched (Distance::follow), where x is not in t's cone.
  void find_links();
  bool in_cone(int v, int o, std::vector<char>& seen) const;
  void collect_inputs();
  // Moves the point to the restart of kind `kind` (picks, ends, seed, ...).
  void restart(unsigned kind);
  void put(Input const& in, R const& r);
  double evaluate();
  // A line search along one input: steps of 1, 2, 4, ... ulps while the
  // distance falls, then halving; true when the point moved.
  bool descend(Input const& in);
  // Random jumps of one or two inputs by 2^k ulps, kept when the distance
  // does not grow; true when the point moved.
  bool perturb();
  R random_rank(R const& lo, R const& hi);
  bool spent() const { return work_ - work_at_start_ >= budget_ || ctx_.out_of_resources(); }

  SearchContext& ctx_;
  TrailCache<R> const& tc_;
  Candidates<R>& candidates_;
  // Built at the first run: the search often ends before one, and on long
  // problems the distance's copy of every variable's value and rank is a
  // large share of the memory.
  std::optional<Distance<R>> dist_;
  std::mt19937_64 rng_{0x5eed'f00d};
  std::vector<Input> inputs_;
  std::vector<std::pair<int, int>> links_; // (view, operand) as given to Distance::follow
  std::vector<IEEEFloat> seed_;            // this run's seed (empty: none)
  double cur_ = 0;                         // the distance of the current point
  std::uint64_t next_ = 0;                 // decisions before the next run
  std::uint64_t runs_ = 0;
  std::uint64_t propagations_at_last_ = 0; // the propagations count at the last run
  std::uint64_t evals_ = 0;                // evaluations of this run
  // Work in Def computations, each evaluation counting at least one: the
  // total, its value when this run started, and this run's budget.
  std::uint64_t work_ = 0, work_at_start_ = 0, budget_ = 0;
  unsigned restart_kind_ = 0; // kinds cycle over the runs
  bool linked_ = false;       // find_links ran
};

} // namespace fpsolve
