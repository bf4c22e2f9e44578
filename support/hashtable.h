// qorv::hsh::Hashtable, HashMap and HashSet: separately chained hash tables
// over prime-sized bucket arrays, every entry in its own pool block.
//
// Layout: a MemoryPool of entry blocks (16, 2.0, 8192), the bucket array (one
// chain head per bucket, null when empty) and the element count; two derived
// members follow.  One caches the exact reciprocal of the bucket count, so
// that a key's bucket index (hash modulo bucket count) costs a few
// multiplications instead of a hardware 64-bit division while staying
// bit-identical to `%`; the other caches the least element count at which the
// single-precision load check fires, so that the check costs one comparison
// and gives the same answer for every count.
//
// Invariants: the bucket count is an entry of `primes` (31 for a new table);
// every entry lies in the chain of its key's bucket; keys are unique; the
// element count equals the number of linked entries.  New entries go to the
// head of their chain; iteration visits buckets by increasing index and each
// chain from its head.  Before every insertion (also one that finds its key
// present, so also every HashMap::operator[]) the table grows to the next
// prime when count / buckets, divided in single precision, exceeds 0.7.
//
// Entries never move: a reference or pointer to a stored value stays valid
// across insertions and rehashing, until clear() or destruction.  Iterators
// are invalidated by any insertion (which may rehash), rehash() and clear().
//
// Failure: allocation failures (pool chunk, bucket array, copy of a value)
// raise std::bad_alloc.  A failed insertion leaves entries and count as they
// were (a rehash may already have happened); a failed rehash changes nothing.
// Hash and equality objects must not throw.  Not thread-safe.
#pragma once

#include "invariant.h"
#include "memory_pool.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace qorv::hsh {

// Hash function objects return an unsigned 64-bit number.  The primary
// template is left undefined: each key type gets its own specialisation.
template <class K>
struct hash;

template <>
struct hash<std::uint64_t> {
  std::uint64_t operator()(std::uint64_t k) const noexcept { return k; }
};

template <class K>
struct GetKey_identity {
  K const& operator()(K const& v) const noexcept { return v; }
};

template <class K, class V>
struct GetKey_pair {
  K const& operator()(std::pair<K, V> const& v) const noexcept { return v.first; }
};

// The bucket counts, ascending; all below 2^32.
inline constexpr std::uint64_t primes[28] = {
    31,       73,        151,       313,       643,        1291,       2593,
    5233,     10501,     21013,     42073,     84181,      168451,     337219,
    674701,   1349473,   2699299,   5398891,   10798093,   21596719,   43193641,
    86387383, 172775299, 345550609, 691101253, 1382202559, 2764405229, 4294867387};

namespace detail {

__extension__ using uint128 = unsigned __int128;

// ceil(2^128 / p) for a divisor p in [2, 2^64), split into two words to keep
// the table's alignment at 8.
struct Reciprocal {
  std::uint64_t lo, hi;
  friend bool operator==(Reciprocal, Reciprocal) = default;
};

constexpr Reciprocal make_reciprocal(std::uint64_t p) noexcept {
  uint128 m = ~uint128{0} / p + 1;
  return {static_cast<std::uint64_t>(m), static_cast<std::uint64_t>(m >> 64)};
}

// h % p without a division (Lemire, Kaser and Kurz, "Faster remainder by
// direct computation", 2019): with c = ceil(2^128 / p), the remainder is the
// top 128 bits of (c * h mod 2^128) * p.  Exact for every 64-bit h because
// c * p - 2^128 < p <= 2^64.
inline std::uint64_t fast_remainder(std::uint64_t h, Reciprocal c, std::uint64_t p) noexcept {
  uint128 low = static_cast<uint128>(c.lo) * h; // c * h mod 2^128, in two words
  auto f0 = static_cast<std::uint64_t>(low);
  std::uint64_t f1 = static_cast<std::uint64_t>(low >> 64) + c.hi * h;
  uint128 top = (static_cast<uint128>(f0) * p) >> 64;
  top += static_cast<uint128>(f1) * p;
  return static_cast<std::uint64_t>(top >> 64);
}

// Smallest entry of `primes` not below n; the largest entry for any n above it.
std::uint64_t prime_at_least(std::uint64_t n) noexcept;
// True when n is an entry of `primes`.
bool is_table_prime(std::uint64_t n) noexcept;
// The reciprocal of a divisor p >= 2: precomputed for the entries of `primes`.
Reciprocal reciprocal_of(std::uint64_t prime) noexcept;
// The load check: whether count / buckets, each converted to single
// precision and divided in single precision, then widened, exceeds 0.7.
// Single precision on purpose: the rehash points (and so the iteration order
// hosts see) follow the float quotient, not the exact one.
inline bool over_load_limit(std::uint64_t count, std::uint64_t buckets) noexcept {
  float const load = static_cast<float>(count) / static_cast<float>(buckets);
  return static_cast<double>(load) > 0.7;
}
// The least element count at which the load check fires for `buckets`
// buckets.  The check only ever turns from false to true as the count grows
// (conversion and division round monotonically), so `count >= threshold` is
// exactly the check.  Precomputed for the entries of `primes`.
std::uint64_t load_threshold(std::uint64_t buckets) noexcept;
// Reports a broken table invariant and aborts.
[[noreturn]] void table_violation(char const* what) noexcept;

} // namespace detail

