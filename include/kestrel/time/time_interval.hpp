// TimeInterval: a pair of moments, Date1 and Date2, to test dates against,
// compare with another pair, count calendar units across, or build Date2
// from Date1 by adding units.
//
// Each end is either filled (it holds a date) or unfilled (Null); a new
// object has both ends unfilled and both week codes 0. All calendar
// arithmetic is the runtime's DateAdd and DateDiff (kestrel/runtime/dates.hpp)
// with the interval code each enTimeSpanDateInterval value maps to; a period
// outside 1..10 maps to the empty code, which the date functions reject
// with 5. Reading an unfilled end raises 94, and so does every member that
// needs one; Includes, Overlaps and the filled flags never do.
//
// Behaviours kept on purpose because clients are written against them:
//   - Normalized looks only at Date2: it is True exactly when Date2 is filled.
//   - Overlaps asks whether either end of the other interval lies in this
//     one, so an interval that strictly contains this one does not overlap.
//   - Clone copies the readable ends only, and not the week codes.
//   - GetDifference returns whether the split into units came out exact,
//     but hands back in its six arguments the caller's own values rounded
//     to 16-bit integers, not the split.
// Not thread-safe.
//
//   auto t = kestrel::MakeRef<kestrel::TimeInterval>();
//   t->SetDate1(kestrel::Value::Date(kestrel::runtime::DateSerial(2011, 1, 31)));
//   t->SetIntervalNumber(1, kestrel::enTimeSpanIntervalMonth);  // Date2 2011-02-28
//
// Dispatchable with the published member names; registered as
// Kestrel.TimeInterval.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

// The units TimeInterval counts and adds, with their published values.
enum enTimeSpanDateInterval : int32_t {
  enTimeSpanIntervalYear = 1,       // "yyyy"
  enTimeSpanIntervalQuarter = 2,    // "q"
  enTimeSpanIntervalMonth = 3,      // "m"
  enTimeSpanIntervalDayOfYear = 4,  // "y"
  enTimeSpanIntervalDay = 5,        // "d"
  enTimeSpanIntervalWeekday = 6,    // "w"
  enTimeSpanIntervalWeek = 7,       // "ww"
  enTimeSpanIntervalHour = 8,       // "h"
  enTimeSpanIntervalMinute = 9,     // "n"
  enTimeSpanIntervalSecond = 10,    // "s"
};

// The runtime's interval code for a period; "" for any other value.
KESTREL_API std::u16string_view IntervalCode(enTimeSpanDateInterval period) noexcept;

class KESTREL_API TimeInterval : public Dispatchable<TimeInterval> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.TimeInterval";

  TimeInterval();

  bool Filled() const noexcept { return Date1Filled() && Date2Filled(); }
  bool Date1Filled() const noexcept { return date1_.kind() == Kind::kDate; }
  bool Date2Filled() const noexcept { return date2_.kind() == Kind::kDate; }

  // The end's date serial; 94 when the end is unfilled.
  double Date1() const;
  double Date2() const;
  // Stores `date` converted as CDate does (text parsed, numbers taken as
  // serials; 13, 6 or 94 from the conversion). The end is then filled.
  void SetDate1(const Value& date);
  void SetDate2(const Value& date);

  // Week codes handed to DateDiff by GetIntervalNumber; stored unchecked.
  int32_t FirstDayOfWeek() const noexcept { return first_day_of_week_; }
  void SetFirstDayOfWeek(int32_t code) noexcept { first_day_of_week_ = code; }
  int32_t FirstWeekOfYear() const noexcept { return first_week_of_year_; }
  void SetFirstWeekOfYear(int32_t code) noexcept { first_week_of_year_ = code; }

  // True exactly when Date2 is filled, whatever Date1 holds.
  bool Normalized() const;
  // Date1 <= value <= Date2 when Normalized, else Date2 <= value <= Date1.
  // `value` is converted as CDate does; an unfilled end, or a Null value,
  // makes the result False.
  bool Includes(const Value& value) const;
  // Includes(other's Date1) Or Includes(other's Date2); an unfilled end of
  // `other` is simply not included.
  bool Overlaps(const TimeInterval& other) const;
  // SwapDates unless Normalized.
  void Normalize();
  // Exchanges the two ends, filled state included.
  void SwapDates() noexcept { date1_.swap(date2_); }
  // A new interval with the readable ends of this one; week codes 0.
  Ref<TimeInterval> Clone() const;

  // DateDiff of the period's code from Date1 to Date2 with the week codes,
  // as a 32-bit integer (6 when it does not fit).
  int32_t GetIntervalNumber(enTimeSpanDateInterval period) const;
  // Date2 = DateAdd of `number` units of the period's code to Date1.
  void SetIntervalNumber(int32_t number, enTimeSpanDateInterval period);
  // Date2 = Date1 plus the given years, months, days, hours, minutes and
  // seconds, added in that order, each count rounded to a whole number.
  void SetDifference(double years, double months, double days, double hours, double minutes,
                     double seconds);
  // Splits Date2 - Date1 into units (borrowing between units when `precise`)
  // and returns whether the split is exact. Each argument then receives its
  // own incoming value rounded to a 16-bit integer, ties to even; a value
  // outside -32768..32767 raises 6, leaving that argument and the ones
  // after it with the split's values.
  bool GetDifference(double& years, double& months, double& days, double& hours, double& minutes,
                     double& seconds, bool precise = true);

  // Both ends unfilled.
  void Clear() noexcept;

  static const DispatchTable<TimeInterval>& Dispatch();

 private:
  // The six units of a split, years first.
  using Units = std::array<double*, 6>;
  bool PlainSplit(const Units& units) const;
  bool PreciseSplit(const Units& units) const;

  Value date1_;
  Value date2_;
  int32_t first_day_of_week_ = 0;
  int32_t first_week_of_year_ = 0;
};

}  // namespace kestrel
