#include "kestrel/runtime/dates.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

constexpr int32_t kBad = errors::kInvalidProcedureCall;

// A calendar moment, turned into a serial by the calendar types directly so
// that the tables do not lean on DateSerial.
struct Stamp {
  int y = 1899;
  unsigned m = 12, d = 30;
  int h = 0, n = 0;
  double s = 0;
};

double Serial(const Stamp& t) {
  using namespace std::chrono;
  const auto day = static_cast<double>(
      (sys_days{year{t.y} / t.m / t.d} - sys_days{year{1899} / December / 30}).count());
  const double time = (t.h * 3600 + t.n * 60 + t.s) / 86400.0;
  return day < 0 ? day - time : day + time;  // the fraction counts forward before day 0
}

std::ostream& operator<<(std::ostream& o, const Stamp& t) {
  return o << t.y << '-' << t.m << '-' << t.d << ' ' << t.h << ':' << t.n << ':' << t.s;
}

std::string Narrow(const char16_t* p) {
  return std::string(p, p + std::char_traits<char16_t>::length(p));
}

// One row's call: it raises `error`, or returns `expected` when error is 0.
template <class F, class T>
void Check(F&& call, const T& expected, int32_t error) {
  if (error != 0)
    EXPECT_RAISES(call(), error);
  else
    EXPECT_EQ(call(), expected);
}

TEST(Dates, DateAdd) {
  struct Row {
    const char16_t* interval;
    double number;
    Stamp date, expected;
    int32_t error = 0;
  };
  // clang-format off
  const Row rows[] = {
      // Months, quarters and years clamp to the last day of the target month.
      // The leap rules: 2024 and 2000 have a 29 February, 1900 has none.
      {u"m", 1, {2024, 1, 31}, {2024, 2, 29}},      {u"m", 1, {1900, 1, 31}, {1900, 2, 28}},
      {u"m", 1, {2000, 1, 31}, {2000, 2, 29}},      {u"m", 2, {2024, 12, 31}, {2025, 2, 28}},
      {u"m", 3, {2024, 1, 31}, {2024, 4, 30}},      {u"m", -13, {2024, 1, 15}, {2022, 12, 15}},
      {u"q", 1, {2024, 11, 30}, {2025, 2, 28}},     {u"m", 1.6, {2024, 1, 31}, {2024, 3, 31}},
      {u"yyyy", 1, {2024, 2, 29}, {2025, 2, 28}},   {u"yyyy", 4, {2024, 2, 29}, {2028, 2, 29}},
      {u"yyyy", 1, {2024, 2, 29, 12, 34, 56}, {2025, 2, 28, 12, 34, 56}},
      // "y", "d" and "w" are plain days ("w" is not working days); "ww" weeks.
      {u"d", 1, {2024, 12, 31, 23}, {2025, 1, 1, 23}}, {u"y", 366, {2024, 1, 1}, {2025, 1, 1}},
      {u"w", 5, {2024, 3, 8}, {2024, 3, 13}},       {u"wW", 1, {2024, 1, 1}, {2024, 1, 8}},
      // Hours, minutes and seconds land exactly on the second, across midnight.
      {u"h", 1, {2024, 1, 1, 23, 30}, {2024, 1, 2, 0, 30}},
      {u"n", 90, {2024, 2, 28, 23}, {2024, 2, 29, 0, 30}},
      {u"s", 1, {2024, 12, 31, 23, 59, 59}, {2025, 1, 1}},
      {u"s", 86400 * 3 + 1, {2024, 1, 1, 12}, {2024, 1, 4, 12, 0, 1}},
      // A fractional count is rounded, ties to even (1.6 months above is 2).
      {u"d", 1.5, {2024, 1, 1}, {2024, 1, 3}},      {u"d", 2.5, {2024, 1, 1}, {2024, 1, 3}},
      {u"d", -1.5, {2024, 1, 1}, {2023, 12, 30}},
      // Before day 0 the whole part counts back and the time still forward.
      {u"d", 2, {1899, 12, 29, 6}, {1899, 12, 31, 6}},
      {u"d", -1, {1899, 12, 30, 6}, {1899, 12, 29, 6}},
      {u"h", -7, {1899, 12, 30, 6}, {1899, 12, 29, 23}},
      {u"s", 1, {1899, 12, 29, 23, 59, 59}, {1899, 12, 30}},
      // The calendar runs from 100-01-01 to 9999-12-31.
      {u"yyyy", -9899, {9999, 12, 31}, {100, 12, 31}}, {u"d", -1, {100, 1, 2}, {100, 1, 1}},
      {u"d", 1, {9999, 12, 31}, {}, kBad},          {u"yyyy", 1, {9999, 1, 1}, {}, kBad},
      {u"s", 1, {9999, 12, 31, 23, 59, 59}, {}, kBad},
      {u"m", -1, {100, 1, 15}, {}, kBad},           {u"d", -1, {100, 1, 1}, {}, kBad},
      {u"ww", 1e15, {2024, 1, 1}, {}, kBad},        {u"x", 1, {2024, 1, 1}, {}, kBad},
      {u"d", std::numeric_limits<double>::quiet_NaN(), {2024, 1, 1}, {}, kBad},
      {u"", 1, {2024, 1, 1}, {}, kBad},             {u"mm", 1, {2024, 1, 1}, {}, kBad},
  };
  // clang-format on
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << Narrow(r.interval) << ' ' << r.date << " + " << r.number);
    Check([&] { return DateAdd(r.interval, r.number, Serial(r.date)); }, Serial(r.expected),
          r.error);
  }
}

