#include "kestrel/time/time_interval.hpp"

#include <cstddef>
#include <limits>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

KESTREL_REGISTER_CLASS(TimeInterval, TimeInterval::kQualifiedName, Instancing::kCreatable);

namespace {

// The units of a split, in the order they are taken off the span.
constexpr std::u16string_view kSplitCodes[6] = {u"yyyy", u"m", u"d", u"h", u"n", u"s"};
// Both splits count with Sunday and the week of 1 January, whatever the
// object's own week codes say.
constexpr int32_t kSplitFirstDay = 1;
constexpr int32_t kSplitFirstWeek = 1;

double SplitDiff(size_t unit, double from, double to) {
  return static_cast<double>(
      runtime::DateDiff(kSplitCodes[unit], from, to, kSplitFirstDay, kSplitFirstWeek));
}

double SplitAdd(size_t unit, double number, double date) {
  return runtime::DateAdd(kSplitCodes[unit], number, date);
}

// a <= b with the runtime's comparison; Null on either side is never true.
bool AtMost(const Value& a, const Value& b) {
  const Ordering order = runtime::Compare(a, b);
  return order == Ordering::kLess || order == Ordering::kEqual;
}

double ReadEnd(const Value& end) {
  if (end.kind() != Kind::kDate) RaiseStandard(errors::kInvalidUseOfNull);
  return end.date();
}

}  // namespace

std::u16string_view IntervalCode(enTimeSpanDateInterval period) noexcept {
  static constexpr std::u16string_view kCodes[] = {u"yyyy", u"q",  u"m", u"y", u"d",
                                                   u"w",    u"ww", u"h", u"n", u"s"};
  // Anything else is left to the date functions to reject (5), as they
  // reject any unknown code.
  if (period < enTimeSpanIntervalYear || period > enTimeSpanIntervalSecond) return u"";
  return kCodes[period - enTimeSpanIntervalYear];
}

TimeInterval::TimeInterval() {
  Clear();
}

double TimeInterval::Date1() const {
  return ReadEnd(date1_);
}

double TimeInterval::Date2() const {
  return ReadEnd(date2_);
}

void TimeInterval::SetDate1(const Value& date) {
  date1_ = Value::Date(runtime::ToDate(date));
}

void TimeInterval::SetDate2(const Value& date) {
  date2_ = Value::Date(runtime::ToDate(date));
}

bool TimeInterval::Normalized() const {
  // Date2 against itself, not against Date1: clients depend on Normalized
  // meaning "Date2 is filled", so the self-comparison stays.
  return AtMost(date2_, date2_);
}

bool TimeInterval::Includes(const Value& value) const {
  const Value date = value.IsNull() ? value : Value::Date(runtime::ToDate(value));
  // The ends are compared as stored, so an unfilled (Null) end makes the
  // test False instead of raising.
  if (Normalized()) return AtMost(date1_, date) && AtMost(date, date2_);
  return AtMost(date2_, date) && AtMost(date, date1_);
}

bool TimeInterval::Overlaps(const TimeInterval& other) const {
  // Only the other interval's ends are tested: one that strictly contains
  // this interval has neither end inside it and does not overlap.
  return Includes(other.date1_) || Includes(other.date2_);
}

void TimeInterval::Normalize() {
  if (!Normalized()) SwapDates();
}

Ref<TimeInterval> TimeInterval::Clone() const {
  // The week codes are not part of the copy; an unreadable end is skipped.
  Ref<TimeInterval> copy = MakeRef<TimeInterval>();
  if (Date1Filled()) copy->date1_ = date1_;
  if (Date2Filled()) copy->date2_ = date2_;
  return copy;
}

int32_t TimeInterval::GetIntervalNumber(enTimeSpanDateInterval period) const {
  const int64_t count = runtime::DateDiff(IntervalCode(period), Date1(), Date2(),
                                          first_day_of_week_, first_week_of_year_);
  if (count < std::numeric_limits<int32_t>::min() || count > std::numeric_limits<int32_t>::max())
    RaiseStandard(errors::kOverflow);
  return static_cast<int32_t>(count);
}

