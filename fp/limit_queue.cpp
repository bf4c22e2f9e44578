// Out-of-line parts of LimitQueue and LimitBlockPool: obtaining, linking and
// giving back blocks, deep copies, and reading by index.
#include "fp/limit_queue.h"

#include <new>

namespace qorv::fp {

LimitBlockPool::~LimitBlockPool() {
  for (LimitBlock*& head : free_) {
    while (head)
      free_block(std::exchange(head, head->older));
  }
}

std::uint64_t LimitBlockPool::kept() const noexcept {
  std::uint64_t n = 0;
  for (LimitBlock const* head : free_)
    for (; head; head = head->older)
      ++n;
  return n;
}

LimitBlock* LimitBlockPool::make_block(std::uint32_t size_class) {
  assert(size_class < LimitBlock::class_count && "no such block size");
  std::uint32_t const capacity = LimitBlock::first_capacity << size_class;
  void* raw = ::operator new (sizeof(LimitBlock) + std::size_t{capacity} * sizeof(Limit));
  return ::new (raw) LimitBlock{nullptr, capacity, size_class};
}

void LimitBlockPool::free_block(LimitBlock* b) noexcept {
  ::operator delete(b);
}

LimitQueue& LimitQueue::operator=(LimitQueue const& other) {
  if (this == &other) return *this;
  release_all();
  copy_from(other);
  return *this;
}

LimitQueue& LimitQueue::operator=(LimitQueue&& other) noexcept {
  if (this == &other) return *this;
  release_all();
  front_ = std::exchange(other.front_, nullptr);
  first_ = std::exchange(other.first_, nullptr);
  back_ = std::exchange(other.back_, nullptr);
  size_ = std::exchange(other.size_, 0);
  return *this; // keeps its own pool: the blocks can go back to any
}

std::size_t LimitQueue::block_count() const noexcept {
  std::size_t n = 0;
  for (LimitBlock const* b = front_; b; b = b->older)
    ++n;
  return n;
}

Limit* LimitQueue::at(std::size_t i) const noexcept {
  assert(i < size_ && "limit index out of range");
  auto in_front = static_cast<std::size_t>(front_->slots_end() - first_);
  if (i < in_front) return first_ + i;
  i -= in_front;
  LimitBlock* b = front_->older;
  while (i >= b->capacity) {
    i -= b->capacity;
    b = b->older;
  }
  return b->slots() + i;
}

// Twice the size of the current front block, up to the largest class.
LimitBlock* LimitQueue::new_front_block() const {
  std::uint32_t size_class = 0;
  if (front_ && front_->size_class + 1 < LimitBlock::class_count)
    size_class = front_->size_class + 1;
  else if (front_)
    size_class = front_->size_class;
  return pool_ ? pool_->take(size_class) : LimitBlockPool::make_block(size_class);
}

void LimitQueue::link_front_block(LimitBlock* b, Limit* slot) noexcept {
  b->older = front_;
  if (!front_) back_ = slot;
  front_ = b;
  first_ = slot;
  ++size_;
}

void LimitQueue::drop_block(LimitBlock* b) const noexcept {
  if (pool_)
    pool_->give(b);
  else
    LimitBlockPool::free_block(b);
}

// Fills this empty queue with one limit per limit of src, block for block:
// the same block sizes with the same slots in use.  make(slot, prev, cur)
// constructs the limit for src's limit `cur` (prev: the one before it, null
// for the front).  On an exception the limits built so far are destroyed and
// every block is given back.
template <class Make>
void LimitQueue::mirror(LimitQueue const& src, Make make) {
  assert(empty() && !front_ && "mirror fills an empty queue");
  LimitBlock* last = nullptr; // the copy made last (the oldest so far)
  Limit const* prev = nullptr;
  Limit const* from = src.first_;
  try {
    for (LimitBlock* block = src.front_; block; block = block->older) {
      LimitBlock* b =
          pool_ ? pool_->take(block->size_class) : LimitBlockPool::make_block(block->size_class);
      b->older = nullptr;
      (last ? last->older : front_) = b;
      last = b;
      Limit* to = b->slots() + (from - block->slots());
      if (!first_) first_ = to;
      for (; from != block->slots_end(); prev = from++, ++to) {
        make(to, prev, *from);
        back_ = to;
        ++size_;
      }
      from = block->older ? block->older->slots() : nullptr;
    }
  } catch (...) {
    release_all();
    throw;
  }
}

void LimitQueue::copy_from(LimitQueue const& other) {
  mirror(other, [](Limit* to, Limit const*, Limit const& cur) {
    ::new (static_cast<void*>(to)) Limit(cur);
  });
}

void LimitQueue::assign_shifted(LimitQueue const& src, std::int32_t front_position,
                                IEEEFloat const& front_value) {
  // Same length and 32/64-bit values (a frame's values share one format):
  // assigning over the limits in place gives exactly the fresh copies, since
  // such a value is its bit pattern, and assignment of these cannot fail.
  // A wide value met on the way sends the rest to the general path.
  if (size_ == src.size_ + 1) {
    iterator to = begin();
    IEEEFloat const* prev = &front_value;
    bool narrow = prev->narrow();
    if (narrow) to->first = front_position, to->second = front_value;
    for (auto cur = src.begin(); narrow && cur != src.end(); ++cur) {
      (++to)->first = cur->first;
      to->second = *prev;
      prev = &cur->second;
      narrow = prev->narrow();
    }
    if (narrow) return;
  }
  release_all();
  mirror(src, [&front_value](Limit* to, Limit const* prev, Limit const& cur) {
    ::new (static_cast<void*>(to)) Limit(cur.first, prev ? prev->second : front_value);
  });
  try {
    emplace_front(front_position, front_value);
  } catch (...) {
    release_all();
    throw;
  }
}

// Destroys the limits front to back, giving each block back once it is empty.
void LimitQueue::release_all() noexcept {
  Limit* at = first_;
  for (LimitBlock* b = front_; b;) {
    for (Limit* end = b->slots_end(); at != end && size_ != 0; ++at, --size_)
      at->~Limit();
    LimitBlock* older = b->older;
    drop_block(b);
    b = older;
    at = b ? b->slots() : nullptr;
  }
  front_ = nullptr, first_ = nullptr, back_ = nullptr, size_ = 0;
}

} // namespace qorv::fp
