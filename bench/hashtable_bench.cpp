// Hash containers: ours against std::unordered_map, boost::unordered_map,
// absl::node_hash_map and absl::flat_hash_map, keyed by TheoryLit words and by
// `Term const*` of live terms, all mapping to a 64-bit value.  Each peer uses
// its own default hash for the key, as a user would; ours hashes a literal by
// its word and a term by its identifier (one load from the term).
//
// Operations, each timed per key: insertion into an empty table (growth
// included), lookup of present keys and of absent keys in a shuffled order,
// and the clear-and-refill cycle of the search road (clear, then the same
// keys again).  A last pair of benchmarks times the bucket index alone in a
// dependent chain: the precomputed-reciprocal remainder against `%`.
#include "bench_util.h"

#include "host/theory_lit.h"
#include "support/hashtable.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/node_hash_map.h>
#include <boost/unordered_map.hpp>

#include <memory>
#include <unordered_map>

namespace qorv::bench {
namespace {

// Key sets: `present` is inserted, `absent` never is.  Literal keys are the
// words of live terms' literals with the flag clear; their absent twins are
// the same terms with the flag set.  Term keys absent from the table are
// other live terms.
struct LitKeys {
  using Ours = TheoryLit;
  using Peer = std::uint64_t;
  static Peer peer(Ours k) { return k.word; }
  static void make(std::size_t n, std::vector<Ours>& present, std::vector<Ours>& absent) {
    auto const& terms = live_terms(n);
    for (std::size_t i = 0; i < n; ++i) {
      present.push_back(TheoryLit::make(terms[i], false));
      absent.push_back(TheoryLit::make(terms[i], true));
    }
  }
};
struct TermKeys {
  using Ours = Term const*;
  using Peer = Term const*;
  static Peer peer(Ours k) { return k; }
  static void make(std::size_t n, std::vector<Ours>& present, std::vector<Ours>& absent) {
    auto const& terms = live_terms(2 * n);
    for (std::size_t i = 0; i < n; ++i) {
      present.push_back(terms[2 * i]);
      absent.push_back(terms[2 * i + 1]);
    }
  }
};

template <class Keys>
struct Data {
  std::vector<typename Keys::Ours> insert_order, lookup_order, absent;
  explicit Data(std::size_t n) {
    Keys::make(n, insert_order, absent);
    shuffle(insert_order);
    lookup_order = insert_order;
    shuffle(lookup_order);
    shuffle(absent);
  }
};

template <class Keys>
Data<Keys> const& data(std::size_t n) {
  // One key set per size, made once and kept for the whole run.
  static std::vector<std::unique_ptr<Data<Keys>>> cache;
  for (auto const& d : cache)
    if (d->insert_order.size() == n) return *d;
  return *cache.emplace_back(std::make_unique<Data<Keys>>(n));
}

// Adaptors: one interface over our table and the peers.
template <class Keys>
struct Qorv {
  using Map = hsh::HashMap<typename Keys::Ours, std::uint64_t>;
  static void insert(Map& m, typename Keys::Ours k, std::uint64_t v) {
    m.insert(std::pair<typename Keys::Ours, std::uint64_t>(k, v));
  }
  static std::uint64_t get(Map const& m, typename Keys::Ours k) {
    auto it = m.find(k);
    return it == m.end() ? 0 : it->second;
  }
  static void clear(Map& m) { m.clear(false); }
};

template <class Keys, template <class...> class Container>
struct Peer {
  using Map = Container<typename Keys::Peer, std::uint64_t>;
  static void insert(Map& m, typename Keys::Ours k, std::uint64_t v) {
    m.emplace(Keys::peer(k), v);
  }
  static std::uint64_t get(Map const& m, typename Keys::Ours k) {
    auto it = m.find(Keys::peer(k));
    return it == m.end() ? 0 : it->second;
  }
  static void clear(Map& m) { m.clear(); }
};

template <class K, class V>
using StdMap = std::unordered_map<K, V>;
template <class K, class V>
using BoostMap = boost::unordered_map<K, V>;
template <class K, class V>
using AbslNode = absl::node_hash_map<K, V>;
template <class K, class V>
using AbslFlat = absl::flat_hash_map<K, V>;

template <class Keys, class Impl>
void fill(typename Impl::Map& m, Data<Keys> const& d) {
  std::uint64_t v = 0;
  for (auto k : d.insert_order)
    Impl::insert(m, k, ++v);
}

template <class Keys, class Impl>
void insert_from_empty(benchmark::State& state) {
  auto const& d = data<Keys>(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    auto m = std::make_unique<typename Impl::Map>();
    state.ResumeTiming();
    fill<Keys, Impl>(*m, d);
    benchmark::DoNotOptimize(m.get());
    state.PauseTiming();
    m.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Keys, class Impl, bool Present>
void lookup(benchmark::State& state) {
  auto const& d = data<Keys>(static_cast<std::size_t>(state.range(0)));
  auto m = std::make_unique<typename Impl::Map>();
  fill<Keys, Impl>(*m, d);
  auto const& keys = Present ? d.lookup_order : d.absent;
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (auto k : keys)
      sum += Impl::get(*m, k);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Keys, class Impl>
void clear_refill(benchmark::State& state) {
  auto const& d = data<Keys>(static_cast<std::size_t>(state.range(0)));
  auto m = std::make_unique<typename Impl::Map>();
  fill<Keys, Impl>(*m, d);
  AllocationProbe probe;
  for (auto _ : state) {
    Impl::clear(*m);
    fill<Keys, Impl>(*m, d);
    benchmark::DoNotOptimize(m.get());
  }
  probe.report(state, state.iterations());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Keys, class Impl>
void register_impl(char const* key_name, char const* impl) {
  for (std::int64_t n : {1000, 100000, 1000000}) {
    std::string const k = key_name;
    benchmark::RegisterBenchmark(bench_name(("hash.insert." + k).c_str(), impl, n).c_str(),
                                 insert_from_empty<Keys, Impl>)
        ->Arg(n);
    benchmark::RegisterBenchmark(bench_name(("hash.lookup_hit." + k).c_str(), impl, n).c_str(),
                                 lookup<Keys, Impl, true>)
        ->Arg(n);
    benchmark::RegisterBenchmark(bench_name(("hash.lookup_miss." + k).c_str(), impl, n).c_str(),
                                 lookup<Keys, Impl, false>)
        ->Arg(n);
    benchmark::RegisterBenchmark(bench_name(("hash.refill." + k).c_str(), impl, n).c_str(),
                                 clear_refill<Keys, Impl>)
        ->Arg(n);
  }
}

template <class Keys>
void register_keys(char const* key_name) {
  register_impl<Keys, Qorv<Keys>>(key_name, "qorv");
  register_impl<Keys, Peer<Keys, StdMap>>(key_name, "std_unordered_map");
  register_impl<Keys, Peer<Keys, BoostMap>>(key_name, "boost_unordered_map");
  register_impl<Keys, Peer<Keys, AbslNode>>(key_name, "absl_node_hash_map");
  register_impl<Keys, Peer<Keys, AbslFlat>>(key_name, "absl_flat_hash_map");
}

// The bucket index in a dependent chain: each remainder feeds the next hash,
// so the loop runs at the latency of one index computation.  The divisor is
// hidden from the optimiser, as a table's bucket count is.  `Wide` hashes
// span 64 bits (literal words); narrow ones stay below 2^32 (term ids).
constexpr int chain_length = 4096;

template <bool Wide>
void index_reciprocal(benchmark::State& state) {
  std::uint64_t p = hsh::primes[15];
  benchmark::DoNotOptimize(p);
  hsh::detail::Reciprocal const r = hsh::detail::reciprocal_of(p);
  std::uint64_t const step = Wide ? 0x9E3779B97F4A7C15ULL : 0x9E3779B9ULL;
  std::uint64_t x = 1;
  for (auto _ : state) {
    for (int i = 0; i < chain_length; ++i)
      x = hsh::detail::fast_remainder(x + step, r, p);
    benchmark::DoNotOptimize(x);
  }
  state.SetItemsProcessed(state.iterations() * chain_length);
}

template <bool Wide>
void index_division(benchmark::State& state) {
  std::uint64_t p = hsh::primes[15];
  benchmark::DoNotOptimize(p);
  std::uint64_t const step = Wide ? 0x9E3779B97F4A7C15ULL : 0x9E3779B9ULL;
  std::uint64_t x = 1;
  for (auto _ : state) {
    for (int i = 0; i < chain_length; ++i)
      x = (x + step) % p;
    benchmark::DoNotOptimize(x);
  }
  state.SetItemsProcessed(state.iterations() * chain_length);
}

[[maybe_unused]] int const registered = [] {
  register_keys<LitKeys>("lit");
  register_keys<TermKeys>("term");
  benchmark::RegisterBenchmark(bench_name("hash.bucket_index.wide", "qorv", chain_length).c_str(),
                               index_reciprocal<true>);
  benchmark::RegisterBenchmark(
      bench_name("hash.bucket_index.wide", "hw_division", chain_length).c_str(),
      index_division<true>);
  benchmark::RegisterBenchmark(bench_name("hash.bucket_index.narrow", "qorv", chain_length).c_str(),
                               index_reciprocal<false>);
  benchmark::RegisterBenchmark(
      bench_name("hash.bucket_index.narrow", "hw_division", chain_length).c_str(),
      index_division<false>);
  return 0;
}();

} // namespace
} // namespace qorv::bench
