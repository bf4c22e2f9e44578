// fpsolve::api::Solver: the QF_FP solver embedded in a program, without
// SMT-LIB scripts or a process per problem.
//
// A Solver holds one problem: constants of sort Bool, RoundingMode and
// (_ FloatingPoint eb sb), and assertions written as SMT-LIB terms over them.
// check() answers sat, unsat or unknown exactly as the fpsolve command would
// for the same declarations and assertions; every sat comes with a model that
// the exact arithmetic has confirmed (a model that fails the check is a bug,
// reported as std::logic_error, never returned).  The model stays readable
// until the problem next changes (a declaration, assertion, push or pop).
//
// Errors in the input (an unknown name, a term of the wrong sort, text that is
// not one term, a redeclared name, an invalid format, an unknown option or a
// bad option value) throw std::invalid_argument; for terms the message is
// "line L column C: ..." within the given text.  A failed call declares
// and asserts nothing.  Reading a model when there is none throws
// std::logic_error.
//
// Only host/ieee_float.h is named here: the engine and the SMT-LIB front end
// stay behind the pointer.  A Solver is used from one thread at a time, and
// two Solvers of one process must not run at the same time (the library's
// process-wide state, see the README).
#pragma once

#include "../../host/ieee_float.h"

#include <memory>
#include <string>
#include <string_view>

namespace fpsolve::api {

enum class Answer { sat, unsat, unknown };

class Solver {
public:
  Solver();
  ~Solver();
  Solver(Solver&&) noexcept;
  Solver& operator=(Solver&&) noexcept;
  Solver(Solver const&) = delete;
  Solver& operator=(Solver const&) = delete;

  // Declares a constant in the current scope.  `name` is an SMT-LIB symbol
  // (simple, or quoted with |...|).
  void declare_bool(std::string_view name);
  void declare_rounding_mode(std::string_view name);
  void declare_fp(std::string_view name, qorv::IEEEFloat::format f);

  // Asserts one SMT-LIB term of sort Bool, e.g. "(fp.lt x (fp.add RNE y z))".
  void assert_formula(std::string_view term);

  // Opens a scope; pop() drops the declarations and assertions made since
  // the matching push (std::logic_error when no scope is open).
  void push();
  void pop();

  // One of fpsolve's options by its command-line name ("max-decisions",
  // "timeout", "probe", ...), the value as text ("100", "2.5", "false").
  // The search's rows act as in the command; the reporting rows (stats,
  // trace, the output channels) are accepted, and nothing is printed.
  void set_option(std::string_view name, std::string_view value);
  // The option's current value as SMT-LIB text.
  std::string get_option(std::string_view name) const;

  Answer check();
  // Why the last check() answered unknown ("timeout" or "resourceout");
  // empty after sat or unsat.
  std::string const& reason_unknown() const;

  // The model of the last check() that answered sat.  `term` is any term of
  // the right sort, usually a declared constant's name; its value is
  // computed exactly from the model.
  qorv::IEEEFloat fp_value(std::string_view term);
  bool bool_value(std::string_view term);
  qorv::IEEEFloat::rounding_mode rounding_mode_value(std::string_view term);
  // The value of a term of any sort as SMT-LIB text: true/false, RNE ... RTZ
  // or (fp #b. #b. #b.).
  std::string value_text(std::string_view term);
  // Every constant in scope as get-model prints it:
  // "(\n  (define-fun x () Sort value)\n...)\n".
  std::string model_text() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace fpsolve::api
