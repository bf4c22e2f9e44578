// The propagation round (see propagation.h).
#include "engine/propagation.h"

#include <algorithm>
#include <cstdint>

namespace fpsolve {

template <class R>
typename Propagation<R>::Round Propagation<R>::propagate() {
  graph_.clear();
  std::uint64_t work = 0;
  std::uint64_t const budget = ctx_.opt.propagation_budget * queue_.entry_count() + 1000;
  std::uint64_t const stride = std::max<std::uint64_t>(1, ctx_.opt.timer_stride);
  int const nr = static_cast<int>(ctx_.roots.size());
  std::uint64_t const single_base = atoms_.trail().single_steps;
  std::uint64_t jump_at = 2 * queue_.entry_count() + 64;
  Round outcome = Round::fixpoint;
  for (;;) {
    if (!clauses_.drain()) {
      outcome = Round::conflict;
      break;
    }
    if (queue_.entries_empty()) break;
    if (ctx_.opt.chain_jump && atoms_.trail().single_steps - single_base >= jump_at) {
      jump_at *= 2;
      if (!jump_.jump()) {
        outcome = Round::conflict;
        break;
      }
      continue;
    }
    int const r = queue_.pop_front();
    // Past the budget, propagation is creeping: leave the rest to the
    // decisions, which halve intervals instead of shaving single values.
    // Past the time limit, the round stops too; the caller then answers
    // unknown.  The clock is read every `stride` steps only.
    if (++work > budget || (work % stride == 0 && ctx_.out_of_resources())) {
      queue_.push_front(r);
      queue_.lost = true;
      return Round::stalled;
    }
    if (r < nr ? !atoms_.prop(ctx_.roots[r], true) : !defs_.prop_def(r - nr)) {
      outcome = Round::conflict;
      break;
    }
  }
  if (outcome == Round::conflict) queue_.clear();
  return outcome;
}

// The node check may narrow intervals (the real bounds flow into floats):
// then the round goes on from what it queued.  Each repetition follows a
// strict narrowing of a finite interval, so the loop ends.
template <class R>
bool Propagation<R>::deduce() {
  PhaseTimer const timer(ctx_.stats.propagation_time);
  for (;;) {
    Round const outcome = propagate();
    if (outcome == Round::conflict || (outcome == Round::stalled && graph_.has_strict_cycle()))
      return false;
    if (!node_check) return true;
    if (!node_check()) {
      queue_.clear();
      return false;
    }
    if (outcome == Round::stalled || (queue_.entries_empty() && queue_.clause_vars_empty()))
      return true;
  }
}

FPSOLVE_INSTANTIATE_FOR_RANKS(Propagation)

} // namespace fpsolve
