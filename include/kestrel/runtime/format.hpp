// The runtime's Format language and its companion functions: FormatNumber,
// FormatPercent, FormatCurrency, FormatDateTime, MonthName and WeekdayName.
//
// Everything is stateless and thread-safe, and works in the library's fixed
// locale: "." decimal point, "," digit grouping, "$" currency, "/" and ":"
// separators, month/day/year order, a 12-hour clock with "AM" and "PM".
// Failures raise the runtime's errors: 5 for a bad argument, 6 for a date or
// number outside its range, 13 for a value that cannot be formatted (arrays,
// objects, text that is not a number where one is required).
//
//   using namespace kestrel::runtime;
//   Format(Value(1234.5), u"#,##0.00")           // u"1,234.50"
//   Format(Value::Date(45356.6), u"dddd d mmm")   // u"Tuesday 5 Mar"
//   FormatCurrency(Value(-1.0))                   // u"($1.00)"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::runtime {

// Format(value, pattern, first_day_of_week, first_week_of_year).
//
// No pattern gives the value's text (ToText); Null gives "" whatever the
// pattern, except a numeric pattern's fourth section or a text pattern's
// second. Empty formats as 0 with numeric and date patterns and as "" with
// text patterns.
//
// Named formats, matched without regard to case: "General Number",
// "Currency", "Fixed", "Standard", "Percent", "Scientific", "Yes/No",
// "True/False", "On/Off", "General Date", "Long Date", "Medium Date",
// "Short Date", "Long Time", "Medium Time", "Short Time".
//
// Otherwise the first section of the pattern (up to the first ";" outside
// quotes) decides its kind: "@" or "&" make a text pattern, a date or time
// token a date pattern, and "<", ">" or "!" without digit placeholders a text
// pattern again; anything else is a numeric pattern. In every kind, "\"
// shows the next character and "..." the quoted text; characters that are
// not tokens of the kind show as they are, so Format(5, "Foo") is "Foo" (a
// numeric pattern without placeholders shows no digits), while letters that
// are tokens stay tokens (Format(5, "Nil") reads "N" as minutes).
//
// Numeric patterns: up to four sections, positive;negative;zero;Null. The
// value itself picks the section, not what a section shows of it: zero uses
// the zero section, or the first; a negative value uses the negative section
// with its magnitude (that section's own literals give the sign), or the
// first section with a leading "-", so -0.001 under "0.00" shows "-0.00".
// An empty section means the first.
// Tokens: "0" a digit or 0, "#" a digit or nothing, the first "." the decimal
// point, "," grouping between digit placeholders and, right after the last
// integer placeholder, a division by 1000 each, "%" times 100, and "E+",
// "E-", "e+", "e-" (or "E"/"e" right before a placeholder, as "E-") followed
// by the exponent's placeholders, each of which shows a digit. Several
// integer placeholders before an exponent make its value a multiple of
// their count ("##0.0E+0"). Rounding is half away from zero, read through
// the value's 15 significant digits (7 for Single; integers are exact).
//
// Date patterns: c, d, dd, ddd, dddd, ddddd (m/d/yyyy), dddddd (dddd, mmmm
// dd, yyyy), aaaa (as dddd), w, ww, m, mm, mmm, mmmm, oooo (as mmmm), q, y,
// yy, yyyy, h, hh, n, nn, s, ss, ttttt (h:nn:ss AM/PM), AM/PM and A/P (in the
// pattern's case), AMPM; any case. "m" and "mm" after an hour token, with
// only literal text between, are minutes. Any AM/PM token turns every hour
// to the 12-hour clock. Text that is a date formats as that date, numeric
// text as a serial; other text comes back unchanged, as it does for numeric
// patterns.
//
// Text patterns: "@" a character or a space, "&" a character or nothing,
// filled from the right (extra characters go before the first placeholder)
// or from the left with "!" (extra characters after the last); "<" lower and
// ">" upper case; a second section for Null and "".
//
// first_day_of_week (0..7, 0 and 1 Sunday) and first_week_of_year (0..3)
// drive "w" and "ww" as in DatePart; other codes raise 5.
KESTREL_API std::u16string Format(const Value& value, std::u16string_view pattern = {},
                                  int32_t first_day_of_week = 1, int32_t first_week_of_year = 1);

// The runtime's tristate arguments.
enum class Tristate : int32_t { kUseDefault = -2, kTrue = -1, kFalse = 0 };

// FormatNumber: `num_digits_after_decimal` places (-1 the locale's 2; below
// -1 or above 255 raises 5), a 0 before the point of a fraction, a minus sign
// (or parentheses), digit grouping: "1,234.57", "-0.50". Defaults come from
// the locale: leading digit, no parentheses, grouping. A value that rounds
// to zero shows no sign. Null and text that is not a number raise 13; other
// values convert as ToDouble does; a Tristate outside the three codes
// raises 5.
KESTREL_API std::u16string FormatNumber(const Value& expression,
                                        int32_t num_digits_after_decimal = -1,
                                        Tristate include_leading_digit = Tristate::kUseDefault,
                                        Tristate use_parens_for_negative = Tristate::kUseDefault,
                                        Tristate group_digits = Tristate::kUseDefault);
// FormatPercent: as FormatNumber of 100 times the value, with "%" after any
// parentheses: "45.67%", "(50.00)%".
KESTREL_API std::u16string FormatPercent(const Value& expression,
                                         int32_t num_digits_after_decimal = -1,
                                         Tristate include_leading_digit = Tristate::kUseDefault,
                                         Tristate use_parens_for_negative = Tristate::kUseDefault,
                                         Tristate group_digits = Tristate::kUseDefault);
// FormatCurrency: as FormatNumber with "$" before the digits, and the
// locale's parentheses for negatives by default: "$1,234.57", "($1.00)",
// "-$1.00" without parentheses.
KESTREL_API std::u16string FormatCurrency(const Value& expression,
                                          int32_t num_digits_after_decimal = -1,
                                          Tristate include_leading_digit = Tristate::kUseDefault,
                                          Tristate use_parens_for_negative = Tristate::kUseDefault,
                                          Tristate group_digits = Tristate::kUseDefault);

// FormatDateTime: 0 general date (as ToText), 1 long date, 2 short date,
// 3 long time, 4 short time (24-hour "hh:nn"); other codes raise 5. The
// value converts as ToDate does (text must be a date, 6 out of range), and
// Null raises 13.
KESTREL_API std::u16string FormatDateTime(const Value& date, int32_t named_format = 0);

// "January".."December" (abbreviated "Jan"); a month outside 1..12 raises 5.
KESTREL_API std::u16string MonthName(int32_t month, bool abbreviate = false);
// The name of day `weekday` (1..7) of a week starting on first_day_of_week
// (1 Sunday .. 7 Saturday, 0 the locale's Sunday); out of range raises 5.
KESTREL_API std::u16string WeekdayName(int32_t weekday, bool abbreviate = false,
                                       int32_t first_day_of_week = 1);

}  // namespace kestrel::runtime
