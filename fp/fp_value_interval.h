// FpValueInterval: the interval history of one floating-point term.
//
// Each entry is a (lower end, upper end, flag) triple; the last entry is the
// current interval.  Ends are ordered by the packed order, in which NaN lies
// below -inf, so an interval whose lower end is NaN still admits NaN and the
// fresh interval [NaN, +inf] admits every value.
//
// Invariants: an interval is empty (not yet initialised) exactly when `flags`
// has no entries; the three arrays have one length, and only push_entry and
// pop_entry change it, moving the three together (the host's trail uses
// nothing else).  push_entry, and so init(format), give the strong guarantee:
// when they throw, the interval is as it was (an empty one is initialised
// again on its next lookup).  All ends share the format of the term's sort.
// The interval owns its values; copies are deep and independent.  Appending
// may reallocate the arrays, which invalidates references to ends.
#pragma once

#include "../host/ieee_float.h"
#include "../host/packed_order.h"
#include "../host/terms.h"
#include "../host/theory_lit.h"
#include "../support/append_room.h"

#include <cassert>
#include <cstddef>
#include <utility>
#include <vector>

namespace qorv::fp {

class FpValueInterval {
public:
  std::vector<IEEEFloat> lower_ends; // last entry: the current lower end
  std::vector<IEEEFloat> upper_ends; // last entry: the current upper end
  std::vector<bool> flags;           // one bit per entry; init appends false

  bool empty() const noexcept { return flags.empty(); }
  IEEEFloat const& lower() const noexcept {
    assert(!lower_ends.empty() && "interval has no entry");
    return lower_ends.back();
  }
  IEEEFloat const& upper() const noexcept {
    assert(!upper_ends.empty() && "interval has no entry");
    return upper_ends.back();
  }

  std::size_t entries() const noexcept { return flags.size(); }

  // Appends the entry [lo, hi] with `flag`.  Room is made in all three arrays
  // before anything is appended, and the ends are moved in, so on an
  // exception the interval is unchanged.
  void push_entry(IEEEFloat lo, IEEEFloat hi, bool flag) {
    reserve_for_append(lower_ends);
    reserve_for_append(upper_ends);
    reserve_for_append(flags);
    lower_ends.push_back(std::move(lo)); // into reserved room: cannot throw
    upper_ends.push_back(std::move(hi));
    flags.push_back(flag);
  }
  // Removes the current entry.  Requires a non-empty interval.
  void pop_entry() noexcept {
    assert(!empty() && "pop_entry on an interval without entries");
    lower_ends.pop_back();
    upper_ends.pop_back();
    flags.pop_back();
  }

  // Appends the fresh entry [NaN, +inf] of format f with flag false (strong
  // guarantee, as push_entry).
  void init(IEEEFloat::format f) { push_entry(IEEEFloat::nan(f), IEEEFloat::inf(f, false), false); }

  // Appends the fresh entry of t's sort; for a floating-point constant (its
  // symbol is in the term manager's constant-bits map) the entry is then
  // narrowed to the constant's single value, assigned to the upper end and
  // then to the lower end.  The open entry comes first: if building the
  // constant's value throws, the interval keeps the open entry [NaN, +inf],
  // which is sound (it admits every value) and is what hosts that replay the
  // same steps see.  A term of another sort leaves both widths 0, and
  // IEEEFloat rejects that format with std::invalid_argument before anything
  // is appended.
  void init(TermManager* tm, Term const* t) {
    unsigned long w1 = 0, w2 = 0;
    tm->is_fp_type(t->symbol->get_output_type(), &w1, &w2);
    IEEEFloat::format const f{w1, w2};
    init(f);
    auto it = tm->constant_bits().find(t->symbol);
    if (it == tm->constant_bits().end()) return;
    QNumber bits;
    bits = it->second;
    IEEEFloat const x = IEEEFloat::from_bits(bits, f);
    // Assignment, not a move: a wide destination keeps its rational form.
    upper_ends.back() = x;
    lower_ends.back() = x;
  }

  // Whether the term is NaN by the current entry: l_False when the interval
  // is inverted (upper < lower) or excludes NaN, l_True when both ends are
  // NaN (the upper end being NaN forces it), l_Undef when only the lower end
  // is NaN.  Requires a non-empty interval.
  lbool nan_status() const {
    IEEEFloat const& lo = lower();
    IEEEFloat const& hi = upper();
    if (IEEEFloat::Packed{&hi} < IEEEFloat::Packed{&lo}) return l_False;
    if (hi.is_nan()) return l_True;
    if (lo.is_nan()) return l_Undef;
    return l_False;
  }
};

} // namespace qorv::fp
