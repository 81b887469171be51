#include "kestrel/runtime/strings.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace kestrel::testing;

constexpr CompareMethod kBin = CompareMethod::kBinary;
constexpr CompareMethod kText = CompareMethod::kText;
constexpr int32_t kInvalidCall = errors::kInvalidProcedureCall;

TEST(Trim, RemovesSpacesOnly) {
  for (auto trim : {&LTrim, &RTrim, &Trim}) {
    EXPECT_EQ(trim(u"   "), u"");
    EXPECT_EQ(trim(u"\t a \t"), u"\t a \t");  // tabs are not spaces
  }
  EXPECT_EQ(LTrim(u"  a b  "), u"a b  ");
  EXPECT_EQ(RTrim(u"  a b  "), u"  a b");
  EXPECT_EQ(Trim(u"  a b  "), u"a b");
  EXPECT_EQ(Trim(u" \u00A0x\u3000 "), u"\u00A0x\u3000");
}

// InStr(start, text, find, mode) and InStrRev(text, find, start, mode), the
// reverse search finding matches that end at or before start. An empty text
// is never searched; an empty search text is found at start, up to the
// position just after the end. Text mode folds case beyond ASCII (final
// sigma), and positions count UTF-16 units of the original text.
TEST(InStr, ForwardAndReverse) {
  constexpr bool kFwd = false, kRev = true;
  const struct {
    bool reverse;
    int32_t start;
    std::u16string_view text, find;
    CompareMethod mode;
    int32_t expected;
  } cases[] = {
      // clang-format off
      {kFwd, 1, u"Hello", u"L", kText, 3},   {kFwd, 1, u"ABC", u"b", CompareMethod::kDatabase, 2},
      {kFwd, 4, u"Hello", u"l", kBin, 4},    {kFwd, 1, u"", u"", kBin, 0},
      {kFwd, 4, u"abc", u"", kBin, 4},       {kFwd, 5, u"abc", u"", kBin, 0},
      {kFwd, 1, u"\u0391\u03A3", u"\u03C2", kText, 2},  {kFwd, 1, u"\U0001F600Ab", u"b", kText, 4},
      {kFwd, 2, u"\U0001F600\U0001F600", u"\U0001F600", kBin, 3},
      {kRev, -1, u"abcabc", u"bc", kBin, 5}, {kRev, 5, u"abcabc", u"bc", kBin, 2},
      {kRev, -1, u"aaa", u"aa", kBin, 2},    {kRev, 4, u"abc", u"a", kBin, 0},
      {kRev, -1, u"abc", u"", kBin, 3},      {kRev, -1, u"", u"", kBin, 0},
      {kRev, 3, u"aXbx", u"x", kText, 2},    {kRev, -1, u"\u00C4b\u00E4", u"\u00C4", kText, 3},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.start << " " << ToUtf8(c.text) << " " << ToUtf8(c.find));
    EXPECT_EQ(c.reverse ? InStrRev(c.text, c.find, c.start, c.mode)
                        : InStr(c.start, c.text, c.find, c.mode),
              c.expected);
  }
  EXPECT_EQ(InStr(1, u"aA", u"A"), 2);     // binary by default
  EXPECT_EQ(InStrRev(u"a.b.c", u"."), 4);  // from the end by default
}

TEST(UCaseLCase, MapsEachCodePointSimply) {
  EXPECT_EQ(UCase(u"Hello World 123!"), u"HELLO WORLD 123!");
  EXPECT_EQ(LCase(u"Hello World 123!"), u"hello world 123!");
  // Simple mappings keep the length: no "SS" for sharp s, no "FF" for the ff
  // ligature, no context-dependent final sigma.
  EXPECT_EQ(UCase(u"\u00DF\uFB00"), u"\u00DF\uFB00");
  EXPECT_EQ(LCase(u"\u03A3\u0391\u03A3"), u"\u03C3\u03B1\u03C3");
  EXPECT_EQ(UCase(u"\u01C5"), u"\u01C4");  // titlecase digraph
  EXPECT_EQ(LCase(u"\u01C5"), u"\u01C6");
  EXPECT_EQ(UCase(u"\U00010400\U00010428"), u"\U00010400\U00010400");
  EXPECT_EQ(LCase(u"\U00010400\U00010428"), u"\U00010428\U00010428");
  const std::u16string unpaired{0xD800, u'a', 0xDC00, u'b'};
  EXPECT_EQ(UCase(unpaired), (std::u16string{0xD800, u'A', 0xDC00, u'B'}));
  EXPECT_EQ(LCase(unpaired), unpaired);
}

