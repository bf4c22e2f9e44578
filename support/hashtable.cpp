// Out-of-line parts of the hash tables: choice of the bucket count, the
// precomputed reciprocals of the bucket counts, and invariant reports.
#include "support/hashtable.h"

#include "support/invariant.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace qorv::hsh::detail {

namespace {

constexpr std::size_t prime_count = std::size(primes);

constexpr bool primes_ascending_below_2_32() {
  for (std::size_t i = 0; i < prime_count; ++i) {
    if (primes[i] >= (std::uint64_t{1} << 32) || primes[i] % 2 == 0) return false;
    if (i > 0 && primes[i] <= primes[i - 1]) return false;
  }
  return true;
}
// The reciprocal remainder is exact for odd divisors below 2^32, and the
// bisection needs ascending entries.
static_assert(primes_ascending_below_2_32(), "bucket counts must be ascending, odd, below 2^32");

constexpr std::array<Reciprocal, prime_count> make_reciprocals() {
  std::array<Reciprocal, prime_count> r{};
  for (std::size_t i = 0; i < prime_count; ++i)
    r[i] = make_reciprocal(primes[i]);
  return r;
}
constexpr std::array<Reciprocal, prime_count> reciprocals = make_reciprocals();

// Index of the first entry not below n (prime_count when n exceeds them all).
std::size_t lower_index(std::uint64_t n) noexcept {
  return static_cast<std::size_t>(std::lower_bound(primes, primes + prime_count, n) - primes);
}

} // namespace

std::uint64_t prime_at_least(std::uint64_t n) noexcept {
  std::size_t i = lower_index(n);
  return primes[i < prime_count ? i : prime_count - 1];
}

bool is_table_prime(std::uint64_t n) noexcept {
  std::size_t i = lower_index(n);
  return i < prime_count && primes[i] == n;
}

Reciprocal reciprocal_of(std::uint64_t prime) noexcept {
  std::size_t i = lower_index(prime);
  if (i < prime_count && primes[i] == prime) return reciprocals[i];
  return make_reciprocal(prime); // not a bucket count: computed, never read out of bounds
}

std::uint64_t load_threshold(std::uint64_t buckets) noexcept {
  // Bisection for the least count whose check fires; the check is
  // monotone in the count and fires for 2^64 - 1 (buckets < 2^32).
  auto compute = [](std::uint64_t b) {
    std::uint64_t lo = 0, hi = ~std::uint64_t{0};
    while (lo < hi) {
      std::uint64_t const mid = lo + (hi - lo) / 2;
      if (over_load_limit(mid, b))
        hi = mid;
      else
        lo = mid + 1;
    }
    return lo;
  };
  static std::array<std::uint64_t, prime_count> const thresholds = [&] {
    std::array<std::uint64_t, prime_count> t{};
    for (std::size_t i = 0; i < prime_count; ++i)
      t[i] = compute(primes[i]);
    return t;
  }();
  std::size_t i = lower_index(buckets);
  if (i < prime_count && primes[i] == buckets) return thresholds[i];
  return compute(buckets);
}

void table_violation(char const* what) noexcept {
  invariant_violated("Hashtable", what);
}

} // namespace qorv::hsh::detail
