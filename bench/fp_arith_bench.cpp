// Floating-point arithmetic: ours against the hardware and against bare MPFR.
//   arith.<op>.float64      RNE on Float64 values: ours (IEEEFloat in and
//                           out) against hardware double arithmetic.
//   arith.<op>.<format>     other formats and modes: ours against the bare
//                           MPFR calls that give the same correctly rounded
//                           result (operands already in mpfr_t, the format's
//                           exponent range set once, mpfr_<op> then
//                           mpfr_subnormalize), i.e. without any conversion.
// Each iteration runs the operation over 1024 operand sets of normal values
// in [2^-8, 2^8).  Our runs report allocs_per_call: operator new plus every
// GMP/MPFR allocation (GMP's allocator is counted while they run).
#include "bench_util.h"

#include "host/fp_arith.h"
#include "host/fp_convert.h"

#include <gmp.h>
#include <mpfr.h>

#include <cmath>
#include <cstdlib>

namespace qorv::bench {
namespace {

using format = IEEEFloat::format;
using swflt::rounding_mode;
constexpr std::size_t set_count = 1024;

// GMP allocations while counting is on.
std::uint64_t gmp_allocs = 0;
void* count_alloc(std::size_t n) {
  ++gmp_allocs;
  return std::malloc(n);
}
void* count_realloc(void* p, std::size_t, std::size_t n) {
  ++gmp_allocs;
  return std::realloc(p, n);
}
void count_free(void* p, std::size_t) {
  std::free(p);
}

// Counts operator new and GMP allocations over a scope.
class Counting {
public:
  Counting() {
    mp_get_memory_functions(&a_, &r_, &f_);
    mp_set_memory_functions(count_alloc, count_realloc, count_free);
    gmp_start_ = gmp_allocs;
  }
  ~Counting() { mp_set_memory_functions(a_, r_, f_); }
  void report(benchmark::State& state, std::uint64_t calls) const {
    probe_.report(state, calls);
    state.counters["allocs_per_call"] +=
        static_cast<double>(gmp_allocs - gmp_start_) / static_cast<double>(calls);
  }

private:
  AllocationProbe probe_;
  std::uint64_t gmp_start_;
  void* (*a_)(std::size_t);
  void* (*r_)(void*, std::size_t, std::size_t);
  void (*f_)(void*, std::size_t);
};

enum class Op { add, mul, div, sqrt, fma };
char const* op_name(Op op) {
  static char const* names[] = {"add", "mul", "div", "sqrt", "fma"};
  return names[static_cast<int>(op)];
}

// Operand sets as doubles (exact in every format below, which all have at
// least 11 significand bits: values are rounded to 10 bits first).
std::vector<double> const& operands() {
  static std::vector<double> v = [] {
    std::vector<double> d;
    for (std::size_t i = 0; i < 3 * set_count; ++i) {
      double const m = 1.0 + static_cast<double>(rng()() % 1024) / 1024.0;
      double const x = std::ldexp(m, static_cast<int>(rng()() % 16) - 8);
      d.push_back(rng()() % 2 ? -x : x);
    }
    return d;
  }();
  return v;
}

void hw_double(benchmark::State& state, Op op) {
  std::vector<double> const& d = operands();
  for (auto _ : state) {
    for (std::size_t i = 0; i < set_count; ++i) {
      double const x = d[3 * i], y = d[3 * i + 1], z = d[3 * i + 2];
      double r = 0;
      switch (op) {
      case Op::add:
        r = x + y;
        break;
      case Op::mul:
        r = x * y;
        break;
      case Op::div:
        r = x / y;
        break;
      case Op::sqrt:
        r = std::sqrt(std::fabs(x));
        break;
      case Op::fma:
        r = std::fma(x, y, z);
        break;
      }
      benchmark::DoNotOptimize(r);
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * set_count));
}

void ours(benchmark::State& state, Op op, format f, rounding_mode rm) {
  std::vector<double> const& d = operands();
  std::vector<IEEEFloat> v;
  for (double x : d)
    v.push_back(swflt::convert(rm, IEEEFloat::from_double(x, format{11, 53}), f));
  std::vector<IEEEFloat> a;
  for (std::size_t i = 0; i < set_count; ++i)
    a.push_back(swflt::abs(v[3 * i]));
  auto run_once = [&](std::size_t i) {
    IEEEFloat const &x = v[3 * i], &y = v[3 * i + 1], &z = v[3 * i + 2];
    switch (op) {
    case Op::add:
      return swflt::add(rm, x, y);
    case Op::mul:
      return swflt::mul(rm, x, y);
    case Op::div:
      return swflt::div(rm, x, y);
    case Op::sqrt:
      return swflt::sqrt(rm, a[i]);
    case Op::fma:
      return swflt::fma(rm, x, y, z);
    }
    return IEEEFloat();
  };
  benchmark::DoNotOptimize(run_once(0)); // warm the scratch
  Counting const counting;
  for (auto _ : state)
    for (std::size_t i = 0; i < set_count; ++i)
      benchmark::DoNotOptimize(run_once(i));
  counting.report(state, state.iterations() * set_count);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * set_count));
}

