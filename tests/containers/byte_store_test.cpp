#include "kestrel/containers/byte_store.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

std::string BytesAt(int64_t address, size_t n) {
  return std::string(reinterpret_cast<const char*>(static_cast<intptr_t>(address)), n);
}

TEST(ByteStore, AddStringStoresAnsiWithTerminatorOrNull) {
  struct Row {
    std::u16string text;
    bool allocate_empty;
    std::string stored;  // "" with no item: a null address
  };
  const Row rows[] = {
      {u"abc", false, std::string("abc\0", 4)},
      {u"\u00e9\u20ac", false, std::string("\xe9\x80\0", 3)},  // Windows-1252
      {u"\u4e2d", false, std::string("?\0", 2)},               // not in the code page
      {u"", true, std::string("\0", 1)},
      {u"", false, ""},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.stored.begin(), r.stored.end()));
    ByteStore store;
    const int64_t p = store.AddString(r.text, r.allocate_empty);
    EXPECT_EQ(store.Items()->Count(), r.stored.empty() ? 0 : 1);
    if (r.stored.empty())
      EXPECT_EQ(p, 0);
    else
      EXPECT_EQ(BytesAt(p, r.stored.size()), r.stored);
  }
}

TEST(ByteStore, AddByteArrayCopiesFromTheLowerBound) {
  ByteStore store;
  Value bytes = Value::NewArray(Kind::kByte, {{5, 7}});
  for (int32_t i = 5; i <= 7; ++i) bytes.SetElement({i}, Value(uint8_t(i * 10)));
  const int64_t p = store.AddByteArray(bytes);
  bytes.SetElement({5}, Value(uint8_t{0}));  // the store has its own copy
  EXPECT_EQ(BytesAt(p, 3), "\x32\x3c\x46");

  auto item =
      Ref<ByteStoreItem>(dynamic_cast<ByteStoreItem*>(store.Items()->Item(Value(1)).object()));
  ASSERT_TRUE(item);
  EXPECT_EQ(item->Pointer(), p);
  EXPECT_EQ(item->Data().size(), 3u);

  // The same bytes again: a second buffer; both stay until Reset.
  const int64_t q = store.AddByteArray(Value::ByteArray(std::vector<uint8_t>{50, 60, 70}));
  EXPECT_NE(p, q);
  EXPECT_EQ(BytesAt(p, 3), BytesAt(q, 3));
  store.Reset();
  EXPECT_EQ(store.Items()->Count(), 0);
  EXPECT_EQ(item->Pointer(), p);  // a held item keeps its buffer
}

TEST(ByteStore, RefusesWhatHasNoElementZero) {
  ByteStore store;
  EXPECT_RAISES(store.AddByteArray(Value::UnallocatedArray(Kind::kByte)),
                errors::kSubscriptOutOfRange);
  EXPECT_RAISES(store.AddByteArray(Value::NewArray(Kind::kByte, {{0, -1}})),
                errors::kSubscriptOutOfRange);
  EXPECT_RAISES(store.AddByteArray(Value::NewArray(Kind::kLong, {{0, 2}})), errors::kTypeMismatch);
  EXPECT_EQ(store.Items()->Count(), 0);
  EXPECT_RAISES(ByteStoreItem().Pointer(), errors::kSubscriptOutOfRange);
}

TEST(ByteStore, LateBoundAndNotCreatable) {
  EXPECT_RAISES(CreateObject(ByteStore::kQualifiedName), errors::kCannotCreateObject);
  EXPECT_RAISES(CreateObject(ByteStoreItem::kQualifiedName), errors::kCannotCreateObject);
  auto store = MakeRef<ByteStore>();
  Value text(u"hi"), allocate(false);
  std::vector<Value> args{text, allocate};
  const Value p = CallByName(store, u"AddString", CallKind::kMethod, std::span<Value>(args));
  ASSERT_EQ(p.kind(), Kind::kLongLong);
  EXPECT_EQ(BytesAt(p.long_long(), 3), std::string("hi\0", 3));
  const Value items = CallByName(store, u"Items", CallKind::kGet, {});
  const Value item = CallByName(items, u"Item", CallKind::kMethod, {Value(1)});
  EXPECT_EQ(CallByName(item, u"Pointer", CallKind::kGet, {}).long_long(), p.long_long());
}

}  // namespace
}  // namespace kestrel
