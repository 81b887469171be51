// The runtime's string functions.
//
// All positions and lengths count UTF-16 code units, as the runtime's do: a
// character outside the Basic Multilingual Plane counts 2. Text-mode
// searches (InStr, InStrRev, Replace, Split) compare case-insensitively in
// the same way StrComp's text mode does, through ICU case folding. The Value
// forms read their arguments' text without copying Strings; Like itself
// lives in like.cpp.

#include "kestrel/runtime/strings.hpp"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "detail/case_folding.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/encoding.hpp"

namespace kestrel::runtime {
namespace {

constexpr size_t kNotFound = std::u16string_view::npos;

[[noreturn]] void RaiseInvalidCall() {
  RaiseStandard(errors::kInvalidProcedureCall);
}

int32_t ToPosition(size_t index) {
  return static_cast<int32_t>(index + 1);
}

// Database mode compares like text mode in the runtime.
bool IsTextMode(CompareMethod mode) {
  return mode != CompareMethod::kBinary;
}

// Maps each code point of `text` through `map` in place, keeping every
// result that takes as many UTF-16 units as its source. Simple case mappings
// never move a character between the BMP and the supplementary planes, so
// the guard only protects the positions against a future Unicode version;
// unpaired surrogates pass through unchanged. ASCII letters in the range
// [ascii_from, ascii_from + 25] shift by `ascii_delta` without calling ICU,
// which is what ICU would do for them.
template <class Map>
std::u16string MapCodePoints(std::u16string_view text, char16_t ascii_from, int ascii_delta,
                             Map map) {
  std::u16string out(text);
  const size_t n = out.size();
  size_t i = 0;
  while (i < n) {
    const char16_t unit = out[i];
    if (unit < 0x80) {
      if (static_cast<char16_t>(unit - ascii_from) < 26) {
        out[i] = static_cast<char16_t>(unit + ascii_delta);
      }
      ++i;
      continue;
    }
    const size_t begin = i;
    UChar32 c;
    U16_NEXT(out.data(), i, n, c);
    const UChar32 mapped = map(c);
    if (mapped == c || static_cast<size_t>(U16_LENGTH(mapped)) != i - begin) continue;
    if (U16_LENGTH(mapped) == 1) {
      out[begin] = static_cast<char16_t>(mapped);
    } else {
      out[begin] = U16_LEAD(mapped);
      out[begin + 1] = U16_TRAIL(mapped);
    }
  }
  return out;
}

// A text and a text to look for, compared in binary or text mode. Positions
// are indices into the original text.
class Matcher {
 public:
  Matcher(std::u16string_view text, std::u16string_view find, CompareMethod mode) {
    if (IsTextMode(mode)) {
      folded_text_ = detail::SimpleFoldCase(text);
      folded_find_ = detail::SimpleFoldCase(find);
      text_ = folded_text_;
      find_ = folded_find_;
    } else {
      text_ = text;
      find_ = find;
    }
  }
  Matcher(const Matcher&) = delete;
  Matcher& operator=(const Matcher&) = delete;

  // First match starting at or after `from`.
  size_t Find(size_t from) const { return text_.find(find_, from); }
  // Last match in the whole text.
  size_t FindLast() const { return text_.rfind(find_); }