template <class V, class GetKey, class K, class Hash = hash<K>, class Eq = std::equal_to<K>>
class Hashtable {
public:
  struct Bucket {
    Bucket* next;
    V value;
  };
  static_assert(alignof(Bucket) <= alignof(void*), "pool blocks are only pointer aligned");

  // Holds the table, the bucket index and the designated entry; end() holds
  // no entry and the bucket count as its index.
  template <bool Const>
  class basic_iterator {
    using Table = std::conditional_t<Const, Hashtable const, Hashtable>;

  public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = V;
    using difference_type = std::ptrdiff_t;
    using pointer = std::conditional_t<Const, V const*, V*>;
    using reference = std::conditional_t<Const, V const&, V&>;

    basic_iterator() = default;
    basic_iterator(Table* table, unsigned long index, Bucket* entry) noexcept
        : table_(table), index_(index), entry_(entry) {}
    // An iterator converts implicitly to a const_iterator.
    template <bool Other>
    requires(Const && !Other) basic_iterator(basic_iterator<Other> const& it)
    noexcept : table_(it.table()), index_(it.index()), entry_(it.entry()) {}

    reference operator*() const noexcept {
      assert(entry_ && "dereferencing end()");
      return entry_->value;
    }
    pointer operator->() const noexcept { return &**this; }

    basic_iterator& operator++() noexcept {
      assert(entry_ && "incrementing end()");
      entry_ = entry_->next;
      if (entry_) return *this;
      auto const& heads = table_->buckets_;
      while (++index_ < heads.size())
        if ((entry_ = heads[index_])) return *this;
      return *this;
    }
    basic_iterator operator++(int) noexcept {
      basic_iterator old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(basic_iterator const& a, basic_iterator const& b) noexcept {
      return a.entry_ == b.entry_;
    }

    Table* table() const noexcept { return table_; }
    unsigned long index() const noexcept { return index_; }
    Bucket* entry() const noexcept { return entry_; }

  private:
    Table* table_ = nullptr;
    unsigned long index_ = 0;
    Bucket* entry_ = nullptr;
  };
  using iterator = basic_iterator<false>;
  using const_iterator = basic_iterator<true>;

  Hashtable() : buckets_(primes[0], nullptr) {}
  Hashtable(Hashtable const&) = delete;
  Hashtable& operator=(Hashtable const&) = delete;
  ~Hashtable() { destroy_entries(); }

  // Inserts a copy of v unless its key is present.  Either way *index gets
  // the key's bucket index and *entry the entry holding the key.  True when
  // it inserted.  On bad_alloc nothing is linked and the count is unchanged.
  bool do_insert(V const& v, unsigned long* index, Bucket** entry) {
    assert(index && entry && "do_insert reports through both pointers");
    bool inserted = false;
    *entry = emplace(GetKey()(v), index, &inserted, [&v]() -> V { return v; });
    return inserted;
  }

  // do_insert for a value that is built only when its key is absent: make()
  // returns it (a V) and constructs it straight in the new entry's block.
  // Same load check, bucket, chain position and count as do_insert; for a
  // present key, nothing is built.  The entry holding the key is returned.
  template <class Make>
  Bucket* insert_with(K const& key, Make&& make) {
    unsigned long index;
    bool inserted;
    return emplace(key, &index, &inserted, make);
  }