TEST(Dates, DateDiff) {
  struct Row {
    const char16_t* interval;
    Stamp date1, date2;
    int64_t expected;
    int32_t first_day = 1;
  };
  // clang-format off
  const Row rows[] = {
      // Boundaries crossed, not whole units elapsed.
      {u"yyyy", {2023, 12, 31}, {2024, 1, 1}, 1},   {u"yyyy", {2024, 1, 1}, {2024, 12, 31}, 0},
      {u"yyyy", {2024, 1, 1}, {2023, 12, 31}, -1},
      {u"yyyy", {100, 1, 1}, {9999, 12, 31, 23, 59, 59}, 9899},
      {u"q", {2024, 3, 31}, {2024, 4, 1}, 1},       {u"q", {2023, 12, 31}, {2025, 1, 1}, 5},
      {u"m", {2024, 1, 31}, {2024, 2, 1}, 1},       {u"m", {2024, 3, 1}, {2023, 3, 31}, -12},
      // Days are midnights crossed; the week settings play no part.
      {u"d", {2024, 1, 1, 23}, {2024, 1, 2, 1}, 1}, {u"d", {2024, 3, 1}, {2024, 2, 28}, -2},
      {u"d", {2024, 1, 1}, {2024, 1, 8}, 7, 7},
      {u"d", {1899, 12, 29, 18}, {1899, 12, 30, 6}, 1},
      {u"d", {100, 1, 1}, {9999, 12, 31}, 3615899},
      // "y" counts days in DateDiff.
      {u"y", {2024, 1, 1}, {2024, 12, 31}, 365},
      // "w" counts whole weeks, "ww" the week starts in (date1, date2]; 2024-01-01 is a Monday.
      {u"w", {2024, 1, 1}, {2024, 1, 14}, 1},       {u"ww", {2024, 1, 1}, {2024, 1, 14}, 2},
      {u"w", {2024, 1, 6}, {2024, 1, 7}, 0},        {u"ww", {2024, 1, 6}, {2024, 1, 7}, 1},
      {u"w", {2024, 1, 7}, {2024, 1, 13}, 0},       {u"ww", {2024, 1, 7}, {2024, 1, 13}, 0},
      {u"w", {2024, 1, 14}, {2024, 1, 1}, -1},      {u"ww", {2024, 1, 14}, {2024, 1, 1}, -2},
      // (Mon 1, Wed 10 January] holds two Tuesdays and two Wednesdays.
      {u"w", {2024, 1, 1}, {2024, 1, 10}, 1, 3},    {u"ww", {2024, 1, 1}, {2024, 1, 10}, 1, 0},
      {u"ww", {2024, 1, 1}, {2024, 1, 10}, 1, 2},   {u"ww", {2024, 1, 1}, {2024, 1, 10}, 2, 3},
      {u"ww", {2024, 1, 1}, {2024, 1, 10}, 2, 4},   {u"ww", {2024, 1, 1}, {2024, 1, 10}, 1, 7},
      // Hours, minutes and seconds compare moments to the second.
      {u"h", {2024, 1, 1, 10, 59}, {2024, 1, 1, 11, 1}, 1},
      {u"h", {2024, 1, 1, 23, 30}, {2024, 1, 2, 0, 10}, 1},
      {u"h", {2024, 1, 2, 0, 10}, {2024, 1, 1, 23, 30}, -1},
      {u"n", {2023, 12, 31, 23, 59}, {2024, 1, 1, 0, 1}, 2},
      {u"s", {2024, 1, 2, 0, 0, 1}, {2024, 1, 1, 23, 59, 59}, -2},
      {u"s", {1899, 12, 29, 23, 59, 59}, {1899, 12, 30}, 1},
      {u"s", {2024, 1, 1, 0, 0, 0.4}, {2024, 1, 1, 0, 0, 0.6}, 1},
  };
  // clang-format on
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << Narrow(r.interval) << ' ' << r.date1 << " to " << r.date2
                                      << " first day " << r.first_day);
    EXPECT_EQ(DateDiff(r.interval, Serial(r.date1), Serial(r.date2), r.first_day), r.expected);
  }
}

