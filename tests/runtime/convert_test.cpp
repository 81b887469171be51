#include "kestrel/runtime/convert.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

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

// One conversion to an integer kind: the expected value, or the error number.
struct IntegerCase {
  const char* label;
  Value input;
  int64_t expected;
  int32_t error;
};

void ExpectIntegers(std::span<const IntegerCase> cases,
                    const std::function<int64_t(const Value&)>& convert) {
  for (const IntegerCase& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error == kOk) {
      EXPECT_EQ(convert(c.input), c.expected);
    } else {
      EXPECT_RAISES(convert(c.input), c.error);
    }
  }
}

// The argument kinds that no conversion accepts, and Null.
void ExpectRejectsNonScalars(const std::function<void(const Value&)>& convert) {
  EXPECT_RAISES(convert(Value::Null()), kNullUse);
  EXPECT_RAISES(convert(Value::Missing()), kMismatch);
  EXPECT_RAISES(convert(Value::ErrorCode(5)), kMismatch);
  EXPECT_RAISES(convert(Value::Nothing()), kMismatch);
  EXPECT_RAISES(convert(AnArray()), kMismatch);
}

TEST(ToInteger, RoundsHalfToEvenAndChecksRange) {
  const IntegerCase cases[] = {
      {"2.5", Value(2.5), 2, kOk},
      {"3.5", Value(3.5), 4, kOk},
      {"-2.5", Value(-2.5), -2, kOk},
      {"2.5000001", Value(2.5000001), 3, kOk},
      {"-32768.5", Value(-32768.5), -32768, kOk},
      {"-32768.5001", Value(-32768.5001), 0, kOverflow},
      {"32767.4", Value(32767.4), 32767, kOk},
      {"32767.5", Value(32767.5), 0, kOverflow},
      {"Long 32767", Value(int32_t{32767}), 32767, kOk},
      {"Long 32768", Value(int32_t{32768}), 0, kOverflow},
      {"Long -32769", Value(int32_t{-32769}), 0, kOverflow},
      {"Single 2.5", Value(2.5f), 2, kOk},
      {"Byte 255", Value(uint8_t{255}), 255, kOk},
      {"True", Value(true), -1, kOk},
      {"False", Value(false), 0, kOk},
      {"Empty", Value(), 0, kOk},
      {"Date 1.5", Value::Date(1.5), 2, kOk},
      {"'  12  '", Text(u"  12  "), 12, kOk},
      {"'2.5'", Text(u"2.5"), 2, kOk},
      {"'-1e3'", Text(u"-1e3"), -1000, kOk},
      {"'&HFFFF'", Text(u"&HFFFF"), -1, kOk},
      {"'&H7FFF'", Text(u"&H7FFF"), 32767, kOk},
      {"'&H10000'", Text(u"&H10000"), 0, kOverflow},
      {"'32,767'", Text(u"32,767"), 32767, kOk},
      {"'100000'", Text(u"100000"), 0, kOverflow},
      {"'abc'", Text(u"abc"), 0, kMismatch},
      {"''", Text(u""), 0, kMismatch},
      {"'1e999'", Text(u"1e999"), 0, kOverflow},
  };
  ExpectIntegers(cases, [](const Value& v) { return int64_t{ToInteger(v)}; });
  ExpectRejectsNonScalars([](const Value& v) { (void)ToInteger(v); });
}

TEST(ToLong, RoundsHalfToEvenAndChecksRange) {
  const IntegerCase cases[] = {
      {"2147483646.5", Value(2147483646.5), 2147483646, kOk},
      {"2147483647.5", Value(2147483647.5), 0, kOverflow},
      {"-2147483648.5", Value(-2147483648.5), INT32_MIN, kOk},
      {"-2147483648.6", Value(-2147483648.6), 0, kOverflow},
      {"LongLong 2^31", Value(int64_t{2147483648}), 0, kOverflow},
      {"LongLong -2^31", Value(int64_t{-2147483648}), INT32_MIN, kOk},
      {"Integer -5", Value(int16_t{-5}), -5, kOk},
      {"Date 45292.75", Value::Date(45292.75), 45293, kOk},
      {"'&HFFFFFFFF'", Text(u"&HFFFFFFFF"), -1, kOk},
      {"'&H80000000'", Text(u"&H80000000"), INT32_MIN, kOk},
      {"'&H8000'", Text(u"&H8000"), -32768, kOk},
      {"'&O177777'", Text(u"&O177777"), -1, kOk},
      {"'&O200000'", Text(u"&O200000"), 65536, kOk},
      {"'2,147,483,647'", Text(u"2,147,483,647"), INT32_MAX, kOk},
      {"'2147483648'", Text(u"2147483648"), 0, kOverflow},
      {"NaN", Value(std::nan("")), 0, kOverflow},
  };
  ExpectIntegers(cases, [](const Value& v) { return int64_t{ToLong(v)}; });
  ExpectRejectsNonScalars([](const Value& v) { (void)ToLong(v); });
}

