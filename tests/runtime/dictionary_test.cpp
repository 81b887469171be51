#include "kestrel/runtime/dictionary.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

using Texts = std::vector<std::u16string>;

// The texts an enumerator yields.
Texts Walk(const Ref<Object>& e) {
  Texts out;
  Value v;
  for (auto& values = dynamic_cast<Enumerator&>(*e); values.Next(v);) out.emplace_back(v.string());
  return out;
}

// Pairs of keys and whether the dictionary takes them for one key.
TEST(Dictionary, KeyEquality) {
  Ref<Dictionary> obj = MakeRef<Dictionary>(), other = MakeRef<Dictionary>();
  constexpr auto kBin = CompareMethod::kBinary, kText = CompareMethod::kText;
  const std::tuple<const char*, Value, Value, CompareMethod, bool> cases[] = {
      {"Integer / Double", Value(int16_t{1}), Value(1.0), kBin, true},
      {"-0 / Long 0", Value(-0.0), Value(int32_t{0}), kBin, true},
      {"Date / Double", Value::Date(2.0), Value(2.0), kBin, true},
      {"True / -1", Value(true), Value(int16_t{-1}), kBin, true},
      {"Single 0.1 / Double 0.1", Value(0.1f), Value(0.1), kBin, false},
      {"2^53+1 / 2^53", Value((int64_t{1} << 53) + 1), Value(9007199254740992.0), kBin, false},
      {"text 1 / 1", Value(u"1"), Value(int32_t{1}), kText, false},
      {"\"\" / Empty", Value(u""), Value(), kBin, false},
      {"Empty / Null", Value(), Value::Null(), kBin, false},
      {"abc / ABC database", Value(u"abc"), Value(u"ABC"), CompareMethod::kDatabase, true},
      {"full folding", Value(u"Straße"), Value(u"STRASSE"), kText, true},
      {"Kelvin sign / k", Value(u"\u212A"), Value(u"k"), kText, true},
      {"k / Kelvin sign", Value(u"k"), Value(u"\u212A"), kText, true},
      {"Kelvin sign / k binary", Value(u"\u212A"), Value(u"k"), kBin, false},
      {"other object", Value(obj), Value(other), kBin, false},
  };
  for (const auto& [what, a, b, mode, same] : cases) {
    SCOPED_TRACE(what);
    Dictionary d;
    d.SetCompareMode(mode);
    d.Add(a, Value());
    EXPECT_EQ(d.Exists(b), same);
    d.SetItem(b, Value());
    EXPECT_EQ(d.Count(), same ? 1 : 2);
  }
}

// Each operation on a dictionary holding "a" and "b", and its error.
TEST(Dictionary, Errors) {
  const Value array = Value::VariantArray({Value(int32_t{1})});
  const Value a(u"a"), b(u"b"), zz(u"zz");
  Value set_text[] = {a, b};  // d("a") = "b" as a Set statement
  using D = Dictionary;
  using enum CallKind;
  using enum CompareMethod;
  using namespace errors;
  const std::tuple<const char*, std::function<void(D&)>, int32_t> cases[] = {
      {"Add existing", [&](D& d) { d.Add(a, Value()); }, kDuplicateKey},
      {"Remove missing", [&](D& d) { d.Remove(zz); }, kElementNotFound},
      {"Key of missing", [&](D& d) { d.SetKey(zz, Value(u"y")); }, kElementNotFound},
      {"Key to itself", [&](D& d) { d.SetKey(a, a); }, kDuplicateKey},
      {"array key: Add", [&](D& d) { d.Add(array, Value()); }, kTypeMismatch},
      {"Missing key", [&](D& d) { d.SetItem(Value::Missing(), a); }, kTypeMismatch},
      {"mode while not empty", [](D& d) { d.SetCompareMode(kBinary); }, kInvalidProcedureCall},
      {"Key read", [&](D& d) { CallByName(&d, u"Key", kGet, {a}); }, kWrongArgumentCount},
      {"Item Set of text", [&](D& d) { CallByName(&d, u"Item", kSet, set_text); }, kObjectRequired},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::get<0>(c));
    const auto& op = std::get<1>(c);  // a lambda cannot capture a binding in Clang 14
    const int32_t number = std::get<2>(c);
    Ref<D> d = MakeRef<D>();  // CallByName holds a reference while it calls
    d->Add(a, Value(int32_t{1}));
    d->Add(b, Value(int32_t{2}));
    EXPECT_RAISES(op(*d), number);
    EXPECT_EQ(Walk(d->NewEnum()), (Texts{u"a", u"b"}));  // a failed call changes nothing
  }
  EXPECT_EQ(StandardErrorText(errors::kDuplicateKey),
            u"This key is already associated with an element of this collection");
  EXPECT_RAISES(D::WithRoom(2, -2), kInvalidProcedureCall);
}

