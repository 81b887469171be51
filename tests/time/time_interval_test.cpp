#include "kestrel/time/time_interval.hpp"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <vector>

#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel {
namespace {

using Six = std::array<double, 6>;
using testing::ExpectKindAndValue;
constexpr int32_t kNull = errors::kInvalidUseOfNull;

// A date serial built independently of the date functions under test.
double Serial(int y, unsigned m, unsigned d, double seconds = 0) {
  using namespace std::chrono;
  return (sys_days{year{y} / m / d} - sys_days{year{1899} / December / 30}).count() +
         seconds / 86400;
}

Ref<TimeInterval> Make(double d1, double d2) {
  Ref<TimeInterval> t = MakeRef<TimeInterval>();
  t->SetDate1(Value::Date(d1));
  t->SetDate2(Value::Date(d2));
  return t;
}

const double kJan31 = Serial(2011, 1, 31), kMar1 = Serial(2011, 3, 1), kMar5 = Serial(2011, 3, 5);
const double kMar6 = Serial(2011, 3, 6), kMar10 = Serial(2011, 3, 10);

TEST(TimeInterval, UnfilledEndsRaise94WhenReadAndCloneSkipsThem) {
  TimeInterval t;
  EXPECT_FALSE(t.Normalized());
  t.SetDate1(Value::Date(kMar1));  // Date2 still unfilled
  t.SetFirstDayOfWeek(2);
  t.SetFirstWeekOfYear(3);
  Ref<TimeInterval> copy = t.Clone();  // without the unfilled end and the week codes
  EXPECT_FALSE(copy->Date2Filled());
  EXPECT_EQ(copy->Date1(), kMar1);
  EXPECT_EQ(copy->FirstDayOfWeek() + copy->FirstWeekOfYear(), 0);
  EXPECT_RAISES(t.Date2(), kNull);
  EXPECT_RAISES(TimeInterval().SetDifference(1, 0, 0, 0, 0, 0), kNull);
  // The missing end is reported before a bad period.
  EXPECT_RAISES(t.GetIntervalNumber(static_cast<enTimeSpanDateInterval>(0)), kNull);
  EXPECT_RAISES(TimeInterval().SetIntervalNumber(1, static_cast<enTimeSpanDateInterval>(11)),
                kNull);
}

TEST(TimeInterval, NormalizedLooksOnlyAtDate2AndOverlapsOnlyAtTheOtherEnds) {
  Ref<TimeInterval> t = Make(kMar10, kMar1);
  EXPECT_TRUE(t->Normalized());                   // although Date1 > Date2
  EXPECT_FALSE(t->Includes(Value::Date(kMar5)));  // the Date1 <= v <= Date2 branch
  t->Normalize();
  EXPECT_EQ(t->Date1(), kMar10);
  t->SwapDates();
  for (double inside : {kMar1, kMar5, kMar10}) EXPECT_TRUE(t->Includes(Value::Date(inside)));
  const Ref<TimeInterval> inner = Make(kMar5, kMar6), outer = Make(kMar1, kMar10);
  EXPECT_FALSE(inner->Overlaps(*outer));
  EXPECT_TRUE(outer->Overlaps(*inner));
  EXPECT_FALSE(outer->Overlaps(TimeInterval()));
}

TEST(TimeInterval, GetDifferenceHandsBackTheCallersRoundedValues) {
  // Error 6 from the write-back leaves the split's own values in `out`.
  struct Row {
    double d1, d2;
    bool precise;
    Six in, out;
    int32_t error;
    bool exact;
  };
  const double jan1 = Serial(2011, 1, 1), jan2 = Serial(2011, 1, 2);
  const Row rows[] = {
      {kJan31, kMar1, true, {2.5, 3.5, -2.5, 7, 0.4, 1e-9}, {2, 4, -2, 7, 0, 0}, 0, true},
      // Plain: 2 months back from 1 Mar is 1 Jan, then 30 days forward.
      {kJan31, kMar1, false, {40000, 0, 0, 0, 0, 0}, {0, 2, -30, 0, 0, 0}, 6},
      // Precise: the -30 days overshoot, so one month is borrowed back.
      {kJan31, kMar1, true, {40000, 0, 0, 0, 0, 0}, {0, 1, 1, 0, 0, 0}, 6, false},
      // Backward: giving a month back lands on 28 Feb, so the days come out -1.
      {kMar1, kJan31, true, {40000, 0, 0, 0, 0, 0}, {0, -1, -1, 0, 0, 0}, 6, false},
      {jan1 + 6.0 / 24, jan2 + 3.0 / 24, true, {}, {}, 0, true},  // borrows a day for hours
      // A quarter second that whole-second units cannot take off.
      {Serial(2011, 1, 1, 0.25), jan2, false, {}, {}, 0, false},
      // Borrowing from the 0 months left after the years keeps borrowing
      // years until the date leaves the calendar.
      {Serial(2010, 12, 15), Serial(2011, 12, 10), true, {}, {}, errors::kInvalidProcedureCall},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << r.d1 << " to " << r.d2 << " precise " << r.precise);
    Ref<TimeInterval> t = Make(r.d1, r.d2);
    Six u = r.in;
    if (r.error != 0)
      EXPECT_RAISES(t->GetDifference(u[0], u[1], u[2], u[3], u[4], u[5], r.precise), r.error);
    else
      EXPECT_EQ(t->GetDifference(u[0], u[1], u[2], u[3], u[4], u[5], r.precise), r.exact);
    if (r.error != errors::kInvalidProcedureCall) {
      EXPECT_EQ(u, r.out);
    }
  }
}

