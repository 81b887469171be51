// Collection: the runtime's 1-based list with optional text keys.
//
// Items are kept in order; a key (any text, matched without regard to
// case) finds an item. Add takes an optional key and an optional position
// (before or after an index or key, not both: 5). Errors are the runtime's:
// a duplicate key raises 457, an index outside 1 .. Count raises 9, an
// unknown key raises 5, a key that is not text raises 13, and so does an
// index that is neither a number nor text (Empty, Null, an object, an array).
// Positional access is constant time, key look-up constant on average;
// inserting before the end and removing are linear.
//
//   auto c = kestrel::MakeRef<kestrel::Collection>();
//   c->Add(Value(1.5), Value(u"a"));
//   c->Item(Value(u"A"));   // 1.5
//
// Dispatchable as Add, Item (the default member), Count, Remove and
// enumeration (NewEnum / _NewEnum). Not thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>  // kept for callers that relied on it
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API Collection : public Dispatchable<Collection> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Collection";

  Collection();
  ~Collection() override;
  Collection(const Collection&) = delete;
  Collection& operator=(const Collection&) = delete;

  void Add(Value item, const Value& key = Value::Missing(), const Value& before = Value::Missing(),
           const Value& after = Value::Missing());
  // A number is a position (rounded, ties to even); text is a key.
  Value Item(const Value& index) const;
  int32_t Count() const noexcept { return static_cast<int32_t>(count_); }
  void Remove(const Value& index);
  // Appends every item of `items`, moved out, without keys: what Add(item)
  // does for each, with one allocation for the lot.
  void Append(std::span<Value> items);

  // C++ iteration over the items in order.
  const Value* begin() const noexcept { return items_; }
  const Value* end() const noexcept { return items_ + count_; }

  Ref<Object> NewEnum() override;
  static const DispatchTable<Collection>& Dispatch();

  // A new collection with room for `count` items in its own block: one
  // allocation for a list that is filled once, as a parser fills one (a
  // plain Collection keeps its items in a block of their own). Like `new
  // Collection()`, nothing holds it yet. Raises std::bad_alloc.
  static Collection* WithRoom(uint32_t count);
  // WithRoom(items.size()) holding `items`, moved out, in one step.
  static Collection* WithItems(std::span<Value> items);

  // Collections are made and dropped by the thousand when data is parsed:
  // they come from the library's store of small blocks.
  static void* operator new(size_t size);
  static void operator delete(void* block, size_t size) noexcept;
  // Frees the block the collection was made in, whichever way it was made.
  static void operator delete(Collection* self, std::destroying_delete_t) noexcept;

 private:
  // The key index, allocated with the first key (collection.cpp).
  struct KeyIndex;

  explicit Collection(uint32_t room) noexcept;  // see WithRoom

  size_t PositionOf(const Value& index) const;  // 0-based
  // Makes room for at least `capacity` items; the items move to a new block.
  void Reserve(size_t capacity);
  // The room WithRoom made after the object.
  Value* RoomItems() const noexcept {
    return reinterpret_cast<Value*>(const_cast<Collection*>(this) + 1);
  }
  // Whether items_ is a block of its own, to be freed.
  bool OwnsItems() const noexcept { return items_ != nullptr && items_ != RoomItems(); }

  uint32_t room_ = 0;  // items the object's own block has room for
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
  Value* items_ = nullptr;
  std::unique_ptr<KeyIndex> keys_;
};

}  // namespace kestrel
