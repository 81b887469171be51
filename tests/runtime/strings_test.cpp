#include "kestrel/runtime/strings.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace std::string_view_literals;

constexpr CompareMethod kBin = CompareMethod::kBinary;
constexpr CompareMethod kText = CompareMethod::kText;
constexpr int32_t kInvalidCall = errors::kInvalidProcedureCall;

// Readable failure output for UTF-16 texts.
std::string Show(std::u16string_view text) {
  return ToUtf8(text);
}

struct ErrorCase {
  const char* name;
  std::function<void()> call;
  int32_t number;
};

void ExpectErrors(const std::vector<ErrorCase>& cases) {
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_RAISES(c.call(), c.number);
  }
}

TEST(Trim, RemovesSpacesOnly) {
  struct Case {
    std::u16string_view text, ltrim, rtrim, trim;
  };
  const Case cases[] = {
      {u"", u"", u"", u""},
      {u"   ", u"", u"", u""},
      {u"  a b  ", u"a b  ", u"  a b", u"a b"},
      {u"abc", u"abc", u"abc", u"abc"},
      {u"\t a \t", u"\t a \t", u"\t a \t", u"\t a \t"},
      {u" \u00A0x\u3000 ", u"\u00A0x\u3000 ", u" \u00A0x\u3000", u"\u00A0x\u3000"},
      {u" \n", u"\n", u" \n", u"\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Show(c.text));
    EXPECT_EQ(LTrim(c.text), c.ltrim);
    EXPECT_EQ(RTrim(c.text), c.rtrim);
    EXPECT_EQ(Trim(c.text), c.trim);
  }
}

TEST(InStr, FindsPositions) {
  struct Case {
    int32_t start;
    std::u16string_view text, find;
    CompareMethod mode;
    int32_t expected;
  };
  const Case cases[] = {
      {1, u"abc", u"b", kBin, 2},
      {1, u"Hello", u"L", kBin, 0},
      {1, u"Hello", u"L", kText, 3},
      {1, u"ABC", u"b", CompareMethod::kDatabase, 2},
      {4, u"Hello", u"l", kBin, 4},
      {5, u"Hello", u"l", kBin, 0},
      {2, u"aaa", u"aa", kBin, 2},
      {1, u"abc", u"abcd", kBin, 0},
      {4, u"abc", u"c", kBin, 0},
      {9, u"abc", u"c", kBin, 0},
      // Zero-length texts: an empty text is never searched; an empty search
      // text is found at start, up to the position just after the end.
      {1, u"", u"", kBin, 0},
      {1, u"", u"a", kBin, 0},
      {1, u"abc", u"", kBin, 1},
      {3, u"abc", u"", kBin, 3},
      {4, u"abc", u"", kBin, 4},
      {5, u"abc", u"", kBin, 0},
      // Text mode is Unicode-aware case folding, not ASCII-only.
      {1, u"STRASSE \u00C4\u00D6\u00DC", u"\u00E4\u00F6\u00FC", kText, 9},
      {1, u"\u0391\u03A3", u"\u03C2", kText, 2},     // final sigma folds to sigma
      {1, u"k", u"\u212A", kText, 1},                // Kelvin sign folds to k
      {1, u"x\U00010400", u"\U00010428", kText, 2},  // Deseret, outside the BMP
      {1, u"x\U00010400", u"\U00010428", kBin, 0},
      // Positions count UTF-16 units of the original text.
      {1, u"\U0001F600Ab", u"b", kText, 4},
      {2, u"\U0001F600\U0001F600", u"\U0001F600", kBin, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "InStr(" << c.start << ", \"" << Show(c.text) << "\", \""
                                      << Show(c.find) << "\", " << int(c.mode) << ")");
    EXPECT_EQ(InStr(c.start, c.text, c.find, c.mode), c.expected);
  }
}

TEST(InStr, DefaultsToBinary) {
  EXPECT_EQ(InStr(1, u"aA", u"A"), 2);
}

TEST(InStrRev, FindsMatchesEndingAtOrBeforeStart) {
  struct Case {
    std::u16string_view text, find;
    int32_t start;
    CompareMethod mode;
    int32_t expected;
  };
  const Case cases[] = {
      {u"abcabc", u"bc", -1, kBin, 5},
      {u"abcabc", u"bc", 6, kBin, 5},
      {u"abcabc", u"bc", 5, kBin, 2},
      {u"abcabc", u"bc", 3, kBin, 2},
      {u"abcabc", u"bc", 2, kBin, 0},
      {u"aaa", u"aa", -1, kBin, 2},
      {u"abc", u"a", 4, kBin, 0},
      {u"abc", u"abcd", -1, kBin, 0},
      {u"abc", u"", -1, kBin, 3},
      {u"abc", u"", 2, kBin, 2},
      {u"abc", u"", 4, kBin, 0},
      {u"", u"", -1, kBin, 0},
      {u"", u"a", -1, kBin, 0},
      {u"aXbx", u"X", -1, kBin, 2},
      {u"aXbx", u"x", -1, kText, 4},
      {u"aXbx", u"x", 3, kText, 2},
      {u"\u00C4b\u00E4", u"\u00C4", -1, kText, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "InStrRev(\"" << Show(c.text) << "\", \"" << Show(c.find)
                                      << "\", " << c.start << ", " << int(c.mode) << ")");
    EXPECT_EQ(InStrRev(c.text, c.find, c.start, c.mode), c.expected);
  }
}

TEST(InStrRev, DefaultsToTheEndInBinaryMode) {
  EXPECT_EQ(InStrRev(u"a.b.c", u"."), 4);
}

TEST(UCaseLCase, MapsEachCodePointSimply) {
  struct Case {
    std::u16string_view text, upper, lower;
  };
  const Case cases[] = {
      {u"", u"", u""},
      {u"Hello World 123!", u"HELLO WORLD 123!", u"hello world 123!"},
      {u"\u00C4\u00D6\u00DC\u00E4\u00F6\u00FC", u"\u00C4\u00D6\u00DC\u00C4\u00D6\u00DC",
       u"\u00E4\u00F6\u00FC\u00E4\u00F6\u00FC"},
      // Simple mappings keep the length: no "SS" for sharp s, no "FF" for
      // the ff ligature, no context-dependent final sigma.
      {u"\u00DF\uFB00", u"\u00DF\uFB00", u"\u00DF\uFB00"},
      {u"\u03A3\u0391\u03A3", u"\u03A3\u0391\u03A3", u"\u03C3\u03B1\u03C3"},
      {u"\u01C5", u"\u01C4", u"\u01C6"},  // titlecase digraph
      {u"\u0130\u0131", u"\u0130I", u"i\u0131"},
      {u"\U00010400\U00010428", u"\U00010400\U00010400", u"\U00010428\U00010428"},
      {u"\xD800"
       u"a\xDC00"
       u"b",
       u"\xD800"
       u"A\xDC00"
       u"B",
       u"\xD800"
       u"a\xDC00"
       u"b"},
      {u"a\0B"sv, u"A\0B"sv, u"a\0b"sv},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Show(c.text));
    EXPECT_EQ(UCase(c.text), c.upper);
    EXPECT_EQ(LCase(c.text), c.lower);
  }
}

