// fpsolve: SMT-LIB QF_FP (arithmetic, conversions, comparisons under Boolean
// structure) solved by intervals, with every decision taken by the interval
// decision heuristic.
//
//   fpsolve [options] [FILE | -]
//
// Without FILE it solves the built-in showcase and prints the statistics.
// Exit status: 0, 1 for bad input (an SMT-LIB error line), 2 for bad
// options, 3 when a model fails the exact check before sat is printed (a
// bug report on standard error; sat is never printed then).
#include "smtlib/driver.h"

#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace fpsolve {
// The built-in showcase problem, tools/showcase.smt2 embedded at build time.
extern char const kShowcase[];
} // namespace fpsolve

namespace {

int usage(char const* why) {
  if (why) std::cerr << "fpsolve: " << why << "\n";
  std::cerr << "usage: fpsolve [--stats] [--trace] [--check] [--no-probe] [--max-decisions N] "
               "[--timeout SECONDS] [FILE | -]\n"
               "  FILE          an SMT-LIB 2.6 script; '-' reads standard input\n"
               "  (no FILE)     solve the built-in showcase problem, with statistics\n"
               "  --stats       decisions, backtracks, propagations, learning and time after each "
               "check-sat\n"
               "  --trace       search frames of the asserted terms at every backtrack\n"
               "  --check       cross-check the search state against the trail at every step\n"
               "  --no-probe    search without the model probe (the same search, sat found later)\n"
               "  --max-decisions N, --timeout SECONDS   answer unknown when exhausted\n"
               "exit status: 0; 1 bad input; 2 bad options; 3 a model failed the exact check\n";
  return why ? 2 : 0;
}

bool number(char const* s, double* out) {
  char* end = nullptr;
  *out = std::strtod(s, &end);
  return end && *end == 0 && end != s && *out >= 0;
}

} // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  fpsolve::DriverOptions opt;
  char const* file = nullptr;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    double n = 0;
    if (a == "--stats")
      opt.search.stats = true;
    else if (a == "--trace")
      opt.search.trace = true, opt.search.trace_out = &std::cout;
    else if (a == "--check")
      opt.search.check = true;
    else if (a == "--no-probe")
      opt.search.probe = false;
    else if (a == "--help" || a == "-h")
      return usage(nullptr);
    else if (a == "--max-decisions" || a == "--timeout") {
      if (i + 1 >= argc || !number(argv[i + 1], &n))
        return usage(("expected a number after " + a).c_str());
      ++i;
      if (a == "--timeout")
        opt.search.timeout = n;
      else
        opt.search.max_decisions = static_cast<std::uint64_t>(n);
    } else if (a.size() > 1 && a[0] == '-')
      return usage(("unknown option " + a).c_str());
    else if (file)
      return usage("more than one input file");
    else
      file = argv[i];
  }
  if (!file) {
    std::cout << "; fpsolve showcase (run 'fpsolve FILE' to solve an SMT-LIB script)\n";
    std::istringstream in(fpsolve::kShowcase);
    opt.search.stats = true;
    return fpsolve::run_script(in, std::cout, opt);
  }
  if (std::strcmp(file, "-") == 0) return fpsolve::run_script(std::cin, std::cout, opt);
  std::ifstream in(file);
  if (!in) {
    std::cout << "(error \"cannot open " << file << "\")\n";
    return 1;
  }
  return fpsolve::run_script(in, std::cout, opt);
}
