#include "kestrel/runtime/collection.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
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

// Indexes into "a b c": positions 1-based with ties rounded to even, text a
// key matched without regard to case.
TEST(Collection, Item) {
  Collection c;
  Fill(c);
  const std::pair<Value, const char16_t*> found[] = {
      {Value(int32_t{1}), u"a"}, {Value(1.5), u"b"},        {Value(2.5), u"b"},
      {Value::Date(3.0), u"c"},  {Value(u"STRASSE"), u"b"},
  };
  for (size_t i = 0; i < std::size(found); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(c.Item(found[i].first).string(), found[i].second);
  }
  // 3.5 rounds to 4, True is -1, 1e10 is beyond Long, text is always a key.
  const std::pair<Value, int32_t> refused[] = {
      {Value(int32_t{0}), errors::kSubscriptOutOfRange}, {Value(3.5), errors::kSubscriptOutOfRange},
      {Value(true), errors::kSubscriptOutOfRange},       {Value(1e10), errors::kOverflow},
      {Value(u"1"), errors::kInvalidProcedureCall},      {Value(), errors::kTypeMismatch},
  };
  for (size_t i = 0; i < std::size(refused); ++i) {
    SCOPED_TRACE(i);
    EXPECT_RAISES(c.Item(refused[i].first), refused[i].second);
  }
}

// Where Add puts "X" in "a b c", given before or after, or the error it
// raises (and then "a b c" is unchanged).
TEST(Collection, Add) {
  const Value kx(u"kx"), one(int32_t{1});
  const std::tuple<Value, Value, Value, const char16_t*, int32_t> cases[] = {
      {kx, kMissing, kMissing, u"a b c X", 0},
      {kx, one, kMissing, u"X a b c", 0},
      {kx, kMissing, Value(int32_t{3}), u"a b c X", 0},
      {kx, Value(u"strasse"), kMissing, u"a X b c", 0},
      {Value(u"KA"), Value(9), kMissing, u"a b c", errors::kDuplicateKey},  // key checked first
      {one, kMissing, kMissing, u"a b c", errors::kTypeMismatch},
      {kx, one, one, u"a b c", errors::kInvalidProcedureCall},
      {kx, kMissing, Value(int32_t{4}), u"a b c", errors::kSubscriptOutOfRange},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    const auto& [key, before, after, order, error] = cases[i];
    Collection c;
    Fill(c);
    if (error == 0) {
      c.Add(Value(u"X"), key, before, after);
      EXPECT_EQ(c.Item(kx).string(), u"X");
    } else {
      // Clang 14 cannot capture structured bindings in a lambda: copy them.
      const Value& k = key;
      const Value& b = before;
      const Value& a = after;
      EXPECT_RAISES(c.Add(Value(u"X"), k, b, a), error);
    }
    EXPECT_EQ(Joined(c), order);
    EXPECT_EQ(c.Item(Value(u"straße")).string(), u"b");  // keys follow their items
  }
}

TEST(Collection, RemoveShiftsItemsAndFreesTheKey) {
  Collection c;
  Fill(c);
  Ref<Object> before = c.NewEnum();
  EXPECT_RAISES(c.Remove(Value(u"zz")), errors::kInvalidProcedureCall);
  c.Remove(Value(u"KA"));
  EXPECT_EQ(c.Item(Value(u"strasse")).string(), u"b");
  c.Remove(Value(int32_t{2}));
  c.Add(Value(u"a"), Value(u"ka"));  // its key is free again; back, at the end
  EXPECT_EQ(Joined(c), u"b a");
  // An enumerator walks the items as they were when it was made.
  Value v;
  std::u16string seen;
  for (auto& e = dynamic_cast<ValueEnumerator&>(*before); e.Next(v);) seen += v.string();
  EXPECT_EQ(seen, u"abc");
}

// Append moves items in after keyed ones; keys keep finding their items.
TEST(Collection, AppendKeepsKeys) {
  Collection c;
  Fill(c);
  Value more[] = {Value(u"d"), Value(u"e")};
  c.Append(more);
  EXPECT_TRUE(more[0].IsEmpty());
  c.Remove(Value(u"ka"));
  c.Add(Value(u"f"), Value(u"kf"), Value(u"straße"));
  EXPECT_EQ(Joined(c), u"f b c d e");
  EXPECT_EQ(c.Item(Value(u"STRASSE")).string(), u"b");
  EXPECT_EQ(c.Item(Value(u"KF")).string(), u"f");
}