void bare_mpfr(benchmark::State& state, Op op, format f, rounding_mode rm) {
  mpfr_rnd_t const rnd = rm == swflt::RTZ   ? MPFR_RNDZ
                         : rm == swflt::RTP ? MPFR_RNDU
                         : rm == swflt::RTN ? MPFR_RNDD
                                            : MPFR_RNDN;
  auto const prec = static_cast<mpfr_prec_t>(f.sb);
  std::vector<double> const& d = operands();
  std::vector<mpfr_t> v(d.size());
  for (std::size_t i = 0; i < d.size(); ++i) {
    mpfr_init2(v[i], prec);
    mpfr_set_d(v[i], d[i], MPFR_RNDN); // exact
  }
  mpfr_t r;
  mpfr_init2(r, prec);
  mpfr_exp_t const emin = mpfr_get_emin(), emax = mpfr_get_emax();
  long const bias = (1L << (f.eb - 1)) - 1;
  mpfr_set_emin(3 - bias - static_cast<long>(f.sb));
  mpfr_set_emax(bias + 1);
  for (auto _ : state) {
    for (std::size_t i = 0; i < set_count; ++i) {
      mpfr_srcptr x = v[3 * i], y = v[3 * i + 1], z = v[3 * i + 2];
      int t = 0;
      switch (op) {
      case Op::add:
        t = mpfr_add(r, x, y, rnd);
        break;
      case Op::mul:
        t = mpfr_mul(r, x, y, rnd);
        break;
      case Op::div:
        t = mpfr_div(r, x, y, rnd);
        break;
      case Op::sqrt:
        t = mpfr_sqrt(r, mpfr_signbit(x) ? y : x, rnd);
        break; // a positive operand
      case Op::fma:
        t = mpfr_fma(r, x, y, z, rnd);
        break;
      }
      benchmark::DoNotOptimize(mpfr_subnormalize(r, t, rnd));
    }
  }
  mpfr_set_emin(emin);
  mpfr_set_emax(emax);
  mpfr_clear(r);
  for (auto& x : v)
    mpfr_clear(x);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * set_count));
}

[[maybe_unused]] bool const registered = [] {
  for (Op op : {Op::add, Op::mul, Op::div, Op::sqrt, Op::fma}) {
    std::string const name = std::string("arith.") + op_name(op);
    benchmark::RegisterBenchmark(bench_name((name + ".float64").c_str(), "qorv", set_count).c_str(),
                                 ours, op, format{11, 53}, swflt::RNE);
    benchmark::RegisterBenchmark(
        bench_name((name + ".float64").c_str(), "hw_double", set_count).c_str(), hw_double, op);
    struct Case {
      char const* label;
      format f;
      rounding_mode rm;
    };
    for (Case c :
         {Case{"float16", {5, 11}, swflt::RNE}, Case{"float64_rtz", {11, 53}, swflt::RTZ},
          Case{"fp_10_47", {10, 47}, swflt::RTP}, Case{"float128", {15, 113}, swflt::RNE}}) {
      std::string const n = name + "." + c.label;
      benchmark::RegisterBenchmark(bench_name(n.c_str(), "qorv", set_count).c_str(), ours, op, c.f,
                                   c.rm);
      benchmark::RegisterBenchmark(bench_name(n.c_str(), "mpfr", set_count).c_str(), bare_mpfr, op,
                                   c.f, c.rm);
    }
  }
  return true;
}();

} // namespace
} // namespace qorv::bench
