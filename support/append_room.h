// Room for one append, made before anything changes.
//
// Operations with the strong guarantee over several arrays (an interval's
// three arrays, the bounds trail) first make room in each, then append:
// once every reserve has succeeded, the push_backs that follow cannot
// reallocate and so cannot throw.  Capacity doubles, so a run of appends
// stays amortised constant time (reserving size() + 1 would reallocate on
// every call).  This is the one growth rule of those arrays.
#pragma once

namespace qorv {

template <class Vec>
void reserve_for_append(Vec& v) {
  if (v.size() == v.capacity()) v.reserve(v.empty() ? 1 : 2 * v.size());
}

} // namespace qorv