  bool insert(V const& v) {
    unsigned long index;
    Bucket* entry;
    return do_insert(v, &index, &entry);
  }

  iterator find(K const& k) {
    unsigned long i = 0;
    Bucket* b = locate(k, i);
    return b ? iterator(this, i, b) : end();
  }
  const_iterator find(K const& k) const {
    unsigned long i = 0;
    Bucket* b = locate(k, i);
    return b ? const_iterator(this, i, b) : end();
  }
  bool contains(K const& k) const {
    unsigned long i = 0;
    return locate(k, i) != nullptr;
  }

  iterator begin() noexcept { return first<false>(this); }
  const_iterator begin() const noexcept { return first<true>(this); }
  iterator end() noexcept { return iterator(this, buckets_.size(), nullptr); }
  const_iterator end() const noexcept { return const_iterator(this, buckets_.size(), nullptr); }

  // Makes the bucket count at least n (at most the largest prime), relinking
  // every entry into the chain of its new bucket.  Allocates only the new
  // bucket array, before changing anything.
  void rehash(unsigned long n) {
    if (buckets_.size() >= n) return;
    std::uint64_t p = detail::prime_at_least(n);
    std::vector<Bucket*> old(p, nullptr);
    old.swap(buckets_);
    recip_ = detail::reciprocal_of(p);
    grow_at_ = detail::load_threshold(p);
    for (Bucket* head : old) {
      while (head) {
        Bucket* next = head->next;
        Bucket*& chain = buckets_[bucket_of(GetKey()(head->value))];
        head->next = chain;
        chain = head;
        head = next;
      }
    }
    QORV_DEBUG_CHECK(*this);
  }

  // Destroys every entry and gives its block back to the pool, bucket by
  // bucket and each chain from its head, so the next insertion reuses the
  // block of the last entry visited by iteration.  The bucket count stays;
  // reset also replaces the bucket array by a fresh one of the same length
  // (if that allocation fails, the table is empty and keeps its old array).
  void clear(bool reset = false) {
    destroy_entries();
    count_ = 0;
    if (reset) std::vector<Bucket*>(buckets_.size(), nullptr).swap(buckets_);
  }

  // A new, unlinked entry holding a copy of v.
  Bucket* new_Bucket(V const& v) {
    return new_Bucket_with([&v]() -> V { return v; });
  }

  std::uint64_t size() const noexcept { return count_; }
  bool empty() const noexcept { return count_ == 0; }
  std::uint64_t bucket_count() const noexcept { return buckets_.size(); }
  Bucket* const* buckets() const noexcept { return buckets_.data(); }

  // Aborts with a message unless every invariant holds.  Linear in the table
  // size plus the sum of squared chain lengths: for tests and fuzzers.
  void check_invariants() const {
    std::uint64_t n = buckets_.size();
    if (!detail::is_table_prime(n)) detail::table_violation("bucket count is not a table prime");
    if (!(recip_ == detail::reciprocal_of(n)))
      detail::table_violation("cached reciprocal does not match the bucket count");
    if (grow_at_ != detail::load_threshold(n) || !detail::over_load_limit(grow_at_, n) ||
        (grow_at_ != 0 && detail::over_load_limit(grow_at_ - 1, n)))
      detail::table_violation("cached load threshold does not match the bucket count");
    std::uint64_t seen = 0;
    for (std::uint64_t i = 0; i < n; ++i) {
      for (Bucket const* b = buckets_[i]; b; b = b->next) {
        if (++seen > count_) detail::table_violation("more entries linked than counted");
        K const& key = GetKey()(b->value);
        if (static_cast<std::uint64_t>(Hash()(key)) % n != i)
          detail::table_violation("entry in the wrong bucket");
        for (Bucket const* c = b->next; c; c = c->next)
          if (Eq()(GetKey()(c->value), key)) detail::table_violation("duplicate key");
      }
    }
    if (seen != count_) detail::table_violation("fewer entries linked than counted");
    pool_.check_invariants();
  }

private:
  template <bool Const, class Table>
  static basic_iterator<Const> first(Table* t) noexcept {
    auto const& heads = t->buckets_;
    for (unsigned long i = 0; i < heads.size(); ++i)
      if (heads[i]) return basic_iterator<Const>(t, i, heads[i]);
    return basic_iterator<Const>(t, heads.size(), nullptr);
  }

