// Utilities: the global helper class for values, comparisons, arrays, text
// and lists (Kestrel.Utilities).
//
// One instance per thread serves as the free functions clients call; the
// members call one another through that shared instance (TestValue uses
// Equals, Max uses NEM, ArrayEquals uses ArrayDimMatch and Equals), exactly
// as they would be reached from a client. The free functions in
// kestrel::utilities forward to it. Arguments documented "by reference"
// are written back: Increment stores the sum in its argument, QuickSort
// fills in omitted bounds, CloneArray fills its destination.
//
// Members that trap failures (Equals, IsEmptyArray, DimensionCount,
// ArrayDimMatch, ArrayEquals, IsControlVisible, IsControlEnabled,
// GetWindowsVersionString) never raise; every other member lets the
// runtime's errors through (9, 13, 6, 94 ...). Parameters typed as an array
// of Values (SQuickSort, ReverseOrder, StringArray) or of Strings
// (IsStringElement) take exactly that array kind and raise 13 for anything
// else, as a typed array parameter does. Not thread-safe per object; each
// thread has its own shared instance.
//
//   using namespace kestrel;
//   Value list;                               // Empty
//   utilities::AddToArray(list, Value(5));    // list is now (5), bounds 0..0
//   utilities::Max(Value::Null(), Value(3));  // 3
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

class KESTREL_API Utilities : public Dispatchable<Utilities> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Utilities";

  // --- substitution and comparison --------------------------------------------
  // The chosen argument exactly as it is, kind included; never converted.
  Value Nz(const Value& value, const Value& value_if_null);
  Value Ez(const Value& value, const Value& value_if_empty);
  Value Mz(const Value& value, const Value& value_if_missing);
  Value NEMz(const Value& value, const Value& value_if_null_or_empty_or_missing);
  // Null, Empty or Missing.
  bool NEM(const Value& value);
  // A Null, Empty or Missing side is ignored (the second argument checked
  // first); on a tie the second argument wins.
  Value Max(const Value& value1, const Value& value2);
  Value Min(const Value& value1, const Value& value2);
  // Never raises: any failure is False.
  bool Equals(const Value& x, const Value& y, CompareMethod compare = CompareMethod::kBinary);
  // x - Int(x): never negative (-1.25 gives 0.75). Null gives Null.
  Value FractionalPart(const Value& x);
  // Half away from zero to `decimals` places; 6 for decimals >= 10 or < 0.
  double Round(Value value, int32_t decimals = 0);
  Value ValueOrMissing(const Value& test_value, const Value& missing_value);
  // Its argument, or Missing when omitted.
  Value GetValue(const Value& value = Value::Missing());
  Value MissingValue();
  // value = value + increment_by (runtime arithmetic); returns the sum.
  Value Increment(Value& value, const Value& increment_by = Value(int16_t{1}));
  Value TestValue(const Value& value, const Value& compare_to,
                  const Value& value_when_equals_compare_to);
  // Walk the Parent chain reading Visible / Enabled by name (any object
  // implementing the object interface works). Never raise.
  bool IsControlVisible(const Value& control, const Value& loop_untill = Value::Nothing());
  bool IsControlEnabled(const Value& control, const Value& loop_untill = Value::Nothing());
  // "<product> <version>.<build>" of the running system; "" when any part
  // cannot be read. Never raises. On Linux: product = NAME and version =
  // VERSION_ID from /etc/os-release (the last assignment of each, quotes and
  // backslash escapes removed), build = the kernel release from uname(2):
  // "Ubuntu 22.04.5.15.0-91-generic". A file without NAME or VERSION_ID
  // gives "".
  std::u16string GetWindowsVersionString();

  // --- arrays -------------------------------------------------------------------
  Value AddToArray(Value& value_array, const Value& value, bool unique = false);
  bool ArrayEquals(const Value& array_x, const Value& array_y,
                   CompareMethod compare = CompareMethod::kBinary);
  bool ArrayDimMatch(const Value& array_x, const Value& array_y);
  // Recursive, ascending, not stable, any one-dimensional array. Omitted
  // bounds (Missing) are replaced by dimension 1's and written back. The
  // pivot is the element at (low + high) / 2 rounded half to even.
  void QuickSort(Value& value_array, Value& low, Value& high);
  void QuickSort(Value& value_array);
  // Iterative, ascending, not stable, for arrays of Values; sorts only
  // sort_from .. sort_to. Meant for large arrays: no recursion, no
  // allocation.
  void SQuickSort(Value& value_array, int32_t sort_from, int32_t sort_to);
  // Element i goes to UB - i - LB: the reversal for a lower bound of 0,
  // error 9 for any other lower bound (kept so on purpose).
  Value ReverseOrder(const Value& value_array);
  bool IsEmptyArray(const Value& value_array);
  Value UniqueValueArray(const Value& value_array);
  // Dimension 1 moved to start at new_lbound, as an array of Values; with
  // nothing to move, the array itself.
  Value ReboundArray(const Value& value_array, int32_t new_lbound = 0);
  bool IsElement(const Value& value, const Value& value_array);
  bool IsStringElement(const Value& value, const Value& value_array,
                       CompareMethod compare = CompareMethod::kText);
  // Integer 0 for an empty array, else the Long element count of `dimension`.
  Value ArrayCount(const Value& value_array, int16_t dimension = 1);
  int32_t DimensionCount(const Value& value_array);
  // The texts of elements 0 .. UBound as a String array: index 0 whatever
  // the lower bound (a lower bound above 0 raises 9).
  Value StringArray(const Value& value);
  // destination = a Value-array copy of dimension 1 of source, or an erased
  // (unallocated) array when source has no elements.
  void CloneArray(const Value& source, Value& destination);

  // --- text, lists and conversions (members added with their family) -------------

  static const DispatchTable<Utilities>& Dispatch();

 private:
  // The calling thread's shared instance, through which members call each
  // other.
  static Utilities& Shared() { return GlobalInstance<Utilities>(); }
};

