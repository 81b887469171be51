#include "kestrel/runtime/convert.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::runtime {
namespace {

constexpr int32_t kOk = 0;
constexpr int32_t kOverflow = errors::kOverflow;
constexpr int32_t kMismatch = errors::kTypeMismatch;
constexpr int32_t kNullUse = errors::kInvalidUseOfNull;

Value Text(const char16_t* s) { return Value(std::u16string_view(s)); }
Value AnArray() { return Value::VariantArray({Value(int32_t{1})}); }

// One conversion: the expected result, or the error number it raises.
template <class T>
struct Case {
  const char* label;
  Value input;
  T expected;
  int32_t error = kOk;
};

template <class T, size_t N, class F>
void ExpectCases(const Case<T> (&cases)[N], F convert) {
  for (const Case<T>& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error == kOk) {
      EXPECT_EQ(convert(c.input), c.expected);
    } else {
      EXPECT_RAISES(convert(c.input), c.error);
    }
  }
}

// Tables of (input, expected) for functions that take plain arguments.
template <class In, class Out, size_t N, class F>
void ExpectPairs(const std::pair<In, Out> (&cases)[N], F fn) {
  for (const auto& [input, expected] : cases) {
    SCOPED_TRACE(::testing::PrintToString(input));
    EXPECT_EQ(fn(input), expected);
  }
}

// Results compared by kind and text form (objects by kind alone).
std::pair<uint16_t, std::u16string> KindAndText(const Value& v) {
  return {v.code(), v.IsObject() ? std::u16string() : ToText(v)};
}

TEST(IntegerConversions, RoundHalfToEvenAndCheckTheRange) {
  const Case<int64_t> cint[] = {
      {"2.5", Value(2.5), 2},  {"3.5", Value(3.5), 4},  {"Single 2.5", Value(2.5f), 2},
      {"-32768.5", Value(-32768.5), -32768},  {"32767.5", Value(32767.5), 0, kOverflow},
      {"-32768.5001", Value(-32768.5001), 0, kOverflow},
      {"Long 32768", Value(int32_t{32768}), 0, kOverflow},  {"Date 1.5", Value::Date(1.5), 2},
      {"True", Value(true), -1},  {"Empty", Value(), 0},  {"'2.5'", Text(u"2.5"), 2},
      {"'&HFFFF'", Text(u"&HFFFF"), -1},  {"'&H10000'", Text(u"&H10000"), 0, kOverflow},
      {"'abc'", Text(u"abc"), 0, kMismatch},
  };
  ExpectCases(cint, [](const Value& v) { return int64_t{ToInteger(v)}; });

  const Case<int64_t> clng[] = {
      {"2147483647.5", Value(2147483647.5), 0, kOverflow},
      {"-2147483648.5", Value(-2147483648.5), INT32_MIN},
      {"LongLong 2^31", Value(int64_t{2147483648}), 0, kOverflow},
      {"'&HFFFFFFFF'", Text(u"&HFFFFFFFF"), -1},  {"NaN", Value(std::nan("")), 0, kOverflow},
  };
  ExpectCases(clng, [](const Value& v) { return int64_t{ToLong(v)}; });

  const Case<int64_t> cbyte[] = {
      {"-0.5", Value(-0.5), 0},  {"-0.6", Value(-0.6), 0, kOverflow},
      {"255.5", Value(255.5), 0, kOverflow},  {"True", Value(true), 0, kOverflow},
      {"'&HFFFF'", Text(u"&HFFFF"), 0, kOverflow},
  };
  ExpectCases(cbyte, [](const Value& v) { return int64_t{ToByte(v)}; });

  const Case<int64_t> clnglng[] = {
      {"'9223372036854775807'", Text(u"9223372036854775807"), INT64_MAX},
      {"'-9223372036854775808'", Text(u"-9223372036854775808"), INT64_MIN},
      {"'9223372036854775808'", Text(u"9223372036854775808"), 0, kOverflow},
      {"2^63 as Double", Value(9223372036854775808.0), 0, kOverflow},
      {"-2^63 as Double", Value(-9223372036854775808.0), INT64_MIN},
  };
  ExpectCases(clnglng, [](const Value& v) { return ToLongLong(v); });
}