TEST(ToByte, RoundsHalfToEvenAndChecksRange) {
  const IntegerCase cases[] = {
      {"-0.5", Value(-0.5), 0, kOk},
      {"-0.6", Value(-0.6), 0, kOverflow},
      {"0.5", Value(0.5), 0, kOk},
      {"1.5", Value(1.5), 2, kOk},
      {"254.5", Value(254.5), 254, kOk},
      {"255.5", Value(255.5), 0, kOverflow},
      {"Integer -1", Value(int16_t{-1}), 0, kOverflow},
      {"Long 256", Value(int32_t{256}), 0, kOverflow},
      {"True", Value(true), 0, kOverflow},
      {"'&HFF'", Text(u"&HFF"), 255, kOk},
      {"'&HFFFF'", Text(u"&HFFFF"), 0, kOverflow},
      {"' 255 '", Text(u" 255 "), 255, kOk},
  };
  ExpectIntegers(cases, [](const Value& v) { return int64_t{ToByte(v)}; });
  ExpectRejectsNonScalars([](const Value& v) { (void)ToByte(v); });
}

TEST(ToLongLong, KeepsAllSixtyFourBits) {
  const IntegerCase cases[] = {
      {"'9223372036854775807'", Text(u"9223372036854775807"), INT64_MAX, kOk},
      {"'-9223372036854775808'", Text(u"-9223372036854775808"), INT64_MIN, kOk},
      {"'9223372036854775808'", Text(u"9223372036854775808"), 0, kOverflow},
      {"2^63 as Double", Value(9223372036854775808.0), 0, kOverflow},
      {"-2^63 as Double", Value(-9223372036854775808.0), INT64_MIN, kOk},
      {"LongLong max", Value(int64_t{INT64_MAX}), INT64_MAX, kOk},
      {"4.5", Value(4.5), 4, kOk},
      {"5.5", Value(5.5), 6, kOk},
      {"Long min", Value(int32_t{INT32_MIN}), INT32_MIN, kOk},
  };
  ExpectIntegers(cases, [](const Value& v) { return ToLongLong(v); });
  ExpectRejectsNonScalars([](const Value& v) { (void)ToLongLong(v); });
}

TEST(ToDouble, ReadsEveryScalarKind) {
  struct Case {
    const char* label;
    Value input;
    double expected;
    int32_t error;
  };
  const Case cases[] = {
      {"Empty", Value(), 0, kOk},
      {"True", Value(true), -1, kOk},
      {"Date", Value::Date(45292.5), 45292.5, kOk},
      {"Single 0.5", Value(0.5f), 0.5, kOk},
      {"LongLong", Value(int64_t{1} << 40), 1099511627776.0, kOk},
      {"'1,000.5'", Text(u"1,000.5"), 1000.5, kOk},
      {"'1D3'", Text(u"1D3"), 1000, kOk},
      {"'\\t-1.5e-3\\n'", Text(u"\t-1.5e-3\n"), -0.0015, kOk},
      {"'.5'", Text(u".5"), 0.5, kOk},
      {"'+5.'", Text(u"+5."), 5, kOk},
      {"'0.1'", Text(u"0.1"), 0.1, kOk},
      {"'1e-400'", Text(u"1e-400"), 0, kOk},
      {"'1e400'", Text(u"1e400"), 0, kOverflow},
      {"'-1e400'", Text(u"-1e400"), 0, kOverflow},
      {"'1/1/2024'", Text(u"1/1/2024"), 0, kMismatch},
      {"'abc'", Text(u"abc"), 0, kMismatch},
      {"''", Text(u""), 0, kMismatch},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error == kOk) {
      EXPECT_EQ(ToDouble(c.input), c.expected);
    } else {
      EXPECT_RAISES(ToDouble(c.input), c.error);
    }
  }
  ExpectRejectsNonScalars([](const Value& v) { (void)ToDouble(v); });
}

