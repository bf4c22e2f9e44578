// Bound elements, the interval domain that pools them and the bounds trail
// (see fp_host.h).  Every mutation of the trail makes room before it changes
// anything, so an allocation failure leaves trail and intervals in step.
#include "host/fp_host.h"

#include "host/packed_order.h"
#include "support/append_room.h"
#include "support/invariant.h"

#include <algorithm>
#include <cassert>
#include <new>
#include <string>
#include <utility>

namespace qorv {

void FpBoundElement::print(std::ostream& out) const {
  if (lit == tlit_Undef) {
    out << "undef";
    return;
  }
  out << term()->name() << (flag() ? " >= " : " <= ") << value.to_str();
}

namespace {
// Gives a pool block back unless dismissed: the allocation path of
// new_FpBoundElement must not lose a block when copying the value throws.
struct BlockGuard {
  MemoryPool<sizeof(FpBoundElement), false>& pool;
  FpBoundElement* element;
  ~BlockGuard() {
    if (!element) return;
    element->~FpBoundElement();
    pool.release(element);
  }
};
} // namespace

FpBoundElement* FpIntervalDomain::new_FpBoundElement(bool flag, Term const* t, IEEEFloat const& v) {
  void* block = element_pool.allocate();
  auto* e = new (block) FpBoundElement(); // tlit_Undef and a default value
  BlockGuard guard{element_pool, e};
  FpBoundElement tmp(TheoryLit::make(t, flag), v);
  e->lit = tmp.lit;
  e->value = tmp.value;
  guard.element = nullptr;
  ++live_;
  return e;
}

void FpIntervalDomain::release_FpBoundElement(FpBoundElement* e) noexcept {
  if (!e || e == &no_decision) return;
  e->~FpBoundElement();
  element_pool.release(e);
  --live_;
}

fp::FpValueInterval& FpBoundsTrail::interval(Term const* t) {
  fp::FpValueInterval& iv = intervals[t];
  if (iv.empty()) iv.init(tm, t);
  return iv;
}

void FpBoundsTrail::assert_bound(FpBoundElement* e) {
  fp::FpValueInterval& iv = interval(e->term());
  IEEEFloat const& lo = iv.lower();
  IEEEFloat const& hi = iv.upper();
  IEEEFloat const& v = e->value;
  // A bound only ever tightens: take the larger lower end, the smaller upper.
  bool tighter = e->flag() ? IEEEFloat::Packed{&lo} < IEEEFloat::Packed{&v}
                           : IEEEFloat::Packed{&v} < IEEEFloat::Packed{&hi};
  IEEEFloat new_lo(e->flag() && tighter ? v : lo);
  IEEEFloat new_hi(!e->flag() && tighter ? v : hi);
  if (!compacting()) {
    // Room on the trail first, then the interval's own strong append: after
    // both, the last push_back cannot fail.
    reserve_for_append(bounds);
    iv.push_entry(std::move(new_lo), std::move(new_hi), e->flag());
    bounds.push_back(e);
    QORV_DEBUG_CHECK(*this);
    return;
  }
  std::uint64_t const id = e->term()->id;
  if (id >= newest_.size()) // sized for every term the manager has made so far
    newest_.resize(std::max<std::uint64_t>(id, tm ? tm->term_count() : 0) + 1, 0);
  std::size_t& newest = newest_[id]; // slot + 1; 0 before the first bound
  if (newest > level_start()) {
    // The term's entry of this level: narrowed in place.  The moves and the
    // bit cannot throw, so the copies above were the last thing that could.
    iv.lower_ends.back() = std::move(new_lo);
    iv.upper_ends.back() = std::move(new_hi);
    iv.flags.back() = e->flag();
    FpBoundElement*& slot = bounds[newest - 1];
    compact_domain_->release_FpBoundElement(slot);
    slot = e;
    QORV_DEBUG_CHECK(*this);
    return;
  }
  reserve_for_append(bounds);
  reserve_for_append(previous_);
  iv.push_entry(std::move(new_lo), std::move(new_hi), e->flag());
  previous_.push_back(newest);
  bounds.push_back(e);
  newest = bounds.size();
  QORV_DEBUG_CHECK(*this);
}

void FpBoundsTrail::backtrack(std::size_t length, FpIntervalDomain* domain) {
  if (compacting() && length < bounds.size()) {
    // Entries rewritten in place since the last mark below `length` cannot
    // be restored, so only a level's own start is a place to return to.
    while (!marks_.empty() && marks_.back() > length)
      marks_.pop_back();
    if (length != 0 && (marks_.empty() || marks_.back() != length))
      invariant_violated("FpBoundsTrail", "backtrack to a length that starts no level",
                         std::to_string(length));
  }
  while (!marks_.empty() && marks_.back() >= length)
    marks_.pop_back();
  while (bounds.size() > length) {
    FpBoundElement* e = bounds.back();
    auto it = intervals.find(e->term());
    assert(it != intervals.end() && it->second.entries() >= 2 &&
           "an asserted bound has its own entry above the initial one");
    if (it != intervals.end()) it->second.pop_entry();
    if (compacting()) {
      if (e->term()->id < newest_.size()) newest_[e->term()->id] = previous_.back();
      previous_.pop_back();
    }
    bounds.pop_back();
    if (domain) domain->release_FpBoundElement(e);
  }
  QORV_DEBUG_CHECK(*this);
}

void FpBoundsTrail::enable_compaction(FpIntervalDomain* domain) {
  assert(bounds.empty() && domain && "compaction starts on an empty trail");
  compact_domain_ = domain;
}

std::size_t FpBoundsTrail::mark() {
  if (marks_.empty() || marks_.back() != bounds.size()) marks_.push_back(bounds.size());
  return bounds.size();
}

// Allocation-free, so that it can run after any mutation, also while an
// allocation failure is being injected: every bound's term has an entry of
// its own above the initial one, and the entries above the initial ones add
// up to the bounds on the trail.
void FpBoundsTrail::check_invariants() const {
  auto fail = [](char const* what) { invariant_violated("FpBoundsTrail", what); };
  for (FpBoundElement const* e : bounds) {
    if (!e || !e->term()) fail("null bound or term on the trail");
    auto it = intervals.find(e->term());
    if (it == intervals.end() || it->second.entries() < 2)
      fail("a bound without its interval entry");
  }
  std::size_t above_initial = 0;
  for (auto const& [t, iv] : intervals) {
    std::size_t const n = iv.entries();
    if (iv.lower_ends.size() != n || iv.upper_ends.size() != n)
      fail("interval arrays of different lengths");
    if (n > 0) above_initial += n - 1;
  }
  if (above_initial != bounds.size()) fail("interval entries out of step with the trail");
  if (!compacting()) return;
  for (std::size_t i = 0; i < marks_.size(); ++i)
    if (marks_[i] > bounds.size() || (i > 0 && marks_[i] <= marks_[i - 1]))
      fail("level marks do not increase within the trail");
  if (previous_.size() != bounds.size()) fail("a bound without its link to the one before");
  // Walking each term's bounds from its newest one: every link stays on the
  // term and crosses a mark (one bound per level), and the walks together
  // visit every slot, so each slot lies on exactly one term's chain.
  auto level_of = [&](std::size_t slot) {
    return std::upper_bound(marks_.begin(), marks_.end(), slot) - marks_.begin();
  };
  std::size_t visited = 0;
  for (std::size_t id = 0; id < newest_.size(); ++id) {
    for (std::size_t s = newest_[id]; s != 0; s = previous_[s - 1], ++visited) {
      if (s > bounds.size() || bounds[s - 1]->term()->id != id || visited > bounds.size())
        fail("a term's chain of bounds leaves the term");
      std::size_t const p = previous_[s - 1];
      if (p != 0 && (p >= s || level_of(p - 1) >= level_of(s - 1)))
        fail("two bounds of one term in one level");
    }
  }
  if (visited != bounds.size()) fail("a bound on no term's chain");
}

} // namespace qorv
