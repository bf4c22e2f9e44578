// TheoryLit and the three-valued truth constants of the host.
//
// A TheoryLit is one 64-bit word: a `Term const*` with a one-bit flag in its
// lowest bit (terms are at least 2-byte aligned, so the bit is free).  It is
// hashed and compared by its whole word; tlit_Undef (0) is the null term with
// the flag clear.
#pragma once

#include "../support/hashtable.h"

#include <cassert>
#include <cstdint>

namespace qorv {

struct Term;

struct TheoryLit {
  std::uint64_t word = 0;

  static TheoryLit make(Term const* t, bool flag) noexcept {
    auto bits = reinterpret_cast<std::uintptr_t>(t);
    assert((bits & 1) == 0 && "terms must be at least 2-byte aligned");
    return TheoryLit{static_cast<std::uint64_t>(bits) | (flag ? 1u : 0u)};
  }
  Term const* term() const noexcept {
    return reinterpret_cast<Term const*>(static_cast<std::uintptr_t>(word & ~std::uint64_t{1}));
  }
  bool flag() const noexcept { return (word & 1) != 0; }
  friend bool operator==(TheoryLit, TheoryLit) = default;
};

inline constexpr TheoryLit tlit_Undef{0};

// Three-valued truth, one byte.
struct lbool {
  std::uint8_t value;
  friend bool operator==(lbool, lbool) = default;
};
inline constexpr lbool l_True{0};
inline constexpr lbool l_False{1};
inline constexpr lbool l_Undef{2};

namespace hsh {
template <>
struct hash<TheoryLit> {
  std::uint64_t operator()(TheoryLit l) const noexcept { return l.word; }
};
} // namespace hsh

} // namespace qorv