TEST(ToSingle, RaisesOverflowBeyondTheSingleRange) {
  EXPECT_EQ(ToSingle(Value(0.1)), 0.1f);
  EXPECT_EQ(ToSingle(Text(u"2.5")), 2.5f);
  EXPECT_EQ(ToSingle(Value(double{FLT_MAX})), FLT_MAX);
  EXPECT_EQ(ToSingle(Value(1e-50)), 0.0f);
  EXPECT_RAISES(ToSingle(Value(1e39)), kOverflow);
  EXPECT_RAISES(ToSingle(Value(-1e39)), kOverflow);
  EXPECT_RAISES(ToSingle(Text(u"3.5E+38")), kOverflow);
  ExpectRejectsNonScalars([](const Value& v) { (void)ToSingle(v); });
}

TEST(ToBoolean, AcceptsNumbersAndTheWords) {
  struct Case {
    const char* label;
    Value input;
    bool expected;
    int32_t error;
  };
  const Case cases[] = {
      {"'true'", Text(u"true"), true, kOk},
      {"'FALSE'", Text(u"FALSE"), false, kOk},
      {"'True'", Text(u"True"), true, kOk},
      {"'0'", Text(u"0"), false, kOk},
      {"'-1.5'", Text(u"-1.5"), true, kOk},
      {"'abc'", Text(u"abc"), false, kMismatch},
      {"''", Text(u""), false, kMismatch},
      {"'truee'", Text(u"truee"), false, kMismatch},
      {"Double 0.0", Value(0.0), false, kOk},
      {"Double 0.1", Value(0.1), true, kOk},
      {"Long 5", Value(int32_t{5}), true, kOk},
      {"Byte 0", Value(uint8_t{0}), false, kOk},
      {"Empty", Value(), false, kOk},
      {"Date 1", Value::Date(1), true, kOk},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error == kOk) {
      EXPECT_EQ(ToBoolean(c.input), c.expected);
    } else {
      EXPECT_RAISES(ToBoolean(c.input), c.error);
    }
  }
  ExpectRejectsNonScalars([](const Value& v) { (void)ToBoolean(v); });
}

// Text results: a table of input, expected text or error.
struct TextCase {
  const char* label;
  Value input;
  const char16_t* expected;
  int32_t error;
};

void ExpectTexts(std::span<const TextCase> cases,
                 const std::function<std::u16string(const Value&)>& convert) {
  for (const TextCase& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error == kOk) {
      EXPECT_EQ(convert(c.input), std::u16string(c.expected));
    } else {
      EXPECT_RAISES(convert(c.input), c.error);
    }
  }
}

TEST(ToText, FormsOfEachKind) {
  const TextCase cases[] = {
      {"Empty", Value(), u"", kOk},
      {"True", Value(true), u"True", kOk},
      {"False", Value(false), u"False", kOk},
      {"Integer min", Value(int16_t{-32768}), u"-32768", kOk},
      {"Long max", Value(int32_t{INT32_MAX}), u"2147483647", kOk},
      {"LongLong min", Value(int64_t{INT64_MIN}), u"-9223372036854775808", kOk},
      {"Byte", Value(uint8_t{255}), u"255", kOk},
      {"Date", Value::Date(45292.5), u"1/1/2024 12:00:00 PM", kOk},
      {"Single 1/3", Value(1.0f / 3.0f), u"0.3333333", kOk},
      {"Double 123.4 + 567.8", Value(123.4 + 567.8), u"691.2", kOk},
  };
  ExpectTexts(cases, [](const Value& v) { return ToText(v); });
  ExpectRejectsNonScalars([](const Value& v) { (void)ToText(v); });

  const std::u16string_view with_nul(u" a\0b", 4);
  EXPECT_EQ(ToText(Value(with_nul)), with_nul);
}