TEST(Replace, ReturnsTheTextFromStartWithMatchesReplaced) {
  EXPECT_EQ(Replace(u"a-b-c", u"-", u"+"), u"a+b+c");
  EXPECT_EQ(Replace(u"a-b-c", u"-", u"+", 2, 1), u"+b-c");
  EXPECT_EQ(Replace(u"a-b-c", u"-", u"+", 3, 0), u"b-c");
  EXPECT_EQ(Replace(u"a-b-c", u"", u"+", 2), u"-b-c");
  EXPECT_EQ(Replace(u"abc", u"x", u"y", 4), u"");
  EXPECT_EQ(Replace(u"aaa", u"aa", u"b"), u"ba");
  EXPECT_EQ(Replace(u"aa", u"a", u"aa"), u"aaaa");
  EXPECT_EQ(Replace(u"Hello hello HELLO", u"hello", u"bye", 1, -1, kText), u"bye bye bye");
  // Text outside the matches is copied from the original, not folded.
  EXPECT_EQ(Replace(u"\u00C4BC\u00E4bc", u"\u00E4b", u"x", 1, -1, kText), u"xCxc");
}

using Pieces = std::vector<std::u16string>;

Pieces Strings(const Value& array) {
  Pieces out;
  for (const Value& v : array.Elements()) out.emplace_back(v.string());
  return out;
}

TEST(Split, BreaksTextAtDelimiters) {
  const Value parts = Split(u",a,", u",");
  ASSERT_EQ(parts.code(), kArrayFlag | uint16_t(Kind::kString));
  EXPECT_EQ(parts.LBound(), 0);
  EXPECT_EQ(Strings(parts), (Pieces{u"", u"a", u""}));
  EXPECT_EQ(Strings(Split(u"abc", u",")), (Pieces{u"abc"}));
  EXPECT_EQ(Strings(Split(u"a,b", u"")), (Pieces{u"a,b"}));
  // The last piece a limit allows takes the rest, delimiters and all.
  EXPECT_EQ(Strings(Split(u"a,b,c", u",", 1)), (Pieces{u"a,b,c"}));
  EXPECT_EQ(Strings(Split(u"a,b,c", u",", 2)), (Pieces{u"a", u"b,c"}));
  EXPECT_EQ(Strings(Split(u"aXbxc", u"x", -1, kText)), (Pieces{u"a", u"b", u"c"}));
  EXPECT_EQ(Strings(Split(u"1AND2and3", u"and", 2, kText)), (Pieces{u"1", u"2and3"}));
  EXPECT_EQ(Strings(Split(u"x y")), (Pieces{u"x", u"y"}));  // space by default
  // Empty text and limit 0 give an allocated array with no elements: an
  // unallocated one would raise on UBound.
  EXPECT_EQ(Split(u"", u",").UBound(), -1);
  EXPECT_EQ(Split(u"a,b", u",", 0).UBound(), -1);
}

TEST(Join, JoinsOneDimensionalArraysOnly) {
  Value strings = Value::NewArray(Kind::kString, {{1, 3}});
  strings.SetElement({1}, Value(u"a"));
  strings.SetElement({3}, Value(u"c"));
  EXPECT_EQ(Join(strings, u", "), u"a, , c");
  EXPECT_EQ(Join(strings), u"a  c");
  EXPECT_EQ(Join(Value::NewArray(Kind::kString, {{0, -1}}), u"-"), u"");
  EXPECT_EQ(Join(Value::UnallocatedArray(Kind::kString), u"-"), u"");
  const Value items =
      Value::VariantArray({Value(int16_t{1}), Value(u"x"), Value(true), Value(2.5), Value()});
  EXPECT_EQ(Join(items, u","), u"1,x,True,2.5,");
  EXPECT_RAISES(Join(Value(u"a b")), kInvalidCall);
  EXPECT_RAISES(Join(Value()), kInvalidCall);
  EXPECT_RAISES(Join(Value::NewArray(Kind::kString, {{0, 1}, {0, 1}})), kInvalidCall);
  EXPECT_RAISES(Join(Value::VariantArray({Value(u"a"), Value::Null()})), errors::kInvalidUseOfNull);
}

