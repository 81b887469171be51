// The runtime's date functions over the C++20 calendar types.
//
// Every function first reads its serial as a moment: a whole day counted
// from 1899-12-30 and the second of that day, the time rounded to the
// nearest second (23:59:59.6 is already the next day, as the runtime reads
// it). Calendar arithmetic then happens on whole days and whole seconds, so
// "h", "n" and "s" land exactly on the second and nothing drifts through
// repeated 1/24 additions. A moment becomes a serial again only at the end,
// with the whole part counting back and the fraction forward before day 0.

#include "kestrel/runtime/dates.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"

namespace kestrel::runtime {
namespace {

namespace chr = std::chrono;

constexpr chr::sys_days kEpoch = chr::year{1899} / chr::December / 30;
constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kFirstDay = -657434;  // 100-01-01
constexpr int64_t kLastDay = 2958465;   // 9999-12-31
constexpr int64_t kDaysPer400Years = 146097;

[[noreturn]] void RaiseInvalidCall() {
  RaiseStandard(errors::kInvalidProcedureCall);
}

int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  if (a % b != 0 && (a < 0) != (b < 0)) --q;
  return q;
}

int64_t FloorMod(int64_t a, int64_t b) {
  return a - FloorDiv(a, b) * b;
}

struct Moment {
  int64_t day;     // days since 1899-12-30, negative before it
  int64_t second;  // of that day, 0..86399

