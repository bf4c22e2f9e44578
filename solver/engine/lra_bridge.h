// The linear real arithmetic of a search: the real terms' constraints of the
// current box, decided exactly by the simplex (engine/simplex.h), their
// consequences for the floats, and the bounds behind a refutation.
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
//     under a rounding mode still possible (real_rounding.h; recomputed only
//     when y's interval or the set of modes changed);
// and asks the simplex for a solution.  Every bound holds in every model of
// the box, so infeasibility refutes the box (the caller's conflict); with
// every float and atom decided the bounds say exactly what the box means,
// so feasibility gives the real inputs of a model (SearchContext::
// real_inputs).
//
// After a feasible check the bounds flow back: the bounds the rows imply
// (Simplex::propagate_bounds, one pass) are asserted too, then each
// fp.to_real(x) narrows x to the floats whose value lies within its real
// bounds (only the finite part can be cut while NaN or an infinity, whose
// value is free, is still possible on that side), and each y = to_fp(rm, t)
// narrows y to the rounding of t's bounds under the possible modes.  These
// narrowings go to the float trail, so they are undone with the search's
// levels; the real bounds themselves are a function of the box and are
// asserted again at every check, never kept (so nothing of the reals needs
// undoing).  The level is popped before returning: between checks the
// simplex holds only its rows.
//
// Every bound carries a Reason that names the trail bounds it follows from
// (bound literals: a decided atom's variable is NaN or not, x's ends,
// y's ends and the rounding mode's ends); a derived bound names the union of
// its premises.  An infeasible subset, or a float emptied by a narrowing
// together with that float's own ends, is then a set of trail bounds that no
// model satisfies together: refuted() hands it to the learning.
#pragma once

#include "engine/learning.h"
#include "engine/real_rounding.h"
#include "engine/simplex.h"
#include "engine/trail_cache.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace fpsolve {

template <class R>
class LraBridge {
public:
  using BoundLit = typename ClauseStore<R>::BoundLit;

  LraBridge(SearchContext& ctx, TrailCache<R>& tc);

  // Narrows the results of to_fp of reals to their non-NaN values (a
  // rounded real is never NaN); false when that empties one.
  bool narrow_at_root();
  // Whether some real atom or rounding is relevant to the search.
  bool constrains() const;
  // False when the real constraints of the box are infeasible, or when the
  // floats they narrow become empty; otherwise ctx.real_inputs holds values
  // of the real inputs that satisfy them.
  bool check();
  // After check() returned false: bounds of the trail, each true then, that
  // no model satisfies together.  False when the conflict involved a bound
  // with no such source (an ite whose condition is no Boolean variable).
  bool refuted(std::vector<BoundLit>& out) const;

private:
  using SVar = Simplex::Var;
  using Reason = Simplex::Reason;
  static constexpr Reason kUnexplained = UINT32_MAX;

  // A reason standing for `lits` (during one check).
  Reason because(std::vector<BoundLit> lits);
  // The literals of the operand's variable that bound its current image:
  // its two ends.
  void operand_ends(int o, std::vector<BoundLit>& out) const;
  // Asserts lo <= column <= hi (each absent end unbounded); false on a clash.
  bool bound(SVar v, RealEnd const& lo, RealEnd const& hi, Reason lo_why, Reason hi_why);
  bool equal(SVar v, mpq_class const& value, Reason why);
  bool assert_box();
  bool assert_rounding(std::size_t k);
  bool assert_implied();
  bool narrow_floats();
  // Narrows float v to [lo, hi] because of the column's bounds; on an empty
  // interval, the refutation is the column's reasons, v's ends and `extra`.
  bool narrow_float(int v, R lo, R hi, SVar col, std::vector<BoundLit> const& extra);
  RealRange range_of(SVar v) const;
  unsigned modes_of(int rm) const;
  void refute(std::vector<Reason> const& reasons, std::vector<BoundLit> const& extra = {});

  SearchContext& ctx_;
  TrailCache<R>& tc_;
  Simplex simplex_;
  std::vector<SVar> col_;                    // per real term
  std::vector<std::pair<SVar, SVar>> ite_;   // per real term (ite): r - a, r - b
  std::vector<std::array<SVar, 3>> special_; // per real term (to_real): r - u
  std::vector<Reason> conflict_;
  std::vector<std::vector<BoundLit>> why_; // per reason of the current check
  std::vector<BoundLit> refuted_;
  bool explained_ = false;
  // Per real round: the preimage of the interval and modes it was last
  // computed for.
  struct Preimage {
    bool valid = false;
    R lo, hi;
    unsigned modes = 0;
    std::optional<RealRange> range;
  };
  std::vector<Preimage> preimages_;
};

} // namespace fpsolve