 private:
  std::u16string folded_text_;
  std::u16string folded_find_;
  std::u16string_view text_;
  std::u16string_view find_;
};

template <class Unsigned>
std::u16string Digits(Unsigned value, unsigned bits_per_digit) {
  // 22 octal digits cover 64 bits.
  char16_t buffer[24];
  char16_t* end = buffer + sizeof buffer / sizeof buffer[0];
  char16_t* p = end;
  const Unsigned mask = (Unsigned{1} << bits_per_digit) - 1;
  do {
    *--p = u"0123456789ABCDEF"[value & mask];
    value >>= bits_per_digit;
  } while (value != 0);
  return std::u16string(p, end);
}

// Hex and Oct: the width of the two's complement follows the argument's
// kind, which is why an Integer -1 gives 4 hex digits and a Long -1 gives 8.
// Boolean is an Integer-sized kind. Everything else (Single, Double, Date,
// numeric text) converts as CLng does: rounded half to even, 6 outside the
// Long range.
Value Radix(const Value& number, unsigned bits_per_digit) {
  switch (number.code()) {
    case uint16_t(Kind::kNull):
      return Value::Null();
    case uint16_t(Kind::kEmpty):
      return Value(u"0");
    case uint16_t(Kind::kInteger):
      return Value(Digits(static_cast<uint16_t>(number.integer()), bits_per_digit));
    case uint16_t(Kind::kBoolean):
      return Value(Digits(static_cast<uint16_t>(number.boolean() ? 0xFFFF : 0), bits_per_digit));
    case uint16_t(Kind::kByte):
      return Value(Digits(number.byte(), bits_per_digit));
    case uint16_t(Kind::kLong):
      return Value(Digits(static_cast<uint32_t>(number.long_value()), bits_per_digit));
    case uint16_t(Kind::kLongLong):
      return Value(Digits(static_cast<uint64_t>(number.long_long()), bits_per_digit));
    default:
      return Value(Digits(static_cast<uint32_t>(ToLong(number)), bits_per_digit));
  }
}

// A Value argument's text: a String's own units without a copy, anything
// else through CStr (94 for Null, 13 for objects, arrays and Error values).
class TextArgument {
 public:
  explicit TextArgument(const Value& value) {
    if (value.IsString()) {
      view_ = value.string();
    } else {
      owned_ = ToText(value);
      view_ = owned_;
    }
  }
  TextArgument(const TextArgument&) = delete;
  TextArgument& operator=(const TextArgument&) = delete;

  std::u16string_view view() const { return view_; }

