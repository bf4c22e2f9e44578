// Bound elements, the interval domain that pools them and the bounds trail
// (see fp_host.h).  Every mutation of the trail makes room before it changes
// anything, so an allocation failure leaves trail and intervals in step.
#include "host/fp_host.h"

#include "host/packed_order.h"
#include "support/append_room.h"
#include "support/invariant.h"

#include <cassert>
#include <new>
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
  // Room on the trail first, then the interval's own strong append: after
  // both, the last push_back cannot fail.
  reserve_for_append(bounds);
  iv.push_entry(std::move(new_lo), std::move(new_hi), e->flag());
  bounds.push_back(e);
  QORV_DEBUG_CHECK(*this);
}

void FpBoundsTrail::backtrack(std::size_t length, FpIntervalDomain* domain) {
  while (bounds.size() > length) {
    FpBoundElement* e = bounds.back();
    auto it = intervals.find(e->term());
    assert(it != intervals.end() && it->second.entries() >= 2 &&
           "an asserted bound has its own entry above the initial one");
    if (it != intervals.end()) it->second.pop_entry();
    bounds.pop_back();
    if (domain) domain->release_FpBoundElement(e);
  }
  QORV_DEBUG_CHECK(*this);
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
}

} // namespace qorv
