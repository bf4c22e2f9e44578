// Elaboration: SMT-LIB commands and terms turned into a Problem.
//
// Arithmetic, conversions of terms and ite over floating point become Defs
// (terms of their own); operations on constants only are folded to
// constants, except where the result is unspecified.  define-fun with
// parameters is a macro: an application elaborates the body with the
// parameters bound to the arguments and nothing else of the caller's local
// names in sight, once for equal arguments (elaborate_apply.cpp).  let binds in parallel; (! t
// :named n) binds n like a definition. The elaborator owns the name scopes (declarations,
// definitions, defined sorts) and builds the problem only through its add_* members, so the problem
// never sees an S-expression.  Chains (fp.leq a b c), n-ary = and distinct are expanded into binary
// atoms under `and`; fp.neg and fp.abs of a variable become views of it, of a constant a folded
// constant.
//
// Errors are SmtError with the position of the offending expression; an
// error leaves the problem and the scopes usable (a failed command adds no
// binding, though nodes it built stay unreferenced).  push and pop undo
// declarations and assertions.
#pragma once

#include "smtlib/names.h"
#include "smtlib/reader.h"

#include "engine/problem.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace fpsolve {

// A numeral index (at most nine digits), else an error at it naming `what`.
std::uint64_t numeral_of(SExpr const& e, char const* what);
// Bit-vector widths run from 1 to kMaxBvWidth (a width n is carried by the
// format (2, n + 1), problem.h).
inline constexpr std::uint32_t kMaxBvWidth = 1u << 16;
std::uint32_t bv_width_of(SExpr const& e);

struct FpOperator;   // a row of the operator table (elaborate.cpp)
struct BvOperator;   // a row of the bit-vector operator table (elaborate_bv.cpp)
struct RealOperator; // a row of the real operator table (elaborate_real.cpp)

// What a name or a term elaborates to: a Boolean node, an operand or a real
// term.
struct Value {
  bool is_bool = true;
  int index = -1;       // a node for Booleans, a real term for reals, an operand otherwise
  bool is_rm = false;   // a rounding-mode operand
  bool is_real = false; // a real term (problem.h: RealTerm)
};

class Elaborator {
public:
  explicit Elaborator(Problem& problem) : p_(problem) {}

  // Commands that add to the problem.  `where` positions the errors.
  void declare(std::string const& name, SExpr const& sort, SExpr const& where);
  void define(std::string const& name, SExpr const& sort, SExpr const& body, SExpr const& where);
  // define-fun with a (possibly empty) parameter list.
  void define_fun(std::string const& name, SExpr const& params, SExpr const& sort,
                  SExpr const& body, SExpr const& where);
  void define_sort(std::string const& name, SExpr const& sort, SExpr const& where);
  // An uninterpreted sort: its declaration alone asserts nothing, so it is
  // accepted; a use of it is outside QF_FP and an error there.
  void declare_sort(std::string const& name, SExpr const& where);
  void assert_formula(SExpr const& e);
  void push(std::size_t n);
  void pop(std::size_t n, SExpr const& where);
  // Gives back the spare room the scope grew by doubling.
  void shrink_to_fit() { names_.shrink_to_fit(); }

  // A term of the fragment (Boolean or floating point).
  Value elaborate(SExpr const& e);
  std::string sort_text(Value v) const;

private:
  struct Sort {
    bool is_bool = false;
    bool is_rm = false;
    IEEEFloat::format fmt;
    std::uint32_t bv = 0; // (_ BitVec bv), with fmt bv_format(bv)
    bool is_real = false;
  };
  struct ArgumentsHash {
    std::size_t operator()(std::vector<int> const& k) const;
  };
  struct Macro {
    std::vector<std::pair<std::string, Sort>> params;
    Sort result;
    SExpr body;
    // The body names no term, so equal applications may share one value.
    bool shared = true;
    // Caches of what the body elaborates to (elaborate_apply.cpp): the value
    // of each application by its arguments' indices, and the placeholder
    // standing for any application while a definition is checked.
    mutable std::unordered_map<std::vector<int>, Value, ArgumentsHash> applications;
    mutable Value stand_in;
  };
  struct Binding {
    bool is_sort = false;
    bool uninterpreted = false;         // declared sorts
    Sort sort;                          // sorts
    Value value;                        // constants and definitions
    std::shared_ptr<Macro const> macro; // definitions with parameters
  };
  struct Local {
    std::string name;
    Value value;
    int shadowed; // the entry of the same name this one hides, or -1
  };
  struct Frame; // a term in elaborate_iteratively
  class LocalsGuard;
  struct Scope {
    std::size_t assertions;
    std::size_t declared;
    std::size_t rich; // rich_.size() when the level opened
  };

