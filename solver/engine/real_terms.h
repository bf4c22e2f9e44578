// Exact values of the real terms (problem.h) and the exact check of models
// that contain reals.
//
// A model of a problem with reals is the float model (one value per
// variable) and the values of the real inputs (RealOp::var terms, indexed by
// term; a missing one is 0).  Every other real term is computed from them
// exactly over GMP rationals: fp.to_real of a finite float is its exact
// value, of NaN or an infinity the value of the format's hidden variable
// for that case (so the unspecified choice is a function of the operand).
// The variables of real atoms and of to_fp of reals are then not inputs:
// completion sets each to its meaning (the atom's truth, the correctly
// rounded value), so a model that satisfies the assertions after completion
// satisfies the original real comparisons and conversions.
#pragma once

#include "engine/problem.h"

#include <gmpxx.h>
#include <string>
#include <vector>

namespace fpsolve {

// The exact value of a finite float.
mpq_class exact_value(IEEEFloat const& x);
// q rounded to format f under rm, correctly (MPFR), with the format's
// subnormals and overflow.
IEEEFloat round_real(IEEEFloat::rounding_mode rm, mpq_class const& q, IEEEFloat::format f);

// The value of every real term under a complete float model and the real
// inputs; ite conditions are evaluated on the float model.
std::vector<mpq_class> real_values(Problem const& p, std::vector<IEEEFloat> const& model,
                                   std::vector<mpq_class> const& inputs);

// Completes a model with reals: the float Defs, the real terms, and the
// variables of real atoms and of real rounds, repeated until nothing moves
// (each pass fixes one more level of the term DAG, so it ends).  `inputs` is
// resized to one entry per real term.  Returns whether a variable with
// claims[v] set (every variable without claims) changed from its given
// value.
bool complete_reals(Problem const& p, std::vector<IEEEFloat>& model, std::vector<mpq_class>& inputs,
                    std::vector<char> const* claims = nullptr);

// The exact check: completion changes no claimed variable and every
// assertion is true.  False with a description in `why` otherwise.
bool verify_reals(Problem const& p, std::vector<IEEEFloat>& model, std::vector<mpq_class>& inputs,
                  std::string* why, std::vector<char> const* claims = nullptr);

// Per variable, the variables its real side reads: for the variable of a
// real atom, those in its term's cone; for the result of a real round, the
// rounding mode's and those in the rounded term's cone.  A search that
// needs one of them needs the others (engine/setup.cpp).
std::vector<std::vector<int>> real_dependencies(Problem const& p);

// SMT-LIB's text of a rational: 2.0, (- 2.0), (/ 1 3), (- (/ 1 3)).
std::string real_text(mpq_class const& q);

} // namespace fpsolve
