// A GMP integer owned by a scope, and the decimal text of a GMP integer.
//
// Mpz is initialised on construction and cleared on destruction; it is
// neither copied nor moved, so the mpz_t it wraps never changes owner.  It
// converts to mpz_ptr and mpz_srcptr for the GMP calls; get() serves GMP's
// function-like macros, which do not convert.
#pragma once

#include <gmp.h>
#include <string>

namespace qorv {

class Mpz {
public:
  Mpz() { mpz_init(v_); }
  ~Mpz() { mpz_clear(v_); }
  Mpz(Mpz const&) = delete;
  Mpz& operator=(Mpz const&) = delete;
  operator mpz_ptr() noexcept { return v_; }
  operator mpz_srcptr() const noexcept { return v_; }
  mpz_srcptr get() const noexcept { return v_; }

private:
  mpz_t v_;
};

// The decimal text of z, with a leading '-' when negative.
inline std::string integer_text(mpz_srcptr z) {
  std::string s(mpz_sizeinbase(z, 10) + 2, '\0'); // digits, sign, terminator
  mpz_get_str(s.data(), 10, z);
  s.resize(s.find('\0'));
  return s;
}

} // namespace qorv