TEST(TimeInterval, IntervalNumbersAndDifferencesBuildingDate2) {
  // {period, first day of week, count} from Thursday 30 Dec 2010 22:00 to
  // Sunday 2 Jan 2011 01:00; a negative count is the error raised.
  const int32_t rows[][3] = {{1, 0, 1},       {2, 0, 1},  {3, 0, 1},  {4, 0, 3},  {5, 0, 3},
                             {6, 0, 0},       {7, 0, 1},  {7, 2, 0},  {8, 0, 51}, {9, 0, 3060},
                             {10, 0, 183600}, {0, 0, -5}, {11, 0, -5}};
  for (const auto& [period_number, first_day, count] : rows) {
    SCOPED_TRACE(::testing::Message() << "period " << period_number << " first day " << first_day);
    Ref<TimeInterval> t = Make(Serial(2010, 12, 30, 22 * 3600), Serial(2011, 1, 2, 3600));
    t->SetFirstDayOfWeek(first_day);
    const auto period = static_cast<enTimeSpanDateInterval>(period_number);
    if (count < 0) {
      EXPECT_RAISES(t->GetIntervalNumber(period), -count);
      EXPECT_RAISES(t->SetIntervalNumber(1, period), -count);
    } else {
      EXPECT_EQ(t->GetIntervalNumber(period), count);
    }
  }
  EXPECT_RAISES(
      Make(Serial(100, 1, 1), Serial(9999, 12, 31))->GetIntervalNumber(enTimeSpanIntervalSecond),
      errors::kOverflow);

  // Building Date2 from Date1 clamps to the month's end.
  TimeInterval t;
  t.SetDate1(Value::Date(kJan31));
  t.SetIntervalNumber(1, enTimeSpanIntervalMonth);
  EXPECT_EQ(t.Date2(), Serial(2011, 2, 28));
  t.SetDifference(1, 1, 0, 0, 0, 0);  // years first: 31 Jan 2012, then 29 Feb
  EXPECT_EQ(t.Date2(), Serial(2012, 2, 29));
  t.SetDifference(0, 0, 1, 27, 11, 14.6);  // 1 Feb + 27 h + 11 min + 15 s
  EXPECT_EQ(t.Date2(), Serial(2011, 2, 2, 3 * 3600 + 11 * 60 + 15));
}

TEST(TimeInterval, ByName) {
  Ref<Object> t = CreateObject(u"Kestrel.TimeInterval");
  CallByName(t, u"Date1", CallKind::kLet, {Value::Date(kJan31)});
  CallByName(t, u"date2", CallKind::kLet, {Value(u"2011-03-01")});
  ExpectKindAndValue(CallByName(t, u"Date2", CallKind::kGet), Kind::kDate, Value(kMar1));
  std::vector<Value> args = {Value(2.5), Value(0.0), Value(0.0),
                             Value(0.0), Value(1),   Value(u"3.5")};
  EXPECT_TRUE(CallByName(t, u"GetDifference", CallKind::kMethod, args).boolean());
  const Six back = {2, 0, 0, 0, 1, 4};
  for (size_t i = 0; i < 6; ++i) ExpectKindAndValue(args[i], Kind::kDouble, Value(back[i]));
  args[0] = Value(-40000.0);
  args.push_back(Value(false));
  EXPECT_RAISES(CallByName(t, u"GetDifference", CallKind::kMethod, args), errors::kOverflow);
  EXPECT_EQ(args[1].dbl(), 2);  // the plain split's months, left by the failed write-back
  EXPECT_RAISES(CallByName(t, u"Overlaps", CallKind::kMethod, {Value(MakeRef<Collection>())}),
                errors::kTypeMismatch);
}

}  // namespace
}  // namespace kestrel
