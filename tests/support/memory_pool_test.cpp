// The block pool: chunk growth, block order, reuse and allocation failure.
#include "support/memory_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <vector>

namespace {

using Pool = qorv::MemoryPool<24, false>;
using Sizes = std::vector<std::uint64_t>;

// Chunk sizes as seen through allocate(): blocks handed out between chunk
// appearances.  Blocks of one chunk ascend by the block size.
TEST(MemoryPool, ChunkSizesDoubleToTheMaximumAndBlocksAscend) {
  Pool pool(16, 2.0f, 8192);
  EXPECT_EQ(pool.chunk_count(), 0u) << "a new pool holds no memory";
  Sizes sizes;
  char* prev = nullptr;
  for (std::uint64_t chunks = 0, n = 0; sizes.size() < 11; ++n) {
    char* b = static_cast<char*>(pool.allocate());
    if (pool.chunk_count() != chunks) {
      if (chunks) sizes.push_back(n);
      chunks = pool.chunk_count(), n = 0;
    } else {
      ASSERT_EQ(b - prev, 24) << "block " << n << " of chunk " << chunks;
    }
    prev = b;
  }
  EXPECT_EQ(sizes, (Sizes{16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 8192}));
  pool.check_invariants();

  // Growth is computed in single precision and truncated; 0 means no maximum,
  // and a size beyond 64 bits saturates.
  Pool odd(16, 1.5f, 0);
  for (std::uint64_t e : {16, 24, 36, 54, 81, 121, 181}) {
    EXPECT_EQ(odd.next_chunk_size(), e);
    odd.grow_pool();
  }
  EXPECT_EQ(qorv::detail::pool_next_size(std::uint64_t{1} << 40, 2.0f, 0), std::uint64_t{1} << 41);
  EXPECT_EQ(qorv::detail::pool_next_size(std::uint64_t{1} << 63, 4.0f, 0), UINT64_MAX);
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

// Failing chunk allocations at every point are the hardening scenarios'
// job; a chunk size that overflows is refused before malloc is asked.
TEST(MemoryPool, OverflowingChunkSizeIsRefused) {
  Pool huge(UINT64_MAX / 2, 2.0f, 0);
  EXPECT_THROW(huge.allocate(), std::bad_alloc) << "an overflowing chunk size is refused";
  EXPECT_EQ(huge.chunk_count(), 0u);
}

} // namespace
