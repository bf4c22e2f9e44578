// A script's declarations and assertions elaborated into a Problem, for the
// tests that drive the engine without the command driver: declare-const,
// declare-fun of a constant and assert are read; any other command is taken
// for an assertion, so a test script holds only those three.
#pragma once

#include "smtlib/elaborate.h"

#include <sstream>
#include <string>

namespace fpsolve::test {

inline void elaborate_script(Problem& p, std::string const& text) {
  Elaborator el(p);
  std::istringstream in(text);
  Reader reader(in);
  while (auto cmd = reader.next()) {
    auto const& it = cmd->items;
    if (it[0].is_symbol("declare-const"))
      el.declare(it[1].atom.text, it[2], it[1]);
    else if (it[0].is_symbol("declare-fun"))
      el.declare(it[1].atom.text, it[3], it[1]);
    else
      el.assert_formula(it[1]);
  }
}

} // namespace fpsolve::test
