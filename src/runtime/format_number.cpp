// Numeric patterns: decimal digits with the runtime's rounding, and the
// placeholders, grouping, scaling, percent and exponent of one section.
//
// A section is read once into tokens and counts (how many placeholders
// before and after the point and in the exponent, grouping, scaling); the
// number is then scaled and rounded for those counts, and the tokens are
// walked again to lay the digits out. Integer digits are counted from the
// right, so digits the placeholders cannot hold all go in front of the
// first one ("00" shows 12345 whole), and a "0" with no digit of its own
// shows a zero.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "detail/format.hpp"
#include "detail/significant_digits.hpp"

namespace kestrel::runtime::detail {
namespace {

void TrimTrailingZeros(DecimalNumber& number) {
  const size_t last = number.digits.find_last_not_of('0');
  number.digits.erase(last == std::string::npos ? 0 : last + 1);
  if (number.digits.empty()) {
    number.point = 0;
    number.negative = false;
  }
}

// The decimal that the runtime reads a float as: its first `precision`
// significant digits.
template <class Float>
DecimalNumber FromSignificantDigits(Float value, int precision) {
  if (value == 0 || !std::isfinite(value)) return {};
  const Digits d = RoundToDigits(value, precision);
  DecimalNumber number;
  number.negative = d.negative;
  number.digits.assign(d.digits, static_cast<size_t>(d.count));
  number.point = d.exponent + 1;
  TrimTrailingZeros(number);
  return number;
}

// Keeps the first `keep` digits, rounding half away from zero on the next.
void KeepDigits(DecimalNumber& number, int64_t keep) {
  if (keep >= static_cast<int64_t>(number.digits.size())) return;
  if (keep < 0) {  // the first digit lies beyond the next place: below half
    number.digits.clear();
    TrimTrailingZeros(number);
    return;
  }
  const bool up = number.digits[static_cast<size_t>(keep)] >= '5';
  number.digits.resize(static_cast<size_t>(keep));
  if (up) {
    while (!number.digits.empty() && number.digits.back() == '9') number.digits.pop_back();
    if (number.digits.empty()) {  // 0.996 -> 1.00: one more digit before the point
      number.digits = "1";
      ++number.point;
    } else {
      ++number.digits.back();
    }
  }
  TrimTrailingZeros(number);
}

int64_t FloorDiv(int64_t a, int64_t b) {
  const int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// --- one section -------------------------------------------------------------------

enum class Tok : uint8_t { kLiteral, kDigit, kPoint, kPercent, kExponent };
enum class Place : uint8_t { kInteger, kFraction, kExponent };

struct Token {
  Tok kind;
  Place place = Place::kInteger;  // kDigit: which part of the number it holds
  char16_t letter = 0;            // kDigit: '0' or '#'; kExponent: 'E' or 'e'
  bool plus = false;              // kExponent: "+" before positive exponents
  size_t begin = 0, size = 0;     // kLiteral: its text in Section::literals
};

struct Section {
  std::vector<Token> tokens;
  std::u16string literals;
  int64_t int_places = 0, frac_places = 0, exp_places = 0;
  int64_t frac_shown = 0;  // places up to the last "0" after the point
  int64_t scale_commas = 0;
  bool grouping = false, percent = false, scientific = false;
};

Section ReadSection(std::u16string_view text) {
  Section s;
  bool after_point = false, in_exponent = false;
  // Commas: any between two integer placeholders asks for grouping; the run
  // right after the last integer placeholder divides by 1000 per comma.
  bool comma_since_digit = false, run_open = false;
  int64_t run = 0;
  auto literal = [&s](std::u16string_view piece) {
    if (!s.tokens.empty() && s.tokens.back().kind == Tok::kLiteral) {
      s.tokens.back().size += piece.size();
    } else {
      s.tokens.push_back(
          {Tok::kLiteral, Place::kInteger, 0, false, s.literals.size(), piece.size()});
    }
    s.literals.append(piece);
  };
  std::u16string quoted;
  for (size_t i = 0; i < text.size();) {
    quoted.clear();
    if (const size_t n = LiteralAt(text, i, &quoted)) {
      literal(quoted);
      run_open = false;
      i += n;
      continue;
    }
    const char16_t c = text[i];
    if (c == u'0' || c == u'#') {
      Token t{Tok::kDigit, Place::kInteger, c};
      if (in_exponent) {
        t.place = Place::kExponent;
        ++s.exp_places;
      } else if (after_point) {
        t.place = Place::kFraction;
        ++s.frac_places;
        if (c == u'0') s.frac_shown = s.frac_places;
      } else {
        ++s.int_places;
        if (comma_since_digit) s.grouping = true;
        comma_since_digit = false;
        run = 0;
        run_open = true;
      }
      s.tokens.push_back(t);
      ++i;
      continue;
    }
    if (c == u',') {  // a format character: shows nothing itself
      if (!after_point && !in_exponent && s.int_places > 0) {
        comma_since_digit = true;
        if (run_open) ++run;
      }
      ++i;
      continue;
    }
    run_open = false;
    if (c == u'.' && !after_point && !in_exponent) {
      after_point = true;
      s.tokens.push_back({Tok::kPoint});
      ++i;
      continue;
    }
    if (c == u'%') {
      s.percent = true;
      s.tokens.push_back({Tok::kPercent});
      ++i;
      continue;
    }
    if ((c == u'E' || c == u'e') && !in_exponent) {
      size_t j = i + 1;
      const bool sign = j < text.size() && (text[j] == u'+' || text[j] == u'-');
      const bool plus = sign && text[j] == u'+';
      if (sign) ++j;
      if (j < text.size() && (text[j] == u'0' || text[j] == u'#')) {
        in_exponent = true;
        s.scientific = true;
        s.tokens.push_back({Tok::kExponent, Place::kExponent, c, plus});
        i = j;
        continue;
      }
    }
    literal(text.substr(i, 1));
    ++i;
  }
  if (comma_since_digit) s.scale_commas = run;
  return s;
}

// The magnitude scaled and rounded for the section; for exponent patterns,
// the mantissa and its exponent.
DecimalNumber Prepare(const Section& s, DecimalNumber n, int64_t& exponent) {
  exponent = 0;
  if (s.percent) ScaleDecimal(n, 2);
  ScaleDecimal(n, -3 * s.scale_commas);
  if (!s.scientific) {
    RoundDecimals(n, s.frac_places);
    return n;
  }
  if (n.IsZero()) return n;
  // With several integer placeholders the exponent moves in steps of their
  // count, so "##0.0E+0" gives 12.3E+3 rather than 1.23E+4.
  const int64_t step = std::max<int64_t>(s.int_places, 1);
  int64_t e = n.point - 1;
  int64_t power = FloorDiv(e, step) * step;
  RoundSignificant(n, e - power + 1 + s.frac_places);
  if (n.point - 1 != e) {  // rounding carried into a new digit (9.999 -> 10.00)
    e = n.point - 1;
    power = FloorDiv(e, step) * step;
  }
  n.point -= power;
  exponent = power;
  return n;
}

std::u16string Render(const Section& s, const DecimalNumber& n, int64_t exponent) {
  const std::string integer = IntegerDigits(n);
  const std::string fraction = FractionDigits(n, static_cast<size_t>(s.frac_places));
  // A "#" after the point shows its digit unless only zeros follow it.
  const size_t last_digit = fraction.find_last_not_of('0');
  const int64_t frac_shown = std::max<int64_t>(
      last_digit == std::string::npos ? 0 : static_cast<int64_t>(last_digit) + 1, s.frac_shown);
  std::string exp_digits = std::to_string(exponent < 0 ? -exponent : exponent);
  if (static_cast<int64_t>(exp_digits.size()) < s.exp_places) {
    exp_digits.insert(0, static_cast<size_t>(s.exp_places) - exp_digits.size(), '0');
  }
  const int64_t exp_extra = static_cast<int64_t>(exp_digits.size()) - s.exp_places;

  std::u16string out;
  const auto digit_count = static_cast<int64_t>(integer.size());
  // The integer digit `position` places left of the point, then the group
  // separator that follows it.
  auto put_digit = [&](int64_t position, bool zero_placeholder) {
    if (position < digit_count) {
      out += static_cast<char16_t>(integer[static_cast<size_t>(digit_count - 1 - position)]);
    } else if (zero_placeholder) {
      out += u'0';
    } else {
      return;
    }
    if (s.grouping && position > 0 && position % 3 == 0) out += u',';
  };
  int64_t int_index = 0, frac_index = 0, exp_index = 0;
  for (const Token& t : s.tokens) {
    switch (t.kind) {
      case Tok::kLiteral:
        out.append(s.literals, t.begin, t.size);
        break;
      case Tok::kDigit:
        if (t.place == Place::kInteger) {
          const int64_t position = s.int_places - 1 - int_index;
          if (int_index++ == 0) {
            for (int64_t extra = digit_count - 1; extra > position; --extra)
              put_digit(extra, false);
          }
          put_digit(position, t.letter == u'0');
        } else if (t.place == Place::kFraction) {
          if (frac_index < frac_shown) out += static_cast<char16_t>(fraction[frac_index]);
          ++frac_index;
        } else {
          if (exp_index == 0) {
            for (int64_t k = 0; k < exp_extra; ++k) out += static_cast<char16_t>(exp_digits[k]);
          }
          out += static_cast<char16_t>(exp_digits[static_cast<size_t>(exp_extra + exp_index++)]);
        }
        break;
      case Tok::kPoint:
        // Without integer placeholders the whole part still shows (".00").
        if (s.int_places == 0) {
          for (int64_t position = digit_count - 1; position >= 0; --position) {
            put_digit(position, false);
          }
        }
        out += u'.';
        break;
      case Tok::kPercent:
        out += u'%';
        break;
      case Tok::kExponent:
        out += t.letter;
        if (exponent < 0) {
          out += u'-';
        } else if (t.plus) {
          out += u'+';
        }
        break;
    }
  }
  return out;
}

}  // namespace

DecimalNumber DecimalFromDouble(double value) {
  return FromSignificantDigits(value, 15);
}

DecimalNumber DecimalFromSingle(float value) {
  return FromSignificantDigits(value, 7);
}

DecimalNumber DecimalFromInteger(int64_t value) {
  DecimalNumber number;
  // The magnitude as unsigned, so the most negative LongLong has one too.
  const uint64_t magnitude =
      value < 0 ? ~static_cast<uint64_t>(value) + 1 : static_cast<uint64_t>(value);
  char buffer[24];
  const auto r = std::to_chars(buffer, buffer + sizeof(buffer), magnitude);
  number.digits.assign(buffer, r.ptr);
  number.point = r.ptr - buffer;
  number.negative = value < 0;
  TrimTrailingZeros(number);
  return number;
}

void ScaleDecimal(DecimalNumber& number, int64_t power) {
  if (!number.IsZero()) number.point += power;
}

void RoundDecimals(DecimalNumber& number, int64_t decimals) {
  if (!number.IsZero()) KeepDigits(number, number.point + decimals);
}

void RoundSignificant(DecimalNumber& number, int64_t count) {
  KeepDigits(number, count);
}

std::string IntegerDigits(const DecimalNumber& number) {
  if (number.point <= 0) return {};
  const auto point = static_cast<size_t>(number.point);
  std::string integer = number.digits.substr(0, std::min(point, number.digits.size()));
  integer.resize(point, '0');
  return integer;
}

std::string FractionDigits(const DecimalNumber& number, size_t count) {
  std::string fraction(count, '0');
  const auto size = static_cast<int64_t>(number.digits.size());
  for (size_t i = 0; i < count; ++i) {
    const int64_t index = number.point + static_cast<int64_t>(i);
    if (index >= size) break;
    if (index >= 0) fraction[i] = number.digits[static_cast<size_t>(index)];
  }
  return fraction;
}

std::u16string FormatNumberPattern(const DecimalNumber& value, std::u16string_view pattern) {
  // The Null section (the fourth) is the dispatcher's.
  const std::vector<std::u16string_view> sections = SplitSections(pattern, 3);
  const Section first = ReadSection(sections[0]);
  DecimalNumber magnitude = value;
  magnitude.negative = false;
  int64_t exponent = 0;
  const DecimalNumber shown = Prepare(first, magnitude, exponent);

  // Which section applies is decided on the value itself, not on what the
  // first section shows of it: -0.001 under "0.00" is negative and shows
  // "-0.00", as the runtime does, and only a true zero takes the third.
  auto other = [](std::u16string_view text, const DecimalNumber& number) {
    const Section s = ReadSection(text);
    int64_t e = 0;
    const DecimalNumber n = Prepare(s, number, e);
    return Render(s, n, e);
  };
  if (value.IsZero()) {
    if (sections.size() >= 3 && !sections[2].empty()) return other(sections[2], DecimalNumber{});
    return Render(first, shown, exponent);
  }
  if (value.negative) {
    if (sections.size() >= 2 && !sections[1].empty()) return other(sections[1], magnitude);
    return u"-" + Render(first, shown, exponent);
  }
  return Render(first, shown, exponent);
}

}  // namespace kestrel::runtime::detail
