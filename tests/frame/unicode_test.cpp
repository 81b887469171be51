#include "kestrel/frame/unicode.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace kestrel {
namespace {

using namespace std::string_view_literals;

struct RoundTripCase {
  const char* name;
  std::string_view utf8;
  std::u16string_view utf16;
};

// Well-formed text converts exactly, both ways.
constexpr RoundTripCase kRoundTrips[] = {
    {"empty", ""sv, u""sv},
    {"ascii", "Hello, world!"sv, u"Hello, world!"sv},
    {"embedded NUL", "a\0b\0"sv, u"a\0b\0"sv},
    {"2-byte smallest and largest", "\xC2\x80\xDF\xBF"sv, u"\u0080\u07FF"sv},
    {"latin", "caf\xC3\xA9 na\xC3\xAFve"sv, u"caf\u00E9 na\u00EFve"sv},
    {"3-byte smallest", "\xE0\xA0\x80"sv, u"\u0800"sv},
    {"euro sign", "\xE2\x82\xAC"sv, u"\u20AC"sv},
    {"last before surrogates", "\xED\x9F\xBF"sv, u"\uD7FF"sv},
    {"first after surrogates", "\xEE\x80\x80"sv, u"\uE000"sv},
    {"BOM is an ordinary character", "\xEF\xBB\xBF\x61"sv, u"\uFEFFa"sv},
    {"U+FFFD itself", "\xEF\xBF\xBD"sv, u"\uFFFD"sv},
    {"U+FFFF", "\xEF\xBF\xBF"sv, u"\uFFFF"sv},
    {"4-byte smallest", "\xF0\x90\x80\x80"sv, u"\U00010000"sv},
    {"emoji", "\xF0\x9F\x98\x80"sv, u"\U0001F600"sv},
    {"largest code point", "\xF4\x8F\xBF\xBF"sv, u"\U0010FFFF"sv},
    {"mixed, longer than the fast path's word",
     "abcdefgh\xC3\xA9ijklmnop\xE2\x82\xACqrstuvwx\xF0\x9F\x98\x80yz0123456789"sv,
     u"abcdefgh\u00E9ijklmnop\u20ACqrstuvwx\U0001F600yz0123456789"sv},
};

TEST(Utf8, RoundTripsWellFormedText) {
  for (const auto& c : kRoundTrips) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(FromUtf8(c.utf8), c.utf16);
    EXPECT_EQ(ToUtf8(c.utf16), c.utf8);
  }
}

TEST(Utf8, RoundTripsEveryCodePoint) {
  std::u16string all;
  for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    if (cp < 0x10000) {
      all.push_back(static_cast<char16_t>(cp));
    } else {
      all.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      all.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    }
  }
  const std::string utf8 = ToUtf8(all);
  // 128 one-byte, 1920 two-byte, 61440 three-byte (BMP less surrogates),
  // 1048576 four-byte code points.
  EXPECT_EQ(utf8.size(), 128u + 1920u * 2 + 61440u * 3 + 1048576u * 4);
  EXPECT_EQ(FromUtf8(utf8), all);
}

struct InvalidCase {
  const char* name;
  std::string_view utf8;
  std::u16string_view expected;
};

// One U+FFFD per maximal subpart: a prefix of a well-formed sequence that
// breaks off is one replacement; a byte that can never start or continue a
// sequence is one replacement by itself.
constexpr InvalidCase kInvalid[] = {
    {"lone continuation", "a\x80z"sv, u"a\uFFFDz"sv},
    {"run of continuations", "\x80\xBF\x80"sv, u"\uFFFD\uFFFD\uFFFD"sv},
    {"C0 C1 never valid", "\xC0\xC1"sv, u"\uFFFD\uFFFD"sv},
    {"overlong slash, 2 bytes", "\xC0\xAF"sv, u"\uFFFD\uFFFD"sv},
    {"overlong slash, 3 bytes", "\xE0\x80\xAF"sv, u"\uFFFD\uFFFD\uFFFD"sv},
    {"overlong slash, 4 bytes", "\xF0\x80\x80\xAF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"overlong NUL", "\xC0\x80"sv, u"\uFFFD\uFFFD"sv},
    {"truncated 2-byte at end", "ab\xC3"sv, u"ab\uFFFD"sv},
    {"truncated 3-byte at end", "\xE2\x82"sv, u"\uFFFD"sv},
    {"truncated 4-byte at end", "\xF0\x9F\x98"sv, u"\uFFFD"sv},
    {"truncated 3-byte before ASCII", "\xE2\x82z"sv, u"\uFFFDz"sv},
    {"truncated 4-byte before ASCII", "\xF0\x9Fz"sv, u"\uFFFDz"sv},
    {"two truncated sequences", "\xE2\x82\xE2\x82"sv, u"\uFFFD\uFFFD"sv},
    {"lead then lead", "\xC3\xC3\xA9"sv, u"\uFFFD\u00E9"sv},
    {"surrogate D800 encoded", "\xED\xA0\x80"sv, u"\uFFFD\uFFFD\uFFFD"sv},
    {"surrogate DFFF encoded", "\xED\xBF\xBF"sv, u"\uFFFD\uFFFD\uFFFD"sv},
    {"surrogate pair encoded separately", "\xED\xA0\xBD\xED\xB8\x80"sv,
     u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"beyond U+10FFFF", "\xF4\x90\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"F5 to FF never valid", "\xF5\xF8\xFC\xFE\xFF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"5-byte form", "\xF8\x88\x80\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    // The example of the Unicode standard's chapter 3 (table 3-8).
    {"standard's example", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"sv,
     u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"sv},
    {"bad byte inside a long ASCII run", "abcdefg\xFFhijklmnopqrstu"sv,
     u"abcdefg\uFFFDhijklmnopqrstu"sv},
};

TEST(Utf8, ReplacesEachMaximalSubpartOfInvalidInput) {
  for (const auto& c : kInvalid) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(FromUtf8(c.utf8), c.expected);
  }
}

struct UnpairedCase {
  const char* name;
  std::u16string_view utf16;
  std::string_view expected;
};

constexpr UnpairedCase kUnpaired[] = {
    {"lone lead", u"a\xD800z"sv, "a\xEF\xBF\xBDz"sv},
    {"lone trail", u"a\xDC00z"sv, "a\xEF\xBF\xBDz"sv},
    {"lead at end", u"ab\xDBFF"sv, "ab\xEF\xBF\xBD"sv},
    {"trail then lead", u"\xDC00\xD800"sv, "\xEF\xBF\xBD\xEF\xBF\xBD"sv},
    {"two leads then trail", u"\xD83D\xD83D\xDE00"sv, "\xEF\xBF\xBD\xF0\x9F\x98\x80"sv},
};

TEST(Utf8, WritesUnpairedSurrogatesAsReplacementCharacter) {
  for (const auto& c : kUnpaired) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ToUtf8(c.utf16), c.expected);
  }
}

}  // namespace
}  // namespace kestrel