TEST(DoubleToText, FifteenDigitsShortestForm) {
  struct Case {
    double input;
    const char16_t* expected;
  };
  const Case cases[] = {
      {123.4 + 567.8, u"691.2"},
      {0.1 + 0.2, u"0.3"},
      {1e15, u"1E+15"},
      {123456789012345.0, u"123456789012345"},
      {1e14, u"100000000000000"},
      {1234567890123456.0, u"1.23456789012346E+15"},
      {0.00001, u"1E-05"},
      {0.000015, u"1.5E-05"},
      {0.0001, u"0.0001"},
      {0.00012345, u"0.00012345"},
      {1.0 / 3.0, u"0.333333333333333"},
      {2.0 / 3.0, u"0.666666666666667"},
      {1.0 / 30.0, u"3.33333333333333E-02"},
      {0.05, u"0.05"},
      {-1.5, u"-1.5"},
      {100.0, u"100"},
      {-0.0, u"0"},
      {0.0, u"0"},
      {DBL_MAX, u"1.79769313486232E+308"},
      {-DBL_MAX, u"-1.79769313486232E+308"},
      {1e-300, u"1E-300"},
      {1e100, u"1E+100"},
      {4.9406564584124654e-324, u"4.94065645841247E-324"},
      {2.5e-7, u"2.5E-07"},
      {12345.678, u"12345.678"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(DoubleToText(c.input), std::u16string(c.expected));
  }
}

TEST(DoubleToText, NonFiniteValuesDoNotCrash) {
  EXPECT_FALSE(DoubleToText(std::nan("")).empty());
  EXPECT_FALSE(DoubleToText(INFINITY).empty());
  EXPECT_FALSE(DoubleToText(-INFINITY).empty());
  EXPECT_FALSE(SingleToText(INFINITY).empty());
}

TEST(SingleToText, SevenDigitsShortestForm) {
  struct Case {
    float input;
    const char16_t* expected;
  };
  const Case cases[] = {
      {1.0f / 3.0f, u"0.3333333"},
      {0.1f, u"0.1"},
      {1.5f, u"1.5"},
      {1234567.0f, u"1234567"},
      {16777216.0f, u"1.677722E+07"},
      {1e7f, u"1E+07"},
      {0.01234567f, u"1.234567E-02"},
      {0.0001f, u"0.0001"},
      {0.00001f, u"1E-05"},
      {-2.5f, u"-2.5"},
      {FLT_MAX, u"3.402823E+38"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(SingleToText(c.input), std::u16string(c.expected));
  }
}

TEST(DateToText, DateTimeAndTimeOnlyForms) {
  struct Case {
    double serial;
    const char16_t* expected;
  };
  const Case cases[] = {
      {45292.5, u"1/1/2024 12:00:00 PM"},
      {45292, u"1/1/2024"},
      {1, u"12/31/1899"},
      {-1, u"12/29/1899"},
      {0, u"12:00:00 AM"},
      {0.25, u"6:00:00 AM"},
      {0.5, u"12:00:00 PM"},
      {2.75, u"1/1/1900 6:00:00 PM"},
      {-1.25, u"12/29/1899 6:00:00 AM"},
      {-0.5, u"12:00:00 PM"},
      // 1900 is not a leap year.
      {60, u"2/28/1900"},
      {61, u"3/1/1900"},
      {45293 + (15 * 3600 + 4 * 60 + 5) / 86400.0, u"1/2/2024 3:04:05 PM"},
      {45293 + (23 * 3600 + 59 * 60 + 59) / 86400.0, u"1/2/2024 11:59:59 PM"},
      {45293 + 1 / 86400.0, u"1/2/2024 12:00:01 AM"},
      {36585, u"2/29/2000"},
      {36950, u"2/28/2001"},
      {36951, u"3/1/2001"},
      {2958465, u"12/31/9999"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.serial);
    EXPECT_EQ(DateToText(c.serial), std::u16string(c.expected));
  }
}

TEST(DateToText, SerialsOutsideTheDateRangeOverflow) {
  EXPECT_RAISES(DateToText(2958466.0), kOverflow);
  EXPECT_RAISES(DateToText(-657435.0), kOverflow);
  EXPECT_RAISES(DateToText(std::nan("")), kOverflow);
}

TEST(ParseNumber, AcceptsTheNumericTextForms) {
  struct Case {
    const char16_t* text;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {u"12", 12},
      {u"  12  ", 12},
      {u"\t12\r\n", 12},
      {u"-12", -12},
      {u"+12", 12},
      {u"1.5", 1.5},
      {u".5", 0.5},
      {u"5.", 5},
      {u"1e3", 1000},
      {u"1E+3", 1000},
      {u"1e-3", 0.001},
      {u"1D3", 1000},
      {u"1d-1", 0.1},
      {u"1,000", 1000},
      {u"1,000,000.25", 1000000.25},
      {u"&HFF", 255},
      {u"&hff", 255},
      {u"&HFFFF", -1},
      {u"&H8000", -32768},
      {u"&H7FFF", 32767},
      {u"&H10000", 65536},
      {u"&HFFFFFFFF", -1},
      {u"&H0FFFF", -1},
      {u"&O17", 15},
      {u"&O177777", -1},
      {u"1e-400", 0},
      {u"007", 7},
      // Rejected.
      {u"", std::nullopt},
      {u"   ", std::nullopt},
      {u"abc", std::nullopt},
      {u"12abc", std::nullopt},
      {u"1 2", std::nullopt},
      {u".", std::nullopt},
      {u"-", std::nullopt},
      {u"+-1", std::nullopt},
      {u"1e", std::nullopt},
      {u"1e+", std::nullopt},
      {u"e3", std::nullopt},
      {u"1.2.3", std::nullopt},
      {u",1", std::nullopt},
      {u"1.000,5", std::nullopt},
      {u"&H", std::nullopt},
      {u"&HFG", std::nullopt},
      {u"&H100000000", std::nullopt},
      {u"&O8", std::nullopt},
      {u"&X1", std::nullopt},
      {u"-&H1", std::nullopt},
      {u"1e400", std::nullopt},
      {u"True", std::nullopt},
      {u"1\u00A0", std::nullopt},
      {u"\uFF11", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::u16string(c.text)));
    EXPECT_EQ(ParseNumber(c.text), c.expected);
  }
  EXPECT_EQ(ParseNumber(std::u16string_view(u"1\0", 2)), std::nullopt);
}

TEST(IsNumeric, NumbersEmptyAndNumericText) {
  struct Case {
    const char* label;
    Value input;
    bool expected;
  };
  const Case cases[] = {
      {"Empty", Value(), true},
      {"Null", Value::Null(), false},
      {"Integer", Value(int16_t{1}), true},
      {"Double", Value(1.5), true},
      {"Boolean", Value(true), true},
      {"Byte", Value(uint8_t{1}), true},
      {"LongLong", Value(int64_t{1}), true},
      {"Date", Value::Date(1), false},
      {"'12'", Text(u"12"), true},
      {"' 1,000.5 '", Text(u" 1,000.5 "), true},
      {"'&HFFFFFFFF'", Text(u"&HFFFFFFFF"), true},
      {"'&H100000000'", Text(u"&H100000000"), false},
      {"'abc'", Text(u"abc"), false},
      {"''", Text(u""), false},
      {"Missing", Value::Missing(), false},
      {"Nothing", Value::Nothing(), false},
      {"array", AnArray(), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(IsNumeric(c.input), c.expected);
  }
}

TEST(Val, ReadsTheLongestNumericPrefix) {
  struct Case {
    const char16_t* text;
    double expected;
  };
  const Case cases[] = {
      {u"  12abc", 12},
      {u"1 2 3", 123},
      {u" 1\t2\n3", 123},
      {u"&HFF", 255},
      {u"&hff", 255},
      {u"&HFFFF", -1},
      {u"&HFFFFFFFF", -1},
      {u"&O17", 15},
      {u"&O9", 0},
      {u"&H", 0},
      {u"&", 0},
      {u"abc", 0},
      {u"", 0},
      {u"1e3", 1000},
      {u"1E-2", 0.01},
      {u"1D2", 100},
      {u"1e", 1},
      {u"1e+", 1},
      {u"2ex", 2},
      {u"-12", -12},
      {u"- 12", -12},
      {u"+5", 5},
      {u"--5", 0},
      {u".5", 0.5},
      {u"-.5", -0.5},
      {u"1.2.3", 1.2},
      {u"1,000", 1},
      {u"24 and 57", 24},
      {u"1615 198th Street N.E.", 1615198},
      {u"\r12", 0},
      // A prefix that overflows is not numeric: the longest one that fits.
      {u"1e400", 1e40},
      {u"1e-400", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::u16string(c.text)));
    EXPECT_EQ(Val(c.text), c.expected);
  }
}

TEST(Val, NeverRaisesOnHugeText) {
  std::u16string digits(400, u'9');
  EXPECT_TRUE(std::isfinite(Val(digits)));
  EXPECT_GT(Val(digits), 1e307);
  EXPECT_TRUE(std::isfinite(Val(u"1e99999999999999999999")));
}

TEST(Str, LeadingSpaceForNonNegatives) {
  const TextCase cases[] = {
      {"5", Value(int32_t{5}), u" 5", kOk},
      {"-5", Value(int32_t{-5}), u"-5", kOk},
      {"0", Value(int16_t{0}), u" 0", kOk},
      {"0.5", Value(0.5), u" .5", kOk},
      {"-0.5", Value(-0.5), u"-.5", kOk},
      {"0.05", Value(0.05), u" .05", kOk},
      {"123.25", Value(123.25), u" 123.25", kOk},
      {"1E-05", Value(0.00001), u" 1E-05", kOk},
      {"-1E+15", Value(-1e15), u"-1E+15", kOk},
      {"Single 0.25", Value(0.25f), u" .25", kOk},
      {"Byte", Value(uint8_t{7}), u" 7", kOk},
      {"'12'", Text(u"12"), u" 12", kOk},
      {"'-1.5'", Text(u"-1.5"), u"-1.5", kOk},
      {"'abc'", Text(u"abc"), u"", kMismatch},
      {"Empty", Value(), u" 0", kOk},
      {"Null", Value::Null(), u"", kNullUse},
      {"Missing", Value::Missing(), u"", kMismatch},
  };
  ExpectTexts(cases, [](const Value& v) { return Str(v); });
}

TEST(RoundHalfEven, TiesGoToTheEvenNeighbour) {
  struct Case {
    double input;
    double expected;
  };
  const Case cases[] = {
      {0.5, 0},     {1.5, 2},      {2.5, 2},       {3.5, 4},        {-0.5, 0},
      {-1.5, -2},   {-2.5, -2},    {2.4999999, 2}, {2.5000001, 3},  {-2.6, -3},
      {7, 7},       {1e300, 1e300}, {4503599627370495.5, 4503599627370496},
      {0.49999999999999994, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    EXPECT_EQ(RoundHalfEven(c.input), c.expected);
  }
}

TEST(IntAndFix, FloorAndTruncateKeepingTheKind) {
  struct Case {
    const char* label;
    Value input;
    Value int_result;
    Value fix_result;
  };
  const Case cases[] = {
      {"-2.5", Value(-2.5), Value(-3.0), Value(-2.0)},
      {"2.7", Value(2.7), Value(2.0), Value(2.0)},
      {"Single -1.5", Value(-1.5f), Value(-2.0f), Value(-1.0f)},
      {"Date 1.75", Value::Date(1.75), Value::Date(1), Value::Date(1)},
      {"Date -1.75", Value::Date(-1.75), Value::Date(-2), Value::Date(-1)},
      {"Integer", Value(int16_t{5}), Value(int16_t{5}), Value(int16_t{5})},
      {"Long", Value(int32_t{-7}), Value(int32_t{-7}), Value(int32_t{-7})},
      {"True", Value(true), Value(int16_t{-1}), Value(int16_t{-1})},
      {"Empty", Value(), Value(int16_t{0}), Value(int16_t{0})},
      {"'-2.5'", Text(u"-2.5"), Value(-3.0), Value(-2.0)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    Value i = Int(c.input);
    Value f = Fix(c.input);
    EXPECT_EQ(i.code(), c.int_result.code());
    EXPECT_EQ(f.code(), c.fix_result.code());
    EXPECT_EQ(ToDouble(i), ToDouble(c.int_result));
    EXPECT_EQ(ToDouble(f), ToDouble(c.fix_result));
  }
  EXPECT_TRUE(Int(Value::Null()).IsNull());
  EXPECT_TRUE(Fix(Value::Null()).IsNull());
  EXPECT_RAISES(Int(Text(u"x")), kMismatch);
  EXPECT_RAISES(Fix(Value::Missing()), kMismatch);
}

TEST(ConvertTo, TargetKinds) {
  struct Case {
    const char* label;
    Value input;
    Kind target;
    Value expected;  // compared by kind and text
    int32_t error;
  };
  const Case cases[] = {
      {"'12' to Long", Text(u"12"), Kind::kLong, Value(int32_t{12}), kOk},
      {"2.5 to Integer", Value(2.5), Kind::kInteger, Value(int16_t{2}), kOk},
      {"'x' to Integer", Text(u"x"), Kind::kInteger, Value(), kMismatch},
      {"1.5 to String", Value(1.5), Kind::kString, Text(u"1.5"), kOk},
      {"Null to String", Value::Null(), Kind::kString, Value(), kNullUse},
      {"Null to Long", Value::Null(), Kind::kLong, Value(), kNullUse},
      {"Empty to String", Value(), Kind::kString, Text(u""), kOk},
      {"'true' to Boolean", Text(u"true"), Kind::kBoolean, Value(true), kOk},
      {"5 to Boolean", Value(int32_t{5}), Kind::kBoolean, Value(true), kOk},
      {"Double to Date", Value(45292.5), Kind::kDate, Value::Date(45292.5), kOk},
      {"1e7 to Date", Value(1e7), Kind::kDate, Value(), kOverflow},
      {"Date to Double", Value::Date(2.25), Kind::kDouble, Value(2.25), kOk},
      {"300 to Byte", Value(int32_t{300}), Kind::kByte, Value(), kOverflow},
      {"1e39 to Single", Value(1e39), Kind::kSingle, Value(), kOverflow},
      {"'1' to LongLong", Text(u"1"), Kind::kLongLong, Value(int64_t{1}), kOk},
      {"5 to Object", Value(int32_t{5}), Kind::kObject, Value(), kMismatch},
      {"Nothing to Object", Value::Nothing(), Kind::kObject, Value::Nothing(), kOk},
      {"Missing to Long", Value::Missing(), Kind::kLong, Value(), kMismatch},
      {"array to Long", AnArray(), Kind::kLong, Value(), kMismatch},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error != kOk) {
      EXPECT_RAISES(ConvertTo(c.input, c.target), c.error);
      continue;
    }
    Value out = ConvertTo(c.input, c.target);
    EXPECT_EQ(out.code(), c.expected.code());
    if (!out.IsObject()) {
      EXPECT_EQ(ToText(out), ToText(c.expected));
    }
  }
}

TEST(ConvertTo, VariantKeepsTheValueAsItIs) {
  const Value kept[] = {Value(),        Value::Null(),    Value::Missing(),
                        Value::Nothing(), Text(u"abc"),   AnArray(),
                        Value(2.5f)};
  for (const Value& v : kept) {
    Value out = ConvertTo(v, Kind::kVariant);
    EXPECT_EQ(out.code(), v.code());
  }
  EXPECT_EQ(ConvertTo(Value::Missing(), Kind::kVariant).error_code(), kMissingCode);
}

TEST(AssignElement, ConvertsToTheElementKind) {
  Value longs = Value::NewArray(Kind::kLong, {{0, 2}});
  const int32_t one[] = {1};
  AssignElement(longs, one, Text(u"12"));
  EXPECT_EQ(longs.GetElement({1}).code(), uint16_t(Kind::kLong));
  EXPECT_EQ(longs.GetElement({1}).long_value(), 12);

  EXPECT_RAISES(AssignElement(longs, one, Text(u"x")), kMismatch);
  EXPECT_EQ(longs.GetElement({1}).long_value(), 12);  // unchanged
  EXPECT_RAISES(AssignElement(longs, one, Value(3e9)), kOverflow);
  EXPECT_RAISES(AssignElement(longs, one, Value::Null()), kNullUse);
  const int32_t five[] = {5};
  EXPECT_RAISES(AssignElement(longs, five, Value(int32_t{1})), errors::kSubscriptOutOfRange);

  Value bytes = Value::NewArray(Kind::kByte, {{0, 1}});
  AssignElement(bytes, one, Text(u"255"));
  EXPECT_EQ(bytes.Bytes()[1], 255);
  EXPECT_RAISES(AssignElement(bytes, one, Value(int32_t{256})), kOverflow);

  Value strings = Value::NewArray(Kind::kString, {{1, 2}});
  AssignElement(strings, one, Value(1.5));
  EXPECT_EQ(strings.GetElement({1}).string(), u"1.5");

  Value variants = Value::NewArray(Kind::kVariant, {{0, 1}});
  AssignElement(variants, one, Text(u"x"));
  EXPECT_EQ(variants.GetElement({1}).string(), u"x");

  Value scalar(int32_t{1});
  EXPECT_RAISES(AssignElement(scalar, one, Value(int32_t{1})), kMismatch);
}

}  // namespace
}  // namespace kestrel::runtime
