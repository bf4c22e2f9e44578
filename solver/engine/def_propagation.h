// The projection and shaving of definitions: each Def narrows its variable
// to the projection of its operands (engine/projection.h), and, where the
// variable's interval is narrower than that projection, shaves the ends of
// its operands that cannot yield a value inside it.  Only steps that hold
// exactly are taken, so a cut value is never part of a model.
#pragma once

#include "engine/atom_propagation.h"
#include "engine/projection.h"

#include <cstddef>
#include <vector>

namespace fpsolve {

template <class R>
class DefPropagation {
public:
  DefPropagation(SearchContext& ctx, TrailCache<R>& tc, AtomPropagation<R>& atoms)
      : ctx_(ctx), tc_(tc), atoms_(atoms) {}

  // Propagates Def d forward and backward; false on a conflict.
  bool prop_def(int d);

private:
  using Iv = typename Evaluator<R>::Iv;

  unsigned rm_modes(int o) const;
  Set<R> shave(FpOp op, std::vector<Bounds<R>> a, std::size_t i, unsigned modes,
               FormatRanks<R> const& rf, IEEEFloat::format fmt, Set<R> const& z, bool same) const;
  bool same_term(int x, int y) const;

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  AtomPropagation<R>& atoms_;
};

} // namespace fpsolve
