#include "kestrel/runtime/dictionary.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

using Texts = std::vector<std::u16string>;

// The enumerated values as text ("?" for other kinds), through NewEnum and
// ValueEnumerator::Next.
Texts Enumerate(Object& o) {
  Ref<Object> e = o.NewEnum();
  auto* values = dynamic_cast<ValueEnumerator*>(e.get());
  EXPECT_NE(values, nullptr);
  Texts out;
  for (Value v; values != nullptr && values->Next(v);)
    out.emplace_back(v.IsString() ? v.string() : u"?");
  return out;
}

// Pairs of keys and whether the dictionary takes them for one key.
TEST(Dictionary, KeyEquality) {
  Ref<Dictionary> obj = MakeRef<Dictionary>(), other = MakeRef<Dictionary>();
  constexpr auto kBin = CompareMethod::kBinary, kText = CompareMethod::kText;
  struct Case {
    const char* what;
    Value a, b;
    CompareMethod mode;
    bool same;
  };
  const Case cases[] = {
      {"Integer / Double", Value(int16_t{1}), Value(1.0), kBin, true},
      {"Byte / LongLong", Value(uint8_t{1}), Value(int64_t{1}), kBin, true},
      {"Single / Double", Value(1.5f), Value(1.5), kBin, true},
      {"-0 / Long 0", Value(-0.0), Value(int32_t{0}), kBin, true},
      {"Date / Double", Value::Date(2.0), Value(2.0), kBin, true},
      {"True / -1", Value(true), Value(int16_t{-1}), kBin, true},
      {"Single 0.1 / Double 0.1", Value(0.1f), Value(0.1), kBin, false},
      {"2^53+1 / 2^53", Value((int64_t{1} << 53) + 1), Value(9007199254740992.0), kBin, false},
      {"text 1 / 1", Value(u"1"), Value(int32_t{1}), kText, false},
      {"\"\" / Empty", Value(u""), Value(), kBin, false},
      {"Empty / Null", Value(), Value::Null(), kBin, false},
      {"Empty / 0", Value(), Value(int32_t{0}), kBin, false},
      {"Null / Null", Value::Null(), Value::Null(), kBin, true},
      {"abc / ABC binary", Value(u"abc"), Value(u"ABC"), kBin, false},
      {"abc / ABC text", Value(u"abc"), Value(u"ABC"), kText, true},
      {"abc / ABC database", Value(u"abc"), Value(u"ABC"), CompareMethod::kDatabase, true},
      {"full folding", Value(u"Straße"), Value(u"STRASSE"), kText, true},
      {"final sigma", Value(u"ΣΑΣ"), Value(u"σας"), kText, true},
      {"é / É binary", Value(u"é"), Value(u"É"), kBin, false},
      {"trailing blank", Value(u"a "), Value(u"a"), kText, false},
      {"same object", Value(obj), Value(obj), kBin, true},
      {"other object", Value(obj), Value(other), kBin, false},
      {"Nothing / Empty", Value::Nothing(), Value(), kBin, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Dictionary d;
    d.SetCompareMode(c.mode);
    d.Add(c.a, Value(int32_t{1}));
    EXPECT_EQ(d.Exists(c.b), c.same);
    if (c.same) {
      EXPECT_RAISES(d.Add(c.b, Value()), errors::kDuplicateKey);
    } else {
      d.Add(c.b, Value());
      EXPECT_EQ(d.Count(), 2);
    }
  }
}

// Each operation on a dictionary holding "a" and "b", and its error.
TEST(Dictionary, Errors) {
  const Value array = Value::VariantArray({Value(int32_t{1})});
  const Value a(u"a"), b(u"b"), zz(u"zz");
  using D = Dictionary;
  struct Case {
    const char* what;
    std::function<void(D&)> op;
    int32_t number;
  };
  const Case cases[] = {
      {"Add existing", [&](D& d) { d.Add(a, Value()); }, errors::kDuplicateKey},
      {"Remove missing", [&](D& d) { d.Remove(zz); }, errors::kElementNotFound},
      {"Key of missing", [&](D& d) { d.SetKey(zz, Value(u"y")); }, errors::kElementNotFound},
      {"Key to existing", [&](D& d) { d.SetKey(a, b); }, errors::kDuplicateKey},
      {"Key to itself", [&](D& d) { d.SetKey(a, a); }, errors::kDuplicateKey},
      {"array key: Add", [&](D& d) { d.Add(array, Value()); }, errors::kTypeMismatch},
      {"array key: Exists", [&](D& d) { d.Exists(array); }, errors::kTypeMismatch},
      {"array key: Item", [&](D& d) { d.Item(array); }, errors::kTypeMismatch},
      {"array key: Key", [&](D& d) { d.SetKey(a, array); }, errors::kTypeMismatch},
      {"Missing key", [&](D& d) { d.SetItem(Value::Missing(), a); }, errors::kTypeMismatch},
      {"error value key", [&](D& d) { d.Remove(Value::ErrorCode(5)); }, errors::kTypeMismatch},
      {"mode while not empty", [&](D& d) { d.SetCompareMode(CompareMethod::kBinary); },
       errors::kInvalidProcedureCall},
      {"by name: Add, one argument", [&](D& d) { CallByName(&d, u"Add", CallKind::kMethod, {a}); },
       errors::kWrongArgumentCount},
      {"by name: Add, key omitted",
       [&](D& d) {
         CallByName(&d, u"Add", CallKind::kMethod, {Value::Missing(), a});
       },
       errors::kArgumentNotOptional},
      {"by name: Key to existing",
       [&](D& d) {
         CallByName(&d, u"Key", CallKind::kLet, {a, b});
       },
       errors::kDuplicateKey},
      {"by name: Key read", [&](D& d) { CallByName(&d, u"Key", CallKind::kGet, {a}); },
       errors::kWrongArgumentCount},
      {"by name: Item set of text",
       [&](D& d) {
         CallByName(&d, u"Item", CallKind::kSet, {a, b});
       },
       errors::kObjectRequired},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Ref<D> d = MakeRef<D>();  // CallByName holds a reference while it calls
    d->Add(a, Value(int32_t{1}));
    d->Add(b, Value(int32_t{2}));
    EXPECT_RAISES(c.op(*d), c.number);
    EXPECT_EQ(Enumerate(*d), (Texts{u"a", u"b"}));  // a failed call changes nothing
  }
}

TEST(Dictionary, DuplicateKeyCarriesTheStandardText) {
  Dictionary d;
  d.Add(Value(u"a"), Value());
  try {
    d.Add(Value(u"a"), Value());
    FAIL() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.description(),
              u"This key is already associated with an element of this collection");
  }
}