// The members as free functions of the calling thread's shared instance.
namespace utilities {
inline Utilities& Instance() {
  return GlobalInstance<Utilities>();
}

inline Value Nz(const Value& v, const Value& d) {
  return Instance().Nz(v, d);
}
inline Value Ez(const Value& v, const Value& d) {
  return Instance().Ez(v, d);
}
inline Value Mz(const Value& v, const Value& d) {
  return Instance().Mz(v, d);
}
inline Value NEMz(const Value& v, const Value& d) {
  return Instance().NEMz(v, d);
}
inline bool NEM(const Value& v) {
  return Instance().NEM(v);
}
inline Value Max(const Value& a, const Value& b) {
  return Instance().Max(a, b);
}
inline Value Min(const Value& a, const Value& b) {
  return Instance().Min(a, b);
}
inline bool Equals(const Value& x, const Value& y, CompareMethod c = CompareMethod::kBinary) {
  return Instance().Equals(x, y, c);
}
inline Value FractionalPart(const Value& x) {
  return Instance().FractionalPart(x);
}
inline double Round(Value v, int32_t decimals = 0) {
  return Instance().Round(std::move(v), decimals);
}
inline Value ValueOrMissing(const Value& t, const Value& m) {
  return Instance().ValueOrMissing(t, m);
}
inline Value GetValue(const Value& v = Value::Missing()) {
  return Instance().GetValue(v);
}
inline Value MissingValue() {
  return Instance().MissingValue();
}
inline Value Increment(Value& v, const Value& by = Value(int16_t{1})) {
  return Instance().Increment(v, by);
}
inline Value TestValue(const Value& v, const Value& c, const Value& w) {
  return Instance().TestValue(v, c, w);
}
inline bool IsControlVisible(const Value& c, const Value& until = Value::Nothing()) {
  return Instance().IsControlVisible(c, until);
}
inline bool IsControlEnabled(const Value& c, const Value& until = Value::Nothing()) {
  return Instance().IsControlEnabled(c, until);
}
inline std::u16string GetWindowsVersionString() {
  return Instance().GetWindowsVersionString();
}

inline Value AddToArray(Value& a, const Value& v, bool unique = false) {
  return Instance().AddToArray(a, v, unique);
}
inline bool ArrayEquals(const Value& x, const Value& y, CompareMethod c = CompareMethod::kBinary) {
  return Instance().ArrayEquals(x, y, c);
}
inline bool ArrayDimMatch(const Value& x, const Value& y) {
  return Instance().ArrayDimMatch(x, y);
}
inline void QuickSort(Value& a, Value& low, Value& high) {
  Instance().QuickSort(a, low, high);
}
inline void QuickSort(Value& a) {
  Instance().QuickSort(a);
}
inline void SQuickSort(Value& a, int32_t from, int32_t to) {
  Instance().SQuickSort(a, from, to);
}
inline Value ReverseOrder(const Value& a) {
  return Instance().ReverseOrder(a);
}
inline bool IsEmptyArray(const Value& a) {
  return Instance().IsEmptyArray(a);
}
inline Value UniqueValueArray(const Value& a) {
  return Instance().UniqueValueArray(a);
}
inline Value ReboundArray(const Value& a, int32_t lb = 0) {
  return Instance().ReboundArray(a, lb);
}
inline bool IsElement(const Value& v, const Value& a) {
  return Instance().IsElement(v, a);
}
inline bool IsStringElement(const Value& v, const Value& a,
                            CompareMethod c = CompareMethod::kText) {
  return Instance().IsStringElement(v, a, c);
}
inline Value ArrayCount(const Value& a, int16_t dim = 1) {
  return Instance().ArrayCount(a, dim);
}
inline int32_t DimensionCount(const Value& a) {
  return Instance().DimensionCount(a);
}
inline Value StringArray(const Value& v) {
  return Instance().StringArray(v);
}
inline void CloneArray(const Value& s, Value& d) {
  Instance().CloneArray(s, d);
}

// --- text, lists and conversions (added with their family) ---------------------

namespace detail {
// The os-release file GetWindowsVersionString reads, process-wide:
// "/etc/os-release" unless pointed elsewhere (tests use a temporary file).
// Returns the previous path.
KESTREL_API std::string SetOsReleasePath(std::string path);
// "<NAME> <VERSION_ID>.<kernel release>" from the current os-release file and
// uname(2); "" when any of the three cannot be read. Never raises.
KESTREL_API std::u16string OsVersionString() noexcept;
}  // namespace detail
}  // namespace utilities

}  // namespace kestrel
