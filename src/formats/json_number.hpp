// Reading one JSON number from UTF-16 text: where it ends, Long, LongLong
// or Double, and its value. Plain decimals are converted here, correctly
// rounded; every other text goes to the runtime's conversions, which give
// the same value or raise their error. Internal to the JSON reader.
//
//   size_t pos = 0;
//   Value v = detail::NumberReader(text.data(), text.size(), pos, true).Read();
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

#if defined(__SSE2__) && defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"

namespace kestrel::detail {

// Characters a number gathers: 1 for "+-0123456789", 2 for ".eE" (which
// make it a Double). A byte's worth, so that a unit's low byte can index it.
inline constexpr auto kNumberChars = [] {
  std::array<uint8_t, 256> table{};
  for (char c : std::string_view("+-0123456789")) table[static_cast<size_t>(c)] = 1;
  for (char c : std::string_view(".eE")) table[static_cast<size_t>(c)] = 2;
  return table;
}();

inline bool IsDigit(char16_t c) noexcept {
  return c >= u'0' && c <= u'9';
}

// A well-formed decimal -?d+(.d+)?([eE][+-]?d+)? as its significant digits
// and a power of ten; `exact` is off when there are more than 19 digits
// (then `digits` and `exponent` are meaningless).
struct Decimal {
  uint64_t digits = 0;
  int32_t exponent = 0;
  bool negative = false;
  bool exact = true;
};

// False when the text is not of that form; then the runtime's conversion
// decides.
inline bool ScanDecimal(std::u16string_view text, Decimal& out) noexcept {
  size_t i = 0;
  const size_t n = text.size();
  if (i < n && text[i] == u'-') {
    out.negative = true;
    ++i;
  }
  int significant = 0;
  int32_t scale = 0;  // digits after the point, counted into the exponent
  auto digits = [&](bool fraction) {
    const size_t start = i;
    for (; i < n && text[i] >= u'0' && text[i] <= u'9'; ++i) {
      if (out.digits == 0 && text[i] == u'0') {
        if (fraction) ++scale;
        continue;
      }
      if (++significant > 19) {
        out.exact = false;
        continue;
      }
      out.digits = out.digits * 10 + (text[i] - u'0');
      if (fraction) ++scale;
    }
    return i > start;
  };
  if (!digits(false)) return false;
  if (i < n && text[i] == u'.') {
    ++i;
    if (!digits(true)) return false;
  }
  int32_t exponent = 0;
  if (i < n && (text[i] == u'e' || text[i] == u'E')) {
    ++i;
    bool minus = false;
    if (i < n && (text[i] == u'+' || text[i] == u'-')) minus = text[i++] == u'-';
    const size_t start = i;
    for (; i < n && text[i] >= u'0' && text[i] <= u'9'; ++i) {
      if (exponent < 100000) exponent = exponent * 10 + (text[i] - u'0');
    }
    if (i == start) return false;
    if (minus) exponent = -exponent;
  }
  if (i != n) return false;
  out.exponent = exponent - scale;
  return true;
}

// 5^q for q from -27 to 27 as a 128-bit significand with its top bit set:
// exact for q >= 0 (5^27 fits in 64 bits); for q < 0, 2^b / 5^-q rounded
// up, b making the top bit the 128th.
struct Power128 {
  uint64_t high, low;
};
// GCC and Clang's 128-bit integer; __extension__ keeps -Wpedantic quiet.
__extension__ typedef unsigned __int128 Uint128;
inline constexpr int kPowerRange = 27;
inline constexpr auto kPowersOfFive = [] {
  std::array<Power128, 2 * kPowerRange + 1> out{};
  for (int q = -kPowerRange; q <= kPowerRange; ++q) {
    Uint128 t = 0;
    uint64_t five = 1;
    for (int k = 0; k < (q < 0 ? -q : q); ++k) five *= 5;
    if (q >= 0) {
      t = static_cast<Uint128>(five) << (64 + std::countl_zero(five));
    } else {
      // Long division of a power of two by 5^-q, bit by bit, keeping 128
      // quotient bits from the first 1.
      uint64_t rest = 1;
      for (int bits = 0; bits < 128;) {
        rest <<= 1;
        const bool bit = rest >= five;
        if (bit) rest -= five;
        if (bits > 0 || bit) {
          t = (t << 1) | (bit ? 1 : 0);
          ++bits;
        }
      }
      t += 1;
    }
    out[static_cast<size_t>(q + kPowerRange)] = {static_cast<uint64_t>(t >> 64),
                                                 static_cast<uint64_t>(t)};
  }
  return out;
}();

// digits * 10^exponent correctly rounded, for exponents within
// kPowerRange: the significand times the 128-bit power of five, the power
// of two folded into the binary exponent. Over this range of exponents the
// product's leading bits are known to decide the rounding; the one
// ambiguous shape left returns false.
inline bool MultipliedDouble(uint64_t digits, int32_t exponent, double& out) noexcept {
  const Power128 power = kPowersOfFive[static_cast<size_t>(exponent + kPowerRange)];
  const int zeros = std::countl_zero(digits);
  const uint64_t w = digits << zeros;
  const Uint128 first = static_cast<Uint128>(w) * power.high;
  auto high = static_cast<uint64_t>(first >> 64);
  auto low = static_cast<uint64_t>(first);
  if (((high + 1) & 0x1ff) == 0) {
    // The bits below the 55 kept might carry into them: add the product
    // with the power's low half.
    const auto second = static_cast<uint64_t>((static_cast<Uint128>(w) * power.low) >> 64);
    low += second;
    if (second > low) ++high;
    if (low == ~uint64_t{0}) return false;
  }
  const int upper = static_cast<int>(high >> 63);
  uint64_t mantissa = high >> (upper + 9);
  // floor(q * log2(10)) + 63, plus the normalisation, biased.
  const int32_t power2 = (((152170 + 65536) * exponent) >> 16) + 63 + upper - zeros + 1023;
  if (power2 <= 0) return false;
  // Exactly halfway (possible only for these exponents): to even.
  if (low <= 1 && exponent >= -4 && exponent <= 23 && (mantissa & 3) == 1 &&
      (mantissa << (upper + 9)) == high) {
    mantissa &= ~uint64_t{1};
  }
  // Round half up, then add the exponent: the implicit bit lands in it, and
  // a mantissa that rounded up to 2^53 carries into it by itself.
  const uint64_t bits = ((mantissa + 1) >> 1) + (static_cast<uint64_t>(power2 - 1) << 52);
  if (bits >= uint64_t{0x7ff} << 52) return false;
  out = std::bit_cast<double>(bits);
  return true;
}

// The same for digits * 10^-16 (digits not 0), as the Double's bits. No
// such product is exactly halfway between two Doubles or outside the
// normal range, so rounding the top 64 bits half up, as above, is what the
// conversion of an integer to a Double does once a set lowest bit rules
// out a tie; the power of two is then added to the exponent field.
inline bool MultipliedDouble16(uint64_t digits, uint64_t& out) noexcept {
  const Power128 power = kPowersOfFive[static_cast<size_t>(kPowerRange - 16)];
  const int zeros = std::countl_zero(digits);
  const uint64_t w = digits << zeros;
  const Uint128 first = static_cast<Uint128>(w) * power.high;
  auto high = static_cast<uint64_t>(first >> 64);
  if (((high + 1) & 0x1ff) == 0) {
    auto low = static_cast<uint64_t>(first);
    const auto second = static_cast<uint64_t>((static_cast<Uint128>(w) * power.low) >> 64);
    low += second;
    if (second > low) ++high;
    if (low == ~uint64_t{0}) return false;
  }
  // Halved to fit the signed conversion; the Double then has the exponent
  // 61 + the top bit of `high` (or one more when rounding carries), which
  // the top bit's part of the product's power of two cancels:
  // floor(-16 * log2(10)) + 2 - zeros in all.
  const auto rounded = static_cast<double>(static_cast<int64_t>((high >> 1) | 1));
  out = std::bit_cast<uint64_t>(rounded) - (static_cast<uint64_t>(52 + zeros) << 52);
  return true;
}

// The correctly rounded Double of a decimal, without from_chars, when that
// is cheap to get exactly; false otherwise.
inline bool FastDouble(const Decimal& d, double& out) noexcept {
  static constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                            1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                            1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  double value;
  if (!d.exact) return false;
  if (d.digits == 0) {
    value = 0;
  } else if (d.digits <= (uint64_t{1} << 53) && d.exponent >= -22 && d.exponent <= 22) {
    // Both operands are exact Doubles, so one rounding gives the answer.
    const auto digits = static_cast<double>(d.digits);
    value =
        d.exponent >= 0 ? digits * kExactPowers[d.exponent] : digits / kExactPowers[-d.exponent];
  } else if (d.exponent < -kPowerRange || d.exponent > kPowerRange ||
             !MultipliedDouble(d.digits, d.exponent, value)) {
    return false;
  }
  out = d.negative ? -value : value;
  return true;
}

// 10^0 to 10^19, all that fit in 64 bits.
inline constexpr auto kPowersOfTen = [] {
  std::array<uint64_t, 20> out{};
  uint64_t power = 1;
  for (uint64_t& p : out) {
    p = power;
    power *= 10;
  }
  return out;
}();

#if defined(__SSE2__) && defined(__x86_64__)
// Multipliers that turn the first `length` of 16 digit values (two vectors
// of eight 16-bit units) into two numbers, one per vector, in three
// multiply-add steps: pairs (d0 * 10 + d1), quads (pair * 10^k + pair),
// then eights (quad * 10^k + quad). Units past the run get 0, so whatever
// follows the digits drops out, and a short run needs no shift.
struct alignas(64) DigitWeights {
  int16_t pairs[16];  // the first vector's units, then the second's
  int16_t quads[8];   // the first vector's four pairs, then the second's
  int16_t eights[8];  // the first vector's two quads, the second's, then unused
};
inline constexpr auto kDigitWeights = [] {
  std::array<DigitWeights, 17> out{};
  for (int length = 0; length <= 16; ++length) {
    DigitWeights& w = out[static_cast<size_t>(length)];
    for (int half = 0; half < 2; ++half) {
      const int digits = std::clamp(length - 8 * half, 0, 8);
      for (int quad = 0; quad < 2; ++quad) {
        const int in_quad = std::clamp(digits - 4 * quad, 0, 4);
        for (int pair = 0; pair < 2; ++pair) {
          const int in_pair = std::clamp(in_quad - 2 * pair, 0, 2);
          const int unit = 8 * half + 4 * quad + 2 * pair;
          w.pairs[unit] = static_cast<int16_t>(in_pair == 2 ? 10 : in_pair);
          w.pairs[unit + 1] = static_cast<int16_t>(in_pair == 2 ? 1 : 0);
        }
        // The first pair's value shifted past the second pair's digits.
        const int second_pair = std::clamp(in_quad - 2, 0, 2);
        w.quads[4 * half + 2 * quad] = static_cast<int16_t>(second_pair == 2   ? 100
                                                            : second_pair == 1 ? 10
                                                                               : 1);
        w.quads[4 * half + 2 * quad + 1] = 1;
      }
      const int second_quad = std::clamp(digits - 4, 0, 4);
      int16_t scale = 1;
      for (int k = 0; k < second_quad; ++k) scale = static_cast<int16_t>(scale * 10);
      w.eights[2 * half] = scale;
      w.eights[2 * half + 1] = 1;
    }
  }
  return out;
}();

inline __m128i LoadUnits(const char16_t* p) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// The value of the first `length` (at most 8) units at `p`, all digits;
// the 8 units from `p` on must be readable.
inline uint32_t DigitRun8(const char16_t* p, unsigned length) noexcept {
  const auto* weights = reinterpret_cast<const __m128i*>(&kDigitWeights[length]);
  const __m128i pairs =
      _mm_madd_epi16(_mm_sub_epi16(LoadUnits(p), _mm_set1_epi16(u'0')), weights[0]);
  // The copies packing makes in the upper halves end up in unused lanes.
  const __m128i quads = _mm_madd_epi16(_mm_packs_epi32(pairs, pairs), weights[2]);
  const __m128i eights = _mm_madd_epi16(_mm_packs_epi32(quads, quads), weights[3]);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(eights));
}

