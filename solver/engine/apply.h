// Exact results of the operations that are terms of their own (Def), with
// the host's correctly rounded arithmetic, and the completion of a model:
// given values for the input variables, the value of every Def's variable.
//
// An unspecified result (fp.min or fp.max of +0 and -0) has no value here;
// the completion makes it a function of the operand values: the first
// occurrence of an operation on given values picks (the value the caller
// proposed when that is a zero, else +0), every later one reuses the pick.
#pragma once

#include "engine/problem.h"

#include <optional>
#include <string>
#include <vector>

namespace fpsolve {

// The result of op (not ite) under rm on args, in format `to`; no value when
// the result is unspecified.
std::optional<IEEEFloat> apply_op(FpOp op, IEEEFloat::rounding_mode rm,
                                  std::vector<IEEEFloat> const& args, IEEEFloat::format to);

// Whether every format of the problem has at most 128 bits, so that its
// ranks fit the 128-bit rank type (ranks.h).
bool ranks_fit_128(Problem const& p);

// The exact value of an operand under a model of every variable.
IEEEFloat operand_value(Problem const& p, std::vector<IEEEFloat> const& model, int o);

// Computes the value of every Def's variable in order from the input values
// in `model` (resized to one value per variable; a missing input becomes +0,
// a missing rounding mode RNE).  `model`'s old entries for Def variables are
// proposals for unspecified results.  Returns whether some Def variable's
// value changed from a given entry (with `changed_specified` set when a
// changed one was not an unspecified choice); with `claims`, only the Def
// variables v with claims[v] set count.
bool complete_model(Problem const& p, std::vector<IEEEFloat>& model,
                    bool* changed_specified = nullptr, std::vector<char> const* claims = nullptr);

// Completes the model and evaluates every assertion exactly.  False, with a
// description in `why`, when an assertion is false or a Def variable given
// in the model disagrees with its exact value.
bool verify_model(Problem const& p, std::vector<IEEEFloat>& model, std::string* why,
                  std::vector<char> const* claims = nullptr);

} // namespace fpsolve
