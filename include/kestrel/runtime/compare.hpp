// Comparison of two values with the runtime's rules, in binary or text mode.
//
//   - numeric kinds (Integer, Long, Single, Double, Date, Boolean, Byte,
//     LongLong) compare by value;
//   - two Strings compare by code unit (binary) or case-insensitively
//     through Unicode case folding (text); trailing blanks count;
//   - a number is always less than a String and never equal to it;
//   - Empty is 0 against a number, "" against a String, equal to Empty;
//   - Null on either side gives Ordering::kNull, which tests as False;
//   - Error-kind values (Missing included), objects and arrays cannot be
//     compared: 13 (type mismatch).
//
//   using kestrel::runtime::Compare;
//   Compare(Value(1), Value(u"1")) == Ordering::kLess
#pragma once

#include <cstdint>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel {

// The compare modes of the runtime. Database mode exists in the runtime's
// numbering and behaves like text.
enum class CompareMethod : int32_t { kBinary = 0, kText = 1, kDatabase = 2 };

enum class Ordering : int8_t { kLess = -1, kEqual = 0, kGreater = 1, kNull = 2 };

namespace runtime {

// Raises 5 for a number that is not a compare mode.
KESTREL_API CompareMethod ToCompareMethod(int32_t mode);

namespace detail {
KESTREL_API Ordering CompareValues(const Value& a, const Value& b, CompareMethod mode);
}  // namespace detail

// Inline for the two cases that dominate sorting (two Doubles; two Strings
// in binary mode); everything else goes to the general rules.
inline Ordering Compare(const Value& a, const Value& b,
                        CompareMethod mode = CompareMethod::kBinary) {
  if (a.code() == b.code()) {
    if (a.code() == uint16_t(Kind::kDouble)) {
      if (a.dbl() < b.dbl()) return Ordering::kLess;
      if (b.dbl() < a.dbl()) return Ordering::kGreater;
      return Ordering::kEqual;
    }
    if (a.code() == uint16_t(Kind::kString) && mode == CompareMethod::kBinary) {
      int c = a.string().compare(b.string());
      return c < 0 ? Ordering::kLess : (c > 0 ? Ordering::kGreater : Ordering::kEqual);
    }
  }
  return detail::CompareValues(a, b, mode);
}

// a < b as a test, the predicate for sorting values (std::sort(v.begin(),
// v.end(), runtime::LessThan{})). Null tests as False, as in Compare.
struct LessThan {
  CompareMethod mode = CompareMethod::kBinary;
  bool operator()(const Value& a, const Value& b) const {
    if (a.code() == b.code()) {
      if (a.code() == uint16_t(Kind::kDouble)) return a.dbl() < b.dbl();
      if (a.code() == uint16_t(Kind::kString) && mode == CompareMethod::kBinary)
        return a.string() < b.string();
    }
    return detail::CompareValues(a, b, mode) == Ordering::kLess;
  }
};

// a = b as a test: True only for kEqual (Null tests as False).
inline bool IsEqual(const Value& a, const Value& b,
                    CompareMethod mode = CompareMethod::kBinary) {
  return Compare(a, b, mode) == Ordering::kEqual;
}

// StrComp on texts: -1, 0 or 1.
KESTREL_API int32_t StrComp(std::u16string_view a, std::u16string_view b,
                            CompareMethod mode = CompareMethod::kBinary);

// The same object (both Nothing counts as the same): the `Is` operator.
KESTREL_API bool IsSameObject(const Value& a, const Value& b);

}  // namespace runtime
}  // namespace kestrel
