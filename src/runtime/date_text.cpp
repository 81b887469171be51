// Date text: reading dates as the conversions do (ParseDate, ToDate, IsDate).
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
#include <chrono>
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

int CurrentYear() {
  return Year(Now());
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

}  // namespace kestrel::runtime
