// The invariant reporter (see invariant.h): one line on standard error, then
// abort().  Written with stdio so that it works however broken the heap is.
#include "support/invariant.h"

#include <cstdio>
#include <cstdlib>

namespace qorv {

void invariant_violated(char const* structure, char const* what,
                        std::string const& value) noexcept {
  if (value.empty())
    std::fprintf(stderr, "%s invariant violated: %s\n", structure, what);
  else
    std::fprintf(stderr, "%s invariant violated: %s (value %s)\n", structure, what, value.c_str());
  std::abort();
}

} // namespace qorv
