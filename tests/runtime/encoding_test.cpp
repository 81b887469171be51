#include "kestrel/runtime/encoding.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <optional>
#include <string>

namespace kestrel::runtime {
namespace {

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

// Every other byte, the five undefined ones in 0x80-0x9F included, is the
// code point of the same number, both ways.
TEST(Windows1252, MapsEveryByteBothWays) {
  std::u16string expected(256, u'\0');
  std::string all;
  for (int b = 0; b < 256; ++b) {
    expected[b] = static_cast<char16_t>(b);
    all.push_back(static_cast<char>(b));
  }
  for (const auto& c : kSpecials) expected[c.byte] = c.unit;
  for (int b = 0; b < 256; ++b) {
    SCOPED_TRACE(::testing::Message() << "byte 0x" << std::hex << b);
    EXPECT_EQ(AnsiChar(static_cast<uint8_t>(b)), expected[b]);
    EXPECT_EQ(AnsiByte(expected[b]), b);
  }
  EXPECT_EQ(FromAnsi(all), expected);
  EXPECT_EQ(FromAnsi(all.substr(3)), expected.substr(3));  // blocks off their alignment
  EXPECT_EQ(ToAnsi(expected), all);
  // The C1 control of a special character's number is not in the code page.
  for (const auto& c : kSpecials) EXPECT_EQ(AnsiByte(char16_t{c.byte}), std::nullopt);
  EXPECT_EQ(AnsiByte(u'\xD800'), std::nullopt);
  EXPECT_EQ(AnsiByte(u'\xFFFD'), std::nullopt);
}

TEST(Windows1252, ToAnsiSubstitutesOneQuestionMarkPerCharacter) {
  EXPECT_EQ(ToAnsi(u"\u0100\u4E2D\u0080"), "???");
  // A surrogate pair is one character; an unpaired surrogate is one too,
  // including a lead at the very end.
  EXPECT_EQ(ToAnsi(u"a\U0001F600b"), "a?b");
  EXPECT_EQ(ToAnsi(u"\xD800\xDC00\xDC00\xD800"), "???");
  EXPECT_EQ(ToAnsi(u"x\xD83D"), "x?");
}

}  // namespace
}  // namespace kestrel::runtime
