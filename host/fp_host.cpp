// Bound elements, the interval domain that pools them and the bounds trail
// (see fp_host.h).  Every mutation of the trail makes room before it changes
// anything, so an allocation failure leaves trail and intervals in step.
#include "host/fp_host.h"

#include "host/packed_order.h"
#include "support/append_room.h"
#include "support/invariant.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <new>
#include <stdexcept>
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
  if (in_words(t)) {
    grow_to(t->id);
    if (view_[t->id] != view_fresh || iv.empty()) {
      refresh_view(t, iv);
      view_[t->id] = view_fresh;
    }
    return iv;
  }
  if (iv.empty()) iv.init(tm, t);
  return iv;
}

IEEEFloat FpBoundsTrail::current_end(Term const* t, bool lower) {
  if (!in_words(t)) {
    fp::FpValueInterval const& iv = interval(t);
    return lower ? iv.lower() : iv.upper();
  }
  Ends const c = current_words(t);
  return IEEEFloat::from_narrow_bits(lower ? c.lo : c.hi, format_of(t));
}

IEEEFloat FpBoundsTrail::end_before(std::size_t slot, bool lower) const {
  assert(slot < before_.size() && in_words(bounds[slot]->term()) && "a slot kept in words");
  Ends const& b = before_[slot];
  return IEEEFloat::from_narrow_bits(lower ? b.lo : b.hi, format_of(bounds[slot]->term()));
}

// A constant's single value, else [NaN, +inf]: what FpValueInterval::init
// gives the same term.
FpBoundsTrail::Ends FpBoundsTrail::initial_ends(Term const* t) const {
  IEEEFloat::format const f = format_of(t);
  auto it = tm->constant_bits().find(t->symbol);
  if (it != tm->constant_bits().end()) {
    std::uint64_t const bits = IEEEFloat::from_bits(it->second, f).payload_u64();
    return {bits, bits};
  }
  return {IEEEFloat::nan(f).payload_u64(), IEEEFloat::inf(f, false).payload_u64()};
}

FpBoundsTrail::Ends FpBoundsTrail::current_words(Term const* t) const {
  std::uint64_t const id = t->id;
  return id < newest_.size() && (newest_[id] != 0 || folded_[id] != 0) ? current_[id]
                                                                       : initial_ends(t);
}

// Sized for every term the manager has made so far.  newest_ grows last, so
// the other two are at least as long whatever throws.
void FpBoundsTrail::grow_to(std::uint64_t id) {
  if (id < newest_.size()) return;
  std::size_t const n = std::max<std::uint64_t>(id, tm ? tm->term_count() : 0) + 1;
  current_.resize(n);
  view_.resize(n, view_none);
  folded_.resize(n, 0);
  newest_.resize(n, 0);
}

void FpBoundsTrail::set_current(std::uint64_t id, Ends const& ends) noexcept {
  current_[id] = ends;
  if (view_[id] == view_fresh) view_[id] = view_stale;
}

void FpBoundsTrail::refresh_view(Term const* t, fp::FpValueInterval& iv) {
  if (iv.empty()) iv.init(tm, t);
  std::uint32_t const newest = newest_[t->id];
  std::uint8_t const folded = folded_[t->id];
  if (newest == 0 && folded == 0) {
    while (iv.entries() > 1)
      iv.pop_entry();
    return;
  }
  Ends const& c = current_[t->id];
  IEEEFloat::format const f = format_of(t);
  bool const flag = newest != 0 ? bounds[newest - 1]->flag() : (folded & folded_lower) != 0;
  if (iv.entries() == 1) {
    iv.push_entry(IEEEFloat::from_narrow_bits(c.lo, f), IEEEFloat::from_narrow_bits(c.hi, f), flag);
    return;
  }
  while (iv.entries() > 2)
    iv.pop_entry();
  iv.lower_ends.back() = IEEEFloat::from_narrow_bits(c.lo, f);
  iv.upper_ends.back() = IEEEFloat::from_narrow_bits(c.hi, f);
  iv.flags.back() = flag;
}

void FpBoundsTrail::update_view(std::vector<Term const*> const& terms) {
  for (Term const* t : terms)
    if (in_words(t) && (t->id >= view_.size() || view_[t->id] != view_fresh)) interval(t);
}

void FpBoundsTrail::assert_bound(FpBoundElement* e) {
  if (in_words(e->term()))
    assert_in_words(e);
  else
    assert_in_map(e);
  QORV_DEBUG_CHECK(*this);
}

