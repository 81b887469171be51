// Date text: reading dates as the conversions do (ParseDate, ToDate, IsDate)
// and Format.
//
// The reader is strict where the fixed locale leaves no doubt and lenient
// only in the ways clients' data commonly needs:
//   - "yyyy-mm-dd" or "yyyy/mm/dd" (a first field of three or more digits is
//     a year), optionally followed by a time after "T" or blanks;
//   - "m/d/y" or "m-d-y" (one separator used twice), read "d/m/y" when the
//     first field cannot be a month (13/1/2024 is 13 January 2024); "m/d"
//     alone takes the current year from Now(), so its result depends on the
//     installed clock;
//   - month names, in full or their first three letters, any case: "March 5,
//     2024", "Mar 5 2024", "5-Mar-2024", "5 March", "2024-Mar-05";
//   - a time "h:nn", "h:nn:ss" or "h" with AM/PM (12 AM is midnight, 12 PM
//     noon; with AM/PM the hour must be 1..12), alone (a serial on day 0) or
//     after a date and a blank.
// Years below 100 are two-digit years (0..29 the 2000s, 30..99 the 1900s).
// Impossible dates and times (2/30/2024, 25:00) are not dates, nor is text
// that only holds a number: CDate("45000") is a type mismatch, as it is for
// the runtime, and a number-valued string needs an explicit CDbl first.
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"