void TimeInterval::SetIntervalNumber(int32_t number, enTimeSpanDateInterval period) {
  const double start = Date1();
  date2_ = Value::Date(runtime::DateAdd(IntervalCode(period), number, start));
}

void TimeInterval::SetDifference(double years, double months, double days, double hours,
                                 double minutes, double seconds) {
  const double counts[6] = {years, months, days, hours, minutes, seconds};
  double moment = Date1();
  for (size_t unit = 0; unit < 6; ++unit) moment = SplitAdd(unit, counts[unit], moment);
  date2_ = Value::Date(moment);
}

bool TimeInterval::GetDifference(double& years, double& months, double& days, double& hours,
                                 double& minutes, double& seconds, bool precise) {
  const double incoming[6] = {years, months, days, hours, minutes, seconds};
  const Units units = {&years, &months, &days, &hours, &minutes, &seconds};
  const bool exact = precise ? PreciseSplit(units) : PlainSplit(units);
  // The split's values are replaced by the caller's own, rounded to 16 bits:
  // clients see only whether the split was exact, and code written against
  // this class relies on its arguments coming back that way.
  for (size_t unit = 0; unit < 6; ++unit) *units[unit] = runtime::ToInteger(Value(incoming[unit]));
  return exact;
}

bool TimeInterval::PlainSplit(const Units& units) const {
  double start = 0;
  double end = 0;
  double sign;
  // The order test runs before Start and End are loaded, so with both still
  // 0 it always takes the first branch, even for a backward interval.
  if (start <= end) {
    sign = 1;
    start = Date1();
    end = Date2();
  } else {
    // Unreachable; kept so the split stays the one clients were given.
    sign = -1;
    start = Date2();
    end = Date1();
  }
  for (size_t unit = 0; unit < 6; ++unit) {
    double value = SplitDiff(unit, start, end);
    if (unit == 0) value *= sign;
    *units[unit] = value;
    end = SplitAdd(unit, -sign * value, end);
  }
  return end == start;
}

bool TimeInterval::PreciseSplit(const Units& units) const {
  double start = Date1();
  double end = Date2();
  // Sign is the direction a unit must not cross: -1 for a forward interval
  // (and for equal ends), whose units must not be negative.
  const double sign = start > end ? 1 : -1;
  size_t state = 0;
  size_t level = 0;  // the furthest state reached; units before it are kept
  while (state < 6) {
    if (level < state) level = state;
    if (state == 0) {
      if (level == 0) *units[0] = SplitDiff(0, start, end);
      state = 1;
      if (level < 1) end = SplitAdd(0, -*units[0], end);
      continue;
    }
    const size_t unit = state;
    if (level == unit) *units[unit] = SplitDiff(unit, start, end);
    if (sign * *units[unit] <= 0) {
      state = unit + 1;
      if (level < unit + 1) end = SplitAdd(unit, -*units[unit], end);
    } else {
      // Overshoot: borrow one of the previous unit, which is not counted
      // again because the level is already past it. Borrowing from a unit
      // that holds 0 keeps failing that unit's test, so the borrow walks
      // on into the years until the date functions leave the calendar (5).
      *units[unit - 1] += sign;
      end = SplitAdd(unit - 1, -sign, end);
      state = unit - 1;
    }
  }
  return end == start;
}

void TimeInterval::Clear() noexcept {
  date1_ = Value::Null();
  date2_ = Value::Null();
}

