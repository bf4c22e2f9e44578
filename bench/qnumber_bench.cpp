// Rationals: QNumber order and equality against GMP (mpq_cmp, mpq_equal),
// FLINT (fmpq_cmp, fmpq_equal) and boost::rational<int64_t>, on the same
// values.  Value sets, all positive so that the sign test settles nothing:
//   small    parts below 1024 (the divisor cache is warmed first),
//   int32    parts of 31-32 bits (products fit, divisors by Euclid),
//   overflow parts of 40-62 bits (cross products leave 64 bits),
//   big      the big form, parts of about 128 bits (no boost peer).
// Equality pairs are equal in half the cases, as distinct objects.
#include "bench_util.h"

#include "support/qnumber.h"

#include <boost/rational.hpp>
#include <flint/fmpq.h>
#include <gmp.h>

#include <memory>

namespace qorv::bench {
namespace {

constexpr std::size_t pair_count = 1024;

enum class Set { small, int32, overflow, big };

struct Values {
  std::vector<QNumber> qa, qb;
  std::vector<boost::rational<std::int64_t>> ra, rb;
  mpq_t* ma;
  mpq_t* mb;
  fmpq* fa;
  fmpq* fb;

  Values(Set set, bool half_equal) {
    ma = new mpq_t[pair_count];
    mb = new mpq_t[pair_count];
    fa = new fmpq[pair_count];
    fb = new fmpq[pair_count];
    auto& g = rng();
    auto part = [&](unsigned lo_bits, unsigned hi_bits) {
      std::uint64_t const lo = std::uint64_t{1} << lo_bits, hi = std::uint64_t{1} << hi_bits;
      return static_cast<std::int64_t>(lo + g() % (hi - lo));
    };
    mpz_t n, d;
    mpz_init(n);
    mpz_init(d);
    auto make = [&]() -> QNumber {
      switch (set) {
      case Set::small:
        return QNumber(1 + part(0, 10) % 1023, 1 + part(0, 10) % 1023);
      case Set::int32:
        return QNumber(part(31, 32), part(31, 32));
      case Set::overflow:
        return QNumber(part(40, 62), part(40, 62));
      case Set::big:
        mpz_set_ui(n, g());
        mpz_mul_2exp(n, n, 64);
        mpz_add_ui(n, n, g());
        mpz_set_ui(d, g());
        mpz_mul_2exp(d, d, 64);
        mpz_add_ui(d, d, g());
        return QNumber(n, d);
      }
      return QNumber();
    };
    for (std::size_t i = 0; i < pair_count; ++i) {
      qa.push_back(make());
      qb.push_back(half_equal && i % 2 == 0 ? QNumber(qa.back()) : make());
    }
    auto export_to = [&](QNumber const& q, mpq_t m, fmpq* f) {
      mpq_init(m);
      q.get_num(mpq_numref(m));
      q.get_den(mpq_denref(m));
      fmpq_init(f);
      fmpq_set_mpq(f, m);
    };
    for (std::size_t i = 0; i < pair_count; ++i) {
      export_to(qa[i], ma[i], &fa[i]);
      export_to(qb[i], mb[i], &fb[i]);
      if (set != Set::big) {
        ra.emplace_back(qa[i].small_num(), qa[i].small_den());
        rb.emplace_back(qb[i].small_num(), qb[i].small_den());
      }
    }
    mpz_clear(n);
    mpz_clear(d);
  }
  ~Values() {
    for (std::size_t i = 0; i < pair_count; ++i) {
      mpq_clear(ma[i]);
      mpq_clear(mb[i]);
      fmpq_clear(&fa[i]);
      fmpq_clear(&fb[i]);
    }
    delete[] ma;
    delete[] mb;
    delete[] fa;
    delete[] fb;
  }
  Values(Values const&) = delete;
  Values& operator=(Values const&) = delete;
};

enum class Impl { qorv, gmp, flint, boost };
enum class Op { lt, eq };

template <Set S, Op O, Impl I>
void compare(benchmark::State& state) {
  Values v(S, O == Op::eq);
  auto pass = [&] {
    std::uint64_t hits = 0;
    for (std::size_t i = 0; i < pair_count; ++i) {
      bool r = false;
      if constexpr (I == Impl::qorv) r = O == Op::lt ? v.qa[i] < v.qb[i] : v.qa[i] == v.qb[i];
      if constexpr (I == Impl::gmp)
        r = O == Op::lt ? mpq_cmp(v.ma[i], v.mb[i]) < 0 : mpq_equal(v.ma[i], v.mb[i]) != 0;
      if constexpr (I == Impl::flint)
        r = O == Op::lt ? fmpq_cmp(&v.fa[i], &v.fb[i]) < 0 : fmpq_equal(&v.fa[i], &v.fb[i]) != 0;
      if constexpr (I == Impl::boost) r = O == Op::lt ? v.ra[i] < v.rb[i] : v.ra[i] == v.rb[i];
      hits += r;
    }
    return hits;
  };
  benchmark::DoNotOptimize(pass()); // warms the divisor cache
  for (auto _ : state)
    benchmark::DoNotOptimize(pass());
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * pair_count));
}

template <Set S, Op O>
void register_op(char const* name, bool with_boost) {
  auto const n = static_cast<std::int64_t>(pair_count);
  benchmark::RegisterBenchmark(bench_name(name, "qorv", n).c_str(), compare<S, O, Impl::qorv>);
  benchmark::RegisterBenchmark(bench_name(name, "gmp_mpq", n).c_str(), compare<S, O, Impl::gmp>);
  benchmark::RegisterBenchmark(bench_name(name, "flint_fmpq", n).c_str(),
                               compare<S, O, Impl::flint>);
  if (with_boost)
    benchmark::RegisterBenchmark(bench_name(name, "boost_rational", n).c_str(),
                                 compare<S, O, Impl::boost>);
}

[[maybe_unused]] int const registered = [] {
  register_op<Set::small, Op::lt>("rational.lt.small", true);
  register_op<Set::small, Op::eq>("rational.eq.small", true);
  register_op<Set::int32, Op::lt>("rational.lt.int32", true);
  register_op<Set::int32, Op::eq>("rational.eq.int32", true);
  register_op<Set::overflow, Op::lt>("rational.lt.overflow", true);
  register_op<Set::overflow, Op::eq>("rational.eq.overflow", true);
  register_op<Set::big, Op::lt>("rational.lt.big", false);
  register_op<Set::big, Op::eq>("rational.eq.big", false);
  return 0;
}();

} // namespace
} // namespace qorv::bench