TEST(Dictionary, ItemAddsMissingKeysAndKeysKeepTheirFirstForm) {
  Dictionary d;
  d.SetCompareMode(CompareMethod::kText);
  EXPECT_TRUE(d.Item(Value(u"Key")).IsEmpty());  // adds "Key"
  d.SetItem(Value(u"KEY"), Value(int32_t{2}));
  d.Add(Value(int16_t{7}), Value(u"seven"));
  d.SetItem(Value(7.0), Value(u"SEVEN"));
  Value keys = d.Keys();
  EXPECT_EQ(keys.code(), kArrayFlag | uint16_t(Kind::kVariant));
  EXPECT_EQ(keys.UBound(), 1);
  EXPECT_EQ(keys.GetElement({0}).string(), u"Key");
  EXPECT_EQ(keys.GetElement({1}).code(), uint16_t(Kind::kInteger));
  EXPECT_EQ(d.Items().GetElement({0}).long_value(), 2);
  d.RemoveAll();
  for (const Value& empty : {d.Keys(), d.Items()}) EXPECT_EQ(empty.UBound(), -1);
}

TEST(Dictionary, OrderSurvivesRemoveRenameAndAddAgain) {
  Ref<Dictionary> obj = MakeRef<Dictionary>();
  Dictionary d;
  for (const char16_t* k : {u"a", u"b", u"c", u"d"}) d.Add(Value(k), Value(k));
  Ref<Object> before = d.NewEnum();
  d.Add(Value(obj), Value(obj));  // held, as key and as item, until removed
  EXPECT_EQ(obj->RefCount(), 3);
  d.Remove(Value(obj));
  EXPECT_EQ(obj->RefCount(), 1);
  d.Remove(Value(u"b"));
  d.Remove(Value(u"a"));
  d.Add(Value(u"a"), Value());
  d.SetKey(Value(u"c"), Value(u"C"));  // renamed in place
  EXPECT_EQ(Walk(d.NewEnum()), (Texts{u"C", u"d", u"a"}));
  EXPECT_EQ(d.Item(Value(u"C")).string(), u"c");
  EXPECT_FALSE(d.Exists(Value(u"c")));
  // An enumerator walks the dictionary as it is, not as it was when made.
  EXPECT_EQ(Walk(before), (Texts{u"C", u"d", u"a"}));
}

// Enumeration is live: each case starts from keys a, b, c, takes `first`
// keys, changes the dictionary (remove b, add d, or remove all and add d),
// optionally resets, and walks the rest.
TEST(Dictionary, LiveEnumeration) {
  enum Change { kRemoveB, kAddD, kClearAddD };
  const std::tuple<const char*, int, Change, bool, Texts> cases[] = {
      // clang-format off
      {"reset after Remove", 1, kRemoveB, true, {u"a", u"c"}},
      {"Remove ahead is skipped", 1, kRemoveB, false, {u"c"}},
      {"Add ahead is seen", 1, kAddD, false, {u"b", u"c", u"d"}},
      {"Add after the end", 3, kAddD, false, {}},
      {"Add after the end, reset", 3, kAddD, true, {u"a", u"b", u"c", u"d"}},
      {"RemoveAll then Add", 1, kClearAddD, false, {u"d"}},
      // clang-format on
  };
  for (const auto& [what, first, change, reset, rest] : cases) {
    SCOPED_TRACE(what);
    Ref<Dictionary> d = MakeRef<Dictionary>();
    for (const char16_t* k : {u"a", u"b", u"c"}) d->Add(Value(k), Value());
    Ref<Object> e = d->NewEnum();
    Value v;
    for (int i = 0; i < first; ++i) dynamic_cast<Enumerator&>(*e).Next(v);
    if (change == kRemoveB) d->Remove(Value(u"b"));
    if (change == kClearAddD) d->RemoveAll();
    if (change != kRemoveB) d->Add(Value(u"d"), Value());
    if (reset) CallByName(e, u"Reset", CallKind::kMethod);
    EXPECT_EQ(Walk(e), rest);
  }
}

