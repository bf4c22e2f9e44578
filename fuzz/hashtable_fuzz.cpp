// Differential fuzzing of the hash map against std::unordered_map.
//
// The input is a sequence of operations (insert, operator[], find, clear
// with and without reset, rehash); after every one the table must hold the
// oracle's contents, count them right, keep a table prime as its bucket
// count with every entry in its bucket's chain (check_invariants), and keep
// every stored value at the address it got when inserted; insert() and
// operator[] (present key or not) grow exactly when the load before them
// exceeds 0.7.
#include "fuzz_input.h"
#include "support/hashtable.h"

#include <string>
#include <unordered_map>
#include <utility>

namespace {

using Map = qorv::hsh::HashMap<std::uint64_t, std::string>;
namespace detail = qorv::hsh::detail;

struct Expected {
  std::string value;
  std::string const* address; // where the table keeps the value
};

void check_same(Map const& m, std::unordered_map<std::uint64_t, Expected> const& ref) {
  m.check_invariants();
  FUZZ_CHECK(m.size() == ref.size());
  std::uint64_t visited = 0;
  for (auto const& [k, v] : m) {
    auto it = ref.find(k);
    FUZZ_CHECK(it != ref.end());
    FUZZ_CHECK(it->second.value == v && it->second.address == &v);
    ++visited;
  }
  FUZZ_CHECK(visited == ref.size());
}

// Keys from a small space (hits and misses), multiples of the bucket counts
// (long chains), or anything.
std::uint64_t pick_key(qorv::fuzz::Input& in) {
  std::uint8_t const kind = in.byte() % 4;
  if (kind < 2) return in.byte() % 64;
  return kind == 2 ? std::uint64_t{in.byte()} * 31 * 73 * 151 : in.u64();
}

// Short values live in the string object, longer ones on the heap, so a lost
// destructor shows up as a leak.
std::string pick_value(qorv::fuzz::Input& in) {
  return std::string(in.byte() % 40, 'a' + in.byte() % 26);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  qorv::fuzz::Input in(data, size);
  Map m;
  std::unordered_map<std::uint64_t, Expected> ref;
  while (in.more()) {
    switch (in.byte() % 8) {
    case 0:
    case 1: { // insert
      std::pair<std::uint64_t, std::string> v{pick_key(in),
                                              pick_value(in)}; // braces: key read first
      unsigned long index;
      Map::Bucket* entry;
      bool const inserted = m.do_insert(v, &index, &entry);
      FUZZ_CHECK(inserted == !ref.count(v.first));
      FUZZ_CHECK(entry->value.first == v.first && index == v.first % m.bucket_count());
      if (inserted) ref[v.first] = {v.second, &entry->value.second};
      break;
    }
    case 2:
    case 3: { // operator[], then assignment through the reference; it grows as insert()
      std::uint64_t const k = pick_key(in), before = m.bucket_count(), count = m.size();
      std::string& slot = m[k];
      FUZZ_CHECK((m.bucket_count() != before) == detail::over_load_limit(count, before));
      auto it = ref.find(k);
      if (it == ref.end()) {
        FUZZ_CHECK(slot.empty());
        it = ref.emplace(k, Expected{"", &slot}).first;
      }
      FUZZ_CHECK(&slot == it->second.address);
      if (in.flag()) slot = it->second.value = pick_value(in);
      break;
    }
    case 4: { // find
      std::uint64_t const k = pick_key(in);
      auto it = m.find(k);
      auto r = ref.find(k);
      FUZZ_CHECK((it == m.end()) == (r == ref.end()) && m.contains(k) == (r != ref.end()));
      if (r != ref.end()) FUZZ_CHECK(&it->second == r->second.address);
      break;
    }
    case 5: { // clear, with or without a fresh bucket array
      std::uint64_t const buckets = m.bucket_count();
      m.clear(in.flag());
      ref.clear();
      FUZZ_CHECK(m.bucket_count() == buckets && m.begin() == m.end());
      break;
    }
    case 6: { // rehash to a bound that stays allocatable
      std::uint64_t const before = m.bucket_count();
      unsigned long const n = in.below(1400);
      m.rehash(n);
      FUZZ_CHECK(m.bucket_count() >= before && m.bucket_count() >= n);
      break;
    }
    default: { // insert(): the table grows exactly when the load before exceeds 0.7
      std::uint64_t const before = m.bucket_count();
      float const load = static_cast<float>(m.size()) / static_cast<float>(before);
      std::pair<std::uint64_t, std::string> v{pick_key(in),
                                              pick_value(in)}; // braces: key read first
      bool const fresh = !ref.count(v.first);
      FUZZ_CHECK(m.insert(v) == fresh);
      FUZZ_CHECK((m.bucket_count() != before) == (static_cast<double>(load) > 0.7));
      if (fresh) ref[v.first] = {v.second, &m.find(v.first)->second};
      break;
    }
    }
    check_same(m, ref);
  }
  return 0;
}
