// UTF-8 <-> UTF-16 without ICU: the frame layer stays free of it, and these
// two functions sit on every boundary crossing, so they are written for speed
// (an eight-byte ASCII fast path, one allocation per call).
//
// Ill-formed input never throws. It is replaced the way the Unicode standard
// recommends ("U+FFFD substitution of maximal subparts", chapter 3): each
// maximal prefix of a well-formed sequence that cannot be completed becomes
// one U+FFFD, and every other bad byte becomes one U+FFFD of its own. So
// "\xE2\x82" (a truncated euro sign) is one U+FFFD, "\xC0\xAF" (an overlong
// slash) is two, and "\xED\xA0\x80" (a surrogate encoded in UTF-8) is three.
// Browsers, ICU and Python decode the same way, so positions agree with them.

#include "kestrel/frame/unicode.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kestrel {
namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr uint64_t kHighBits8 = 0x8080808080808080ull;
constexpr uint64_t kHighBits4 = 0xFF80FF80FF80FF80ull;

inline bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}
inline bool IsLeadSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
inline bool IsTrailSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

// Writes into a string sized for the worst case, then trims it: one
// allocation, no per-character capacity checks. resize_and_overwrite skips
// the zero fill where the standard library has it.
template <class String, class Writer>
void FillUpTo(String& out, size_t capacity, Writer&& write) {
#if defined(__cpp_lib_string_resize_and_overwrite)
  out.resize_and_overwrite(capacity, [&](auto* data, size_t) { return write(data); });
#else
  out.resize(capacity);
  out.resize(write(out.data()));
#endif
}

// Decodes into `out`, which has room for in.size() units: no well-formed or
// ill-formed sequence yields more UTF-16 units than it has bytes.
size_t DecodeUtf8(const unsigned char* p, const unsigned char* end, char16_t* out) {
  char16_t* const first = out;
  while (p < end) {
    // Runs of ASCII, eight bytes per test.
    while (end - p >= 8) {
      uint64_t word;
      std::memcpy(&word, p, sizeof word);
      if (word & kHighBits8) break;
      for (int i = 0; i < 8; ++i) out[i] = p[i];
      out += 8;
      p += 8;
    }
    if (p == end) break;

    const unsigned lead = *p;
    if (lead < 0x80) {
      *out++ = static_cast<char16_t>(lead);
      ++p;
      continue;
    }
    const std::ptrdiff_t avail = end - p;
    if (lead >= 0xC2 && lead <= 0xDF) {
      if (avail >= 2 && IsContinuation(p[1])) {
        *out++ = static_cast<char16_t>(((lead & 0x1F) << 6) | (p[1] & 0x3F));
        p += 2;
      } else {
        *out++ = kReplacement;
        p += 1;
      }
      continue;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
      // The second byte's range excludes overlong forms (E0) and the
      // surrogates (ED); a byte outside it is not part of the subpart.
      const unsigned lo = lead == 0xE0 ? 0xA0 : 0x80;
      const unsigned hi = lead == 0xED ? 0x9F : 0xBF;
      if (avail < 2 || p[1] < lo || p[1] > hi) {
        *out++ = kReplacement;
        p += 1;
      } else if (avail < 3 || !IsContinuation(p[2])) {
        *out++ = kReplacement;
        p += 2;
      } else {
        *out++ =
            static_cast<char16_t>(((lead & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F));
        p += 3;
      }
      continue;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
      // F0 would be overlong below 90; F4 beyond 8F exceeds U+10FFFF.
      const unsigned lo = lead == 0xF0 ? 0x90 : 0x80;
      const unsigned hi = lead == 0xF4 ? 0x8F : 0xBF;
      if (avail < 2 || p[1] < lo || p[1] > hi) {
        *out++ = kReplacement;
        p += 1;
      } else if (avail < 3 || !IsContinuation(p[2])) {
        *out++ = kReplacement;
        p += 2;
      } else if (avail < 4 || !IsContinuation(p[3])) {
        *out++ = kReplacement;
        p += 3;
      } else {
        const uint32_t cp = ((lead & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) |
                            ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
        *out++ = static_cast<char16_t>(0xD7C0 + (cp >> 10));
        *out++ = static_cast<char16_t>(0xDC00 | (cp & 0x3FF));
        p += 4;
      }
      continue;
    }
    // A continuation byte without a lead, C0/C1 (always overlong), F5..FF.
    *out++ = kReplacement;
    p += 1;
  }
  return static_cast<size_t>(out - first);
}

// Exact UTF-8 length, so ToUtf8 allocates once without over-reserving three
// bytes per unit for mostly-ASCII text. Every unit counts one byte, plus one
// from U+0080 and two from U+0800 (an unpaired surrogate is written as the
// three bytes of U+FFFD); a surrogate pair takes four bytes for two units.
size_t Utf8Length(const char16_t* p, const char16_t* end) {
  size_t bytes = static_cast<size_t>(end - p);
  while (p < end) {
    if (end - p >= 8) {
      uint64_t words[2];
      std::memcpy(words, p, sizeof words);
      if (((words[0] | words[1]) & kHighBits4) == 0) {
        p += 8;
        continue;
      }
    }
    const char16_t unit = *p++;
    if (unit < 0x80) continue;
    if (unit < 0x800) {
      bytes += 1;
      continue;
    }
    bytes += 2;
    if (IsLeadSurrogate(unit) && p < end && IsTrailSurrogate(*p)) ++p;
  }
  return bytes;
}

size_t EncodeUtf8(const char16_t* p, const char16_t* end, char* out) {
  char* const first = out;
  while (p < end) {
    // Runs of ASCII, four units per test.
    while (end - p >= 4) {
      uint64_t word;
      std::memcpy(&word, p, sizeof word);
      if (word & kHighBits4) break;
      for (int i = 0; i < 4; ++i) out[i] = static_cast<char>(p[i]);
      out += 4;
      p += 4;
    }
    if (p == end) break;

    uint32_t cp = *p++;
    if (cp < 0x80) {
      *out++ = static_cast<char>(cp);
      continue;
    }
    if (cp < 0x800) {
      *out++ = static_cast<char>(0xC0 | (cp >> 6));
      *out++ = static_cast<char>(0x80 | (cp & 0x3F));
      continue;
    }
    if (IsLeadSurrogate(static_cast<char16_t>(cp)) && p < end && IsTrailSurrogate(*p)) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (*p++ - 0xDC00u);
      *out++ = static_cast<char>(0xF0 | (cp >> 18));
      *out++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      *out++ = static_cast<char>(0x80 | (cp & 0x3F));
      continue;
    }
    if ((cp & 0xF800) == 0xD800) cp = kReplacement;  // unpaired surrogate
    *out++ = static_cast<char>(0xE0 | (cp >> 12));
    *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (cp & 0x3F));
  }
  return static_cast<size_t>(out - first);
}

}  // namespace

std::u16string FromUtf8(std::string_view utf8) {
  std::u16string out;
  if (utf8.empty()) return out;
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  FillUpTo(out, utf8.size(), [&](char16_t* data) { return DecodeUtf8(p, p + utf8.size(), data); });
  return out;
}

std::string ToUtf8(std::u16string_view utf16) {
  std::string out;
  if (utf16.empty()) return out;
  const char16_t* p = utf16.data();
  const char16_t* end = p + utf16.size();
  FillUpTo(out, Utf8Length(p, end), [&](char* data) { return EncodeUtf8(p, end, data); });
  return out;
}

}  // namespace kestrel