TEST(HexOct, FormatByTheArgumentsKindWithinTheLongRange) {
  // Number, Hex, Oct.
  const std::tuple<Value, std::u16string_view, std::u16string_view> cases[] = {
      // clang-format off
      {I(0), u"0", u"0"},  {E, u"0", u"0"},  {T(u"&H10"), u"10", u"20"},
      {I(-1), u"FFFF", u"177777"},        {Value(true), u"FFFF", u"177777"},
      {L(-1), u"FFFFFFFF", u"37777777777"},
      {LL(-1), u"FFFFFFFFFFFFFFFF", u"1777777777777777777777"},
      {D(2.5), u"2", u"2"},  {D(3.5), u"4", u"4"},  // rounded, ties to even
      {D(-1), u"FFFFFFFF", u"37777777777"},  // a Double is Long-sized
      {D(2147483647), u"7FFFFFFF", u"17777777777"},
      // clang-format on
  };
  for (const auto& [number, hex, oct] : cases) {
    SCOPED_TRACE(Describe(number));
    EXPECT_EQ(Hex(number).string(), hex);
    EXPECT_EQ(Oct(number).string(), oct);
  }
  EXPECT_TRUE(Hex(Value::Null()).IsNull());
  EXPECT_TRUE(Oct(Value::Null()).IsNull());
  EXPECT_RAISES(Hex(Value(2147483648.0)), errors::kOverflow);
  EXPECT_RAISES(Oct(Value(-2147483649.0)), errors::kOverflow);
  EXPECT_RAISES(Hex(Value(u"4294967295")), errors::kOverflow);
  EXPECT_RAISES(Hex(Value(u"abc")), errors::kTypeMismatch);
}

TEST(Substrings, CountUnitsAndClampToTheText) {
  EXPECT_EQ(Left(u"Hello", 2), u"He");
  EXPECT_EQ(Right(u"Hello", 2), u"lo");
  EXPECT_EQ(Right(u"Hello", 10), u"Hello");
  EXPECT_EQ(Mid(u"Hello", 2, 3), u"ell");
  EXPECT_EQ(Mid(u"Hello", 2), u"ello");
  EXPECT_EQ(Mid(u"Hello", 6), u"");
  EXPECT_EQ(Space(3), u"   ");
  EXPECT_EQ(String(3, u'x'), u"xxx");
  // A character outside the BMP stays one character.
  EXPECT_EQ(StrReverse(u"a\U0001F600b"), u"b\U0001F600a");
}

// The Value forms give Integers: AscW of a unit from U+8000 up is negative.
TEST(CharacterCodes, ChrAndAscUseWindows1252ChrWAndAscWUnits) {
  struct Row {
    std::u16string_view text;
    int32_t asc, ascw;
  };
  const Row rows[] = {
      {u"\u20AC", 128, 0x20AC}, {u"\u0081", 0x81, 0x81},      {u"ABC", 65, 65},
      {u"\u00FF", 255, 255},    {u"\u0080", '?', 0x80},  // the C1 control is not byte 0x80
      {u"\uFFFF", '?', 0xFFFF}, {u"\U0001F600", '?', 0xD83D},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.ascw);
    EXPECT_EQ(Asc(r.text), r.asc);
    EXPECT_EQ(AscW(r.text), r.ascw);
    ExpectKindAndValue(Asc(Value(r.text)), Kind::kInteger, I(static_cast<int16_t>(r.asc)));
    ExpectKindAndValue(AscW(Value(r.text)), Kind::kInteger, I(static_cast<int16_t>(r.ascw)));
  }
  EXPECT_EQ(Chr(128), u"\u20AC");
  EXPECT_EQ(Chr(0x81), u"\u0081");  // undefined in the code page: the control
  EXPECT_EQ(ChrW(65535), u"\uFFFF");
  EXPECT_EQ(ChrW(-1), u"\uFFFF");
  EXPECT_EQ(ChrW(-32768), u"\u8000");
  // The Value forms convert codes as CLng does.
  ExpectKindAndValue(Chr(Value(65.5)), Kind::kString, Value(u"B"));
  ExpectKindAndValue(ChrW(Value(u"-1")), Kind::kString, Value(u"\uFFFF"));
  ExpectKindAndValue(Asc(Value(int16_t{5})), Kind::kInteger, I('5'));
  EXPECT_RAISES(Asc(Value::Null()), errors::kInvalidUseOfNull);
  EXPECT_RAISES(ChrW(Value::Null()), errors::kInvalidUseOfNull);
  EXPECT_RAISES(Asc(Value()), kInvalidCall);
  EXPECT_RAISES(Chr(Value(256)), kInvalidCall);
}

TEST(Len, CountsTheTextForm) {
  // clang-format off
  const std::pair<Value, int32_t> rows[] = {
      {Value(), 0},  {Value(u"abc"), 3},  {Value(int16_t{123}), 3},  {Value(-1.5), 4},
      {Value(u"\U0001F600"), 2},
  };
  // clang-format on
  for (const auto& [value, length] : rows) {
    SCOPED_TRACE(Describe(value));
    ExpectKindAndValue(Len(value), Kind::kLong, L(length));
  }
  EXPECT_TRUE(Len(Value::Null()).IsNull());
  EXPECT_RAISES(Len(Value::Nothing()), errors::kTypeMismatch);
  EXPECT_RAISES(Len(Value::VariantArray({})), errors::kTypeMismatch);
}