 private:
  std::u16string owned_;
  std::u16string_view view_;
};

// The word separators of proper case: NUL, tab, line feed, vertical tab,
// form feed, carriage return and space. Punctuation does not start a word.
bool IsWordSeparator(char16_t c) {
  return c == 0 || (c >= 0x09 && c <= 0x0D) || c == u' ';
}

std::u16string ProperCase(std::u16string_view text) {
  std::u16string out = LCase(text);
  bool word_start = true;
  for (size_t i = 0; i < out.size();) {
    if (IsWordSeparator(out[i])) {
      word_start = true;
      ++i;
      continue;
    }
    const size_t length =
        U16_IS_LEAD(out[i]) && i + 1 < out.size() && U16_IS_TRAIL(out[i + 1]) ? 2 : 1;
    // UCase keeps the length, so the character is replaced in place.
    if (word_start) out.replace(i, length, UCase(std::u16string_view(out).substr(i, length)));
    word_start = false;
    i += length;
  }
  return out;
}

// StrConv's argument as bytes to decode: a Byte array's own bytes, or the
// UTF-16LE bytes of the argument's text, which is what a runtime string holds.
std::string BytesToDecode(const Value& value) {
  if (value.IsArray()) {
    if (value.kind() != Kind::kByte) RaiseStandard(errors::kTypeMismatch);
    const auto bytes = value.Bytes();
    return std::string(bytes.begin(), bytes.end());
  }
  const TextArgument text(value);
  std::string out;
  out.reserve(text.view().size() * 2);
  for (const char16_t unit : text.view()) {
    out.push_back(static_cast<char>(unit & 0xFF));
    out.push_back(static_cast<char>(unit >> 8));
  }
  return out;
}

// StrConv's argument as text: a Byte array's bytes taken as UTF-16LE pairs
// (an odd last byte on its own), as the runtime assigns a Byte array to a
// String; anything else through its text form.
std::u16string TextToConvert(const Value& value) {
  if (!value.IsArray()) return std::u16string(TextArgument(value).view());
  if (value.kind() != Kind::kByte) RaiseStandard(errors::kTypeMismatch);
  const auto bytes = value.Bytes();
  std::u16string out((bytes.size() + 1) / 2, u'\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    out[i / 2] = static_cast<char16_t>(out[i / 2] | (bytes[i] << (i % 2 * 8)));
  }
  return out;
}

}  // namespace

// Text mode finds matches in case-folded copies of both texts and reports
// positions in those copies. That only works when folding keeps every
// character at its place, so searches use ICU's *simple* case folding
// (u_foldCase, one code point to one code point, same number of units)
// rather than the full folding that may expand a character ("ß" to "ss")
// and would shift every position after it. The two foldings differ only
// for those few expanding characters: StrComp, which reports no positions,
// folds fully and finds "STRASSE" equal to "straße", while InStr does not
// find "ss" in "ß".
std::u16string detail::SimpleFoldCase(std::u16string_view text) {
  return MapCodePoints(text, u'A', 'a' - 'A',
                       [](UChar32 c) { return u_foldCase(c, U_FOLD_CASE_DEFAULT); });
}

// --- Trim family ------------------------------------------------------------

std::u16string LTrim(std::u16string_view text) {
  const size_t first = text.find_first_not_of(u' ');
  return first == kNotFound ? std::u16string() : std::u16string(text.substr(first));
}

std::u16string RTrim(std::u16string_view text) {
  const size_t last = text.find_last_not_of(u' ');
  return last == kNotFound ? std::u16string() : std::u16string(text.substr(0, last + 1));
}

std::u16string Trim(std::u16string_view text) {
  const size_t first = text.find_first_not_of(u' ');
  if (first == kNotFound) return std::u16string();
  const size_t last = text.find_last_not_of(u' ');
  return std::u16string(text.substr(first, last - first + 1));
}

// --- Searching --------------------------------------------------------------

// The runtime documents InStr as a table of cases, in this order: a
// zero-length text gives 0; a zero-length search text gives start; not found
// gives 0; found gives the position; start beyond the length gives 0. Read
// strictly in that order an empty search text would return any start, even
// one far past the end. We bound it by Len + 1, the position just after the
// last character, where an empty text can still be "found"; a start past
// that is beyond the text. So InStr(1, "", "") = 0, InStr(4, "abc", "") = 4
// and InStr(5, "abc", "") = 0.
int32_t InStr(int32_t start, std::u16string_view text, std::u16string_view find,
              CompareMethod mode) {
  if (start < 1) RaiseInvalidCall();
  const size_t from = static_cast<size_t>(start) - 1;
  if (text.empty() || from > text.size()) return 0;
  if (find.empty()) return start;
  if (find.size() > text.size() - from) return 0;
  // Only the part from `start` on can hold a match: fold just that.
  const Matcher matcher(text.substr(from), find, mode);
  const size_t hit = matcher.Find(0);
  return hit == kNotFound ? 0 : ToPosition(from + hit);
}

int32_t InStrRev(std::u16string_view text, std::u16string_view find, int32_t start,
                 CompareMethod mode) {
  if (start == 0 || start < -1) RaiseInvalidCall();
  if (text.empty()) return 0;
  const size_t end = start == -1 ? text.size() : static_cast<size_t>(start);
  if (end > text.size()) return 0;
  if (find.empty()) return static_cast<int32_t>(end);
  if (find.size() > end) return 0;
  // A match must end at or before `start`: search only the text up to it.
  const Matcher matcher(text.substr(0, end), find, mode);
  const size_t hit = matcher.FindLast();
  return hit == kNotFound ? 0 : ToPosition(hit);
}

// --- Case -------------------------------------------------------------------

std::u16string UCase(std::u16string_view text) {
  return MapCodePoints(text, u'a', 'A' - 'a', [](UChar32 c) { return u_toupper(c); });
}

std::u16string LCase(std::u16string_view text) {
  return MapCodePoints(text, u'A', 'a' - 'A', [](UChar32 c) { return u_tolower(c); });
}

// --- Replace, Split, Join -----------------------------------------------------

std::u16string Replace(std::u16string_view text, std::u16string_view find,
                       std::u16string_view replacement, int32_t start, int32_t count,
                       CompareMethod mode) {
  if (start < 1 || count < -1) RaiseInvalidCall();
  if (static_cast<size_t>(start) > text.size()) return std::u16string();
  // The runtime drops the text before `start` from the result.
  const std::u16string_view rest = text.substr(static_cast<size_t>(start) - 1);
  if (find.empty() || count == 0) return std::u16string(rest);

  const Matcher matcher(rest, find, mode);
  std::vector<size_t> hits;
  for (size_t pos = matcher.Find(0); pos != kNotFound; pos = matcher.Find(pos + find.size())) {
    hits.push_back(pos);
    if (count != -1 && hits.size() == static_cast<size_t>(count)) break;
  }
  if (hits.empty()) return std::u16string(rest);

  std::u16string out;
  out.reserve(rest.size() - hits.size() * find.size() + hits.size() * replacement.size());
  size_t copied = 0;
  for (const size_t hit : hits) {
    out.append(rest, copied, hit - copied);
    out.append(replacement);
    copied = hit + find.size();
  }
  out.append(rest, copied);
  return out;
}

Value Split(std::u16string_view text, std::u16string_view delimiter, int32_t limit,
            CompareMethod mode) {
  if (limit < -1) RaiseInvalidCall();
  if (text.empty() || limit == 0) return Value::NewArray(Kind::kString, {{0, -1}});

  // Pieces as [begin, end) in `text`.
  std::vector<std::pair<size_t, size_t>> pieces;
  if (delimiter.empty() || limit == 1) {
    pieces.emplace_back(0, text.size());
  } else {
    const Matcher matcher(text, delimiter, mode);
    size_t begin = 0;
    for (size_t hit = matcher.Find(0); hit != kNotFound; hit = matcher.Find(begin)) {
      pieces.emplace_back(begin, hit);
      begin = hit + delimiter.size();
      // The last allowed piece takes the rest, delimiters and all.
      if (limit != -1 && pieces.size() + 1 == static_cast<size_t>(limit)) break;
    }
    pieces.emplace_back(begin, text.size());
  }

  Value array = Value::NewArray(Kind::kString, {{0, static_cast<int32_t>(pieces.size()) - 1}});
  const auto elements = array.MutableElements();
  for (size_t i = 0; i < pieces.size(); ++i) {
    elements[i] = Value(text.substr(pieces[i].first, pieces[i].second - pieces[i].first));
  }
  return array;
}

// An array that was declared but never sized joins to "": the runtime treats
// it as an array with no elements, and callers rely on Join of such an array
// being "" to test for emptiness.
std::u16string Join(const Value& array, std::u16string_view delimiter) {
  if (!array.IsArray()) RaiseInvalidCall();
  if (!array.IsAllocated()) return std::u16string();
  if (array.Dimensions() != 1) RaiseInvalidCall();

  const size_t count = array.ElementCount();
  if (count == 0) return std::u16string();

  // String arrays, the usual case, are joined straight from their storage.
  // Other kinds go through ToText, which raises 94 for Null and 13 for what
  // has no text form.
  std::vector<std::u16string> converted;
  std::vector<std::u16string_view> texts;
  texts.reserve(count);
  if (array.kind() == Kind::kString) {
    for (const Value& element : array.Elements()) texts.push_back(element.string());
  } else {
    converted.reserve(count);
    for (size_t i = 0; i < count; ++i) converted.push_back(ToText(array.ElementAt(i)));
    texts.assign(converted.begin(), converted.end());
  }

  size_t total = delimiter.size() * (count - 1);
  for (const auto text : texts) total += text.size();
  std::u16string out;
  out.reserve(total);
  out.append(texts[0]);
  for (size_t i = 1; i < count; ++i) {
    out.append(delimiter);
    out.append(texts[i]);
  }
  return out;
}

// --- Hex, Oct ---------------------------------------------------------------

Value Hex(const Value& number) {
  return Radix(number, 4);
}
Value Oct(const Value& number) {
  return Radix(number, 3);
}

// --- Substrings -------------------------------------------------------------

std::u16string Left(std::u16string_view text, int32_t length) {
  if (length < 0) RaiseInvalidCall();
  return std::u16string(text.substr(0, static_cast<size_t>(length)));
}

std::u16string Right(std::u16string_view text, int32_t length) {
  if (length < 0) RaiseInvalidCall();
  const size_t n = std::min(text.size(), static_cast<size_t>(length));
  return std::u16string(text.substr(text.size() - n));
}

std::u16string Mid(std::u16string_view text, int32_t start, int32_t length) {
  if (start < 1 || length < -1) RaiseInvalidCall();
  const size_t from = static_cast<size_t>(start) - 1;
  if (from >= text.size()) return std::u16string();
  const size_t n = length == -1 ? kNotFound : static_cast<size_t>(length);
  return std::u16string(text.substr(from, n));
}

// --- Building ---------------------------------------------------------------

std::u16string Space(int32_t count) {
  if (count < 0) RaiseInvalidCall();
  return std::u16string(static_cast<size_t>(count), u' ');
}

std::u16string String(int32_t count, char16_t unit) {
  if (count < 0) RaiseInvalidCall();
  return std::u16string(static_cast<size_t>(count), unit);
}

// Reverses characters, not units: a surrogate pair stays in order, so the
// reversed text is as well-formed as the original.
std::u16string StrReverse(std::u16string_view text) {
  std::u16string out(text.rbegin(), text.rend());
  for (size_t i = 0; i + 1 < out.size(); ++i) {
    if (U16_IS_TRAIL(out[i]) && U16_IS_LEAD(out[i + 1])) {
      std::swap(out[i], out[i + 1]);
      ++i;
    }
  }
  return out;
}

// --- Character codes ----------------------------------------------------------

int32_t AscW(std::u16string_view text) {
  if (text.empty()) RaiseInvalidCall();
  return text.front();
}

// Codes below 0 are the 16-bit two's complement of the unit: the runtime's
// character codes are signed Integers, so ChrW(-1) is U+FFFF.
std::u16string ChrW(int32_t code) {
  if (code < std::numeric_limits<int16_t>::min() || code > 0xFFFF) RaiseInvalidCall();
  return std::u16string(1, static_cast<char16_t>(code & 0xFFFF));
}

int32_t Asc(std::u16string_view text) {
  if (text.empty()) RaiseInvalidCall();
  const char16_t unit = text.front();
  // A supplementary character is one character outside the code page, not
  // two unpaired surrogates; either way it reads as "?".
  if (U16_IS_LEAD(unit) && text.size() > 1 && U16_IS_TRAIL(text[1])) return '?';
  return AnsiByte(unit).value_or(uint8_t{'?'});
}

std::u16string Chr(int32_t code) {
  if (code < 0 || code > 0xFF) RaiseInvalidCall();
  return std::u16string(1, AnsiChar(static_cast<uint8_t>(code)));
}

// --- StrConv -----------------------------------------------------------------

Value StrConv(const Value& text, int32_t conversion) {
  const int32_t case_conversion = conversion & strconv::kProperCase;
  const int32_t encoding = conversion & ~strconv::kProperCase;
  if (encoding != 0 && encoding != strconv::kUnicode && encoding != strconv::kFromUnicode) {
    RaiseInvalidCall();
  }
  if (text.IsNull()) return Value::Null();
  std::u16string out =
      encoding == strconv::kUnicode ? FromAnsi(BytesToDecode(text)) : TextToConvert(text);
  switch (case_conversion) {
    case strconv::kUpperCase:
      out = UCase(out);
      break;
    case strconv::kLowerCase:
      out = LCase(out);
      break;
    case strconv::kProperCase:
      out = ProperCase(out);
      break;
    default:
      break;
  }
  if (encoding != strconv::kFromUnicode) return Value(out);
  const std::string bytes = ToAnsi(out);
  return Value::ByteArray(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

// --- Value forms --------------------------------------------------------------

Value Len(const Value& value) {
  if (value.IsNull()) return Value::Null();
  return Value(static_cast<int32_t>(TextArgument(value).view().size()));
}

Value detail::AscValue(const Value& text) {
  return Value(static_cast<int16_t>(Asc(TextArgument(text).view())));
}

// The runtime's character codes are signed Integers: units from U+8000 up
// wrap to negative numbers.
Value detail::AscWValue(const Value& text) {
  return Value(static_cast<int16_t>(AscW(TextArgument(text).view())));
}

Value Chr(const Value& code) {
  return Value(Chr(ToLong(code)));
}

Value ChrW(const Value& code) {
  return Value(ChrW(ToLong(code)));
}

Value detail::StrCompValue(const Value& a, const Value& b, CompareMethod mode) {
  if (a.IsNull() || b.IsNull()) return Value::Null();
  return Value(static_cast<int16_t>(StrComp(TextArgument(a).view(), TextArgument(b).view(), mode)));
}

Value detail::LikeValue(const Value& text, const Value& pattern, CompareMethod mode) {
  if (text.IsNull() || pattern.IsNull()) return Value::Null();
  return Value(Like(TextArgument(text).view(), TextArgument(pattern).view(), mode));
}

}  // namespace kestrel::runtime