// The same for up to 16 units; the 16 units from `p` on must be readable.
inline uint64_t DigitRun16(const char16_t* p, unsigned length) noexcept {
  const __m128i zeros = _mm_set1_epi16(u'0');
  const auto* weights = reinterpret_cast<const __m128i*>(&kDigitWeights[length]);
  const __m128i pairs =
      _mm_packs_epi32(_mm_madd_epi16(_mm_sub_epi16(LoadUnits(p), zeros), weights[0]),
                      _mm_madd_epi16(_mm_sub_epi16(LoadUnits(p + 8), zeros), weights[1]));
  const __m128i quads = _mm_madd_epi16(pairs, weights[2]);
  const __m128i eights = _mm_madd_epi16(_mm_packs_epi32(quads, quads), weights[3]);
  const auto both = static_cast<uint64_t>(_mm_cvtsi128_si64(eights));
  return (both & 0xffffffff) * kPowersOfTen[length > 8 ? length - 8 : 0] + (both >> 32);
}

// The same for up to 19 units; the 24 units from `p` on must be readable.
[[gnu::always_inline]] inline uint64_t DigitRun(const char16_t* p, unsigned length) noexcept {
  if (length <= 8) return DigitRun8(p, length);
  if (length <= 16) return DigitRun16(p, length);
  return DigitRun16(p, 16) * kPowersOfTen[length - 16] + DigitRun8(p + 16, length - 16);
}

