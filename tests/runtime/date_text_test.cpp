#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using testing::D;
using testing::Dt;
using testing::E;
using testing::I;
using testing::N;
using testing::T;
constexpr int32_t kOk = 0;

// Expected serials straight from the calendar: days since 1899-12-30, the
// time of day counting forward from midnight even before day 0.
double Serial(int y, unsigned m, unsigned d, int h = 0, int n = 0, int s = 0) {
  using namespace std::chrono;
  const auto day =
      (sys_days{year{y} / month{m} / d} - sys_days{year{1899} / December / 30}).count();
  const double time = (h * 3600 + n * 60 + s) / 86400.0;
  return day >= 0 ? day + time : day - time;
}
double Time(int h, int n, int s = 0) {
  return Serial(1899, 12, 30, h, n, s);
}

// Two-field dates take the year from the clock; fix it in a leap year.
double ClockIn2032() {
  return Serial(2032, 6, 15, 9, 30);
}
class ParseDateTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = SetClockSource(ClockIn2032); }
  void TearDown() override { SetClockSource(previous_); }
  ClockSource previous_ = nullptr;
};

TEST_F(ParseDateTest, AcceptsTheDateAndTimeForms) {
  const struct {
    const char16_t* text;
    double expected;
  } cases[] = {
      {u"2024-03-15", Serial(2024, 3, 15)},
      {u" 2024-03-15T14:30:05\t", Serial(2024, 3, 15, 14, 30, 5)},
      {u"2024/3/5 9:05", Serial(2024, 3, 5, 9, 5)},
      {u"3/15/2024", Serial(2024, 3, 15)},
      {u"03-15-2024", Serial(2024, 3, 15)},
      {u"13/1/2024", Serial(2024, 1, 13)},  // cannot be a month: day first
      {u"3/15/24", Serial(2024, 3, 15)},
      {u"1/1/29", Serial(2029, 1, 1)},
      {u"1/1/30", Serial(1930, 1, 1)},
      {u"March 5, 2024", Serial(2024, 3, 5)},
      {u"mar 5 2024", Serial(2024, 3, 5)},
      {u"5-MAR-2024", Serial(2024, 3, 5)},
      {u"5 September 99", Serial(1999, 9, 5)},
      {u"2024-Mar-05", Serial(2024, 3, 5)},
      {u"3/15", Serial(2032, 3, 15)},
      {u"2/29", Serial(2032, 2, 29)},
      {u"13/1", Serial(2032, 1, 13)},
      {u"Mar 5", Serial(2032, 3, 5)},
      {u"3:04 PM", Time(15, 4)},
      {u"12:00 AM", 0},
      {u"12:30:15pm", Time(12, 30, 15)},
      {u"14:30", Time(14, 30)},
      {u"5 PM", Time(17, 0)},
      {u"3/15/2024 12:00:01 AM", Serial(2024, 3, 15, 0, 0, 1)},
      {u"March 5, 2024 11:59:59 PM", Serial(2024, 3, 5, 23, 59, 59)},
      {u"12/29/1899 6:00 AM", -1.25},
      {u"1/1/100", Serial(100, 1, 1)},
      {u"12/31/9999 23:59:59", Serial(9999, 12, 31, 23, 59, 59)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(ToUtf8(c.text));
    EXPECT_EQ(ParseDate(c.text), c.expected);
  }
  // clang-format off
  const char16_t* const rejected[] = {
      u"",           u"  ",          u"2/30/2024",   u"2/29/2023",       u"13/13/2024",
      u"25:00",      u"12:60",       u"13:00 PM",    u"0:30 AM",         u"3/15/2024/1",
      u"3/15-2024",  u"3 15 2024",   u"45000",       u"1.5",             u"Mar Apr 2024",
      u"Foo 5 2024", u"1/1/10000",   u"2024-03",     u"3/15/2024T10:00", u"2024-03-15T",
      u"3/15/2024 10:30 xyz",        u"March 5,",    u"12:",             u"\uFF11/1/2024",
  };
  // clang-format on
  for (const char16_t* text : rejected) {
    EXPECT_EQ(ParseDate(text), std::nullopt) << ToUtf8(text);
  }
}

TEST(ToDate, NumbersAreSerialsAndTextMustBeADate) {
  const struct {
    const char* label;
    Value input;
    double expected;
    int32_t error = kOk;
  } cases[] = {
      {"Date", Dt(2.5), 2.5},
      {"Integer", I(3), 3},
      {"True", Value(true), -1},
      {"Empty", E, 0},
      {"date text", T(u"3/15/2024 6:00 PM"), Serial(2024, 3, 15, 18, 0)},
      {"last second", D(Serial(9999, 12, 31, 23, 59, 59)), Serial(9999, 12, 31, 23, 59, 59)},
      {"first day, noon", D(-657434.5), -657434.5},
      {"past 9999", D(2958466), 0, errors::kOverflow},
      {"before 100", D(-657435), 0, errors::kOverflow},
      {"Null", N, 0, errors::kInvalidUseOfNull},
      {"numeric text", T(u"45000"), 0, errors::kTypeMismatch},
      {"other text", T(u"soon"), 0, errors::kTypeMismatch},
      {"Nothing", Value::Nothing(), 0, errors::kTypeMismatch},
      {"Missing", Value::Missing(), 0, errors::kTypeMismatch},
      {"array", Value::VariantArray({Dt(1)}), 0, errors::kTypeMismatch},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    if (c.error == kOk) {
      EXPECT_EQ(ToDate(c.input), c.expected);
      EXPECT_EQ(ConvertTo(c.input, Kind::kDate).date(), c.expected);
      EXPECT_EQ(ConvertTo(c.input, Kind::kDate).kind(), Kind::kDate);
    } else {
      EXPECT_RAISES(ToDate(c.input), c.error);
      EXPECT_RAISES(ConvertTo(c.input, Kind::kDate), c.error);
    }
  }
}

TEST(IsDate, DateKindOrDateText) {
  EXPECT_TRUE(IsDate(Dt(45000)));
  EXPECT_TRUE(IsDate(T(u" 2024-03-15 ")));
  EXPECT_FALSE(IsDate(D(45000)));
  EXPECT_FALSE(IsDate(T(u"45000")));
  EXPECT_FALSE(IsDate(T(u"2/30/2024")));
  EXPECT_FALSE(IsDate(E));
  EXPECT_FALSE(IsDate(N));
}

}  // namespace
}  // namespace kestrel::runtime
