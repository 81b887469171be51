#include <gtest/gtest.h>

#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

namespace u = utilities;

struct TextCase {
  const char* name;
  std::u16string got;
  std::u16string want;
};

void Check(std::initializer_list<TextCase> cases) {
  for (const TextCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ToUtf8(c.got), ToUtf8(c.want));
  }
}

Value Arr(std::initializer_list<Value> items, int32_t lower = 0) {
  return Value::VariantArray(items, lower);
}

TEST(UtilitiesText, HexConversions) {
  EXPECT_EQ(u::HexToNumber(u"f"), 15);
  EXPECT_EQ(u::HexToNumber(u"10"), 0);  // only single characters
  EXPECT_EQ(u::HexToNumber(u""), 0);
  Check({{"FF", u::HexToDec(u"FF"), u"255"},
         {"ff", u::HexToDec(u"ff"), u"255"},
         {"G counts as 0", u::HexToDec(u"1G"), u"16"},
         {"empty", u::HexToDec(u""), u"0"},
         {"16 digits in Double form", u::HexToDec(u"FFFFFFFFFFFFFFFF"), u"1.84467440737096E+19"},
         {"unpadded codes", u::StringAsHex(u"A\n\u20AC"), u"41A80"},
         {"odd tail ignored", u::HexAsString(u"414"), u"A"},
         {"code page", u::HexAsString(u"80"), u"\u20AC"}});
  // 16^256 is beyond a Double.
  EXPECT_RAISES(u::HexToDec(std::u16string(257, u'0')), errors::kOverflow);
}

TEST(UtilitiesText, ByteArrays) {
  std::u16string text = u"AB";
  Value bytes = u::String2ByteArray(text, 1);
  EXPECT_EQ(ToUtf8(text), std::string("AB\0", 3));  // the caller's text grew
  ASSERT_EQ(bytes.code(), kArrayFlag | uint16_t(Kind::kByte));
  EXPECT_EQ(bytes.LBound(), 1);
  EXPECT_EQ(std::vector<uint8_t>(bytes.Bytes().begin(), bytes.Bytes().end()),
            (std::vector<uint8_t>{65, 66, 0}));

  for (std::u16string s : {u"", u"x", u"\u20ACuro\u00FF"}) {
    std::u16string copy = s;
    EXPECT_EQ(u::ByteArray2String(u::String2ByteArray(copy)), s);
  }
  EXPECT_EQ(u::ByteArray2String(Value::UnallocatedArray(Kind::kByte)), u"");
  EXPECT_EQ(u::ByteArray2String(Value(5)), u"");  // never raises

  const uint8_t decimal_looking[] = {18, 153, 0};
  Value hex = u::ByteArrayDec2Hex(Value::ByteArray(decimal_looking));
  EXPECT_EQ(std::vector<uint8_t>(hex.Bytes().begin(), hex.Bytes().end()),
            (std::vector<uint8_t>{12, 99, 0}));
  const uint8_t with_letters[] = {1, 10};
  EXPECT_RAISES(u::ByteArrayDec2Hex(Value::ByteArray(with_letters)), errors::kTypeMismatch);
}

TEST(UtilitiesText, String2Date) {
  const double day = runtime::DateSerial(2010, 12, 31);
  const double time = runtime::TimeSerial(23, 59, 0);
  const std::pair<const char*, double> cases[] = {
      // -1: Null
      {"31.12.2010 23:59:00", day + time},
      {"2010-12-31 23:59", 0},                               // both halves malformed
      {"x 23:59:00", time},                                  // a bad date keeps the time
      {"31.12.2010 noon", day},                              // a bad time is midnight
      {"1.13.2010 0:0:0", runtime::DateSerial(2011, 1, 1)},  // month rolls over
      {"31.12.2010", -1},
      {"31.12.2010  23:59:00", -1},  // three parts
  };
  for (const auto& [text, want] : cases) {
    SCOPED_TRACE(text);
    Value got = u::String2Date(FromUtf8(text));
    ASSERT_EQ(got.code(), uint16_t(want < 0 ? Kind::kNull : Kind::kDate));
    EXPECT_NEAR(got.IsNull() ? -1 : got.date(), want, 1e-9);
  }
  EXPECT_RAISES(u::String2Date(u"1.1.100000 0:0:0"), errors::kOverflow);
}

TEST(UtilitiesText, Escaping) {
  Check({{"ParseIn", u::ParseIn(u"a/b\t"), u"a//b/&9/"},
         {"ParseIn CR NUL", u::ParseIn(std::u16string(u"\r\0", 2)), u"/&D//&0/"},
         {"ParseOut", u::ParseOut(u"a//b/&9/"), u"a/b\t"},
         {"any marker", u::ParseOut(u"/x41/"), u"A"}});
  for (std::u16string s : {u"", u"//", u"/&9/", u"\x1F/\x01\u20AC\x7F"}) {
    SCOPED_TRACE(ToUtf8(s));
    EXPECT_EQ(u::ParseOut(u::ParseIn(s)), s);
  }
  EXPECT_RAISES(u::ParseOut(u"a/b"), errors::kInvalidProcedureCall);
  EXPECT_RAISES(u::ParseOut(u"/&zz/"), errors::kTypeMismatch);
  EXPECT_RAISES(u::ParseOut(u"/&100/"), errors::kInvalidProcedureCall);
}

