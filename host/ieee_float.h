// IEEEFloat: one IEEE-754 value of any format, held as its bit pattern.
//
// A format is (eb, sb): exponent width, then significand width with the hidden
// bit, as SMT-LIB writes (_ FloatingPoint eb sb).  A value has eb + sb bits:
// sign, eb exponent bits, sb - 1 trailing significand bits.  Valid formats have
// eb >= 2 and sb >= 2 and at most max_width bits in all; anything else, and a
// bit pattern that does not fit its format, is rejected with
// std::invalid_argument naming the values.
//
// Layout: format, a 32-bit tag word, a one-word payload.  The top two bits of
// the tag give the payload kind: 0 for formats of at most 32 bits (pattern in
// the low half of the payload word, the high half kept 0), 1 for at most 64
// bits (the whole word), 2 for wider formats (an owned QNumber holding the
// pattern as an integer over 1).  Values of kind 2 always own a QNumber (never
// null); values this class builds hold it in the small form while the pattern
// fits a signed 64-bit word, but a copy assigned onto an existing wide value
// may keep the destination's big form (QNumber assignment keeps big numbers
// big), so readers accept both forms.  The low byte of the tag holds the
// rounding mode.  For kinds 0 and 1 the tag also carries two shift amounts
// derived from the format, so the packed order reads one word instead of the
// format: bits 16-21 hold 64 - (eb + sb) (the shift that brings the sign to
// the top of a 64-bit word) and bits 24-29 hold 64 - eb (the shift that
// leaves the exponent bits of infinity at the top).  Both are 0 for kind 2.
// The tag is a function of format, kind and rounding mode only.
//
// Values copy deeply; every QNumber payload has exactly one owner.  Copying and
// copy assignment give the strong guarantee: when an allocation fails the
// destination keeps its old value.  A moved-from value is +0 in Float32, the
// default value.  The sign and NaN tests of 32/64-bit values are inline, since
// the packed order calls them on every comparison; so are copying, assignment
// and destruction when no QNumber is involved (three words copied, nothing
// released), the heuristics' most frequent operations on values.  Anything
// touching a QNumber payload goes out of line.
#pragma once

#include "../support/qnumber.h"

#include <cstdint>
#include <gmp.h>
#include <string>

namespace qorv {

namespace swflt {
// Exception flags of the software float arithmetic.  The packed order and
// payload equality clear it after comparing 32-bit or 64-bit payloads.
extern unsigned char float_exception_flags;
} // namespace swflt

class IEEEFloat {
public:
  struct format {
    std::uint64_t eb = 8;  // exponent width
    std::uint64_t sb = 24; // significand width, hidden bit included
    friend bool operator==(format const&, format const&) = default;
  };
  enum rounding_mode : std::uint32_t {
    rm_nearest_even = 0,
    rm_nearest_away = 1,
    rm_toward_positive = 2,
    rm_toward_negative = 3,
    rm_toward_zero = 4,
  };
  enum payload_kind : std::uint32_t { kind_u32 = 0, kind_u64 = 1, kind_qnumber = 2 };
  static constexpr std::uint32_t kind_shift = 30;
  // Fields of the tag word below the kind (see the layout above).
  static constexpr std::uint32_t rm_mask = 0xFF;
  static constexpr std::uint32_t up_shift = 16;
  static constexpr std::uint32_t inf_shift = 24;
  static constexpr std::uint32_t shift_mask = 0x3F;
  // Largest total width eb + sb accepted (bits).
  static constexpr std::uint64_t max_width = std::uint64_t{1} << 20;

  // One-word handle on a value; its order is the packed order
  // (host/packed_order.h).
  struct Packed {
    IEEEFloat const* value;
  };

  // +0 in Float32, rounding mode 0.
  IEEEFloat() noexcept : fmt_{8, 24}, tag_(default_tag), payload_{0} {}
  // +0 in format f.  Throws std::invalid_argument for an invalid format or
  // rounding mode.
  IEEEFloat(format f, rounding_mode rm);
  IEEEFloat(IEEEFloat const& other) : fmt_(other.fmt_), tag_(other.tag_), payload_{0} {
    if (other.narrow())
      payload_.u64 = other.payload_.u64;
    else
      copy_wide(other);
  }
  IEEEFloat(IEEEFloat&& other) noexcept
      : fmt_(other.fmt_), tag_(other.tag_), payload_(other.payload_) {
    other.reset();
  }
  IEEEFloat& operator=(IEEEFloat const& other) {
    if (narrow() && other.narrow()) {
      fmt_ = other.fmt_;
      tag_ = other.tag_;
      payload_.u64 = other.payload_.u64;
      return *this;
    }
    return assign_wide(other);
  }
  IEEEFloat& operator=(IEEEFloat&& other) noexcept {
    if (this == &other) return *this;
    release();
    fmt_ = other.fmt_;
    tag_ = other.tag_;
    payload_ = other.payload_;
    other.reset();
    return *this;
  }
  ~IEEEFloat() { release(); }

