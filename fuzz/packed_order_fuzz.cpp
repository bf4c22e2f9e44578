// Differential fuzzing of the packed order and payload equality.
//
// Oracles: the order computed from the bit patterns alone (float_model.h),
// pattern equality, and for Float32 and Float64 the hardware comparison,
// which agrees with the packed order on every pair of non-NaN values except
// that it identifies -0 and +0.  Wide payloads come in both QNumber forms
// (a value assigned onto a wide value with a big payload keeps the big
// form).  The exception flags must be cleared exactly by comparisons of
// 32/64-bit payloads with equal NaN status and sign.
#include "float_model.h"
#include "support/packed_order.h"

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

bool hardware_less(IEEEFloat const& a, IEEEFloat const& b, bool* equal) {
  if (a.get_format() == IEEEFloat::format{8, 24}) {
    float x, y;
    std::uint32_t const u = a.payload_u32(), v = b.payload_u32();
    std::memcpy(&x, &u, 4);
    std::memcpy(&y, &v, 4);
    *equal = x == y;
    return x < y;
  }
  double x, y;
  std::uint64_t const u = a.payload_u64(), v = b.payload_u64();
  std::memcpy(&x, &u, 8);
  std::memcpy(&y, &v, 8);
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
  FUZZ_CHECK(swflt::float_exception_flags == (clears ? 0 : 0x5A));
  FUZZ_CHECK(less == model_less(a, b));

  swflt::float_exception_flags = 0x5A;
  bool const equal = qorv::payload_equal(a, b);
  FUZZ_CHECK(swflt::float_exception_flags == (a.narrow() ? 0 : 0x5A));
  FUZZ_CHECK(equal == same_pattern(a, b));
  FUZZ_CHECK(!(equal && less));

  IEEEFloat::format const f = a.get_format();
  if ((f == IEEEFloat::format{8, 24} || f == IEEEFloat::format{11, 53}) && !ma.nan && !mb.nan) {
    bool hw_equal;
    bool const hw_less = hardware_less(a, b, &hw_equal);
    FUZZ_CHECK(hw_less == (less && !(hw_equal && a.is_zero())));
    if (hw_equal && !equal) FUZZ_CHECK(a.is_zero() && b.is_zero());
  }
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
  }
  return 0;
}
