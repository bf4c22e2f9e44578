// The search: sat, unsat or unknown for the assertions of a Problem.
//
// Every term has an interval on the host's bounds trail: inputs, and the
// result of every operation (a Def).  Three-valued evaluation of the
// assertions over the intervals prunes; unit propagation through the
// Boolean structure narrows intervals by the atoms it forces; each Def
// narrows its result forward from its operands (engine/projection.h) and its
// operands backward by shaving their ends with the same projection.
// From the search's first conflict on, decisions settle the Boolean
// structure first: the truth of an open atom that relates two terms, of a
// Boolean variable or of an ite condition (engine/atom_decisions.h; the
// `atom-decisions` option); value splits come only from
// FpIntervalDecisionHeuristic::decide() (inputs first, terms' results
// second) while no such atom is open.  Both are asserted on the
// trail (an atom through a selector variable linked to it).  On a
// conflict the search learns a clause over bound literals: the complements
// of the decisions (a lower bound at m becomes an upper bound at the value
// just below m, and the other way round), without those that the conflict
// is found not to need.  It jumps back to the highest level left below the
// last decision's, where the clause forces that decision's complement, and
// the clause stays, propagated like the assertions, so the search never
// meets the same conflict again (engine/learning.cpp).  With the `learning`
// option off it backtracks chronologically instead: it undoes the last
// decision alone and asserts its complement, keeping no clause.  Every
// decision and every forced complement strictly shrinks a finite interval,
// level by level, so the search ends either way.
//
// sat needs a model that the exact evaluation confirms: whenever the
// assertions are not false over the intervals, the inputs are picked from
// their intervals, every term is computed exactly (engine/apply.h), and the
// assertions are evaluated on those values; after 0, 1, 2, 4, ... decisions
// a probe also fixes the inputs one at a time, propagating after each, and
// checks the values it ends with the same way (engine/probe.cpp; undone
// afterwards, so the search itself does not change).  With every interval a
// single value, a term whose value differs from its exact value (or an
// unspecified result chosen two ways for equal operands) is a conflict.  So
// answers are sound and the search complete; `unknown` comes only from the
// limits.
//
// The search runs on 128-bit ranks when every format fits them, else (or
// with the `big_ranks` option) on GMP ranks; both give the same answers.
//
// Deterministic: the heuristic's generator is seeded, and nothing depends on
// addresses or hash order that varies between runs.
#pragma once

#include "engine/options.h"
#include "engine/problem.h"
#include "engine/stats.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace fpsolve {

enum class Answer { sat, unsat, unknown };

struct Result {
  Answer answer = Answer::unknown;
  // Why the answer is unknown: "timeout" or "resourceout" (max-decisions);
  // empty otherwise.
  std::string reason_unknown;
  // One value per variable; Booleans: true when not NaN; rounding modes
  // as rm_value.  The values of terms (Def variables) are their exact values.
  std::vector<IEEEFloat> model;
  // With reals: the values of the real inputs, one per real term (only
  // those of RealOp::var count); the rest follows (real_terms.h).
  std::vector<mpq_class> real_inputs;
  Stats stats;
};

// A literal of a learned clause as Options::learned_clause_hook sees it:
// "var >= value" when `lower`, else "var <= value" (in the packed order,
// NaN lowest); or, when `atom` is a node, "atom" when `lower`, else
// "not atom" (a decision on an atom, atom_decisions.h).
struct LearnedLiteral {
  int var = -1; // -1 for an atom
  int atom = -1;
  bool lower = true;
  IEEEFloat value;
};

// Solves the assertions of p.  With atom decisions on, p is extended for
// the duration of the search and restored before the return.
Result solve(Problem& p, Options const& options);

// Exact values under a model (every input variable one value; the values
// of terms are computed, see complete_model).
bool eval_bool(Problem const& p, std::vector<IEEEFloat> const& model, int node);
IEEEFloat eval_fp(Problem const& p, std::vector<IEEEFloat> const& model, int operand);

} // namespace fpsolve