TEST(Dates, DatePart) {
  struct Row {
    const char16_t* interval;
    Stamp date;
    int32_t expected;
    int32_t first_day = 1, first_week = 1;
  };
  // clang-format off
  const Row rows[] = {
      {u"yyyy", {2024, 6, 15}, 2024},   {u"q", {2024, 3, 31}, 1},  {u"q", {2024, 4, 1}, 2},
      {u"m", {2024, 12, 31}, 12},       {u"d", {2024, 2, 29}, 29},
      // "y" is the day of the year here.
      {u"y", {2024, 12, 31}, 366},      {u"y", {2024, 3, 1}, 61},    {u"y", {1900, 3, 1}, 60},
      {u"h", {1899, 12, 29, 6}, 6},     {u"h", {2024, 1, 1, 13, 45, 30}, 13},
      {u"n", {2024, 1, 1, 13, 45, 30}, 45}, {u"s", {2024, 1, 1, 13, 45, 30}, 30},
      // The time is read to the nearest second: 23:59:59.6 is the next day.
      {u"d", {2024, 1, 31, 23, 59, 59.6}, 1}, {u"s", {2024, 1, 31, 23, 59, 59.6}, 0},
      {u"s", {2024, 1, 31, 12, 0, 5.4}, 5},
      // Weekday of Monday 2024-01-01 by the first day of the week (0: Sunday).
      {u"w", {2024, 1, 1}, 2, 0},       {u"w", {2024, 1, 1}, 1, 2},  {u"w", {2024, 1, 1}, 7, 3},
      {u"w", {2024, 1, 1}, 3, 7},
      // Week of the year of Wednesday 2024-01-10, week 1 holding 1 January.
      {u"ww", {2024, 1, 10}, 2, 0},     {u"ww", {2024, 1, 10}, 2, 2}, {u"ww", {2024, 1, 10}, 3, 3},
      {u"ww", {2024, 1, 10}, 3, 4},     {u"ww", {2024, 1, 10}, 2, 7},
      {u"ww", {2024, 1, 7}, 2},         {u"ww", {2024, 1, 7}, 1, 2},
      {u"ww", {2000, 12, 31}, 54},      {u"ww", {2000, 12, 31}, 54, 0, 0},
      // First week with four days; from Monday these are the ISO weeks.
      {u"ww", {2021, 1, 1}, 53, 2, 2},  {u"ww", {2021, 1, 4}, 1, 2, 2},
      {u"ww", {2024, 12, 30}, 1, 2, 2}, {u"ww", {2023, 1, 1}, 52, 2, 2},
      {u"ww", {2021, 1, 1}, 53, 1, 2},
      // First full week.
      {u"ww", {2024, 1, 1}, 53, 1, 3},  {u"ww", {2024, 1, 7}, 1, 1, 3},
      {u"ww", {2024, 1, 1}, 1, 2, 3},   {u"ww", {2023, 1, 1}, 52, 2, 3},
  };
  // clang-format on
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << Narrow(r.interval) << ' ' << r.date << " first day "
                                      << r.first_day << " first week " << r.first_week);
    EXPECT_EQ(DatePart(r.interval, Serial(r.date), r.first_day, r.first_week), r.expected);
  }
}

