// Late-bound access to Utilities: argument conversion at the boundary, then
// the typed member. Arguments that members write back are passed as the
// caller's own Values.
#include <optional>
#include <string>
#include <utility>

#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel {
namespace {

using U = Utilities;

CompareMethod CompareArg(Args& a, size_t i, CompareMethod fallback) {
  return a.Has(i) ? runtime::ToCompareMethod(a.Long(i)) : fallback;
}

// Equals and ArrayEquals never raise, not even for a compare mode that does
// not convert: nullopt then stands for their False.
std::optional<CompareMethod> TrappedCompareArg(Args& a, size_t i) {
  try {
    return CompareArg(a, i, CompareMethod::kBinary);
  } catch (const RuntimeError&) {
    return std::nullopt;
  }
}

Value Nothing(Args& a, size_t i) {
  return a.Has(i) ? a[i] : Value::Nothing();
}

// An omitted delimiter is the list default ",".
std::u16string Delimiter(Args& a, size_t i) {
  return a.Has(i) ? a.Text(i) : std::u16string(u",");
}

}  // namespace

KESTREL_REGISTER_CLASS(Utilities, Utilities::kQualifiedName, Instancing::kGlobal);

const DispatchTable<Utilities>& Utilities::Dispatch() {
  static const auto table =
      DispatchTable<U>::Builder(u"Utilities")
          .Method(u"Nz", 2, 2, [](U& u, Args& a) { return u.Nz(a[0], a[1]); })
          .Method(u"Ez", 2, 2, [](U& u, Args& a) { return u.Ez(a[0], a[1]); })
          .Method(u"Mz", 2, 2, [](U& u, Args& a) { return u.Mz(a[0], a[1]); })
          .Method(u"NEMz", 2, 2, [](U& u, Args& a) { return u.NEMz(a[0], a[1]); })
          // NEM's argument is optional so that an omitted one tests True.
          .Method(u"NEM", 0, 1, [](U& u, Args& a) { return Value(u.NEM(a[0])); })
          .Method(u"Max", 2, 2, [](U& u, Args& a) { return u.Max(a[0], a[1]); })
          .Method(u"Min", 2, 2, [](U& u, Args& a) { return u.Min(a[0], a[1]); })
          .Method(u"Equals", 2, 3,
                  [](U& u, Args& a) {
                    std::optional<CompareMethod> compare = TrappedCompareArg(a, 2);
                    return Value(compare && u.Equals(a[0], a[1], *compare));
                  })
          .Method(u"FractionalPart", 1, 1, [](U& u, Args& a) { return u.FractionalPart(a[0]); })
          .Method(u"Round", 1, 2,
                  [](U& u, Args& a) {
                    int32_t decimals = a.Has(1) ? a.Long(1) : 0;
                    return Value(u.Round(a[0], decimals));
                  })
          .Method(u"ValueOrMissing", 2, 2,
                  [](U& u, Args& a) { return u.ValueOrMissing(a[0], a[1]); })
          .Method(u"GetValue", 0, 1, [](U& u, Args& a) { return u.GetValue(a[0]); })
          .Method(u"MissingValue", 0, 0, [](U& u, Args&) { return u.MissingValue(); })
          .Method(u"Increment", 1, 2,
                  [](U& u, Args& a) {
                    Value by = a.Has(1) ? a[1] : Value(int16_t{1});
                    return u.Increment(a[0], by);
                  })
          .Method(u"TestValue", 3, 3, [](U& u, Args& a) { return u.TestValue(a[0], a[1], a[2]); })
          .Method(u"IsControlVisible", 1, 2,
                  [](U& u, Args& a) { return Value(u.IsControlVisible(a[0], Nothing(a, 1))); })
          .Method(u"IsControlEnabled", 1, 2,
                  [](U& u, Args& a) { return Value(u.IsControlEnabled(a[0], Nothing(a, 1))); })
          .Method(u"GetWindowsVersionString", 0, 0,
                  [](U& u, Args&) { return Value(u.GetWindowsVersionString()); })
          // --- arrays ---
          .Method(u"AddToArray", 2, 3,
                  [](U& u, Args& a) {
                    bool unique = a.Has(2) && a.Boolean(2);
                    return u.AddToArray(a[0], a[1], unique);
                  })
          .Method(u"ArrayEquals", 2, 3,
                  [](U& u, Args& a) {
                    std::optional<CompareMethod> compare = TrappedCompareArg(a, 2);
                    return Value(compare && u.ArrayEquals(a[0], a[1], *compare));
                  })
          .Method(u"ArrayDimMatch", 2, 2,
                  [](U& u, Args& a) { return Value(u.ArrayDimMatch(a[0], a[1])); })
          .Method(u"QuickSort", 1, 3,
                  [](U& u, Args& a) {
                    u.QuickSort(a[0], a[1], a[2]);
                    return Value();
                  })
          .Method(u"SQuickSort", 3, 3,
                  [](U& u, Args& a) {
                    u.SQuickSort(a[0], a.Long(1), a.Long(2));
                    return Value();
                  })
          .Method(u"ReverseOrder", 1, 1, [](U& u, Args& a) { return u.ReverseOrder(a[0]); })
          .Method(u"IsEmptyArray", 1, 1, [](U& u, Args& a) { return Value(u.IsEmptyArray(a[0])); })
          .Method(u"UniqueValueArray", 1, 1, [](U& u, Args& a) { return u.UniqueValueArray(a[0]); })
          .Method(u"ReboundArray", 1, 2,
                  [](U& u, Args& a) { return u.ReboundArray(a[0], a.Has(1) ? a.Long(1) : 0); })
          .Method(u"IsElement", 2, 2, [](U& u, Args& a) { return Value(u.IsElement(a[0], a[1])); })
          .Method(
              u"IsStringElement", 2, 3,
              [](U& u, Args& a) {
                return Value(u.IsStringElement(a[0], a[1], CompareArg(a, 2, CompareMethod::kText)));
              })
          .Method(u"ArrayCount", 1, 2,
                  [](U& u, Args& a) {
                    return u.ArrayCount(a[0], a.Has(1) ? a.Integer(1) : int16_t{1});
                  })
          .Method(u"DimensionCount", 1, 1,
                  [](U& u, Args& a) { return Value(u.DimensionCount(a[0])); })
          .Method(u"StringArray", 1, 1, [](U& u, Args& a) { return u.StringArray(a[0]); })
          .Method(u"CloneArray", 2, 2,
                  [](U& u, Args& a) {
                    u.CloneArray(a[0], a[1]);
                    return Value();
                  })
          // --- text, lists and conversions ---
          .Method(u"HexToDec", 1, 1, [](U& u, Args& a) { return Value(u.HexToDec(a.Text(0))); })
          .Method(u"HexToNumber", 1, 1,
                  [](U& u, Args& a) { return Value(u.HexToNumber(a.Text(0))); })
          .Method(u"String2ByteArray", 1, 2,
                  [](U& u, Args& a) {
                    std::u16string text = a.Text(0);
                    int32_t base = a.Has(1) ? a.Long(1) : 0;
                    Value bytes = u.String2ByteArray(text, base);
                    a[0] = Value(std::move(text));
                    return bytes;
                  })
          .Method(u"ByteArray2String", 1, 1,
                  [](U& u, Args& a) { return Value(u.ByteArray2String(a[0])); })
          .Method(u"ByteArrayDec2Hex", 1, 1, [](U& u, Args& a) { return u.ByteArrayDec2Hex(a[0]); })
          .Method(u"String2Date", 1, 1, [](U& u, Args& a) { return u.String2Date(a.Text(0)); })
          .Method(u"StringAsHex", 1, 1,
                  [](U& u, Args& a) { return Value(u.StringAsHex(a.Text(0))); })
          .Method(u"HexAsString", 1, 1,
                  [](U& u, Args& a) { return Value(u.HexAsString(a.Text(0))); })
          .Method(u"ParseIn", 1, 1, [](U& u, Args& a) { return Value(u.ParseIn(a.Text(0))); })
          .Method(u"ParseOut", 1, 1, [](U& u, Args& a) { return Value(u.ParseOut(a.Text(0))); })
          .Method(u"ListMember", 2, 3,
                  [](U& u, Args& a) {
                    return Value(u.ListMember(a.Text(0), a.Integer(1), Delimiter(a, 2)));
                  })
          .Method(
              u"ListMemberCount", 1, 2,
              [](U& u, Args& a) { return Value(u.ListMemberCount(a.Text(0), Delimiter(a, 1))); })
          .Method(u"IsListMember", 2, 4,
                  [](U& u, Args& a) {
                    std::u16string member = a.Text(1);
                    bool found = u.IsListMember(a.Text(0), member, Delimiter(a, 2),
                                                CompareArg(a, 3, CompareMethod::kText));
                    a[1] = Value(std::move(member));
                    return Value(found);
                  })
          .Method(u"CountSubstring", 2, 2,
                  [](U& u, Args& a) { return Value(u.CountSubstring(a.Text(0), a.Text(1))); })
          .Method(u"StartsWith", 2, 4,
                  [](U& u, Args& a) {
                    bool ignore_case = !a.Has(2) || a.Boolean(2);
                    bool trim_value = a.Has(3) && a.Boolean(3);
                    return Value(u.StartsWith(a[0], a[1], ignore_case, trim_value));
                  })
          .Method(u"CleanupString", 1, 1,
                  [](U& u, Args& a) { return Value(u.CleanupString(a.Text(0))); })
          .Method(u"ConcatenateSeparator", 3, 3,
                  [](U& u, Args& a) {
                    return Value(u.ConcatenateSeparator(a.Text(0), a.Boolean(1), a[2]));
                  })
          .Method(u"Concatenate", 1, 1, [](U& u, Args& a) { return Value(u.Concatenate(a[0])); })
          .Method(u"SortList", 1, 2,
                  [](U& u, Args& a) { return Value(u.SortList(a.Text(0), Delimiter(a, 1))); })
          .Method(u"MakeList", 1, 2,
                  [](U& u, Args& a) { return Value(u.MakeList(a[0], Delimiter(a, 1))); })
          .Method(u"BuildString", 1, kParamArray,
                  [](U& u, Args& a) { return Value(u.BuildString(a[0], a.Rest(1))); })
          .Method(u"BuildString2", 1, kParamArray,
                  [](U& u, Args& a) { return Value(u.BuildString2(a[0], a.Rest(1))); })
          .Method(u"MD5", 1, 1, [](U& u, Args& a) { return Value(u.MD5(a.Text(0))); })
          .Build();
  return table;
}

}  // namespace kestrel
