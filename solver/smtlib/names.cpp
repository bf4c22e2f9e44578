// The elaborator's name table (see names.h): linear probing, growth by
// doubling, and deletion by backward shift, so that no tombstones build up
// over many push/pop rounds.
#include "smtlib/names.h"

#include <cassert>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <utility>

namespace fpsolve {

namespace {
constexpr unsigned char kLongName = 255; // a length of four bytes follows
} // namespace

std::string_view NameTable::name_at(std::uint32_t offset) const {
  char const* at = chars_.data() + offset;
  std::uint32_t length = static_cast<unsigned char>(*at++);
  if (length == kLongName) {
    std::memcpy(&length, at, sizeof length);
    at += sizeof length;
  }
  return {at, length};
}

std::size_t NameTable::home(std::string_view name) const {
  return std::hash<std::string_view>{}(name) & (slots_.size() - 1);
}

std::size_t NameTable::probe(std::string_view name) const {
  std::size_t const mask = slots_.size() - 1;
  std::size_t i = home(name);
  while (slots_[i].offset != kEmpty && name_at(slots_[i].offset) != name)
    i = (i + 1) & mask;
  return i;
}

bool NameTable::find(std::string_view name, std::uint32_t* value) const {
  if (size_ == 0) return false;
  Slot const& s = slots_[probe(name)];
  if (s.offset == kEmpty) return false;
  *value = s.value;
  return true;
}

void NameTable::insert(std::string_view name, std::uint32_t value) {
  if (chars_.size() + name.size() + 5 >= kEmpty) throw std::length_error("more than 4 GB of names");
  if ((size_ + 1) * 5 > slots_.size() * 4) grow();
  std::size_t const i = probe(name);
  assert(slots_[i].offset == kEmpty && "a name is bound once");
  auto const offset = static_cast<std::uint32_t>(chars_.size());
  try {
    if (name.size() < kLongName) {
      chars_ += static_cast<char>(name.size());
    } else {
      auto const length = static_cast<std::uint32_t>(name.size());
      char bytes[sizeof length];
      std::memcpy(bytes, &length, sizeof length);
      chars_ += static_cast<char>(kLongName);
      chars_.append(bytes, sizeof length);
    }
    chars_.append(name);
  } catch (...) {
    chars_.resize(offset);
    throw;
  }
  slots_[i] = {offset, value};
  ++size_;
}

void NameTable::grow() {
  std::vector<Slot> old(slots_.empty() ? 16 : 2 * slots_.size());
  old.swap(slots_);
  std::size_t const mask = slots_.size() - 1;
  for (Slot const& s : old) {
    if (s.offset == kEmpty) continue;
    std::size_t i = home(name_at(s.offset));
    while (slots_[i].offset != kEmpty)
      i = (i + 1) & mask;
    slots_[i] = s;
  }
}

// Backward shift: each later slot of the probe run moves into the hole when
// its home does not lie cyclically in (hole, slot], so every remaining name
// stays reachable from its home without crossing an empty slot.
void NameTable::erase(std::size_t hole) {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t j = (hole + 1) & mask; slots_[j].offset != kEmpty; j = (j + 1) & mask) {
    std::size_t const k = home(name_at(slots_[j].offset));
    bool const stays = hole <= j ? hole < k && k <= j : hole < k || k <= j;
    if (stays) continue;
    slots_[hole] = slots_[j];
    hole = j;
  }
  slots_[hole] = Slot{};
  --size_;
}

void NameTable::pop_mark() {
  assert(!marks_.empty() && "pop_mark matches a push_mark");
  std::size_t const mark = marks_.back();
  for (std::size_t at = mark; at < chars_.size();) {
    std::string_view const name = name_at(static_cast<std::uint32_t>(at));
    erase(probe(name));
    at = static_cast<std::size_t>(name.data() + name.size() - chars_.data());
  }
  chars_.resize(mark);
  marks_.pop_back();
}

} // namespace fpsolve