TEST(Dates, DateSerialRollsOver) {
  struct Row {
    int32_t year, month, day;
    Stamp expected;
    int32_t error = 0;
  };
  // clang-format off
  const Row rows[] = {
      {2024, 2, 29, {2024, 2, 29}},  {2023, 2, 29, {2023, 3, 1}},   {1900, 2, 29, {1900, 3, 1}},
      {2000, 2, 29, {2000, 2, 29}},  {2024, 25, 1, {2026, 1, 1}},   {2024, 0, 1, {2023, 12, 1}},
      {2024, -12, 1, {2022, 12, 1}}, {2024, 3, 0, {2024, 2, 29}},   {2023, 3, 0, {2023, 2, 28}},
      {2024, 1, -1, {2023, 12, 30}}, {2024, 0, 0, {2023, 11, 30}},  {2024, 1, 366, {2024, 12, 31}},
      // Two-digit years: 0..29 are 2000s, 30..99 the 1900s; 100 is itself.
      {0, 1, 1, {2000, 1, 1}},       {29, 12, 31, {2029, 12, 31}},  {30, 1, 1, {1930, 1, 1}},
      {99, 12, 31, {1999, 12, 31}},  {99, 13, 1, {2000, 1, 1}},     {100, 1, 1, {100, 1, 1}},
      {9999, 12, 31, {9999, 12, 31}}, {1899, 12, 29, {1899, 12, 29}},
      {10000, 1, 1, {}, kBad},       {9999, 13, 1, {}, kBad},       {9999, 12, 32, {}, kBad},
      {100, 1, 0, {}, kBad},         {100, 0, 1, {}, kBad},         {-1, 1, 1, {}, kBad},
      {INT32_MAX, INT32_MAX, INT32_MAX, {}, kBad},
  };
  // clang-format on
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << r.year << '-' << r.month << '-' << r.day);
    Check([&] { return DateSerial(r.year, r.month, r.day); }, Serial(r.expected), r.error);
  }
}

TEST(Dates, TimeSerialIsAFractionOfADay) {
  struct Row {
    int32_t hour, minute, second;
    double seconds;
  };
  // clang-format off
  const Row rows[] = {{6, -15, 0, 5 * 3600 + 45 * 60}, {24, 0, 0, 86400}, {0, 90, 0, 5400},
                      {0, 0, 3661, 3661}, {-1, 0, 0, -3600}, {0, -1, 0, -60}};
  // clang-format on
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << r.hour << ':' << r.minute << ':' << r.second);
    EXPECT_EQ(TimeSerial(r.hour, r.minute, r.second), r.seconds / 86400);
  }
  EXPECT_RAISES(TimeSerial(INT32_MAX, 0, 0), kBad);
}

TEST(Dates, PartsOfASerial) {
  struct Row {
    double serial;
    int32_t year, month, day, hour, minute, second, weekday;
  };
  const Row rows[] = {
      {0, 1899, 12, 30, 0, 0, 0, 7},
      {-1.25, 1899, 12, 29, 6, 0, 0, 6},
      {60, 1900, 2, 28, 0, 0, 0, 4},  // no 29 February 1900: 61 is 1 March
      {Serial({2024, 2, 29, 13, 45, 30}), 2024, 2, 29, 13, 45, 30, 5},
      {Serial({2024, 12, 31, 23, 59, 59.6}), 2025, 1, 1, 0, 0, 0, 4},
      {Serial({2024, 12, 31, 23, 59, 59.4}), 2024, 12, 31, 23, 59, 59, 3},
      {kMinDateSerial, 100, 1, 1, 0, 0, 0, 6},
      {Serial({9999, 12, 31, 23, 59, 59}), 9999, 12, 31, 23, 59, 59, 6},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.serial);
    const int32_t got[] = {Year(r.serial),   Month(r.serial),  Day(r.serial),    Hour(r.serial),
                           Minute(r.serial), Second(r.serial), Weekday(r.serial)};
    const int32_t want[] = {r.year, r.month, r.day, r.hour, r.minute, r.second, r.weekday};
    for (size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i], want[i]) << "part " << i;
  }
  EXPECT_EQ(Weekday(Serial({2024, 1, 1}), 2), 1);
}

TEST(Dates, BadArgumentsRaise) {
  const double day = Serial({2024, 1, 1});
  EXPECT_RAISES(Year(std::numeric_limits<double>::quiet_NaN()), errors::kOverflow);
  EXPECT_RAISES(Year(Serial({9999, 12, 31}) + 1), errors::kOverflow);
  EXPECT_RAISES(Day(kMinDateSerial - 1), errors::kOverflow);
  EXPECT_RAISES(DateAdd(u"d", 1, 1e300), errors::kOverflow);
  EXPECT_RAISES(Weekday(day, 8), kBad);
  EXPECT_RAISES(Weekday(day, -1), kBad);
  EXPECT_RAISES(DatePart(u"ww", day, 1, 4), kBad);
  EXPECT_RAISES(DatePart(u"ww", day, 8, 1), kBad);
  EXPECT_RAISES(DatePart(u"dd", day), kBad);
  EXPECT_RAISES(DateDiff(u"d", day, day, -1), kBad);
  EXPECT_RAISES(DateDiff(u"d", day, day, 1, 4), kBad);
  EXPECT_RAISES(DateDiff(u"days", day, day), kBad);
}

