#include "kestrel/frame/value.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

TEST(Value, KindCodes) {
  const std::pair<Value, uint16_t> cases[] = {
      {Value(), 0},           {Value::Null(), 1}, {Value(int16_t{1}), 2},
      {Value(int32_t{1}), 3}, {Value(1.0f), 4},   {Value(1.0), 5},
      {Value::Date(1.0), 7},  {Value(u"x"), 8},   {Value::Nothing(), 9},
      {Value::Missing(), 10}, {Value(true), 11},  {Value(uint8_t{1}), 17},
      {Value(int64_t{1}), 20}};
  for (const auto& [value, code] : cases) {
    SCOPED_TRACE(code);
    EXPECT_EQ(value.code(), code);
  }
  EXPECT_EQ(Value::UnallocatedArray(Kind::kVariant).code(), 0x200C);
  EXPECT_EQ(Value::NewArray(Kind::kString, {{0, 1}}).code(), 0x2008);
  EXPECT_EQ(Value::ByteArray({}).code(), 0x2011);
}

TEST(Value, MissingIsOnlyTheErrorCodeAndTrueIsMinusOne) {
  EXPECT_EQ(Value(true).integer(), -1);
  EXPECT_TRUE(Value::Missing().IsMissing());
  EXPECT_EQ(Value::Missing().error_code(), static_cast<int32_t>(0x80020004u));
  EXPECT_FALSE(Value::ErrorCode(5).IsMissing());
  // Same bits, other kind: a Long holding the code is not Missing.
  EXPECT_FALSE(Value(kMissingCode).IsMissing());
}

class CountedObject : public Object {
 public:
  std::u16string_view TypeName() const noexcept override { return u"Counted"; }
  Value Invoke(std::u16string_view, CallKind, std::span<Value>) override { return Value(); }
};

TEST(Value, CopiesShareUntilWrittenAndMovesLeaveEmpty) {
  const std::u16string text(u"a\0b\xD800", 4);  // any code unit
  Value s(text), t = s;
  EXPECT_TRUE(t.SharesStorageWith(s));
  EXPECT_EQ(t.string(), text);
  EXPECT_EQ(Value::FromUtf8("\xc3\xa9t\xc3\xa9").string(), u"\u00e9t\u00e9");
  Value a = Value::VariantArray({Value(1), Value(u"two")});
  Value b = a;
  EXPECT_TRUE(b.SharesStorageWith(a));
  b.SetElement({1}, Value(2.0));
  EXPECT_FALSE(b.SharesStorageWith(a));
  EXPECT_EQ(a.GetElement({1}).string(), u"two");
  EXPECT_EQ(b.GetElement({1}).dbl(), 2.0);
  Value moved = std::move(s);
  EXPECT_TRUE(s.IsEmpty());  // NOLINT(bugprone-use-after-move): the state is documented
  EXPECT_EQ(moved.string(), text);

  Ref<CountedObject> object = MakeRef<CountedObject>();
  {
    Value o(object), p = o;
    EXPECT_EQ(object->RefCount(), 3);
  }
  EXPECT_EQ(object->RefCount(), 1);
}

// Strings of every length up to past the largest kept block size, made on
// one thread, let go on another that then ends, and made again: each must
// come back whole, whichever block serves it.
TEST(Value, StringsOfEverySizeSurviveReuseAcrossThreads) {
  auto text_of = [](size_t n, char16_t seed) {
    std::u16string text(n, u'\0');
    for (size_t i = 0; i < n; ++i) text[i] = static_cast<char16_t>(seed + i);
    return text;
  };
  constexpr size_t kLongest = 2100;  // past the largest kept block, 4 KB
  std::vector<Value> made;
  for (size_t n = 0; n <= kLongest; ++n) made.emplace_back(text_of(n, u'a'));
  std::thread([&made] { made.clear(); }).join();
  for (int round = 0; round < 2; ++round) {
    for (size_t n = 0; n <= kLongest; ++n) made.emplace_back(text_of(n, u'A' + round));
    for (size_t n = 0; n <= kLongest; ++n) {
      ASSERT_EQ(made[n].string(), text_of(n, u'A' + round)) << n;
    }
    made.clear();
  }
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

TEST(ValueArray, UnallocatedBadShapesAndSubscripts) {
  // Unallocated is an array without bounds; allocated but empty has them.
  Value u = Value::UnallocatedArray(Kind::kVariant);
  EXPECT_FALSE(u.IsAllocated());
  EXPECT_EQ(u.Dimensions(), 0);
  EXPECT_EQ(u.ElementCount(), 0u);
  EXPECT_RAISES(u.LBound(1), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(u.UBound(1), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(u.GetElement({0}), errors::kSubscriptOutOfRange);
  Value empty = Value::NewArray(Kind::kVariant, {{0, -1}});
  EXPECT_TRUE(empty.IsAllocated());
  EXPECT_EQ(empty.UBound(1), -1);

  EXPECT_EQ(Value::NewArray(Kind::kByte, std::vector<Bounds>(60, {0, 0})).Dimensions(), 60);
  EXPECT_RAISES(Value::NewArray(Kind::kByte, std::vector<Bounds>(61, {0, 0})),
                errors::kSubscriptOutOfRange);
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
  Value a = Value::ByteArray(data), b = a;
  ASSERT_EQ(a.Bytes().size(), 3u);
  EXPECT_EQ(a.Bytes().data()[2], 255);
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
  EXPECT_EQ(a.GetElement({0}).long_value(), 0);
  EXPECT_EQ(a.code(), 0x2003);

  Value u = Value::UnallocatedArray(Kind::kString);
  u.ReDim({{1, 2}}, /*preserve=*/true);
  EXPECT_EQ(u.ElementCount(), 2u);
  u.Erase();
  EXPECT_FALSE(u.IsAllocated());
  EXPECT_EQ(u.code(), 0x2008);  // still an array of Strings
}

}  // namespace
}  // namespace kestrel
