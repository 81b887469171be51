#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

namespace u = utilities;

Value Arr(std::initializer_list<Value> items, int32_t lower = 0) {
  return Value::VariantArray(items, lower);
}

// "lower..upper:e1,e2,..." for a one-dimensional array; Null shows as "#".
std::string Dump(const Value& a) {
  if (!a.IsAllocated()) return "unallocated";
  std::string s = std::to_string(a.LBound()) + ".." + std::to_string(a.UBound()) + ":";
  for (size_t i = 0; i < a.ElementCount(); ++i) {
    Value e = a.ElementAt(i);
    s += (i ? "," : "") + (e.IsNull() ? std::string("#") : ToUtf8(runtime::ToText(e)));
  }
  return s;
}

// The kind codes of the elements, to tell equal values of different kinds apart.
std::vector<int> Kinds(const Value& a) {
  std::vector<int> kinds;
  for (const Value& e : a.Elements()) kinds.push_back(e.code());
  return kinds;
}

TEST(Utilities, AddToArrayGrowsAtTheTop) {
  Value list;
  EXPECT_EQ(Dump(u::AddToArray(list, Value(5))), "0..0:5");
  u::AddToArray(list, Arr({Value(1), Value(2)}));
  EXPECT_EQ(Dump(u::AddToArray(list, Value(2.0), true)), "0..2:5,1,2");
  EXPECT_EQ(Dump(u::AddToArray(list, list)), "0..5:5,1,2,5,1,2");

  Value based = Arr({Value(u"a")}, 1);
  EXPECT_EQ(Dump(u::AddToArray(based, Value(u"b"))), "1..2:a,b");

  // Objects match by identity only.
  Ref<Object> a = CreateObject(u"Kestrel.Error"), b = CreateObject(u"Kestrel.Error");
  Value objects;
  for (const Ref<Object>& o : {a, a, b}) u::AddToArray(objects, Value(o), true);
  EXPECT_EQ(objects.UBound(), 1);
}

TEST(Utilities, ShapeAndSearchMembers) {
  const Value unallocated = Value::UnallocatedArray(Kind::kVariant);
  const Value one_to_three = Arr({Value(1), Value(2), Value(3)}, 1);
  const Value empty = Value::NewArray(Kind::kVariant, {{0, -1}});
  for (const Value& v : {Value(3), empty, unallocated}) EXPECT_TRUE(u::IsEmptyArray(v));
  EXPECT_FALSE(u::IsEmptyArray(Arr({Value()})));

  EXPECT_EQ(u::ArrayCount(unallocated).code(), uint16_t(Kind::kInteger));
  EXPECT_EQ(u::ArrayCount(one_to_three).code(), uint16_t(Kind::kLong));
  EXPECT_EQ(u::ArrayCount(Value::NewArray(Kind::kVariant, {{0, 1}, {0, 2}}), 2).long_value(), 3);
  EXPECT_RAISES(u::ArrayCount(one_to_three, 2), errors::kSubscriptOutOfRange);

  // Only ArrayX's dimension count is looked at.
  const Value line = Value::NewArray(Kind::kVariant, {{0, 2}});
  const Value wide = Value::NewArray(Kind::kVariant, {{0, 2}, {0, 1}});
  EXPECT_TRUE(u::ArrayDimMatch(line, wide));
  EXPECT_FALSE(u::ArrayDimMatch(wide, line));
  EXPECT_TRUE(u::ArrayDimMatch(unallocated, Value::UnallocatedArray(Kind::kString)));
  EXPECT_FALSE(u::ArrayDimMatch(line, one_to_three));
  // Matching first dimension but no elements on the Y side: False, no error.
  EXPECT_FALSE(u::ArrayEquals(line, Value::NewArray(Kind::kVariant, {{0, 2}, {0, -1}})));

  Value strings = Value::NewArray(Kind::kString, {{0, 1}});
  strings.SetElement({1}, Value(u"ABC"));
  EXPECT_TRUE(u::IsStringElement(Value(u"abc"), strings));
  EXPECT_FALSE(u::IsStringElement(Value(u"abc"), strings, CompareMethod::kBinary));
  EXPECT_FALSE(u::IsElement(Value(u"abc"), strings));
  EXPECT_TRUE(u::IsElement(Value(2.0), Arr({Value::Null(), Value(2)})));
  EXPECT_RAISES(u::IsStringElement(Value(u"a"), Arr({Value(u"a")})), errors::kTypeMismatch);
}