  unsigned long bucket_of(K const& key) const noexcept {
    return detail::fast_remainder(Hash()(key), recip_, buckets_.size());
  }

  // The entry with key k and its bucket index, or null.  An empty table
  // answers without hashing: the key may designate nothing hashable.
  Bucket* locate(K const& k, unsigned long& i) const {
    if (count_ == 0) return nullptr;
    i = bucket_of(k);
    for (Bucket* b = buckets_[i]; b; b = b->next)
      if (Eq()(GetKey()(b->value), k)) return b;
    return nullptr;
  }

  // A fresh, unlinked entry whose value make() builds in place; if building
  // throws, the block goes back to the pool unused.
  template <class Make>
  Bucket* new_Bucket_with(Make&& make) {
    void* block = pool_.allocate();
    try {
      return ::new (block) Bucket{nullptr, make()};
    } catch (...) {
      pool_.release(block);
      throw;
    }
  }

protected:
  // The one insertion path: load check, bucket, chain walk, and on a miss a
  // new entry at the head of its chain, whose value make() returns.
  template <class Make>
  Bucket* emplace(K const& key, unsigned long* index, bool* inserted, Make&& make) {
    grow_if_loaded();
    unsigned long const i = bucket_of(key);
    *index = i;
    *inserted = false;
    for (Bucket* b = buckets_[i]; b; b = b->next)
      if (Eq()(GetKey()(b->value), key)) return b;
    *inserted = true;
    return link_new(i, make);
  }

private:
  // The miss path of emplace, out of line so that lookups of present keys
  // stay small enough to inline.
  template <class Make>
  [[gnu::noinline]] Bucket* link_new(unsigned long i, Make& make) {
    Bucket* fresh = new_Bucket_with(make);
    fresh->next = buckets_[i];
    buckets_[i] = fresh;
    ++count_;
    return fresh;
  }

  // The load check, as one comparison with the cached threshold.
  void grow_if_loaded() {
    if (count_ >= grow_at_) [[unlikely]]
      grow();
  }
  [[gnu::noinline]] void grow() { rehash(buckets_.size() + 1); }

  void destroy_entries() noexcept {
    if (count_ == 0) return;
    for (Bucket*& head : buckets_) {
      for (Bucket* b = head; b;) {
        Bucket* next = b->next;
        b->~Bucket();
        pool_.release(b);
        b = next;
      }
      head = nullptr;
    }
  }

  MemoryPool<sizeof(Bucket), false> pool_{16, 2.0f, 8192};
  std::vector<Bucket*> buckets_;
  std::uint64_t count_ = 0;
  detail::Reciprocal recip_ = detail::make_reciprocal(primes[0]); // derived from buckets_.size()
  std::uint64_t grow_at_ = 22; // derived: load_threshold(buckets_.size()), 22 for 31 buckets
};

template <class K, class V, class Hash = hash<K>, class Eq = std::equal_to<K>>
class HashMap : public Hashtable<std::pair<K, V>, GetKey_pair<K, V>, K, Hash, Eq> {
  using Base = Hashtable<std::pair<K, V>, GetKey_pair<K, V>, K, Hash, Eq>;

public:
  // The mapped value of k, inserting (k, V()) first when k is absent.  The
  // pair (k, V()) is built on every call, present key or not, and before the
  // load check: a mapped type whose default constructor allocates or throws
  // therefore fails here even for a present key, with the table untouched
  // (no rehash, no entry).  Then exactly do_insert with that pair: load check,
  // bucket, chain walk, and for an absent key a copy of the pair in a new
  // entry.  The reference stays valid until clear() or destruction.
  V& operator[](K const& k) {
    std::pair<K, V> const fresh(k, V());
    unsigned long index;
    bool inserted;
    // do_insert(fresh, ...), with the key passed as the value it holds.
    return this->emplace(k, &index, &inserted, [&fresh] { return fresh; })->value.second;
  }
};

template <class K, class Hash = hash<K>, class Eq = std::equal_to<K>>
using HashSet = Hashtable<K, GetKey_identity<K>, K, Hash, Eq>;

} // namespace qorv::hsh
