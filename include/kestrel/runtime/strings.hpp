// The runtime's string functions on UTF-16 text.
//
// Positions are 1-based like the runtime's. Lengths and positions that must
// not be negative raise 5 (invalid procedure call). Functions taking a
// CompareMethod compare in binary or text mode exactly as StrComp does.
//
//   using namespace kestrel::runtime;
//   InStr(1, u"Hello", u"L", CompareMethod::kText)   // 3
//   Replace(u"a-b-c", u"-", u"+")                     // u"a+b+c"
#pragma once

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

}  // namespace kestrel::runtime
