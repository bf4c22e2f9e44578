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
//
// A compacting trail also keeps the history of terms of at most 64 bits out
// of the map, in words: by term, the current ends as bit patterns, and by
// slot, the ends of the slot's term before the slot's level (what undoing
// the slot restores).  The map then is the decision heuristic's view of
// those terms: update_view writes the current interval of the listed terms
// into it (their first entry, plus the current one once they have a
// bound), and only then is it up to date.  Wider terms keep their history in
// the map as without compaction.  Below the first mark such a term's bounds
// take no slot at all: they narrow its current ends and go back to the domain
// at once (nothing undoes them but a return to 0, which restores the initial
// intervals), so the trail holds only what a backtrack can undo.
#pragma once

#include "../fp/fp_value_interval.h"
#include "../support/hashtable.h"
#include "../support/memory_pool.h"
#include "ieee_float.h"
#include "terms.h"
#include "theory_lit.h"

#include <algorithm>
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
  // and e takes its bound's slot; below the first mark, a bound on a term
  // kept in words takes no slot and goes back to the domain at once (the
  // caller reads nothing of e afterwards).  Strong guarantee on exceptions.
  void assert_bound(FpBoundElement* e);
  // Undoes every bound past `length` (newest first), popping one interval
  // entry per bound; with a domain, the elements are given back to it.
  // When compacting, `length` must be 0, a mark or the current length
  // (anything else aborts), and the marks at or above it are dropped; 0
  // when no level starts there also undoes the folded bounds (below).
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
  // Whether a level starts at `length` (so backtracking to it keeps what
  // lies below, the bounds folded below the first mark included).
  bool starts_level(std::size_t length) const noexcept {
    return std::binary_search(marks_.begin(), marks_.end(), length);
  }
  // Compacting only: folds the newest level into the one below it (at least
  // two marks).  A term with a slot in both keeps the older slot, holding
  // the newer bound (the older bound goes back to the domain) and the ends
  // from before the older level; the other slots of the newest level move
  // down in order.  The current intervals do not change.
  void merge_last_level();
  // The interval of t, initialised on first use.  When compacting, a term of
  // at most 64 bits gets its view entry brought up to date (see update_view).
  fp::FpValueInterval& interval(Term const* t);
  // The current lower (or upper) end of t, its initial one before any bound;
  // in either mode.  Allocates nothing for formats of at most 64 bits.
  IEEEFloat current_end(Term const* t, bool lower);
  // Compacting only, a slot of a term of at most 64 bits: the end that term
  // had before the slot's level.
  IEEEFloat end_before(std::size_t slot, bool lower) const;
  // Whether t's history is kept in words (compacting, at most 64 bits).
  bool in_words(Term const* t) const noexcept { return compacting() && width_of(t) <= 64; }
  // Compacting only: brings the map entries of `terms` (and makes one for
  // each term of the list without one) up to date with the current
  // intervals, so that the decision heuristic reads them.  Terms narrowed
  // or restored since the last update are rewritten, the others untouched.
  void update_view(std::vector<Term const*> const& terms);
  // Every asserted bound has its interval entry (entries above the initial
  // ones match the bounds), and all three arrays of each interval have one
  // length.  When compacting, the marks strictly increase within the trail,
  // each term has at most one bound per level, a term's ends only narrow
  // from slot to slot, and the view entries not marked stale equal the
  // current intervals.  Allocates nothing.
  void check_invariants() const;

  TermManager* tm;
  hsh::HashMap<Term const*, fp::FpValueInterval> intervals;
  std::vector<FpBoundElement*> bounds; // in order of assertion

private:
  // Two ends as bit patterns (formats of at most 64 bits).
  struct Ends {
    std::uint64_t lo = 0, hi = 0;
  };
  enum View : std::uint8_t { view_none = 0, view_fresh = 1, view_stale = 2 };
  enum Folded : std::uint8_t { folded_yes = 1, folded_lower = 2 };
  std::size_t level_start() const noexcept { return marks_.empty() ? 0 : marks_.back(); }
  static std::uint64_t width_of(Term const* t) noexcept {
    DataType const* d = t->symbol->get_output_type();
    return d && d->kind == DataType::Kind::floating_point ? d->eb + d->sb : 0;
  }
  static IEEEFloat::format format_of(Term const* t) noexcept {
    DataType const* d = t->symbol->get_output_type();
    return {d->eb, d->sb};
  }
  Ends initial_ends(Term const* t) const;
  Ends current_words(Term const* t) const;
  void assert_in_map(FpBoundElement* e);
  void assert_in_words(FpBoundElement* e);
  void undo_last() noexcept;
  void grow_to(std::uint64_t id);
  void set_current(std::uint64_t id, Ends const& ends) noexcept;
  void refresh_view(Term const* t, fp::FpValueInterval& iv);

  // Compaction only: by term id (the term manager numbers terms densely),
  // the slot of each term's newest bound plus one (0: none), and per slot
  // the same for the same term's bound before it.  Terms kept in words have
  // their current ends in current_ (valid while the term has a bound on the
  // trail or folded below the first mark), whether bounds were folded (and
  // the last one's flag) in folded_ and the state of their view entry in
  // view_; their slots have the ends from before the slot's level in before_.
  FpIntervalDomain* compact_domain_ = nullptr;
  std::vector<std::size_t> marks_;
  std::vector<std::uint32_t> newest_;
  std::vector<std::uint32_t> previous_;
  std::vector<Ends> current_;
  std::vector<std::uint8_t> view_;
  std::vector<std::uint8_t> folded_;
  std::vector<Ends> before_;
};

struct FpDecDepManager {
  std::vector<Term const*> terms; // the term list
  std::size_t split = 0;          // positions before it form the first segment
};

struct FpValueElement {
  hsh::HashSet<Term const*> terms;
};

} // namespace qorv
