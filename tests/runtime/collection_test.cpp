#include "kestrel/runtime/collection.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

const Value kMissing = Value::Missing();

// The items as one text, "a b c", through the C++ iteration.
std::u16string Joined(const Collection& c) {
  std::u16string out;
  for (const Value& v : c) out += (out.empty() ? u"" : u" ") + std::u16string(v.string());
  return out;
}

// "a" with key "ka", "b" with key "Straße", "c" without a key.
void Fill(Collection& c) {
  c.Add(Value(u"a"), Value(u"ka"));
  c.Add(Value(u"b"), Value(u"Straße"));
  c.Add(Value(u"c"));
}

// Indexes that select an item of "a b c": positions 1-based, rounded ties
// to even; text is a key, matched without regard to case.
TEST(Collection, Item) {
  Collection c;
  Fill(c);
  const std::pair<Value, const char16_t*> cases[] = {
      {Value(int32_t{1}), u"a"}, {Value(int16_t{3}), u"c"}, {Value(1.5), u"b"},
      {Value(2.5), u"b"},        {Value(0.6f), u"a"},       {Value::Date(3.0), u"c"},
      {Value(int64_t{2}), u"b"}, {Value(u"KA"), u"a"},      {Value(u"STRASSE"), u"b"},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(c.Item(cases[i].first).string(), cases[i].second);
  }
}

// Where Add puts "X" in "a b c", given before or after.
TEST(Collection, AddPositions) {
  struct Case {
    Value before, after;
    const char16_t* order;
  };
  const Case cases[] = {
      {kMissing, kMissing, u"a b c X"},          {Value(int32_t{1}), kMissing, u"X a b c"},
      {Value(int32_t{3}), kMissing, u"a b X c"}, {kMissing, Value(int32_t{3}), u"a b c X"},
      {kMissing, Value(int32_t{1}), u"a X b c"}, {Value(u"strasse"), kMissing, u"a X b c"},
      {kMissing, Value(u"KA"), u"a X b c"},      {Value(2.5), kMissing, u"a X b c"},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(std::string(k.order, k.order + std::char_traits<char16_t>::length(k.order)));
    Collection c;
    Fill(c);
    c.Add(Value(u"X"), Value(u"kx"), k.before, k.after);
    EXPECT_EQ(Joined(c), k.order);
    // Keys still find their items after the shift.
    EXPECT_EQ(c.Item(Value(u"ka")).string(), u"a");
    EXPECT_EQ(c.Item(Value(u"straße")).string(), u"b");
    EXPECT_EQ(c.Item(Value(u"kx")).string(), u"X");
  }
}

// Each operation on "a b c" and the error it raises.
TEST(Collection, Errors) {
  const Value array = Value::VariantArray({Value(int32_t{1})});
  const Value nothing = Value::Nothing(), one(int32_t{1}), zz(u"zz");
  using C = Collection;
  struct Case {
    const char* what;
    std::function<void(C&)> op;
    int32_t number;
  };
  const Case cases[] = {
      {"Item 0", [](C& c) { c.Item(Value(int32_t{0})); }, errors::kSubscriptOutOfRange},
      {"Item 4", [](C& c) { c.Item(Value(int32_t{4})); }, errors::kSubscriptOutOfRange},
      {"Item 3.5 rounds to 4", [](C& c) { c.Item(Value(3.5)); }, errors::kSubscriptOutOfRange},
      {"Item True is -1", [](C& c) { c.Item(Value(true)); }, errors::kSubscriptOutOfRange},
      {"Item beyond Long", [](C& c) { c.Item(Value(1e10)); }, errors::kOverflow},
      {"Item unknown key", [&](C& c) { c.Item(zz); }, errors::kInvalidProcedureCall},
      {"Item numeric text", [](C& c) { c.Item(Value(u"1")); }, errors::kInvalidProcedureCall},
      {"Item Empty", [](C& c) { c.Item(Value()); }, errors::kTypeMismatch},
      {"Item Null", [](C& c) { c.Item(Value::Null()); }, errors::kTypeMismatch},
      {"Item Missing", [](C& c) { c.Item(kMissing); }, errors::kTypeMismatch},
      {"Item Nothing", [&](C& c) { c.Item(nothing); }, errors::kTypeMismatch},
      {"Item array", [&](C& c) { c.Item(array); }, errors::kTypeMismatch},
      {"Add duplicate key", [](C& c) { c.Add(Value(), Value(u"KA")); }, errors::kDuplicateKey},
      {"Add duplicate key before 9", [](C& c) { c.Add(Value(), Value(u"ka"), Value(int32_t{9})); },
       errors::kDuplicateKey},
      {"Add number key", [&](C& c) { c.Add(Value(), one); }, errors::kTypeMismatch},
      {"Add Empty key", [](C& c) { c.Add(Value(), Value()); }, errors::kTypeMismatch},
      {"Add before and after", [&](C& c) { c.Add(Value(), kMissing, one, one); },
       errors::kInvalidProcedureCall},
      {"Add before 0", [](C& c) { c.Add(Value(), kMissing, Value(int32_t{0})); },
       errors::kSubscriptOutOfRange},
      {"Add after 4", [](C& c) { c.Add(Value(), kMissing, kMissing, Value(int32_t{4})); },
       errors::kSubscriptOutOfRange},
      {"Add before unknown key", [&](C& c) { c.Add(Value(), Value(u"new"), zz); },
       errors::kInvalidProcedureCall},
      {"Add after Null", [](C& c) { c.Add(Value(), kMissing, kMissing, Value::Null()); },
       errors::kTypeMismatch},
      {"Remove 4", [](C& c) { c.Remove(Value(int32_t{4})); }, errors::kSubscriptOutOfRange},
      {"Remove unknown key", [&](C& c) { c.Remove(zz); }, errors::kInvalidProcedureCall},
      {"by name: Add, no argument", [](C& c) { CallByName(&c, u"Add", CallKind::kMethod); },
       errors::kWrongArgumentCount},
      {"by name: Item, index omitted",
       [](C& c) { CallByName(&c, u"Item", CallKind::kMethod, {kMissing}); },
       errors::kArgumentNotOptional},
      {"by name: Count let", [&](C& c) { CallByName(&c, u"Count", CallKind::kLet, {one}); },
       errors::kWrongArgumentCount},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.what);
    Ref<C> c = MakeRef<C>();  // CallByName holds a reference while it calls
    Fill(*c);
    EXPECT_RAISES(k.op(*c), k.number);
    EXPECT_EQ(Joined(*c), u"a b c");  // a failed call changes nothing
  }
}

