// Date patterns: the date and time tokens, read without regard to case.
//
// A token is a run of one letter, cut to the longest form the letter has
// ("ddddddd" is dddddd then d; "yyy" is yy then y). Letters that start no
// token, and runs of "t" shorter than five, show as they are. The parts of
// the date come from DatePart, so a serial outside the calendar raises 6
// exactly as the date functions do.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "detail/format.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"

namespace kestrel::runtime::detail {
namespace {

enum class Tok : uint8_t {
  kLiteral,
  kGeneral,     // c
  kDay,         // d .. dddddd
  kWeekday,     // w, ww
  kMonth,       // m .. mmmm (minutes after an hour)
  kQuarter,     // q
  kYear,        // y, yy, yyyy
  kHour,        // h, hh
  kMinute,      // n, nn
  kSecond,      // s, ss
  kLongTime,    // ttttt
  kAmPm,        // AM/PM in the pattern's case
  kAP,          // A/P in the pattern's case
  kLocaleAmPm,  // AMPM
  kDayName,     // aaaa
  kMonthName,   // oooo
};

struct Token {
  Tok kind;
  size_t length;  // pattern units the token spans (for letter runs, the run)
};

size_t RunOf(std::u16string_view pattern, size_t i, size_t cap) {
  const char16_t c = AsciiLower(pattern[i]);
  size_t n = 1;
  while (n < cap && i + n < pattern.size() && AsciiLower(pattern[i + n]) == c) ++n;
  return n;
}

// The token at `i`; a literal's text is appended to `out` when given.
Token NextToken(std::u16string_view pattern, size_t i, std::u16string* out) {
  if (const size_t n = LiteralAt(pattern, i, out)) return {Tok::kLiteral, n};
  const std::u16string_view rest = pattern.substr(i);
  switch (AsciiLower(pattern[i])) {
    case u'c':
      return {Tok::kGeneral, 1};
    case u'd':
      return {Tok::kDay, RunOf(pattern, i, 6)};
    case u'w':
      return {Tok::kWeekday, RunOf(pattern, i, 2)};
    case u'm':
      return {Tok::kMonth, RunOf(pattern, i, 4)};
    case u'q':
      return {Tok::kQuarter, 1};
    case u'y': {
      const size_t run = RunOf(pattern, i, 4);
      return {Tok::kYear, run == 3 ? 2 : run};
    }
    case u'h':
      return {Tok::kHour, RunOf(pattern, i, 2)};
    case u'n':
      return {Tok::kMinute, RunOf(pattern, i, 2)};
    case u's':
      return {Tok::kSecond, RunOf(pattern, i, 2)};
    case u't':
      if (RunOf(pattern, i, 5) == 5) return {Tok::kLongTime, 5};
      break;
    case u'a':
      if (StartsWithWord(rest, u"am/pm")) return {Tok::kAmPm, 5};
      if (StartsWithWord(rest, u"ampm")) return {Tok::kLocaleAmPm, 4};
      if (StartsWithWord(rest, u"a/p")) return {Tok::kAP, 3};
      if (RunOf(pattern, i, 4) == 4) return {Tok::kDayName, 4};
      break;
    case u'o':
      if (RunOf(pattern, i, 4) == 4) return {Tok::kMonthName, 4};
      break;
    default:
      break;
  }
  if (out != nullptr) *out += pattern[i];
  return {Tok::kLiteral, 1};
}

// The parts of one moment, each read once.
struct Parts {
  double serial;
  int32_t year, month, day, hour, minute, second;
  int32_t day_of_week;  // 1 Sunday .. 7 Saturday, for names
  int32_t weekday;      // 1..7 counted from the first day of the week
  int32_t week, day_of_year;
};

Parts ReadParts(double serial, int32_t first_day_of_week, int32_t first_week_of_year) {
  Parts p;
  p.serial = serial;
  p.year = DatePart(u"yyyy", serial);  // raises 6 for a serial outside the calendar
  p.month = DatePart(u"m", serial);
  p.day = DatePart(u"d", serial);
  p.hour = DatePart(u"h", serial);
  p.minute = DatePart(u"n", serial);
  p.second = DatePart(u"s", serial);
  p.day_of_week = DatePart(u"w", serial, 1);
  p.weekday = DatePart(u"w", serial, first_day_of_week, first_week_of_year);
  p.week = DatePart(u"ww", serial, first_day_of_week, first_week_of_year);
  p.day_of_year = DatePart(u"y", serial);
  return p;
}

void AppendNumber(std::u16string& out, int32_t value, size_t min_width) {
  char buffer[16];
  const auto r = std::to_chars(buffer, buffer + sizeof(buffer), value);
  for (auto width = static_cast<size_t>(r.ptr - buffer); width < min_width; ++width) out += u'0';
  for (const char* q = buffer; q < r.ptr; ++q) out += static_cast<char16_t>(*q);
}

void AppendName(std::u16string& out, std::u16string_view name, bool abbreviated) {
  out.append(abbreviated ? name.substr(0, 3) : name);
}

void Render(const Parts& p, std::u16string_view pattern, std::u16string& out) {
  // Any AM/PM token puts every hour of the pattern on the 12-hour clock.
  bool twelve_hour = false;
  for (size_t i = 0; i < pattern.size() && !twelve_hour;) {
    const Token t = NextToken(pattern, i, nullptr);
    twelve_hour = t.kind == Tok::kAmPm || t.kind == Tok::kAP || t.kind == Tok::kLocaleAmPm;
    i += t.length;
  }
  const bool morning = p.hour < 12;
  bool after_hour = false;  // "m" and "mm" then mean minutes
  for (size_t i = 0; i < pattern.size();) {
    const Token t = NextToken(pattern, i, &out);
    const size_t run = t.length;
    switch (t.kind) {
      case Tok::kLiteral:
        i += run;
        continue;  // literals between an hour and "mm" keep it minutes
      case Tok::kGeneral:
        out += DateToText(p.serial);
        break;
      case Tok::kDay:
        if (run <= 2) {
          AppendNumber(out, p.day, run);
        } else if (run <= 4) {
          AppendName(out, kWeekdayNames[static_cast<size_t>(p.day_of_week - 1)], run == 3);
        } else {
          Render(p, run == 5 ? u"m/d/yyyy" : u"dddd, mmmm dd, yyyy", out);
        }
        break;
      case Tok::kWeekday:
        AppendNumber(out, run == 1 ? p.weekday : p.week, 1);
        break;
      case Tok::kMonth:
        if (run <= 2 && after_hour) {
          AppendNumber(out, p.minute, run);
        } else if (run <= 2) {
          AppendNumber(out, p.month, run);
        } else {
          AppendName(out, kMonthNames[static_cast<size_t>(p.month - 1)], run == 3);
        }
        break;
      case Tok::kQuarter:
        AppendNumber(out, (p.month - 1) / 3 + 1, 1);
        break;
      case Tok::kYear:
        if (run == 1) {
          AppendNumber(out, p.day_of_year, 1);
        } else {
          AppendNumber(out, run == 2 ? p.year % 100 : p.year, run);
        }
        break;
      case Tok::kHour: {
        int32_t hour = p.hour;
        if (twelve_hour) hour = hour % 12 == 0 ? 12 : hour % 12;
        AppendNumber(out, hour, run);
        break;
      }
      case Tok::kMinute:
        AppendNumber(out, p.minute, run);
        break;
      case Tok::kSecond:
        AppendNumber(out, p.second, run);
        break;
      case Tok::kLongTime:
        Render(p, u"h:nn:ss AM/PM", out);
        break;
      case Tok::kAmPm:
        out.append(pattern.substr(i + (morning ? 0 : 3), 2));
        break;
      case Tok::kAP:
        out += pattern[i + (morning ? 0 : 2)];
        break;
      case Tok::kLocaleAmPm:
        out += morning ? u"AM" : u"PM";
        break;
      case Tok::kDayName:
        AppendName(out, kWeekdayNames[static_cast<size_t>(p.day_of_week - 1)], false);
        break;
      case Tok::kMonthName:
        AppendName(out, kMonthNames[static_cast<size_t>(p.month - 1)], false);
        break;
    }
    after_hour = t.kind == Tok::kHour;
    i += run;
  }
}

}  // namespace

bool HasDateTokens(std::u16string_view pattern) {
  for (size_t i = 0; i < pattern.size();) {
    const Token t = NextToken(pattern, i, nullptr);
    if (t.kind != Tok::kLiteral) return true;
    i += t.length;
  }
  return false;
}

std::u16string FormatDatePattern(double serial, std::u16string_view pattern,
                                 int32_t first_day_of_week, int32_t first_week_of_year) {
  const Parts parts = ReadParts(serial, first_day_of_week, first_week_of_year);
  std::u16string out;
  Render(parts, pattern, out);
  return out;
}

}  // namespace kestrel::runtime::detail
