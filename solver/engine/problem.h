// The problem as the solver sees it: variables, floating-point operands,
// Boolean nodes and the asserted roots.  It knows nothing of any input
// language: a front end (the SMT-LIB elaboration) builds it through the add_*
// members, which keep the indices consistent.
//
// Every floating-point term of the fragment is an Operand: a constant, or a
// variable seen through at most one fp.abs and one fp.neg (in that order), so
// fp.neg and fp.abs never create search terms of their own.  Boolean
// structure and atoms are Nodes; chains (fp.leq a b c), n-ary = and distinct
// are expanded into binary atoms under `and` when they are built.
//
// SMT-LIB has a single NaN, so every NaN constant is stored with the quiet
// NaN pattern (IEEEFloat::self_nan); the search keeps the same convention.
//
// Each variable owns a Term of the term manager: a floating-point variable
// has its own sort; a Boolean variable has the smallest sort (2, 2) and is
// true exactly when that term is not NaN, so the decision heuristic decides
// Booleans through its "is it NaN?" question like any other term.
//
// Indices are stable: nothing is ever removed except by truncating
// `assertions` and `declared` (a front end's pop), which leaves every other
// index valid.
#pragma once

#include "host/ieee_float.h"
#include "host/terms.h"

#include <cstdint>
#include <string>
#include <vector>

namespace fpsolve {

using qorv::IEEEFloat;

struct Var {
  std::string name;
  bool is_bool = false;
  IEEEFloat::format fmt{2, 2}; // (2, 2) for Booleans
  qorv::Term const* term = nullptr;
};

struct Operand {
  int var = -1;     // variable index, or -1 for a constant
  bool abs = false; // value = neg ? -|x| : |x| when abs, else neg ? -x : x
  bool neg = false;
  IEEEFloat constant; // constants only; NaN is always the quiet NaN
  IEEEFloat::format fmt;
};

enum class Op : std::uint8_t {
  t,
  f,
  bvar,
  not_,
  and_,
  or_,
  xor_,
  ite,
  iff, // Boolean structure
  leq,
  lt,
  fp_eq,
  ident, // binary atoms on operands a, b
  is_nan,
  is_inf,
  is_zero,
  is_normal,
  is_subnormal,
  is_negative,
  is_positive // on a
};

struct Node {
  Op op = Op::t;
  int a = -1; // first operand of an atom, or the variable of a bvar
  int b = -1; // second operand of a binary atom
  std::vector<int> kids;
};

class Problem {
public:
  Problem();

  // A new variable with its own term of the term manager; Booleans get the
  // format (2, 2) whatever `fmt` says.  Returns its index.
  int add_var(std::string const& name, bool is_bool, IEEEFloat::format fmt);
  // A constant operand; a NaN is stored as the quiet NaN.  Returns its index.
  int add_constant(IEEEFloat const& v);
  // An operand viewing a variable (o.var >= 0).  Returns its index.
  int add_operand(Operand const& o);
  int add_node(Op op, int a = -1, int b = -1, std::vector<int> kids = {});
  int true_node() const { return true_; }
  int false_node() const { return false_; }

  qorv::TermManager tm;
  std::vector<Var> vars;
  std::vector<Operand> operands;
  std::vector<Node> nodes;
  std::vector<int> assertions; // root nodes
  std::vector<int> declared;   // variables in scope, in declaration order

private:
  int true_ = -1, false_ = -1;
};

// The quiet NaN when v is a NaN, v otherwise: the one NaN of the problem.
IEEEFloat canonical(IEEEFloat const& v);

} // namespace fpsolve
