// The problem as the solver sees it: variables, floating-point operands,
// Boolean nodes and the asserted roots, built from S-expressions.
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
// Elaboration errors are SmtError with the position of the offending
// expression.  Names live in a scope stack so push/pop undo declarations.
#pragma once

#include "reader.h"

#include "host/ieee_float.h"
#include "host/terms.h"

#include <cstdint>
#include <gmpxx.h>
#include <map>
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
  int var = -1;       // variable index, or -1 for a constant
  bool abs = false;   // value = neg ? -|x| : |x| when abs, else neg ? -x : x
  bool neg = false;
  IEEEFloat constant; // constants only; NaN is always the quiet NaN
  IEEEFloat::format fmt;
};

enum class Op : std::uint8_t {
  t, f, bvar, not_, and_, or_, xor_, ite, iff,  // Boolean structure
  leq, lt, fp_eq, ident,                        // binary atoms on operands a, b
  is_nan, is_inf, is_zero, is_normal, is_subnormal, is_negative, is_positive // on a
};

struct Node {
  Op op = Op::t;
  int a = -1; // first operand of an atom, or the variable of a bvar
  int b = -1; // second operand of a binary atom
  std::vector<int> kids;
};

// What a name or a term elaborates to: a Boolean node or an operand.
struct Value {
  bool is_bool = true;
  int index = -1;
};

class Problem {
public:
  Problem();

  // Commands that add to the problem.  `where` positions the errors.
  void declare(std::string const& name, SExpr const& sort, SExpr const& where);
  void define(std::string const& name, SExpr const& sort, SExpr const& body, SExpr const& where);
  void define_sort(std::string const& name, SExpr const& sort, SExpr const& where);
  void assert_formula(SExpr const& e);
  void push(std::size_t n);
  void pop(std::size_t n, SExpr const& where);

  // A term of the fragment (Boolean or floating point).
  Value elaborate(SExpr const& e);
  std::string sort_text(Value v) const;

  qorv::TermManager tm;
  std::vector<Var> vars;
  std::vector<Operand> operands;
  std::vector<Node> nodes;
  std::vector<int> assertions;    // root nodes
  std::vector<int> declared;      // variables in scope, in declaration order

private:
  struct Sort {
    bool is_bool = false;
    bool is_rm = false;
    IEEEFloat::format fmt;
  };
  struct Binding {
    bool is_sort = false;
    Sort sort;   // sorts
    Value value; // constants and definitions
  };
  struct Scope {
    std::size_t assertions;
    std::size_t declared;
    std::vector<std::string> names;
  };

  Sort parse_sort(SExpr const& e) const;
  void bind(std::string const& name, Binding b, SExpr const& where);
  Binding const* lookup(std::string const& name) const;
  int node(Op op, int a = -1, int b = -1, std::vector<int> kids = {});
  int bool_of(SExpr const& e);
  int fp_of(SExpr const& e);
  int constant(IEEEFloat const& v);
  int fp_app(SExpr const& e, std::string const& head);
  int indexed_fp(SExpr const& e);
  Value elaborate_list(SExpr const& e);

  std::map<std::string, Binding> names_;
  std::vector<Scope> scopes_;
  int true_ = -1, false_ = -1;
};

// Literal conversions (literals.cpp).
// The value of (fp s e m) from the three bit strings.
IEEEFloat fp_from_bit_strings(std::string const& s, std::string const& e, std::string const& m, Pos where);
// A bit-vector literal (#b or #x digits) reinterpreted in format f.
IEEEFloat fp_from_bitvector(Token const& lit, IEEEFloat::format f);
// The exact rational q rounded to format f with rounding mode rm.
IEEEFloat fp_from_rational(mpq_class const& q, IEEEFloat::format f, IEEEFloat::rounding_mode rm, Pos where);
// The quiet NaN when v is a NaN, v otherwise.
IEEEFloat canonical(IEEEFloat const& v);
// The negation and absolute value of a constant (NaN stays the quiet NaN).
IEEEFloat flip_sign(IEEEFloat const& v, bool clear_only);

} // namespace fpsolve
