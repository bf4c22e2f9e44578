// The candidate model of a search node: every variable's pick from its
// interval (zero, or the end nearest zero; true for a Boolean; the lowest
// rounding mode), and the exact check of the picks (engine/apply.h), whose
// count and time go to the statistics.
#pragma once

#include "engine/trail_cache.h"

#include <vector>

namespace fpsolve {

template <class R>
class Candidates {
public:
  Candidates(SearchContext& ctx, TrailCache<R> const& tc) : ctx_(ctx), tc_(tc) {}

  // The value the node's candidate model gives v (a rank of v's interval).
  R pick(int v) const;
  std::vector<IEEEFloat> model() const;
  // The same model written over *m, in the room m already has: a model is
  // 32 bytes per variable, and assigning a fresh one held both at once.
  void model_into(std::vector<IEEEFloat>* m) const;
  // True when the picked inputs, with every Def computed exactly, satisfy
  // every assertion; the model is left in `out`.
  bool try_candidate(std::vector<IEEEFloat>* out);
  // The exact check of a model: every assertion true, every Def's value
  // its exact value.
  bool verify(std::vector<IEEEFloat>& m);
  // Whether completing m changes the value of a relevant Def variable.
  bool completion_differs(std::vector<IEEEFloat>& m);
  bool all_single() const;

private:
  SearchContext& ctx_;
  TrailCache<R> const& tc_;
};

} // namespace fpsolve
