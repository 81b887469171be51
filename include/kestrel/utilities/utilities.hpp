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
#include <initializer_list>
#include <span>
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
  // Text is compared in binary unless stated; "character code" is the code
  // in the Windows-1252 code page (Asc / Chr).

  // "0".."9", "A".."F" / "a".."f" as one character give their value; any
  // other text, longer ones and "" included, gives 0.
  int16_t HexToNumber(std::u16string_view i);
  // The hex digits as a decimal text ("FF" gives "255"); non-digits count as
  // 0, "" gives "0", large values use the Double text form. Longer than
  // 32767 characters raises 6.
  std::u16string HexToDec(std::u16string_view bin_val);
  // Appends NUL to `value` (written back: the caller's text grows by one),
  // then its character codes as a Byte array base .. base + Len - 1.
  Value String2ByteArray(std::u16string& value, int32_t base = 0);
  // The characters of the bytes, lower to upper bound, minus the last one:
  // the inverse of String2ByteArray. Never raises; an element that fails is
  // skipped.
  std::u16string ByteArray2String(const Value& value);
  // Each byte's hex text read back as a decimal number (18 gives 12); a hex
  // text with A-F raises 13. Kept so: clients depend on it.
  Value ByteArrayDec2Hex(const Value& value);
  // "d.m.yyyy h:n:s" as a Date; Null unless there are exactly two
  // space-separated parts; a malformed part counts as 0 (day 0 or midnight).
  Value String2Date(std::u16string_view value);
  // Unpadded upper-case hex of each character code: a line feed gives "A".
  std::u16string StringAsHex(std::u16string_view value);
  // Pairs of characters through HexToDec back to characters; an odd last
  // character is ignored. Not the inverse of StringAsHex for codes < 16.
  std::u16string HexAsString(std::u16string_view value);
  // Escapes "/" as "//" and control characters (code < 32) as "/&<hex>/".
  std::u16string ParseIn(std::u16string_view text);
  // Undoes ParseIn: ParseOut(ParseIn(t)) == t for every text. A "/" without
  // a closing "/" raises 5, a code that is not hex 13, a code above 255 5.
  std::u16string ParseOut(std::u16string_view text);
  // Member `member_number` (from 1, trimmed) of a delimited list; "" beyond
  // the last. member_number < 1 raises 5; positions past 32767 raise 6.
  std::u16string ListMember(std::u16string_view list, int16_t member_number,
                            std::u16string_view delimiter = u",");
  // 0 for a blank list, else the delimiter count + 1.
  int32_t ListMemberCount(std::u16string_view list, std::u16string_view delimiter = u",");
  // Trims `member` (written back), then looks for it among the trimmed
  // members. An empty list has one empty member.
  bool IsListMember(std::u16string_view list, std::u16string& member,
                    std::u16string_view delimiter = u",",
                    CompareMethod compare = CompareMethod::kText);
  // Occurrences of string2, overlapping ones included ("aaa" holds "aa"
  // twice); "" counts once per character. More than 32767 raises 6.
  int16_t CountSubstring(std::u16string_view string1, std::u16string_view string2);
  // Whether the text of `value` (trimmed first when trim_value) begins with
  // the text of `source`; "" always does.
  bool StartsWith(const Value& value, const Value& source, bool ignore_case = true,
                  bool trim_value = false);
  // NULs removed, then leading and trailing spaces.
  std::u16string CleanupString(std::u16string_view value);
  // The non-empty texts of elements 0 .. UBound of an array of Values,
  // trimmed when `trim`, joined by `separator`. Index 0 whatever the lower
  // bound: a lower bound above 0 raises 9.
  std::u16string ConcatenateSeparator(std::u16string_view separator, bool trim, const Value& value);
  std::u16string Concatenate(const Value& value);
  // The untrimmed pieces sorted with QuickSort and joined with MakeList.
  std::u16string SortList(std::u16string_view list, std::u16string_view delimiter = u",");
  // Every element's text in storage order (Null and Empty as ""), joined;
  // a non-array gives its own text.
  std::u16string MakeList(const Value& values, std::u16string_view delimiter = u",");
  // "{k}" replaced by the text of values[k].
  std::u16string BuildString(const Value& pattern, std::span<const Value> values);
  // Each "name=value" element replaces name by value; an element without
  // "=" repeats the previous replacement.
  std::u16string BuildString2(const Value& pattern, std::span<const Value> values);
  // Lower-case hex MD5 of the Windows-1252 bytes of the text; "" for "".
  std::u16string MD5(std::u16string_view text);

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
inline int16_t HexToNumber(std::u16string_view i) {
  return Instance().HexToNumber(i);
}
inline std::u16string HexToDec(std::u16string_view v) {
  return Instance().HexToDec(v);
}
inline Value String2ByteArray(std::u16string& v, int32_t base = 0) {
  return Instance().String2ByteArray(v, base);
}
inline std::u16string ByteArray2String(const Value& v) {
  return Instance().ByteArray2String(v);
}
inline Value ByteArrayDec2Hex(const Value& v) {
  return Instance().ByteArrayDec2Hex(v);
}
inline Value String2Date(std::u16string_view v) {
  return Instance().String2Date(v);
}
inline std::u16string StringAsHex(std::u16string_view v) {
  return Instance().StringAsHex(v);
}
inline std::u16string HexAsString(std::u16string_view v) {
  return Instance().HexAsString(v);
}
inline std::u16string ParseIn(std::u16string_view t) {
  return Instance().ParseIn(t);
}
inline std::u16string ParseOut(std::u16string_view t) {
  return Instance().ParseOut(t);
}
inline std::u16string ListMember(std::u16string_view l, int16_t n, std::u16string_view d = u",") {
  return Instance().ListMember(l, n, d);
}
inline int32_t ListMemberCount(std::u16string_view l, std::u16string_view d = u",") {
  return Instance().ListMemberCount(l, d);
}
inline bool IsListMember(std::u16string_view l, std::u16string& m, std::u16string_view d = u",",
                         CompareMethod c = CompareMethod::kText) {
  return Instance().IsListMember(l, m, d, c);
}
inline int16_t CountSubstring(std::u16string_view a, std::u16string_view b) {
  return Instance().CountSubstring(a, b);
}
inline bool StartsWith(const Value& v, const Value& s, bool ignore_case = true,
                       bool trim_value = false) {
  return Instance().StartsWith(v, s, ignore_case, trim_value);
}
inline std::u16string CleanupString(std::u16string_view v) {
  return Instance().CleanupString(v);
}
inline std::u16string ConcatenateSeparator(std::u16string_view sep, bool trim, const Value& v) {
  return Instance().ConcatenateSeparator(sep, trim, v);
}
inline std::u16string Concatenate(const Value& v) {
  return Instance().Concatenate(v);
}
inline std::u16string SortList(std::u16string_view l, std::u16string_view d = u",") {
  return Instance().SortList(l, d);
}
inline std::u16string MakeList(const Value& v, std::u16string_view d = u",") {
  return Instance().MakeList(v, d);
}
inline std::u16string BuildString(const Value& pattern, std::initializer_list<Value> values) {
  return Instance().BuildString(pattern, std::span<const Value>(values.begin(), values.size()));
}
inline std::u16string BuildString2(const Value& pattern, std::initializer_list<Value> values) {
  return Instance().BuildString2(pattern, std::span<const Value>(values.begin(), values.size()));
}
inline std::u16string MD5(std::u16string_view t) {
  return Instance().MD5(t);
}

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