TEST(UtilitiesText, Lists) {
  Check({{"member 2 trimmed", u::ListMember(u"a, b ,c", 2), u"b"},
         {"last", u::ListMember(u"a, b ,c", 3), u"c"},
         {"beyond", u::ListMember(u"a, b ,c", 4), u""},
         {"other delimiter", u::ListMember(u"a::b", 2, u"::"), u"b"},
         {"empty list", u::ListMember(u"", 0), u""},
         {"sorted, untrimmed", u::SortList(u"c,a, b"), u" b,a,c"},
         {"MakeList", u::MakeList(Arr({Value(1), Value::Null(), Value(u"x")}), u";"), u"1;;x"},
         {"MakeList scalar", u::MakeList(Value(2.5)), u"2.5"}});
  EXPECT_RAISES(u::ListMember(u"a", 0), errors::kInvalidProcedureCall);
  std::u16string long_list(32768, u'x');
  long_list += u",y";
  EXPECT_RAISES(u::ListMember(long_list, 2), errors::kOverflow);

  for (const auto& [list, count] : {std::pair(u"  ", 0), {u"a", 1}, {u"a,,b", 3}, {u",", 2}}) {
    SCOPED_TRACE(ToUtf8(list));
    EXPECT_EQ(u::ListMemberCount(list), count);
  }
  EXPECT_EQ(u::CountSubstring(u"aaa", u"aa"), 2);
  EXPECT_EQ(u::CountSubstring(u"abc", u""), 3);

  std::u16string member = u"  green ";
  EXPECT_TRUE(u::IsListMember(u"Red, Green", member));
  EXPECT_EQ(member, u"green");
  EXPECT_FALSE(u::IsListMember(u"Red, Green", member, u",", CompareMethod::kBinary));
  std::u16string empty;
  EXPECT_TRUE(u::IsListMember(u"", empty));
}

TEST(UtilitiesText, JoiningFillingAndHashing) {
  Check({{"BuildString", u::BuildString(Value(u"{0} of {1}"), {Value(3), Value(7)}), u"3 of 7"},
         {"unfilled placeholder", u::BuildString(Value(u"{0}{1}{0}"), {Value(u"x")}), u"x{1}x"},
         {"BuildString2", u::BuildString2(Value(u"Dear NAME"), {Value(u"NAME=Ann=B")}),
          u"Dear Ann=B"},
         {"Concatenate", u::Concatenate(Arr({Value(u"a"), Value(u""), Value(u" b ")})), u"a b"},
         {"untrimmed", u::ConcatenateSeparator(u"-", false, Arr({Value(u"a "), Value(u"b")})),
          u"a -b"},
         {"no elements", u::Concatenate(Value::NewArray(Kind::kVariant, {{0, -1}})), u""},
         {"CleanupString", u::CleanupString(std::u16string(u" a\0b ", 5)), u"ab"},
         {"MD5", u::MD5(u"abc"), u"900150983cd24fb0d6963f7d28e17f72"},
         {"MD5 of nothing", u::MD5(u""), u""}});
  EXPECT_RAISES(u::Concatenate(Arr({Value(u"a")}, 1)), errors::kSubscriptOutOfRange);
  EXPECT_TRUE(u::StartsWith(Value(u"Hello"), Value(u"he")));
  EXPECT_FALSE(u::StartsWith(Value(u"Hello"), Value(u"he"), false));
  EXPECT_TRUE(u::StartsWith(Value(u"  Hello"), Value(u"He"), false, true));
  EXPECT_TRUE(u::StartsWith(Value(u"x"), Value(u"")));
}

// Late-bound calls: write-backs reach the caller, BuildString takes its
// values as trailing arguments.
TEST(UtilitiesText, Dispatch) {
  Utilities& shared = GlobalInstance<Utilities>();
  Value args[2] = {Value(u"Red, Green"), Value(u" green ")};
  EXPECT_TRUE(CallByName(&shared, u"IsListMember", CallKind::kMethod, args).boolean());
  EXPECT_EQ(args[1].string(), u"green");

  args[0] = Value(u"AB");
  CallByName(&shared, u"String2ByteArray", CallKind::kMethod, std::span<Value>(args, 1));
  EXPECT_EQ(args[0].string(), std::u16string_view(u"AB\0", 3));

  Value build[] = {Value(u"{2}{1}{0}"), Value(1), Value(2), Value(3)};
  EXPECT_EQ(CallByName(&shared, u"BuildString", CallKind::kMethod, build).string(), u"321");
  EXPECT_EQ(
      CallByName(&shared, u"ListMember", CallKind::kMethod, std::span<Value>(build, 2)).string(),
      u"{2}{1}{0}");
}

}  // namespace
}  // namespace kestrel
