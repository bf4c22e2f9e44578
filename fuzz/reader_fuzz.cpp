// Fuzzing fpsolve with arbitrary text: the SMT-LIB reader, elaboration and
// the search behind it must answer every input with output or an error line,
// never crash, leak or hang.  The search runs with its cross-checks on and a
// small decision budget, so a slow input is one that the reader or the
// elaboration makes slow, which is what the fuzzer's time limit catches.
#include "smtlib/driver.h"

#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<char const*>(data), size));
  std::ostringstream out;
  fpsolve::DriverOptions options;
  options.search.max_decisions = 200;
  options.search.check = true;
  options.script_sets_limits = false; // a script cannot lift the budget
  int const status = fpsolve::run_script(in, out, options);
  if (status != 0 && status != 1) __builtin_trap();
  return 0;
}
