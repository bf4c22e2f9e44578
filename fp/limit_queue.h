// LimitQueue: the queue of (trail position, value) limits of a search frame,
// and LimitBlockPool, the recycler that its blocks may come from.
//
// A LimitQueue grows at its front only.  Its limits live in blocks, each a
// header and a run of slots; the front block fills from its last slot toward
// its first, and a full front block gets a new block in front of it, twice
// its size (8 slots first, at most 4096).  So an insertion at the front costs
// constant time and never moves a stored limit: references to limits stay
// valid until the queue is cleared, assigned or destroyed.  Reading the
// front and the back is constant time, reading by index walks the blocks
// from the front (logarithmic in the size), iteration runs front to back.
// An empty queue holds no block and has allocated nothing.
//
// Copies are deep: every limit is copy-constructed in fresh slots, so a copy
// and its source change independently.  A copy takes its blocks from the
// heap; copy assignment first gives the old blocks back and then copies into
// blocks from the destination's own source (with a pool, the blocks just
// given back, still in cache); should a copy fail, the destination is left
// empty.
//
// Blocks come from the global operator new unless the queue is given a
// LimitBlockPool; then they come from and go back to the pool, which keeps
// released blocks by size for reuse and returns them to the system only when
// it is destroyed.  Blocks belong to no pool in particular, so a block may go
// back to another pool or to the heap; a pool must only outlive every queue
// that still points to it.  A move-constructed queue takes over the blocks
// and the pool of its source (so only a pool's owner should move its
// queues); move assignment takes the blocks and keeps the destination's pool.
//
// Failure: a block that cannot be obtained raises std::bad_alloc and leaves
// the queue as it was; so does a limit whose copy throws.  Not thread-safe.
#pragma once

#include "../host/ieee_float.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

namespace qorv::fp {

// A limit: its trail position, then its value.
using Limit = std::pair<std::int32_t, IEEEFloat>;

// The header of a block; `capacity` slots of Limit follow it directly.
struct LimitBlock {
  LimitBlock* older; // the next block toward the back; null for the oldest
  std::uint32_t capacity;
  std::uint32_t size_class; // capacity == LimitBlock::first_capacity << size_class

  static constexpr std::uint32_t first_capacity = 8;
  static constexpr std::uint32_t class_count = 10; // 8 .. 4096 slots

  Limit* slots() noexcept { return reinterpret_cast<Limit*>(this + 1); }
  Limit* slots_end() noexcept { return slots() + capacity; }
};
static_assert(sizeof(LimitBlock) % alignof(Limit) == 0, "slots follow the header aligned");

// Released blocks, kept by size class for reuse (last released, first
// reused); all freed when the pool is destroyed.
class LimitBlockPool {
public:
  LimitBlockPool() = default;
  LimitBlockPool(LimitBlockPool const&) = delete;
  LimitBlockPool& operator=(LimitBlockPool const&) = delete;
  ~LimitBlockPool();

  // A block of the class, from the pool when it has one, else new.
  LimitBlock* take(std::uint32_t size_class) {
    if (LimitBlock* b = free_[size_class]) {
      free_[size_class] = b->older;
      return b;
    }
    return make_block(size_class);
  }
  // Keeps a block (its limits already destroyed) for reuse.
  void give(LimitBlock* b) noexcept {
    b->older = free_[b->size_class];
    free_[b->size_class] = b;
  }
  // Blocks currently kept, over all classes.
  std::uint64_t kept() const noexcept;

  // A new block of the class from operator new (std::bad_alloc on failure).
  static LimitBlock* make_block(std::uint32_t size_class);
  static void free_block(LimitBlock* b) noexcept;

private:
  LimitBlock* free_[LimitBlock::class_count] = {};
};

class LimitQueue {
public:
  template <bool Const>
  class basic_iterator {
  public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Limit;
    using difference_type = std::ptrdiff_t;
    using pointer = std::conditional_t<Const, Limit const*, Limit*>;
    using reference = std::conditional_t<Const, Limit const&, Limit&>;

    basic_iterator() = default;
    basic_iterator(LimitBlock* block, Limit* at) noexcept : block_(block), at_(at) {}
    template <bool Other>
    requires(Const && !Other) basic_iterator(basic_iterator<Other> const& it)
    noexcept : block_(it.block_), at_(it.at_) {}