void FpBoundsTrail::assert_in_words(FpBoundElement* e) {
  Term const* t = e->term();
  std::uint64_t const id = t->id;
  IEEEFloat::format const f = format_of(t);
  assert(e->value.get_format() == f && "a bound in its term's format");
  if (bounds.size() >= UINT32_MAX) throw std::length_error("bounds trail: too many bounds");
  grow_to(id);
  Ends const cur = current_words(t);
  IEEEFloat const lo = IEEEFloat::from_narrow_bits(cur.lo, f);
  IEEEFloat const hi = IEEEFloat::from_narrow_bits(cur.hi, f);
  IEEEFloat const& v = e->value;
  // A bound only ever tightens: take the larger lower end, the smaller upper.
  bool const tighter = e->flag() ? IEEEFloat::Packed{&lo} < IEEEFloat::Packed{&v}
                                 : IEEEFloat::Packed{&v} < IEEEFloat::Packed{&hi};
  Ends next = cur;
  if (tighter) (e->flag() ? next.lo : next.hi) = v.payload_u64();
  if (marks_.empty()) {
    // Below the first mark nothing is undone but by a return to 0, which
    // restores the initial intervals: the bound folds into the current ends
    // and takes no slot.
    folded_[id] = static_cast<std::uint8_t>(folded_yes | (e->flag() ? folded_lower : 0));
    set_current(id, next);
    compact_domain_->release_FpBoundElement(e);
    return;
  }
  std::uint32_t& newest = newest_[id]; // slot + 1; 0 before the first bound
  if (newest > level_start()) {
    // The term's entry of this level: narrowed in place.
    FpBoundElement*& slot = bounds[newest - 1];
    compact_domain_->release_FpBoundElement(slot);
    slot = e;
    set_current(id, next);
    return;
  }
  reserve_for_append(bounds);
  reserve_for_append(previous_);
  reserve_for_append(before_);
  before_.push_back(cur);
  previous_.push_back(newest);
  bounds.push_back(e);
  newest = static_cast<std::uint32_t>(bounds.size());
  set_current(id, next);
}

void FpBoundsTrail::assert_in_map(FpBoundElement* e) {
  fp::FpValueInterval& iv = interval(e->term());
  IEEEFloat const& lo = iv.lower();
  IEEEFloat const& hi = iv.upper();
  IEEEFloat const& v = e->value;
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
    return;
  }
  if (bounds.size() >= UINT32_MAX) throw std::length_error("bounds trail: too many bounds");
  grow_to(e->term()->id);
  std::uint32_t& newest = newest_[e->term()->id];
  if (newest > level_start()) {
    // The moves and the bit cannot throw, so the copies above were the last
    // thing that could.
    iv.lower_ends.back() = std::move(new_lo);
    iv.upper_ends.back() = std::move(new_hi);
    iv.flags.back() = e->flag();
    FpBoundElement*& slot = bounds[newest - 1];
    compact_domain_->release_FpBoundElement(slot);
    slot = e;
    return;
  }
  reserve_for_append(bounds);
  reserve_for_append(previous_);
  reserve_for_append(before_);
  iv.push_entry(std::move(new_lo), std::move(new_hi), e->flag());
  before_.push_back(Ends{}); // the map holds this term's history
  previous_.push_back(newest);
  bounds.push_back(e);
  newest = static_cast<std::uint32_t>(bounds.size());
}

void FpBoundsTrail::undo_last() noexcept {
  FpBoundElement* e = bounds.back();
  Term const* t = e->term();
  if (in_words(t)) {
    set_current(t->id, before_.back());
  } else {
    auto it = intervals.find(t);
    assert(it != intervals.end() && it->second.entries() >= 2 &&
           "an asserted bound has its own entry above the initial one");
    if (it != intervals.end()) it->second.pop_entry();
  }
  if (compacting()) {
    newest_[t->id] = previous_.back();
    previous_.pop_back();
    before_.pop_back();
  }
  bounds.pop_back();
}

void FpBoundsTrail::backtrack(std::size_t length, FpIntervalDomain* domain) {
  bool const to_root = length == 0 && !starts_level(0); // not merely to a level at 0
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
    undo_last();
    if (domain) domain->release_FpBoundElement(e);
  }
  if (to_root)
    for (std::size_t id = 0; id < folded_.size(); ++id)
      if (folded_[id] != 0) {
        folded_[id] = 0; // back to the initial interval
        if (view_[id] == view_fresh) view_[id] = view_stale;
      }
  QORV_DEBUG_CHECK(*this);
}

