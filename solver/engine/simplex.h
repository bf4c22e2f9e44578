// An exact, incremental decision procedure for conjunctions of linear real
// bounds: the general simplex of SMT solvers (Dutertre and de Moura, "A Fast
// Linear-Arithmetic Solver for DPLL(T)", CAV 2006), over GMP rationals with
// strict bounds as delta-rationals.
//
// Columns are variables: the caller's own (new_var) and slacks, one per
// linear form (add_row), s = sum c_i * x_i.  A constraint is a bound on one
// column, so the search asserts and retracts bounds only; rows are never
// removed.  Every bound carries the caller's opaque Reason, and an
// infeasibility is reported as the reasons of an infeasible subset of the
// asserted bounds (the bounds of one row that cannot move: a Farkas
// certificate with the row's coefficients), which the caller turns into a
// learned clause.
//
// Invariants (check_invariants):
// - the tableau: each row r reads basic(r) = sum a_rj * x_j over non-basic
//   columns only, with no zero coefficient, and the column lists name
//   exactly the rows each non-basic column occurs in;
// - the assignment satisfies every row exactly;
// - every non-basic column lies within its bounds (basic ones may not:
//   check() repairs them);
// - the current bounds are the latest of each level's undo trail; popping
//   only loosens bounds, so the assignment stays a tableau solution and
//   non-basic columns stay within bounds, and no repair is needed after pop.
//
// Every rational given (coefficients, bounds) is canonical, as GMP's
// arithmetic requires (an mpq_class built from a numerator and a
// denominator needs canonicalize()).
//
// check() terminates: after a few pivots chosen for sparsity it follows
// Bland's rule (smallest violated basic column leaves, smallest eligible
// column enters), under which no basis repeats.
#pragma once

#include "engine/delta_rational.h"

#include <cstdint>
#include <functional>
#include <gmpxx.h>
#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace fpsolve {

class Simplex {
public:
  using Var = std::uint32_t;
  using Reason = std::uint32_t;
  using Term = std::pair<Var, mpq_class>;

  // A fresh column, unbounded, with value 0.
  Var new_var();
  // The slack s = sum c_i * x_i over existing columns (slacks are
  // substituted by their rows).  The same list of terms (after merging
  // repeated columns and dropping zeros, in any order) returns the same
  // slack.  The slack's value is the form's value at the current assignment.
  Var add_row(std::span<Term const> terms);

  // Tightens a bound of v; a bound no stronger than the current one is
  // ignored.  If it crosses v's other bound, returns false, leaves the bounds
  // as they were and sets `conflict` to the two clashing reasons.  A
  // non-basic v whose value leaves the bound moves onto it.
  bool assert_lower(Var v, DeltaRational const& b, Reason why, std::vector<Reason>& conflict);
  bool assert_upper(Var v, DeltaRational const& b, Reason why, std::vector<Reason>& conflict);

  // Pivots until every column lies within its bounds (true) or a row shows
  // the bounds infeasible (false; `conflict` holds the reasons of that row's
  // bounds, an infeasible subset of the asserted bounds).
  bool check(std::vector<Reason>& conflict);

  // Levels of bounds: pop(n) restores the bounds of before the n-th last
  // push (the assignment and the rows stay).
  void push();
  void pop(unsigned levels);
  unsigned level() const { return static_cast<unsigned>(level_start_.size()); }

  // After check() returned true and until the next assert or pop: an exact
  // rational value of v, with delta replaced by a positive rational small
  // enough that every current bound, strict ones included, holds for every
  // column at once.
  mpq_class model_value(Var v) const { return value_[v].at(delta_); }
  // The value with delta kept symbolic.
  DeltaRational const& value(Var v) const { return value_[v]; }

  // Current bounds, absent when unbounded, and the reasons they carry.
  std::optional<DeltaRational> lower(Var v) const;
  std::optional<DeltaRational> upper(Var v) const;
  std::optional<Reason> lower_reason(Var v) const;
  std::optional<Reason> upper_reason(Var v) const;

  // Bounds implied by the rows: for every row whose columns but one are
  // bounded on the side that matters, the bound that row gives the last
  // one (and for the basic column, from all the others), when it is
  // strictly tighter than the current bound.  `found(v, is_upper, bound,
  // reasons)` receives each; nothing is asserted here, so the caller
  // decides what to keep (and asserts it with a Reason of its own).
  using BoundCallback =
      std::function<void(Var, bool, DeltaRational const&, std::vector<Reason> const&)>;
  void propagate_bounds(BoundCallback const& found) const;

  std::size_t var_count() const { return value_.size(); }
  std::size_t row_count() const { return rows_.size(); }
  std::uint64_t pivot_count() const { return pivots_; }
  bool is_basic(Var v) const { return row_of_[v] != kNoRow; }

  // True; a broken invariant is reported through qorv::invariant_violated.
  bool check_invariants() const;

private:
  static constexpr std::uint32_t kNoRow = UINT32_MAX;
  struct Bound {
    DeltaRational value;
    Reason reason;
  };
  struct Row {
    Var basic;
    std::vector<Term> terms; // non-basic columns, no zero coefficient
  };
  struct Undo {
    Var var;
    bool upper;
    std::optional<Bound> old;
  };

  bool assert_bound(Var v, bool upper, DeltaRational const& b, Reason why,
                    std::vector<Reason>& conflict);
  void update(Var v, DeltaRational const& to);
  void pivot_and_update(std::uint32_t r, Var entering, DeltaRational const& to);
  void pivot(std::uint32_t r, Var entering);
  void add_scaled_row(std::uint32_t target, mpq_class const& k, std::uint32_t source, Var gone);
  std::uint32_t violated_row(bool bland) const;
  std::optional<Var> entering(std::uint32_t r, bool increase, bool bland) const;
  void explain(std::uint32_t r, bool increase, std::vector<Reason>& conflict) const;
  void choose_delta();
  void drop_from_column(Var v, std::uint32_t r);

  std::vector<DeltaRational> value_;
  std::vector<std::optional<Bound>> lower_, upper_;
  std::vector<std::uint32_t> row_of_;              // the row a column is basic in, or kNoRow
  std::vector<std::vector<std::uint32_t>> column_; // rows a non-basic column occurs in
  std::vector<Row> rows_;
  std::map<std::vector<Term>, Var> forms_; // canonical linear form -> its slack
  std::vector<Undo> undo_;
  std::vector<std::size_t> level_start_;
  mpq_class delta_ = 1;
  std::vector<std::uint32_t> position_; // scratch of add_scaled_row: index + 1 in the target row
  std::uint64_t pivots_ = 0;
};

} // namespace fpsolve