TEST(ToDoubleAndSingle, ReadEveryScalarKind) {
  const Case<double> cases[] = {
      {"Empty", Value(), 0},  {"True", Value(true), -1},  {"Single 0.5", Value(0.5f), 0.5},
      {"Date", Value::Date(45292.5), 45292.5},  {"'1e400'", Text(u"1e400"), 0, kOverflow},
      {"'1/1/2024'", Text(u"1/1/2024"), 0, kMismatch},
  };
  ExpectCases(cases, [](const Value& v) { return ToDouble(v); });

  // ToSingle overflows only past the Single range; tiny values become 0.
  EXPECT_EQ(ToSingle(Value(0.1)), 0.1f);
  EXPECT_EQ(ToSingle(Value(double{FLT_MAX})), FLT_MAX);
  EXPECT_EQ(ToSingle(Value(1e-50)), 0.0f);
  EXPECT_RAISES(ToSingle(Value(1e39)), kOverflow);
}

TEST(ToBoolean, AcceptsNumbersAndTheWords) {
  const Case<bool> cases[] = {
      {"'true'", Text(u"true"), true},   {"'FALSE'", Text(u"FALSE"), false},
      {"'0'", Text(u"0"), false},        {"'-1.5'", Text(u"-1.5"), true},
      {"'truee'", Text(u"truee"), false, kMismatch},  {"'abc'", Text(u"abc"), false, kMismatch},
      {"Double 0.1", Value(0.1), true},  {"Empty", Value(), false},
  };
  ExpectCases(cases, [](const Value& v) { return ToBoolean(v); });
}

TEST(Conversions, RejectNullAndNonScalars) {
  // The integer kinds share one path, ToSingle goes through ToDouble.
  const std::pair<const char*, std::function<void(const Value&)>> converters[] = {
      {"ToLong", ToLong}, {"ToDouble", ToDouble}, {"ToBoolean", ToBoolean}, {"ToText", ToText}};
  for (const auto& converter : converters) {
    SCOPED_TRACE(converter.first);
    const auto& convert = converter.second;  // a lambda cannot capture a binding in Clang 14
    EXPECT_RAISES(convert(Value::Null()), kNullUse);
    EXPECT_RAISES(convert(Value::Missing()), kMismatch);
    EXPECT_RAISES(convert(Value::Nothing()), kMismatch);
    EXPECT_RAISES(convert(AnArray()), kMismatch);
  }
}

TEST(ToText, FormsOfEachKind) {
  const Case<std::u16string> cases[] = {
      {"Empty", Value(), u""},  {"True", Value(true), u"True"},
      {"LongLong min", Value(int64_t{INT64_MIN}), u"-9223372036854775808"},
      {"Date", Value::Date(45292.5), u"1/1/2024 12:00:00 PM"},
      {"Single 1/3", Value(1.0f / 3.0f), u"0.3333333"},
  };
  ExpectCases(cases, [](const Value& v) { return ToText(v); });
  const std::u16string_view with_nul(u" a\0b", 4);
  EXPECT_EQ(ToText(Value(with_nul)), with_nul);
}

TEST(DoubleToText, FifteenDigitsShortestForm) {
  const std::pair<double, const char16_t*> cases[] = {
      {123.4 + 567.8, u"691.2"},  {1e15, u"1E+15"},  {123456789012345.0, u"123456789012345"},
      {1234567890123456.0, u"1.23456789012346E+15"},  {0.00001, u"1E-05"},  {0.0001, u"0.0001"},
      {1.0 / 3.0, u"0.333333333333333"},  {2.0 / 3.0, u"0.666666666666667"},
      {1.0 / 30.0, u"3.33333333333333E-02"},  {-1.5, u"-1.5"},  {100.0, u"100"},  {-0.0, u"0"},
      {DBL_MAX, u"1.79769313486232E+308"},
  };
  ExpectPairs(cases, DoubleToText);
  EXPECT_FALSE(DoubleToText(std::nan("")).empty());
  EXPECT_FALSE(SingleToText(INFINITY).empty());
}

TEST(SingleToText, SevenDigitsShortestForm) {
  const std::pair<float, const char16_t*> cases[] = {
      {1.0f / 3.0f, u"0.3333333"},  {0.1f, u"0.1"},  {1234567.0f, u"1234567"},
      {16777216.0f, u"1.677722E+07"},  {0.01234567f, u"1.234567E-02"},
  };
  ExpectPairs(cases, SingleToText);
}

TEST(DateToText, DateTimeAndTimeOnlyForms) {
  const std::pair<double, const char16_t*> cases[] = {
      {45292, u"1/1/2024"},  {-1, u"12/29/1899"},  {0, u"12:00:00 AM"},  {0.5, u"12:00:00 PM"},
      {-1.25, u"12/29/1899 6:00:00 AM"},
      // 1900 is not a leap year.
      {60, u"2/28/1900"},  {61, u"3/1/1900"},
      {45293 + (15 * 3600 + 4 * 60 + 5) / 86400.0, u"1/2/2024 3:04:05 PM"},
      {2958465, u"12/31/9999"},
  };
  ExpectPairs(cases, DateToText);
  EXPECT_RAISES(DateToText(2958466.0), kOverflow);
  EXPECT_RAISES(DateToText(-657435.0), kOverflow);
  EXPECT_RAISES(DateToText(std::nan("")), kOverflow);
}

