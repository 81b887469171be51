#include "kestrel/runtime/convert.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace kestrel::testing;
constexpr int32_t kOverflow = errors::kOverflow;
constexpr int32_t kMismatch = errors::kTypeMismatch;
constexpr int32_t kNullUse = errors::kInvalidUseOfNull;

Value AnArray() {
  return Value::VariantArray({Value(int32_t{1})});
}

// One conversion: the expected result, or the error number it raises.
template <class T>
struct Case {
  Value input;
  T expected;
  int32_t error = 0;
};

template <class T, class F>
void ExpectCases(std::initializer_list<Case<T>> cases, F convert) {
  for (const Case<T>& c : cases) {
    SCOPED_TRACE(Describe(c.input));
    if (c.error == 0) {
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

TEST(Conversions, RejectNullAndNonScalars) {
  // The integer kinds share one path, ToSingle goes through ToDouble.
  const std::pair<const char*, std::function<void(const Value&)>> converters[] = {
      {"ToLong", ToLong}, {"ToDouble", ToDouble}, {"ToBoolean", ToBoolean}, {"ToText", ToText}};
  for (const auto& converter : converters) {
    SCOPED_TRACE(converter.first);
    const auto& convert = converter.second;  // a lambda cannot capture a binding in Clang 14
    EXPECT_RAISES(convert(N), kNullUse);
    for (const Value& bad : {Value::Missing(), Value::Nothing(), AnArray()}) {
      EXPECT_RAISES(convert(bad), kMismatch);
    }
  }
}

// clang-format off
TEST(IntegerConversions, RoundHalfToEvenAndCheckTheRange) {
  ExpectCases<int64_t>({
      {D(2.5), 2}, {D(3.5), 4}, {S(2.5f), 2}, {D(-32768.5), -32768}, {D(32767.5), 0, kOverflow},
      {D(-32768.5001), 0, kOverflow}, {L(32768), 0, kOverflow}, {Dt(1.5), 2}, {Value(true), -1},
      {E, 0}, {T(u"2.5"), 2}, {T(u"&HFFFF"), -1}, {T(u"&H10000"), 0, kOverflow},
      {T(u"abc"), 0, kMismatch},
  }, [](const Value& v) { return int64_t{ToInteger(v)}; });
  ExpectCases<int64_t>({
      {D(2147483647.5), 0, kOverflow}, {D(-2147483648.5), INT32_MIN},
      {LL(2147483648), 0, kOverflow}, {T(u"&HFFFFFFFF"), -1}, {D(std::nan("")), 0, kOverflow},
  }, [](const Value& v) { return int64_t{ToLong(v)}; });
  ExpectCases<int64_t>({
      {D(-0.5), 0}, {D(-0.6), 0, kOverflow}, {D(255.5), 0, kOverflow},
      {Value(true), 0, kOverflow}, {T(u"&HFFFF"), 0, kOverflow},
  }, [](const Value& v) { return int64_t{ToByte(v)}; });
  ExpectCases<int64_t>({
      {T(u"9223372036854775807"), INT64_MAX}, {T(u"-9223372036854775808"), INT64_MIN},
      {T(u"9223372036854775808"), 0, kOverflow}, {D(9223372036854775808.0), 0, kOverflow},
      {D(-9223372036854775808.0), INT64_MIN},
  }, ToLongLong);
}

TEST(FloatingAndBooleanConversions, ReadEveryScalarKind) {
  ExpectCases<double>({
      {E, 0}, {Value(true), -1}, {L(-7), -7}, {S(0.5f), 0.5}, {Dt(45292.5), 45292.5},
      {T(u"1e400"), 0, kOverflow}, {T(u"1/1/2024"), 0, kMismatch},
  }, ToDouble);
  // ToSingle overflows only past the Single range; tiny values become 0.
  ExpectCases<float>({
      {D(0.1), 0.1f}, {D(FLT_MAX), FLT_MAX}, {D(1e-50), 0.0f}, {D(1e39), 0, kOverflow},
  }, ToSingle);
  ExpectCases<bool>({
      {T(u"true"), true}, {T(u"FALSE"), false}, {T(u"0"), false}, {T(u"-1.5"), true},
      {T(u"truee"), false, kMismatch}, {T(u"abc"), false, kMismatch}, {D(0.1), true}, {E, false},
  }, ToBoolean);
}

TEST(ToText, FormsOfEachKind) {
  const std::u16string_view with_nul(u" a\0b", 4);
  ExpectCases<std::u16string>({
      {E, u""}, {Value(true), u"True"}, {LL(INT64_MIN), u"-9223372036854775808"},
      {Dt(45292.5), u"1/1/2024 12:00:00 PM"}, {S(1.0f / 3.0f), u"0.3333333"},
      {T(with_nul), std::u16string(with_nul)},
  }, ToText);
}

TEST(NumberToText, FifteenDigitsForDoubleSevenForSingleShortestForm) {
  const std::pair<double, const char16_t*> doubles[] = {
      {123.4 + 567.8, u"691.2"},  {1e15, u"1E+15"},  {123456789012345.0, u"123456789012345"},
      {1234567890123456.0, u"1.23456789012346E+15"},  {0.00001, u"1E-05"},  {0.0001, u"0.0001"},
      {1.0 / 3.0, u"0.333333333333333"},  {2.0 / 3.0, u"0.666666666666667"},
      {1.0 / 30.0, u"3.33333333333333E-02"},  {-1.5, u"-1.5"},  {100.0, u"100"},  {-0.0, u"0"},
      {DBL_MAX, u"1.79769313486232E+308"},
  };
  ExpectPairs(doubles, DoubleToText);
  const std::pair<float, const char16_t*> singles[] = {
      {1.0f / 3.0f, u"0.3333333"},  {0.1f, u"0.1"},  {1234567.0f, u"1234567"},
      {16777216.0f, u"1.677722E+07"},  {0.01234567f, u"1.234567E-02"},
  };
  ExpectPairs(singles, SingleToText);
  EXPECT_FALSE(DoubleToText(std::nan("")).empty());
  EXPECT_FALSE(SingleToText(INFINITY).empty());
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
  for (double bad : {2958466.0, -657435.0, std::nan("")}) EXPECT_RAISES(DateToText(bad), kOverflow);
}

TEST(ParseNumber, AcceptsTheNumericTextForms) {
  const std::pair<const char16_t*, double> accepted[] = {
      {u"\t12\r\n", 12},   {u".5", 0.5},      {u"5.", 5},          {u"1E+3", 1000},
      {u"1d-1", 0.1},      {u"&hff", 255},    {u"&HFFFF", -1},     {u"&H10000", 65536},
      {u"&HFFFFFFFF", -1}, {u"&H0FFFF", -1},  {u"&O177777", -1},   {u"1e-400", 0},
      {u"1,000,000.25", 1000000.25},
  };
  ExpectPairs(accepted, ParseNumber);
  const std::u16string_view rejected[] = {
      u"   ",  u"12abc",       u"1 2",  u".",    u"+-1",  u"1e+",      u",1",       u"1.000,5",
      u"&H",   u"&H100000000", u"&O8",  u"-&H1", u"1e400", u"1\u00A0", u"\uFF11",
      std::u16string_view(u"1\0", 2),
  };
  for (std::u16string_view text : rejected) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << ToUtf8(text);
  }
}

TEST(IsNumeric, NumbersEmptyAndNumericText) {
  ExpectCases<bool>({
      {E, true}, {Value(true), true}, {D(1.5), true}, {T(u" 1,000.5 "), true}, {N, false},
      {Dt(1), false}, {T(u"abc"), false}, {T(u"&H100000000"), false}, {AnArray(), false},
  }, IsNumeric);
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
  ExpectCases<std::u16string>({
      {L(5), u" 5"}, {L(-5), u"-5"}, {D(0.5), u" .5"}, {D(-0.5), u"-.5"}, {D(0.00001), u" 1E-05"},
      {S(0.25f), u" .25"}, {T(u"12"), u" 12"}, {E, u" 0"}, {T(u"abc"), u"", kMismatch},
      {N, u"", kNullUse}, {Value::Missing(), u"", kMismatch},
  }, Str);
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
    Value input, int_result, fix_result;
  } cases[] = {
      {D(-2.5), D(-3), D(-2)},  {S(-1.5f), S(-2), S(-1)},    {Dt(-1.75), Dt(-2), Dt(-1)},
      {L(-7), L(-7), L(-7)},    {Value(true), I(-1), I(-1)}, {E, I(0), I(0)},
      {T(u"-2.5"), D(-3), D(-2)},
  };
  for (const auto& [input, int_result, fix_result] : cases) {
    SCOPED_TRACE(Describe(input));
    EXPECT_EQ(KindAndText(Int(input)), KindAndText(int_result));
    EXPECT_EQ(KindAndText(Fix(input)), KindAndText(fix_result));
  }
  EXPECT_TRUE(Int(N).IsNull());
  EXPECT_TRUE(Fix(N).IsNull());
  EXPECT_RAISES(Int(T(u"x")), kMismatch);
  EXPECT_RAISES(Fix(Value::Missing()), kMismatch);
}

TEST(ConvertTo, TargetKinds) {
  const struct {
    Value input;
    Kind target;
    Value expected;
    int32_t error = 0;
  } cases[] = {
      {D(2.5), Kind::kInteger, I(2)},          {T(u"12"), Kind::kLong, L(12)},
      {T(u"1"), Kind::kLongLong, LL(1)},       {L(300), Kind::kByte, E, kOverflow},
      {D(1e39), Kind::kSingle, E, kOverflow},  {Dt(2.25), Kind::kDouble, D(2.25)},
      {L(5), Kind::kBoolean, Value(true)},     {D(1.5), Kind::kString, T(u"1.5")},
      {D(45292.5), Kind::kDate, Dt(45292.5)},  {D(1e7), Kind::kDate, E, kOverflow},
      {L(5), Kind::kObject, E, kMismatch},     {Value::Nothing(), Kind::kObject, Value::Nothing()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Describe(c.input) + " to kind " + std::to_string(int(c.target)));
    if (c.error != 0) {
      EXPECT_RAISES(ConvertTo(c.input, c.target), c.error);
    } else {
      EXPECT_EQ(KindAndText(ConvertTo(c.input, c.target)), KindAndText(c.expected));
    }
  }
  // Variant keeps whatever it is given, Missing and arrays included.
  for (const Value& v : {N, Value::Missing(), T(u"abc"), AnArray()}) {
    EXPECT_EQ(ConvertTo(v, Kind::kVariant).code(), v.code());
  }
  EXPECT_EQ(ConvertTo(Value::Missing(), Kind::kVariant).error_code(), kMissingCode);
}
// clang-format on

TEST(AssignElement, ConvertsToTheElementKind) {
  const int32_t one[] = {1};
  const int32_t five[] = {5};
  Value longs = Value::NewArray(Kind::kLong, {{0, 2}});
  AssignElement(longs, one, T(u"12"));
  ExpectKindAndValue(longs.GetElement({1}), Kind::kLong, L(12));
  EXPECT_RAISES(AssignElement(longs, one, T(u"x")), kMismatch);
  EXPECT_EQ(longs.GetElement({1}).long_value(), 12);  // unchanged
  EXPECT_RAISES(AssignElement(longs, one, D(3e9)), kOverflow);
  EXPECT_RAISES(AssignElement(longs, five, L(1)), errors::kSubscriptOutOfRange);

  Value bytes = Value::NewArray(Kind::kByte, {{0, 1}});
  AssignElement(bytes, one, T(u"255"));
  EXPECT_EQ(bytes.Bytes()[1], 255);
  Value scalar(int32_t{1});
  EXPECT_RAISES(AssignElement(scalar, one, L(1)), kMismatch);
}

}  // namespace
}  // namespace kestrel::runtime