namespace {

using T = TimeInterval;

enTimeSpanDateInterval PeriodArg(Args& a, size_t i) {
  return static_cast<enTimeSpanDateInterval>(a.Long(i));
}

const TimeInterval& IntervalArg(const Value& v) {
  if (v.IsNothing()) RaiseStandard(errors::kObjectVariableNotSet);
  auto* interval = v.IsObject() ? dynamic_cast<const TimeInterval*>(v.object()) : nullptr;
  if (interval == nullptr) RaiseStandard(errors::kTypeMismatch);
  return *interval;
}

Value GetDifferenceByName(T& t, Args& a) {
  double units[6];
  for (size_t i = 0; i < 6; ++i) units[i] = a.Double(i);
  const bool precise = a.Has(6) ? a.Boolean(6) : true;
  // By reference: what the member leaves in its arguments reaches the
  // caller, also when it raises part way.
  auto write_back = [&] {
    for (size_t i = 0; i < 6; ++i) a[i] = Value(units[i]);
  };
  bool exact;
  try {
    exact = t.GetDifference(units[0], units[1], units[2], units[3], units[4], units[5], precise);
  } catch (...) {
    write_back();
    throw;
  }
  write_back();
  return Value(exact);
}

}  // namespace

const DispatchTable<TimeInterval>& TimeInterval::Dispatch() {
  static const DispatchTable<T> table =
      DispatchTable<T>::Builder(u"TimeInterval")
          .Get(u"Filled", [](T& t, Args&) { return Value(t.Filled()); })
          .Get(u"Date1Filled", [](T& t, Args&) { return Value(t.Date1Filled()); })
          .Get(u"Date2Filled", [](T& t, Args&) { return Value(t.Date2Filled()); })
          .Property(
              u"Date1", [](T& t, Args&) { return Value::Date(t.Date1()); },
              [](T& t, Args&, const Value& v) { t.SetDate1(v); })
          .Property(
              u"Date2", [](T& t, Args&) { return Value::Date(t.Date2()); },
              [](T& t, Args&, const Value& v) { t.SetDate2(v); })
          .Property(
              u"FirstDayOfWeek", [](T& t, Args&) { return Value(t.FirstDayOfWeek()); },
              [](T& t, Args&, const Value& v) { t.SetFirstDayOfWeek(runtime::ToLong(v)); })
          .Property(
              u"FirstWeekOfYear", [](T& t, Args&) { return Value(t.FirstWeekOfYear()); },
              [](T& t, Args&, const Value& v) { t.SetFirstWeekOfYear(runtime::ToLong(v)); })
          .Get(u"Normalized", [](T& t, Args&) { return Value(t.Normalized()); })
          .Method(u"Includes", 1, 1, [](T& t, Args& a) { return Value(t.Includes(a[0])); })
          .Method(u"Overlaps", 1, 1,
                  [](T& t, Args& a) { return Value(t.Overlaps(IntervalArg(a[0]))); })
          .Method(u"Normalize", 0, 0,
                  [](T& t, Args&) {
                    t.Normalize();
                    return Value();
                  })
          .Method(u"SwapDates", 0, 0,
                  [](T& t, Args&) {
                    t.SwapDates();
                    return Value();
                  })
          .Method(u"Clone", 0, 0, [](T& t, Args&) { return Value(t.Clone()); })
          .Method(u"GetIntervalNumber", 1, 1,
                  [](T& t, Args& a) { return Value(t.GetIntervalNumber(PeriodArg(a, 0))); })
          .Method(u"SetIntervalNumber", 2, 2,
                  [](T& t, Args& a) {
                    t.SetIntervalNumber(a.Long(0), PeriodArg(a, 1));
                    return Value();
                  })
          .Method(u"SetDifference", 6, 6,
                  [](T& t, Args& a) {
                    double units[6];
                    for (size_t i = 0; i < 6; ++i) units[i] = a.Double(i);
                    t.SetDifference(units[0], units[1], units[2], units[3], units[4], units[5]);
                    return Value();
                  })
          .Method(u"GetDifference", 6, 7, GetDifferenceByName)
          .Method(u"Clear", 0, 0,
                  [](T& t, Args&) {
                    t.Clear();
                    return Value();
                  })
          .Build();
  return table;
}

}  // namespace kestrel
