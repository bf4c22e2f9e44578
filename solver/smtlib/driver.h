// The command loop: reads an SMT-LIB script one command at a time, answers
// check-sat, get-model and get-value, and stops at the first error with an
// SMT-LIB error line `(error "line L column C: ...")` and exit status 1.
#pragma once

#include "engine/solve.h"

#include <istream>
#include <ostream>

namespace fpsolve {

struct DriverOptions {
  Options search;
};

// The exit status: 0 after a clean run, 1 after an error.
int run_script(std::istream& in, std::ostream& out, DriverOptions const& options);

} // namespace fpsolve
