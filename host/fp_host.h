// The floating-point theory objects of the stand-in host: bound elements, the
// interval domain that allocates them, the bounds trail, the
// decision-dependency manager and value elements.
//
// Ownership: bound elements live in blocks of the domain's element pool and
// belong to the domain; the host gives each one back with
// release_FpBoundElement (the trail does so when it backtracks).  The trail
// owns its map of value intervals.  The domain's no-decision element lives
// inside the domain object, so its address is stable and never allocated.
//
// Bounds: an element with the flag set is a lower bound (the term is at or
// above the value in the packed order), with the flag clear an upper bound.
// Asserting a bound appends it to the trail and appends one narrowed entry to
// its term's interval; backtracking to an earlier length undoes both, so the
// trail and the intervals always move in step (check_invariants).
//
// Compaction (off unless a search host calls enable_compaction): the trail is
// cut into levels by marks, and a term keeps at most one entry per level.
// The first bound on a term within a level appends as above; a later one
// narrows that entry in place and takes its slot on the trail (the bound it
// replaces goes back to the domain).  Nothing below a mark can be undone
// without undoing the whole level above it, so an entry rewritten in place
// is never needed again: backtracking is allowed only to a mark, to 0, or
// to the current length, and then restores every interval exactly as it
// was.  Level 0 (below the first mark) never backtracks but to 0, so a long
// propagation there costs one entry per term, not one per step.
#pragma once

#include "../fp/fp_value_interval.h"
#include "../support/hashtable.h"
#include "../support/memory_pool.h"
#include "ieee_float.h"
#include "terms.h"
#include "theory_lit.h"

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

namespace qorv {

struct FpBoundElement {
  TheoryLit lit = tlit_Undef;
  IEEEFloat value;

  FpBoundElement() = default;
  FpBoundElement(TheoryLit l, IEEEFloat const& v) : lit(l), value(v) {}

  Term const* term() const noexcept { return lit.term(); }
  bool flag() const noexcept { return lit.flag(); }
  // "<term name> >= <value>" for a lower bound, "<term name> <= <value>" for
  // an upper bound, the value as IEEEFloat::to_str writes it; "undef" for
  // the undefined literal.
  void print(std::ostream& out) const;
};

class FpIntervalDomain {
public:
  FpIntervalDomain() : element_pool(16, 2.0f, 8192) {}
  FpIntervalDomain(FpIntervalDomain const&) = delete;
  FpIntervalDomain& operator=(FpIntervalDomain const&) = delete;

  // A new element (t with `flag` in its lowest bit, a copy of v) in a pool
  // block.  Never null; throws std::bad_alloc (and takes no block) when the
  // pool cannot grow or the value cannot be copied.
  FpBoundElement* new_FpBoundElement(bool flag, Term const* t, IEEEFloat const& v);
  // Destroys an element made by new_FpBoundElement and gives its block back.
  // The no-decision element is not allocated and is ignored.
  void release_FpBoundElement(FpBoundElement* e) noexcept;
  bool is_no_decision(FpBoundElement const* e) const noexcept { return e == &no_decision; }
  std::uint64_t live_elements() const noexcept { return live_; }

  FpBoundElement no_decision; // returned when there is nothing to decide
  MemoryPool<sizeof(FpBoundElement), false> element_pool;

private:
  std::uint64_t live_ = 0;
};

class FpBoundsTrail {
public:
  explicit FpBoundsTrail(TermManager* term_manager) : tm(term_manager) {}
  FpBoundsTrail(FpBoundsTrail const&) = delete;
  FpBoundsTrail& operator=(FpBoundsTrail const&) = delete;

  // Appends e and narrows its term's interval: a lower bound raises the
  // lower end to e's value, an upper bound lowers the upper end, each only
  // when e is tighter (packed order).  Initialises an empty interval first.
  // The flag of the new entry is e's flag.  When compacting and the term has
  // an entry in the current level already, that entry is narrowed instead
  // and e takes its bound's slot.  Strong guarantee on exceptions.
  void assert_bound(FpBoundElement* e);
  // Undoes every bound past `length` (newest first), popping one interval
  // entry per bound; with a domain, the elements are given back to it.
  // When compacting, `length` must be 0, a mark or the current length
  // (anything else aborts), and the marks at or above it are dropped.
  void backtrack(std::size_t length, FpIntervalDomain* domain = nullptr);
  std::size_t size() const noexcept { return bounds.size(); }
  // Turns compaction on; requires an empty trail.  Replaced bounds are given
  // back to `domain`, which must outlive the trail's bounds.
  void enable_compaction(FpIntervalDomain* domain);
  bool compacting() const noexcept { return compact_domain_ != nullptr; }
  // Starts a level at the current length (once per length) and returns it;
  // the bounds from here on never rewrite an entry below it.
  std::size_t mark();
  std::size_t marks() const noexcept { return marks_.size(); }
  // The interval of t, initialised on first use.
  fp::FpValueInterval& interval(Term const* t);
  // Every asserted bound has its interval entry (entries above the initial
  // ones match the bounds), and all three arrays of each interval have one
  // length.  When compacting, the marks strictly increase within the trail
  // and each term has at most one bound per level.  Allocates nothing.
  void check_invariants() const;

  TermManager* tm;
  hsh::HashMap<Term const*, fp::FpValueInterval> intervals;
  std::vector<FpBoundElement*> bounds; // in order of assertion

private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  std::size_t level_start() const noexcept { return marks_.empty() ? 0 : marks_.back(); }

  // Compaction only: by term id (the term manager numbers terms densely),
  // the slot of each term's newest bound plus one (0: none), and per slot
  // the same for the same term's bound before it.
  FpIntervalDomain* compact_domain_ = nullptr;
  std::vector<std::size_t> marks_;
  std::vector<std::size_t> newest_;
  std::vector<std::size_t> previous_;
};

struct FpDecDepManager {
  std::vector<Term const*> terms; // the term list
  std::size_t split = 0;          // positions before it form the first segment
};

struct FpValueElement {
  hsh::HashSet<Term const*> terms;
};

} // namespace qorv
