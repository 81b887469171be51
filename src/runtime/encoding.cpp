// Windows-1252, the fixed ANSI code page.
//
// Bytes 00-7F and A0-FF are the code points of the same number. Of 80-9F,
// 27 bytes hold typographic characters (euro, curly quotes, dashes, ...);
// the other five are undefined in the code page and map to the C1 control
// of the same number, both ways, as the platform's conversion does, so that
// any byte string survives FromAnsi followed by ToAnsi.
//
// Both directions are table lookups. Conversions of whole texts allocate
// their result once: ToAnsi never writes more bytes than there are units
// (a surrogate pair becomes a single "?"), FromAnsi one unit per byte.

#include "kestrel/runtime/encoding.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kestrel::runtime {
namespace {

constexpr char kSubstitute = '?';

// Bytes 80-9F. The five undefined ones stand for themselves.
constexpr std::array<char16_t, 32> kHighControls = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

constexpr std::array<char16_t, 256> MakeToUnicode() {
  std::array<char16_t, 256> table{};
  for (int b = 0; b < 256; ++b) table[b] = static_cast<char16_t>(b);
  for (int b = 0x80; b < 0xA0; ++b) table[b] = kHighControls[b - 0x80];
  return table;
}
constexpr std::array<char16_t, 256> kToUnicode = MakeToUnicode();

// Units below 0x100: the byte, or -1 for the C1 controls that 1252 reuses.
constexpr std::array<int16_t, 256> MakeFromLatin1() {
  std::array<int16_t, 256> table{};
  for (int u = 0; u < 256; ++u) table[u] = static_cast<int16_t>(u);
  for (int u = 0x80; u < 0xA0; ++u) table[u] = -1;
  for (int b = 0x80; b < 0xA0; ++b) {
    if (kHighControls[b - 0x80] < 0x100) table[kHighControls[b - 0x80]] = static_cast<int16_t>(b);
  }
  return table;
}
constexpr std::array<int16_t, 256> kFromLatin1 = MakeFromLatin1();

// Units from 0x100 on that the code page has: all of them come from 80-9F.
// Sorted by unit for a binary search.
constexpr size_t kWideCount = 27;
constexpr std::array<std::pair<char16_t, uint8_t>, kWideCount> MakeFromWide() {
  std::array<std::pair<char16_t, uint8_t>, kWideCount> table{};
  size_t n = 0;
  for (int b = 0x80; b < 0xA0; ++b) {
    if (kHighControls[b - 0x80] >= 0x100) {
      table[n++] = {kHighControls[b - 0x80], static_cast<uint8_t>(b)};
    }
  }
  std::sort(table.begin(), table.end());
  return table;
}
constexpr std::array<std::pair<char16_t, uint8_t>, kWideCount> kFromWide = MakeFromWide();
static_assert(kFromWide.front().first == 0x0152 && kFromWide.back().first == 0x2122);

inline bool IsLeadSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
inline bool IsTrailSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

inline int ByteOf(char16_t unit) {
  if (unit < 0x100) return kFromLatin1[unit];
  if (unit < kFromWide.front().first || unit > kFromWide.back().first) return -1;
  const auto it = std::lower_bound(kFromWide.begin(), kFromWide.end(), unit,
                                   [](const auto& entry, char16_t u) { return entry.first < u; });
  return it != kFromWide.end() && it->first == unit ? it->second : -1;
}

}  // namespace

std::optional<uint8_t> AnsiByte(char16_t unit) noexcept {
  const int byte = ByteOf(unit);
  if (byte < 0) return std::nullopt;
  return static_cast<uint8_t>(byte);
}

char16_t AnsiChar(uint8_t byte) noexcept {
  return kToUnicode[byte];
}

std::string ToAnsi(std::u16string_view text) {
  std::string out(text.size(), '\0');
  char* o = out.data();
  const size_t n = text.size();
  for (size_t i = 0; i < n; ++i) {
    const char16_t unit = text[i];
    if (unit < 0x80) {
      *o++ = static_cast<char>(unit);
      continue;
    }
    // One character outside the code page is one "?", even when UTF-16
    // needs two units for it.
    if (IsLeadSurrogate(unit) && i + 1 < n && IsTrailSurrogate(text[i + 1])) {
      *o++ = kSubstitute;
      ++i;
      continue;
    }
    const int byte = ByteOf(unit);
    *o++ = byte < 0 ? kSubstitute : static_cast<char>(byte);
  }
  out.resize(static_cast<size_t>(o - out.data()));
  return out;
}

// Every byte outside 80-9F stands for the character of the same number, so
// text is widened 16 bytes at a time (the compiler vectorises the inner
// loop) and only a block that holds a byte of 80-9F goes through the table.
void DecodeAnsi(std::string_view bytes, char16_t* out) noexcept {
  const auto* in = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t n = bytes.size();
  // Whether any byte of x is 80-9F: its top three bits are 100, so masking
  // them and flipping 100 leaves a zero byte, found by the usual zero-byte
  // test.
  auto has_c1 = [](uint64_t x) {
    constexpr uint64_t kOnes = 0x0101010101010101ull;
    uint64_t y = (x & (kOnes * 0xE0)) ^ (kOnes * 0x80);
    return ((y - kOnes) & ~y & (kOnes * 0x80)) != 0;
  };
  size_t i = 0;
  for (; n - i >= 16; i += 16) {
    uint64_t a, b;
    std::memcpy(&a, in + i, 8);
    std::memcpy(&b, in + i + 8, 8);
    if (has_c1(a) || has_c1(b)) {
      for (size_t k = 0; k < 16; ++k) out[i + k] = kToUnicode[in[i + k]];
    } else {
      for (size_t k = 0; k < 16; ++k) out[i + k] = in[i + k];
    }
  }
  for (; i < n; ++i) out[i] = kToUnicode[in[i]];
}

std::u16string FromAnsi(std::string_view bytes) {
  std::u16string out(bytes.size(), u'\0');
  DecodeAnsi(bytes, out.data());
  return out;
}

}  // namespace kestrel::runtime
