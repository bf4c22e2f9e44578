// Out-of-line slow paths of MemoryPool: chunk allocation, growth, checks.
#include "support/memory_pool.h"

#include "support/invariant.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace qorv::detail {

void* pool_new_chunk(std::size_t block_size, std::uint64_t blocks, void*& chunks) {
  constexpr std::uint64_t max_bytes = std::numeric_limits<std::size_t>::max() - sizeof(void*);
  if (blocks == 0 || blocks > max_bytes / block_size) throw std::bad_alloc();
  auto* chunk = static_cast<char*>(std::malloc(blocks * block_size + sizeof(void*)));
  if (!chunk) throw std::bad_alloc(); // nothing has changed yet
  *reinterpret_cast<void**>(chunk) = chunks;
  chunks = chunk;
  char* first = chunk + sizeof(void*);
  char* last = first + (blocks - 1) * block_size;
  for (char* b = first; b != last; b += block_size)
    *reinterpret_cast<void**>(b) = b + block_size;
  *reinterpret_cast<void**>(last) = nullptr;
  return first;
}

std::uint64_t pool_next_size(std::uint64_t n, float growth, std::uint64_t max_chunk_size) {
  // The growth rule works in single precision and truncates toward zero; a
  // product beyond the 64-bit range saturates rather than invoking UB.  A
  // product below one block (a growth factor below 1, or NaN) is clamped to
  // one block, so the next chunk size keeps its invariant of at least 1: a
  // chunk of zero blocks would hand out no block and make allocate() fail.
  // With every factor in use (2.0) the product is never below 1, so the
  // clamp changes no chunk size that the tables ask for.
  float product = static_cast<float>(n) * growth;
  std::uint64_t next;
  if (!(product >= 1.0f)) // also catches NaN
    next = 1;
  else if (product >= 18446744073709551616.0f)
    next = std::numeric_limits<std::uint64_t>::max();
  else
    next = static_cast<std::uint64_t>(product);
  if (max_chunk_size != 0 && next > max_chunk_size) next = max_chunk_size;
  return next;
}

void pool_free_chunks(void* chunks) noexcept {
  while (chunks) {
    void* next = *static_cast<void**>(chunks);
    std::free(chunks);
    chunks = next;
  }
}

namespace {
[[noreturn]] void pool_violation(char const* what) {
  invariant_violated("MemoryPool", what);
}

void const* next_of(void const* p) {
  return *static_cast<void* const*>(p);
}

// Floyd's cycle check over a list linked through its first word.
void check_acyclic(void const* head, char const* what) {
  for (void const *slow = head, *fast = head; fast && next_of(fast);) {
    slow = next_of(slow);
    fast = next_of(next_of(fast));
    if (slow == fast) pool_violation(what);
  }
}
} // namespace

void pool_check(std::size_t block_size, std::uint64_t next_chunk_size, void const* chunks,
                void const* free_list) {
  if (next_chunk_size == 0) pool_violation("next chunk size is 0");
  if (block_size < sizeof(void*)) pool_violation("block smaller than a link word");
  check_acyclic(chunks, "chunk list has a cycle");
  check_acyclic(free_list, "free list has a cycle");
  for (void const* b = free_list; b; b = next_of(b))
    if (reinterpret_cast<std::uintptr_t>(b) % alignof(void*) != 0)
      pool_violation("misaligned free block");
  if (free_list && !chunks) pool_violation("free blocks but no chunk");
}

std::uint64_t pool_count_chunks(void const* chunks) noexcept {
  std::uint64_t n = 0;
  for (; chunks; chunks = *static_cast<void* const*>(chunks))
    ++n;
  return n;
}

std::uint64_t pool_count_free(void const* free_list) noexcept {
  std::uint64_t n = 0;
  for (; free_list; free_list = *static_cast<void* const*>(free_list))
    ++n;
  return n;
}

} // namespace qorv::detail