// An enumerator outlives its dictionary, counted or not, and still walks
// the keys the dictionary had.
TEST(Dictionary, EnumeratorOutlivesTheDictionary) {
  // A plain object, a counted one, and one whose entries start in its own
  // block (they move out of it for the enumerator to keep).
  for (int kind : {0, 1, 2}) {
    SCOPED_TRACE(kind);
    Ref<Object> e;
    {
      Dictionary plain;
      Ref<Dictionary> held = MakeRef<Dictionary>();
      std::unique_ptr<Dictionary> roomy(Dictionary::WithRoom(4));
      Dictionary& d = kind == 0 ? plain : kind == 1 ? *held : *roomy;
      for (const char16_t* k : {u"a", u"b"}) d.Add(Value(k), Value(MakeRef<Dictionary>()));
      Walk(d.NewEnum());  // one that goes first leaves the entries to the rest
      e = d.NewEnum();
      d.Add(Value(u"c"), Value());
    }
    EXPECT_EQ(Walk(e), (Texts{u"a", u"b", u"c"}));
  }
}

// Keys and items that are objects go with the dictionary: one also held
// elsewhere survives, its count back to that holder's, and the rest are
// deleted (the sanitizer build checks that nothing is left over).
TEST(Dictionary, ReleasesObjectKeysAndItems) {
  Ref<Dictionary> held = MakeRef<Dictionary>();
  {
    Dictionary d;
    d.Add(Value(held), Value(held));
    d.Add(Value(MakeRef<Dictionary>()), Value(MakeRef<Dictionary>()));
    d.Add(Value(u"x"), Value(held));
    EXPECT_EQ(held->RefCount(), 4);
  }
  EXPECT_EQ(held->RefCount(), 1);
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
  EXPECT_EQ(d.Item(Value(double(kCount + 12345))).long_value(), 12345);
  EXPECT_FALSE(d.Exists(Value(kCount - 1)));
  for (int32_t i = 0; i < kCount; i += 2) d.Remove(Value(kCount + i));
  EXPECT_EQ(d.Keys().GetElement({0}).long_value(), kCount + 1);
}

// The same changes on a small dictionary (looked up by scanning) and on
// large ones (looked up through the hash table, compacted after many
// removals), in text mode with ASCII and non-ASCII keys; room reserved
// beforehand, or too little, changes nothing.
// Also for dictionaries made with room in their own block (WithRoom, room
// >= 0): filling it, growing out of it, compacting and emptying it.
TEST(Dictionary, SmallAndLargeAgree) {
  const std::tuple<int32_t, int32_t, int32_t> sizes[] = {
      {0, 0, -1},   {8, 0, -1}, {60, 0, -1}, {0, 5, -1}, {8, 100, -1},
      {60, 20, -1}, {0, 0, 0},  {0, 0, 3},   {8, 0, 11}, {60, 0, 64}};
  for (const auto& [extra, reserved, room] : sizes) {
    SCOPED_TRACE(extra * 1000 + reserved * 10 + room);
    Ref<Dictionary> made(room < 0 ? new Dictionary() : Dictionary::WithRoom(uint32_t(room)));
    Dictionary& d = *made;
    d.Reserve(reserved);
    d.SetCompareMode(CompareMethod::kText);
    auto key = [](int32_t i) { return Value(FromUtf8("Key" + std::to_string(i))); };
    for (const char16_t* k : {u"Straße", u"b", u"C"}) d.Add(Value(k), Value(k));
    for (int32_t i = 0; i < extra; ++i) d.Add(key(i), Value(i));
    EXPECT_RAISES(d.Add(Value(u"STRASSE"), Value()), errors::kDuplicateKey);
    EXPECT_RAISES(d.Add(Value(u"c"), Value()), errors::kDuplicateKey);
    d.SetKey(Value(u"B"), Value(u"Émile"));
    EXPECT_RAISES(d.SetKey(Value(u"c"), Value(u"ÉMILE")), errors::kDuplicateKey);
    for (int32_t i = 0; i < extra; ++i) {
      if (i % 3 != 0) d.Remove(FromUtf8("KEY" + std::to_string(i)));
    }
    d.Remove(Value(u"strasse"));
    d.Add(Value(u"straße"), Value(u"again"));
    EXPECT_EQ(d.Item(Value(u"émile")).string(), u"b");
    EXPECT_FALSE(d.Exists(Value(u"b")));
    for (int32_t i = 0; i < extra; ++i) EXPECT_EQ(d.Exists(key(i)), i % 3 == 0) << i;
    EXPECT_EQ(d.Count(), 3 + (extra + 2) / 3);
    const Value keys = d.Keys();
    EXPECT_EQ(keys.GetElement({0}).string(), u"Émile");
    EXPECT_EQ(keys.GetElement({keys.UBound()}).string(), u"straße");
    d.RemoveAll();
    d.Add(Value(u"b"), Value(1));
    EXPECT_EQ(d.Count(), 1);
    EXPECT_EQ(d.Item(Value(u"B")).long_value(), 1);
  }
}