// Lane masks for PointDigits, read at an offset: 24 units from
// kLanesBelow + 24 - k keep the first k lanes; 8 from kLanesFrom + 8 - k
// keep all but the first k.
alignas(64) inline constexpr int16_t kLanesBelow[48] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
alignas(32) inline constexpr int16_t kLanesFrom[16] = {0,  0,  0,  0,  0,  0,  0,  0,
                                                       -1, -1, -1, -1, -1, -1, -1, -1};

// The 1 to 3 digits before the point at `point` and the 1 to 16 after it
// as one number of 19 digits, the fraction padded with zeros to 16: that
// is, the decimal times 10^16. The units are taken 24 at a time from three
// before the point, so the whole part ends and the fraction starts at the
// same lanes whatever their lengths: every weight is a constant, the point
// gets weight 0, and only the masks for the lanes before the first digit
// and after the last depend on the lengths. No power of ten scales the
// parts. The 3 units before the point and 20 after must be readable.
inline uint64_t PointDigits(const char16_t* point, unsigned whole, unsigned fraction) noexcept {
  const __m128i zeros = _mm_set1_epi16(u'0');
  const int16_t* below = kLanesBelow + 20 - fraction;  // the lanes up to the last digit
  const __m128i digits =
      _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(below)),
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(kLanesFrom + 5 + whole)));
  const __m128i a = _mm_and_si128(_mm_sub_epi16(LoadUnits(point - 3), zeros), digits);
  const __m128i b = _mm_and_si128(_mm_sub_epi16(LoadUnits(point + 5), zeros),
                                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(below + 8)));
  const __m128i c = _mm_and_si128(_mm_sub_epi16(LoadUnits(point + 13), zeros),
                                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(below + 16)));
  // Lanes w0 w1 w2 . f0 f1 f2 f3 | f4 ... f11 | f12 f13 f14 f15 (4 unused):
  // pairs w0w1, w2, f0f1, f2f3, f4f5 ... f10f11; f12f13f14f15 straight to
  // its two halves; then w0w1w2 and quads f0f1f2f3 ... f8f9f10f11; then
  // w0w1w2f0f1f2f3, f4...f11, f12...f15.
  const __m128i pairs =
      _mm_packs_epi32(_mm_madd_epi16(a, _mm_setr_epi16(10, 1, 1, 0, 10, 1, 10, 1)),
                      _mm_madd_epi16(b, _mm_setr_epi16(10, 1, 10, 1, 10, 1, 10, 1)));
  const __m128i quads =
      _mm_packs_epi32(_mm_madd_epi16(pairs, _mm_setr_epi16(10, 1, 100, 1, 100, 1, 100, 1)),
                      _mm_madd_epi16(c, _mm_setr_epi16(1000, 100, 10, 1, 0, 0, 0, 0)));
  const __m128i parts = _mm_madd_epi16(quads, _mm_setr_epi16(10000, 1, 10000, 1, 1, 1, 0, 0));
  const auto high = static_cast<uint64_t>(_mm_cvtsi128_si64(parts));
  const auto low = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(parts, parts)));
  return (high & 0xffffffff) * 1000000000000 + (high >> 32) * 10000 + low;
}