TEST(Utilities, QuickSortInPlace) {
  Value a = Arr({Value(u"b"), Value(10), Value(u"a"), Value(2.5), Value(u"B")}, 1);
  u::QuickSort(a);
  EXPECT_EQ(Dump(a), "1..5:2.5,10,B,a,b");

  // The pivot of 0..3 is element 2 (1.5 rounds to even): which of the two
  // equal 2s ends first follows from that choice.
  a = Arr({Value(1), Value(3), Value(2), Value(2.0)});
  u::QuickSort(a);
  EXPECT_EQ(Kinds(a), (std::vector<int>{3, 5, 3, 3}));

  Value part = Arr({Value(9), Value(8), Value(7), Value(6)});
  Value low(1), high(2);
  u::QuickSort(part, low, high);
  EXPECT_EQ(Dump(part), "0..3:9,7,8,6");
  high = Value(4);
  EXPECT_RAISES(u::QuickSort(part, low, high), errors::kSubscriptOutOfRange);
  Value grid = Value::NewArray(Kind::kVariant, {{0, 1}, {0, 1}});
  EXPECT_RAISES(u::QuickSort(grid), errors::kSubscriptOutOfRange);
  Value bytes = Value::ByteArray(std::vector<uint8_t>{3, 1, 2});
  u::QuickSort(bytes);
  EXPECT_EQ(Dump(bytes), "0..2:1,2,3");
}

TEST(Utilities, SQuickSortFollowsItsPartitionScheme) {
  Value a = Arr({Value(5), Value(4), Value(3), Value(2), Value(1)});
  u::SQuickSort(a, 1, 3);
  EXPECT_EQ(Dump(a), "0..4:5,2,3,4,1");
  // Equal keys of different kinds show the exact swaps: the middle element
  // is the pivot, moved to the front and then to its place.
  a = Arr({Value(int16_t{2}), Value(uint8_t{1}), Value(2), Value(1.0f), Value(2.0)});
  u::SQuickSort(a, 0, 4);
  EXPECT_EQ(Kinds(a), (std::vector<int>{4, 17, 5, 3, 2}));
  // The same moves when every element is a Double (0 and -0 are equal).
  a = Arr({Value(0.0), Value(-1.0), Value(-0.0), Value(-1.0), Value(0.0)});
  u::SQuickSort(a, 0, 4);
  EXPECT_EQ(Dump(a), "0..4:-1,-1,0,0,0");
  EXPECT_TRUE(std::signbit(a.ElementAt(3).dbl()));
  EXPECT_FALSE(std::signbit(a.ElementAt(2).dbl()) || std::signbit(a.ElementAt(4).dbl()));
  a = Arr({Value(u"b"), Value(u"B"), Value(u"a"), Value(u"")});
  u::SQuickSort(a, 0, 3);
  EXPECT_EQ(Dump(a), "0..3:,B,a,b");

  std::mt19937 rng(1);
  std::vector<Value> items;
  for (int i = 0; i < 5000; ++i) items.emplace_back(double(rng() % 1000));
  Value big = Value::VariantArray(items, -7);
  u::SQuickSort(big, -7, 4992);
  EXPECT_TRUE(std::ranges::is_sorted(big.Elements(), {}, &Value::dbl));

  EXPECT_RAISES(u::SQuickSort(a, 0, 5), errors::kSubscriptOutOfRange);
  u::SQuickSort(a, 9, 5);  // nothing to read
  Value strings = Value::NewArray(Kind::kString, {{0, 1}});
  EXPECT_RAISES(u::SQuickSort(strings, 0, 1), errors::kTypeMismatch);
}