// Keys added with a hash handed in (AddText) are found by every ordinary
// look-up and refuse duplicates either way, in both modes, by scan and
// through the table, ASCII or not.
TEST(Dictionary, AddTextAgreesWithAdd) {
  const std::tuple<CompareMethod, int32_t> cases[] = {{CompareMethod::kBinary, 0},
                                                      {CompareMethod::kBinary, 40},
                                                      {CompareMethod::kText, 0},
                                                      {CompareMethod::kText, 40}};
  const std::pair<const char16_t*, const char16_t*> keys[] = {
      {u"Name", u"nAME"}, {u"Straße", u"STRASSE"}, {u"a-much-longer-key", u"A-MUCH-LONGER-KEY"}};
  for (const auto& [mode, extra] : cases) {
    SCOPED_TRACE(static_cast<int>(mode) * 1000 + extra);
    const bool text = mode != CompareMethod::kBinary;
    Dictionary d;
    d.SetCompareMode(mode);
    auto add_text = [&d](Value key, Value item) {
      bool ascii = false;
      const uint32_t hash = Dictionary::TextKeyHash(key.string(), ascii);
      d.AddText(std::move(key), hash, ascii, std::move(item));
    };
    for (int32_t i = 0; i < extra; ++i)
      add_text(Value(FromUtf8("k" + std::to_string(i))), Value(i));
    for (const auto& names : keys) {
      // Plain names: the checks below run inside lambdas.
      const char16_t* const key = names.first;
      const char16_t* const other = names.second;
      SCOPED_TRACE(ToUtf8(key));
      add_text(Value(key), Value(key));
      EXPECT_EQ(d.Item(Value(key)).string(), key);
      EXPECT_EQ(d.Exists(Value(other)), text);
      EXPECT_RAISES(d.Add(Value(key), Value()), errors::kDuplicateKey);
      // A refused key is left as it was: the caller reports it.
      Value again(key);
      bool ascii = false;
      const uint32_t hash = Dictionary::TextKeyHash(key, ascii);
      EXPECT_RAISES(d.AddText(std::move(again), hash, ascii, Value()), errors::kDuplicateKey);
      EXPECT_EQ(again.string(), key);
      if (text) {
        EXPECT_RAISES(add_text(Value(other), Value()), errors::kDuplicateKey);
      }
    }
    for (int32_t i = 0; i < extra; ++i)
      EXPECT_TRUE(d.Exists(Value(FromUtf8("k" + std::to_string(i)))));
    EXPECT_EQ(d.Count(), extra + 3);
  }
}

TEST(Dictionary, ByName) {
  Ref<Object> d = CreateObject(u"kestrel.dictionary");
  // Any mode from -1 up is kept as given; every mode but 0 compares as text.
  EXPECT_RAISES(CallByName(d, u"CompareMode", CallKind::kLet, {Value(-2)}),
                errors::kInvalidProcedureCall);
  for (int32_t mode : {-1, 7, 1}) {
    CallByName(d, u"CompareMode", CallKind::kLet, {Value(double(mode))});
    EXPECT_EQ(CallByName(d, u"CompareMode", CallKind::kGet).long_value(), mode);
  }
  Ref<Dictionary> obj = MakeRef<Dictionary>();
  CallByName(d, u"Add", CallKind::kMethod, {Value(u"a"), Value(int32_t{1})});
  CallByName(d, u"", CallKind::kLet, {Value(u"b"), Value(int32_t{2})});  // d("b") = 2
  CallByName(d, u"Item", CallKind::kSet, {Value(u"o"), Value(obj)});
  CallByName(d, u"Key", CallKind::kLet, {Value(u"b"), Value(u"bee")});
  EXPECT_EQ(CallByName(d, u"", CallKind::kGet, {Value(u"BEE")}).long_value(), 2);
  EXPECT_EQ(CallByName(d, u"Item", CallKind::kGet, {Value(u"o")}).object(), obj.get());
  CallByName(d, u"Remove", CallKind::kMethod, {Value(u"a")});
  EXPECT_EQ(CallByName(d, u"Keys", CallKind::kMethod).GetElement({0}).string(), u"bee");
  CallByName(d, u"RemoveAll", CallKind::kMethod);
  CallByName(d, u"CompareMode", CallKind::kLet, {Value(int32_t{2})});  // allowed once empty
  EXPECT_EQ(CallByName(d, u"CompareMode", CallKind::kGet).long_value(), 2);
}

}  // namespace
}  // namespace kestrel
