// Boolean and atom propagation: a node that must be true (or false) forces
// what it can of its kids through the Boolean structure, and an atom forces
// its operands' intervals to the values that make it so.  Every step is
// exact on the values it removes: a value is cut only when no value of the
// other operands' images makes the atom take the wanted truth value.
#pragma once

#include "engine/strict_cycle.h"
#include "engine/trail_cache.h"

namespace fpsolve {

template <class R>
class AtomPropagation {
public:
  AtomPropagation(SearchContext& ctx, TrailCache<R>& tc, ComparisonGraph& graph)
      : ctx_(ctx), tc_(tc), graph_(graph) {}

  // Node n must evaluate to `want`; false on a conflict.
  bool prop(int n, bool want);
  // The operand's value must lie in t: narrows its variable to the hull of
  // the preimage (fp.neg undone first, then fp.abs).
  bool restrict_to(int o, Set<R> t);
  // Variable v's value must lie in t.
  bool restrict_var(int v, Set<R> const& t);
  TrailCache<R>& trail() { return tc_; }
  ComparisonGraph& graph() { return graph_; }

private:
  bool atom_prop(Node const& nd, bool want);

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  ComparisonGraph& graph_;
};

} // namespace fpsolve
