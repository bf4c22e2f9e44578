// The decision level at which bounds of the trail became true, read from
// the trail's history: what a clause learned from a theory conflict needs to
// jump back to the level where it becomes unit.
//
// A term's interval has one entry per bound of that term on the trail,
// after the entries it started with, in trail order (the trail's own
// invariant, compacted or not, in the map or in words), and its ends only
// narrow from entry to entry.  So the first entry where a bound holds is found by binary search,
// the trail position of that entry's bound by counting the term's bounds,
// and its level by the marks of the decisions: level i + 1 starts at
// levels[i].trail_length, the root (level 0) holds everything below
// levels[0].trail_length.
#pragma once

#include "engine/learning.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace fpsolve {

// The level of each bound (each true now, which the caller checks).
template <class R>
std::vector<int> bound_levels(TrailCache<R>& tc, Problem const& p, std::vector<Level> const& levels,
                              std::vector<typename ClauseStore<R>::BoundLit> const& bounds) {
  // The trail positions of each bound's term, in one pass.
  std::vector<qorv::Term const*> terms;
  for (auto const& b : bounds)
    terms.push_back(p.vars[static_cast<std::size_t>(b.var)].term);
  std::vector<std::vector<std::size_t>> positions(bounds.size());
  for (std::size_t i = 0; i < tc.trail.bounds.size(); ++i) {
    qorv::Term const* t = tc.trail.bounds[i]->term();
    for (std::size_t k = 0; k < terms.size(); ++k)
      if (terms[k] == t) positions[k].push_back(i);
  }
  std::vector<int> out;
  for (std::size_t k = 0; k < bounds.size(); ++k) {
    auto const& b = bounds[k];
    // Entry e: the term's interval after its e-th bound on the trail (0: the
    // initial one).  In the map's history, or, for a term the trail keeps
    // in words, what its next bound restores (the current one after the
    // last).
    bool const words = tc.trail.in_words(terms[k]);
    qorv::fp::FpValueInterval const* iv = words ? nullptr : &tc.trail.interval(terms[k]);
    std::size_t const n = words ? positions[k].size() + 1 : iv->entries();
    std::size_t const initial = n - positions[k].size();
    auto end_at = [&](std::size_t e) {
      if (!words) return b.lower ? iv->lower_ends[e] : iv->upper_ends[e];
      return e + 1 == n ? tc.trail.current_end(terms[k], b.lower)
                        : tc.trail.end_before(positions[k][e], b.lower);
    };
    auto holds = [&](std::size_t e) {
      R const r = rank_of<R>(end_at(e));
      return b.lower ? !(r < b.rank) : !(b.rank < r);
    };
    std::size_t lo = 0, hi = n - 1; // holds(hi): the bound is true now
    while (lo < hi) {
      std::size_t const mid = lo + (hi - lo) / 2;
      if (holds(mid))
        hi = mid;
      else
        lo = mid + 1;
    }
    if (lo < initial) {
      out.push_back(0);
      continue;
    }
    std::size_t const pos = positions[k][lo - initial];
    auto const above =
        std::upper_bound(levels.begin(), levels.end(), pos,
                         [](std::size_t q, Level const& lv) { return q < lv.trail_length; });
    out.push_back(static_cast<int>(above - levels.begin()));
  }
  return out;
}

} // namespace fpsolve