// The 16 units at `p` as bytes: unsigned saturation keeps ASCII and turns
// every other unit into 0 or 0xff.
inline __m128i UnitBytes(const char16_t* p) noexcept {
  return _mm_packus_epi16(LoadUnits(p), LoadUnits(p + 8));
}

// The units other than digits among 16 such bytes, one bit each, the
// first lowest: the top bit of a byte is set by saturating arithmetic for
// those above "9" (the bytes of units past ASCII among them) and for those
// below "0", side by side, not by compares (which the compiler would turn
// into a compare and a negation).
inline uint32_t OtherMask(__m128i bytes) noexcept {
  return static_cast<uint32_t>(_mm_movemask_epi8(
      _mm_or_si128(_mm_adds_epu8(bytes, _mm_set1_epi8(0x80 - '9' - 1)),
                   _mm_subs_epu8(_mm_set1_epi8(static_cast<char>(0x80 + '0' - 1)), bytes))));
}

inline uint32_t PointMask(__m128i bytes) noexcept {
  return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('.'))));
}
#endif

class NumberReader {
 public:
  // `pos` is the reader's position: it moves past the number, also when a
  // conversion raises its error (the error line starts after the number).
  NumberReader(const char16_t* s, size_t n, size_t& pos, bool large_integers) noexcept
      : s_(s), n_(n), pos_(pos), large_integers_(large_integers) {}

