// The stand-in host's term manager: sorts, symbols and terms at stable
// addresses (deques, never moved), and the constant-bits map filled by
// mk_const.
#include "host/terms.h"

#include <gmpxx.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace qorv {

namespace {
constexpr unsigned char kLongName = 255; // a length of four bytes follows
constexpr std::size_t kNameBlock = 16384;
} // namespace

std::string const& Symbol::get_name() const {
  if (!name_) {
    char const* at = stored_;
    std::uint32_t length = static_cast<unsigned char>(*at++);
    if (length == kLongName) {
      std::memcpy(&length, at, sizeof length);
      at += sizeof length;
    }
    name_ = std::make_unique<std::string>(at, length);
  }
  return *name_;
}

char const* TermManager::store_name(std::string_view name) {
  if (name.size() > UINT32_MAX) throw std::length_error("a name of more than 4 GB");
  bool const long_name = name.size() >= kLongName;
  std::size_t const need = 1 + (long_name ? sizeof(std::uint32_t) : 0) + name.size();
  if (need > block_left_) {
    std::size_t const size = std::max(need, kNameBlock);
    auto block = std::make_unique<char[]>(size);
    char* const start = block.get();
    name_blocks_.push_back(std::move(block)); // on failure the block is freed
    block_free_ = start;
    block_left_ = size;
  }
  char* const at = block_free_;
  char* p = at;
  if (long_name) {
    auto const length = static_cast<std::uint32_t>(name.size());
    *p++ = static_cast<char>(kLongName);
    std::memcpy(p, &length, sizeof length);
    p += sizeof length;
  } else {
    *p++ = static_cast<char>(name.size());
  }
  std::memcpy(p, name.data(), name.size());
  block_free_ += need;
  block_left_ -= need;
  return at;
}

DataType const* TermManager::fp_sort(std::uint64_t eb, std::uint64_t sb) {
  IEEEFloat::check_format({eb, sb});
  for (DataType const& d : fp_sorts_)
    if (d.eb == eb && d.sb == sb) return &d;
  return &fp_sorts_.emplace_back(DataType{DataType::Kind::floating_point, eb, sb});
}

Term const* TermManager::add_term(std::string_view name, DataType const* sort) {
  symbols_.emplace_back(store_name(name), sort);
  try {
    return &terms_.emplace_back(Term{terms_.size() + 1, &symbols_.back()});
  } catch (...) {
    symbols_.pop_back(); // keep symbols and terms in step
    throw;
  }
}

Term const* TermManager::mk_var(std::string name, DataType const* sort) {
  if (!sort) throw std::invalid_argument("mk_var: null sort for variable '" + name + "'");
  return add_term(name, sort);
}

Term const* TermManager::mk_const(DataType const* sort, QNumber const& bits) {
  unsigned long eb = 0, sb = 0;
  if (!is_fp_type(sort, &eb, &sb))
    throw std::invalid_argument("mk_const: the sort of constant " + bits.to_string() +
                                " is not a floating-point sort");
  IEEEFloat value = IEEEFloat::from_bits(bits, {eb, sb}); // validates the pattern
  Term const* t = add_term(value.to_str(), sort);
  try {
    // One insertion of the finished pair: on failure the map is unchanged,
    // so no entry is left keyed by the symbol removed below.
    const_bits_.insert(std::pair<Symbol const*, QNumber>(t->symbol, bits));
  } catch (...) {
    terms_.pop_back();
    symbols_.pop_back();
    throw;
  }
  return t;
}

Term const* TermManager::mk_const(IEEEFloat const& value) {
  mpz_class bits;
  value.get_bits(bits.get_mpz_t());
  QNumber q = bits.fits_slong_p() ? QNumber(bits.get_si(), 1)
                                  : QNumber(bits.get_mpz_t(), mpz_class(1).get_mpz_t());
  return mk_const(fp_sort(value.get_format()), q);
}

bool TermManager::is_fp_type(DataType const* type, unsigned long* eb, unsigned long* sb) const {
  if (!type || type->kind != DataType::Kind::floating_point) return false;
  *eb = type->eb;
  *sb = type->sb;
  return true;
}

} // namespace qorv
