// Differential fuzzing of the packed order and payload equality.
//
// Oracles: the order computed from the bit patterns alone (float_model.h),
// pattern equality, and for Float32 and Float64 the hardware comparison,
// which agrees with the packed order on every pair of non-NaN values except
// that it identifies -0 and +0.  Wide payloads come in both QNumber forms
// (a value assigned onto a wide value with a big payload keeps the big
// form).  The exception flags must be cleared exactly by comparisons of
// 32/64-bit payloads with equal NaN status and sign.  Values reached by
// copies, moves and the unchecked factory must order as fresh ones.
#include "float_model.h"
#include "host/packed_order.h"

#include <cstring>

namespace {

using qorv::IEEEFloat;
using namespace qorv::fuzz;

IEEEFloat pick(Input& in, IEEEFloat::format f) {
  IEEEFloat v = pick_value(in, f);
  if (v.narrow() || !in.flag()) return v;
  // A destination whose payload is in the big form keeps it.
  mpz_class top = mpz_class(1) << (f.eb + f.sb - 1);
  IEEEFloat holder = IEEEFloat::from_bits(top.get_mpz_t(), f);
  holder = v;
  FUZZ_CHECK(same_pattern(holder, v));
  return holder;
}

// The hardware comparison of two Float32 (U = uint32_t) or Float64 values.
template <class T, class U>
bool hardware_less(U u, U v, bool* equal) {
  T x, y;
  std::memcpy(&x, &u, sizeof x);
  std::memcpy(&y, &v, sizeof y);
  *equal = x == y;
  return x < y;
}

void check(IEEEFloat const& a, IEEEFloat const& b) {
  namespace swflt = qorv::swflt;
  Model const ma = model_of(a), mb = model_of(b);
  bool const clears = a.narrow() && ma.nan == mb.nan && a.get_sign() == b.get_sign();
  FUZZ_CHECK(a.is_nan() == ma.nan && b.is_nan() == mb.nan);

  swflt::float_exception_flags = 0x5A;
  bool const less = IEEEFloat::Packed{&a} < IEEEFloat::Packed{&b};
  FUZZ_CHECK(swflt::float_exception_flags == (clears ? 0 : 0x5A) && less == model_less(a, b));

  swflt::float_exception_flags = 0x5A;
  bool const equal = qorv::payload_equal(a, b);
  FUZZ_CHECK(swflt::float_exception_flags == (a.narrow() ? 0 : 0x5A));
  FUZZ_CHECK(equal == same_pattern(a, b) && !(equal && less));

  IEEEFloat::format const f = a.get_format();
  if ((f == IEEEFloat::format{8, 24} || f == IEEEFloat::format{11, 53}) && !ma.nan && !mb.nan) {
    bool hw_equal;
    bool const hw_less = f.sb == 24
                             ? hardware_less<float>(a.payload_u32(), b.payload_u32(), &hw_equal)
                             : hardware_less<double>(a.payload_u64(), b.payload_u64(), &hw_equal);
    FUZZ_CHECK(hw_less == (less && !(hw_equal && a.is_zero())));
    if (hw_equal && !equal) FUZZ_CHECK(a.is_zero() && b.is_zero());
  }
}

// a as reached by the paths that must keep the order's shift amounts, which
// the order reads from the value and not from the format: copy assignment
// over a value of another format (narrow or wide), a move (its source is
// left the default Float32 +0), copy or move construction, and for a 32/64-
// bit payload the unchecked factory the arithmetic uses.
IEEEFloat reached(IEEEFloat const& a, bool over_wide) {
  IEEEFloat::format const f = a.get_format(), narrow{f.sb == 11 ? 11u : 5u, f.sb == 11 ? 53u : 11u};
  IEEEFloat const other =
      IEEEFloat::from_double(1.5, over_wide ? IEEEFloat::format{20, 80} : narrow);
  IEEEFloat v = other;
  v = a;
  IEEEFloat w = std::move(v);
  FUZZ_CHECK(same_pattern(v, IEEEFloat()));
  v = w;
  IEEEFloat r = over_wide ? IEEEFloat(v) : IEEEFloat(std::move(v));
  if (!a.narrow() || over_wide) return r;
  r = other; // then the factory's value moved in over another format
  r = IEEEFloat::from_narrow_bits(a.payload_u64(), f);
  return r;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Input in(data, size);
  while (in.more()) {
    IEEEFloat::format const f = pick_format(in);
    IEEEFloat const a = pick(in, f);
    IEEEFloat const b = in.byte() % 8 == 0 ? a : pick(in, f); // equal operands too
    check(a, b);
    check(b, a);
    for (bool over_wide : {false, true})
      check(reached(a, over_wide), b);
    IEEEFloat moved_from = b, sink = std::move(moved_from); // the default Float32 +0
    if (f == IEEEFloat::format{8, 24}) check(moved_from, a), check(a, moved_from);
  }
  return 0;
}