TEST(Replace, ReturnsTheTextFromStartWithMatchesReplaced) {
  struct Case {
    std::u16string_view text, find, replacement;
    int32_t start, count;
    CompareMethod mode;
    std::u16string_view expected;
  };
  const Case cases[] = {
      {u"a-b-c", u"-", u"+", 1, -1, kBin, u"a+b+c"},
      {u"a-b-c", u"-", u"+", 3, -1, kBin, u"b+c"},
      {u"a-b-c", u"-", u"+", 1, 1, kBin, u"a+b-c"},
      {u"a-b-c", u"-", u"+", 2, 1, kBin, u"+b-c"},
      {u"a-b-c", u"-", u"+", 1, 0, kBin, u"a-b-c"},
      {u"a-b-c", u"-", u"+", 3, 0, kBin, u"b-c"},
      {u"a-b-c", u"-", u"", 1, -1, kBin, u"abc"},
      {u"a-b-c", u"", u"+", 2, -1, kBin, u"-b-c"},
      {u"a-b-c", u"x", u"+", 1, -1, kBin, u"a-b-c"},
      {u"abc", u"x", u"y", 3, -1, kBin, u"c"},
      {u"abc", u"x", u"y", 4, -1, kBin, u""},
      {u"", u"a", u"b", 1, -1, kBin, u""},
      {u"aaaa", u"aa", u"b", 1, -1, kBin, u"bb"},
      {u"aaa", u"aa", u"b", 1, -1, kBin, u"ba"},
      {u"aa", u"a", u"aa", 1, -1, kBin, u"aaaa"},
      {u"a.b", u".", u"...", 1, -1, kBin, u"a...b"},
      {u"Hello hello HELLO", u"hello", u"bye", 1, -1, kBin, u"Hello bye HELLO"},
      {u"Hello hello HELLO", u"hello", u"bye", 1, -1, kText, u"bye bye bye"},
      {u"Hello hello HELLO", u"hello", u"bye", 1, 2, kText, u"bye bye HELLO"},
      // Text outside the matches is copied from the original, not folded.
      {u"\u00C4BC\u00E4bc", u"\u00E4b", u"x", 1, -1, kText, u"xCxc"},
      {u"\U0001F600A\U0001F600a", u"a", u"-", 1, -1, kText, u"\U0001F600-\U0001F600-"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "Replace(\"" << Show(c.text) << "\", \"" << Show(c.find)
                                      << "\", \"" << Show(c.replacement) << "\", " << c.start
                                      << ", " << c.count << ", " << int(c.mode) << ")");
    EXPECT_EQ(Replace(c.text, c.find, c.replacement, c.start, c.count, c.mode), c.expected);
  }
}