  int64_t Linear() const { return day * kSecondsPerDay + second; }
  static Moment FromLinear(int64_t seconds) {
    return {FloorDiv(seconds, kSecondsPerDay), FloorMod(seconds, kSecondsPerDay)};
  }
};

bool InRange(int64_t day) {
  return day >= kFirstDay && day <= kLastDay;
}

// The moment a serial stands for, or nullopt when it lies outside the
// calendar (NaN included).
std::optional<Moment> ReadMoment(double serial) {
  // Far beyond the calendar: refuse before the casts below could overflow.
  if (!(std::fabs(serial) < 1e7)) return std::nullopt;
  const double whole = std::trunc(serial);
  Moment m{static_cast<int64_t>(whole),
           static_cast<int64_t>(std::llround(std::fabs(serial - whole) * kSecondsPerDay))};
  if (m.second == kSecondsPerDay) {  // rounds up into the next calendar day
    ++m.day;
    m.second = 0;
  }
  if (!InRange(m.day)) return std::nullopt;
  return m;
}

// Reads a serial the way the runtime converts a date argument: a value that
// is no date at all overflows (6), like any conversion to Date.
Moment ToMoment(double serial) {
  const std::optional<Moment> m = ReadMoment(serial);
  if (!m) RaiseStandard(errors::kOverflow);
  return *m;
}

// A computed date outside years 100..9999 is a bad argument to the function
// that computed it (5), not an overflow.
double ToSerial(Moment m) {
  if (!InRange(m.day)) RaiseInvalidCall();
  const double day = static_cast<double>(m.day);
  const double time = static_cast<double>(m.second) / kSecondsPerDay;
  return m.day < 0 ? day - time : day + time;
}

chr::year_month_day Civil(int64_t day) {
  return chr::year_month_day{kEpoch + chr::days{day}};
}

int64_t DayOf(chr::sys_days date) {
  return (date - kEpoch).count();
}

// The day of the first of a month in any year. The calendar types stop at
// year 32767, but DateSerial's parts may roll far out before coming back;
// every 400 years have the same number of days, so the year is brought into
// 2000..2399 by whole cycles.
int64_t FirstOfMonth(int64_t year, int64_t month) {
  const int64_t cycles = FloorDiv(year - 2000, 400);
  const chr::year_month_day first{chr::year{static_cast<int>(year - cycles * 400)},
                                  chr::month{static_cast<unsigned>(month)}, chr::day{1}};
  return DayOf(chr::sys_days{first}) + cycles * kDaysPer400Years;
}

int32_t YearOf(const chr::year_month_day& ymd) {
  return static_cast<int>(ymd.year());
}

int32_t MonthOf(const chr::year_month_day& ymd) {
  return static_cast<int32_t>(static_cast<unsigned>(ymd.month()));
}

// 0 Sunday .. 6 Saturday.
int64_t WeekdayIndex(int64_t day) {
  return chr::weekday{kEpoch + chr::days{day}}.c_encoding();
}

// The weekday index a week starts on. 0 is the fixed locale's, Sunday.
int64_t FirstDayIndex(int32_t first_day_of_week) {
  if (first_day_of_week < 0 || first_day_of_week > 7) RaiseInvalidCall();
  return first_day_of_week == 0 ? 0 : first_day_of_week - 1;
}

// 0 is the fixed locale's rule, the week of 1 January.
int32_t FirstWeekRule(int32_t first_week_of_year) {
  if (first_week_of_year < 0 || first_week_of_year > 3) RaiseInvalidCall();
  return first_week_of_year == 0 ? 1 : first_week_of_year;
}

int64_t WeekStart(int64_t day, int64_t first_day) {
  return day - FloorMod(WeekdayIndex(day) - first_day, 7);
}

// The first day of week 1 of `year`.
int64_t WeekOneStart(int64_t year, int64_t first_day, int32_t rule) {
  const int64_t jan1 = FirstOfMonth(year, 1);
  switch (rule) {
    case 2:
      return WeekStart(jan1 + 3, first_day);  // the week of 4 January has 4 days of it
    case 3:
      return WeekStart(jan1 + 6, first_day);  // the week of 7 January is the first full one
    default:
      return WeekStart(jan1, first_day);
  }
}

// Week of the year. Under the four-day and full-week rules the days before
// week 1 belong to the previous year's last week (52 or 53), and under the
// four-day rule the last days of December may already be week 1 of the next
// year. Under the 1 January rule a year simply runs on to week 53 or 54.
int32_t WeekOfYear(int64_t day, int64_t first_day, int32_t rule) {
  const int64_t year = YearOf(Civil(day));
  int64_t start = WeekOneStart(year, first_day, rule);
  if (day < start) {
    start = WeekOneStart(year - 1, first_day, rule);
  } else if (rule != 1) {
    const int64_t next = WeekOneStart(year + 1, first_day, rule);
    if (day >= next) start = next;
  }
  return static_cast<int32_t>((day - start) / 7 + 1);
}

enum class Interval {
  kYear,
  kQuarter,
  kMonth,
  kDayOfYear,
  kDay,
  kWeekday,
  kWeek,
  kHour,
  kMinute,
  kSecond
};

Interval ParseInterval(std::u16string_view code) {
  struct Entry {
    std::string_view name;
    Interval interval;
  };
  static constexpr std::array<Entry, 10> kIntervals{{{"yyyy", Interval::kYear},
                                                     {"q", Interval::kQuarter},
                                                     {"m", Interval::kMonth},
                                                     {"y", Interval::kDayOfYear},
                                                     {"d", Interval::kDay},
                                                     {"w", Interval::kWeekday},
                                                     {"ww", Interval::kWeek},
                                                     {"h", Interval::kHour},
                                                     {"n", Interval::kMinute},
                                                     {"s", Interval::kSecond}}};
  char lower[4];
  if (code.empty() || code.size() > sizeof(lower)) RaiseInvalidCall();
  for (size_t i = 0; i < code.size(); ++i) {
    const char16_t c = code[i];
    if (c >= 0x80) RaiseInvalidCall();
    lower[i] = static_cast<char>(c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c);
  }
  const std::string_view name(lower, code.size());
  for (const Entry& e : kIntervals) {
    if (e.name == name) return e.interval;
  }
  RaiseInvalidCall();
}

// Adds months keeping the day of month, clamped to the target month's last
// day: 31 January plus one month is the end of February, never March.
Moment AddMonths(Moment m, int64_t months) {
  const chr::year_month_day ymd = Civil(m.day);
  const int64_t total = int64_t{YearOf(ymd)} * 12 + (MonthOf(ymd) - 1) + months;
  const int64_t year = FloorDiv(total, 12);
  if (year < 100 || year > 9999) RaiseInvalidCall();
  const chr::year_month_day_last last{
      chr::year{static_cast<int>(year)},
      chr::month_day_last{chr::month{static_cast<unsigned>(FloorMod(total, 12) + 1)}}};
  const chr::year_month_day target{last.year(), last.month(), std::min(ymd.day(), last.day())};
  m.day = DayOf(chr::sys_days{target});
  return m;
}

double SystemLocalNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  // localtime_r fails only for times the tm fields cannot hold; fall back to
  // UTC then rather than inventing a date.
  if (localtime_r(&now, &local) == nullptr) gmtime_r(&now, &local);
  const int64_t day =
      FirstOfMonth(int64_t{local.tm_year} + 1900, local.tm_mon + 1) + local.tm_mday - 1;
  // A leap second reads as the last ordinary second of its minute.
  const int64_t second =
      int64_t{local.tm_hour} * 3600 + local.tm_min * 60 + std::min(local.tm_sec, 59);
  return ToSerial({day, second});
}

