// Shared pieces of the fuzz harnesses: the input read as a stream of small
// choices, and the check that stops a run on a difference from an oracle.
//
// Running out of bytes yields zeros, so every input, even an empty one, is a
// complete and deterministic program; the fuzzer's mutations then map to
// local changes of that program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>

// Aborts with the failed condition, so that libFuzzer keeps the input and
// the replay test fails.
#define FUZZ_CHECK(cond)                                                                           \
  do {                                                                                             \
    if (!(cond)) {                                                                                 \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);                \
      std::abort();                                                                                \
    }                                                                                              \
  } while (0)

namespace qorv::fuzz {

class Input {
public:
  Input(std::uint8_t const* data, std::size_t size) : p_(data), end_(data + size) {}

  bool more() const noexcept { return p_ != end_; }
  std::uint8_t byte() noexcept { return p_ == end_ ? 0 : *p_++; }
  bool flag() noexcept { return (byte() & 1) != 0; }
  std::uint64_t u64(int bytes = 8) noexcept {
    std::uint64_t v = 0;
    for (int i = 0; i < bytes; ++i)
      v = (v << 8) | byte();
    return v;
  }
  // A number in [0, n), n > 0.
  std::uint64_t below(std::uint64_t n) noexcept { return u64(n <= 256 ? 1 : 2) % n; }

  // A signed word favouring the values where 64-bit arithmetic breaks.
  std::int64_t edgy_i64() noexcept {
    constexpr std::int64_t max = std::numeric_limits<std::int64_t>::max(), min = -max - 1;
    constexpr std::int64_t two32 = std::int64_t{1} << 32;
    static constexpr std::int64_t table[] = {
        0,       1,    -1,       2,       3,     6,         1023,       1024,       4096, max,
        max - 1, -max, -max + 1, max / 2, two32, two32 + 1, 3037000499, 3037000500, min};
    std::uint8_t mode = byte();
    if (mode < 96) return table[mode % std::size(table)];
    if (mode < 192) return static_cast<std::int8_t>(byte()); // small, many shared divisors
    return static_cast<std::int64_t>(u64());
  }

private:
  std::uint8_t const* p_;
  std::uint8_t const* end_;
};

} // namespace qorv::fuzz
