#include "support/alloc_failure.h"
#include "support/memory_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <vector>

namespace {

using qorv::MemoryPool;
using Pool = MemoryPool<24, false>;

// Allocates until a new chunk appears; returns how many blocks the previous
// chunk handed out (the pool never releases here).
std::uint64_t blocks_until_next_chunk(Pool& pool, std::vector<void*>& out) {
  std::uint64_t chunks = pool.chunk_count(), n = 0;
  for (;;) {
    void* b = pool.allocate();
    if (pool.chunk_count() != chunks) {
      out.push_back(b);
      return n;
    }
    out.push_back(b);
    ++n;
  }
}

TEST(MemoryPool, ChunkSizesDoubleUpToTheMaximumThenStay) {
  Pool pool(16, 2.0f, 8192);
  EXPECT_EQ(pool.chunk_count(), 0u) << "a new pool holds no memory";
  std::vector<void*> blocks;
  pool.allocate(); // first chunk: 16 blocks
  std::vector<std::uint64_t> sizes;
  for (int i = 0; i < 11; ++i) sizes.push_back(blocks_until_next_chunk(pool, blocks) + 1);
  // The first entry counts the 16 blocks of chunk 1 (one was taken before).
  EXPECT_EQ(sizes, (std::vector<std::uint64_t>{16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192,
                                               8192}));
  EXPECT_EQ(pool.next_chunk_size(), 8192u);
  pool.check_invariants();
}

TEST(MemoryPool, GrowthRuleTruncatesInSinglePrecisionAndZeroMeansNoMaximum) {
  std::uint64_t expected[] = {16, 24, 36, 54, 81, 121, 181};
  Pool odd(16, 1.5f, 0);
  for (std::uint64_t e : expected) {
    EXPECT_EQ(odd.next_chunk_size(), e);
    odd.grow_pool(); // chains a fresh chunk; blocks stay owned by the pool
  }
  Pool uncapped(1u << 20, 2.0f, 0);
  EXPECT_EQ(qorv::detail::pool_next_size(std::uint64_t{1} << 40, 2.0f, 0), std::uint64_t{1} << 41);
  EXPECT_EQ(qorv::detail::pool_next_size(std::uint64_t{1} << 63, 4.0f, 0), UINT64_MAX)
      << "growth beyond 64 bits saturates";
  EXPECT_EQ(uncapped.chunk_count(), 0u);
}

TEST(MemoryPool, BlocksComeInAddressOrderAndAreReusedLastInFirstOut) {
  Pool pool(16, 2.0f, 8192);
  std::vector<char*> got;
  for (int i = 0; i < 16; ++i) got.push_back(static_cast<char*>(pool.allocate()));
  for (int i = 1; i < 16; ++i) EXPECT_EQ(got[i] - got[i - 1], 24) << "block " << i;
  EXPECT_EQ(pool.free_count(), 0u);
  void* a = got[3];
  void* b = got[7];
  pool.release(a);
  pool.release(b);
  EXPECT_EQ(pool.allocate(), b);
  EXPECT_EQ(pool.allocate(), a);
  EXPECT_EQ(pool.chunk_count(), 1u);
  pool.check_invariants();
}

TEST(MemoryPool, SingleBlockChunksEndTheirChain) {
  Pool pool(1, 1.0f, 1);
  void* first = pool.allocate();
  EXPECT_EQ(pool.free_list(), nullptr) << "the only block of the chunk ends the chain";
  void* second = pool.allocate();
  EXPECT_NE(first, second);
  EXPECT_EQ(pool.chunk_count(), 2u);
  pool.check_invariants();
}

TEST(MemoryPool, FailedMallocChangesNothingAndCanBeRetried) {
  Pool pool(16, 2.0f, 8192);
  for (int i = 0; i < 16; ++i) pool.allocate();
  std::uint64_t next = pool.next_chunk_size();
  void const* chunks = pool.chunk_list();
  {
    qorv::test::AllocationFailure guard(0);
    EXPECT_THROW(pool.allocate(), std::bad_alloc);
    EXPECT_TRUE(qorv::test::allocation_failure_fired());
  }
  EXPECT_EQ(pool.next_chunk_size(), next);
  EXPECT_EQ(pool.chunk_list(), chunks);
  EXPECT_EQ(pool.free_list(), nullptr);
  pool.check_invariants();
  EXPECT_NE(pool.allocate(), nullptr) << "retry after the failure";
  EXPECT_EQ(pool.free_count(), next - 1) << "the retried chunk has the size that failed";

  Pool huge(UINT64_MAX / 2, 2.0f, 0);
  EXPECT_THROW(huge.allocate(), std::bad_alloc) << "an overflowing chunk size is refused";
  EXPECT_EQ(huge.chunk_count(), 0u);
}

} // namespace
