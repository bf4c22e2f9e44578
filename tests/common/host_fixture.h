// Shared pieces of the library tests: a host (terms, domain, trail) that
// checks at the end that every bound element went back to the domain, as a
// test fixture too, and short forms of the values the tests use.
#pragma once

#include "fp/interval_heuristics.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace qorv::fp::fixture {

using Format = IEEEFloat::format;
inline constexpr Format half{5, 11}, single{8, 24}, quad{15, 113};

inline IEEEFloat f32(double d) {
  return IEEEFloat::from_double(d, single);
}
inline std::string s32(double d) {
  return f32(d).to_str();
}

// A frame's limits as (position, text), front first.
using Seen = std::vector<std::pair<int, std::string>>;
inline Seen seen(FpIntervalSearchFrame const& f) {
  Seen out;
  for (auto const& [p, v] : f.limits)
    out.emplace_back(p, v.to_str());
  return out;
}

struct Host {
  TermManager tm;
  FpIntervalDomain domain;
  FpBoundsTrail trail{&tm};
  virtual ~Host() {
    trail.backtrack(0, &domain);
    EXPECT_EQ(domain.live_elements(), 0u);
  }
  Term const* var(Format f = single) {
    return tm.mk_var("v" + std::to_string(tm.term_count()), tm.fp_sort(f));
  }
  void assert_bound(Term const* t, bool flag, IEEEFloat const& v) {
    trail.assert_bound(domain.new_FpBoundElement(flag, t, v));
  }
};
struct HostTest : Host, ::testing::Test {};

} // namespace qorv::fp::fixture
