// The model probe: a dive that fixes the inputs one at a time, each to a
// value of its current interval, with propagation after every step, and
// asks the exact evaluation whether the values it ends with are a model.
// Every step of the dive is undone and the propagation queues restored, so
// the search is the same with or without it; only a sat answer may come
// earlier.
#pragma once

#include "engine/candidates.h"
#include "engine/propagation.h"

#include "host/fp_host.h"

#include <cstdint>
#include <vector>

namespace fpsolve {

template <class R>
class Prober {
public:
  Prober(SearchContext& ctx, TrailCache<R>& tc, PropagationQueue& queue,
         Propagation<R>& propagation, Candidates<R>& candidates,
         qorv::FpDecDepManager const& manager)
      : ctx_(ctx), tc_(tc), queue_(queue), propagation_(propagation), candidates_(candidates),
        manager_(manager) {}

  // Due after 0, 1, g, g^2, ... decisions (g: the probe-growth option).
  bool due();
  // True, with the model in `out`, when the exact check confirms the values
  // the dive ends with.
  bool probe(std::vector<IEEEFloat>* out);

private:
  SearchContext& ctx_;
  TrailCache<R>& tc_;
  PropagationQueue& queue_;
  Propagation<R>& propagation_;
  Candidates<R>& candidates_;
  qorv::FpDecDepManager const& manager_;
  std::uint64_t next_ = 0; // decisions before the next probe
};

} // namespace fpsolve
