// The command loop: reads an SMT-LIB 2.6 script one command at a time and
// answers each on the regular output channel, as an interactive client on a
// pipe expects (every answer is flushed before the next command is read).
//
// Commands: set-logic, set-info, set-option, get-option, get-info,
// declare-const, declare-fun (no parameters), declare-sort, define-const,
// define-fun, define-sort, assert, push and pop (any number of levels),
// check-sat, check-sat-assuming, get-model, get-value, get-assignment,
// get-assertions, get-unsat-core, get-unsat-assumptions, echo, reset,
// reset-assertions and exit.  Unknown options and info keys are answered
// `unsupported`; with :print-success every other command that has no answer
// of its own is answered `success`.
//
// Errors continue: a malformed or failing command is answered
// `(error "line L column C: ...")` and the next command runs
// (:error-behavior continued-execution).  A command that cannot run in the
// current state (get-model after unsat or unknown, get-unsat-core without
// :produce-unsat-cores, ...) is such an error.  A failed command changes
// nothing the script can see.
//
// An unsat core is a subset of the named assertions that is unsat together
// with the unnamed ones (and the assumptions of check-sat-assuming): it is
// computed when asked, by deleting one named assertion at a time and
// re-solving; an assertion is dropped only when the rest is proven unsat, so
// a re-solve that ends unknown keeps it.  get-unsat-assumptions shrinks the
// assumptions the same way with every assertion kept.
#pragma once

#include "engine/solve.h"

#include <istream>
#include <ostream>
#include <string>

namespace fpsolve {

struct DriverOptions {
  // The options at startup; (reset) returns to them.
  Options search;
  // Answered to (get-info :version).
  std::string version = "development";
  // The channel named "stderr" (the default diagnostic channel); nullptr
  // means std::cerr.  The channel named "stdout" is run_script's `out`.
  std::ostream* diagnostic = nullptr;
  // Whether :regular-output-channel and :diagnostic-output-channel may name
  // files.  Off unless the embedding asks, so that a script run by a test or
  // a fuzzer never creates files.
  bool channel_files = false;
  // Whether set-option may change the solver's own rows of the options
  // table (max-decisions and every row after it: limits, reporting, the
  // search's switches and tuning).  An embedding that must bound the work a
  // script can ask for (the fuzzer) turns it off; the standard options stay
  // settable.
  bool script_sets_limits = true;
};

// The exit statuses of fpsolve; run_script returns all but kExitNoInput.
enum ExitStatus : int {
  kExitClean = 0,      // every command ran
  kExitInputError = 1, // at least one command was answered with an error
  kExitBadOptions = 2, // the command line, or an output channel it names, is unusable
  kExitModelBug = 3,   // a model failed the exact check (a bug report on standard error)
  kExitNoInput = 4,    // the input file is missing or unreadable
};

int run_script(std::istream& in, std::ostream& out, DriverOptions const& options);

} // namespace fpsolve
