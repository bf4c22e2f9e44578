// A fixed list of ints that keeps up to three of them in place.
//
// The problem's records hold one each: a Def's operands (one to three for
// every operation) and a node's children (none for the atoms, which are most
// nodes).  A std::vector there cost 24 bytes plus a heap block per record;
// an IntList is 16 bytes and allocates only beyond three entries.  Its
// contents are set whole (construction or assignment) and never edited in
// place, which keeps it small: no capacity, no growth.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <utility>
#include <vector>

namespace fpsolve {

class IntList {
public:
  IntList() = default;
  IntList(std::initializer_list<int> xs) { assign(xs.begin(), xs.size()); }
  // Implicit, so that a list built as a vector is assigned as it is.
  IntList(std::vector<int> const& xs) { assign(xs.data(), xs.size()); } // NOLINT
  IntList(IntList const& o) { assign(o.data(), o.size()); }
  IntList(IntList&& o) noexcept : size_(o.size_) {
    std::memcpy(slots_, o.slots_, sizeof slots_);
    o.size_ = 0;
  }
  IntList& operator=(IntList o) noexcept {
    std::swap(size_, o.size_);
    std::swap(slots_, o.slots_);
    return *this;
  }
  ~IntList() {
    if (size_ > kInline) delete[] heap();
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  int const* data() const { return size_ > kInline ? heap() : slots_; }
  int const* begin() const { return data(); }
  int const* end() const { return data() + size_; }
  std::reverse_iterator<int const*> rbegin() const { return std::reverse_iterator(end()); }
  std::reverse_iterator<int const*> rend() const { return std::reverse_iterator(begin()); }
  int operator[](std::size_t i) const { return data()[i]; }
  int front() const { return data()[0]; }
  int back() const { return data()[size_ - 1]; }
  friend bool operator==(IntList const& a, IntList const& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }

private:
  static constexpr std::uint32_t kInline = 3;
  // Beyond kInline entries the slots hold a pointer to them (copied bytewise:
  // the slots are only int-aligned).
  int* heap() const {
    int* h;
    std::memcpy(&h, slots_ + 1, sizeof h);
    return h;
  }
  void assign(int const* xs, std::size_t n) {
    size_ = static_cast<std::uint32_t>(n);
    int* to = slots_;
    if (n > kInline) {
      to = new int[n];
      std::memcpy(slots_ + 1, &to, sizeof to);
    }
    std::copy(xs, xs + n, to);
  }

  std::uint32_t size_ = 0;
  int slots_[kInline] = {};
};

static_assert(sizeof(IntList) == 16, "an IntList is a count and three ints");

} // namespace fpsolve
