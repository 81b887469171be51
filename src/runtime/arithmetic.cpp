// Arithmetic on values with the runtime's kind promotion.
//
// Every operator follows the same steps: objects, arrays and Error-kind
// values raise 13; Null gives Null; then the result kind is chosen from the
// two operand kinds alone, the operation is done exactly (integers in 64
// bits, Single in double precision, which rounds to the same float as float
// arithmetic would) and the result is fitted into the chosen kind, promoted
// one step at a time when it does not fit.

#include "kestrel/runtime/arithmetic.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "detail/significant_digits.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"

namespace kestrel::runtime {
namespace {

// Operand classes, the numeric ones in promotion order. Boolean counts as
// Integer; Empty ranks below Byte so that Empty op x takes x's kind.
enum class Cls : uint8_t {
  kEmpty,
  kByte,
  kInteger,
  kLong,
  kLongLong,
  kSingle,
  kDouble,
  kDate,
  kString,
  kNull,
  kInvalid,  // Object, Error (Missing included), any array
};

Cls Classify(const Value& v) {
  switch (static_cast<Kind>(v.code())) {
    case Kind::kEmpty: return Cls::kEmpty;
    case Kind::kNull: return Cls::kNull;
    case Kind::kByte: return Cls::kByte;
    case Kind::kInteger:
    case Kind::kBoolean: return Cls::kInteger;
    case Kind::kLong: return Cls::kLong;
    case Kind::kLongLong: return Cls::kLongLong;
    case Kind::kSingle: return Cls::kSingle;
    case Kind::kDouble: return Cls::kDouble;
    case Kind::kDate: return Cls::kDate;
    case Kind::kString: return Cls::kString;
    default: return Cls::kInvalid;
  }
}

// The valid Date serials, both bounds exclusive: every moment of 1 January
// 100 (-657434.5 is noon of that day, the fraction counting forward) to the
// end of 31 December 9999.
constexpr double kDayBeforeFirstDate = -657435.0;
constexpr double kEndDate = 2958466.0;

// The smallest magnitude that rounds to infinity as a float (halfway between
// FLT_MAX and 2^128, where the tie goes to 2^128). Tested before converting,
// since converting an out-of-range double to float is undefined.
constexpr double kSingleOverflow = 0x1.ffffffp+127;

[[noreturn]] void TypeMismatch() { RaiseStandard(errors::kTypeMismatch); }
[[noreturn]] void Overflow() { RaiseStandard(errors::kOverflow); }

// A String operand of a numeric operation. "" is not a number (13), whatever
// the conversion makes of it elsewhere.
double StringToDouble(const Value& v) {
  if (v.string().empty()) TypeMismatch();
  return ToDouble(v);
}

int64_t AsInt64(const Value& v) {
  switch (v.kind()) {
    case Kind::kByte: return v.byte();
    case Kind::kInteger:
    case Kind::kBoolean: return v.integer();
    case Kind::kLong: return v.long_value();
    case Kind::kLongLong: return v.long_long();
    default: return 0;  // Empty
  }
}

double AsDouble(const Value& v) {
  switch (v.kind()) {
    case Kind::kSingle: return v.single();
    case Kind::kDouble: return v.dbl();
    case Kind::kDate: return v.date();
    case Kind::kString: return StringToDouble(v);
    default: return static_cast<double>(AsInt64(v));
  }
}

// The first step every binary operator shares: unusable kinds raise 13;
// true when either side is Null, which makes the result Null.
bool Prelude(Cls ca, Cls cb) {
  if (ca == Cls::kInvalid || cb == Cls::kInvalid) TypeMismatch();
  return ca == Cls::kNull || cb == Cls::kNull;
}

Value MakeDate(double serial) {
  if (!(serial > kDayBeforeFirstDate && serial < kEndDate)) Overflow();
  return Value::Date(serial);
}

Value MakeDouble(double r) {
  if (!std::isfinite(r)) Overflow();
  return Value(r);
}

// A Single result (computed in double from Single operands, which rounds to
// the same float), or a Double when it leaves the Single range.
Value MakeSingle(double r) {
  if (std::fabs(r) < kSingleOverflow) return Value(static_cast<float>(r));
  return MakeDouble(r);
}

// An exact integer result of nominal kind Byte, Integer or Long, promoted
// Byte -> Integer -> Long -> Double until it fits.
Value FitInteger(int64_t r, Cls nominal) {
  if (nominal == Cls::kByte && r >= 0 && r <= 255) return Value(static_cast<uint8_t>(r));
  if (nominal <= Cls::kInteger && r >= INT16_MIN && r <= INT16_MAX) {
    return Value(static_cast<int16_t>(r));
  }
  if (r >= INT32_MIN && r <= INT32_MAX) return Value(static_cast<int32_t>(r));
  return Value(static_cast<double>(r));
}

enum class Op : uint8_t { kAdd, kSubtract, kMultiply };

// The result kind of +, - and * for two operands that are numbers, Empty,
// Dates or Strings (Strings counting as Double).
Cls ResultKind(Cls a, Cls b, Op op) {
  if (a == Cls::kDate || b == Cls::kDate) {
    switch (op) {
      case Op::kAdd: return Cls::kDate;
      case Op::kSubtract: return (a == Cls::kDate && b == Cls::kDate) ? Cls::kDouble : Cls::kDate;
      case Op::kMultiply: return Cls::kDouble;
    }
  }
  if (a == Cls::kString || b == Cls::kString) return Cls::kDouble;
  const Cls hi = a > b ? a : b;
  if (hi == Cls::kEmpty) return Cls::kInteger;
  // A Single cannot hold every Long (nor LongLong) exactly: Double instead.
  if (hi == Cls::kSingle && (a == Cls::kLong || b == Cls::kLong || a == Cls::kLongLong ||
                             b == Cls::kLongLong)) {
    return Cls::kDouble;
  }
  return hi;
}

template <class T>
T Apply(Op op, T a, T b) {
  switch (op) {
    case Op::kAdd: return a + b;
    case Op::kSubtract: return a - b;
    case Op::kMultiply: return a * b;
  }
  return T{};
}

Value Arithmetic(const Value& a, const Value& b, Cls ca, Cls cb, Op op) {
  const Cls kind = ResultKind(ca, cb, op);
  switch (kind) {
    case Cls::kByte:
    case Cls::kInteger:
    case Cls::kLong:
      // Operands of at most 32 bits: exact in 64.
      return FitInteger(Apply(op, AsInt64(a), AsInt64(b)), kind);
    case Cls::kLongLong: {
      const int64_t x = AsInt64(a);
      const int64_t y = AsInt64(b);
      int64_t r = 0;
      bool overflow = false;
      switch (op) {
        case Op::kAdd: overflow = __builtin_add_overflow(x, y, &r); break;
        case Op::kSubtract: overflow = __builtin_sub_overflow(x, y, &r); break;
        case Op::kMultiply: overflow = __builtin_mul_overflow(x, y, &r); break;
      }
      if (overflow) Overflow();
      return Value(r);
    }
    case Cls::kSingle: {
      // Operands are Single, Byte, Integer, Boolean or Empty: all exact in
      // float.
      return MakeSingle(Apply(op, AsDouble(a), AsDouble(b)));
    }
    case Cls::kDate: return MakeDate(Apply(op, AsDouble(a), AsDouble(b)));
    default: return MakeDouble(Apply(op, AsDouble(a), AsDouble(b)));
  }
}

// The integer operand kind of \ and Mod.
Cls IntegerOpKind(Cls a, Cls b) {
  if (a == Cls::kLongLong || b == Cls::kLongLong) return Cls::kLongLong;
  if (a <= Cls::kInteger && b <= Cls::kInteger) return Cls::kInteger;
  return Cls::kLong;
}

// An operand of \ or Mod rounded (ties to even) into the operation's kind;
// 6 when it does not fit, 13 for text that is not a number.
int64_t IntegerOperand(const Value& v, Cls c, Cls kind) {
  if (c == Cls::kString && v.string().empty()) TypeMismatch();
  switch (kind) {
    case Cls::kInteger: return AsInt64(v);  // already Byte, Integer, Boolean or Empty
    case Cls::kLong: return ToLong(v);
    default: return ToLongLong(v);
  }
}

// Round's decimal step. The number is written to the digits its text form
// shows (15 significant for a Double, 7 for a Single), and that decimal is
// rounded half to even at `decimals` places, so the tie the reader sees in
// 2.675 is a tie here too, though the Double lies just below it.
template <class Float>
Float RoundDecimal(Float value, int32_t decimals, int significant) {
  // A whole number has nothing to round, and reading one of 16 or more
  // digits through 15 would change it.
  if (std::trunc(value) == value || !std::isfinite(value)) return value;
  detail::Digits written = detail::RoundToDigits(std::fabs(value), significant);
  char* digits = written.digits;
  const int count = written.count;
  int exponent = written.exponent;

  // digits[i] stands for 10^(exponent - i); the last one kept is `last`.
  // With nothing beyond it the written digits are the result as they stand,
  // so Round(0.1 + 0.2, 2) is the Double nearest 0.3.
  const int64_t last = int64_t{exponent} + decimals;
  int kept = count;
  if (last < count - 1) {
    if (last < -1) return 0;  // even the first digit is below half a unit
    const auto next = static_cast<size_t>(last + 1);
    const bool above_half = digits[next] > '5' || (digits[next] == '5' && count > last + 2);
    const bool odd = last >= 0 && (digits[static_cast<size_t>(last)] - '0') % 2 == 1;
    kept = static_cast<int>(last + 1);
    if (above_half || (digits[next] == '5' && odd)) {
      int i = kept - 1;
      while (i >= 0 && digits[i] == '9') digits[i--] = '0';
      if (i >= 0) {
        ++digits[i];
      } else {
        // Every kept digit was a 9 (9.96 to 10.0), or none was kept (0.6
        // to 1): either way the result is one unit of the next place up.
        digits[0] = '1';
        kept = 1;
        ++exponent;
      }
    }
  }
  if (kept == 0) return 0;

  char out[48];
  char* w = out;
  *w++ = digits[0];
  if (kept > 1) *w++ = '.';
  for (int i = 1; i < kept; ++i) *w++ = digits[i];
  *w++ = 'e';
  w = std::to_chars(w, out + sizeof out, exponent).ptr;
  // A number with a fraction is below 2^52, so its rounded digits cannot
  // overflow when they are read back.
  Float result = 0;
  std::from_chars(out, w, result);
  return value < 0 ? -result : result;
}

}  // namespace

Value Add(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  if (ca == Cls::kString || cb == Cls::kString) {
    if (ca == Cls::kString && cb == Cls::kString) {
      const std::u16string_view x = a.string();
      const std::u16string_view y = b.string();
      std::u16string s;
      s.reserve(x.size() + y.size());
      s.append(x).append(y);
      return Value(s);
    }
    // Empty + String is the String itself, not a number.
    if (ca == Cls::kEmpty) return b;
    if (cb == Cls::kEmpty) return a;
  }
  return Arithmetic(a, b, ca, cb, Op::kAdd);
}

Value Subtract(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  return Arithmetic(a, b, ca, cb, Op::kSubtract);
}

Value Multiply(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  return Arithmetic(a, b, ca, cb, Op::kMultiply);
}

Value Divide(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  // Single only when a Single meets nothing wider than an Integer.
  const bool single = (ca == Cls::kSingle || cb == Cls::kSingle) &&
                      (ca <= Cls::kInteger || ca == Cls::kSingle) &&
                      (cb <= Cls::kInteger || cb == Cls::kSingle);
  const double x = AsDouble(a);
  const double y = AsDouble(b);
  if (y == 0) RaiseStandard(x == 0 ? errors::kOverflow : errors::kDivisionByZero);
  const double r = x / y;
  return single ? MakeSingle(r) : MakeDouble(r);
}

Value IntDivide(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  const Cls kind = IntegerOpKind(ca, cb);
  const int64_t x = IntegerOperand(a, ca, kind);
  const int64_t y = IntegerOperand(b, cb, kind);
  if (y == 0) RaiseStandard(errors::kDivisionByZero);
  switch (kind) {
    case Cls::kInteger:
      return FitInteger(x / y, Cls::kInteger);  // -32768 \ -1 becomes Long
    case Cls::kLong: {
      const int64_t q = x / y;
      if (q > INT32_MAX) Overflow();  // only -2147483648 \ -1
      return Value(static_cast<int32_t>(q));
    }
    default:
      if (x == INT64_MIN && y == -1) Overflow();
      return Value(x / y);
  }
}

Value Mod(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  const Cls kind = IntegerOpKind(ca, cb);
  const int64_t x = IntegerOperand(a, ca, kind);
  const int64_t y = IntegerOperand(b, cb, kind);
  if (y == 0) RaiseStandard(errors::kDivisionByZero);
  // C++ % takes the sign of the dividend, as Mod does; INT64_MIN % -1 is
  // undefined in C++ but 0 by definition.
  const int64_t r = (y == -1) ? 0 : x % y;
  switch (kind) {
    case Cls::kInteger: return Value(static_cast<int16_t>(r));
    case Cls::kLong: return Value(static_cast<int32_t>(r));
    default: return Value(r);
  }
}

Value Power(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (Prelude(ca, cb)) return Value::Null();
  const double x = AsDouble(a);
  const double y = AsDouble(b);
  // No real result: a negative base with a fractional exponent, or 0 to a
  // negative power.
  if ((x < 0 && std::trunc(y) != y) || (x == 0 && y < 0)) {
    RaiseStandard(errors::kInvalidProcedureCall);
  }
  return MakeDouble(std::pow(x, y));
}

Value Negate(const Value& a) {
  switch (Classify(a)) {
    case Cls::kInvalid: TypeMismatch();
    case Cls::kNull: return Value::Null();
    case Cls::kEmpty: return Value(int16_t{0});
    case Cls::kByte: return Value(static_cast<int16_t>(-int{a.byte()}));
    case Cls::kInteger: return FitInteger(-int64_t{a.integer()}, Cls::kInteger);
    case Cls::kLong: return FitInteger(-int64_t{a.long_value()}, Cls::kLong);
    case Cls::kLongLong:
      if (a.long_long() == INT64_MIN) Overflow();
      return Value(-a.long_long());
    case Cls::kSingle: return Value(-a.single());
    case Cls::kDouble: return Value(-a.dbl());
    case Cls::kDate: return MakeDate(-a.date());
    case Cls::kString: return Value(-StringToDouble(a));
  }
  TypeMismatch();
}

Value Concat(const Value& a, const Value& b) {
  const Cls ca = Classify(a);
  const Cls cb = Classify(b);
  if (ca == Cls::kInvalid || cb == Cls::kInvalid) TypeMismatch();
  if (ca == Cls::kNull && cb == Cls::kNull) return Value::Null();
  // Strings are appended as they are; other kinds go through their text form.
  std::u16string s;
  if (ca == Cls::kString) {
    s.assign(a.string());
  } else if (ca != Cls::kNull) {
    s = ToText(a);
  }
  if (cb == Cls::kString) {
    s.append(b.string());
  } else if (cb != Cls::kNull) {
    s.append(ToText(b));
  }
  return Value(s);
}

// --- numeric functions ---------------------------------------------------------

Value Abs(const Value& number) {
  switch (Classify(number)) {
    case Cls::kInvalid:
      TypeMismatch();
    case Cls::kNull:
      return Value::Null();
    case Cls::kEmpty:
      return Value(int16_t{0});
    case Cls::kByte:
      return number;
    case Cls::kInteger:  // Boolean too: True gives Integer 1
      if (number.integer() == INT16_MIN) Overflow();
      return Value(static_cast<int16_t>(std::abs(number.integer())));
    case Cls::kLong:
      if (number.long_value() == INT32_MIN) Overflow();
      return Value(std::abs(number.long_value()));
    case Cls::kLongLong:
      if (number.long_long() == INT64_MIN) Overflow();
      return Value(static_cast<int64_t>(std::llabs(number.long_long())));
    case Cls::kSingle:
      return Value(std::fabs(number.single()));
    case Cls::kDouble:
      return Value(std::fabs(number.dbl()));
    case Cls::kDate:
      return MakeDate(std::fabs(number.date()));
    case Cls::kString:
      return Value(std::fabs(StringToDouble(number)));
  }
  TypeMismatch();
}

Value Sgn(const Value& number) {
  const Cls c = Classify(number);
  if (c == Cls::kInvalid) TypeMismatch();
  if (c == Cls::kNull) return Value::Null();
  const double d = AsDouble(number);  // exact enough for a sign, LongLong included
  return Value(static_cast<int16_t>(d > 0 ? 1 : (d < 0 ? -1 : 0)));
}

Value Round(const Value& number, int32_t decimals) {
  if (decimals < 0) RaiseStandard(errors::kInvalidProcedureCall);
  constexpr int kDoubleDigits = 15;
  constexpr int kSingleDigits = 7;
  switch (Classify(number)) {
    case Cls::kInvalid:
      TypeMismatch();
    case Cls::kNull:
      return Value::Null();
    case Cls::kEmpty:
      return Value(int16_t{0});
    case Cls::kByte:
    case Cls::kLong:
    case Cls::kLongLong:
      return number;
    case Cls::kInteger:
      return Value(number.integer());  // Boolean becomes Integer
    case Cls::kSingle:
      return Value(RoundDecimal(number.single(), decimals, kSingleDigits));
    case Cls::kDouble:
      return Value(RoundDecimal(number.dbl(), decimals, kDoubleDigits));
    case Cls::kDate:
      return MakeDate(RoundDecimal(number.date(), decimals, kDoubleDigits));
    case Cls::kString:
      return Value(RoundDecimal(StringToDouble(number), decimals, kDoubleDigits));
  }
  TypeMismatch();
}

}  // namespace kestrel::runtime