std::vector<std::u16string> Strings(const Value& array) {
  std::vector<std::u16string> out;
  for (const Value& v : array.Elements()) out.emplace_back(v.string());
  return out;
}

using Pieces = std::vector<std::u16string>;

TEST(Split, BreaksTextAtDelimiters) {
  struct Case {
    std::u16string_view text, delimiter;
    int32_t limit;
    CompareMethod mode;
    Pieces expected;
  };
  const Case cases[] = {
      {u"a b c", u" ", -1, kBin, {u"a", u"b", u"c"}},
      {u"a,,b", u",", -1, kBin, {u"a", u"", u"b"}},
      {u",a,", u",", -1, kBin, {u"", u"a", u""}},
      {u",", u",", -1, kBin, {u"", u""}},
      {u"abc", u",", -1, kBin, {u"abc"}},
      {u"a,b", u"", -1, kBin, {u"a,b"}},
      {u"a<>b<>c", u"<>", -1, kBin, {u"a", u"b", u"c"}},
      {u"a<>>b", u"<>", -1, kBin, {u"a", u">b"}},
      {u"a,b,c", u",", 1, kBin, {u"a,b,c"}},
      {u"a,b,c", u",", 2, kBin, {u"a", u"b,c"}},
      {u"a,b,c", u",", 3, kBin, {u"a", u"b", u"c"}},
      {u"a,b,c", u",", 10, kBin, {u"a", u"b", u"c"}},
      {u"aXbxc", u"x", -1, kBin, {u"aXb", u"c"}},
      {u"aXbxc", u"x", -1, kText, {u"a", u"b", u"c"}},
      {u"1AND2and3", u"and", 2, kText, {u"1", u"2and3"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "Split(\"" << Show(c.text) << "\", \"" << Show(c.delimiter)
                                      << "\", " << c.limit << ", " << int(c.mode) << ")");
    const Value parts = Split(c.text, c.delimiter, c.limit, c.mode);
    ASSERT_EQ(parts.code(), kArrayFlag | uint16_t(Kind::kString));
    ASSERT_EQ(parts.Dimensions(), 1);
    EXPECT_EQ(parts.LBound(), 0);
    EXPECT_EQ(parts.UBound(), static_cast<int32_t>(c.expected.size()) - 1);
    EXPECT_EQ(Strings(parts), c.expected);
  }
}

TEST(Split, GivesAnAllocatedEmptyArrayForEmptyTextOrLimitZero) {
  for (const Value& parts : {Split(u""), Split(u"", u","), Split(u"a,b", u",", 0)}) {
    EXPECT_EQ(parts.code(), kArrayFlag | uint16_t(Kind::kString));
    EXPECT_TRUE(parts.IsAllocated());
    EXPECT_EQ(parts.LBound(), 0);
    EXPECT_EQ(parts.UBound(), -1);
    EXPECT_EQ(parts.ElementCount(), 0u);
  }
}

TEST(Split, DefaultsToSpace) {
  EXPECT_EQ(Strings(Split(u"x y")), (Pieces{u"x", u"y"}));
}

TEST(Join, JoinsOneDimensionalArrays) {
  Value strings = Value::NewArray(Kind::kString, {{0, 2}});
  strings.SetElement({0}, Value(u"a"));
  strings.SetElement({2}, Value(u"c"));
  EXPECT_EQ(Join(strings, u", "), u"a, , c");
  EXPECT_EQ(Join(strings), u"a  c");
  EXPECT_EQ(Join(strings, u""), u"ac");

  Value one_based = Value::NewArray(Kind::kString, {{1, 2}});
  one_based.SetElement({1}, Value(u"x"));
  one_based.SetElement({2}, Value(u"y"));
  EXPECT_EQ(Join(one_based, u"-"), u"x-y");

  EXPECT_EQ(Join(Value::VariantArray({Value(u"only")}), u"-"), u"only");
  EXPECT_EQ(Join(Value::NewArray(Kind::kString, {{0, -1}}), u"-"), u"");
  EXPECT_EQ(Join(Value::UnallocatedArray(Kind::kString), u"-"), u"");
}

TEST(Join, ConvertsVariantElementsToText) {
  const Value items =
      Value::VariantArray({Value(int16_t{1}), Value(u"x"), Value(true), Value(2.5), Value()});
  EXPECT_EQ(Join(items, u","), u"1,x,True,2.5,");
}

TEST(Join, UndoesSplit) {
  const std::u16string text = u"alpha,,beta,gamma,";
  EXPECT_EQ(Join(Split(text, u","), u","), text);
}

TEST(Join, RejectsWhatIsNotAOneDimensionalArray) {
  ExpectErrors({
      {"string", [] { Join(Value(u"a b")); }, kInvalidCall},
      {"number", [] { Join(Value(int32_t{1})); }, kInvalidCall},
      {"empty", [] { Join(Value()); }, kInvalidCall},
      {"two dimensions",
       [] {
         Join(Value::NewArray(Kind::kString, {{0, 1}, {0, 1}}));
       },
       kInvalidCall},
      {"null element",
       [] {
         Join(Value::VariantArray({Value(u"a"), Value::Null()}));
       },
       errors::kInvalidUseOfNull},
  });
}

TEST(HexOct, FormatsByTheArgumentsKind) {
  struct Case {
    const char* name;
    Value number;
    std::u16string_view hex, oct;
  };
  const Case cases[] = {
      {"Integer 0", Value(int16_t{0}), u"0", u"0"},
      {"Integer -1", Value(int16_t{-1}), u"FFFF", u"177777"},
      {"Integer -32768", Value(int16_t{-32768}), u"8000", u"100000"},
      {"Long 255", Value(int32_t{255}), u"FF", u"377"},
      {"Long -1", Value(int32_t{-1}), u"FFFFFFFF", u"37777777777"},
      {"Long minimum", Value(int32_t{INT32_MIN}), u"80000000", u"20000000000"},
      {"Byte 255", Value(uint8_t{255}), u"FF", u"377"},
      {"Boolean True", Value(true), u"FFFF", u"177777"},
      {"Boolean False", Value(false), u"0", u"0"},
      {"LongLong -1", Value(int64_t{-1}), u"FFFFFFFFFFFFFFFF", u"1777777777777777777777"},
      {"LongLong 2^40", Value(int64_t{1} << 40), u"10000000000", u"20000000000000"},
      {"Double 2.5 rounds to even", Value(2.5), u"2", u"2"},
      {"Double 3.5 rounds to even", Value(3.5), u"4", u"4"},
      {"Double -1 is Long-sized", Value(-1.0), u"FFFFFFFF", u"37777777777"},
      {"Double Long maximum", Value(2147483647.0), u"7FFFFFFF", u"17777777777"},
      {"Single 10", Value(10.0f), u"A", u"12"},
      {"Empty", Value(), u"0", u"0"},
      {"numeric text", Value(u"255"), u"FF", u"377"},
      {"hex text", Value(u"&H10"), u"10", u"20"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Value hex = Hex(c.number);
    const Value oct = Oct(c.number);
    ASSERT_TRUE(hex.IsString());
    ASSERT_TRUE(oct.IsString());
    EXPECT_EQ(hex.string(), c.hex);
    EXPECT_EQ(oct.string(), c.oct);
  }
}

TEST(HexOct, NullGivesNull) {
  EXPECT_TRUE(Hex(Value::Null()).IsNull());
  EXPECT_TRUE(Oct(Value::Null()).IsNull());
}

TEST(HexOct, RaisesOutsideTheLongRangeAndForNonNumbers) {
  ExpectErrors({
      {"Hex 2^32", [] { Hex(Value(4294967296.0)); }, errors::kOverflow},
      {"Hex 2^31", [] { Hex(Value(2147483648.0)); }, errors::kOverflow},
      {"Oct -2^31 - 1", [] { Oct(Value(-2147483649.0)); }, errors::kOverflow},
      {"Hex big text", [] { Hex(Value(u"4294967295")); }, errors::kOverflow},
      {"Hex text", [] { Hex(Value(u"abc")); }, errors::kTypeMismatch},
      {"Oct empty text", [] { Oct(Value(u"")); }, errors::kTypeMismatch},
  });
}

TEST(LeftRightMid, TakeUnitsFromTheEdgesOrTheMiddle) {
  const std::u16string_view hello = u"Hello";
  EXPECT_EQ(Left(hello, 2), u"He");
  EXPECT_EQ(Left(hello, 0), u"");
  EXPECT_EQ(Left(hello, 10), u"Hello");
  EXPECT_EQ(Right(hello, 2), u"lo");
  EXPECT_EQ(Right(hello, 0), u"");
  EXPECT_EQ(Right(hello, 10), u"Hello");
  EXPECT_EQ(Mid(hello, 2, 3), u"ell");
  EXPECT_EQ(Mid(hello, 2), u"ello");
  EXPECT_EQ(Mid(hello, 1, 0), u"");
  EXPECT_EQ(Mid(hello, 5, 10), u"o");
  EXPECT_EQ(Mid(hello, 6), u"");
  EXPECT_EQ(Mid(hello, 100, 1), u"");
  EXPECT_EQ(Mid(u"", 1), u"");
}

TEST(SpaceStringStrReverse, BuildText) {
  EXPECT_EQ(Space(3), u"   ");
  EXPECT_EQ(Space(0), u"");
  EXPECT_EQ(String(3, u'x'), u"xxx");
  EXPECT_EQ(String(0, u'x'), u"");
  EXPECT_EQ(String(2, u'\0'), std::u16string(2, u'\0'));
  EXPECT_EQ(StrReverse(u""), u"");
  EXPECT_EQ(StrReverse(u"abc"), u"cba");
  // A character outside the BMP stays one character.
  EXPECT_EQ(StrReverse(u"a\U0001F600b"), u"b\U0001F600a");
}

TEST(CharacterCodes, ChrAndAscUseWindows1252) {
  struct Case {
    int32_t code;
    std::u16string_view text;
  };
  const Case cases[] = {
      {0, u"\0"sv},      {65, u"A"},        {128, u"\u20AC"},  {0x81, u"\u0081"}, {0x8C, u"\u0152"},
      {0x99, u"\u2122"}, {0x9F, u"\u0178"}, {0xA0, u"\u00A0"}, {0xE9, u"\u00E9"}, {255, u"\u00FF"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    EXPECT_EQ(Chr(c.code), c.text);
    EXPECT_EQ(Asc(c.text), c.code);
  }
  EXPECT_EQ(Asc(u"ABC"), 65);
  EXPECT_EQ(Asc(u"\u4E2D"), '?');
  EXPECT_EQ(Asc(u"\u0080"), '?');  // the C1 control is not byte 0x80
  EXPECT_EQ(Asc(u"\U0001F600"), '?');
  EXPECT_EQ(Asc(u"\xDC00"), '?');
}

TEST(CharacterCodes, ChrWAndAscWUseUnits) {
  EXPECT_EQ(ChrW(65), u"A");
  EXPECT_EQ(ChrW(0), std::u16string(1, u'\0'));
  EXPECT_EQ(ChrW(0x20AC), u"\u20AC");
  EXPECT_EQ(ChrW(65535), u"\uFFFF");
  EXPECT_EQ(ChrW(-1), u"\uFFFF");
  EXPECT_EQ(ChrW(-32768), u"\u8000");
  EXPECT_EQ(AscW(u"A"), 65);
  EXPECT_EQ(AscW(u"\u20ACx"), 0x20AC);
  EXPECT_EQ(AscW(u"\U0001F600"), 0xD83D);
}

TEST(StringFunctions, RaiseInvalidProcedureCallForBadArguments) {
  ExpectErrors({
      {"InStr start 0", [] { InStr(0, u"abc", u"a"); }, kInvalidCall},
      {"InStr start -1", [] { InStr(-1, u"abc", u"a"); }, kInvalidCall},
      {"InStr start 0, empty texts", [] { InStr(0, u"", u""); }, kInvalidCall},
      {"InStrRev start 0", [] { InStrRev(u"abc", u"a", 0); }, kInvalidCall},
      {"InStrRev start -2", [] { InStrRev(u"abc", u"a", -2); }, kInvalidCall},
      {"Replace start 0", [] { Replace(u"abc", u"a", u"b", 0); }, kInvalidCall},
      {"Replace start 0, empty text", [] { Replace(u"", u"a", u"b", 0); }, kInvalidCall},
      {"Replace count -2", [] { Replace(u"abc", u"a", u"b", 1, -2); }, kInvalidCall},
      {"Split limit -2", [] { Split(u"a b", u" ", -2); }, kInvalidCall},
      {"Left -1", [] { Left(u"abc", -1); }, kInvalidCall},
      {"Right -1", [] { Right(u"abc", -1); }, kInvalidCall},
      {"Mid start 0", [] { Mid(u"abc", 0); }, kInvalidCall},
      {"Mid length -2", [] { Mid(u"abc", 1, -2); }, kInvalidCall},
      {"Space -1", [] { Space(-1); }, kInvalidCall},
      {"String -1", [] { String(-1, u'x'); }, kInvalidCall},
      {"Asc empty", [] { Asc(u""); }, kInvalidCall},
      {"AscW empty", [] { AscW(u""); }, kInvalidCall},
      {"Chr 256", [] { Chr(256); }, kInvalidCall},
      {"Chr -1", [] { Chr(-1); }, kInvalidCall},
      {"ChrW 65536", [] { ChrW(65536); }, kInvalidCall},
      {"ChrW -32769", [] { ChrW(-32769); }, kInvalidCall},
  });
}

}  // namespace
}  // namespace kestrel::runtime
