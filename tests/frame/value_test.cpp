#include "kestrel/frame/value.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

TEST(Value, KindCodes) {
  struct Case {
    Value value;
    uint16_t code;
  };
  const Case cases[] = {
      {Value(), 0},
      {Value::Null(), 1},
      {Value(int16_t{1}), 2},
      {Value(int32_t{1}), 3},
      {Value(1.0f), 4},
      {Value(1.0), 5},
      {Value::Date(1.0), 7},
      {Value(u"x"), 8},
      {Value::Nothing(), 9},
      {Value::Missing(), 10},
      {Value(true), 11},
      {Value(uint8_t{1}), 17},
      {Value(int64_t{1}), 20},
      {Value::UnallocatedArray(Kind::kVariant), 0x200C},
      {Value::NewArray(Kind::kString, {{0, 1}}), 0x2008},
      {Value::ByteArray({}), 0x2011},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.code);
    EXPECT_EQ(c.value.code(), c.code);
  }
}

TEST(Value, MissingIsOnlyTheErrorCodeAndTrueIsMinusOne) {
  EXPECT_EQ(Value(true).integer(), -1);
  EXPECT_TRUE(Value::Missing().IsMissing());
  EXPECT_EQ(Value::Missing().error_code(), static_cast<int32_t>(0x80020004u));
  EXPECT_FALSE(Value().IsMissing());
  EXPECT_FALSE(Value::ErrorCode(5).IsMissing());
  // Same bits, other kind: a Long holding the code is not Missing.
  EXPECT_FALSE(Value(kMissingCode).IsMissing());
}

TEST(Value, StringsHoldAnyCodeUnit) {
  const std::u16string text(u"a\0b\xD800", 4);
  Value v(text);
  EXPECT_EQ(v.string(), text);
  EXPECT_EQ(Value(u"").string(), u"");
  EXPECT_EQ(Value::FromUtf8("\xc3\xa9t\xc3\xa9").string(), u"\u00e9t\u00e9");
}

TEST(Value, CopiesShareStorageUntilWritten) {
  Value a = Value::VariantArray({Value(1), Value(u"two")});
  Value b = a;
  EXPECT_TRUE(b.SharesStorageWith(a));
  b.SetElement({1}, Value(2.0));
  EXPECT_FALSE(b.SharesStorageWith(a));
  EXPECT_EQ(a.GetElement({1}).string(), u"two");
  EXPECT_EQ(b.GetElement({1}).dbl(), 2.0);

  Value s(u"text");
  Value t = s;
  EXPECT_TRUE(t.SharesStorageWith(s));
}

TEST(Value, MoveLeavesEmpty) {
  Value a(u"moved");
  Value b = std::move(a);
  EXPECT_TRUE(a.IsEmpty());  // NOLINT(bugprone-use-after-move): the state is documented
  EXPECT_EQ(b.string(), u"moved");
}

class CountedObject : public Object {
 public:
  std::u16string_view TypeName() const noexcept override { return u"Counted"; }
  Value Invoke(std::u16string_view, CallKind, std::span<Value>) override { return Value(); }
};

TEST(Value, ObjectsAreSharedByReferenceCount) {
  Ref<CountedObject> object = MakeRef<CountedObject>();
  EXPECT_EQ(object->RefCount(), 1);
  {
    Value a(object);
    Value b = a;
    EXPECT_EQ(object->RefCount(), 3);
    EXPECT_EQ(b.object(), object.get());
  }
  EXPECT_EQ(object->RefCount(), 1);
  EXPECT_TRUE(Value::Nothing().IsNothing());
}