void FpBoundsTrail::merge_last_level() {
  if (!compacting() || marks_.size() < 2)
    invariant_violated("FpBoundsTrail", "merge_last_level needs two levels");
  std::size_t const top = marks_.back(), below = marks_[marks_.size() - 2];
  std::size_t out = top;
  for (std::size_t s = top; s < bounds.size(); ++s) {
    FpBoundElement* e = bounds[s];
    Term const* t = e->term();
    std::uint32_t const p = previous_[s];
    if (p > below) {
      // The term's slot in the level below takes the newer bound and keeps
      // its own ends from before that level.
      compact_domain_->release_FpBoundElement(bounds[p - 1]);
      bounds[p - 1] = e;
      newest_[t->id] = p;
      if (!in_words(t)) {
        fp::FpValueInterval& iv = intervals.find(t)->second;
        std::size_t const n = iv.entries();
        iv.lower_ends[n - 2] = std::move(iv.lower_ends[n - 1]);
        iv.upper_ends[n - 2] = std::move(iv.upper_ends[n - 1]);
        iv.flags[n - 2] = iv.flags[n - 1];
        iv.pop_entry();
      }
      continue;
    }
    bounds[out] = e;
    previous_[out] = p;
    before_[out] = before_[s];
    newest_[t->id] = static_cast<std::uint32_t>(out + 1);
    ++out;
  }
  bounds.resize(out);
  previous_.resize(out);
  before_.resize(out);
  marks_.pop_back();
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
// its own above the initial one (in the map, or in words), and the map's
// entries above the initial ones add up to the bounds of the map's terms.
void FpBoundsTrail::check_invariants() const {
  auto fail = [](char const* what) { invariant_violated("FpBoundsTrail", what); };
  std::size_t in_map = 0;
  for (FpBoundElement const* e : bounds) {
    if (!e || !e->term()) fail("null bound or term on the trail");
    if (in_words(e->term())) continue;
    ++in_map;
    auto it = intervals.find(e->term());
    if (it == intervals.end() || it->second.entries() < 2)
      fail("a bound without its interval entry");
  }
  std::size_t above_initial = 0;
  for (auto const& [t, iv] : intervals) {
    std::size_t const n = iv.entries();
    if (iv.lower_ends.size() != n || iv.upper_ends.size() != n)
      fail("interval arrays of different lengths");
    if (!in_words(t)) {
      if (n > 0) above_initial += n - 1;
      continue;
    }
    if (t->id >= view_.size() || view_[t->id] != view_fresh) continue;
    Ends const c = current_words(t);
    if (n != (newest_[t->id] != 0 || folded_[t->id] != 0 ? 2u : 1u) ||
        iv.lower().payload_u64() != c.lo || iv.upper().payload_u64() != c.hi)
      fail("a view entry marked up to date differs from the current interval");
  }
  if (above_initial != in_map) fail("interval entries out of step with the trail");
  if (!compacting()) return;
  for (std::size_t i = 0; i < marks_.size(); ++i)
    if (marks_[i] > bounds.size() || (i > 0 && marks_[i] <= marks_[i - 1]))
      fail("level marks do not increase within the trail");
  if (previous_.size() != bounds.size() || before_.size() != bounds.size())
    fail("a bound without its link to the one before");
  // Walking each term's bounds from its newest one: every link stays on the
  // term and crosses a mark (one bound per level), the ends only narrow
  // along it, and the walks together visit every slot, so each slot lies on
  // exactly one term's chain.
  auto level_of = [&](std::size_t slot) {
    return std::upper_bound(marks_.begin(), marks_.end(), slot) - marks_.begin();
  };
  auto within = [](Ends const& inner, Ends const& outer, IEEEFloat::format f) {
    IEEEFloat const il = IEEEFloat::from_narrow_bits(inner.lo, f);
    IEEEFloat const ih = IEEEFloat::from_narrow_bits(inner.hi, f);
    IEEEFloat const ol = IEEEFloat::from_narrow_bits(outer.lo, f);
    IEEEFloat const oh = IEEEFloat::from_narrow_bits(outer.hi, f);
    return !(IEEEFloat::Packed{&il} < IEEEFloat::Packed{&ol}) &&
           !(IEEEFloat::Packed{&oh} < IEEEFloat::Packed{&ih});
  };
  std::size_t visited = 0;
  for (std::size_t id = 0; id < newest_.size(); ++id) {
    Ends after = current_[id]; // the ends after slot s (read only when there is one)
    for (std::size_t s = newest_[id]; s != 0; s = previous_[s - 1], ++visited) {
      if (s > bounds.size() || bounds[s - 1]->term()->id != id || visited > bounds.size())
        fail("a term's chain of bounds leaves the term");
      std::size_t const p = previous_[s - 1];
      if (p != 0 && (p >= s || level_of(p - 1) >= level_of(s - 1)))
        fail("two bounds of one term in one level");
      Term const* t = bounds[s - 1]->term();
      if (!in_words(t)) continue;
      if (!within(after, before_[s - 1], format_of(t)))
        fail("a term's ends widen from one slot to the next");
      after = before_[s - 1];
    }
  }
  if (visited != bounds.size()) fail("a bound on no term's chain");
}

} // namespace qorv
