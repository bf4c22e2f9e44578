// Hash tables: the reciprocal remainder, bucket-count choice, the iteration
// order that the heuristics' results depend on, block reuse.  Contents, entry
// addresses and the growth points of insert() and operator[] are the
// hashtable fuzz harness's oracles; its corpus replays as a test.
#include "support/hashtable.h"
#include "support/qnumber.h"
#include "tests/common/alloc_failure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using qorv::hsh::HashMap;
using qorv::hsh::primes;
using Set = qorv::hsh::HashSet<std::uint64_t>;
using Keys = std::vector<std::uint64_t>;
namespace detail = qorv::hsh::detail;
constexpr std::uint64_t max64 = ~std::uint64_t{0}, largest = 4294867387;

// The reciprocal remainder equals % on the edges of each prime's multiples,
// of 32 and 64 bits, and on random values of every magnitude.
TEST(Hashtable, FastRemainderAndBucketCountChoice) {
  std::mt19937_64 rng(42);
  for (std::uint64_t p : primes) {
    auto c = detail::reciprocal_of(p);
    ASSERT_EQ(c, detail::make_reciprocal(p));
    Keys hs = {0, 1, p - 1, p, p + 1, 2 * p - 1, max64, max64 - 1, max64 - p};
    for (std::uint64_t k = 0; k < 3; ++k) {
      std::uint64_t top = max64 - max64 % p - k * p;
      hs.insert(hs.end(), {top - 1, top, top + 1, (1ull << 32) - k, (1ull << 32) + k,
                           p * p * (k + 1) - 1, p * p * (k + 1), (1ull << 63) - k});
    }
    for (int i = 0; i < 1 << 16; ++i)
      hs.push_back(i % 2 ? rng() : rng() >> (rng() % 64));
    for (std::uint64_t h : hs)
      if (detail::fast_remainder(h, c, p) != h % p) FAIL() << h << " % " << p;
  }
  for (std::uint64_t p : primes) { // the cached load threshold is the check's edge
    std::uint64_t const t = detail::load_threshold(p);
    EXPECT_TRUE(detail::over_load_limit(t, p) && !detail::over_load_limit(t - 1, p)) << p;
  }
  std::uint64_t const least_primes[][2] = {
      {0, 31}, {31, 31}, {32, 73}, {2764405230, largest}, {largest + 1, largest}, {max64, largest}};
  for (auto [n, p] : least_primes)
    EXPECT_EQ(detail::prime_at_least(n), p) << n;
  Set s;
  s.rehash(31);
  EXPECT_EQ(s.bucket_count(), 31u);
  s.rehash(74);
  EXPECT_EQ(s.bucket_count(), 151u);
}

TEST(Hashtable, IterationOrderFollowsChains) {
  Set s;
  auto keys = [&] { return Keys(s.begin(), s.end()); };
  s.insert(1);
  s.insert(32);
  EXPECT_EQ(keys(), (Keys{32, 1}));
  s.insert(0);
  EXPECT_EQ(keys(), (Keys{0, 32, 1}));
  // 2264 = 31 * 73 + 1 shares bucket 1 before and after growing to 73: the
  // relinked chain comes out reversed.
  s.insert(2264);
  s.rehash(31); // already there: no relinking
  EXPECT_EQ(keys(), (Keys{0, 2264, 32, 1}));
  s.rehash(32);
  EXPECT_EQ(keys(), (Keys{0, 1, 2264, 32}));
}

struct CountingHash {
  static inline int calls = 0;
  std::uint64_t operator()(std::uint64_t k) const noexcept { return ++calls, k; }
};

// Blocks go back for reuse.  clear() destroys values that own memory (big
// rationals), keeps the buckets, and the next entry takes the last block; an
// empty table never hashes.  A value whose copy throws gives its block back:
// the next entry takes it.
TEST(Hashtable, ClearAndFailedCopiesGiveBlocksBack) {
  qorv::QNumber const big = qorv::QNumber::from_decimal("123456789012345678901234567891/7");
  for (bool reset : {false, true}) {
    HashMap<std::uint64_t, qorv::QNumber, CountingHash> m;
    for (std::uint64_t k = 0; k < 40; ++k)
      m[k * 977] = big;
    void const* last = nullptr;
    for (auto it = m.begin(); it != m.end(); ++it)
      last = it.entry();
    m.clear(reset);
    EXPECT_EQ(m.bucket_count(), 73u);
    CountingHash::calls = 0;
    EXPECT_TRUE(m.empty() && m.find(5) == m.end() && !m.contains(5) && m.begin() == m.end());
    EXPECT_EQ(CountingHash::calls, 0) << "an empty table never hashes";
    m[12345] = big;
    EXPECT_EQ(m.begin().entry(), last);
    m.check_invariants();
  }
  struct Fragile {
    bool fail = false;
    Fragile() = default;
    Fragile(Fragile const& o) : fail(o.fail) {
      if (fail) throw std::runtime_error("copy");
    }
  };
  HashMap<std::uint64_t, Fragile> m;
  m[1];
  std::pair<std::uint64_t, Fragile> v{2, {}};
  v.second.fail = true;
  EXPECT_THROW(m.insert(v), std::runtime_error);
  EXPECT_EQ(m.size(), 1u);
  m[3];
  EXPECT_EQ(m.find(3).entry(), m.find(1).entry() + 1) << "blocks of a chunk ascend";
}

// operator[] builds (key, V()) on every call and before the load check: with
// a mapped type whose default constructor allocates, a failing allocation
// comes out of a lookup of a present key.  At the load limit the pair's
// allocation comes first and the bucket array's second, so failing the
// second leaves the table at 31 buckets.  The entry never moves.
TEST(Hashtable, SubscriptBuildsItsPairFirstEvenForAPresentKey) {
  struct Owning {
    std::vector<int> heap = std::vector<int>(4, 7);
  };
  HashMap<std::uint64_t, Owning> m;
  for (std::uint64_t k = 0; k < 21; ++k)
    m[k].heap[0] = static_cast<int>(k);
  Owning* const where = &m.find(5)->second;
  for (std::int64_t failing : {0, 1}) { // 21 entries (no growth), then 22 (growth)
    qorv::test::AllocationFailure fail(failing);
    EXPECT_THROW(m[5], std::bad_alloc) << failing;
    EXPECT_EQ(m.bucket_count(), 31u) << failing;
    m[21];
  }
  EXPECT_TRUE(m.size() == 22 && &m[5] == where && where->heap[0] == 5);
  EXPECT_EQ(m.bucket_count(), 73u);
}

} // namespace
