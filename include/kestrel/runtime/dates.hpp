// The runtime's date functions: serials, calendar arithmetic by interval
// code, parts of a date, the clock and date text. Formatting dates is
// Format's work (format.hpp).
//
// A date is a Double serial: whole days since 1899-12-30, the fraction the
// time of day. Before day 0 the whole part counts back and the fraction still
// counts forward from midnight (-1.25 is 1899-12-29 06:00). Valid dates run
// from 1 January 100 to 31 December 9999; results outside raise 5 (DateAdd,
// DateSerial) or 6 (conversions), as the runtime does.
//
// Interval codes: "yyyy" year, "q" quarter, "m" month, "y" day of year, "d"
// day, "w" weekday, "ww" week, "h" hour, "n" minute, "s" second (any case);
// anything else raises 5. First day of week: 0 the fixed locale's (Sunday),
// 1 Sunday .. 7 Saturday. First week of year: 0 the fixed locale's (the week
// of 1 January), 1 the week of 1 January, 2 the first week with four days
// of the new year, 3 the first full week. Other codes raise 5.
//
// The locale is fixed: month/day/year order, "/" and ":" separators, 12-hour
// clock with AM/PM in the default text form.
//
//   using namespace kestrel::runtime;
//   DateAdd(u"m", 1, DateSerial(2011, 1, 31))      // 2011-02-28
//   DateDiff(u"yyyy", DateSerial(2023, 12, 31), DateSerial(2024, 1, 1))  // 1
//   Year(Value(u"2024-03-15"))                     // Integer 2024
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::runtime {

inline constexpr double kMinDateSerial = -657434.0;         // 100-01-01
inline constexpr double kMaxDateSerial = 2958465.999988426;  // 9999-12-31 23:59:59

// --- building dates --------------------------------------------------------
// Out-of-range parts roll over into the next unit, negatives included
// (month 13 is January of the next year, day 0 the last day of the previous
// month). Years 0..29 mean 2000..2029 and 30..99 mean 1930..1999, as the
// runtime reads two-digit years. A result outside the valid range raises 5.
KESTREL_API double DateSerial(int32_t year, int32_t month, int32_t day);
// A time of day (a fraction; negative or beyond a day when the parts say so).
KESTREL_API double TimeSerial(int32_t hour, int32_t minute, int32_t second);

// --- calendar arithmetic -----------------------------------------------------
// `number` units added to `date`; a fractional number is rounded to a whole
// one. "m", "q" and "yyyy" keep the day of month, clamped to the month's last
// day; "y", "d" and "w" add days, "ww" weeks; "h", "n", "s" land exactly on
// the second.
KESTREL_API double DateAdd(std::u16string_view interval, double number, double date);
// Unit boundaries crossed from date1 to date2 (negative when date1 is later).
KESTREL_API int64_t DateDiff(std::u16string_view interval, double date1, double date2,
                             int32_t first_day_of_week = 1, int32_t first_week_of_year = 1);
// One part of a date: year, quarter 1..4, month, day of year, day, weekday
// 1..7 counted from first_day_of_week, week of the year, hour, minute, second.
KESTREL_API int32_t DatePart(std::u16string_view interval, double date,
                             int32_t first_day_of_week = 1, int32_t first_week_of_year = 1);

KESTREL_API int32_t Weekday(double date, int32_t first_day_of_week = 1);
KESTREL_API int32_t Year(double date);
KESTREL_API int32_t Month(double date);
KESTREL_API int32_t Day(double date);
KESTREL_API int32_t Hour(double date);
KESTREL_API int32_t Minute(double date);
KESTREL_API int32_t Second(double date);

// Value forms of the functions above, with the runtime's result kinds. Each
// date argument is read as CDate reads it (a Date, a number as a serial,
// date text; 13 for other text and for objects), and Null gives Null. The
// interval and week settings are checked first, so a bad one raises 5 even
// next to a Null date. DatePart, Weekday and Year .. Second give Integer
// Values; DateDiff gives a Long Value and raises 6 beyond the Long range.
KESTREL_API Value DateDiff(std::u16string_view interval, const Value& date1, const Value& date2,
                           int32_t first_day_of_week = 1, int32_t first_week_of_year = 1);
KESTREL_API Value DatePart(std::u16string_view interval, const Value& date,
                           int32_t first_day_of_week = 1, int32_t first_week_of_year = 1);
KESTREL_API Value Weekday(const Value& date, int32_t first_day_of_week = 1);
KESTREL_API Value Year(const Value& date);
KESTREL_API Value Month(const Value& date);
KESTREL_API Value Day(const Value& date);
KESTREL_API Value Hour(const Value& date);
KESTREL_API Value Minute(const Value& date);
KESTREL_API Value Second(const Value& date);

// DateValue and TimeValue: the date part (at midnight) and the time part (on
// day 0) of a Date or of date text, as Date values, the moment read to the
// nearest second as the parts above read it. Other values go through their
// text form, which must be date text (13 otherwise: DateValue(45000) is
// not a date); Null gives Null.
KESTREL_API Value DateValue(const Value& date);
KESTREL_API Value TimeValue(const Value& time);
// CVDate: CDate as a Date value, and Null for Null.
KESTREL_API Value CVDate(const Value& value);

// --- the clock -----------------------------------------------------------------
// The local date and time as a serial, to the second. The source is a seam:
// tests (and the tracer's tests) install a fixed clock.
using ClockSource = double (*)();
KESTREL_API double Now();
// Installs a clock (nullptr restores the system's local time) and returns
// the previous one. Affects every thread.
KESTREL_API ClockSource SetClockSource(ClockSource source) noexcept;

// --- text ------------------------------------------------------------------------
// Date text as the conversions read it: ISO "yyyy-mm-dd", slash or dash dates
// in month/day/year order (day/month/year when the first field cannot be a
// month), month names ("March 5, 2024", "5 Mar 2024"), a time with optional
// seconds and AM/PM, or a date and a time. nullopt when the text is not a date.
KESTREL_API std::optional<double> ParseDate(std::u16string_view text);
// CDate: numbers are serials (6 outside the range), text goes through
// ParseDate (13 when it is not a date), Null raises 94.
KESTREL_API double ToDate(const Value& value);
// IsDate: a Date value, or text that ParseDate accepts.
KESTREL_API bool IsDate(const Value& value);

}  // namespace kestrel::runtime