// The Value forms: Integer parts, a Long DateDiff, Date values; dates as
// Date values, serials or date text; Null in, Null out.
TEST(Dates, ValueForms) {
  using namespace kestrel::testing;
  const Value day = Value::Date(Serial({2024, 2, 29, 13, 45, 30}));  // a Thursday
  // clang-format off
  const std::pair<Value (*)(const Value&), int16_t> parts[] = {
      {Year, 2024}, {Month, 2}, {Day, 29}, {Hour, 13}, {Minute, 45}, {Second, 30},
      {[](const Value& v) { return Weekday(v); }, 5}};
  // clang-format on
  for (const auto& [part, expected] : parts) {
    ExpectKindAndValue(part(day), Kind::kInteger, I(expected));
    EXPECT_TRUE(part(N).IsNull());
  }
  ExpectKindAndValue(Year(T(u"2024-03-15")), Kind::kInteger, I(2024));
  ExpectKindAndValue(DatePart(u"q", day), Kind::kInteger, I(1));
  ExpectKindAndValue(DateDiff(u"yyyy", T(u"2023-12-31"), T(u"2024-01-01")), Kind::kLong, L(1));
  EXPECT_TRUE(DateDiff(u"d", N, day).IsNull());
  EXPECT_RAISES(DateDiff(u"s", Dt(kMinDateSerial), Dt(kMaxDateSerial)), errors::kOverflow);
  EXPECT_RAISES(DatePart(u"x", N), kBad);
  EXPECT_RAISES(Weekday(N, 8), kBad);
  EXPECT_RAISES(Year(T(u"abc")), errors::kTypeMismatch);

  // DateValue and TimeValue split a moment read to the nearest second.
  const std::tuple<Value, Stamp, Stamp> splits[] = {
      {day, {2024, 2, 29}, {1899, 12, 30, 13, 45, 30}},
      {T(u"3/15/2024 1:30 PM"), {2024, 3, 15}, {1899, 12, 30, 13, 30}},
      {Dt(-1.25), {1899, 12, 29}, {1899, 12, 30, 6}},
      {Dt(Serial({2024, 1, 31, 23, 59, 59.6})), {2024, 2, 1}, {}},
  };
  for (const auto& [value, date, time] : splits) {
    SCOPED_TRACE(date);
    ExpectKindAndValue(DateValue(value), Kind::kDate, Dt(Serial(date)));
    ExpectKindAndValue(TimeValue(value), Kind::kDate, Dt(Serial(time)));
  }
  EXPECT_TRUE(TimeValue(N).IsNull());
  EXPECT_RAISES(DateValue(L(45000)), errors::kTypeMismatch);
  EXPECT_RAISES(TimeValue(T(u"noon")), errors::kTypeMismatch);
  ExpectKindAndValue(CVDate(T(u"2024-03-15")), Kind::kDate, Dt(Serial({2024, 3, 15})));
  EXPECT_TRUE(CVDate(N).IsNull());
  EXPECT_RAISES(CVDate(D(1e7)), errors::kOverflow);
}

double FixedClock() {
  return 45000.75;
}

TEST(Dates, ClockSourceIsReplaceable) {
  const ClockSource previous = SetClockSource(&FixedClock);
  ASSERT_NE(previous, nullptr);
  EXPECT_EQ(Now(), 45000.75);
  EXPECT_EQ(SetClockSource(nullptr), &FixedClock);

  // Back on the system clock: local time, whole seconds.
  const std::time_t t = std::time(nullptr);
  std::tm local{};
  ASSERT_NE(localtime_r(&t, &local), nullptr);
  const double expected = Serial({local.tm_year + 1900, static_cast<unsigned>(local.tm_mon + 1),
                                  static_cast<unsigned>(local.tm_mday), local.tm_hour, local.tm_min,
                                  static_cast<double>(local.tm_sec)});
  const double now = Now();
  EXPECT_NEAR(now, expected, 2.0 / 86400);
  EXPECT_NEAR(now * 86400, std::round(now * 86400), 1e-4);
  SetClockSource(previous);
}

}  // namespace
}  // namespace kestrel::runtime
