// Exact results of the bit-vector operations and of the conversions between
// bit-vectors and floats (the FpOp rows from bv_not on), on single values.
//
// A bit-vector value is carried as the non-negative IEEEFloat of format
// bv_format(n) whose rank is the value (problem.h), so these functions read
// and write values through the packed rank, exactly, with GMP, for any width.
// The semantics are SMT-LIB's: division by zero gives all ones, remainder by
// zero the dividend, shifts by the width or more give zero (all ones for an
// arithmetic shift of a negative value), and the signed operations are the
// unsigned ones on magnitudes with the signs applied as the standard defines.
// fp.to_ubv and fp.to_sbv of NaN, an infinity or a value whose rounded
// integer does not fit are unspecified: no value here, and the model's
// completion chooses (apply.h).
#pragma once

#include "engine/problem.h"

#include <gmpxx.h>
#include <optional>
#include <string>
#include <vector>

namespace fpsolve {

// The unsigned value of a bit-vector value (its rank), and the bit-vector
// value of width n of an integer taken modulo 2^n.
mpz_class bv_value(IEEEFloat const& v);
// The SMT-LIB literal of a bit-vector value of width n: #b and n digits.
std::string bv_text(IEEEFloat const& v, std::uint32_t n);
// The sort's text, (_ BitVec n).
std::string bv_sort_text(std::uint32_t n);
IEEEFloat bv_make(mpz_class const& z, std::uint32_t n);

// The result of a bit-vector operation or conversion op under rm on args, in
// format `to`; no value when the result is unspecified.
std::optional<IEEEFloat> bv_apply(FpOp op, IEEEFloat::rounding_mode rm,
                                  std::vector<IEEEFloat> const& args, IEEEFloat::format to);

// The same on unsigned values of width n (every operation from bv_not to
// bv_ashr; the result has width n), as mpz_class for any width or as a
// 128-bit integer where fits_128(op, n) holds (bv_int.h).
template <class Z>
Z bv_arith(FpOp op, Z const* a, std::uint32_t n);

} // namespace fpsolve
