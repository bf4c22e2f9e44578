// A reference semantics of QF_FP scripts for the tests: the asserted
// formulas of a script evaluated exactly, for given values of its declared
// constants, straight from the reader's S-expressions.
//
// It shares nothing with the solver's elaboration or engine: names, sorts,
// literals and operators are read here, and every operation calls the
// library's correctly rounded IEEEFloat arithmetic and conversions
// (host/fp_arith.h, host/fp_convert.h) on values.  So an operator mapped to
// the wrong operation, swapped operands, a literal read wrong or a
// connective expanded wrongly by the elaboration shows up as a disagreement
// between the solver and this reference.
//
// Commands: declare-const, declare-fun without arguments, define-fun (with
// parameters a macro: each use evaluates the body with the parameters bound
// to the arguments' values) and assert; every other command is skipped.
// Bit-vectors of up to 64 bits: literals, (_ bvN n), every operator of the
// bit-vector theory and logic, and the conversions both ways, computed here
// on 64-bit words.
// Terms: true, false, not, and, or, xor, =>, =, distinct, ite, let, `!`
// (attributes ignored), every floating-point operation, comparison and
// classification, rounding-mode names, (fp s e m), (_ +oo eb sb) and the
// other indexed constants, to_fp of a bit pattern, of a floating-point term,
// of a real literal and of a signed bit-vector literal, to_fp_unsigned.
// The script is assumed well sorted (the solver checks that); anything
// outside this list throws std::invalid_argument.
//
// fp.min and fp.max of +0 and -0 (either order) are unspecified: the
// solver picks one zero, the same for the same operation, format and
// operand values.  The reference does not know that function, so `holds`
// asks whether some such function satisfies every assertion: wherever the
// evaluation first needs an unspecified result it tries both zeros, and the
// choice then stays fixed for the rest of the script.  fp.to_ubv and
// fp.to_sbv of NaN, infinities and out-of-range values are unspecified the
// same way: each value of the width is tried, fixed per operation, width,
// rounding mode and operand.
#pragma once

#include "smtlib/reader.h"

#include "host/ieee_float.h"

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace fpsolve::reference {

using qorv::IEEEFloat;

struct Sort {
  enum Kind : std::uint8_t { boolean, rounding_mode, floating_point, bitvector } kind = boolean;
  IEEEFloat::format fmt{2, 2}; // floating point only
  std::uint32_t width = 0;     // bit-vectors only
};

struct Val {
  Sort::Kind kind = Sort::boolean;
  bool b = false;
  IEEEFloat::rounding_mode rm = IEEEFloat::rm_nearest_even;
  IEEEFloat x;          // floating point only
  std::uint64_t bv = 0; // bit-vectors only, with their width
  std::uint32_t width = 0;
};

// SMT-LIB's `=` on two values of one sort: on floats identity (every NaN
// equals every NaN, +0 differs from -0).
bool same_value(Val const& a, Val const& b);

// Every value of a sort, each once: both Booleans, the five modes, every
// bit pattern of a format with a single NaN.
std::vector<Val> all_values(Sort const& s);

class Script {
public:
  // Reads the script; throws SmtError for unreadable text.
  explicit Script(std::string const& text);

  struct Constant {
    std::string name;
    Sort sort;
  };
  // The declared constants, in declaration order.
  std::vector<Constant> const& constants() const { return constants_; }

  // Whether every assertion holds for the values (one per constant, in
  // order) under some choice of the unspecified zeros.
  bool holds(std::vector<Val> const& values) const;
  // Whether some assignment of values to the constants makes holds() true:
  // every combination is tried, so only for tiny formats.
  bool satisfiable() const;
  // The value of a closed term (no constants), such as a model's value.
  Val value_of(SExpr const& term) const;

private:
  // The operation and what its unspecified result is a function of, as text.
  using ChoiceKey = std::string;
  struct Macro {
    std::vector<std::string> params;
    SExpr body;
  };
  struct Env {
    std::vector<Val> const* values;
    std::vector<std::pair<std::string, Val>> locals; // let and parameters, innermost last
    std::map<ChoiceKey, std::uint64_t>* choices;     // min/max: 1 for the first operand
  };

  bool holds_with(std::vector<Val> const& values,
                  std::map<ChoiceKey, std::uint64_t>& choices) const;
  Val eval(SExpr const& e, Env& env) const;
  Val eval_symbol(SExpr const& e, Env& env) const;
  Val apply(SExpr const& e, Env& env) const;
  Val apply_fp(std::string const& op, SExpr const& e, Env& env) const;
  Val to_fp(SExpr const& e, IEEEFloat::format f, bool is_unsigned, Env& env) const;
  Val min_max(bool is_max, IEEEFloat const& x, IEEEFloat const& y, Env& env) const;
  Val apply_bv(std::string const& op, SExpr const& e, Env& env) const;
  Val apply_indexed(SExpr const& e, Env& env) const;

  std::vector<Constant> constants_;
  std::map<std::string, int> constant_index_;
  std::map<std::string, Macro> macros_;
  std::vector<SExpr> assertions_;
};

} // namespace fpsolve::reference
