// Arithmetic on values with the runtime's kind promotion, and the numeric
// functions Abs, Sgn and Round.
//
// The result kind is the wider of the two operands in the order Byte,
// Integer, Long, LongLong, Single, Double (Boolean counts as Integer; Long or
// LongLong with Single gives Double, as Single holds neither exactly). When a
// result leaves its kind's range it is promoted (Byte to Integer, Integer to
// Long, Long and Single to Double) until it fits: Byte 255 * Byte 255 is
// Long 65025. Double and LongLong overflow raise 6. A Date plus or minus a
// number stays a Date (6 outside years 100 to 9999); Date minus Date is a
// Double.
//
// Null on either side gives Null. Empty counts as 0 of the other operand's
// kind (Empty + Byte 7 is Byte 7; Empty + Empty is Integer 0). "+" of two
// Strings concatenates, and Empty + a String is that String; "+" of a String
// and a number converts the String to Double (13 when it is not numeric, ""
// included). "-", "*", "/" convert Strings to Double. "&" always concatenates
// text, Null counting as "". Division by zero raises 11, 0 / 0 raises 6.
//
//   Add(Value(int16_t{32767}), Value(int16_t{1}))  // Long 32768
//   Round(Value(2.675), 2)                          // Double 2.68
#pragma once

#include <cstdint>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::runtime {

KESTREL_API Value Add(const Value& a, const Value& b);       // a + b
KESTREL_API Value Subtract(const Value& a, const Value& b);  // a - b
KESTREL_API Value Multiply(const Value& a, const Value& b);  // a * b
// a / b: Double, or Single when both are Single (or Single with Byte or
// Integer).
KESTREL_API Value Divide(const Value& a, const Value& b);
// a \ b and a Mod b: both operands rounded to integers (ties to even) first;
// the result is Integer, Long or LongLong; Mod takes the sign of a.
KESTREL_API Value IntDivide(const Value& a, const Value& b);
KESTREL_API Value Mod(const Value& a, const Value& b);
// a ^ b: always Double; 5 for a negative base with a fractional exponent and
// for 0 to a negative power.
KESTREL_API Value Power(const Value& a, const Value& b);
// -a: Integer -32768 becomes Long 32768, and so on up.
KESTREL_API Value Negate(const Value& a);
// a & b: Null & Null is Null.
KESTREL_API Value Concat(const Value& a, const Value& b);

// --- numeric functions ---------------------------------------------------------
// Each keeps Null as Null, reads Empty as Integer 0 and numeric text as a
// Double (13 when it is not numeric, "" included), and raises 13 for
// objects, arrays and Error-kind values.

// Abs keeps the argument's kind (Boolean becomes Integer, a Date stays a
// Date); the most negative Integer, Long and LongLong raise 6.
KESTREL_API Value Abs(const Value& number);
// Sgn: Integer -1, 0 or 1.
KESTREL_API Value Sgn(const Value& number);
// Round to `decimals` places (5 when negative, even for Null), half to even
// on the number as its text form writes it rather than on its binary value:
// Round(2.675, 2) is 2.68 although the Double 2.675 lies just below it, and
// Round(2.665, 2) is 2.66, Round(2.5) is 2, Round(-2.5) is -2. The result
// keeps the argument's kind like Int does (integers are returned unchanged,
// Boolean becomes Integer, a Single is read to its 7 digits); not to be
// confused with Utilities.Round, which rounds half away from zero.
KESTREL_API Value Round(const Value& number, int32_t decimals = 0);

}  // namespace kestrel::runtime
