// SMT-LIB floating-point literals as values: bit strings, bit vectors and
// exactly rounded rationals.  Every result follows the problem's convention
// that a NaN is the quiet NaN; malformed or out-of-range literals are
// SmtError at the literal's position.
#pragma once

#include "smtlib/reader.h"

#include "engine/problem.h"

#include <gmpxx.h>
#include <string>

namespace fpsolve {

// The value of (fp s e m) from the three bit strings.
IEEEFloat fp_from_bit_strings(std::string const& s, std::string const& e, std::string const& m,
                              Pos where);
// A bit-vector literal (#b or #x digits) reinterpreted in format f.
IEEEFloat fp_from_bitvector(Token const& lit, IEEEFloat::format f);
// The exact rational q rounded to format f with rounding mode rm.
IEEEFloat fp_from_rational(mpq_class const& q, IEEEFloat::format f, IEEEFloat::rounding_mode rm,
                           Pos where);
// The negation (or, with clear_only, the absolute value) of a constant; NaN
// stays the quiet NaN.
IEEEFloat flip_sign(IEEEFloat const& v, bool clear_only);

} // namespace fpsolve