  // Reads the number at the position. Text ending inside the number gives
  // Empty, with the position at the end. Inline in the reader, whatever
  // the compiler's estimate of its size: the common forms then cost no
  // call and no reader object in memory.
  [[gnu::always_inline]] Value Read() { return ReadNumber(); }

 private:
  [[gnu::always_inline]] Value ReadNumber() {
#if defined(__SSE2__) && defined(__x86_64__)
    // The common forms -d+ and -d+.d+ followed by a unit that no number
    // gathers, up to 32 units long: their extent from vector compares of 16
    // units and their digits from multiply-add chains, with no loop and no
    // branch per digit. Every read stays within 40 units of the number's
    // start (and 3 before it). Near the end of the text, and for every
    // other form, one unit at a time.
    if (n_ - pos_ >= 48) {
      const char16_t* p = s_ + pos_;
      const __m128i bytes = UnitBytes(p);
      const uint32_t others = OtherMask(bytes);
      // Points are looked for in the first 16 units only: a later one ends
      // the extent, and being a unit that numbers gather, sends the number
      // down the general path.
      const uint32_t points = PointMask(bytes);
      // Whether a minus sign comes first is read off that mask (the sign
      // itself is checked on a branch): a compare's flag would land in a
      // byte register, and writing one waits for the whole register's last
      // value, often the previous number's result.
      const uint32_t negative = others & 1;
      // Sign, digits and the first point, up to the first other unit: a
      // second point ends the extent too. The next number's position waits
      // for this length, so a long number's takes the second 16 units'
      // mask alone, not both masks joined.
      const uint32_t ends = others & ~((points & (0 - points)) | 1);
      const unsigned length =
          ends != 0 ? std::countr_zero(ends)
                    : 16 + std::countr_zero(OtherMask(UnitBytes(p + 16)) | uint32_t{1} << 16);
      // Bit 32 stands for no point: past the longest extent.
      const auto point = static_cast<unsigned>(std::countr_zero(points | uint64_t{1} << 32));
      // Only the low byte of the unit after: a unit past 0xff that it
      // mistakes for part of a number takes the general path, which reads
      // it right.
      if ((negative == 0 || *p == u'-') && kNumberChars[static_cast<uint8_t>(p[length])] == 0) {
        const std::u16string_view text(p, length);
        if (point >= length) {
          const unsigned count = length - negative;
          if (count - 1 < 18) {
            pos_ += length;
            const auto magnitude = static_cast<int64_t>(DigitRun(p + negative, count));
            const int64_t value = negative != 0 ? -magnitude : magnitude;
            if (value >= INT32_MIN && value <= INT32_MAX) return Value(static_cast<int32_t>(value));
            if (large_integers_) return Value(value);
            return ToWhole(text, large_integers_);
          }
          if (count != 0) {
            pos_ += length;
            return ToWhole(text, large_integers_);
          }
        } else {
          const unsigned whole = point - negative;
          const unsigned fraction = length - point - 1;
          // The product with a power of five, even where one exact
          // division would do: a branch on the size of the digits would be
          // guessed wrong too often. Every exponent here is within its
          // table.
          if (whole - 1 < 3 && fraction - 1 < 16 && pos_ >= 3) {
            pos_ += length;
            const uint64_t value_digits = PointDigits(p + point, whole, fraction);
            uint64_t bits = 0;
            if (value_digits == 0 || MultipliedDouble16(value_digits, bits)) {
              return Value(std::bit_cast<double>(bits | uint64_t{negative} << 63));
            }
            return ToReal(text);
          }
          if (whole != 0 && fraction != 0) {
            pos_ += length;
            if (whole + fraction <= 19) {
              double value = 0;
              const uint64_t value_digits = DigitRun(p + negative, whole) * kPowersOfTen[fraction] +
                                            DigitRun(p + point + 1, fraction);
              if (value_digits == 0 ||
                  MultipliedDouble(value_digits, -static_cast<int32_t>(fraction), value)) {
                return Value(std::bit_cast<double>(std::bit_cast<uint64_t>(value) |
                                                   uint64_t{negative} << 63));
              }
            }
            return ToReal(text);
          }
        }
      }
    }
#endif
    return ReadByUnit(s_, n_, pos_, large_integers_);
  }