TEST(StrComp, ValueFormGivesAnIntegerOrNull) {
  ExpectKindAndValue(StrComp(Value(u"a"), Value(u"B")), Kind::kInteger, I(1));
  ExpectKindAndValue(StrComp(Value(u"a"), Value(u"B"), kText), Kind::kInteger, I(-1));
  ExpectKindAndValue(StrComp(Value(int16_t{10}), Value(u"9")), Kind::kInteger, I(-1));
  ExpectKindAndValue(StrComp(Value(), Value(u"")), Kind::kInteger, I(0));
  EXPECT_TRUE(StrComp(Value(u"a"), Value::Null()).IsNull());
}

std::vector<uint8_t> BytesOf(const Value& array) {
  return {array.Bytes().begin(), array.Bytes().end()};
}

TEST(StrConv, CaseAndAnsiConversions) {
  using namespace strconv;
  using namespace std::literals;
  struct Row {
    Value text;
    int32_t conversion;
    std::u16string_view expected;
  };
  const Row rows[] = {
      {Value(u"hELLO wORLD"), kUpperCase, u"HELLO WORLD"},
      {Value(u"hELLO wORLD"), kLowerCase, u"hello world"},
      {Value(u"hELLO wORLD"), kProperCase, u"Hello World"},
      // Only blanks and control separators start words, not punctuation.
      {Value(u"o'neil jean-luc\tx\ny\0z"sv), kProperCase, u"O'neil Jean-luc\tX\nY\0Z"sv},
      {Value(u"\u00C9COLE \u00E9L\u00C8VE"), kProperCase, u"\u00C9cole \u00C9l\u00E8ve"},
      {Value(u"aBc"), 0, u"aBc"},
      {Value(int16_t{12}), kUpperCase, u"12"},
      // Bytes decoded as Windows-1252; a String's own bytes are UTF-16LE.
      {Value::ByteArray(std::vector<uint8_t>{0x41, 0x80, 0xE9}), kUnicode, u"A\u20AC\u00E9"},
      {Value::ByteArray(std::vector<uint8_t>{0x41, 0x80, 0xE9}), kUnicode + kUpperCase,
       u"A\u20AC\u00C9"},
      {Value(u"ab"), kUnicode, u"a\0b\0"sv},
      // Without kUnicode a Byte array reads as UTF-16LE pairs.
      {Value::ByteArray(std::vector<uint8_t>{'a', 0, 'b'}), kUpperCase, u"AB"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.expected));
    ExpectKindAndValue(StrConv(r.text, r.conversion), Kind::kString, Value(r.expected));
  }
  EXPECT_EQ(BytesOf(StrConv(Value(u"A\u20AC\u00E9\u4E00"), kFromUnicode)),
            (std::vector<uint8_t>{0x41, 0x80, 0xE9, '?'}));
  EXPECT_EQ(BytesOf(StrConv(Value(u"a\u00E9"), kFromUnicode + kUpperCase)),
            (std::vector<uint8_t>{'A', 0xC9}));
  EXPECT_EQ(StrConv(Value(u""), kFromUnicode).UBound(), -1);
  EXPECT_TRUE(StrConv(Value::Null(), kProperCase).IsNull());
  for (const int32_t bad : {4, 8, 16, 32, kUnicode + kFromUnicode, 256, -1}) {
    EXPECT_RAISES(StrConv(Value::Null(), bad), kInvalidCall);
  }
  EXPECT_RAISES(StrConv(Value::VariantArray({}), kUpperCase), errors::kTypeMismatch);
}

TEST(StringFunctions, RaiseInvalidProcedureCallForBadArguments) {
  EXPECT_RAISES(InStr(0, u"", u""), kInvalidCall);
  EXPECT_RAISES(InStrRev(u"abc", u"a", 0), kInvalidCall);
  EXPECT_RAISES(InStrRev(u"abc", u"a", -2), kInvalidCall);
  EXPECT_RAISES(Replace(u"", u"a", u"b", 0), kInvalidCall);
  EXPECT_RAISES(Replace(u"abc", u"a", u"b", 1, -2), kInvalidCall);
  EXPECT_RAISES(Split(u"a b", u" ", -2), kInvalidCall);
  EXPECT_RAISES(Left(u"abc", -1), kInvalidCall);
  EXPECT_RAISES(Right(u"abc", -1), kInvalidCall);
  EXPECT_RAISES(Mid(u"abc", 0), kInvalidCall);
  EXPECT_RAISES(Mid(u"abc", 1, -2), kInvalidCall);
  EXPECT_RAISES(Space(-1), kInvalidCall);
  EXPECT_RAISES(String(-1, u'x'), kInvalidCall);
  EXPECT_RAISES(AscW(u""), kInvalidCall);
}

}  // namespace
}  // namespace kestrel::runtime
