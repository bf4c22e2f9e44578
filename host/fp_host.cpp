#include "host/fp_host.h"

#include "support/packed_order.h"

#include <cassert>
#include <cstdio>
#include <cstdlib>
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
// Ensures one push_back cannot reallocate.  Capacity doubles, so a long run
// of assertions stays amortised constant time (reserve(size() + 1) would
// reallocate on every call).
template <class Vec>
void room_for_one(Vec& v) {
  if (v.size() < v.capacity()) return;
  v.reserve(v.size() < 8 ? 8 : 2 * v.size());
}
} // namespace

FpBoundElement* FpIntervalDomain::new_FpBoundElement(bool flag, Term const* t,
                                                     IEEEFloat const& v) {
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
  // Make room first so that the appends below cannot fail part-way.
  room_for_one(bounds);
  room_for_one(iv.lower_ends);
  room_for_one(iv.upper_ends);
  room_for_one(iv.flags);
  iv.lower_ends.push_back(std::move(new_lo));
  iv.upper_ends.push_back(std::move(new_hi));
  iv.flags.push_back(e->flag());
  bounds.push_back(e);
}

void FpBoundsTrail::backtrack(std::size_t length, FpIntervalDomain* domain) {
  while (bounds.size() > length) {
    FpBoundElement* e = bounds.back();
    auto it = intervals.find(e->term());
    assert(it != intervals.end() && it->second.flags.size() >= 2 &&
           "an asserted bound has its own entry above the initial one");
    if (it != intervals.end()) {
      fp::FpValueInterval& iv = it->second;
      iv.lower_ends.pop_back();
      iv.upper_ends.pop_back();
      iv.flags.pop_back();
    }
    bounds.pop_back();
    if (domain) domain->release_FpBoundElement(e);
  }
}

void FpBoundsTrail::check_invariants() const {
  auto fail = [](char const* what) {
    std::fprintf(stderr, "FpBoundsTrail invariant violated: %s\n", what);
    std::abort();
  };
  hsh::HashMap<Term const*, std::size_t> count;
  for (FpBoundElement const* e : bounds) {
    if (!e || !e->term()) fail("null bound or term on the trail");
    ++count[e->term()];
  }
  for (auto const& [t, iv] : intervals) {
    std::size_t n = iv.flags.size();
    if (iv.lower_ends.size() != n || iv.upper_ends.size() != n)
      fail("interval arrays of different lengths");
    auto c = count.find(t);
    std::size_t asserted = c == count.end() ? 0 : c->second;
    if (n == 0 ? asserted != 0 : n != asserted + 1)
      fail("interval entries out of step with the trail");
  }
}

} // namespace qorv