TEST(Dictionary, CompareModeIsAModeAndChangesOnlyWhileEmpty) {
  Ref<Dictionary> d = MakeRef<Dictionary>();
  EXPECT_EQ(d->CompareMode(), CompareMethod::kBinary);
  for (int32_t bad : {3, -1}) {
    EXPECT_RAISES(CallByName(d, u"CompareMode", CallKind::kLet, {Value(bad)}),
                  errors::kInvalidProcedureCall);
  }
  CallByName(d, u"CompareMode", CallKind::kLet, {Value(u"1")});
  d->Add(Value(u"a"), Value());
  EXPECT_TRUE(d->Exists(Value(u"A")));
  EXPECT_RAISES(d->SetCompareMode(CompareMethod::kBinary), errors::kInvalidProcedureCall);
  d->Remove(Value(u"A"));
  d->SetCompareMode(CompareMethod::kBinary);
  d->Add(Value(u"a"), Value());
  d->Add(Value(u"b"), Value());
  d->RemoveAll();
  EXPECT_EQ(d->Count(), 0);
  d->SetCompareMode(CompareMethod::kDatabase);
  EXPECT_EQ(CallByName(d, u"CompareMode", CallKind::kGet).long_value(), 2);
}

TEST(Dictionary, ItemAddsMissingKeysAndKeysKeepTheirFirstForm) {
  Dictionary d;
  d.SetCompareMode(CompareMethod::kText);
  EXPECT_TRUE(d.Item(Value(u"Key")).IsEmpty());  // adds "Key"
  EXPECT_EQ(d.Count(), 1);
  d.SetItem(Value(u"KEY"), Value(int32_t{2}));
  d.Add(Value(int16_t{7}), Value(u"seven"));
  d.SetItem(Value(7.0), Value(u"SEVEN"));
  Value keys = d.Keys(), items = d.Items();
  EXPECT_EQ(keys.code(), kArrayFlag | uint16_t(Kind::kVariant));
  EXPECT_EQ(keys.LBound(), 0);
  EXPECT_EQ(keys.UBound(), 1);
  EXPECT_EQ(keys.GetElement({0}).string(), u"Key");
  EXPECT_EQ(keys.GetElement({1}).code(), uint16_t(Kind::kInteger));
  EXPECT_EQ(items.GetElement({0}).long_value(), 2);
  EXPECT_EQ(items.GetElement({1}).string(), u"SEVEN");
  d.RemoveAll();
  for (const Value& empty : {d.Keys(), d.Items()}) {
    EXPECT_EQ(empty.code(), kArrayFlag | uint16_t(Kind::kVariant));
    EXPECT_TRUE(empty.IsAllocated());
    EXPECT_EQ(empty.UBound(), -1);
  }
}

