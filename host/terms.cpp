// The stand-in host's term manager: sorts, symbols and terms at stable
// addresses (deques, never moved), and the constant-bits map filled by
// mk_const.
#include "host/terms.h"

#include <gmpxx.h>
#include <stdexcept>
#include <utility>

namespace qorv {

DataType const* TermManager::fp_sort(std::uint64_t eb, std::uint64_t sb) {
  IEEEFloat::check_format({eb, sb});
  for (DataType const& d : fp_sorts_)
    if (d.eb == eb && d.sb == sb) return &d;
  return &fp_sorts_.emplace_back(DataType{DataType::Kind::floating_point, eb, sb});
}

Term const* TermManager::add_term(std::string name, DataType const* sort) {
  symbols_.emplace_back(std::move(name), sort);
  try {
    return &terms_.emplace_back(Term{terms_.size() + 1, &symbols_.back()});
  } catch (...) {
    symbols_.pop_back(); // keep symbols and terms in step
    throw;
  }
}

Term const* TermManager::mk_var(std::string name, DataType const* sort) {
  if (!sort) throw std::invalid_argument("mk_var: null sort for variable '" + name + "'");
  return add_term(std::move(name), sort);
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
