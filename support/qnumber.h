// qorv::QNumber: an exact rational number in one of two forms.
//
// Small form: two signed 64-bit words, numerator then denominator (> 0).
// Big form:   the first word points to one heap block holding two GMP integers
//             (numerator, denominator); the second word is 0, which is what
//             marks the big form.
//
// Invariants relied on by equality and order: both forms are in lowest terms
// with a positive denominator, and no small part is -2^63 (the comparisons take
// absolute values in 64-bit arithmetic).  The form does not follow from the
// value: a big number may hold a value that would fit the small form, and
// nothing converts it back.  Assignment keeps a big destination big.
//
// Shared state (one instance per process, so comparisons are not reentrant or
// thread-safe): QNumber::gmp_tmp, four scratch GMP integers used by the order,
// and gcd_cache, the divisors of pairs of numbers below 1024 once computed.
#pragma once

#include <cstdint>
#include <gmp.h>
#include <string>
#include <string_view>

namespace qorv {

class QNumber {
public:
  // 0/1 in the small form.
  QNumber() noexcept : num_{0}, den_(1) {}
  // n/d in the small form, reduced to lowest terms with the sign on the
  // numerator.  Throws std::invalid_argument when d is 0 or a part is -2^63.
  QNumber(std::int64_t n, std::int64_t d);
  // Always the big form, reduced.  Throws std::invalid_argument when d is 0.
  QNumber(mpz_srcptr n, mpz_srcptr d);
  // Decimal text "n" or "n/d" (optional leading '-'), always the big form.
  // Throws std::invalid_argument on malformed text or a zero denominator.
  static QNumber from_decimal(std::string_view text);

  QNumber(QNumber const& other);
  QNumber(QNumber&& other) noexcept : num_(other.num_), den_(other.den_) {
    other.num_.small = 0;
    other.den_ = 1;
  }
  // Copies the value.  A big destination stays big; a small destination
  // becomes big when the source is big.  Self-assignment does nothing.  There
  // is deliberately no move assignment: assignment from a temporary follows
  // the same form rules.
  QNumber& operator=(QNumber const& other);
  ~QNumber();

  bool is_big() const noexcept { return den_ == 0; }
  std::int64_t small_num() const noexcept { return num_.small; } // small form only
  std::int64_t small_den() const noexcept { return den_; }       // small form only
  mpz_srcptr big_num() const noexcept { return num_.big->num; }  // big form only
  mpz_srcptr big_den() const noexcept { return num_.big->den; }  // big form only

  // Numerator and denominator into initialised GMP integers, either form.
  void get_num(mpz_ptr out) const;
  void get_den(mpz_ptr out) const;
  // "n" for integers, "n/d" otherwise, in decimal.
  std::string to_string() const;

  // Equal values compare equal across forms, since both forms are in lowest
  // terms.  Two small numbers compare as two pairs of words.
  friend bool operator==(QNumber const& a, QNumber const& b) {
    if (a.den_ != 0 && b.den_ != 0) return a.num_.small == b.num_.small && a.den_ == b.den_;
    return equal_mixed(a, b);
  }
  // Exact order of the two values.  Writes gcd_cache (small pairs) and
  // gmp_tmp (GMP fallback), hence not reentrant.
  friend bool operator<(QNumber const& a, QNumber const& b);

  // Scratch integers of the order; initialised before main, cleared at exit.
  // Public on purpose: hosts share them, so they are part of the contract.
  static mpz_t gmp_tmp[4];

  // Aborts with a message when the value is not in lowest terms with a
  // positive denominator, or a small part is -2^63.  For tests and fuzzers.
  void check_invariants() const;

private:
  struct Big {
    mpz_t num;
    mpz_t den;
  };
  union Word {
    std::int64_t small;
    Big* big;
  };
  void make_big(); // small -> big with value 0/1; the old value is lost
  static bool equal_mixed(QNumber const& a, QNumber const& b); // at least one big

  Word num_;
  std::int64_t den_;
};

// Entry [x][y] is gcd(x, y) once computed, 0 while unknown.  Global and
// writable on purpose: hosts read and warm it, so it is part of the contract.
extern std::int64_t gcd_cache[1024][1024];

// gcd of two non-negative numbers through gcd_cache: every pair of the Euclid
// chain whose members are both below 1024 is looked up, and on a miss computed
// and stored at [x][y] and [y][x].
std::uint64_t cached_gcd(std::uint64_t x, std::uint64_t y);

} // namespace qorv
