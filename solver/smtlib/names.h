// NameTable: the elaborator's global scope, a map from names to 32-bit
// values that grows by insertion and shrinks in stack order (marks).
//
// Every name is copied once into one string, back to back in binding order,
// each after its length (one byte below 255, else 255 and four bytes).  The
// table is open addressing with linear probing over a power-of-two array of
// 8-byte slots (the name's offset in that string and its value), at most
// 80 % full: a name costs its characters and about 12 bytes, where a
// standard map costs a string and a hash node (about 120 bytes).  A long
// script declares hundreds of thousands of names, and the scope lives as
// long as the problem, through the whole search.
//
// Marks: push_mark opens a level and pop_mark removes every name bound since
// the matching push_mark.  Those names are the suffix of the string from the
// mark, read one after the other.
//
// Invariants: every bound name has exactly one slot, found from its hash by
// probing without crossing an empty slot; the string holds exactly the bound
// names; size() * 5 <= capacity * 4.  Allocation failures raise
// std::bad_alloc and leave the table as it was; more than 4 GB of names
// raise std::length_error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fpsolve {

class NameTable {
public:
  // Writes the value bound to name into *value and answers true, else
  // answers false.
  bool find(std::string_view name, std::uint32_t* value) const;
  // Binds a name that is not bound.
  void insert(std::string_view name, std::uint32_t value);
  std::size_t size() const noexcept { return size_; }

  void push_mark() { marks_.push_back(chars_.size()); }
  // Removes the names bound since the newest open mark; there must be one.
  void pop_mark();
  std::size_t marks() const noexcept { return marks_.size(); }
  // Gives back the spare room the name string grew by doubling.
  void shrink_to_fit() { chars_.shrink_to_fit(); }

private:
  static constexpr std::uint32_t kEmpty = UINT32_MAX; // the offset of a free slot
  struct Slot {
    std::uint32_t offset = kEmpty; // of the name's length in chars_
    std::uint32_t value = 0;
  };

  // The name stored at offset in chars_.
  std::string_view name_at(std::uint32_t offset) const;
  std::size_t home(std::string_view name) const;
  // The slot of a bound name, else the free slot where it would go.
  std::size_t probe(std::string_view name) const;
  void grow();
  void erase(std::size_t slot);

  std::string chars_;              // every bound name, back to back
  std::vector<Slot> slots_;        // empty, or a power of two in size
  std::size_t size_ = 0;           // bound names
  std::vector<std::size_t> marks_; // chars_.size() when each open level opened, innermost last
};

} // namespace fpsolve
