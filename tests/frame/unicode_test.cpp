#include "kestrel/frame/unicode.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace kestrel {
namespace {

using namespace std::string_view_literals;

struct Case {
  const char* name;
  std::string_view utf8;
  std::u16string_view utf16;
};

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

// Well-formed text round trips (a BOM is an ordinary character). Invalid
// input gets one U+FFFD per maximal subpart: a prefix of a well-formed
// sequence that breaks off is one replacement; a byte that can never start
// or continue a sequence is one replacement by itself.
TEST(Utf8, DecodesAndReplacesEachMaximalSubpartOfInvalidInput) {
  const Case cases[] = {
      {"BOM", "\xEF\xBB\xBF\x61"sv, u"\uFEFFa"sv},
      {"mixed, longer than the fast path's word",
       "abcdefgh\xC3\xA9ijklmnop\xE2\x82\xACqrstuvwx\xF0\x9F\x98\x80yz0123456789"sv,
       u"abcdefgh\u00E9ijklmnop\u20ACqrstuvwx\U0001F600yz0123456789"sv},
      {"overlong slash, 2 bytes", "\xC0\xAF"sv, u"\uFFFD\uFFFD"sv},
      {"overlong slash, 3 bytes", "\xE0\x80\xAF"sv, u"\uFFFD\uFFFD\uFFFD"sv},
      {"overlong slash, 4 bytes", "\xF0\x80\x80\xAF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
      {"truncated 2-byte at end", "ab\xC3"sv, u"ab\uFFFD"sv},
      {"truncated 3-byte at end", "\xE2\x82"sv, u"\uFFFD"sv},
      {"truncated 4-byte at end", "\xF0\x9F\x98"sv, u"\uFFFD"sv},
      {"truncated 4-byte before ASCII", "\xF0\x9Fz"sv, u"\uFFFDz"sv},
      {"surrogate D800 encoded", "\xED\xA0\x80"sv, u"\uFFFD\uFFFD\uFFFD"sv},
      {"beyond U+10FFFF", "\xF4\x90\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
      {"F5 to FF never valid", "\xF5\xF8\xFC\xFE\xFF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
      // The example of the Unicode standard's chapter 3 (table 3-8).
      {"standard's example", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"sv,
       u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"sv},
      {"bad byte inside a long ASCII run", "abcdefg\xFFhijklmnopqrstu"sv,
       u"abcdefg\uFFFDhijklmnopqrstu"sv},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(FromUtf8(c.utf8), c.utf16);
    if (c.utf16.find(u'\uFFFD') == std::u16string_view::npos) {
      EXPECT_EQ(ToUtf8(c.utf16), c.utf8);
    }
  }
}

TEST(Utf8, WritesUnpairedSurrogatesAsReplacementCharacter) {
  EXPECT_EQ(ToUtf8(u"a\xDC00z"sv), "a\xEF\xBF\xBDz"sv);
  EXPECT_EQ(ToUtf8(u"ab\xDBFF"sv), "ab\xEF\xBF\xBD"sv);
  EXPECT_EQ(ToUtf8(u"\xD83D\xD83D\xDE00"sv), "\xEF\xBF\xBD\xF0\x9F\x98\x80"sv);
}

}  // namespace
}  // namespace kestrel
