// The elaborator's name table against a map rebuilt at every level: random
// bindings over a small alphabet (so that probe runs collide, wrap around
// the array and cross growth), a few long names, and nested marks, checked
// after every pop.
#include "smtlib/names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace fpsolve {
namespace {

void expect_same(NameTable const& t, std::map<std::string, std::uint32_t> const& bound,
                 std::set<std::string> const& tried) {
  ASSERT_EQ(t.size(), bound.size());
  for (std::string const& n : tried) {
    std::uint32_t v = 0;
    auto it = bound.find(n);
    ASSERT_EQ(t.find(n, &v), it != bound.end()) << n;
    if (it != bound.end()) {
      EXPECT_EQ(v, it->second) << n;
    }
  }
}

TEST(NameTable, MarksRestoreExactlyTheNamesBoundBefore) {
  std::mt19937 g(7);
  NameTable t;
  std::vector<std::map<std::string, std::uint32_t>> levels(1);
  std::set<std::string> tried;
  for (int step = 0; step < 20000; ++step) {
    int const r = static_cast<int>(g() % 100);
    if (r < 3) {
      t.push_mark();
      levels.push_back(levels.back());
    } else if (r < 6 && t.marks() > 0) {
      t.pop_mark();
      levels.pop_back();
      expect_same(t, levels.back(), tried);
    } else {
      std::string n(g() % 4, 'a'); // the empty name is a name too
      for (char& c : n)
        c = static_cast<char>('a' + g() % 12);
      if (g() % 64 == 0) n += std::string(300, 'z'); // a length of four bytes
      tried.insert(n);
      if (levels.back().count(n)) continue;
      auto const v = static_cast<std::uint32_t>(step);
      t.insert(n, v);
      levels.back()[n] = v;
    }
  }
  while (t.marks() > 0) {
    t.pop_mark();
    levels.pop_back();
    expect_same(t, levels.back(), tried);
  }
}

} // namespace
} // namespace fpsolve