  // The general path takes the reader's parts as arguments, so that the
  // fast path never needs the reader in memory.
  [[gnu::noinline]] static Value ReadByUnit(const char16_t* s, size_t n, size_t& pos,
                                            bool large_integers) {
    return NumberReader(s, n, pos, large_integers).ReadNumberByUnit();
  }

  // The same, one unit after another, for the end of the text and for
  // machines without those vectors.
  Value ReadNumberByUnit() {
    // A plain decimal is converted straight from the text; anything else
    // (and text ending inside the number) takes the general path.
    size_t i = pos_;
    Decimal d;
    if (i < n_ && s_[i] == u'-') {
      d.negative = true;
      ++i;
    }
    const size_t first = i;
    i = ReadDigits(i, d.digits);
    size_t count = i - first;
    bool real = false;
    if (count > 0 && i < n_ && s_[i] == u'.') {
      real = true;
      const size_t fraction = ++i;
      i = ReadDigits(i, d.digits);
      if (i == fraction) count = 0;
      count += i - fraction;
      d.exponent = -static_cast<int32_t>(i - fraction);
    }
    if (count > 0 && i < n_ && (s_[i] == u'e' || s_[i] == u'E')) {
      real = true;
      ++i;
      bool minus = false;
      if (i < n_ && (s_[i] == u'+' || s_[i] == u'-')) minus = s_[i++] == u'-';
      const size_t digits = i;
      int32_t exponent = 0;
      for (; i < n_ && IsDigit(s_[i]); ++i) {
        if (exponent < 100000) exponent = exponent * 10 + (s_[i] - u'0');
      }
      if (i == digits) count = 0;
      d.exponent += minus ? -exponent : exponent;
    }
    if (count > 0 && i < n_ && (s_[i] >= 0x80 || kNumberChars[s_[i]] == 0)) {
      const std::u16string_view text(s_ + pos_, i - pos_);
      pos_ = i;
      if (!real) {
        if (count <= 18) {
          const int64_t value =
              d.negative ? -static_cast<int64_t>(d.digits) : static_cast<int64_t>(d.digits);
          if (value >= INT32_MIN && value <= INT32_MAX) return Value(static_cast<int32_t>(value));
          if (large_integers_) return Value(value);
        }
        return ToWhole(text, large_integers_);
      }
      // More than 19 digits would have wrapped.
      d.exact = count <= 19 && d.exponent > -1000000 && d.exponent < 1000000;
      double value = 0;
      if (FastDouble(d, value)) return Value(value);
      return ToReal(text);
    }
    return ReadGatheredNumber();
  }

