// Comparison of two values (rule 7 of the value model) and StrComp.
//
// Compare sits on the sort hot path, so the two common cases (both Double,
// both String in binary mode) are decided before anything else with one test
// of the two kind codes each, and no case allocates: text mode folds ASCII
// inline and hands the rest to ICU's on-the-fly case-folding comparison,
// which works on the caller's buffers.

#include "kestrel/runtime/compare.hpp"

#include <unicode/stringoptions.h>
#include <unicode/ustring.h>
#include <unicode/utypes.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kestrel/frame/errors.hpp"

namespace kestrel::runtime {
namespace {

constexpr uint16_t Code(Kind k) { return static_cast<uint16_t>(k); }

template <class T>
Ordering OrderOf(T a, T b) {
  // NaN (only reachable from C++ callers) compares equal to everything
  // rather than breaking strict weak ordering in one direction only.
  if (a < b) return Ordering::kLess;
  if (b < a) return Ordering::kGreater;
  return Ordering::kEqual;
}

Ordering OrderOfInt(int32_t c) {
  return c < 0 ? Ordering::kLess : (c > 0 ? Ordering::kGreater : Ordering::kEqual);
}

Ordering Reverse(Ordering o) {
  switch (o) {
    case Ordering::kLess: return Ordering::kGreater;
    case Ordering::kGreater: return Ordering::kLess;
    default: return o;
  }
}

// Code-unit order: char16_t is unsigned, so char_traits compares the units
// as the unsigned numbers they are (upper case before lower case).
int32_t BinaryCompare(std::u16string_view a, std::u16string_view b) {
  const int c = a.compare(b);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

// Case-insensitive comparison by full Unicode case folding ("ß" = "SS"), in
// code point order of the folded texts. The ASCII prefix is folded inline;
// full case folding works code point by code point, so once both prefixes
// have folded equal the rest decides, and only the rest goes to ICU.
int32_t TextCompare(std::u16string_view a, std::u16string_view b) {
  const size_t n = a.size() < b.size() ? a.size() : b.size();
  size_t i = 0;
  for (; i < n; ++i) {
    char16_t x = a[i];
    char16_t y = b[i];
    if ((x | y) >= 0x80) break;
    if (x == y) continue;
    if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x + 0x20);
    if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y + 0x20);
    if (x != y) return x < y ? -1 : 1;
  }
  if (i == n) {
    // One text is a folded prefix of the other; no code point folds to
    // nothing, so the longer one is greater.
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
  }
  // ICU takes int32 lengths, and -1 would mean NUL-terminated.
  if (a.size() - i > INT32_MAX || b.size() - i > INT32_MAX) {
    RaiseStandard(errors::kInvalidProcedureCall);
  }
  UErrorCode status = U_ZERO_ERROR;
  const int32_t c = u_strCaseCompare(a.data() + i, static_cast<int32_t>(a.size() - i),
                                     b.data() + i, static_cast<int32_t>(b.size() - i),
                                     U_FOLD_CASE_DEFAULT | U_COMPARE_CODE_POINT_ORDER,
                                     &status);
  if (U_FAILURE(status)) RaiseStandard(errors::kInvalidProcedureCall);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int32_t CompareTexts(std::u16string_view a, std::u16string_view b, CompareMethod mode) {
  return mode == CompareMethod::kBinary ? BinaryCompare(a, b) : TextCompare(a, b);
}

// How a kind takes part in a comparison.
enum class Class : uint8_t { kEmpty, kInteger, kReal, kString, kNull, kInvalid };

Class Classify(uint16_t code) {
  switch (static_cast<Kind>(code)) {
    case Kind::kEmpty: return Class::kEmpty;
    case Kind::kNull: return Class::kNull;
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kBoolean:
    case Kind::kByte:
    case Kind::kLongLong: return Class::kInteger;
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kDate: return Class::kReal;
    case Kind::kString: return Class::kString;
    default: return Class::kInvalid;  // Object, Error (Missing), arrays
  }
}

int64_t IntegerOf(const Value& v) {
  switch (v.kind()) {
    case Kind::kInteger:
    case Kind::kBoolean: return v.integer();
    case Kind::kLong: return v.long_value();
    case Kind::kByte: return v.byte();
    case Kind::kLongLong: return v.long_long();
    default: return 0;  // Empty
  }
}

double RealOf(const Value& v) {
  return v.kind() == Kind::kSingle ? static_cast<double>(v.single()) : v.dbl();
}

// An integer against a real, exactly: a LongLong beyond 2^53 must not be
// rounded to the nearest double first.
Ordering CompareIntegerReal(int64_t i, double d) {
  if (d != d) return Ordering::kEqual;  // NaN, see OrderOf
  if (d >= 9223372036854775808.0) return Ordering::kLess;
  if (d < -9223372036854775808.0) return Ordering::kGreater;
  const auto t = static_cast<int64_t>(d);  // truncates; exact for |d| >= 2^52
  if (i != t) return OrderOf(i, t);
  const double frac = d - static_cast<double>(t);  // exact
  return frac > 0 ? Ordering::kLess : (frac < 0 ? Ordering::kGreater : Ordering::kEqual);
}

Ordering CompareSlow(const Value& a, const Value& b, CompareMethod mode) {
  const Class ca = Classify(a.code());
  const Class cb = Classify(b.code());
  // Error kinds, objects and arrays are never comparable, not even with Null.
  if (ca == Class::kInvalid || cb == Class::kInvalid) {
    RaiseStandard(errors::kTypeMismatch);
  }
  if (ca == Class::kNull || cb == Class::kNull) return Ordering::kNull;

  if (ca == Class::kString || cb == Class::kString) {
    if (ca == Class::kString && cb == Class::kString) {
      return OrderOfInt(CompareTexts(a.string(), b.string(), mode));
    }
    // Empty stands for "" against a String.
    if (ca == Class::kEmpty) return b.string().empty() ? Ordering::kEqual : Ordering::kLess;
    if (cb == Class::kEmpty) return a.string().empty() ? Ordering::kEqual : Ordering::kGreater;
    // A number is less than any String and never equal to one.
    return ca == Class::kString ? Ordering::kGreater : Ordering::kLess;
  }

  // Both numeric or Empty (Empty is 0 here).
  const bool ia = ca != Class::kReal;
  const bool ib = cb != Class::kReal;
  if (ia && ib) return OrderOf(IntegerOf(a), IntegerOf(b));
  if (!ia && !ib) return OrderOf(RealOf(a), RealOf(b));
  if (ia) return CompareIntegerReal(IntegerOf(a), RealOf(b));
  return Reverse(CompareIntegerReal(IntegerOf(b), RealOf(a)));
}

}  // namespace

CompareMethod ToCompareMethod(int32_t mode) {
  if (mode < 0 || mode > 2) RaiseStandard(errors::kInvalidProcedureCall);
  return static_cast<CompareMethod>(mode);
}

Ordering detail::CompareValues(const Value& a, const Value& b, CompareMethod mode) {
  const uint16_t code = a.code();
  if (code == b.code()) {
    if (code == Code(Kind::kDouble)) return OrderOf(a.dbl(), b.dbl());
    if (code == Code(Kind::kString)) {
      return OrderOfInt(CompareTexts(a.string(), b.string(), mode));
    }
    if (code == Code(Kind::kLongLong)) return OrderOf(a.long_long(), b.long_long());
  }
  return CompareSlow(a, b, mode);
}

int32_t StrComp(std::u16string_view a, std::u16string_view b, CompareMethod mode) {
  return CompareTexts(a, b, mode);
}

bool IsSameObject(const Value& a, const Value& b) {
  if (!a.IsObject() || !b.IsObject()) RaiseStandard(errors::kObjectRequired);
  return a.object() == b.object();
}

}  // namespace kestrel::runtime
