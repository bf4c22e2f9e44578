// Conversions between IEEEFloat, other formats, exact rationals and
// bit-vector values, with the semantics of SMT-LIB's to_fp, to_fp_unsigned,
// fp.to_ubv, fp.to_sbv and fp.to_real, for every format with eb <= 60.
//
// Conversions to a format round once under the given mode (NaN to the
// canonical NaN).  Bit-vector values are passed as their bit pattern: a
// non-negative integer below 2^width, read as unsigned or as two's
// complement.  Where SMT-LIB leaves the result unspecified (NaN, infinities
// and values whose rounded integer does not fit the bit-vector; the real
// value of NaN and infinities) the conversion returns no value: the caller
// must treat it as a choice of its own that is the same for the same operand.
//
// Bad input throws std::invalid_argument naming the values: an invalid
// format or rounding mode, a width below 1, a pattern that does not fit its
// width, a malformed number text.  Nothing here keeps state between calls.
#pragma once

#include "../support/qnumber.h"
#include "fp_arith.h"

#include <gmp.h>
#include <optional>
#include <string_view>

namespace qorv::swflt {

// x rounded to format `to` (to_fp of a floating-point term).
IEEEFloat convert(rounding_mode rm, IEEEFloat const& x, IEEEFloat::format to);

// The rational q rounded to format f (to_fp of a real term).
IEEEFloat from_rational(rounding_mode rm, mpq_srcptr q, IEEEFloat::format f);
IEEEFloat from_rational(rounding_mode rm, QNumber const& q, IEEEFloat::format f);
// The same from text: an integer "-12", a decimal "-1.25" or a fraction
// "3/4" (optional leading '-', digits only otherwise).
IEEEFloat from_rational_text(rounding_mode rm, std::string_view text, IEEEFloat::format f);

// The bit-vector value `bits` of `width` bits, unsigned or two's complement,
// rounded to f (to_fp_unsigned, and to_fp of a bit-vector with a mode).
IEEEFloat from_ubv(rounding_mode rm, mpz_srcptr bits, std::uint64_t width, IEEEFloat::format f);
IEEEFloat from_sbv(rounding_mode rm, mpz_srcptr bits, std::uint64_t width, IEEEFloat::format f);

// x rounded to an integer under rm, as the integer value (signed for sbv),
// when it fits `width` bits unsigned / two's complement; no value otherwise.
std::optional<QNumber> to_ubv(rounding_mode rm, IEEEFloat const& x, std::uint64_t width);
std::optional<QNumber> to_sbv(rounding_mode rm, IEEEFloat const& x, std::uint64_t width);

// The exact value of x; no value for NaN and infinities.  Its size grows
// with x's exponent: a value beyond 2^max_real_bits or below its inverse
// (only formats with eb > 30 have them) throws std::length_error.
inline constexpr long max_real_bits = 1L << 30;
std::optional<QNumber> to_real(IEEEFloat const& x);

} // namespace qorv::swflt