TEST(Collection, ByName) {
  Ref<Object> c = CreateObject(u"KESTREL.COLLECTION");
  CallByName(c, u"Add", CallKind::kMethod, {Value(u"a")});
  CallByName(c, u"Add", CallKind::kMethod, {Value(u"b"), Value(u"kb")});
  // An omitted argument in the middle arrives as Missing: after 1.
  CallByName(c, u"Add", CallKind::kMethod, {Value(u"x"), kMissing, kMissing, Value(int32_t{1})});
  EXPECT_EQ(CallByName(c, u"Item", CallKind::kGet, {Value(u"KB")}).string(), u"b");
  EXPECT_EQ(CallByName(c, u"", CallKind::kGet, {Value(int32_t{2})}).string(), u"x");  // c(2)
  CallByName(c, u"Remove", CallKind::kMethod, {Value(int32_t{1})});
  EXPECT_EQ(Joined(dynamic_cast<Collection&>(*c)), u"x b");
}

// Inserting at every position of lists of 0 to 4 items, then removing
// that item again, in a plain list and in lists made with room for 0 to 3
// items in their own block, which they keep using until they outgrow it.
TEST(Collection, ShortListsInsertAndRemoveAnywhere) {
  const char16_t* const kItems[] = {u"a", u"b", u"c", u"d"};
  // room -2: made by WithItems, holding its n items from the start.
  for (int32_t room = -2; room <= 3; ++room) {
    for (int32_t n = 0; n <= 4; ++n) {
      for (int32_t at = 1; at <= n + 1; ++at) {
        SCOPED_TRACE(room * 100 + n * 10 + at);
        std::vector<Value> given(kItems, kItems + n);
        Ref<Collection> made(room == -2 ? Collection::WithItems(given)
                             : room < 0 ? new Collection()
                                        : Collection::WithRoom(uint32_t(room)));
        Collection& c = *made;
        std::u16string model;  // one unit per item
        for (int32_t i = 0; i < n; ++i) {
          if (room != -2) c.Add(Value(kItems[i]));
          model += kItems[i];
        }
        const Value position(at);
        if (at <= n) {
          c.Add(Value(u"X"), kMissing, position);
        } else {
          c.Add(Value(u"X"), kMissing, kMissing, n == 0 ? kMissing : Value(n));
        }
        model.insert(static_cast<size_t>(at - 1), u"X");
        std::u16string joined;
        for (const Value& v : c) joined += v.string();
        EXPECT_EQ(joined, model);
        EXPECT_EQ(c.Item(position).string(), u"X");
        c.Remove(position);
        EXPECT_EQ(c.Count(), n);
        if (n > 0) {
          EXPECT_EQ(c.Item(Value(n)).string(), kItems[n - 1]);
        }
      }
    }
  }
}

// Items that are objects are let go with the list, whether it held them
// inside itself or in a block of their own, and however they came in.
TEST(Collection, ReleasesItsItems) {
  for (int32_t n : {1, 2, 3, 9}) {
    SCOPED_TRACE(n);
    Ref<Collection> inner = MakeRef<Collection>();
    const Value item(static_cast<Object*>(inner.get()));
    {
      Collection outer;
      for (int32_t i = 1; i < n; ++i) outer.Add(item);
      Value appended[] = {item};
      outer.Append(appended);
      EXPECT_EQ(inner->RefCount(), n + 2);
      outer.Remove(Value(int32_t{1}));
      EXPECT_EQ(inner->RefCount(), n + 1);
    }
    EXPECT_EQ(inner->RefCount(), 2);
  }
}

// 100,000 keyed items: a key look-up that searched the items would make
// this quadratic. Removing from the end keeps Remove's shifting out of it.
TEST(Collection, ManyKeyedItems) {
  constexpr int32_t kCount = 100000;
  auto key = [](int32_t i, char k) { return Value(FromUtf8(k + std::to_string(i))); };
  Collection c;
  for (int32_t i = 0; i < kCount; ++i) c.Add(Value(i), key(i, 'k'));
  for (int32_t i = 0; i < kCount; ++i) ASSERT_EQ(c.Item(key(i, 'K')).long_value(), i);
  for (int32_t i = kCount; i > 0; --i) c.Remove(Value(i));
}

}  // namespace
}  // namespace kestrel
