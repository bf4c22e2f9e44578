// The problem as the solver sees it: variables, floating-point operands,
// Boolean nodes and the asserted roots.  It knows nothing of any input
// language: a front end (the SMT-LIB elaboration) builds it through the add_*
// members, which keep the indices consistent.
//
// Every floating-point term is an Operand: a constant, or a variable seen
// through at most one fp.abs and one fp.neg (in that order), so fp.neg and
// fp.abs never create search terms of their own.  Every other operation
// (arithmetic, conversion, ite over floating point) is a Def: its result is
// a variable of its own (`Var::def`), so every term has its own interval in
// the search.  Defs only refer to operands built before them, so the order of
// `defs` is a topological order.
//
// A rounding mode is an operand of the format (2, 2) whose value is the
// positive value of rank 0..4 (the mode's number, rm_nearest_even first):
// constants are such values, a rounding-mode variable is a variable of that
// format that the search keeps within those five ranks.  Boolean
// structure and atoms are Nodes; chains (fp.leq a b c), n-ary = and distinct
// are expanded into binary atoms under `and` when they are built.
//
// A bit-vector of width n is an operand of the format (2, n + 1) whose
// value is the non-negative value of rank 0 .. 2^n - 1: its rank, which for
// a non-negative value is its bit pattern, is the unsigned value of the
// bit-vector.  So the trail, the splits (the mid rank is the unsigned
// mid-point), the bound literals and the learning carry bit-vectors without
// a line of their own; `Var::bv` and `Operand::bv` tell them apart from
// floats of the same format, and the search keeps a bit-vector variable
// within its 2^n ranks (no NaN, no rank above 2^n - 1).
//
// Reals (QF_LRA and its float combinations) are exact rationals and live
// beside the floats: a RealTerm is a real variable, fp.to_real of a float
// operand, an ite of two real terms, or a linear form (a constant plus a sum
// of coefficient times term) over the others.  A real comparison is a
// RealAtom "term < 0" or "term <= 0" stood for by a Boolean variable of its
// own (read by a `bvar` node), so the float search decides it like any
// Boolean; to_fp of a real term is a RealRound, whose result is a float
// variable of its own that the search splits like an input.  Neither the
// atom's variable nor the round's result is tied to its meaning by the
// float engine: the real reasoning (engine/lra_bridge.h) and the exact
// check (engine/real_terms.h) are what tie them.
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

#include "engine/int_list.h"

#include "host/ieee_float.h"
#include "host/terms.h"

#include <array>
#include <cassert>
#include <cstdint>
#include <gmpxx.h>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace fpsolve {

using qorv::IEEEFloat;

// A format in half the room of IEEEFloat::format, read as one: widths of
// formats and bit-vectors fit 32 bits.
struct VarFormat {
  std::uint32_t eb = 2, sb = 2;
  VarFormat() = default;
  VarFormat(IEEEFloat::format const& f) // NOLINT: read and written as a format
      : eb(static_cast<std::uint32_t>(f.eb)), sb(static_cast<std::uint32_t>(f.sb)) {
    if (f.eb > UINT32_MAX || f.sb > UINT32_MAX) throw std::length_error("format too wide");
  }
  operator IEEEFloat::format() const { return {eb, sb}; } // NOLINT
};

// The name is kept once, by the variable's term: on long problems a copy
// per variable was a tenth of the memory.  Fields are ordered by size, so
// that a Var takes 32 bytes.
struct Var {
  VarFormat fmt; // (2, 2) for Booleans and rounding modes
  qorv::Term const* term = nullptr;
  std::uint32_t bv = 0;     // a bit-vector's width (format (2, bv + 1)), else 0
  int def = -1;             // the Def whose result this is, or -1 for an input variable
  int real = -1;            // a declared real: its RealTerm (the variable itself is unused)
  std::uint16_t fmt_id = 0; // fmt's index in Problem::formats (set by add_var)
  bool is_bool = false;
  bool is_rm = false; // a rounding-mode variable
  std::string const& name() const { return term->name(); }
};

// A view of a variable or a constant.  The format and the constant's value
// live in the problem's tables (Problem::format_of, Problem::constant_of):
// formats are few and constants rare, and there are two operands per term
// on long problems, so an operand is 20 bytes, not the 64 a format and a
// value of its own took.
struct Operand {
  int var = -1;          // variable index, or -1 for a constant
  int constant = -1;     // constants only: the index in Problem::constants
  std::uint32_t bv = 0;  // a bit-vector's width, else 0 (never with abs or neg)
  std::uint16_t fmt = 0; // the index in Problem::formats (set by the problem)
  bool abs = false;      // value = neg ? -|x| : |x| when abs, else neg ? -x : x
  bool neg = false;
  bool is_rm = false; // a rounding mode (format (2, 2), ranks 0..4)
};