namespace kestrel::runtime {
namespace {

namespace chr = std::chrono;

constexpr chr::sys_days kEpoch = chr::year{1899} / chr::December / 30;

// Exclusive bounds of a Date serial: the day before 1 January 100 and the day
// after 31 December 9999 (any time of day on the last day is still a date).
constexpr double kSerialBelow = -657435.0;
constexpr double kSerialAbove = 2958466.0;

bool InDateRange(double serial) {
  return serial > kSerialBelow && serial < kSerialAbove;
}

bool IsBlank(char16_t c) {
  return c == u' ' || c == u'\t' || (c >= 0x0A && c <= 0x0D);
}
bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
bool IsLetter(char16_t c) {
  return (c | 0x20) >= u'a' && (c | 0x20) <= u'z';
}
char16_t Lower(char16_t c) {
  return IsLetter(c) ? static_cast<char16_t>(c | 0x20) : c;
}

// ASCII case-insensitive equality with a lower-case word.
bool EqualsWord(std::u16string_view text, std::string_view lower_word) {
  if (text.size() != lower_word.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (Lower(text[i]) != static_cast<char16_t>(lower_word[i])) return false;
  }
  return true;
}

constexpr std::array<std::string_view, 12> kMonthNames = {
    "january", "february", "march",     "april",   "may",      "june",
    "july",    "august",   "september", "october", "november", "december"};
constexpr std::array<std::string_view, 7> kWeekdayNames = {
    "sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};

// 1..12 for a month's full name or its first three letters, else 0.
int MonthFromWord(std::u16string_view word) {
  for (size_t m = 0; m < kMonthNames.size(); ++m) {
    if (EqualsWord(word, kMonthNames[m]) || EqualsWord(word, kMonthNames[m].substr(0, 3))) {
      return static_cast<int>(m) + 1;
    }
  }
  return 0;
}

// Days since the epoch for a calendar date in the valid range.
std::optional<int64_t> DayNumber(int64_t y, int64_t m, int64_t d) {
  if (y < 100 || y > 9999 || m < 1 || m > 12 || d < 1 || d > 31) return std::nullopt;
  const chr::year_month_day ymd{chr::year{static_cast<int>(y)},
                                chr::month{static_cast<unsigned>(m)},
                                chr::day{static_cast<unsigned>(d)}};
  if (!ymd.ok()) return std::nullopt;
  return (chr::sys_days{ymd} - kEpoch).count();
}

// The runtime's two-digit years.
int64_t FullYear(int64_t y) {
  if (y < 30) return y + 2000;
  if (y < 100) return y + 1900;
  return y;
}

// A date split into its parts, rounded to the second the way the default
// text form rounds it.
struct DateParts {
  int year, month, day, hour, minute, second;
  int weekday;      // 0 Sunday .. 6 Saturday
  int day_of_year;  // 1..366
};

DateParts SplitSerial(double serial) {
  const double whole = std::trunc(serial);
  int64_t day = static_cast<int64_t>(whole);
  auto seconds = static_cast<int64_t>(std::round(std::fabs(serial - whole) * 86400.0));
  if (seconds >= 86400) {  // rounds up into the next calendar day
    seconds -= 86400;
    day += 1;
  }
  const chr::sys_days date = kEpoch + chr::days{day};
  const chr::year_month_day ymd{date};
  const chr::sys_days new_year = ymd.year() / chr::January / 1;
  DateParts parts;
  parts.year = static_cast<int>(ymd.year());
  parts.month = static_cast<int>(static_cast<unsigned>(ymd.month()));
  parts.day = static_cast<int>(static_cast<unsigned>(ymd.day()));
  parts.hour = static_cast<int>(seconds / 3600);
  parts.minute = static_cast<int>(seconds / 60 % 60);
  parts.second = static_cast<int>(seconds % 60);
  parts.weekday = static_cast<int>(chr::weekday{date}.c_encoding());
  parts.day_of_year = static_cast<int>((date - new_year).count()) + 1;
  return parts;
}

int CurrentYear() {
  return SplitSerial(Now()).year;
}

// --- reading -------------------------------------------------------------------

enum class Tok : uint8_t { kNumber, kWord, kBlank, kPunct };

struct Token {
  Tok kind;
  char16_t punct;  // for kPunct
  int32_t value;   // for kNumber
  int32_t digits;  // for kNumber: how many digits were written
  std::u16string_view text;
};

// No date and time needs more tokens than this ("Mar 5, 2024 10:30:45 PM"
// has 14); longer text is rejected before it is read.
constexpr int kMaxTokens = 24;
constexpr int32_t kMaxDigits = 9;  // keeps every number within int32_t

struct Tokens {
  std::array<Token, kMaxTokens> at;
  int count = 0;
};

bool Tokenize(std::u16string_view text, Tokens& out) {
  size_t i = 0;
  while (i < text.size()) {
    if (out.count == kMaxTokens) return false;
    Token& t = out.at[out.count++];
    const size_t begin = i;
    const char16_t c = text[i];
    if (IsDigit(c)) {
      int32_t value = 0;
      while (i < text.size() && IsDigit(text[i])) {
        if (i - begin == kMaxDigits) return false;
        value = value * 10 + (text[i++] - u'0');
      }
      t = Token{Tok::kNumber, 0, value, static_cast<int32_t>(i - begin), {}};
    } else if (IsLetter(c)) {
      while (i < text.size() && IsLetter(text[i])) ++i;
      t = Token{Tok::kWord, 0, 0, 0, text.substr(begin, i - begin)};
    } else if (IsBlank(c)) {
      while (i < text.size() && IsBlank(text[i])) ++i;
      t = Token{Tok::kBlank, 0, 0, 0, {}};
    } else if (c == u'/' || c == u'-' || c == u':' || c == u',') {
      ++i;
      t = Token{Tok::kPunct, c, 0, 0, {}};
    } else {
      return false;
    }
  }
  return true;
}

// 1 for AM, 2 for PM, 0 otherwise.
int Meridiem(const Token& t) {
  if (t.kind != Tok::kWord) return 0;
  if (EqualsWord(t.text, "am")) return 1;
  if (EqualsWord(t.text, "pm")) return 2;
  return 0;
}

struct Field {
  int32_t value;   // the number, or the month of a month name
  int32_t digits;  // 0 for a month name
  bool IsName() const { return digits == 0; }
};

enum class Sep : uint8_t { kSlash, kDash, kSoft };

class DateReader {
 public:
  explicit DateReader(const Tokens& tokens) : t_(tokens.at.data()), n_(tokens.count) {}

  std::optional<double> Read() {
    int pos = 0;
    int32_t seconds = 0;
    if (ReadTime(pos, seconds) && pos == n_) return seconds / 86400.0;

    pos = 0;
    bool iso = false;
    std::optional<int64_t> day = ReadDate(pos, iso);
    if (!day) return std::nullopt;
    if (pos == n_) return static_cast<double>(*day);

    const Token& gap = t_[pos];
    const bool t_gap = iso && gap.kind == Tok::kWord && EqualsWord(gap.text, "t");
    if (gap.kind != Tok::kBlank && !t_gap) return std::nullopt;
    ++pos;
    if (!ReadTime(pos, seconds) || pos != n_) return std::nullopt;
    // Before day 0 the whole part counts back and the time still forward.
    const double time = seconds / 86400.0;
    return *day >= 0 ? static_cast<double>(*day) + time : static_cast<double>(*day) - time;
  }

 private:
  bool Is(int pos, Tok kind) const { return pos < n_ && t_[pos].kind == kind; }
  bool IsPunct(int pos, char16_t c) const { return Is(pos, Tok::kPunct) && t_[pos].punct == c; }
  bool IsMeridiemAt(int pos) const { return pos < n_ && Meridiem(t_[pos]) != 0; }

  // h[:nn[:ss]] with an optional AM/PM, which is required when there is no
  // colon. On success `pos` is past the time.
  bool ReadTime(int& pos, int32_t& seconds) const {
    int p = pos;
    int32_t parts[3] = {0, 0, 0};
    int count = 0;
    while (count < 3) {
      if (!Is(p, Tok::kNumber) || t_[p].digits > 2) return false;
      parts[count++] = t_[p++].value;
      if (count == 3 || !IsPunct(p, u':')) break;
      ++p;
    }
    int meridiem = 0;
    const int after = Is(p, Tok::kBlank) ? p + 1 : p;
    if (IsMeridiemAt(after)) {
      meridiem = Meridiem(t_[after]);
      p = after + 1;
    }
    if (count == 1 && meridiem == 0) return false;
    int32_t hour = parts[0];
    if (meridiem != 0) {
      if (hour < 1 || hour > 12) return false;
      hour = hour % 12 + (meridiem == 2 ? 12 : 0);
    }
    if (hour > 23 || parts[1] > 59 || parts[2] > 59) return false;
    seconds = hour * 3600 + parts[1] * 60 + parts[2];
    pos = p;
    return true;
  }

  // A number or a month name, but not the hour that starts a time.
  bool ReadField(int& pos, Field& field) const {
    if (Is(pos, Tok::kNumber)) {
      const int next = Is(pos + 1, Tok::kBlank) ? pos + 2 : pos + 1;
      if (IsPunct(pos + 1, u':') || IsMeridiemAt(next)) return false;
      field = Field{t_[pos].value, t_[pos].digits};
      ++pos;
      return true;
    }
    if (Is(pos, Tok::kWord)) {
      const int month = MonthFromWord(t_[pos].text);
      if (month == 0) return false;
      field = Field{month, 0};
      ++pos;
      return true;
    }
    return false;
  }

  // "/" or "-" alone, or blanks with at most one comma among them.
  bool ReadSep(int& pos, Sep& sep) const {
    if (IsPunct(pos, u'/') || IsPunct(pos, u'-')) {
      sep = t_[pos].punct == u'/' ? Sep::kSlash : Sep::kDash;
      ++pos;
      return true;
    }
    int p = pos;
    if (Is(p, Tok::kBlank)) ++p;
    if (IsPunct(p, u',')) ++p;
    if (Is(p, Tok::kBlank)) ++p;
    if (p == pos) return false;
    sep = Sep::kSoft;
    pos = p;
    return true;
  }

  std::optional<int64_t> ReadDate(int& pos, bool& iso) const {
    Field f[3];
    Sep sep[2] = {Sep::kSoft, Sep::kSoft};
    int count = 0;
    int p = pos;
    if (!ReadField(p, f[count])) return std::nullopt;
    ++count;
    while (count < 3) {
      int q = p;
      if (!ReadSep(q, sep[count - 1]) || !ReadField(q, f[count])) break;
      p = q;
      ++count;
    }
    std::optional<int64_t> day = Interpret(f, sep, count, iso);
    if (day) pos = p;
    return day;
  }

  static std::optional<int64_t> Interpret(const Field* f, const Sep* sep, int count, bool& iso) {
    if (count < 2) return std::nullopt;
    const int names = f[0].IsName() + f[1].IsName() + (count == 3 && f[2].IsName());
    if (names > 1) return std::nullopt;
    auto short_field = [](const Field& field) { return field.digits <= 2; };

    if (names == 0) {
      // Numbers only: one hard separator, the same each time.
      if (sep[0] == Sep::kSoft || (count == 3 && sep[1] != sep[0])) return std::nullopt;
      if (f[0].digits >= 3) {
        if (count != 3 || !short_field(f[1]) || !short_field(f[2])) return std::nullopt;
        iso = true;
        return DayNumber(f[0].value, f[1].value, f[2].value);
      }
      if (!short_field(f[1])) return std::nullopt;
      const int64_t y = count == 3 ? FullYear(f[2].value) : CurrentYear();
      if (count == 3 && f[2].digits > 4) return std::nullopt;
      // Month first unless the first field cannot be a month.
      if (f[0].value >= 1 && f[0].value <= 12) return DayNumber(y, f[0].value, f[1].value);
      return DayNumber(y, f[1].value, f[0].value);
    }

    if (count == 3 && f[2].digits > 4) return std::nullopt;
    if (f[0].IsName()) {  // March 5[, 2024]
      if (!short_field(f[1])) return std::nullopt;
      const int64_t y = count == 3 ? FullYear(f[2].value) : CurrentYear();
      return DayNumber(y, f[0].value, f[1].value);
    }
    if (f[1].IsName()) {
      if (f[0].digits >= 3) {  // 2024-Mar-05
        if (count != 3 || !short_field(f[2])) return std::nullopt;
        return DayNumber(f[0].value, f[1].value, f[2].value);
      }
      const int64_t y = count == 3 ? FullYear(f[2].value) : CurrentYear();  // 5 Mar[ 2024]
      return DayNumber(y, f[1].value, f[0].value);
    }
    return std::nullopt;  // a name in the year's place
  }

  const Token* t_;
  int n_;
};

// --- Format ----------------------------------------------------------------------

void AppendNumber(std::u16string& out, int64_t value, int min_width) {
  char buffer[24];
  auto r = std::to_chars(buffer, buffer + sizeof(buffer), value);
  for (int pad = min_width - static_cast<int>(r.ptr - buffer); pad > 0; --pad) out += u'0';
  for (char* q = buffer; q < r.ptr; ++q) out += static_cast<char16_t>(*q);
}

void AppendAscii(std::u16string& out, std::string_view text) {
  for (char c : text) out += static_cast<char16_t>(c);
}

// A month or weekday name with its first letter upper case, whole or cut to
// three letters.
void AppendName(std::u16string& out, std::string_view lower_name, bool abbreviated) {
  const size_t start = out.size();
  AppendAscii(out, abbreviated ? lower_name.substr(0, 3) : lower_name);
  out[start] = static_cast<char16_t>(out[start] - 0x20);
}

bool StartsWithWord(std::u16string_view text, std::string_view lower_word) {
  return text.size() >= lower_word.size() &&
         EqualsWord(text.substr(0, lower_word.size()), lower_word);
}

size_t RunLength(std::u16string_view pattern, size_t i) {
  size_t n = 1;
  while (i + n < pattern.size() && Lower(pattern[i + n]) == Lower(pattern[i])) ++n;
  return n;
}

// Quoted text and backslash escapes are literal in both kinds of pattern.
// Returns the characters the literal spans, 0 when `i` starts none.
size_t AppendLiteral(std::u16string_view pattern, size_t i, std::u16string& out) {
  if (pattern[i] == u'"') {
    const size_t close = pattern.find(u'"', i + 1);
    const size_t end = close == std::u16string_view::npos ? pattern.size() : close;
    out.append(pattern.substr(i + 1, end - i - 1));
    return end == pattern.size() ? end - i : end - i + 1;
  }
  if (pattern[i] == u'\\') {
    if (i + 1 < pattern.size()) out += pattern[i + 1];
    return i + 1 < pattern.size() ? 2 : 1;
  }
  return 0;
}

bool IsDateLetter(char16_t c) {
  const char16_t l = Lower(c);
  return l == u'd' || l == u'm' || l == u'y' || l == u'h' || l == u'n' || l == u's';
}

bool IsMeridiemToken(std::u16string_view rest) {
  return StartsWithWord(rest, "am/pm") || StartsWithWord(rest, "a/p");
}

// Where the next date or time token at or after `i` starts, skipping
// literals; npos when there is none.
size_t FindDateToken(std::u16string_view pattern, size_t i) {
  std::u16string ignored;
  while (i < pattern.size()) {
    if (size_t skip = AppendLiteral(pattern, i, ignored)) {
      i += skip;
      continue;
    }
    if (IsDateLetter(pattern[i]) || IsMeridiemToken(pattern.substr(i))) return i;
    ++i;
  }
  return std::u16string_view::npos;
}

bool IsDatePattern(std::u16string_view pattern) {
  return FindDateToken(pattern, 0) != std::u16string_view::npos;
}

// AM/PM anywhere turns every hour to the 12-hour clock.
bool HasMeridiem(std::u16string_view pattern) {
  for (size_t i = FindDateToken(pattern, 0); i != std::u16string_view::npos;
       i = FindDateToken(pattern, i + 1)) {
    if (IsMeridiemToken(pattern.substr(i))) return true;
  }
  return false;
}

// Where an "m" run means minutes: right after an hour, or right before seconds.
bool MeansMinutes(std::u16string_view pattern, size_t i, size_t run, char16_t previous_token) {
  if (run > 2) return false;
  if (previous_token == u'h') return true;
  const size_t next = FindDateToken(pattern, i + run);
  return next != std::u16string_view::npos && Lower(pattern[next]) == u's';
}

std::u16string FormatDate(double serial, std::u16string_view pattern) {
  const DateParts p = SplitSerial(serial);
  const bool twelve_hour = HasMeridiem(pattern);
  std::u16string out;
  char16_t previous_token = 0;  // the last date token's letter, for "m"
  for (size_t i = 0; i < pattern.size();) {
    if (size_t skip = AppendLiteral(pattern, i, out)) {
      i += skip;
      continue;
    }
    const std::u16string_view rest = pattern.substr(i);
    if (StartsWithWord(rest, "am/pm")) {
      out.append(rest.substr(p.hour < 12 ? 0 : 3, 2));  // keeps the pattern's case
      i += 5;
      continue;
    }
    if (StartsWithWord(rest, "a/p")) {
      out += rest[p.hour < 12 ? 0 : 2];
      i += 3;
      continue;
    }
    const char16_t letter = Lower(pattern[i]);
    if (!IsDateLetter(letter)) {
      out += pattern[i++];
      continue;
    }
    size_t run = RunLength(pattern, i);
    switch (letter) {
      case u'd':
        run = std::min<size_t>(run, 4);
        if (run <= 2) {
          AppendNumber(out, p.day, static_cast<int>(run));
        } else {
          AppendName(out, kWeekdayNames[p.weekday], run == 3);
        }
        break;
      case u'm':
        run = std::min<size_t>(run, 4);
        if (MeansMinutes(pattern, i, run, previous_token)) {
          AppendNumber(out, p.minute, static_cast<int>(run));
        } else if (run <= 2) {
          AppendNumber(out, p.month, static_cast<int>(run));
        } else {
          AppendName(out, kMonthNames[p.month - 1], run == 3);
        }
        break;
      case u'y':
        if (run >= 4) {
          run = 4;
          AppendNumber(out, p.year, 4);
        } else if (run >= 2) {
          run = 2;
          AppendNumber(out, p.year % 100, 2);
        } else {
          AppendNumber(out, p.day_of_year, 1);
        }
        break;
      case u'h': {
        run = std::min<size_t>(run, 2);
        int hour = p.hour;
        if (twelve_hour) hour = hour % 12 == 0 ? 12 : hour % 12;
        AppendNumber(out, hour, static_cast<int>(run));
        break;
      }
      case u'n':
        run = std::min<size_t>(run, 2);
        AppendNumber(out, p.minute, static_cast<int>(run));
        break;
      default:  // 's'
        run = std::min<size_t>(run, 2);
        AppendNumber(out, p.second, static_cast<int>(run));
        break;
    }
    previous_token = letter;
    i += run;
  }
  return out;
}

// |value| rounded half away from zero to `decimals` places, read through its
// 15 significant digits as the default text form does (so 1.005 rounds to
// 1.01 and 2.5 to 3). `integer` gets the whole part without leading zeros
// ("" for 0), `fraction` exactly `decimals` digits.
void DecimalDigits(double value, int decimals, std::string& integer, std::string& fraction) {
  integer.clear();
  fraction.assign(static_cast<size_t>(decimals), '0');
  if (value == 0) return;
  char buffer[32];
  auto r = std::to_chars(buffer, buffer + sizeof(buffer), std::fabs(value),
                         std::chars_format::scientific, 14);
  std::string significant;  // 15 digits, the first one before the point
  const char* q = buffer;
  for (; *q != 'e'; ++q) {
    if (*q != '.') significant += *q;
  }
  int exponent = 0;
  std::from_chars(q + 1 + (q[1] == '+'), r.ptr, exponent);

  // Digits kept: those before the point plus `decimals` after it.
  const int whole_digits = exponent + 1;
  const int keep = whole_digits + decimals;
  if (keep < 0) return;
  std::string digits = significant.substr(0, static_cast<size_t>(std::min<int>(keep, 15)));
  digits.resize(static_cast<size_t>(keep), '0');
  const bool round_up = keep < 15 && significant[static_cast<size_t>(keep)] >= '5';
  int point = whole_digits;  // digits before the point within `digits`
  if (round_up) {
    int k = keep - 1;
    for (; k >= 0 && digits[static_cast<size_t>(k)] == '9'; --k)
      digits[static_cast<size_t>(k)] = '0';
    if (k >= 0) {
      ++digits[static_cast<size_t>(k)];
    } else {
      digits.insert(digits.begin(), '1');
      ++point;
    }
  }
  if (point > 0) {
    integer = digits.substr(0, static_cast<size_t>(point));
    fraction = digits.substr(static_cast<size_t>(point));
  } else {
    fraction = std::string(static_cast<size_t>(-point), '0') + digits;
  }
  const size_t first = integer.find_first_not_of('0');
  integer.erase(0, first == std::string::npos ? integer.size() : first);
}

std::u16string FormatNumber(double value, std::u16string_view pattern) {
  if (!std::isfinite(value)) return DoubleToText(value);
  // First pass: placeholders before and after the point, grouping, percent.
  int int_places = 0, dec_places = 0, dec_zero_last = 0;
  bool seen_point = false, grouping = false, percent = false;
  std::u16string ignored;
  for (size_t i = 0; i < pattern.size();) {
    if (size_t skip = AppendLiteral(pattern, i, ignored)) {
      i += skip;
      continue;
    }
    const char16_t c = pattern[i++];
    if (c == u'0' || c == u'#') {
      if (seen_point) {
        ++dec_places;
        if (c == u'0') dec_zero_last = dec_places;
      } else {
        ++int_places;
      }
    } else if (c == u'.' && !seen_point) {
      seen_point = true;
    } else if (c == u',' && !seen_point && int_places > 0) {
      grouping = true;
    } else if (c == u'%') {
      percent = true;
    }
  }
  if (percent) value *= 100;

  std::string integer, fraction;
  DecimalDigits(value, dec_places, integer, fraction);
  // Trailing zeros show only where a "0" asks for them.
  size_t shown_decimals = fraction.find_last_not_of('0');
  shown_decimals = shown_decimals == std::string::npos ? 0 : shown_decimals + 1;
  shown_decimals = std::max<size_t>(shown_decimals, static_cast<size_t>(dec_zero_last));

  std::u16string out;
  const bool is_zero = integer.empty() && fraction.find_first_not_of('0') == std::string::npos;
  if (value < 0 && !is_zero) out += u'-';
  const int digit_count = static_cast<int>(integer.size());
  int int_index = 0, dec_index = 0;
  seen_point = false;
  // Emits the integer digit at `position` (counted from the right, 0 the
  // units) and the group separator after it.
  auto put_digit = [&](int position, bool zero_placeholder) {
    if (position < digit_count) {
      out += static_cast<char16_t>(integer[static_cast<size_t>(digit_count - 1 - position)]);
    } else if (zero_placeholder) {
      out += u'0';
    } else {
      return;
    }
    if (grouping && position > 0 && position % 3 == 0) out += u',';
  };
  for (size_t i = 0; i < pattern.size();) {
    if (size_t skip = AppendLiteral(pattern, i, out)) {
      i += skip;
      continue;
    }
    const char16_t c = pattern[i++];
    if ((c == u'0' || c == u'#') && !seen_point) {
      const int position = int_places - 1 - int_index;
      if (int_index++ == 0) {  // digits beyond the placeholders go first
        for (int extra = digit_count - 1; extra > position; --extra) put_digit(extra, false);
      }
      put_digit(position, c == u'0');
    } else if ((c == u'0' || c == u'#') && seen_point) {
      if (static_cast<size_t>(dec_index) < shown_decimals)
        out += static_cast<char16_t>(fraction[static_cast<size_t>(dec_index)]);
      ++dec_index;
    } else if (c == u'.' && !seen_point) {
      // Without integer placeholders the whole part still shows (".00").
      if (int_index == 0) {
        for (int position = digit_count - 1; position >= 0; --position) put_digit(position, false);
      }
      seen_point = true;
      out += u'.';
    } else if (c == u',' && grouping && !seen_point) {
      // consumed by the grouping
    } else {
      out += c;
    }
  }
  return out;
}

// The serial a value formats as with a date pattern; nullopt for text that
// is neither a date nor a number, which Format returns unchanged.
std::optional<double> SerialForFormat(const Value& value) {
  if (!value.IsString()) return ToDate(value);
  if (std::optional<double> date = ParseDate(value.string())) return date;
  if (std::optional<double> number = ParseNumber(value.string())) {
    if (!InDateRange(*number)) RaiseStandard(errors::kOverflow);
    return number;
  }
  return std::nullopt;
}

}  // namespace

std::optional<double> ParseDate(std::u16string_view text) {
  size_t begin = 0, end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  Tokens tokens;
  if (begin == end || !Tokenize(text.substr(begin, end - begin), tokens)) return std::nullopt;
  return DateReader(tokens).Read();
}

double ToDate(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kDate:
      return value.date();
    case Kind::kEmpty:
      return 0;
    case Kind::kNull:
      RaiseStandard(errors::kInvalidUseOfNull);
    case Kind::kString: {
      std::optional<double> serial = ParseDate(value.string());
      if (!serial) RaiseStandard(errors::kTypeMismatch);
      return *serial;
    }
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kLongLong:
    case Kind::kByte:
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kBoolean: {
      const double serial = ToDouble(value);
      if (!InDateRange(serial)) RaiseStandard(errors::kOverflow);
      return serial;
    }
    default:
      RaiseStandard(errors::kTypeMismatch);
  }
}

bool IsDate(const Value& value) {
  if (value.code() == static_cast<uint16_t>(Kind::kDate)) return true;
  return value.IsString() && ParseDate(value.string()).has_value();
}

std::u16string Format(const Value& value, std::u16string_view pattern) {
  if (value.IsNull()) return {};
  if (pattern.empty()) return ToText(value);

  const bool general = EqualsWord(pattern, "general date");
  const bool short_date = EqualsWord(pattern, "short date");
  const bool long_time = EqualsWord(pattern, "long time");
  if (general || short_date || long_time || IsDatePattern(pattern)) {
    std::optional<double> serial = SerialForFormat(value);
    if (!serial) return std::u16string(value.string());
    if (general) return DateToText(*serial);
    if (short_date) return FormatDate(*serial, u"m/d/yyyy");
    if (long_time) return FormatDate(*serial, u"h:nn:ss AM/PM");
    return FormatDate(*serial, pattern);
  }
  if (value.IsString()) {
    std::optional<double> number = ParseNumber(value.string());
    if (!number) return std::u16string(value.string());
    return FormatNumber(*number, pattern);
  }
  return FormatNumber(ToDouble(value), pattern);
}

}  // namespace kestrel::runtime
