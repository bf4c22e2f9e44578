// The bridge between the host's bounds trail and the evaluator's rank cache.
//
// One source of truth: the intervals live on the trail (it holds the
// history, as words or in its value intervals).  `ev.cur` caches the
// trail's current entries as ranks and is written only by reload_end, which
// every assert (assert_on_trail) and every undo (backtrack_to) calls for the
// one end the bound moves; so the cache equals the trail after each of them
// (check_invariants).  narrow only ever shrinks an interval: the new ends
// lie inside the old ones.
//
// The trail compacts (Options::compact_trail): a term keeps one entry per
// level.  So every length the search returns to is made a level first with
// mark(); backtrack_to any other length is a contract violation the trail
// reports.
#pragma once

#include "engine/context.h"
#include "engine/evaluator.h"
#include "engine/queue.h"

#include "host/fp_host.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fpsolve {

template <class R>
class TrailCache {
public:
  using Iv = typename Evaluator<R>::Iv;

  TrailCache(Problem& problem, SearchContext& ctx, PropagationQueue& queue)
      : ev(problem), trail(&problem.tm), ctx_(ctx), queue_(queue) {
    if (ctx.opt.compact_trail) trail.enable_compaction(&domain);
  }
  ~TrailCache() { trail.backtrack(0, &domain); }
  TrailCache(TrailCache const&) = delete;
  TrailCache& operator=(TrailCache const&) = delete;

  // Narrows v to [lo, hi] intersected with its interval and queues its
  // watchers when it changed; false when the intersection is empty.
  bool narrow(int v, R lo, R hi);
  // Asserts a bound the caller made (a decision) and narrows with the result.
  bool assert_element(qorv::FpBoundElement* e, int v);
  // Starts a level at the current trail length and returns that length.
  std::size_t mark() { return trail.mark(); }
  // Folds the newest level into the one below (the trail's
  // merge_last_level); the intervals, and so the cache, do not change.
  void merge_last_level() { trail.merge_last_level(); }
  // Undoes the trail down to `length` bounds: 0 or a length mark() returned
  // (the levels from there on are gone).
  void backtrack_to(std::size_t length);
  void check_invariants();

  Evaluator<R> ev; // ev.cur caches the trail's current entries
  // Narrowings that moved an end by a single value: the mark of a
  // propagation creeping along a chain.
  std::uint64_t single_steps = 0;
  qorv::FpIntervalDomain domain;
  qorv::FpBoundsTrail trail;

private:
  void assert_on_trail(qorv::FpBoundElement* e, int v);
  void reload_end(int v, bool lower);
  void push_bound(int v, bool lower, R const& rank);

  SearchContext& ctx_;
  PropagationQueue& queue_;
  std::vector<int> undone_; // scratch of backtrack_to: the variables it reloads
};

} // namespace fpsolve
