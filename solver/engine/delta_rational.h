// Rationals with an infinitesimal part: a + b*delta, for a positive delta
// smaller than any positive rational that matters.  A strict bound x > c is
// the non-strict bound x >= c + delta, and x < c is x <= c - delta, so the
// simplex reasons about strict and non-strict bounds alike; the order is
// lexicographic (real part first), which is the order of a + b*delta for
// every small enough delta > 0.  Both parts are exact GMP rationals.
#pragma once

#include <gmpxx.h>
#include <utility>

namespace fpsolve {

struct DeltaRational {
  mpq_class real;
  mpq_class delta;

  DeltaRational() = default;
  DeltaRational(mpq_class r, mpq_class d = 0) : real(std::move(r)), delta(std::move(d)) {}

  // The bound c + delta of a strict lower bound x > c, and c - delta of x < c.
  static DeltaRational above(mpq_class const& c) { return {c, 1}; }
  static DeltaRational below(mpq_class const& c) { return {c, -1}; }

  bool is_zero() const { return real == 0 && delta == 0; }

  friend bool operator==(DeltaRational const& a, DeltaRational const& b) {
    return a.real == b.real && a.delta == b.delta;
  }
  friend bool operator!=(DeltaRational const& a, DeltaRational const& b) { return !(a == b); }
  friend bool operator<(DeltaRational const& a, DeltaRational const& b) {
    return a.real < b.real || (a.real == b.real && a.delta < b.delta);
  }
  friend bool operator>(DeltaRational const& a, DeltaRational const& b) { return b < a; }
  friend bool operator<=(DeltaRational const& a, DeltaRational const& b) { return !(b < a); }
  friend bool operator>=(DeltaRational const& a, DeltaRational const& b) { return !(a < b); }

  friend DeltaRational operator+(DeltaRational const& a, DeltaRational const& b) {
    return {a.real + b.real, a.delta + b.delta};
  }
  friend DeltaRational operator-(DeltaRational const& a, DeltaRational const& b) {
    return {a.real - b.real, a.delta - b.delta};
  }
  friend DeltaRational operator*(mpq_class const& k, DeltaRational const& a) {
    return {k * a.real, k * a.delta};
  }
  friend DeltaRational operator*(DeltaRational const& a, mpq_class const& k) { return k * a; }
  DeltaRational& operator+=(DeltaRational const& b) {
    real += b.real;
    delta += b.delta;
    return *this;
  }
  // a + k*b in place, without temporaries for the product.
  void add_scaled(mpq_class const& k, DeltaRational const& b) {
    real += k * b.real;
    delta += k * b.delta;
  }

  // The rational a + b*d for a concrete d.
  mpq_class at(mpq_class const& d) const { return real + delta * d; }
};

} // namespace fpsolve
