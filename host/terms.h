// Sorts, symbols, terms and the term manager of the stand-in host.
//
// The term manager owns every sort, symbol and term it makes, at stable
// addresses (deques never move their elements), for its whole life; pointers
// it hands out stay valid until it is destroyed.  A term begins with its
// identifier, unique within its manager, which is also the hash of a
// `Term const*` in every table.  Floating-point sorts are interned: one sort
// object per (eb, sb).  A constant term's head symbol is filed in the
// constant-bits map with the constant's bit pattern.
//
// Symbols' names lie in the manager's name store (blocks that never move),
// each after its length.  The std::string a symbol hands out is built on the
// first request and kept: names are read to print models and messages,
// never by the search, and a string per symbol would be most of a term's
// cost in a long script.
#pragma once

#include "../support/hashtable.h"
#include "../support/qnumber.h"
#include "ieee_float.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qorv {

struct DataType {
  enum class Kind : std::uint8_t { boolean, floating_point, rounding_mode };
  Kind kind;
  std::uint64_t eb = 0; // floating point only
  std::uint64_t sb = 0; // floating point only
};

class Symbol {
public:
  // `stored` is the name as TermManager::store_name keeps it.
  Symbol(char const* stored, DataType const* output_type)
      : stored_(stored), output_type_(output_type) {}
  DataType const* get_output_type() const noexcept { return output_type_; }
  // Throws std::bad_alloc when the string cannot be built.
  std::string const& get_name() const;

private:
  char const* stored_;
  DataType const* output_type_;
  mutable std::unique_ptr<std::string> name_; // built by the first get_name
};

struct Term {
  std::uint64_t id;     // unique within the term manager; the term's hash
  Symbol const* symbol; // head symbol
  std::string const& name() const { return symbol->get_name(); }
};

namespace hsh {
template <>
struct hash<Term const*> {
  std::uint64_t operator()(Term const* t) const noexcept { return t->id; }
};
template <>
struct hash<Symbol const*> {
  std::uint64_t operator()(Symbol const* s) const noexcept {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(s));
  }
};
} // namespace hsh

class TermManager {
public:
  TermManager() = default;
  TermManager(TermManager const&) = delete;
  TermManager& operator=(TermManager const&) = delete;

  DataType const* bool_sort() noexcept { return &bool_sort_; }
  DataType const* rounding_mode_sort() noexcept { return &rm_sort_; }
  // The sort (_ FloatingPoint eb sb); throws std::invalid_argument for an
  // invalid format.
  DataType const* fp_sort(std::uint64_t eb, std::uint64_t sb);
  DataType const* fp_sort(IEEEFloat::format f) { return fp_sort(f.eb, f.sb); }

  // A fresh variable of the given sort.
  Term const* mk_var(std::string name, DataType const* sort);
  // A fresh floating-point constant of `sort` with bit pattern `bits`, named
  // by its literal text; its symbol is filed in the constant-bits map.
  // Throws std::invalid_argument when the sort is not a floating-point sort
  // or the pattern does not fit it.
  Term const* mk_const(DataType const* sort, QNumber const& bits);
  Term const* mk_const(IEEEFloat const& value);

  // Writes the widths of a floating-point sort and answers true; leaves them
  // alone and answers false for any other sort.
  bool is_fp_type(DataType const* type, unsigned long* eb, unsigned long* sb) const;

  hsh::HashMap<Symbol const*, QNumber> const& constant_bits() const noexcept { return const_bits_; }
  std::uint64_t term_count() const noexcept { return terms_.size(); }

private:
  Term const* add_term(std::string_view name, DataType const* sort);
  // A copy of name in the store: its length (one byte below 255, else 255
  // and four bytes), then its characters.
  char const* store_name(std::string_view name);

  DataType bool_sort_{DataType::Kind::boolean};
  DataType rm_sort_{DataType::Kind::rounding_mode};
  std::deque<DataType> fp_sorts_;
  std::deque<Symbol> symbols_;
  std::deque<Term> terms_;
  hsh::HashMap<Symbol const*, QNumber> const_bits_;
  std::vector<std::unique_ptr<char[]>> name_blocks_;
  char* block_free_ = nullptr; // the first free byte of the newest block
  std::size_t block_left_ = 0; // free bytes from there
};

} // namespace qorv
