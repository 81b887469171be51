// Dictionary: keys to items in insertion order, with a compare mode.
//
// The runtime's dictionary: Add fails on an existing key (457, "This key is
// already associated with an element of this collection"); reading Item of
// a missing key returns Empty and adds the key; Remove of a missing key
// raises 32811 ("Element not found"). Numeric keys compare by value across
// kinds (0 and 0.0 are one key, but "0" is another); Empty and Null are
// different keys; objects are keys by identity; arrays cannot be keys (13).
// CompareMode is stored as given, any value from -1 up (below raises 5), and
// may change only while the dictionary is empty (5 otherwise): 0 compares
// keys in binary, every other mode as text. In text mode keys match without regard to case
// (full Unicode case folding: "Straße" and "STRASSE" are one key) and keep
// the spelling they were added with. Every key keeps the value and kind it
// was added with. Renaming a key (SetKey) keeps its place in the order and
// refuses a new key that already exists, even another spelling of itself.
// Item, Exists and Add take constant time on average, and so does Remove
// over any sequence of removals.
//
//   auto d = kestrel::MakeRef<kestrel::Dictionary>();
//   d->Add(Value(u"x"), Value(1));
//   d->Exists(Value(u"X"));   // false in binary mode
//
// Enumeration over the keys is live, as the runtime's is: the enumerator
// walks the dictionary itself, not a copy, so it never returns a key removed
// before it got there, and returns keys added before it got there. Once it
// has handed out the last key it is at its end: a key added later shows only
// after Reset, which starts again from the first key then present.
//
// Dispatchable as Add, Item (the default member; get, let, and set, which
// takes objects only: 424 otherwise), Key (let), Count, Exists, Keys, Items,
// Remove, RemoveAll, CompareMode and enumeration over the keys.
// Not thread-safe.
#pragma once

#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API Dictionary : public Dispatchable<Dictionary> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Dictionary";

  Dictionary();
  ~Dictionary() override;

  void Add(const Value& key, Value item);
  // Add for a text key whose TextKeyHash the caller already has (a reader
  // that pools its keys hashes each once); `ascii` tells whether the key's
  // text is all ASCII. The key is moved from only when it is added.
  void AddText(Value&& key, uint32_t hash, bool ascii, Value item);
  // The hash of a text key, as AddText takes it; `ascii` is set when the
  // text is all ASCII.
  static uint32_t TextKeyHash(std::u16string_view text, bool& ascii) noexcept;
  // Whether two text keys are one key in a dictionary of this compare
  // mode, when both are ASCII or the mode is binary (0).
  static bool SameTextKey(std::u16string_view a, std::u16string_view b,
                          int32_t compare_mode) noexcept;
  // A member for AppendDistinctText: a text key with its TextKeyHash.
  struct TextMember {
    TextMember(Value&& k, Value&& i, uint32_t h) noexcept
        : key(std::move(k)), item(std::move(i)), hash(h) {}
    Value key;
    Value item;
    uint32_t hash;
  };
  // AddText for each member in turn, for a caller that knows the keys are
  // texts distinct from each other and from every key present (and all
  // ASCII unless the compare mode is binary): no look-ups, one allocation.
  // Keys and items are moved out of `members`.
  void AppendDistinctText(std::span<TextMember> members);
  // Get: the item, or Empty after adding the key.
  Value Item(const Value& key);
  // Let / Set: replaces the item, or adds the key.
  void SetItem(const Value& key, Value item);
  // Renames a key in place: 32811 when `key` is absent, 457 when `new_key`
  // exists.
  void SetKey(const Value& key, const Value& new_key);
  bool Exists(const Value& key) const;
  int32_t Count() const noexcept;
  // Makes room for `count` entries in all, so that adding that many grows
  // the storage once. Only a hint: nothing observable changes.
  void Reserve(int32_t count);
  // 0-based Variant arrays in insertion order.
  Value Keys() const;
  Value Items() const;
  void Remove(const Value& key);
  void RemoveAll() noexcept;
  int32_t CompareMode() const noexcept { return compare_mode_; }
  void SetCompareMode(int32_t mode);
  void SetCompareMode(CompareMethod mode) { SetCompareMode(static_cast<int32_t>(mode)); }

  Ref<Object> NewEnum() override;
  static const DispatchTable<Dictionary>& Dispatch();

  // Dictionaries are made and dropped by the thousand when data is parsed:
  // they come from the library's store of small blocks.
  static void* operator new(size_t size);
  static void operator delete(void* block, size_t size) noexcept;
  // Frees the block the dictionary was made in, whichever way it was made.
  static void operator delete(Dictionary* self, std::destroying_delete_t) noexcept;

  // A new dictionary with room for `count` entries in its own block: one
  // allocation for a dictionary that is filled once, as a parser fills
  // one, in the compare mode given (5 below -1, as SetCompareMode). Like
  // `new Dictionary()`, nothing holds it yet. Raises std::bad_alloc.
  static Dictionary* WithRoom(uint32_t count, int32_t compare_mode = 0);
  // WithRoom for exactly `members`, then AppendDistinctText of them, in
  // one step: how a parser makes an object it has read whole.
  static Dictionary* WithDistinctText(std::span<TextMember> members, int32_t compare_mode = 0);

 private:
  // Entries in insertion order and, past a few entries, a hash table over
  // their keys (dictionary.cpp).
  struct Impl;
  class KeyEnumerator;

  Dictionary(uint32_t room, int32_t compare_mode) noexcept;  // see WithRoom
  // How keys match under the stored mode.
  CompareMethod KeyMode() const noexcept {
    return compare_mode_ == 0 ? CompareMethod::kBinary : CompareMethod::kText;
  }
  bool TextMode() const noexcept { return compare_mode_ != 0; }

  // Whether impl_ is the heap copy shared with enumerators, not storage_.
  bool SharesEntries() const noexcept;

  // The entries live in storage_, inside the dictionary. An enumerator of
  // a dictionary held by reference count holds the dictionary; one made
  // while nothing counts it (a dictionary on the stack cannot be kept alive
  // that way) first moves the entries to the heap, shared with it, since it
  // may outlive the dictionary.
  static constexpr size_t kImplSize = 48;
  int32_t compare_mode_ = 0;  // first: it fits beside Object's count
  Impl* impl_;
  alignas(8) unsigned char storage_[kImplSize];
  uint32_t room_ = 0;  // entries the object's own block has room for
};

}  // namespace kestrel
