// The QNumber-payload half of the packed order and of payload equality: an
// exact rational comparison of the two patterns.  The exception flags are left
// alone here, unlike the 32/64-bit half in the header.
#include "host/packed_order.h"

namespace qorv::detail {

bool packed_less_wide(IEEEFloat const& a, IEEEFloat const& b, bool sign) {
  QNumber const& x = a.payload_q();
  QNumber const& y = b.payload_q();
  // With the sign set a larger pattern is a larger magnitude, so it lies lower.
  return sign ? y < x : x < y;
}

bool payload_equal_wide(IEEEFloat const& a, IEEEFloat const& b) {
  return a.payload_q() == b.payload_q();
}

} // namespace qorv::detail
