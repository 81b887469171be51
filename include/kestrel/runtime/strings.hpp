// The runtime's string functions on UTF-16 text, the Like operator, and the
// Value forms of the functions that the runtime applies to any value.
//
// Positions are 1-based like the runtime's. Lengths and positions that must
// not be negative raise 5 (invalid procedure call). Functions taking a
// CompareMethod compare in binary or text mode exactly as StrComp does.
//
//   using namespace kestrel::runtime;
//   InStr(1, u"Hello", u"L", CompareMethod::kText)   // 3
//   Replace(u"a-b-c", u"-", u"+")                     // u"a+b+c"
//   Like(u"report-2024.txt", u"report-####.*")        // true
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"

namespace kestrel::runtime {

// Trim family: spaces (U+0020) only; tabs and other blanks stay.
KESTREL_API std::u16string LTrim(std::u16string_view text);
KESTREL_API std::u16string RTrim(std::u16string_view text);
KESTREL_API std::u16string Trim(std::u16string_view text);

// Position of `find` in `text` at or after `start` (>= 1, else 5); 0 when
// absent or when start is beyond the length; `start` itself when `find` is
// empty (and start <= Len + 1).
KESTREL_API int32_t InStr(int32_t start, std::u16string_view text, std::u16string_view find,
                          CompareMethod mode = CompareMethod::kBinary);
// Last position of `find` whose match ends at or before `start`; start -1
// means the end of the text; start 0 or below -1 raises 5.
KESTREL_API int32_t InStrRev(std::u16string_view text, std::u16string_view find,
                             int32_t start = -1, CompareMethod mode = CompareMethod::kBinary);

// Simple (length-preserving) Unicode case mapping.
KESTREL_API std::u16string UCase(std::u16string_view text);
KESTREL_API std::u16string LCase(std::u16string_view text);

// The text from `start` on, with up to `count` (-1 all) matches of `find`
// replaced. An empty `find` returns the text from `start` on unchanged.
// start < 1 or count < -1 raises 5.
KESTREL_API std::u16string Replace(std::u16string_view text, std::u16string_view find,
                                   std::u16string_view replacement, int32_t start = 1,
                                   int32_t count = -1,
                                   CompareMethod mode = CompareMethod::kBinary);

// A 0-based String array. An empty text gives an allocated array with no
// elements (bounds 0 to -1); an empty delimiter gives the whole text as one
// element; limit -1 means no limit, the last element holding the rest.
KESTREL_API Value Split(std::u16string_view text, std::u16string_view delimiter = u" ",
                        int32_t limit = -1, CompareMethod mode = CompareMethod::kBinary);
// Joins a one-dimensional array's elements as text (5 for other values).
KESTREL_API std::u16string Join(const Value& array, std::u16string_view delimiter = u" ");

// Hex and Oct: upper case, no prefix, no padding. The argument is rounded
// to a whole number first (ties to even); negative Integers give 16-bit two's
// complement digits, negative Longs 32-bit, LongLong 64-bit. Null gives
// Null, Empty gives "0"; beyond the Long range a non-LongLong raises 6.
KESTREL_API Value Hex(const Value& number);
KESTREL_API Value Oct(const Value& number);

// Left / Right: at most `length` units (5 when negative). Mid: from `start`
// (>= 1, else 5) up to `length` units (-1 means the rest; below -1 raises 5).
KESTREL_API std::u16string Left(std::u16string_view text, int32_t length);
KESTREL_API std::u16string Right(std::u16string_view text, int32_t length);
KESTREL_API std::u16string Mid(std::u16string_view text, int32_t start, int32_t length = -1);

// Space(n): n spaces. String(n, ch): n copies of ch. Negative n raises 5.
KESTREL_API std::u16string Space(int32_t count);
KESTREL_API std::u16string String(int32_t count, char16_t unit);

KESTREL_API std::u16string StrReverse(std::u16string_view text);

// AscW: the first code unit (5 for empty text). ChrW: the unit for a code
// -32768 .. 65535 (5 otherwise). Asc and Chr use the ANSI code page
// (Windows-1252): Asc of a character outside it is the code of "?".
KESTREL_API int32_t AscW(std::u16string_view text);
KESTREL_API std::u16string ChrW(int32_t code);
KESTREL_API int32_t Asc(std::u16string_view text);
KESTREL_API std::u16string Chr(int32_t code);

// The Like operator: "?" is any one character, "*" any run of characters
// (none included), "#" one digit 0-9, "[list]" one character of the list and
// "[!list]" one character not in it. A list holds characters and ascending
// ranges ("[a-cx-z]"); "!" negates only as its first character, "-" first
// (after any "!") or last is itself, and "*", "?", "#" and "[" inside a list
// are themselves, so "[*]" matches a star. "]" outside a list is itself and
// "[]" matches the empty text. An unclosed "[" or a descending range ("[z-a]")
// raises 93 (invalid pattern string), whatever the text. Text mode ignores
// case, folding each character on its own as the text-mode searches do.
// Characters are UTF-16 code units, as in every string function here.
KESTREL_API bool Like(std::u16string_view text, std::u16string_view pattern,
                      CompareMethod mode = CompareMethod::kBinary);

// The conversion codes of StrConv, which take sums (kUpperCase + kFromUnicode).
namespace strconv {
inline constexpr int32_t kUpperCase = 1;
inline constexpr int32_t kLowerCase = 2;
inline constexpr int32_t kProperCase = 3;
inline constexpr int32_t kUnicode = 64;       // ANSI bytes to text
inline constexpr int32_t kFromUnicode = 128;  // text to ANSI bytes
}  // namespace strconv

// StrConv. Proper case makes the first letter of each word upper case and
// the rest lower case; words are separated by NUL, tab, line feed, vertical
// tab, form feed, carriage return and space only ("o'neil" gives "O'neil").
// kUnicode reads the argument as bytes (a Byte array's bytes; for a String,
// its UTF-16LE bytes, as the runtime's strings hold them) and decodes them as
// Windows-1252 into a String. kFromUnicode returns the Windows-1252 bytes as
// a Byte array. A case conversion applies to the text: after decoding, before
// encoding. Other arguments read as text (a Byte array as UTF-16LE byte
// pairs). kUnicode with kFromUnicode, the East Asian conversions (4, 8, 16,
// 32) and unknown codes raise 5, even for Null; otherwise Null gives Null.
KESTREL_API Value StrConv(const Value& text, int32_t conversion);

// --- Value forms ------------------------------------------------------------
// The runtime's functions applied to any Value. Arguments are read as text
// through CStr (13 for objects, arrays and Error values) and results have the
// runtime's kinds. Where a text form of the same name exists (Asc, AscW,
// StrComp, Like), the Value form is a template that only a Value argument can
// select: a literal or a std::u16string would otherwise convert equally well
// to either form and the call would be ambiguous.

namespace detail {
KESTREL_API Value AscValue(const Value& text);
KESTREL_API Value AscWValue(const Value& text);
KESTREL_API Value StrCompValue(const Value& a, const Value& b, CompareMethod mode);
KESTREL_API Value LikeValue(const Value& text, const Value& pattern, CompareMethod mode);
}  // namespace detail

// Len: the length of the text form as a Long (Empty 0, Integer 123 gives 3,
// True gives 4); Null gives Null.
KESTREL_API Value Len(const Value& value);

// Asc and AscW as Integers: AscW of a unit from U+8000 up is negative, as
// the runtime's Integer holds it (AscW(ChrW(-1)) is -1). Null raises 94, an
// empty text 5.
template <std::same_as<Value> V>
Value Asc(const V& text) {
  return detail::AscValue(text);
}
template <std::same_as<Value> V>
Value AscW(const V& text) {
  return detail::AscWValue(text);
}
// Chr and ChrW as Strings: the code is converted as CLng converts (ties to
// even; Null raises 94), then checked as above: Chr takes 0 .. 255, the
// single-byte code page's range, and ChrW -32768 .. 65535.
KESTREL_API Value Chr(const Value& code);
KESTREL_API Value ChrW(const Value& code);

// StrComp as an Integer -1, 0 or 1; Null when either side is Null.
template <std::same_as<Value> V>
Value StrComp(const V& a, const V& b, CompareMethod mode = CompareMethod::kBinary) {
  return detail::StrCompValue(a, b, mode);
}

// text Like pattern as a Boolean; Null when either side is Null.
template <std::same_as<Value> V>
Value Like(const V& text, const V& pattern, CompareMethod mode = CompareMethod::kBinary) {
  return detail::LikeValue(text, pattern, mode);
}

}  // namespace kestrel::runtime