TEST(ParseNumber, AcceptsTheNumericTextForms) {
  const std::pair<const char16_t*, double> accepted[] = {
      {u"\t12\r\n", 12},   {u".5", 0.5},      {u"5.", 5},          {u"1E+3", 1000},
      {u"1d-1", 0.1},      {u"&hff", 255},    {u"&HFFFF", -1},     {u"&H10000", 65536},
      {u"&HFFFFFFFF", -1}, {u"&H0FFFF", -1},  {u"&O177777", -1},   {u"1e-400", 0},
      {u"1,000,000.25", 1000000.25},
  };
  ExpectPairs(accepted, ParseNumber);
  const char16_t* const rejected[] = {
      u"   ",  u"12abc",       u"1 2",  u".",   u"+-1",  u"1e+",    u",1",       u"1.000,5",
      u"&H",   u"&H100000000", u"&O8",  u"-&H1", u"1e400", u"1\u00A0", u"\uFF11",
  };
  for (const char16_t* text : rejected) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << ::testing::PrintToString(text);
  }
  EXPECT_EQ(ParseNumber(std::u16string_view(u"1\0", 2)), std::nullopt);
}

TEST(IsNumeric, NumbersEmptyAndNumericText) {
  const Case<bool> cases[] = {
      {"Empty", Value(), true},     {"Boolean", Value(true), true},  {"Double", Value(1.5), true},
      {"' 1,000.5 '", Text(u" 1,000.5 "), true},  {"Null", Value::Null(), false},
      {"Date", Value::Date(1), false},  {"'abc'", Text(u"abc"), false},
      {"'&H100000000'", Text(u"&H100000000"), false},  {"array", AnArray(), false},
  };
  ExpectCases(cases, [](const Value& v) { return IsNumeric(v); });
}

TEST(Val, ReadsTheLongestNumericPrefix) {
  const std::pair<const char16_t*, double> cases[] = {
      {u"  12abc", 12}, {u" 1\t2\n3", 123}, {u"&HFFFF", -1},  {u"&O9", 0},
      {u"abc", 0},      {u"1D2", 100},      {u"1e", 1},       {u"- 12", -12},
      {u"--5", 0},      {u"-.5", -0.5},     {u"1.2.3", 1.2},  {u"1,000", 1},
      {u"\r12", 0},     {u"1615 198th Street N.E.", 1615198},
      // A prefix that overflows is not numeric: the longest one that fits.
      {u"1e400", 1e40},
  };
  ExpectPairs(cases, Val);
  const std::u16string digits(400, u'9');
  EXPECT_TRUE(std::isfinite(Val(digits)));
  EXPECT_GT(Val(digits), 1e307);
  EXPECT_TRUE(std::isfinite(Val(u"1e99999999999999999999")));
}

TEST(Str, LeadingSpaceForNonNegatives) {
  const Case<std::u16string> cases[] = {
      {"5", Value(int32_t{5}), u" 5"},  {"-5", Value(int32_t{-5}), u"-5"},
      {"0.5", Value(0.5), u" .5"},      {"-0.5", Value(-0.5), u"-.5"},
      {"1E-05", Value(0.00001), u" 1E-05"},  {"Single 0.25", Value(0.25f), u" .25"},
      {"'12'", Text(u"12"), u" 12"},         {"Empty", Value(), u" 0"},
      {"'abc'", Text(u"abc"), u"", kMismatch},  {"Null", Value::Null(), u"", kNullUse},
      {"Missing", Value::Missing(), u"", kMismatch},
  };
  ExpectCases(cases, [](const Value& v) { return Str(v); });
}

TEST(RoundHalfEven, TiesGoToTheEvenNeighbour) {
  const std::pair<double, double> cases[] = {
      {0.5, 0},   {1.5, 2},       {2.5, 2}, {-0.5, 0}, {-1.5, -2}, {-2.5, -2}, {-2.6, -3},
      {1e300, 1e300}, {4503599627370495.5, 4503599627370496}, {0.49999999999999994, 0},
  };
  ExpectPairs(cases, RoundHalfEven);
}