  Sort parse_sort(SExpr const& e) const;
  void bind(std::string const& name, Binding b, SExpr const& where);
  std::optional<Binding> lookup(std::string const& name) const;
  int bool_of(SExpr const& e);
  int fp_of(SExpr const& e);
  int fp_literal(SExpr const& e);
  int rm_of(SExpr const& e);
  Sort sort_of(Value v) const;
  bool has_sort(Value v, Sort const& s) const;
  // Argument i of e must have the sort of `first`, else an error at it.
  void check_argument_sort(SExpr const& e, std::size_t i, Value v, Value first) const;
  // e's arguments from `first` on, floating-point terms of one format.
  std::vector<int> fp_operands(SExpr const& e, std::size_t first);
  Value fp_operation(SExpr const& e, FpOperator const& o);
  Value apply_macro(Macro const& m, SExpr const& e);
  // A variable of sort s that occurs in no assertion.
  Value placeholder(std::string const& name, Sort const& s);
  // The value an application of m to `arguments` is known to have without
  // elaborating the body, else nullptr; remember records it.
  Value const* known_application(Macro const& m, std::vector<int> const& arguments);
  void remember(Macro const& m, std::vector<int> arguments, Value v);
  // Argument i of a macro application, checked against the parameter's sort.
  Value macro_argument(Macro const& m, SExpr const& e, std::size_t i, Value v) const;
  Value let(SExpr const& e);
  // A let binding checked to be (name term).
  static SExpr const& let_binding(SExpr const& b);
  // Binds the names of let e to the values of its bound terms.
  void bind_let(SExpr const& e, std::vector<Value> const& bound);
  Value to_fp(SExpr const& e, IEEEFloat::format f, bool is_unsigned);
  // Bit-vector terms and the conversions from and to them (elaborate_bv.cpp).
  // bv_term elaborates e into *out when e's operator is of the bit-vector
  // family (a bit-vector operator, comparison, indexed operator or (_ bvN
  // n)), and returns false otherwise.
  bool bv_term(SExpr const& e, Value* out);
  Value bv_operation(SExpr const& e, BvOperator const& o);
  Value bv_indexed(SExpr const& e);
  // A bit-vector term's operand; its width in *width.
  int bv_of(SExpr const& e, std::uint32_t* width = nullptr);
  // The Def of op on args with a result of width n (a float of format f
  // when n is 0), folded when every argument is a constant and the result
  // specified.
  int bv_def(FpOp op, std::vector<int> args, std::uint32_t n, int rm = -1,
             IEEEFloat::format f = {2, 2});
  int bv_constant(SExpr const& e); // #b..., #x... and (_ bvN n)
  int bv_extract(int x, std::uint32_t hi, std::uint32_t lo);
  // (fp s e m) over bit-vector terms; to_fp of a bit-vector term.
  int fp_of_bv_terms(SExpr const& e);
  Value to_fp_of_bv(SExpr const& e, int rm, int x, IEEEFloat::format f, bool is_unsigned);
  // Real terms (elaborate_real.cpp): real_term elaborates e into *out when
  // e's operator is one of the real table (arithmetic, comparisons,
  // fp.to_real) and returns false otherwise; integer operators are errors.
  bool real_term(SExpr const& e, Value* out);
  Value real_operation(SExpr const& e, RealOperator const& o);
  // A real term's index, else an error at e naming its sort.
  int real_arg(SExpr const& e);
  // The Boolean node of a = b, or of a != b, over real terms.
  int real_equal(int a, int b);
  // A declared real (a placeholder variable that records its term).
  Value real_var(std::string const& name);
  // to_fp of a real term under rm: folded for constants.
  Value to_fp_of_real(SExpr const& e, int rm, int x, IEEEFloat::format f);
  // The iterative elaboration's view of a real term: true when every
  // argument items[1..] is a term to elaborate first.
  bool real_frame(SExpr const& e) const;
  // The iterative elaboration's view of a bit-vector term: true when every
  // argument items[1..] is a term to elaborate first.
  bool bv_frame(SExpr const& e) const;
  int indexed_fp(SExpr const& e);
  Value elaborate_list(SExpr const& e);
  Value elaborate_atom(SExpr const& e);
  Value elaborate_iteratively(SExpr const& root);
  // The frame's next argument still to elaborate, or nullptr when they are
  // all done; may bind the names of a let or the parameters of a macro.
  SExpr const* next_argument(Frame& f);
  Value finish(Frame& f);
  Frame frame_of(SExpr const& e) const;
  // let and parameters: innermost_ finds the newest entry of a name, which
  // is in sight when it is at or above visible_from_ (a macro body sees only
  // its parameters).
  void push_local(std::string const& name, Value v);
  void pop_locals(std::size_t size);
  Value const* find_local(std::string const& name) const;

  Problem& p_;
  // The global scope.  A name bound to a value (declared constants,
  // define-const, named terms) holds the value packed in its 32 bits: its
  // kind in the top three, its index below.  The rare rest (sorts,
  // definitions with parameters) lie in rich_, in binding order, the name
  // holding the position.
  NameTable names_;
  std::vector<Binding> rich_;
  std::vector<Scope> scopes_;
  std::vector<Local> locals_; // let and parameters, innermost last
  std::unordered_map<std::string, int> innermost_;
  std::size_t visible_from_ = 0;
  // Values of arguments already elaborated by elaborate_iteratively, taken
  // (and removed) by elaborate() when the operator's own code asks for them.
  std::unordered_map<SExpr const*, Value> ready_;
  int depth_ = 0; // list terms elaborated by recursion since the last explicit stack
  // A definition's body is being checked: an application of a shared macro
  // stands for its placeholder.
  bool checking_ = false;
};

// Restores the local names, and which of them are in sight, on every exit
// from a let or a macro body, errors included.
class Elaborator::LocalsGuard {
public:
  explicit LocalsGuard(Elaborator& el)
      : el_(el), size_(el.locals_.size()), visible_from_(el.visible_from_) {}
  LocalsGuard(LocalsGuard const&) = delete;
  LocalsGuard& operator=(LocalsGuard const&) = delete;
  ~LocalsGuard() {
    el_.pop_locals(size_);
    el_.visible_from_ = visible_from_;
  }

private:
  Elaborator& el_;
  std::size_t size_;
  std::size_t visible_from_;
};

} // namespace fpsolve
