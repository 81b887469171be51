// Conversions between value kinds, with the macro runtime's rules.
//
// These are the runtime's CStr, CDbl, CSng, CLng, CInt, CByte, CBool and the
// LongLong extension, plus the text form of numbers and dates they rely on.
// Rules that matter:
//   - Null raises 94 (invalid use of Null) in every numeric and text
//     conversion; Empty is 0, "" or False.
//   - A non-integer becomes an integer by rounding to nearest, ties to even
//     (CInt(2.5) = 2, CInt(3.5) = 4); a result outside the target range
//     raises 6 (overflow).
//   - Text is numeric when, after surrounding blanks, it holds an optional
//     sign, digits with an optional "." and exponent (E or D), commas as digit
//     group separators in the integer part, or an "&H" / "&O" prefixed
//     integer literal. Anything else raises 13 (type mismatch).
//   - Objects, arrays and Error-kind values (Missing included) raise 13.
//
// Numbers become text with at most 15 significant digits for Double and 7
// for Single, printed in the shortest form: no trailing zeros, no ".0",
// exponent form ("1E+15", "1.5E-05") when the exponent is 15 or more, or
// below -4, or when the fixed form would need more digits after the point
// than the significant digits allow (1/30 gives "3.33333333333333E-02").
//
// The fixed locale: "." decimal point, "/" date separator, ":" time
// separator, month/day/year order.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::runtime {

// CStr. Dates use DateToText; Boolean gives "True" / "False".
KESTREL_API std::u16string ToText(const Value& value);
// CDbl. Dates give their serial number, Boolean -1 or 0.
KESTREL_API double ToDouble(const Value& value);
// CSng (6 when the magnitude exceeds the Single range).
KESTREL_API float ToSingle(const Value& value);
// CLng (-2147483648 .. 2147483647).
KESTREL_API int32_t ToLong(const Value& value);
// CInt (-32768 .. 32767).
KESTREL_API int16_t ToInteger(const Value& value);
// CByte (0 .. 255).
KESTREL_API uint8_t ToByte(const Value& value);
// The LongLong extension: signed 64-bit, same rounding and errors.
KESTREL_API int64_t ToLongLong(const Value& value);
// CBool: any non-zero number is True; text "True"/"False" (any case) or
// numeric text; other text raises 13.
KESTREL_API bool ToBoolean(const Value& value);
// CVar into a given scalar kind (Empty, Null, Object, Variant and Error kept
// as they are when the target is kVariant). Used for typed array elements
// and typed members reached through late binding.
KESTREL_API Value ConvertTo(const Value& value, Kind target);

// The text form of a Double (15 significant digits) and of a Single (7).
KESTREL_API std::u16string DoubleToText(double value);
KESTREL_API std::u16string SingleToText(float value);
// The default text form of a date serial in the fixed locale: "m/d/yyyy" for
// a date without time, "h:nn:ss AM" for a time on day 0, both joined by a
// space otherwise ("1/2/2024 3:04:05 PM").
KESTREL_API std::u16string DateToText(double serial);

// Strict text to number, as the conversions above read text; nullopt when
// the text is not numeric. Overflowing magnitudes give nullopt too.
KESTREL_API std::optional<double> ParseNumber(std::u16string_view text);
// True for text that ParseNumber accepts, and for numeric kinds and Empty.
KESTREL_API bool IsNumeric(const Value& value);
// Val: the longest numeric prefix after blanks (spaces, tabs, line feeds are
// skipped anywhere in it), 0 when there is none. Never raises.
KESTREL_API double Val(std::u16string_view text);
// Str: like ToText for numbers but with a leading space for non-negative
// values and no "0" before the point (" .5").
KESTREL_API std::u16string Str(const Value& value);

// Round to nearest with ties to even (the integer conversions' rounding).
KESTREL_API double RoundHalfEven(double value) noexcept;
// Int floors and Fix truncates, both keeping the argument's kind (Null stays
// Null; text becomes Double).
KESTREL_API Value Int(const Value& value);
KESTREL_API Value Fix(const Value& value);

// array(subscripts) = value, converting value to the array's element kind
// first (13 or 6 as the conversion raises).
KESTREL_API void AssignElement(Value& array, std::span<const int32_t> subscripts,
                               const Value& value);

}  // namespace kestrel::runtime