// The format that carries bit-vectors of width n, and the width back.
inline IEEEFloat::format bv_format(std::uint32_t n) {
  return {2, std::uint64_t{n} + 1};
}
inline std::uint32_t bv_width(IEEEFloat::format f) {
  return static_cast<std::uint32_t>(f.sb - 1);
}

// Operations whose result is a term of its own.  The SMT-LIB semantics hold
// (host/fp_arith.h, host/fp_convert.h); min and max of +0 and -0 are a choice
// of the solver's that is the same for the same operand values.
enum class FpOp : std::uint8_t {
  add,
  sub,
  mul,
  div,
  fma,
  sqrt,
  rem,
  round_to_integral,
  min,
  max,
  convert, // to_fp of a floating-point term, to the result's format
  ite,     // cond ? args[0] : args[1]
  // Bit-vector operations (engine/bv_ops.h): operands and result are
  // bit-vectors, the widths those of their formats.
  bv_not,
  bv_and,
  bv_or,
  bv_xor,
  bv_neg,
  bv_add,
  bv_sub,
  bv_mul,
  bv_udiv, // x / 0 is all ones
  bv_urem, // x % 0 is x
  bv_sdiv,
  bv_srem,
  bv_smod,
  bv_shl,
  bv_lshr,
  bv_ashr,
  bv_concat,
  bv_trunc, // the low bits of args[0], as many as the result has
  bv_sext,  // sign extension to the result's width
  // Conversions between the theories.
  fp_of_bits, // to_fp of a bit pattern of the result's width
  fp_of_ubv,  // to_fp_unsigned under a rounding mode
  fp_of_sbv,  // to_fp of a two's complement bit-vector under a rounding mode
  ubv_of_fp,  // fp.to_ubv: unspecified for NaN, infinities and out of range
  sbv_of_fp   // fp.to_sbv: the same
};

// The bit-vector operations and the conversions (engine/bv_ops.h).
inline bool bv_family(FpOp op) {
  return op >= FpOp::bv_not;
}
// Operations whose result is a bit-vector, and those with bit-vector operands.
inline bool bv_result(FpOp op) {
  return (op >= FpOp::bv_not && op <= FpOp::bv_sext) || op == FpOp::ubv_of_fp ||
         op == FpOp::sbv_of_fp;
}
inline bool bv_operands(FpOp op) {
  return op >= FpOp::bv_not && op <= FpOp::sbv_of_fp && op != FpOp::ubv_of_fp &&
         op != FpOp::sbv_of_fp;
}

struct Def {
  FpOp op = FpOp::add;
  int rm = -1;   // the rounding-mode operand, or -1 for operations without one
  IntList args;  // one to three operands
  int cond = -1; // ite only: the Boolean node
  int var = -1;  // the variable holding the result
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
  int a = -1;   // first operand of an atom, or the variable of a bvar
  int b = -1;   // second operand of a binary atom
  IntList kids; // none for the atoms
};

enum class RealOp : std::uint8_t {
  var,     // an input, or the hidden value of fp.to_real at NaN or an infinity
  linear,  // constant + sum of coefficient * term
  to_real, // fp.to_real of `operand`
  ite      // cond ? a : b
};

struct RealTerm {
  RealOp op = RealOp::var;
  std::string name;                           // var only
  mpq_class constant;                         // linear only
  std::vector<std::pair<int, mpq_class>> sum; // linear only: non-zero coefficients, no linear term
  int operand = -1;                           // to_real only
  int special[3] = {-1, -1, -1};              // to_real only: its value at NaN, +oo, -oo
  int cond = -1, a = -1, b = -1;              // ite only
};

// var is true exactly when the value of `term` is < 0 (strict) or <= 0.
struct RealAtom {
  int var = -1;
  int term = -1;
  bool strict = false;
};

// var = to_fp of the real term `real` under the rounding-mode operand rm.
struct RealRound {
  int var = -1;
  int rm = -1;
  int real = -1;
};

class Problem {
public:
  Problem();
  // The Def index refers back to the problem: it stays where it was built.
  Problem(Problem const&) = delete;
  Problem& operator=(Problem const&) = delete;

