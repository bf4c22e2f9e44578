// The elaborator's name table (see names.h): linear probing, growth by
// doubling, and deletion by backward shift, so that no tombstones build up
// over many push/pop rounds.
#include "smtlib/names.h"

#include <cassert>
#include <functional>
#include <stdexcept>
#include <utility>

namespace fpsolve {

std::size_t NameTable::home(std::string_view name) const {
  return std::hash<std::string_view>{}(name) & (slots_.size() - 1);
}

std::size_t NameTable::probe(std::string_view name) const {
  std::size_t const mask = slots_.size() - 1;
  std::size_t i = home(name);
  while (slots_[i].offset != kEmpty && name_of(slots_[i]) != name)
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
  if (chars_.size() + name.size() >= kEmpty) throw std::length_error("more than 4 GB of names");
  if ((size_ + 1) * 5 > slots_.size() * 4) grow();
  std::size_t const i = probe(name);
  assert(slots_[i].offset == kEmpty && "a name is bound once");
  auto const offset = static_cast<std::uint32_t>(chars_.size());
  bool const logged = !marks_.empty();
  if (logged) log_.push_back(offset);
  try {
    chars_.append(name);
  } catch (...) {
    if (logged) log_.pop_back();
    throw;
  }
  slots_[i] = {offset, static_cast<std::uint32_t>(name.size()), value};
  ++size_;
}

void NameTable::grow() {
  std::vector<Slot> old(slots_.empty() ? 16 : 2 * slots_.size());
  old.swap(slots_);
  std::size_t const mask = slots_.size() - 1;
  for (Slot const& s : old) {
    if (s.offset == kEmpty) continue;
    std::size_t i = home(name_of(s));
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
    std::size_t const k = home(name_of(slots_[j]));
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
  Mark const m = marks_.back();
  // Newest first: each name ends where the next one starts.
  std::size_t end = chars_.size();
  for (std::size_t k = log_.size(); k > m.log; --k) {
    std::uint32_t const offset = log_[k - 1];
    std::string_view const name(chars_.data() + offset, end - offset);
    erase(probe(name));
    end = offset;
  }
  chars_.resize(m.chars);
  log_.resize(m.log);
  marks_.pop_back();
}

} // namespace fpsolve
