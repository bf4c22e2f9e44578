// qorv::MemoryPool<N, false>: a fixed-size block allocator.
//
// Hands out blocks of N bytes carved from chunks obtained with malloc, keeps
// released blocks on an intrusive LIFO free list, and returns memory to the
// system only when the pool is destroyed.  A chunk is one link word (the
// previously obtained chunk) followed by its blocks, contiguous and in
// increasing address order, so blocks are pointer aligned and carry no header.
//
// Chunk sizes: the first chunk holds `next_chunk_size` blocks; after each chunk
// that count is multiplied by `growth` in single precision, truncated, and
// capped at `max_chunk_size` (0 = no cap).  With (16, 2.0, 8192) the chunks
// hold 16, 32, ..., 4096 blocks and then 8192 for ever.
//
// Guarantees: allocate() is a few pointer operations unless the free list is
// empty; when malloc fails, std::bad_alloc is raised before any field changes,
// so the pool stays usable and a later allocate() retries with the same size.
// The pool never runs destructors: owners destroy their objects before
// releasing blocks or destroying the pool.  Blocks never move; a block stays
// valid until it is released or the pool is destroyed.  Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qorv {

namespace detail {
// Obtains a chunk of `blocks` blocks of `block_size` bytes, links it in front
// of `chunks`, chains its blocks and returns the first one.  Throws
// std::bad_alloc (and changes nothing) when the size overflows or malloc fails.
void* pool_new_chunk(std::size_t block_size, std::uint64_t blocks, void*& chunks);
// Next chunk size after a chunk of n blocks, as the pool's growth rule says.
std::uint64_t pool_next_size(std::uint64_t n, float growth, std::uint64_t max_chunk_size);
// Frees every chunk of a chunk list.
void pool_free_chunks(void* chunks) noexcept;
// Consistency of a pool; aborts with a message on the first violation.
void pool_check(std::size_t block_size, std::uint64_t next_chunk_size, void const* chunks,
                void const* free_list);
std::uint64_t pool_count_chunks(void const* chunks) noexcept;
std::uint64_t pool_count_free(void const* free_list) noexcept;
} // namespace detail

// The second argument does nothing; it is kept deliberately, since hosts
// spell the type MemoryPool<N, false>.
template <std::size_t N, bool Unused = false>
class MemoryPool {
  static_assert(!Unused, "only MemoryPool<N, false> exists");
  static_assert(N >= sizeof(void*) && N % alignof(void*) == 0,
                "a block must hold a link word and keep pointer alignment");

public:
  MemoryPool(std::uint64_t next_chunk_size, float growth, std::uint64_t max_chunk_size)
      : next_chunk_size_(next_chunk_size == 0 ? 1 : next_chunk_size), growth_(growth),
        max_chunk_size_(max_chunk_size) {}
  MemoryPool(MemoryPool const&) = delete;
  MemoryPool& operator=(MemoryPool const&) = delete;
  ~MemoryPool() { detail::pool_free_chunks(chunks_); }

  // One block of N bytes, pointer aligned; the caller constructs in it.
  void* allocate() {
    if (!free_list_) free_list_ = grow_pool();
    void* block = free_list_;
    free_list_ = *static_cast<void**>(block);
    return block;
  }

  // Gives a block back (its object already destroyed); reused first.
  void release(void* block) noexcept {
    *static_cast<void**>(block) = free_list_;
    free_list_ = block;
  }

  // Obtains one chunk and returns its first block, all blocks chained.
  void* grow_pool() {
    void* first = detail::pool_new_chunk(N, next_chunk_size_, chunks_);
    next_chunk_size_ = detail::pool_next_size(next_chunk_size_, growth_, max_chunk_size_);
    return first;
  }

  std::uint64_t next_chunk_size() const noexcept { return next_chunk_size_; }
  std::uint64_t chunk_count() const noexcept { return detail::pool_count_chunks(chunks_); }
  std::uint64_t free_count() const noexcept { return detail::pool_count_free(free_list_); }
  void const* chunk_list() const noexcept { return chunks_; }
  void const* free_list() const noexcept { return free_list_; }

  // Every free block lies on a block boundary inside a chunk, and the free
  // list ends.  Linear in chunks times free blocks: for tests and fuzzers.
  void check_invariants() const { detail::pool_check(N, next_chunk_size_, chunks_, free_list_); }

private:
  std::uint64_t next_chunk_size_;
  float growth_;
  std::uint64_t max_chunk_size_;
  void* chunks_ = nullptr;
  void* free_list_ = nullptr;
};

} // namespace qorv