TEST(IntAndFix, FloorAndTruncateKeepingTheKind) {
  const struct {
    const char* label;
    Value input, int_result, fix_result;
  } cases[] = {
      {"-2.5", Value(-2.5), Value(-3.0), Value(-2.0)},
      {"Single -1.5", Value(-1.5f), Value(-2.0f), Value(-1.0f)},
      {"Date -1.75", Value::Date(-1.75), Value::Date(-2), Value::Date(-1)},
      {"Long", Value(int32_t{-7}), Value(int32_t{-7}), Value(int32_t{-7})},
      {"True", Value(true), Value(int16_t{-1}), Value(int16_t{-1})},
      {"Empty", Value(), Value(int16_t{0}), Value(int16_t{0})},
      {"'-2.5'", Text(u"-2.5"), Value(-3.0), Value(-2.0)},
  };
  for (const auto& [label, input, int_result, fix_result] : cases) {
    SCOPED_TRACE(label);
    EXPECT_EQ(KindAndText(Int(input)), KindAndText(int_result));
    EXPECT_EQ(KindAndText(Fix(input)), KindAndText(fix_result));
  }
  EXPECT_TRUE(Int(Value::Null()).IsNull());
  EXPECT_TRUE(Fix(Value::Null()).IsNull());
  EXPECT_RAISES(Int(Text(u"x")), kMismatch);
  EXPECT_RAISES(Fix(Value::Missing()), kMismatch);
}

TEST(ConvertTo, TargetKinds) {
  const struct {
    const char* label;
    Value input;
    Kind target;
    Value expected;
    int32_t error = kOk;
  } cases[] = {
      {"2.5 to Integer", Value(2.5), Kind::kInteger, Value(int16_t{2})},
      {"'12' to Long", Text(u"12"), Kind::kLong, Value(int32_t{12})},
      {"'1' to LongLong", Text(u"1"), Kind::kLongLong, Value(int64_t{1})},
      {"300 to Byte", Value(int32_t{300}), Kind::kByte, Value(), kOverflow},
      {"1e39 to Single", Value(1e39), Kind::kSingle, Value(), kOverflow},
      {"Date to Double", Value::Date(2.25), Kind::kDouble, Value(2.25)},
      {"5 to Boolean", Value(int32_t{5}), Kind::kBoolean, Value(true)},
      {"1.5 to String", Value(1.5), Kind::kString, Text(u"1.5")},
      {"Double to Date", Value(45292.5), Kind::kDate, Value::Date(45292.5)},
      {"1e7 to Date", Value(1e7), Kind::kDate, Value(), kOverflow},
      {"5 to Object", Value(int32_t{5}), Kind::kObject, Value(), kMismatch},
      {"Nothing to Object", Value::Nothing(), Kind::kObject, Value::Nothing()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error != kOk) {
      EXPECT_RAISES(ConvertTo(c.input, c.target), c.error);
    } else {
      EXPECT_EQ(KindAndText(ConvertTo(c.input, c.target)), KindAndText(c.expected));
    }
  }

  // Variant keeps whatever it is given, Missing and arrays included.
  for (const Value& v : {Value::Null(), Value::Missing(), Text(u"abc"), AnArray()}) {
    EXPECT_EQ(ConvertTo(v, Kind::kVariant).code(), v.code());
  }
  EXPECT_EQ(ConvertTo(Value::Missing(), Kind::kVariant).error_code(), kMissingCode);
}

TEST(AssignElement, ConvertsToTheElementKind) {
  const int32_t one[] = {1};
  const int32_t five[] = {5};
  Value longs = Value::NewArray(Kind::kLong, {{0, 2}});
  AssignElement(longs, one, Text(u"12"));
  EXPECT_EQ(longs.GetElement({1}).code(), uint16_t(Kind::kLong));
  EXPECT_EQ(longs.GetElement({1}).long_value(), 12);
  EXPECT_RAISES(AssignElement(longs, one, Text(u"x")), kMismatch);
  EXPECT_EQ(longs.GetElement({1}).long_value(), 12);  // unchanged
  EXPECT_RAISES(AssignElement(longs, one, Value(3e9)), kOverflow);
  EXPECT_RAISES(AssignElement(longs, five, Value(int32_t{1})), errors::kSubscriptOutOfRange);

  Value bytes = Value::NewArray(Kind::kByte, {{0, 1}});
  AssignElement(bytes, one, Text(u"255"));
  EXPECT_EQ(bytes.Bytes()[1], 255);

  Value scalar(int32_t{1});
  EXPECT_RAISES(AssignElement(scalar, one, Value(int32_t{1})), kMismatch);
}

}  // namespace
}  // namespace kestrel::runtime
