#include "kestrel/containers/byte_store.hpp"

#include <cstring>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

KESTREL_REGISTER_CLASS(ByteStore, ByteStore::kQualifiedName, Instancing::kNotCreatable);
KESTREL_REGISTER_CLASS(ByteStoreItem, ByteStoreItem::kQualifiedName, Instancing::kNotCreatable);

namespace {

// The elements of a Byte array argument: 13 for anything else, 9 unless it
// has exactly one dimension (only one can be copied element by element
// from its lower bound; an unallocated array has no bounds at all).
std::span<const uint8_t> ByteArrayArg(const Value& bytes) {
  if (bytes.code() != (kArrayFlag | uint16_t(Kind::kByte))) RaiseStandard(errors::kTypeMismatch);
  if (bytes.Dimensions() != 1) RaiseStandard(errors::kSubscriptOutOfRange);
  return bytes.Bytes();
}

}  // namespace

void ByteStoreItem::SetData(const Value& bytes) {
  SetData(ByteArrayArg(bytes));
}

void ByteStoreItem::SetData(std::span<const uint8_t> bytes) {
  std::unique_ptr<uint8_t[]> copy;
  if (!bytes.empty()) {
    copy = std::make_unique_for_overwrite<uint8_t[]>(bytes.size());
    std::memcpy(copy.get(), bytes.data(), bytes.size());
  }
  data_ = std::move(copy);
  size_ = bytes.size();
}

int64_t ByteStoreItem::Pointer() const {
  // No data, or an empty array: there is no element 0.
  if (size_ == 0) RaiseStandard(errors::kSubscriptOutOfRange);
  return static_cast<int64_t>(reinterpret_cast<intptr_t>(data_.get()));
}

void ByteStore::Reset() {
  items_ = MakeRef<Collection>();
}

int64_t ByteStore::AddByteArray(const Value& bytes) {
  return AddByteArray(ByteArrayArg(bytes));
}

int64_t ByteStore::AddByteArray(std::span<const uint8_t> bytes) {
  // The copy is sized from the bounds before anything is stored: an empty
  // array makes no buffer and no item.
  if (bytes.empty()) RaiseStandard(errors::kSubscriptOutOfRange);
  auto item = MakeRef<ByteStoreItem>();
  item->SetData(bytes);
  items_->Add(Value(item));
  return item->Pointer();
}

int64_t ByteStore::AddString(std::u16string_view text, bool allocate_empty) {
  if (text.empty()) {
    if (!allocate_empty) return 0;
    const uint8_t nul = 0;
    return AddByteArray(std::span<const uint8_t>(&nul, 1));
  }
  // The buffer holds one byte per character plus the terminator, sized by
  // the text's length rather than by its ANSI form, as callers of this
  // store have always had it; with a single-byte code page the two agree.
  std::string ansi = runtime::ToAnsi(text);
  ansi.resize(text.size() + 1, '\0');
  ansi.back() = '\0';
  return AddByteArray(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(ansi.data()), ansi.size()));
}

const DispatchTable<ByteStoreItem>& ByteStoreItem::Dispatch() {
  using T = DispatchTable<ByteStoreItem>;
  static const T table =
      T::Builder(u"ByteStoreItem")
          .Let(u"Data", [](ByteStoreItem& s, Args&, const Value& v) { s.SetData(v); })
          .Get(u"Pointer", [](ByteStoreItem& s, Args&) { return Value(s.Pointer()); })
          .Build();
  return table;
}

const DispatchTable<ByteStore>& ByteStore::Dispatch() {
  using T = DispatchTable<ByteStore>;
  static const T table =
      T::Builder(u"ByteStore")
          .Method(u"Reset", 0, 0,
                  [](ByteStore& s, Args&) {
                    s.Reset();
                    return Value();
                  })
          .Method(u"AddByteArray", 1, 1,
                  [](ByteStore& s, Args& a) { return Value(s.AddByteArray(a[0])); })
          .Method(u"AddString", 2, 2,
                  [](ByteStore& s, Args& a) {
                    const std::u16string text = a.Text(0);
                    return Value(s.AddString(text, a.Boolean(1)));
                  })
          .Get(u"Items", [](ByteStore& s, Args&) { return Value(s.Items()); })
          .Build();
  return table;
}

}  // namespace kestrel