  // Accumulates the decimal digits from `i` on into `digits` (wrapping past
  // 19 of them) and returns the position after the last.
  size_t ReadDigits(size_t i, uint64_t& digits) const noexcept {
    if constexpr (std::endian::native == std::endian::little) {
      // Four units at a time, the last one to three digits of a run too.
      // Each unit XOR 0x30 is 0 to 9 for a digit; anything else has a bit
      // set from 0x10 up in itself or in itself plus 6. A unit past the
      // first non-digit may take a carry from it, which does not matter.
      static constexpr uint64_t kScale[] = {1, 10, 100, 1000};
      while (n_ - i >= 4) {
        uint64_t units;
        std::memcpy(&units, s_ + i, sizeof(units));
        const uint64_t values = units ^ 0x0030003000300030ULL;
        const uint64_t stops = (values | (values + 0x0006000600060006ULL)) & 0xfff0fff0fff0fff0ULL;
        if (stops == 0) {
          digits = digits * 10000 + FourDigits(values);
          i += 4;
          continue;
        }
        const auto count = static_cast<unsigned>(std::countr_zero(stops)) / 16;
        if (count > 0) {
          // The digits moved to the last units, behind leading zeros.
          digits = digits * kScale[count] + FourDigits(values << (64 - 16 * count));
          i += count;
        }
        return i;
      }
    }
    for (; i < n_ && IsDigit(s_[i]); ++i) digits = digits * 10 + (s_[i] - u'0');
    return i;
  }

  // The number written by four digit values, d0 d1 d2 d3 (first in the
  // lowest unit): d0d1, d2d3, then d0d1d2d3.
  static uint64_t FourDigits(uint64_t values) noexcept {
    const uint64_t pairs = (values * 10 + (values >> 16)) & 0x0000ffff0000ffffULL;
    return (pairs * 100 + (pairs >> 32)) & 0xffffffffULL;
  }

  Value ReadGatheredNumber() {
    const size_t start = pos_;
    uint8_t seen = 0;
    for (; pos_ < n_ && s_[pos_] < 0x80; ++pos_) {
      const uint8_t c = kNumberChars[s_[pos_]];
      if (c == 0) break;
      seen |= c;
    }
    if (pos_ >= n_) return Value();
    const std::u16string_view text(s_ + start, pos_ - start);
    return (seen & 2) != 0 ? ToReal(text) : ToWhole(text, large_integers_);
  }

  // Well-formed numbers are converted here; every other text goes to the
  // runtime's conversion, which gives the same value or raises its error.
  [[gnu::noinline]] static Value ToReal(std::u16string_view text) {
    Decimal d;
    if (ScanDecimal(text, d)) {
      double value = 0;
      if (FastDouble(d, value)) return Value(value);
      char buffer[64];
      if (text.size() < sizeof(buffer)) {
        // Well formed, so ASCII.
        for (size_t k = 0; k < text.size(); ++k) buffer[k] = static_cast<char>(text[k]);
        auto [end, ec] = std::from_chars(buffer, buffer + text.size(), value);
        if (ec == std::errc() && std::isfinite(value)) return Value(value);
      }
    }
    return Value(runtime::ToDouble(Value(text)));
  }

  [[gnu::noinline]] static Value ToWhole(std::u16string_view text, bool large_integers) {
    size_t i = text.size() > 0 && text[0] == u'-' ? 1 : 0;
    const size_t digits = text.size() - i;
    if (digits >= 1 && digits <= 18) {
      int64_t magnitude = 0;
      for (; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c < u'0' || c > u'9') break;
        magnitude = magnitude * 10 + (c - u'0');
      }
      if (i == text.size()) {
        const int64_t value = text[0] == u'-' ? -magnitude : magnitude;
        if (value >= INT32_MIN && value <= INT32_MAX) return Value(static_cast<int32_t>(value));
        if (large_integers) return Value(value);
      }
    }
    const Value number(text);
    if (!large_integers) return Value(runtime::ToLong(number));
    try {
      return Value(runtime::ToLong(number));
    } catch (const RuntimeError& e) {
      if (e.number() != errors::kOverflow) throw;
    }
    return Value(runtime::ToLongLong(number));
  }

  const char16_t* s_;
  size_t n_;
  size_t& pos_;
  bool large_integers_;
};

}  // namespace kestrel::detail
