// The search frame of one literal: its limit queue, maximum limit and their
// one-line text form.  Values are deep copies; a frame owns every value in it.
#include "fp/interval_heuristics.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <utility>

namespace qorv::fp {

FpIntervalSearchFrame::FpIntervalSearchFrame() = default;

FpIntervalSearchFrame::FpIntervalSearchFrame(bool flag, Term const* term, IEEEFloat const& v)
    : FpBoundElement(TheoryLit::make(term, flag), v), max_limit(infinite_limit()) {}

// NaN for a lower bound (flag set), +inf for an upper bound: the ends of a
// fresh interval, in the format of the frame's value.
IEEEFloat FpIntervalSearchFrame::infinite_limit() const {
  IEEEFloat::format const f = value.get_format();
  return flag() ? IEEEFloat::nan(f) : IEEEFloat::inf(f, false);
}

void FpIntervalSearchFrame::set_max_limit_inf() {
  max_limit = infinite_limit();
}

bool FpIntervalSearchFrame::max_limit_inf() const {
  assert(!limits.empty() && "max_limit_inf reads the front limit; fix the frame first");
  if (limits.empty()) return false;
  IEEEFloat const& front = limits.front().second;
  return flag() ? front.is_nan() : front.is_inf() && !front.get_sign();
}

void FpIntervalSearchFrame::fix_limits() {
  if (limits.empty()) {
    limits.emplace_front(-1, max_limit);
    return;
  }
  // Both copies of M that the result needs are made before anything changes;
  // the shift below only moves values (noexcept), so a failed allocation
  // leaves the frame as it was.  The values move one place toward the back
  // in one pass from the front, carrying each value to the next limit: limit
  // j ends with the value that limit j-1 held, exactly as a pass from the
  // back would leave it, and the last value leaves the queue.
  IEEEFloat carry(max_limit);
  limits.emplace_front(-1, max_limit);
  auto it = limits.begin();
  for (++it; it != limits.end(); ++it)
    std::swap(carry, it->second);
}

std::string FpIntervalSearchFrame::to_str() const {
  std::ostringstream out;
  out << "S[";
  print(out);
  if (!limits.empty()) {
    Limit const& back = limits.back();
    out << ", " << back.second.to_str() << ", " << back.first;
  }
  out << ", " << static_cast<std::uint64_t>(limits.size()) << ", " << counter << "]";
  return out.str();
}

} // namespace qorv::fp
