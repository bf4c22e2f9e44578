// Differential fuzzing of QNumber against GMP's rationals.
//
// Operands come in both forms: the small form from pairs of words near the
// 64-bit limits, the big form from GMP integers of up to a few hundred bits
// or from small values (a big number need not be large).  Each pair is
// checked for equality and order both ways against mpq_cmp, then assigned
// (the destination's form rule included) and checked again; the divisor
// cache is checked against mpz_gcd, entry by entry.
#include "fuzz_input.h"
#include "support/qnumber.h"

#include <gmpxx.h>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

using qorv::QNumber;
using qorv::fuzz::Input;

struct Operand {
  QNumber q;
  mpq_class ref;
};

mpz_class big_part(Input& in) {
  mpz_class z;
  int const bytes = in.byte() % 40;
  for (int i = 0; i < bytes; ++i)
    z = (z << 8) + in.byte();
  if (in.flag()) z = (z << 64) + static_cast<unsigned long>(in.edgy_i64()); // near 2^64 multiples
  return in.flag() ? mpz_class(-z) : z;
}

mpq_class value_of(QNumber const& q) {
  mpq_class v;
  q.get_num(v.get_num_mpz_t());
  q.get_den(v.get_den_mpz_t());
  mpq_class c = v;
  c.canonicalize();
  FUZZ_CHECK(v.get_den() > 0 && c.get_num() == v.get_num() && c.get_den() == v.get_den());
  return v;
}

Operand pick(Input& in, std::vector<Operand> const& seen) {
  std::uint8_t const mode = in.byte() % 4;
  if (mode == 0 && !seen.empty()) { // an earlier value, in the other form
    Operand const& o = seen[in.below(seen.size())];
    bool const fits = o.ref.get_num().fits_slong_p() && o.ref.get_den().fits_slong_p() &&
                      o.ref.get_num() != std::numeric_limits<std::int64_t>::min();
    if (o.q.is_big() && fits)
      return {QNumber(o.ref.get_num().get_si(), o.ref.get_den().get_si()), o.ref};
    return {QNumber(o.ref.get_num_mpz_t(), o.ref.get_den_mpz_t()), o.ref};
  }
  if (mode <= 1) {
    std::int64_t const n = in.edgy_i64(), d = in.edgy_i64();
    constexpr std::int64_t min = std::numeric_limits<std::int64_t>::min();
    bool const rejected = d == 0 || n == min || d == min;
    try {
      QNumber q(n, d);
      FUZZ_CHECK(!rejected && !q.is_big());
      mpq_class r(mpz_class(static_cast<long>(n)), mpz_class(static_cast<long>(d)));
      r.canonicalize();
      return {q, r};
    } catch (std::invalid_argument const&) {
      FUZZ_CHECK(rejected);
      return {QNumber(), mpq_class(0)};
    }
  }
  mpz_class const n = mode == 2 ? mpz_class(static_cast<long>(in.edgy_i64())) : big_part(in);
  mpz_class d = mode == 2 ? mpz_class(static_cast<long>(in.edgy_i64())) : big_part(in);
  if (d == 0) d = 1;
  QNumber q(n.get_mpz_t(), d.get_mpz_t());
  FUZZ_CHECK(q.is_big());
  mpq_class r(n, d);
  r.canonicalize();
  return {q, r};
}

void check_pair(QNumber const& a, mpq_class const& x, QNumber const& b, mpq_class const& y) {
  a.check_invariants();
  b.check_invariants();
  FUZZ_CHECK(value_of(a) == x && value_of(b) == y);
  int const c = cmp(x, y);
  FUZZ_CHECK((a == b) == (c == 0) && (b == a) == (c == 0));
  FUZZ_CHECK((a < b) == (c < 0) && (b < a) == (c > 0));
}

void check_gcd(std::uint64_t x, std::uint64_t y) {
  mpz_class g;
  mpz_gcd(g.get_mpz_t(), mpz_class(x).get_mpz_t(), mpz_class(y).get_mpz_t());
  FUZZ_CHECK(qorv::cached_gcd(x, y) == g.get_ui());
  if (x < 1024 && y < 1024 && y != 0) // the pair itself is now cached, both ways
    FUZZ_CHECK(static_cast<std::uint64_t>(qorv::gcd_cache[x][y]) == g.get_ui() &&
               qorv::gcd_cache[y][x] == qorv::gcd_cache[x][y]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Input in(data, size);
  std::vector<Operand> seen;
  while (in.more() && seen.size() < 64) {
    Operand a = pick(in, seen), b = pick(in, seen);
    check_pair(a.q, a.ref, b.q, b.ref);
    // Assignment copies the value; a big destination stays big, a small one
    // becomes big only for a big source.
    bool const was_big = a.q.is_big();
    a.q = b.q;
    FUZZ_CHECK(a.q.is_big() == (was_big || b.q.is_big()));
    check_pair(a.q, b.ref, b.q, b.ref);
    seen.push_back(std::move(b));
    auto edgy_u64 = [&in] {
      return in.flag() ? in.byte() * std::uint64_t{in.byte()} % 1100 : in.u64();
    };
    check_gcd(edgy_u64(), edgy_u64());
  }
  return 0;
}
