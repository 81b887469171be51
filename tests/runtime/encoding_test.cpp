#include "kestrel/runtime/encoding.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace kestrel::runtime {
namespace {

using namespace std::string_view_literals;

struct SpecialCase {
  uint8_t byte;
  char16_t unit;
};

// The 27 characters Windows-1252 places at 0x80-0x9F (the published table).
constexpr SpecialCase kSpecials[] = {
    {0x80, 0x20AC}, {0x82, 0x201A}, {0x83, 0x0192}, {0x84, 0x201E}, {0x85, 0x2026}, {0x86, 0x2020},
    {0x87, 0x2021}, {0x88, 0x02C6}, {0x89, 0x2030}, {0x8A, 0x0160}, {0x8B, 0x2039}, {0x8C, 0x0152},
    {0x8E, 0x017D}, {0x91, 0x2018}, {0x92, 0x2019}, {0x93, 0x201C}, {0x94, 0x201D}, {0x95, 0x2022},
    {0x96, 0x2013}, {0x97, 0x2014}, {0x98, 0x02DC}, {0x99, 0x2122}, {0x9A, 0x0161}, {0x9B, 0x203A},
    {0x9C, 0x0153}, {0x9E, 0x017E}, {0x9F, 0x0178},
};
static_assert(std::size(kSpecials) == 27);

constexpr uint8_t kUndefined[] = {0x81, 0x8D, 0x8F, 0x90, 0x9D};

TEST(Windows1252, MapsTheSpecialCharactersBothWays) {
  for (const auto& c : kSpecials) {
    SCOPED_TRACE(::testing::Message() << "byte 0x" << std::hex << int{c.byte});
    EXPECT_EQ(AnsiChar(c.byte), c.unit);
    EXPECT_EQ(AnsiByte(c.unit), c.byte);
    // The C1 control of the same number is not in the code page.
    EXPECT_EQ(AnsiByte(char16_t{c.byte}), std::nullopt);
  }
}

TEST(Windows1252, UndefinedBytesStandForTheControlOfTheSameNumber) {
  for (const uint8_t byte : kUndefined) {
    SCOPED_TRACE(::testing::Message() << "byte 0x" << std::hex << int{byte});
    EXPECT_EQ(AnsiChar(byte), char16_t{byte});
    EXPECT_EQ(AnsiByte(char16_t{byte}), byte);
  }
}

TEST(Windows1252, OtherBytesAreTheCodePointOfTheSameNumber) {
  for (int b = 0; b < 256; ++b) {
    if (b >= 0x80 && b < 0xA0) continue;
    SCOPED_TRACE(b);
    EXPECT_EQ(AnsiChar(static_cast<uint8_t>(b)), char16_t(b));
    EXPECT_EQ(AnsiByte(char16_t(b)), b);
  }
}

TEST(Windows1252, EveryByteSurvivesARoundTrip) {
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  const std::u16string text = FromAnsi(all);
  ASSERT_EQ(text.size(), 256u);
  EXPECT_EQ(text[0x41], u'A');
  EXPECT_EQ(text[0x80], u'\u20AC');
  EXPECT_EQ(text[0xFF], u'\u00FF');
  EXPECT_EQ(ToAnsi(text), all);
}

struct ToAnsiCase {
  const char* name;
  std::u16string_view text;
  std::string_view bytes;
};

constexpr ToAnsiCase kToAnsi[] = {
    {"empty", u""sv, ""sv},
    {"ascii with NUL", u"a\0b"sv, "a\0b"sv},
    {"latin-1 letters", u"caf\u00E9 \u00FF"sv, "caf\xE9 \xFF"sv},
    {"quotes and euro", u"\u201Cx\u201D \u20AC5"sv, "\x93x\x94 \x80\x35"sv},
    {"outside the code page", u"\u0100\u4E2D\u0080"sv, "???"sv},
    {"a surrogate pair is one character", u"a\U0001F600b"sv, "a?b"sv},
    {"pair then unpaired trail and lead", u"\xD800\xDC00\xDC00\xD800"sv, "???"sv},
    {"lone lead at end", u"x\xD83D"sv, "x?"sv},
};

TEST(Windows1252, ToAnsiSubstitutesQuestionMarks) {
  for (const auto& c : kToAnsi) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ToAnsi(c.text), c.bytes);
  }
}

TEST(Windows1252, SurrogatesAreNotInTheCodePage) {
  EXPECT_EQ(AnsiByte(u'\xD800'), std::nullopt);
  EXPECT_EQ(AnsiByte(u'\xDFFF'), std::nullopt);
  EXPECT_EQ(AnsiByte(u'\xFFFD'), std::nullopt);
}

}  // namespace
}  // namespace kestrel::runtime
