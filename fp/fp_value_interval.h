// FpValueInterval: the interval history of one floating-point term.
//
// Each entry is a (lower end, upper end, flag) triple; the last entry is the
// current interval.  Ends are ordered by the packed order, in which NaN lies
// below -inf, so an interval whose lower end is NaN still admits NaN and the
// fresh interval [NaN, +inf] admits every value.
//
// Invariants: an interval is empty (not yet initialised) exactly when `flags`
// has no entries; the three arrays have one length.  `init` only appends,
// one entry to each array, and gives the strong guarantee: when it throws,
// the interval is as it was (an empty one is initialised again on its next
// lookup).  All ends share the format of the term's sort.  The interval owns
// its values; copies are deep and independent.
#pragma once

#include "host/ieee_float.h"
#include "host/terms.h"
#include "host/theory_lit.h"
#include "support/packed_order.h"

#include <cassert>
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

  // Appends the fresh entry [NaN, +inf] of format f with flag false.  Both
  // ends are built and room is made before anything is appended, so on an
  // exception the interval is unchanged.
  void init(IEEEFloat::format f) {
    IEEEFloat a(f, IEEEFloat::rm_nearest_even);
    a.self_nan();
    IEEEFloat b(f, IEEEFloat::rm_nearest_even);
    b.self_inf(false);
    room_for_one(lower_ends);
    room_for_one(upper_ends);
    room_for_one(flags);
    lower_ends.push_back(std::move(a)); // moves and appends into room: no throw
    upper_ends.push_back(std::move(b));
    flags.push_back(false);
  }

  // Appends the fresh entry of t's sort; for a floating-point constant (its
  // symbol is in the term manager's constant-bits map) the entry is narrowed
  // to the constant's single value.  The constant's value is built before the
  // entry is appended, so on an exception the interval is unchanged (and a
  // constant never ends up with the open interval).  A term of another sort
  // leaves both widths 0, and IEEEFloat rejects that format with
  // std::invalid_argument.
  void init(TermManager* tm, Term const* t) {
    unsigned long w1 = 0, w2 = 0;
    tm->is_fp_type(t->symbol->get_output_type(), &w1, &w2);
    IEEEFloat::format const f{w1, w2};
    auto it = tm->constant_bits().find(t->symbol);
    if (it == tm->constant_bits().end()) {
      init(f);
      return;
    }
    QNumber bits;
    bits = it->second;
    IEEEFloat x = IEEEFloat::from_bits(bits, f);
    IEEEFloat y(x);
    init(f);
    upper_ends.back() = std::move(x);
    lower_ends.back() = std::move(y);
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

private:
  // Makes one push_back unable to reallocate, growing geometrically.
  template <class Vec>
  static void room_for_one(Vec& v) {
    if (v.size() == v.capacity()) v.reserve(v.empty() ? 1 : 2 * v.size());
  }
};

} // namespace qorv::fp
