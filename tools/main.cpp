// fpsolve: SMT-LIB QF_FP (arithmetic, conversions, comparisons under Boolean
// structure) solved by intervals, with every decision taken by the interval
// decision heuristic.
//
//   fpsolve [options] [FILE | -]
//
// Without FILE it reads standard input when that is not a terminal; '-'
// always means standard input; --demo solves the built-in showcase.  Every
// row of the options table is an option: --name=value or --name value, and
// --name / --no-name for flags; -T:SECONDS and --tlimit=MS are the time
// limits of z3 and cvc5.  Exit statuses are those of driver.h: 0 clean, 1 an
// input error was reported, 2 bad options, 3 a model failed the exact check,
// 4 the input file is missing or unreadable.
#include "smtlib/driver.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace fpsolve {
// The built-in showcase problem, tools/showcase.smt2 embedded at build time.
extern char const kShowcase[];
} // namespace fpsolve

namespace {

using fpsolve::ExitStatus;

void usage(std::ostream& out) {
  out << "usage: fpsolve [options] [FILE | -]\n"
         "  FILE            an SMT-LIB 2.6 script; '-' or no FILE (with standard input not a\n"
         "                  terminal) reads standard input, one command at a time\n"
         "  --demo          solve the built-in showcase problem, with statistics\n"
         "  --help, --version\n"
         "  -T:SECONDS, --tlimit=MS   time limit per check-sat, as in z3 and cvc5\n"
         "options (also (set-option :name value) in a script):\n";
  fpsolve::print_option_usage(out);
  out << "exit status: 0 clean run; 1 an input error was reported (the script went on);\n"
         "  2 bad options; 3 a model failed the exact check (a bug report on standard error);\n"
         "  4 the input file is missing or unreadable\n";
}

int bad_option(std::string const& why) {
  std::cerr << "fpsolve: " << why << "\nTry 'fpsolve --help'.\n";
  return fpsolve::kExitBadOptions;
}

// Sets the row `name` from `text` strictly; the reason on failure.
bool set_row(fpsolve::Options& o, std::string const& name, std::string const& text,
             std::string* why) {
  fpsolve::OptionInfo const* info = fpsolve::find_option(name);
  return info && fpsolve::set_option(o, *info, text, why);
}

} // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  fpsolve::DriverOptions opt;
  opt.version = FPSOLVE_VERSION;
  opt.channel_files = true;
  char const* file = nullptr;
  bool demo = false;
  for (int i = 1; i < argc; ++i) {
    std::string const a = argv[i];
    std::string why;
    if (a == "-" || a.empty() || a[0] != '-') {
      if (file) return bad_option("more than one input file");
      file = argv[i];
    } else if (a == "--help" || a == "-h") {
      usage(std::cout);
      return fpsolve::kExitClean;
    } else if (a == "--version") {
      std::cout << "fpsolve " << opt.version << "\n";
      return fpsolve::kExitClean;
    } else if (a == "--demo") {
      demo = true;
    } else if (a.rfind("-T:", 0) == 0) {
      if (!set_row(opt.search, "timeout", a.substr(3), &why)) return bad_option(why);
    } else if (a.rfind("--", 0) == 0) {
      std::size_t const eq = a.find('=');
      std::string name = a.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
      bool const has_value = eq != std::string::npos;
      std::string value = has_value ? a.substr(eq + 1) : "";
      bool const tlimit = name == "tlimit";
      fpsolve::OptionInfo const* info = fpsolve::find_option(tlimit ? "timeout" : name);
      if (!info && !has_value && name.rfind("no-", 0) == 0) {
        info = fpsolve::find_option(name.substr(3));
        if (!info || info->kind != fpsolve::OptionKind::flag)
          return bad_option("unknown option " + a);
        value = "false";
      } else if (!info) {
        return bad_option("unknown option " + a);
      } else if (!has_value && info->kind == fpsolve::OptionKind::flag) {
        value = "true";
      } else if (!has_value) {
        if (i + 1 >= argc) return bad_option("expected a value after " + a);
        value = argv[++i];
      }
      if (tlimit) {
        // Milliseconds, a whole number, as cvc5 takes them.
        std::uint64_t ms = 0;
        auto const [end, err] = std::from_chars(value.data(), value.data() + value.size(), ms);
        if (value.empty() || err != std::errc() || end != value.data() + value.size())
          return bad_option("--tlimit expects a whole number of milliseconds, not '" + value + "'");
        opt.search.timeout = static_cast<double>(ms) / 1000;
      } else if (!fpsolve::set_option(opt.search, *info, value, &why)) {
        return bad_option(why);
      }
    } else {
      return bad_option("unknown option " + a);
    }
  }
  if (demo) {
    if (file) return bad_option("--demo takes no input file");
    std::cout << "; fpsolve showcase (run 'fpsolve FILE' to solve an SMT-LIB script)\n";
    std::istringstream in(fpsolve::kShowcase);
    opt.search.stats = true;
    return fpsolve::run_script(in, std::cout, opt);
  }
  if (!file || std::strcmp(file, "-") == 0) {
    if (!file && isatty(STDIN_FILENO))
      return bad_option("no input; give a FILE, '-' for standard input, or --demo");
    return fpsolve::run_script(std::cin, std::cout, opt);
  }
  std::error_code ec;
  if (std::filesystem::is_directory(file, ec)) {
    std::cerr << "fpsolve: cannot read " << file << ": it is a directory\n";
    return fpsolve::kExitNoInput;
  }
  std::ifstream in(file);
  if (!in) {
    std::cerr << "fpsolve: cannot open " << file << ": " << std::strerror(errno) << "\n";
    return fpsolve::kExitNoInput;
  }
  int const status = fpsolve::run_script(in, std::cout, opt);
  if (in.bad()) {
    std::cerr << "fpsolve: error reading " << file << "\n";
    return fpsolve::kExitNoInput;
  }
  return status;
}
