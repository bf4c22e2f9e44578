// The search's setup: which variables matter, what watches them, the order
// in which the decision heuristic sees the terms, and the first queue.
//
// After setup_search: ctx.roots are the assertions, each asserted
// conjunction of at least Options::split_conjunctions conjuncts split into
// them (the same constraint, and each conjunct is revisited only when its
// own variables change); a variable is relevant
// when it occurs under an assertion, directly or through the Defs of
// relevant variables; every relevant variable's term is in
// `manager.terms`, inputs first (Booleans, rounding modes, floating point)
// and the Defs' variables from `manager.split` on; every entry is queued,
// Defs first in their topological order so the first round carries values
// forward before the assertions are looked at.
#pragma once

#include "engine/context.h"
#include "engine/queue.h"

#include "host/fp_host.h"

namespace fpsolve {

void setup_search(SearchContext& ctx, PropagationQueue& queue, qorv::FpDecDepManager& manager);

} // namespace fpsolve
