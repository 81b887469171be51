#include "kestrel/containers/stack.hpp"

#include <gtest/gtest.h>

#include <cstdint>

#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

// The bound as Item sees it: slots 1 .. bound + 1 read, the next raises 9.
void ExpectBound(const Stack& s, int32_t bound) {
  EXPECT_NO_THROW(s.Item(bound + 1)) << "bound " << bound;
  EXPECT_RAISES(s.Item(bound + 2), errors::kSubscriptOutOfRange);
}

void Push(Stack& s, int32_t n) {
  for (int32_t i = 1; i <= n; ++i) s.Add(Value(i));
}

TEST(Stack, RemoveBlanksTheSlotAndNeverReturnsTheEntry) {
  Stack s;
  EXPECT_RAISES(s.Top(), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(s.Remove(), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(s.Item(0), errors::kSubscriptOutOfRange);
  EXPECT_TRUE(s.Add(Value(int32_t{5})).IsEmpty());
  s.Add(Value(u"x"));
  EXPECT_EQ(s.Top().string(), u"x");
  EXPECT_EQ(s.Item(1).long_value(), 5);
  EXPECT_TRUE(s.Remove().IsNull());
  EXPECT_EQ(s.Count(), 1);
  EXPECT_TRUE(s.Item(2).IsNull());   // the removed slot
  EXPECT_TRUE(s.Item(3).IsEmpty());  // never used

  Ref<Collection> object = MakeRef<Collection>();
  s.Add(Value(object));
  EXPECT_EQ(object->RefCount(), 2);
  EXPECT_TRUE(s.Remove().IsNothing());
  EXPECT_EQ(object->RefCount(), 1);
}

TEST(Stack, BoundDoublesOnTheFullPushAndHalvesOnTheCountBeforeRemoval) {
  Stack s;
  Push(s, 256);
  ExpectBound(s, 256);
  Push(s, 1);
  ExpectBound(s, 512);
  s.Remove();  // 257 held: no shrink
  ExpectBound(s, 512);
  s.Remove();  // 256 held, half of 512: shrink
  ExpectBound(s, 256);
  EXPECT_EQ(s.Top().long_value(), 255);
  Push(s, 1000);
  ExpectBound(s, 2048);
  s.Clear();
  EXPECT_EQ(s.Count(), 0);
  EXPECT_TRUE(s.Item(1).IsEmpty());
  ExpectBound(s, 256);
}

TEST(Stack, ByName) {
  Ref<Object> s = CreateObject(u"Kestrel.Stack");
  CallByName(s, u"Add", CallKind::kMethod, {Value(u"a")});
  CallByName(s, u"add", CallKind::kMethod, {Value(u"b")});
  EXPECT_EQ(CallByName(s, u"Count", CallKind::kGet).long_value(), 2);
  EXPECT_EQ(CallByName(s, u"Item", CallKind::kGet, {Value(1.5)}).string(), u"b");  // 2
  EXPECT_TRUE(CallByName(s, u"Remove", CallKind::kMethod).IsNull());
  // An explicit Missing is a value like any other.
  CallByName(s, u"Add", CallKind::kMethod, {Value::Missing()});
  EXPECT_TRUE(CallByName(s, u"Top", CallKind::kGet).IsMissing());
  EXPECT_RAISES(CallByName(s, u"Top", CallKind::kGet, {Value(1)}), errors::kWrongArgumentCount);
}

}  // namespace
}  // namespace kestrel
