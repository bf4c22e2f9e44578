// FpIntervalDecisionHeuristic: gathering, NaN first, round-robin or drawn
// split.
//
// Exception safety: the only state decide() changes before its last step is
// the candidate list (scratch, emptied by the next call), the generator state
// and the trail's map (new intervals are valid intervals).  The last decision
// is written only after the domain has made the element; its value is an
// all-or-nothing assignment, and when that fails the element goes back to the
// domain, so an exception from the host, from IEEEFloat or from an allocation
// leaves the last decision as it was and never strands an element.
#include "fp/interval_heuristics.h"

#include "host/packed_order.h"
#include "host/pick_mid.h"

#include <cassert>
#include <cstddef>
#include <utility>

namespace qorv::fp {

namespace {
// drand48 parameters: s <- (s * a + c) mod 2^48.
constexpr std::uint64_t lcg_multiplier = 0x5DEECE66DULL;
constexpr std::uint64_t lcg_increment = 11;
constexpr std::uint64_t lcg_mask = (std::uint64_t{1} << 48) - 1;
} // namespace

FpIntervalDecisionHeuristic::FpIntervalDecisionHeuristic(FpIntervalDomain& domain,
                                                         FpBoundsTrail& trail,
                                                         FpDecDepManager& manager)
    : domain_(domain), trail_(trail), manager_(manager), generator_state_(42) {}

std::uint64_t FpIntervalDecisionHeuristic::advance() noexcept {
  generator_state_ = (generator_state_ * lcg_multiplier + lcg_increment) & lcg_mask;
  return generator_state_;
}

// The term's interval, given its first entry on first use.  operator[] is the
// one hash operation: it finds the entry or inserts an empty interval.  The
// lookup is inline (decide() makes one per term); the first entry, made once
// per term, is out of line.
inline FpValueInterval& FpIntervalDecisionHeuristic::interval_of(Term const* t) {
  FpValueInterval& iv = trail_.intervals[t];
  if (iv.empty()) [[unlikely]]
    init_interval(iv, t);
  return iv;
}

[[gnu::noinline]] void FpIntervalDecisionHeuristic::init_interval(FpValueInterval& iv,
                                                                  Term const* t) {
  iv.init(trail_.tm, t);
}

inline bool FpIntervalDecisionHeuristic::is_single(Term const* t) {
  FpValueInterval const& iv = interval_of(t);
  return payload_equal(iv.upper(), iv.lower());
}

bool FpIntervalDecisionHeuristic::singleton(Term const* t) {
  return is_single(t);
}

IEEEFloat FpIntervalDecisionHeuristic::pick_mid_point(Term const* t) {
  FpValueInterval const& iv = interval_of(t);
  return utils::pick_mid_avg(iv.lower(), iv.upper()); // both passed as copies
}

FpBoundElement* FpIntervalDecisionHeuristic::decide() {
  candidates_.clear(); // keeps its capacity
  std::vector<Term const*> const& terms = manager_.terms;
  // The host keeps the split position within the list; one past the end is
  // read as the end, so a stale position never reads outside the list.
  std::size_t const split = manager_.split < terms.size() ? manager_.split : terms.size();
  for (std::size_t i = 0; i < split; ++i)
    if (!is_single(terms[i])) candidates_.push_back(terms[i]);
  if (candidates_.empty())
    for (std::size_t i = split; i < terms.size(); ++i)
      if (!is_single(terms[i])) candidates_.push_back(terms[i]);
  if (candidates_.empty()) return &domain_.no_decision;

  // The decided value is built here and handed to the domain, which copies
  // it into the new element.
  Term const* chosen = nullptr;
  bool flag = true;
  IEEEFloat value;
  for (Term const* t : candidates_) {
    FpValueInterval const& iv = interval_of(t);
    if (iv.nan_status() == l_False) continue;
    // "Not NaN": the term is at least -inf, the least value above NaN.
    value = IEEEFloat(iv.lower().get_format(), IEEEFloat::rm_nearest_even);
    value.self_inf(true);
    chosen = t;
    break;
  }

  if (!chosen) {
    auto const count = static_cast<std::uint32_t>(candidates_.size());
    assert(count == candidates_.size() && "candidate count fits the 32-bit draw");
    std::uint32_t index = count; // the last decided term is not a candidate
    if (Term const* last = last_decision_.term()) {
      for (std::uint32_t p = 0; p < count; ++p) {
        if (candidates_[p] == last) {
          index = p + 1 == count ? 0 : p + 1;
          break;
        }
      }
    }
    if (index == count) index = static_cast<std::uint32_t>(advance() >> 16) % count;
    chosen = candidates_[index];
    value = pick_mid_point(chosen);
    flag = ((advance() >> 16) & 1) != 0;
  }

  FpBoundElement* e = domain_.new_FpBoundElement(flag, chosen, value);
  // The last decision takes a copy of e's value by assignment, never by a
  // move: for wide formats the rational assignment rules decide the form of
  // the destination (a big form stays big), and the recorded value must have
  // exactly that form.  That assignment may allocate (a small wide value
  // receiving a big one); it is all-or-nothing, and should it fail the new
  // element goes back to the domain, so an exception strands no element and
  // leaves the last decision as it was.
  struct GiveBack {
    FpIntervalDomain& domain;
    FpBoundElement* element;
    ~GiveBack() { domain.release_FpBoundElement(element); } // noexcept
  } give_back{domain_, e};
  last_decision_.value = e->value;
  give_back.element = nullptr;
  last_decision_.lit = e->lit;
  return e;
}

} // namespace qorv::fp