constinit std::atomic<ClockSource> g_clock{&SystemLocalNow};

// A date argument given as a Value, read as CDate reads it; nullopt for Null.
std::optional<double> DateArgument(const Value& date) {
  if (date.IsNull()) return std::nullopt;
  return ToDate(date);
}

// An Integer Value of one part of a date argument (Null for Null).
Value PartValue(std::u16string_view interval, const Value& date) {
  const std::optional<double> serial = DateArgument(date);
  if (!serial) return Value::Null();
  return Value(static_cast<int16_t>(DatePart(interval, *serial)));
}

// The moment of DateValue's and TimeValue's argument: a Date as it stands,
// anything else through its text, which must be a date. nullopt for Null.
std::optional<Moment> DateTextMoment(const Value& value) {
  if (value.IsNull()) return std::nullopt;
  if (value.code() == static_cast<uint16_t>(Kind::kDate)) return ToMoment(value.date());
  std::u16string converted;
  const std::u16string_view text = value.IsString() ? value.string() : (converted = ToText(value));
  const std::optional<double> serial = ParseDate(text);
  if (!serial) RaiseStandard(errors::kTypeMismatch);
  return ToMoment(*serial);
}

}  // namespace

double DateSerial(int32_t year, int32_t month, int32_t day) {
  int64_t y = year;
  if (y >= 0 && y <= 29) {
    y += 2000;
  } else if (y >= 30 && y <= 99) {
    y += 1900;
  }
  // Months roll into years first, then days run on from the first of the
  // month: day 0 is the last day of the previous month.
  const int64_t months = y * 12 + (int64_t{month} - 1);
  const int64_t first = FirstOfMonth(FloorDiv(months, 12), FloorMod(months, 12) + 1);
  return ToSerial({first + (int64_t{day} - 1), 0});
}

double TimeSerial(int32_t hour, int32_t minute, int32_t second) {
  // The runtime builds the time as a plain fraction of a day: a negative
  // total is a negative fraction, which moves a date back when added to it
  // (date + TimeSerial(-1, 0, 0) is an hour earlier), and a total beyond a
  // day carries into whole days.
  const int64_t total = int64_t{hour} * 3600 + int64_t{minute} * 60 + second;
  const double serial = static_cast<double>(total) / kSecondsPerDay;
  if (!ReadMoment(serial)) RaiseInvalidCall();
  return serial;
}

