// ByteStore: byte buffers kept at fixed addresses while native code is
// handed pointers to them.
//
// Each AddByteArray or AddString copies its input into a new ByteStoreItem
// and returns the address of the copy's first byte. The store owns its
// items (Items, a 1-based Collection without keys, in the order of
// addition); every address stays valid until Reset or the store's
// destruction, or longer while a client still holds the item. AddString
// writes the text in the ANSI code page (Windows-1252) with a terminating
// NUL; an empty text gives the null address 0 unless AllocateEmpty asks for
// an empty string. Addresses are pointer-sized (LongLong through late
// binding). Not thread-safe.
//
//   auto store = kestrel::MakeRef<kestrel::ByteStore>();
//   int64_t p = store->AddString(u"abc", false);  // points at 61 62 63 00
//   store->Reset();                               // p is no longer valid
//
// Dispatchable: ByteStore as Reset, AddByteArray, AddString and Items;
// ByteStoreItem as Data (let) and Pointer. Both are registered as
// Kestrel.ByteStore and Kestrel.ByteStoreItem and are not creatable.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API ByteStoreItem : public Dispatchable<ByteStoreItem> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.ByteStoreItem";

  // Keeps a private copy of a one-dimensional Byte array, whatever its
  // bounds, indexed from 0: 13 for anything else, 9 for an unallocated one.
  void SetData(const Value& bytes);
  void SetData(std::span<const uint8_t> bytes);
  std::span<const uint8_t> Data() const noexcept { return {data_.get(), size_}; }
  // Address of element 0; 9 while the item holds no data or an empty array.
  int64_t Pointer() const;

  static const DispatchTable<ByteStoreItem>& Dispatch();

 private:
  // A plain allocation, never resized: the bytes stay where they are until
  // the item is given new data or released.
  std::unique_ptr<uint8_t[]> data_;
  size_t size_ = 0;
};

class KESTREL_API ByteStore : public Dispatchable<ByteStore> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.ByteStore";

  ByteStore() { Reset(); }

  // Starts a new, empty item list; the earlier items go with the old one.
  void Reset();
  // Copies the array's elements from its lower bound on into a new item and
  // returns the copy's address: 13 for anything but a Byte array, 9 for an
  // unallocated, empty or multi-dimensional one (nothing is stored then).
  int64_t AddByteArray(const Value& bytes);
  int64_t AddByteArray(std::span<const uint8_t> bytes);
  // Stores `text` as NUL-terminated ANSI and returns its address; for an
  // empty text, an empty string's address when allocate_empty is set and
  // 0 (nothing stored) otherwise.
  int64_t AddString(std::u16string_view text, bool allocate_empty);

  const Ref<Collection>& Items() const noexcept { return items_; }

  static const DispatchTable<ByteStore>& Dispatch();

 private:
  Ref<Collection> items_;
};

}  // namespace kestrel