    reference operator*() const noexcept { return *at_; }
    pointer operator->() const noexcept { return at_; }
    basic_iterator& operator++() noexcept {
      if (++at_ == block_->slots_end()) {
        block_ = block_->older;
        at_ = block_ ? block_->slots() : nullptr;
      }
      return *this;
    }
    basic_iterator operator++(int) noexcept {
      basic_iterator old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(basic_iterator const& a, basic_iterator const& b) noexcept {
      return a.at_ == b.at_;
    }

  private:
    template <bool>
    friend class basic_iterator;
    LimitBlock* block_ = nullptr;
    Limit* at_ = nullptr;
  };
  using iterator = basic_iterator<false>;
  using const_iterator = basic_iterator<true>;

  LimitQueue() noexcept = default;
  explicit LimitQueue(LimitBlockPool* pool) noexcept : pool_(pool) {}
  LimitQueue(LimitQueue const& other) : LimitQueue() { copy_from(other); }
  LimitQueue(LimitQueue&& other) noexcept
      : front_(std::exchange(other.front_, nullptr)), first_(std::exchange(other.first_, nullptr)),
        back_(std::exchange(other.back_, nullptr)), size_(std::exchange(other.size_, 0)),
        pool_(other.pool_) {}
  LimitQueue& operator=(LimitQueue const& other);
  LimitQueue& operator=(LimitQueue&& other) noexcept;
  ~LimitQueue() { release_all(); }

  // Where new blocks come from and released ones go from now on (null: the
  // heap).  Blocks already held stay.
  void set_pool(LimitBlockPool* pool) noexcept { pool_ = pool; }
  LimitBlockPool* pool() const noexcept { return pool_; }

  // Constructs a limit in front of the others.  Constant time; moves nothing.
  template <class... Args>
  Limit& emplace_front(Args&&... args) {
    if (!front_ || first_ == front_->slots()) return *grow_and_emplace(std::forward<Args>(args)...);
    Limit* slot = first_ - 1;
    ::new (static_cast<void*>(slot)) Limit(std::forward<Args>(args)...);
    first_ = slot;
    ++size_;
    return *slot;
  }

  // Replaces the contents by (front_position, front_value) followed by the
  // positions of `src`, front to back, each paired with a copy of the value
  // that the limit before it held in `src` (the first with front_value); the
  // back value of `src` is left out.  That is a copy of `src` on which one
  // insertion at the front and one shift of the values toward the back have
  // been made, built in a single pass: every value is copy-constructed once.
  // On an exception this queue is left empty.
  void assign_shifted(LimitQueue const& src, std::int32_t front_position,
                      IEEEFloat const& front_value);

  // Destroys every limit and gives every block back.
  void clear() noexcept { release_all(); }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  Limit& front() noexcept { return assert(size_ && "front of an empty queue"), *first_; }
  Limit const& front() const noexcept {
    return assert(size_ && "front of an empty queue"), *first_;
  }
  Limit& back() noexcept { return assert(size_ && "back of an empty queue"), *back_; }
  Limit const& back() const noexcept { return assert(size_ && "back of an empty queue"), *back_; }
  Limit& operator[](std::size_t i) noexcept { return *at(i); }
  Limit const& operator[](std::size_t i) const noexcept { return *at(i); }

  iterator begin() noexcept { return iterator(front_, first_); }
  iterator end() noexcept { return iterator(); }
  const_iterator begin() const noexcept { return const_iterator(front_, first_); }
  const_iterator end() const noexcept { return const_iterator(); }

  // Blocks held, front to back (for tests).
  std::size_t block_count() const noexcept;

private:
  template <class... Args>
  Limit* grow_and_emplace(Args&&... args) {
    LimitBlock* b = new_front_block(); // throws before anything changes
    Limit* slot = b->slots_end() - 1;
    try {
      ::new (static_cast<void*>(slot)) Limit(std::forward<Args>(args)...);
    } catch (...) {
      drop_block(b);
      throw;
    }
    link_front_block(b, slot);
    return slot;
  }

  Limit* at(std::size_t i) const noexcept;
  LimitBlock* new_front_block() const;
  void link_front_block(LimitBlock* b, Limit* slot) noexcept;
  void drop_block(LimitBlock* b) const noexcept;
  template <class Make>
  void mirror(LimitQueue const& src, Make make);
  void copy_from(LimitQueue const& other);
  void release_all() noexcept;

  LimitBlock* front_ = nullptr; // block holding the front limit
  Limit* first_ = nullptr;      // the front limit
  Limit* back_ = nullptr;       // the back limit (last slot of the oldest block)
  std::size_t size_ = 0;
  LimitBlockPool* pool_ = nullptr;
};

} // namespace qorv::fp