  // The value with bit pattern `bits` (a non-negative integer) in format f,
  // rounding mode 0.  Throws std::invalid_argument for an invalid format, and
  // for a pattern that is negative, not an integer, or at least 2^(eb + sb).
  static IEEEFloat from_bits(QNumber const& bits, format f);
  static IEEEFloat from_bits(mpz_srcptr bits, format f);
  static IEEEFloat from_bits(std::uint64_t bits, format f);
  // The value of format f nearest to d, ties to even (exact for every format;
  // overflow gives infinity, NaN gives the quiet NaN with d's sign).
  static IEEEFloat from_double(double d, format f);
  // The value with pattern `bits` in format f, for a format of at most 64
  // bits that the caller knows to be valid and a pattern that fits it; no
  // checks (the arithmetic's fast paths make their results with it).
  static IEEEFloat from_narrow_bits(std::uint64_t bits, format f) noexcept {
    IEEEFloat r;
    r.fmt_ = f;
    r.tag_ = narrow_tag(f) | rm_nearest_even;
    r.payload_.u64 = bits;
    return r;
  }
  // The value as a double, rounded to nearest even (overflow gives infinity,
  // NaN gives a quiet NaN with this value's sign).
  double to_double() const;

  // Turn this value into infinity (negative when `negative`) or into the quiet
  // NaN with the sign clear (top trailing significand bit set, rest clear).
  void self_inf(bool negative);
  void self_nan();
  // The same values built fresh in format f with rounding mode 0: the quiet
  // NaN, an infinity and a zero.  Throw std::invalid_argument for an invalid
  // format.
  static IEEEFloat nan(format f);
  static IEEEFloat inf(format f, bool negative);
  static IEEEFloat zero(format f, bool negative);

  bool is_nan() const { return narrow() ? magnitude64() > inf_magnitude64() : is_nan_wide(); }
  bool is_inf() const;
  bool is_zero() const;
  bool is_subnormal() const;
  bool is_normal() const;
  bool get_sign() const {
    return narrow() ? (payload_.u64 >> (width() - 1)) != 0 : get_sign_wide();
  }

  format get_format() const noexcept { return fmt_; }
  std::uint64_t width() const noexcept { return fmt_.eb + fmt_.sb; }
  payload_kind kind() const noexcept { return static_cast<payload_kind>(tag_ >> kind_shift); }
  // True for kinds 0 and 1: the pattern is the payload word itself.
  bool narrow() const noexcept { return tag_ < (std::uint32_t{kind_qnumber} << kind_shift); }
  rounding_mode get_rounding_mode() const noexcept {
    return static_cast<rounding_mode>(tag_ & rm_mask);
  }
  // Kinds 0 and 1 only: 64 - (eb + sb) and 64 - eb, read from the tag.
  unsigned narrow_up_shift() const noexcept { return (tag_ >> up_shift) & shift_mask; }
  unsigned narrow_inf_shift() const noexcept { return (tag_ >> inf_shift) & shift_mask; }
  // Raw payload access by kind.
  std::uint32_t payload_u32() const noexcept { return static_cast<std::uint32_t>(payload_.u64); }
  std::uint64_t payload_u64() const noexcept { return payload_.u64; }
  QNumber const& payload_q() const noexcept { return *payload_.q; }

  // The bit pattern into an initialised GMP integer.
  void get_bits(mpz_ptr out) const;
  // The SMT-LIB literal (fp #b<sign> #b<exponent> #b<trailing significand>).
  std::string to_str() const;

  static void check_format(format f); // throws std::invalid_argument
  static payload_kind kind_of(format f) noexcept;

private:
  void set_bits(mpz_srcptr bits); // pattern already checked to fit
  void set_bits_u64(std::uint64_t bits);
  // The tag of format f with rounding mode rm (f already checked).
  static std::uint32_t tag_of(format f, rounding_mode rm) noexcept;
  // The tag of a format of at most 64 bits, rounding mode 0: its kind and the
  // shift amounts the packed order reads.
  static constexpr std::uint32_t narrow_tag(format f) noexcept {
    return (static_cast<std::uint32_t>(f.eb + f.sb <= 32 ? kind_u32 : kind_u64) << kind_shift) |
           (static_cast<std::uint32_t>(64 - (f.eb + f.sb)) << up_shift) |
           (static_cast<std::uint32_t>(64 - f.eb) << inf_shift);
  }
  static constexpr std::uint32_t default_tag = // Float32, rounding mode 0
      (std::uint32_t{32} << up_shift) | (std::uint32_t{56} << inf_shift);
  // Out of line: the halves that own or release a QNumber.
  void copy_wide(IEEEFloat const& other);
  IEEEFloat& assign_wide(IEEEFloat const& other);
  void release_wide() noexcept;
  void release() noexcept {
    if (!narrow()) release_wide();
  }
  // Leaves the moved-from state: +0 in Float32 without releasing anything.
  void reset() noexcept {
    fmt_ = format{};
    tag_ = default_tag;
    payload_.u64 = 0;
  }
  bool is_nan_wide() const;
  bool get_sign_wide() const;

  // Narrow kinds only: the pattern without its sign, and that of infinity.
  std::uint64_t sign_bit64() const noexcept { return std::uint64_t{1} << (width() - 1); }
  std::uint64_t magnitude64() const noexcept { return payload_.u64 & (sign_bit64() - 1); }
  std::uint64_t inf_magnitude64() const noexcept {
    return sign_bit64() - (std::uint64_t{1} << (fmt_.sb - 1));
  }

  format fmt_;
  std::uint32_t tag_;
  union Payload {
    std::uint64_t u64; // kinds 0 and 1 (kind 0 uses the low half)
    QNumber* q;        // kind 2
  } payload_;
};

// How a format is written, the one place for both spellings: "(eb, sb)" in
// messages, "(_ FloatingPoint eb sb)" as an SMT-LIB sort.
std::string format_text(IEEEFloat::format f);
std::string fp_sort_text(IEEEFloat::format f);

} // namespace qorv