  // A new variable with its own term of the term manager; Booleans get the
  // format (2, 2) whatever `fmt` says.  Returns its index.
  int add_var(std::string const& name, bool is_bool, IEEEFloat::format fmt);
  // A bit-vector variable of width n >= 1; returns the operand viewing it.
  int add_bv_var(std::string const& name, std::uint32_t n);
  // The bit-vector constant `value` (0 <= value < 2^n) of width n as an
  // operand (the same index for the same width and value).
  int add_bv_constant(mpz_class const& value, std::uint32_t n);
  // A constant operand; a NaN is stored as the quiet NaN.  Returns its index
  // (the same index for the same value).
  int add_constant(IEEEFloat const& v);
  // An operand viewing a variable (o.var >= 0), of the variable's format.
  // Returns its index.
  int add_operand(Operand const& o);
  int add_node(Op op, int a = -1, int b = -1, std::vector<int> kids = {});
  // A rounding-mode variable (a variable of format (2, 2)); returns the
  // operand viewing it.
  int add_rm_var(std::string const& name);
  // The rounding-mode constant rm as an operand.
  int add_rm_constant(IEEEFloat::rounding_mode rm);
  // A term of its own for d (d.var is set here) with result format fmt;
  // returns the operand viewing its result variable.  The same operation on
  // the same operands returns the operand of the first one.
  // A bit-vector result has format bv_format(bv) (fmt is then ignored).
  int add_def(Def d, IEEEFloat::format fmt, std::uint32_t bv = 0);
  // Reals: a real variable (its declared Var's `real`), a linear form
  // (folded: a sum whose only term has coefficient 1 and no constant is that
  // term), fp.to_real of an operand, an ite; returns the RealTerm's index.
  int add_real_var(std::string const& name);
  int add_linear(mpq_class const& constant, std::vector<std::pair<int, mpq_class>> const& sum);
  int add_to_real(int operand);
  int add_real_ite(int cond, int a, int b);
  // The Boolean node of "term < 0" (strict) or "term <= 0"; a constant term
  // gives true or false.
  int add_real_atom(int term, bool strict);
  // The operand of to_fp of a real term in format fmt under rm.
  int add_real_round(int rm, int real, IEEEFloat::format fmt);
  // Real constraints exist: an atom over reals or a rounding of one (real
  // terms alone, such as the literal of a folded to_fp, constrain nothing).
  bool has_reals() const { return !real_atoms.empty() || !real_rounds.empty(); }
  int true_node() const { return true_; }
  int false_node() const { return false_; }
  // An operand's format, and a constant operand's value.
  IEEEFloat::format const& format_of(int operand) const {
    return formats[operands[static_cast<std::size_t>(operand)].fmt];
  }
  IEEEFloat const& constant_of(int operand) const {
    Operand const& o = operands[static_cast<std::size_t>(operand)];
    assert(o.var < 0 && "only a constant operand has a value of its own");
    return constants[static_cast<std::size_t>(o.constant)];
  }

  qorv::TermManager tm;
  std::vector<Var> vars;
  std::vector<Operand> operands;
  std::vector<IEEEFloat::format> formats; // each format once, by first use
  std::vector<IEEEFloat> constants;       // the constant operands' values
  std::vector<Node> nodes;
  std::vector<Def> defs;
  std::vector<int> assertions; // root nodes
  std::vector<int> declared;   // variables in scope, in declaration order
  std::vector<RealTerm> reals;
  std::vector<RealAtom> real_atoms;
  std::vector<RealRound> real_rounds;

private:
  // What makes two Defs the same term: the operation, its operands and the
  // result format.  Hashed, so building a problem of n Defs takes time
  // proportional to their size.  The index holds the operand viewing each
  // Def's result and reads the key off the Def itself, so it keeps no copy
  // of the operands; a new Def is looked up by a key that points at its
  // operands.  Open addressing over a power-of-two array of operands (-1
  // for an empty slot) at most half full: two to four ints per Def, where a
  // node-based set took a heap block and a bucket per Def.
  struct DefKey {
    FpOp op;
    int rm;
    IntList const* args;
    int cond;
    std::uint64_t eb, sb;
    bool operator==(DefKey const& o) const {
      return op == o.op && rm == o.rm && *args == *o.args && cond == o.cond && eb == o.eb &&
             sb == o.sb;
    }
  };
  DefKey key_of_result(int operand) const;
  static std::uint64_t hash(DefKey const& k);
  // The slot of k's Def in def_index_, or the empty slot where it belongs.
  std::size_t def_slot(DefKey const& k) const;
  // The index of f in `formats`, added when new.
  std::uint16_t format_id(IEEEFloat::format const& f);
  int true_ = -1, false_ = -1;
  std::vector<int> def_index_;
  std::unordered_map<std::string, int>
      constant_index_; // constants by their bits, so equal ones share
  int rm_constant_[5] = {-1, -1, -1, -1, -1};
  // Reals are shared like Defs: the same form, atom or round gives the same index.
  std::unordered_map<std::string, int> real_index_;
  // fp.to_real's hidden values at NaN, +oo and -oo, one triple per format.
  std::unordered_map<std::string, std::array<int, 3>> special_index_;
};

// The quiet NaN when v is a NaN, v otherwise: the one NaN of the problem.
IEEEFloat canonical(IEEEFloat const& v);

// A rounding mode as the value of format (2, 2) that stands for it, and back
// (the value must be one of the five).
IEEEFloat rm_value(IEEEFloat::rounding_mode rm);
IEEEFloat::rounding_mode rm_of_value(IEEEFloat const& v);

} // namespace fpsolve