TEST(Utilities, ReshapingMembers) {
  const Value abc = Arr({Value(u"a"), Value(u"b"), Value(u"c")});
  const Value abc_from_1 = u::ReboundArray(abc, 1);
  EXPECT_EQ(Dump(abc_from_1), "1..3:a,b,c");
  EXPECT_EQ(Dump(u::ReverseOrder(abc)), "0..2:c,b,a");
  EXPECT_RAISES(u::ReverseOrder(abc_from_1), errors::kSubscriptOutOfRange);
  EXPECT_EQ(Dump(u::ReverseOrder(Value::UnallocatedArray(Kind::kVariant))), "0..-1:");

  EXPECT_EQ(Dump(u::UniqueValueArray(Arr({Value(1), Value(2), Value(1.0), Value(), Value(3)}))),
            "0..2:1,2,3");
  EXPECT_EQ(Dump(u::UniqueValueArray(Arr({Value::Null(), Value::Null()}, 4))), "0..1:#,#");

  EXPECT_EQ(Dump(u::ReboundArray(Value(7), 1)), "0..-1:");

  EXPECT_EQ(Dump(u::StringArray(Arr({Value(1), Value(2.5), Value(true)}))), "0..2:1,2.5,True");
  EXPECT_EQ(u::StringArray(Arr({Value(1)}, -1)).code(), kArrayFlag | uint16_t(Kind::kString));
  EXPECT_FALSE(u::StringArray(Arr({Value(1)}, -1)).IsAllocated());
  EXPECT_RAISES(u::StringArray(abc_from_1), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(u::StringArray(Arr({Value::Null()})), errors::kInvalidUseOfNull);

  Value copy(5);
  u::CloneArray(Value::NewArray(Kind::kString, {{2, 3}}), copy);
  EXPECT_EQ(copy.code(), kArrayFlag | uint16_t(Kind::kVariant));
  EXPECT_EQ(Dump(copy), "2..3:,");
  u::CloneArray(Value::NewArray(Kind::kLong, {{0, -1}}), copy);
  EXPECT_EQ(Dump(copy), "unallocated");
  EXPECT_RAISES(u::CloneArray(Value(1), copy), errors::kTypeMismatch);
}

// Late-bound calls see the by-reference write-backs.
TEST(Utilities, DispatchWritesBackByReference) {
  Utilities& shared = GlobalInstance<Utilities>();
  Value args[3] = {Value(int16_t{32767})};
  CallByName(&shared, u"increment", CallKind::kMethod, std::span<Value>(args, 1));
  EXPECT_EQ(args[0].code(), uint16_t(Kind::kLong));

  // An omitted Low before a passed High receives the lower bound.
  args[0] = Arr({Value(2), Value(1), Value(0)}, 3);
  args[1] = Value::Missing();
  args[2] = Value(4);
  CallByName(&shared, u"QuickSort", CallKind::kMethod, args);
  EXPECT_EQ(Dump(args[0]), "3..5:1,2,0");
  EXPECT_EQ(args[1].code(), uint16_t(Kind::kLong));
  EXPECT_EQ(args[1].long_value(), 3);
  // Both bounds passed as Missing: both receive dimension 1's bounds.
  args[1] = args[2] = Value::Missing();
  CallByName(&shared, u"QuickSort", CallKind::kMethod, args);
  EXPECT_EQ(Dump(args[0]), "3..5:0,1,2");
  EXPECT_EQ(args[1].long_value(), 3);
  EXPECT_EQ(args[2].long_value(), 5);

  args[0] = Arr({Value(u"x")}, 1);
  CallByName(&shared, u"CloneArray", CallKind::kMethod, std::span<Value>(args, 2));
  EXPECT_EQ(Dump(args[1]), "1..1:x");

  EXPECT_TRUE(CallByName(&shared, u"NEM", CallKind::kMethod).boolean());
  EXPECT_FALSE(
      CallByName(&shared, u"Equals", CallKind::kMethod, {Value(1), Value(1), Value(7)}).boolean());
}

// A Missing passed explicitly reaches a Value parameter by name exactly as it
// does from C++; a parameter of a fixed kind refuses it with 449.
TEST(Utilities, ExplicitMissingByName) {
  Utilities& shared = GlobalInstance<Utilities>();
  const Value missing = Value::Missing();
  const std::tuple<std::u16string_view, std::vector<Value>, Value> cases[] = {
      {u"Mz", {missing, Value(5)}, Value(5)},
      {u"Max", {missing, Value(3)}, Value(3)},
      {u"Min", {Value(3), missing}, Value(3)},
      {u"NEMz", {missing, Value(u"d")}, Value(u"d")},
      {u"Equals", {missing, Value(1)}, Value(false)},
      {u"IsEmptyArray", {missing}, Value(true)},
      {u"GetValue", {missing}, missing}};
  for (auto [member, args, expected] : cases) {
    SCOPED_TRACE(ToUtf8(member));
    const Value got = CallByName(&shared, member, CallKind::kMethod, std::span<Value>(args));
    EXPECT_EQ(got.code(), expected.code());
    EXPECT_TRUE(shared.Equals(got, expected) || (got.IsMissing() && expected.IsMissing()));
  }
  EXPECT_RAISES(CallByName(&shared, u"HexToDec", CallKind::kMethod, {missing}),
                errors::kArgumentNotOptional);
  EXPECT_RAISES(CallByName(&shared, u"Mz", CallKind::kMethod, {missing}),
                errors::kArgumentNotOptional);
}

}  // namespace
}  // namespace kestrel
