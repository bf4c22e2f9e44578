// Block pool: ours against malloc/free, std::pmr::unsynchronized_pool_resource
// and boost::object_pool, for 24-byte blocks (a hash-table entry of a 64-bit
// key and value).  Two patterns: an allocate/release pair on a warm allocator,
// and bursts of n allocations followed by n releases, newest first (the order
// in which boost::object_pool's ordered free list stays O(1) per release).
// One item is one allocation plus its release.
#include "bench_util.h"

#include "support/memory_pool.h"

#include <boost/pool/object_pool.hpp>

#include <cstdlib>
#include <memory_resource>

// The system allocator itself, past the linker's counting wrapper, so the
// peer pays nothing for our bookkeeping.
extern "C" void* __real_malloc(std::size_t n);

namespace qorv::bench {
namespace {

constexpr std::size_t block_size = 24;
struct Block {
  unsigned char bytes[block_size];
};

struct QorvPool {
  MemoryPool<block_size, false> pool{16, 2.0f, 8192};
  void* allocate() { return pool.allocate(); }
  void release(void* p) { pool.release(p); }
};
struct Malloc {
  void* allocate() { return __real_malloc(block_size); }
  void release(void* p) { std::free(p); }
};
struct Pmr {
  std::pmr::unsynchronized_pool_resource pool;
  void* allocate() { return pool.allocate(block_size, alignof(void*)); }
  void release(void* p) { pool.deallocate(p, block_size, alignof(void*)); }
};
struct BoostObjectPool {
  boost::object_pool<Block> pool;
  void* allocate() { return pool.malloc(); }
  void release(void* p) { pool.free(static_cast<Block*>(p)); }
};

template <class Impl>
void pair(benchmark::State& state) {
  Impl a;
  constexpr int batch = 1024;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) {
      void* p = a.allocate();
      benchmark::DoNotOptimize(p);
      a.release(p);
    }
  }
  state.SetItemsProcessed(state.iterations() * batch);
}

template <class Impl>
void burst(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  Impl a;
  std::vector<void*> live(n);
  // One untimed burst first: every allocator starts the timed loop warm,
  // with its memory obtained and touched.
  for (std::size_t i = 0; i < n; ++i)
    live[i] = a.allocate();
  for (std::size_t i = n; i-- > 0;)
    a.release(live[i]);
  for (auto _ : state) {
    for (std::size_t i = 0; i < n; ++i)
      live[i] = a.allocate();
    benchmark::DoNotOptimize(live.data());
    for (std::size_t i = n; i-- > 0;)
      a.release(live[i]);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// boost::object_pool keeps its free list sorted by address; once its blocks
// lie out of address order a release walks the list, and a burst of a
// million turns quadratic (minutes), so its bursts stop at 1e5.
template <class Impl>
void register_impl(char const* impl, std::int64_t max_burst = 1000000) {
  benchmark::RegisterBenchmark(bench_name("pool.pair", impl, 1).c_str(), pair<Impl>);
  for (std::int64_t n : {1000, 100000, 1000000})
    if (n <= max_burst)
      benchmark::RegisterBenchmark(bench_name("pool.burst", impl, n).c_str(), burst<Impl>)->Arg(n);
}

[[maybe_unused]] int const registered = [] {
  register_impl<QorvPool>("qorv");
  register_impl<Malloc>("malloc");
  register_impl<Pmr>("pmr_unsync_pool");
  register_impl<BoostObjectPool>("boost_object_pool", 100000);
  return 0;
}();

} // namespace
} // namespace qorv::bench
