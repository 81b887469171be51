#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

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
  const std::pair<const char16_t*, double> cases[] = {
      // clang-format off
      {u"2024-03-15", Serial(2024, 3, 15)}, {u"2024/3/5 9:05", Serial(2024, 3, 5, 9, 5)},
      {u" 2024-03-15T14:30:05\t", Serial(2024, 3, 15, 14, 30, 5)},
      {u"3/15/2024", Serial(2024, 3, 15)},  {u"03-15-2024", Serial(2024, 3, 15)},
      {u"13/1/2024", Serial(2024, 1, 13)},  // cannot be a month: day first
      {u"3/15/24", Serial(2024, 3, 15)},    {u"1/1/29", Serial(2029, 1, 1)},
      {u"1/1/30", Serial(1930, 1, 1)},      {u"March 5, 2024", Serial(2024, 3, 5)},
      {u"mar 5 2024", Serial(2024, 3, 5)},  {u"5-MAR-2024", Serial(2024, 3, 5)},
      {u"5 September 99", Serial(1999, 9, 5)}, {u"2024-Mar-05", Serial(2024, 3, 5)},
      {u"3/15", Serial(2032, 3, 15)},       {u"2/29", Serial(2032, 2, 29)},
      {u"13/1", Serial(2032, 1, 13)},       {u"Mar 5", Serial(2032, 3, 5)},
      {u"3:04 PM", Time(15, 4)},            {u"12:00 AM", 0},
      {u"12:30:15pm", Time(12, 30, 15)},    {u"14:30", Time(14, 30)},
      {u"5 PM", Time(17, 0)},  {u"3/15/2024 12:00:01 AM", Serial(2024, 3, 15, 0, 0, 1)},
      {u"March 5, 2024 11:59:59 PM", Serial(2024, 3, 5, 23, 59, 59)},
      {u"12/29/1899 6:00 AM", -1.25},       {u"1/1/100", Serial(100, 1, 1)},
      {u"12/31/9999 23:59:59", Serial(9999, 12, 31, 23, 59, 59)},
      // clang-format on
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(ToUtf8(text));
    EXPECT_EQ(ParseDate(text), expected);
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
  const double last_second = Serial(9999, 12, 31, 23, 59, 59);
  const struct {
    Value input;
    double expected;
    int32_t error = kOk;
  } cases[] = {
      // clang-format off
      {Dt(2.5), 2.5},     {I(3), 3},   {Value(true), -1},  {E, 0},
      {T(u"3/15/2024 6:00 PM"), Serial(2024, 3, 15, 18, 0)},
      {D(last_second), last_second},   {D(-657434.5), -657434.5},  // the first day, at noon
      {D(2958466), 0, errors::kOverflow},        {D(-657435), 0, errors::kOverflow},
      {N, 0, errors::kInvalidUseOfNull},         {T(u"45000"), 0, errors::kTypeMismatch},
      {T(u"soon"), 0, errors::kTypeMismatch},    {Value::Nothing(), 0, errors::kTypeMismatch},
      {Value::Missing(), 0, errors::kTypeMismatch},
      {Value::VariantArray({Dt(1)}), 0, errors::kTypeMismatch},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Describe(c.input));
    if (c.error == kOk) {
      EXPECT_EQ(ToDate(c.input), c.expected);
      testing::ExpectKindAndValue(ConvertTo(c.input, Kind::kDate), Kind::kDate, D(c.expected));
    } else {
      EXPECT_RAISES(ToDate(c.input), c.error);
      EXPECT_RAISES(ConvertTo(c.input, Kind::kDate), c.error);
    }
  }
}

TEST(IsDate, DateKindOrDateText) {
  const std::pair<Value, bool> cases[] = {
      {Dt(45000), true},    {T(u" 2024-03-15 "), true}, {D(45000), false},
      {T(u"45000"), false}, {T(u"2/30/2024"), false},   {E, false},
      {N, false},
  };
  for (const auto& [value, is_date] : cases)
    EXPECT_EQ(IsDate(value), is_date) << testing::Describe(value);
}

}  // namespace
}  // namespace kestrel::runtime
