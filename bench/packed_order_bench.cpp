// Packed order: operator< on IEEEFloat::Packed handles against the hardware
// comparison of the same values as float/double (software __float128 for
// Float128) and against the floor, a branch-free total-order key transform
// of the same bit patterns: flip the magnitude bits of negative values, then
// one signed integer comparison.  Patterns are uniformly random (half of
// them negative, a few NaNs).  This file is compiled without
// auto-vectorisation: every variant is timed as scalar code, one comparison
// after the other, as a comparator's call site sees it.
#include "bench_util.h"

#include "host/ieee_float.h"
#include "host/packed_order.h"

#include <gmp.h>

#include <cstring>

namespace qorv::bench {
namespace {

constexpr std::size_t pair_count = 1024;
__extension__ using int128 = __int128;
__extension__ using uint128 = unsigned __int128;

enum class Width { f32, f64, f128 };

IEEEFloat::format format_of(Width w) {
  switch (w) {
  case Width::f32:
    return {8, 24};
  case Width::f64:
    return {11, 53};
  case Width::f128:
    return {15, 113};
  }
  return {8, 24};
}

struct Patterns {
  std::vector<uint128> a, b;
  std::vector<IEEEFloat> fa, fb;
  explicit Patterns(Width w) {
    auto& g = rng();
    mpz_t z;
    mpz_init(z);
    auto draw = [&]() -> uint128 {
      switch (w) {
      case Width::f32:
        return g() & 0xFFFFFFFFu;
      case Width::f64:
        return g();
      case Width::f128:
        return (uint128{g()} << 64) | g();
      }
      return 0;
    };
    auto value = [&](uint128 bits) {
      if (w != Width::f128)
        return IEEEFloat::from_bits(static_cast<std::uint64_t>(bits), format_of(w));
      mpz_set_ui(z, static_cast<std::uint64_t>(bits >> 64));
      mpz_mul_2exp(z, z, 64);
      mpz_add_ui(z, z, static_cast<std::uint64_t>(bits));
      return IEEEFloat::from_bits(z, format_of(w));
    };
    for (std::size_t i = 0; i < pair_count; ++i) {
      a.push_back(draw());
      b.push_back(draw());
      fa.push_back(value(a.back()));
      fb.push_back(value(b.back()));
    }
    mpz_clear(z);
  }
};

template <Width W>
void ours(benchmark::State& state) {
  Patterns p(W);
  std::vector<IEEEFloat::Packed> ha, hb;
  for (std::size_t i = 0; i < pair_count; ++i) {
    ha.push_back({&p.fa[i]});
    hb.push_back({&p.fb[i]});
  }
  for (auto _ : state) {
    std::uint64_t hits = 0;
    for (std::size_t i = 0; i < pair_count; ++i)
      hits += ha[i] < hb[i];
    benchmark::DoNotOptimize(hits);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * pair_count));
}

template <Width W>
void hardware(benchmark::State& state) {
  Patterns p(W);
  std::vector<float> f32a, f32b;
  std::vector<double> f64a, f64b;
  std::vector<__float128> f128a, f128b;
  for (std::size_t i = 0; i < pair_count; ++i) {
    auto put = [&](uint128 bits, auto& v32, auto& v64, auto& v128) {
      if constexpr (W == Width::f32) {
        auto u = static_cast<std::uint32_t>(bits);
        float f;
        std::memcpy(&f, &u, sizeof f);
        v32.push_back(f);
      } else if constexpr (W == Width::f64) {
        auto u = static_cast<std::uint64_t>(bits);
        double d;
        std::memcpy(&d, &u, sizeof d);
        v64.push_back(d);
      } else {
        __float128 q;
        std::memcpy(&q, &bits, sizeof q);
        v128.push_back(q);
      }
    };
    put(p.a[i], f32a, f64a, f128a);
    put(p.b[i], f32b, f64b, f128b);
  }
  for (auto _ : state) {
    std::uint64_t hits = 0;
    for (std::size_t i = 0; i < pair_count; ++i) {
      if constexpr (W == Width::f32) hits += f32a[i] < f32b[i];
      if constexpr (W == Width::f64) hits += f64a[i] < f64b[i];
      if constexpr (W == Width::f128) hits += f128a[i] < f128b[i];
    }
    benchmark::DoNotOptimize(hits);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * pair_count));
}

// key(x) = x ^ ((x >> (w - 1)) >>> 1): the arithmetic shift spreads the sign
// over the word, the logical shift spares the sign bit itself.
template <class S, class U>
S total_order_key(U bits) {
  auto const s = static_cast<S>(bits);
  return s ^ static_cast<S>(static_cast<U>(s >> (sizeof(S) * 8 - 1)) >> 1);
}

template <Width W>
void key_transform(benchmark::State& state) {
  Patterns p(W);
  std::vector<std::uint32_t> a32, b32;
  std::vector<std::uint64_t> a64, b64;
  std::vector<uint128> a128 = p.a, b128 = p.b;
  for (std::size_t i = 0; i < pair_count; ++i) {
    a32.push_back(static_cast<std::uint32_t>(p.a[i]));
    b32.push_back(static_cast<std::uint32_t>(p.b[i]));
    a64.push_back(static_cast<std::uint64_t>(p.a[i]));
    b64.push_back(static_cast<std::uint64_t>(p.b[i]));
  }
  for (auto _ : state) {
    std::uint64_t hits = 0;
    for (std::size_t i = 0; i < pair_count; ++i) {
      if constexpr (W == Width::f32)
        hits += total_order_key<std::int32_t>(a32[i]) < total_order_key<std::int32_t>(b32[i]);
      if constexpr (W == Width::f64)
        hits += total_order_key<std::int64_t>(a64[i]) < total_order_key<std::int64_t>(b64[i]);
      if constexpr (W == Width::f128)
        hits += total_order_key<int128>(a128[i]) < total_order_key<int128>(b128[i]);
    }
    benchmark::DoNotOptimize(hits);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * pair_count));
}

template <Width W>
void register_width(char const* name) {
  auto const n = static_cast<std::int64_t>(pair_count);
  benchmark::RegisterBenchmark(bench_name(name, "qorv", n).c_str(), ours<W>);
  benchmark::RegisterBenchmark(bench_name(name, "hardware", n).c_str(), hardware<W>);
  benchmark::RegisterBenchmark(bench_name(name, "key_transform", n).c_str(), key_transform<W>);
}

[[maybe_unused]] int const registered = [] {
  register_width<Width::f32>("packed.lt.float32");
  register_width<Width::f64>("packed.lt.float64");
  register_width<Width::f128>("packed.lt.float128");
  return 0;
}();

} // namespace
} // namespace qorv::bench