TEST(ValueArray, FirstSubscriptVariesFastest) {
  Value a = Value::NewArray(Kind::kLong, {{1, 2}, {-1, 1}});
  int32_t n = 0;
  for (int32_t j = -1; j <= 1; ++j)
    for (int32_t i = 1; i <= 2; ++i) a.SetElement({i, j}, Value(n++));
  std::vector<int32_t> storage;
  for (const Value& v : a.Elements()) storage.push_back(v.long_value());
  EXPECT_EQ(storage, (std::vector<int32_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(a.LinearIndex(std::vector<int32_t>{2, 0}), 3u);
  EXPECT_EQ(a.Dimensions(), 2);
  EXPECT_EQ(a.LBound(2), -1);
  EXPECT_EQ(a.UBound(2), 1);
  // New elements hold the element kind's default.
  EXPECT_TRUE(Value::NewArray(Kind::kObject, {{0, 0}}).GetElement({0}).IsNothing());
  EXPECT_TRUE(Value::NewArray(Kind::kVariant, {{0, 0}}).GetElement({0}).IsEmpty());
}

TEST(ValueArray, UnallocatedIsAnArrayWithoutBounds) {
  Value a = Value::UnallocatedArray(Kind::kVariant);
  EXPECT_TRUE(a.IsArray());
  EXPECT_FALSE(a.IsAllocated());
  EXPECT_EQ(a.Dimensions(), 0);
  EXPECT_EQ(a.ElementCount(), 0u);
  EXPECT_RAISES(a.LBound(1), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.UBound(1), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.GetElement({0}), errors::kSubscriptOutOfRange);

  // Allocated but empty is something else: it has bounds.
  Value empty = Value::NewArray(Kind::kVariant, {{0, -1}});
  EXPECT_TRUE(empty.IsAllocated());
  EXPECT_EQ(empty.UBound(1), -1);
  EXPECT_EQ(empty.ElementCount(), 0u);
}

TEST(ValueArray, BadShapesAndSubscripts) {
  std::vector<Bounds> sixty(60, Bounds{0, 0});
  EXPECT_EQ(Value::NewArray(Kind::kByte, sixty).Dimensions(), 60);
  std::vector<Bounds> sixty_one(61, Bounds{0, 0});
  EXPECT_RAISES(Value::NewArray(Kind::kByte, sixty_one), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(Value::NewArray(Kind::kByte, {}), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(Value::NewArray(Kind::kByte, {{5, 3}}), errors::kSubscriptOutOfRange);

  Value a = Value::NewArray(Kind::kDouble, {{-2, 2}});
  EXPECT_RAISES(a.GetElement({3}), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.GetElement({-3}), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.GetElement({0, 0}), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.LBound(2), errors::kSubscriptOutOfRange);
  // A typed array takes only its own kind at this level; the runtime
  // converts (runtime::AssignElement).
  EXPECT_RAISES(a.SetElement({0}, Value(u"1")), errors::kTypeMismatch);
}

TEST(ValueArray, ByteArraysAreContiguousBytes) {
  const uint8_t data[] = {1, 2, 255};
  Value a = Value::ByteArray(data);
  ASSERT_EQ(a.Bytes().size(), 3u);
  EXPECT_EQ(a.Bytes().data()[2], 255);
  Value b = a;
  b.MutableBytes()[0] = 9;
  EXPECT_EQ(a.Bytes()[0], 1);
  EXPECT_EQ(b.GetElement({0}).byte(), 9);
  EXPECT_TRUE(a.Elements().empty());
}

TEST(ValueArray, ReDimPreserveGrowsOnlyTheLastDimension) {
  Value a = Value::NewArray(Kind::kLong, {{0, 1}, {0, 1}});
  a.SetElement({1, 1}, Value(7));
  a.ReDim({{0, 1}, {0, 3}}, /*preserve=*/true);
  EXPECT_EQ(a.GetElement({1, 1}).long_value(), 7);
  EXPECT_EQ(a.GetElement({1, 3}).long_value(), 0);
  EXPECT_RAISES(a.ReDim({{0, 2}, {0, 3}}, true), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.ReDim({{1, 1}, {1, 3}}, true), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(a.ReDim({{0, 1}}, true), errors::kSubscriptOutOfRange);

  a.ReDim({{0, 0}}, /*preserve=*/false);
  EXPECT_EQ(a.Dimensions(), 1);
  EXPECT_EQ(a.GetElement({0}).long_value(), 0);
  EXPECT_EQ(a.code(), 0x2003);

  Value u = Value::UnallocatedArray(Kind::kString);
  u.ReDim({{1, 2}}, /*preserve=*/true);
  EXPECT_EQ(u.ElementCount(), 2u);
  u.Erase();
  EXPECT_FALSE(u.IsAllocated());
  EXPECT_TRUE(u.IsArray());
}

}  // namespace
}  // namespace kestrel