TEST(Dictionary, OrderSurvivesRemoveRenameAndAddAgain) {
  Dictionary d;
  for (const char16_t* k : {u"a", u"b", u"c", u"d"}) d.Add(Value(k), Value(k));
  Ref<Object> before = d.NewEnum();
  d.Remove(Value(u"b"));
  d.Remove(Value(u"a"));
  d.Add(Value(u"a"), Value());
  d.SetKey(Value(u"c"), Value(u"C"));  // renamed in place
  EXPECT_EQ(Enumerate(d), (Texts{u"C", u"d", u"a"}));
  EXPECT_EQ(d.Item(Value(u"C")).string(), u"c");
  EXPECT_FALSE(d.Exists(Value(u"c")));
  // An enumerator walks the keys as they were when it was made.
  Value v;
  auto& e = dynamic_cast<ValueEnumerator&>(*before);
  for (const char16_t* k : {u"a", u"b", u"c", u"d"}) {
    ASSERT_TRUE(e.Next(v));
    EXPECT_EQ(v.string(), k);
  }
  EXPECT_FALSE(e.Next(v));
}

TEST(Dictionary, HoldsObjectKeysAndItemsUntilRemoved) {
  Ref<Dictionary> key = MakeRef<Dictionary>(), item = MakeRef<Dictionary>();
  Dictionary d;
  d.Add(Value(key), Value(item));
  EXPECT_EQ(key->RefCount(), 2);
  EXPECT_EQ(d.Item(Value(key)).object(), item.get());
  d.Remove(Value(key));
  EXPECT_EQ(key->RefCount(), 1);
  EXPECT_EQ(item->RefCount(), 1);
}

// 100,000 keys, removed oldest first while more are added: a removal that
// shifted the entries or rebuilt the index would make this quadratic.
TEST(Dictionary, ManyAddsAndRemoves) {
  constexpr int32_t kCount = 100000;
  Dictionary d;
  for (int32_t i = 0; i < kCount; ++i) d.Add(Value(i), Value(i));
  for (int32_t i = 0; i < kCount; ++i) {
    d.Remove(Value(i));
    d.Add(Value(kCount + i), Value(i));
  }
  ASSERT_EQ(d.Count(), kCount);
  Value keys = d.Keys();
  for (int32_t i = 0; i < kCount; i += 997) {
    EXPECT_EQ(keys.GetElement({i}).long_value(), kCount + i);
    EXPECT_EQ(d.Item(Value(double(kCount + i))).long_value(), i);
    EXPECT_FALSE(d.Exists(Value(i)));
  }
  for (int32_t i = 0; i < kCount; i += 2) d.Remove(Value(kCount + i));
  EXPECT_EQ(d.Keys().GetElement({0}).long_value(), kCount + 1);
  for (int32_t i = kCount - 1; i > 0; i -= 2) d.Remove(Value(kCount + i));
  EXPECT_EQ(d.Count(), 0);
}

TEST(Dictionary, ByName) {
  Ref<Object> d = CreateObject(u"kestrel.dictionary");
  ASSERT_NE(dynamic_cast<Dictionary*>(d.get()), nullptr);
  EXPECT_EQ(d->TypeName(), u"Dictionary");
  Ref<Dictionary> obj = MakeRef<Dictionary>();
  CallByName(d, u"Add", CallKind::kMethod, {Value(u"a"), Value(int32_t{1})});
  CallByName(d, u"item", CallKind::kLet, {Value(u"b"), Value(int32_t{2})});
  CallByName(d, u"Item", CallKind::kLet, {Value(u"a"), Value(int32_t{10})});
  CallByName(d, u"Item", CallKind::kSet, {Value(u"o"), Value(obj)});
  CallByName(d, u"Key", CallKind::kLet, {Value(u"b"), Value(u"B")});
  EXPECT_EQ(CallByName(d, u"Item", CallKind::kGet, {Value(u"a")}).long_value(), 10);
  EXPECT_EQ(CallByName(d, u"Item", CallKind::kGet, {Value(u"o")}).object(), obj.get());
  EXPECT_EQ(CallByName(d, u"Count", CallKind::kGet).long_value(), 3);
  EXPECT_TRUE(CallByName(d, u"Exists", CallKind::kMethod, {Value(u"B")}).boolean());
  EXPECT_EQ(CallByName(d, u"Keys", CallKind::kMethod).GetElement({1}).string(), u"B");
  EXPECT_EQ(CallByName(d, u"Items", CallKind::kGet).GetElement({1}).long_value(), 2);
  CallByName(d, u"Remove", CallKind::kMethod, {Value(u"a")});
  EXPECT_EQ(Enumerate(*d), (Texts{u"B", u"o"}));
  EXPECT_NE(dynamic_cast<ValueEnumerator*>(CallByName(d, u"NewEnum", CallKind::kMethod).object()),
            nullptr);
  CallByName(d, u"RemoveAll", CallKind::kMethod);
  EXPECT_EQ(CallByName(d, u"Count", CallKind::kGet).long_value(), 0);
}

}  // namespace
}  // namespace kestrel
