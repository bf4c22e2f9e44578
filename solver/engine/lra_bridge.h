// The linear real arithmetic of a search: the real terms' constraints of the
// current box, decided exactly by the simplex (engine/simplex.h).
//
// Built once per search: one simplex column per real term (a row for a
// linear form, a column for a variable, fp.to_real and ite), rows r - a and
// r - b for each ite, and r - u for each fp.to_real and each of its hidden
// values u at NaN, +oo and -oo.  check() asserts, at a fresh simplex level,
// what the current intervals imply:
//   - a decided real atom: its term < 0, <= 0, or the negation (>= 0, > 0);
//   - fp.to_real(x): the exact values of x's ends when x's interval holds
//     only finite values, r = u when x is NaN or an infinity (a single value);
//     nothing while both cases are possible (the hidden value is free);
//   - a decided ite condition: r = a or r = b;
//   - y = to_fp(rm, t): t within the reals that round into y's interval
//     under a rounding mode still possible (real_rounding.h);
// and asks the simplex for a solution.  Every bound holds in every model of
// the box, so infeasibility refutes the box (the caller's conflict); with
// every float and atom decided the bounds say exactly what the box means,
// so feasibility gives the real inputs of a model (SearchContext::
// real_inputs).  The level is popped before returning: between checks the
// simplex holds only its rows.
#pragma once

#include "engine/real_rounding.h"
#include "engine/simplex.h"
#include "engine/trail_cache.h"

#include <vector>

namespace fpsolve {

template <class R>
class LraBridge {
public:
  LraBridge(SearchContext& ctx, TrailCache<R>& tc);

  // Narrows the results of to_fp of reals to their non-NaN values (a
  // rounded real is never NaN); false when that empties one.
  bool narrow_at_root();
  // Whether some real atom or rounding is relevant to the search.
  bool constrains() const;
  // False when the real constraints of the box are infeasible; otherwise
  // ctx.real_inputs holds values of the real inputs that satisfy them.
  bool check();

private:
  using SVar = Simplex::Var;
  // Asserts lo <= column <= hi (each absent end unbounded); false on a clash.
  bool bound(SVar v, RealEnd const& lo, RealEnd const& hi);
  bool equal(SVar v, mpq_class const& value);
  bool feasible();

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  Simplex simplex_;
  std::vector<SVar> col_;                    // per real term
  std::vector<std::pair<SVar, SVar>> ite_;   // per real term (ite): r - a, r - b
  std::vector<std::array<SVar, 3>> special_; // per real term (to_real): r - u
  std::vector<Simplex::Reason> conflict_;
};

} // namespace fpsolve