double DateAdd(std::u16string_view interval, double number, double date) {
  const Interval unit = ParseInterval(interval);
  // The count is rounded like any number passed where a whole one is
  // expected: to nearest, ties to even (1.5 and 2.5 both add 2).
  const double rounded = RoundHalfEven(number);
  // No count this large keeps any date inside the calendar.
  if (!(std::fabs(rounded) < 1e12)) RaiseInvalidCall();
  const auto n = static_cast<int64_t>(rounded);
  Moment m = ToMoment(date);
  switch (unit) {
    case Interval::kYear:
      m = AddMonths(m, n * 12);
      break;
    case Interval::kQuarter:
      m = AddMonths(m, n * 3);
      break;
    case Interval::kMonth:
      m = AddMonths(m, n);
      break;
    // "w" adds days like "d": it is not a count of working days.
    case Interval::kDayOfYear:
    case Interval::kDay:
    case Interval::kWeekday:
      m.day += n;
      break;
    case Interval::kWeek:
      m.day += n * 7;
      break;
    case Interval::kHour:
      m = Moment::FromLinear(m.Linear() + n * 3600);
      break;
    case Interval::kMinute:
      m = Moment::FromLinear(m.Linear() + n * 60);
      break;
    case Interval::kSecond:
      m = Moment::FromLinear(m.Linear() + n);
      break;
  }
  return ToSerial(m);
}

int64_t DateDiff(std::u16string_view interval, double date1, double date2,
                 int32_t first_day_of_week, int32_t first_week_of_year) {
  const Interval unit = ParseInterval(interval);
  const int64_t first_day = FirstDayIndex(first_day_of_week);
  FirstWeekRule(first_week_of_year);  // checked although no count depends on it
  const Moment a = ToMoment(date1);
  const Moment b = ToMoment(date2);
  const chr::year_month_day ya = Civil(a.day);
  const chr::year_month_day yb = Civil(b.day);
  switch (unit) {
    // Years, quarters and months count the boundaries crossed: 31 December
    // to 1 January is a year, though only a day passed.
    case Interval::kYear:
      return YearOf(yb) - YearOf(ya);
    case Interval::kQuarter:
      return (int64_t{YearOf(yb)} * 4 + (MonthOf(yb) - 1) / 3) -
             (int64_t{YearOf(ya)} * 4 + (MonthOf(ya) - 1) / 3);
    case Interval::kMonth:
      return (int64_t{YearOf(yb)} * 12 + MonthOf(yb)) - (int64_t{YearOf(ya)} * 12 + MonthOf(ya));
    // Days are midnights crossed; the time of day plays no part.
    case Interval::kDayOfYear:
    case Interval::kDay:
      return b.day - a.day;
    // Whole weeks: how often date1's weekday comes round in (date1, date2].
    case Interval::kWeekday:
      return (b.day - a.day) / 7;
    // Week starts in (date1, date2].
    case Interval::kWeek:
      return (WeekStart(b.day, first_day) - WeekStart(a.day, first_day)) / 7;
    case Interval::kHour:
      return FloorDiv(b.Linear(), 3600) - FloorDiv(a.Linear(), 3600);
    case Interval::kMinute:
      return FloorDiv(b.Linear(), 60) - FloorDiv(a.Linear(), 60);
    case Interval::kSecond:
      return b.Linear() - a.Linear();
  }
  RaiseInvalidCall();
}