TEST(Collection, RemoveShiftsItemsAndFreesTheKey) {
  Collection c;
  Fill(c);
  Ref<Object> before = c.NewEnum();
  c.Remove(Value(u"KA"));
  EXPECT_EQ(c.Item(Value(int32_t{1})).string(), u"b");
  EXPECT_EQ(c.Item(Value(u"strasse")).string(), u"b");
  c.Remove(Value(int32_t{2}));
  c.Add(Value(u"a"), Value(u"ka"));  // back, at the end
  EXPECT_EQ(Joined(c), u"b a");
  EXPECT_EQ(c.Item(Value(u"ka")).string(), u"a");
  // An enumerator walks the items as they were when it was made.
  Value v;
  auto& e = dynamic_cast<ValueEnumerator&>(*before);
  for (const char16_t* item : {u"a", u"b", u"c"}) {
    ASSERT_TRUE(e.Next(v));
    EXPECT_EQ(v.string(), item);
  }
  EXPECT_FALSE(e.Next(v));
}

TEST(Collection, ByName) {
  Ref<Object> c = CreateObject(u"KESTREL.COLLECTION");
  ASSERT_NE(dynamic_cast<Collection*>(c.get()), nullptr);
  EXPECT_EQ(c->TypeName(), u"Collection");
  CallByName(c, u"add", CallKind::kMethod, {Value(u"a")});
  CallByName(c, u"Add", CallKind::kMethod, {Value(u"b"), Value(u"kb")});
  // An omitted argument in the middle arrives as Missing: after 1.
  CallByName(c, u"Add", CallKind::kMethod, {Value(u"x"), kMissing, kMissing, Value(int32_t{1})});
  EXPECT_EQ(CallByName(c, u"Count", CallKind::kGet).long_value(), 3);
  EXPECT_EQ(CallByName(c, u"Item", CallKind::kGet, {Value(u"KB")}).string(), u"b");
  EXPECT_EQ(CallByName(c, u"Item", CallKind::kMethod, {Value(int32_t{2})}).string(), u"x");
  CallByName(c, u"Remove", CallKind::kMethod, {Value(int32_t{1})});
  EXPECT_EQ(Joined(dynamic_cast<Collection&>(*c)), u"x b");
  EXPECT_NE(dynamic_cast<ValueEnumerator*>(CallByName(c, u"NewEnum", CallKind::kMethod).object()),
            nullptr);
}

// 100,000 keyed items: a key look-up that searched the items would make
// this quadratic. Removing from the end keeps Remove's shifting out of it.
TEST(Collection, ManyKeyedItems) {
  constexpr int32_t kCount = 100000;
  auto key = [](int32_t i, char k) {
    std::string text = k + std::to_string(i);
    return Value(std::u16string(text.begin(), text.end()));
  };
  Collection c;
  for (int32_t i = 0; i < kCount; ++i) c.Add(Value(i), key(i, 'k'));
  for (int32_t i = 0; i < kCount; ++i) {
    ASSERT_EQ(c.Item(key(i, 'K')).long_value(), i);
    ASSERT_EQ(c.Item(Value(i + 1)).long_value(), i);
  }
  for (int32_t i = kCount; i > 0; --i) c.Remove(Value(i));
  EXPECT_EQ(c.Count(), 0);
}

}  // namespace
}  // namespace kestrel
