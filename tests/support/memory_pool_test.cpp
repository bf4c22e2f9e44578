// The block pool: chunk growth, block order and last-in-first-out reuse.
// Failed growth is the pool growth scenario of the hardening tests.
#include "support/memory_pool.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace {

using Pool = qorv::MemoryPool<24, false>;

// Pool blocks of one chunk ascend by the block size.  Growth is computed in
// single precision and truncated; 0 means no maximum, a size beyond 64 bits
// saturates, and a chunk size that overflows is refused before malloc is
// asked.  Doubling up to the maximum is pinned by the failure points of the
// pool growth hardening scenario.
TEST(MemoryPool, ChunkGrowthAndBlockOrder) {
  Pool pool(16, 1.5f, 0);
  EXPECT_EQ(pool.chunk_count(), 0u) << "a new pool holds no memory";
  char* const first = static_cast<char*>(pool.allocate());
  for (std::ptrdiff_t n = 1; n < 16; ++n)
    ASSERT_EQ(static_cast<char*>(pool.allocate()) - first, 24 * n);
  EXPECT_EQ(pool.chunk_count(), 1u);
  for (std::uint64_t e : {24, 36, 54, 81, 121, 181}) {
    EXPECT_EQ(pool.next_chunk_size(), e);
    pool.grow_pool();
  }
  pool.check_invariants();
  EXPECT_EQ(qorv::detail::pool_next_size(std::uint64_t{1} << 40, 2.0f, 0), std::uint64_t{1} << 41);
  EXPECT_EQ(qorv::detail::pool_next_size(std::uint64_t{1} << 63, 4.0f, 0), UINT64_MAX);
  Pool huge(UINT64_MAX / 2, 2.0f, 0);
  EXPECT_THROW(huge.allocate(), std::bad_alloc);
  EXPECT_EQ(huge.chunk_count(), 0u);
}

TEST(MemoryPool, ReleasedBlocksAreReusedLastInFirstOut) {
  Pool pool(16, 2.0f, 8192);
  std::vector<void*> got;
  for (int i = 0; i < 16; ++i)
    got.push_back(pool.allocate());
  pool.release(got[3]);
  pool.release(got[7]);
  EXPECT_EQ(pool.allocate(), got[7]);
  EXPECT_EQ(pool.allocate(), got[3]);
  EXPECT_EQ(pool.chunk_count(), 1u);

  Pool single(1, 1.0f, 1); // the only block of a chunk ends the chain
  void* first = single.allocate();
  EXPECT_EQ(single.free_list(), nullptr);
  EXPECT_NE(single.allocate(), first);
  EXPECT_EQ(single.chunk_count(), 2u);
  single.check_invariants();
}

} // namespace