int32_t DatePart(std::u16string_view interval, double date, int32_t first_day_of_week,
                 int32_t first_week_of_year) {
  const Interval unit = ParseInterval(interval);
  const int64_t first_day = FirstDayIndex(first_day_of_week);
  const int32_t rule = FirstWeekRule(first_week_of_year);
  const Moment m = ToMoment(date);
  const chr::year_month_day ymd = Civil(m.day);
  switch (unit) {
    case Interval::kYear:
      return YearOf(ymd);
    case Interval::kQuarter:
      return (MonthOf(ymd) - 1) / 3 + 1;
    case Interval::kMonth:
      return MonthOf(ymd);
    case Interval::kDayOfYear:
      return static_cast<int32_t>(m.day - FirstOfMonth(YearOf(ymd), 1) + 1);
    case Interval::kDay:
      return static_cast<int32_t>(static_cast<unsigned>(ymd.day()));
    case Interval::kWeekday:
      return static_cast<int32_t>(FloorMod(WeekdayIndex(m.day) - first_day, 7) + 1);
    case Interval::kWeek:
      return WeekOfYear(m.day, first_day, rule);
    case Interval::kHour:
      return static_cast<int32_t>(m.second / 3600);
    case Interval::kMinute:
      return static_cast<int32_t>(m.second / 60 % 60);
    case Interval::kSecond:
      return static_cast<int32_t>(m.second % 60);
  }
  RaiseInvalidCall();
}

int32_t Weekday(double date, int32_t first_day_of_week) {
  return DatePart(u"w", date, first_day_of_week, 1);
}

int32_t Year(double date) {
  return DatePart(u"yyyy", date);
}

int32_t Month(double date) {
  return DatePart(u"m", date);
}

int32_t Day(double date) {
  return DatePart(u"d", date);
}

int32_t Hour(double date) {
  return DatePart(u"h", date);
}

int32_t Minute(double date) {
  return DatePart(u"n", date);
}

int32_t Second(double date) {
  return DatePart(u"s", date);
}

double Now() {
  return g_clock.load(std::memory_order_acquire)();
}

ClockSource SetClockSource(ClockSource source) noexcept {
  return g_clock.exchange(source != nullptr ? source : &SystemLocalNow, std::memory_order_acq_rel);
}

// --- Value forms ---------------------------------------------------------------

Value DateDiff(std::u16string_view interval, const Value& date1, const Value& date2,
               int32_t first_day_of_week, int32_t first_week_of_year) {
  ParseInterval(interval);
  FirstDayIndex(first_day_of_week);
  FirstWeekRule(first_week_of_year);
  const std::optional<double> a = DateArgument(date1);
  const std::optional<double> b = DateArgument(date2);
  if (!a || !b) return Value::Null();
  const int64_t count = DateDiff(interval, *a, *b, first_day_of_week, first_week_of_year);
  if (count < INT32_MIN || count > INT32_MAX) RaiseStandard(errors::kOverflow);
  return Value(static_cast<int32_t>(count));
}

Value DatePart(std::u16string_view interval, const Value& date, int32_t first_day_of_week,
               int32_t first_week_of_year) {
  ParseInterval(interval);
  FirstDayIndex(first_day_of_week);
  FirstWeekRule(first_week_of_year);
  const std::optional<double> serial = DateArgument(date);
  if (!serial) return Value::Null();
  return Value(
      static_cast<int16_t>(DatePart(interval, *serial, first_day_of_week, first_week_of_year)));
}

Value Weekday(const Value& date, int32_t first_day_of_week) {
  return DatePart(u"w", date, first_day_of_week, 1);
}

Value Year(const Value& date) {
  return PartValue(u"yyyy", date);
}

Value Month(const Value& date) {
  return PartValue(u"m", date);
}

Value Day(const Value& date) {
  return PartValue(u"d", date);
}

Value Hour(const Value& date) {
  return PartValue(u"h", date);
}

Value Minute(const Value& date) {
  return PartValue(u"n", date);
}

Value Second(const Value& date) {
  return PartValue(u"s", date);
}

Value DateValue(const Value& date) {
  const std::optional<Moment> m = DateTextMoment(date);
  if (!m) return Value::Null();
  return Value::Date(ToSerial({m->day, 0}));
}

Value TimeValue(const Value& time) {
  const std::optional<Moment> m = DateTextMoment(time);
  if (!m) return Value::Null();
  return Value::Date(ToSerial({0, m->second}));
}

Value CVDate(const Value& value) {
  if (value.IsNull()) return Value::Null();
  return Value::Date(ToDate(value));
}

}  // namespace kestrel::runtime
