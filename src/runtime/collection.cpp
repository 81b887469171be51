#include "kestrel/runtime/collection.hpp"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>

#include "detail/key_folding.hpp"
#include "frame/node_memory.hpp"
#include "detail/nested_release.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

namespace {

// What a list built by Add starts with, so that short lists grow once.
constexpr size_t kFirstCapacity = 4;

// The kinds that select an item by position. Boolean and Date count: the
// runtime converts them like any other number (True is -1, out of range).
bool IsPositionKind(const Value& v) noexcept {
  switch (static_cast<Kind>(v.code())) {
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kDate:
    case Kind::kBoolean:
    case Kind::kByte:
    case Kind::kLongLong:
      return true;
    default:
      return false;
  }
}

}  // namespace

// Folded key -> 0-based position of its item, and per item its entry in the
// map (nullptr for an item without a key). Plain lists never have one, so
// they cost one vector. The map's nodes never move, so positions can be
// rewritten without hashing.
struct Collection::KeyIndex {
  using Map = std::unordered_map<std::u16string, size_t>;
  Map map;
  std::vector<Map::value_type*> slots;

  // Brings the positions stored in the map up to date from `from` on,
  // after an insertion or removal shifted the items.
  void Reindex(size_t from) noexcept {
    for (size_t i = from; i < slots.size(); ++i) {
      if (slots[i] != nullptr) slots[i]->second = i;
    }
  }
};

KESTREL_REGISTER_CLASS(Collection, Collection::kQualifiedName, Instancing::kCreatable);

Collection::Collection() = default;

Collection::Collection(uint32_t room) noexcept
    : room_(room), capacity_(room), items_(room != 0 ? RoomItems() : nullptr) {
  static_assert(sizeof(Collection) % alignof(Value) == 0);
}

Collection* Collection::WithItems(std::span<Value> items) {
  Collection* list = WithRoom(static_cast<uint32_t>(items.size()));
  Value* room = list->RoomItems();
  for (Value& item : items) ::new (room++) Value(std::move(item));
  list->count_ = static_cast<uint32_t>(items.size());
  return list;
}

Collection* Collection::WithRoom(uint32_t count) {
  if (count > static_cast<uint32_t>(INT32_MAX)) throw std::bad_alloc();
  void* block = detail::AllocateNode(sizeof(Collection) + size_t{count} * sizeof(Value));
  return ::new (block) Collection(count);
}

Collection::~Collection() {
  // Nested containers are released one after another, not one inside
  // another, however deep the tree: object items are queued, everything
  // else is let go here, in one pass.
  auto release = [this](auto& queue) __attribute__((always_inline)) {
    for (Value *v = items_, *end = items_ + count_; v != end; ++v) {
      detail::NestedRelease::Release(*v, queue);
    }
  };
  if (detail::NestedRelease::Queue* queue = detail::NestedRelease::Active()) {
    release(*queue);
  } else if (std::any_of(items_, items_ + count_, [](const Value& v) { return v.IsObject(); })) {
    detail::NestedRelease::Outermost(release);
  } else {
    std::destroy(items_, items_ + count_);
  }
  if (OwnsItems()) detail::FreeNode(items_, capacity_ * sizeof(Value));
}

void* Collection::operator new(size_t size) {
  return detail::AllocateNode(size);
}

void Collection::operator delete(void* block, size_t size) noexcept {
  detail::FreeNode(block, size);
}

void Collection::operator delete(Collection* self, std::destroying_delete_t) noexcept {
  const size_t bytes = sizeof(Collection) + size_t{self->room_} * sizeof(Value);
  self->~Collection();
  detail::FreeNode(self, bytes);
}

void Collection::Reserve(size_t capacity) {
  if (capacity <= capacity_) return;
  if (capacity > static_cast<size_t>(INT32_MAX)) throw std::bad_alloc();
  // Geometric growth keeps a run of Adds linear; Append asks for its exact size.
  const size_t grown = std::max({capacity, size_t{capacity_} + capacity_ / 2, kFirstCapacity});
  const size_t size = std::min<size_t>(grown, INT32_MAX);
  auto* block = static_cast<Value*>(detail::AllocateNode(size * sizeof(Value)));
  std::uninitialized_move(items_, items_ + count_, block);
  std::destroy(items_, items_ + count_);
  if (OwnsItems()) detail::FreeNode(items_, capacity_ * sizeof(Value));
  items_ = block;
  capacity_ = static_cast<uint32_t>(size);
}

void Collection::Add(Value item, const Value& key, const Value& before, const Value& after) {
  if (key.IsMissing() && before.IsMissing() && after.IsMissing()) {
    // The common case: no key, at the end.
    if (keys_) keys_->slots.reserve(count_ + 1);
    Reserve(size_t{count_} + 1);
    new (items_ + count_) Value(std::move(item));
    ++count_;
    if (keys_) keys_->slots.push_back(nullptr);
    return;
  }
  // The key is checked before the position: a bad key fails the same way
  // wherever the item would have gone.
  const bool keyed = !key.IsMissing();
  std::u16string folded;
  if (keyed) {
    if (!key.IsString()) RaiseStandard(errors::kTypeMismatch);
    folded = detail::FoldKeyCase(key.string());
    if (keys_ && keys_->map.contains(folded)) RaiseStandard(errors::kDuplicateKey);
  }
  if (!before.IsMissing() && !after.IsMissing()) RaiseStandard(errors::kInvalidProcedureCall);

  size_t position = count_;
  if (!before.IsMissing()) {
    position = PositionOf(before);
  } else if (!after.IsMissing()) {
    position = PositionOf(after) + 1;
  }

  // Only allocation can fail from here on; undo the key on failure so the
  // index never names an item that is not there.
  if (keyed && !keys_) {
    auto keys = std::make_unique<KeyIndex>();
    keys->slots.assign(count_, nullptr);
    keys_ = std::move(keys);
  }
  KeyIndex::Map::iterator slot;
  if (keyed) slot = keys_->map.emplace(std::move(folded), position).first;
  try {
    // Both allocations happen before anything moves; the shift itself
    // cannot fail.
    Reserve(size_t{count_} + 1);
    if (keys_) {
      keys_->slots.insert(keys_->slots.begin() + static_cast<std::ptrdiff_t>(position),
                          keyed ? &*slot : nullptr);
    }
  } catch (...) {
    if (keyed) keys_->map.erase(slot);
    throw;
  }
  if (position == count_) {
    new (items_ + count_) Value(std::move(item));
  } else {
    new (items_ + count_) Value(std::move(items_[count_ - 1]));
    std::move_backward(items_ + position, items_ + count_ - 1, items_ + count_);
    items_[position] = std::move(item);
  }
  ++count_;
  if (keys_) keys_->Reindex(position + 1);
}

void Collection::Append(std::span<Value> items) {
  if (keys_) keys_->slots.reserve(count_ + items.size());
  if (items.size() > capacity_ - count_) {
    // Exactly the size asked: a parsed list never grows afterwards.
    if (items.size() > static_cast<size_t>(INT32_MAX) - count_) throw std::bad_alloc();
    const size_t want = count_ + items.size();
    auto* block = static_cast<Value*>(detail::AllocateNode(want * sizeof(Value)));
    std::uninitialized_move(items_, items_ + count_, block);
    std::destroy(items_, items_ + count_);
    if (OwnsItems()) detail::FreeNode(items_, capacity_ * sizeof(Value));
    items_ = block;
    capacity_ = static_cast<uint32_t>(want);
  }
  std::uninitialized_move(items.begin(), items.end(), items_ + count_);
  count_ += static_cast<uint32_t>(items.size());
  if (keys_) keys_->slots.resize(count_, nullptr);
}

Value Collection::Item(const Value& index) const {
  return items_[PositionOf(index)];
}

void Collection::Remove(const Value& index) {
  const size_t position = PositionOf(index);
  if (keys_) {
    if (KeyIndex::Map::value_type* slot = keys_->slots[position]) {
      keys_->map.erase(keys_->map.find(slot->first));
    }
    keys_->slots.erase(keys_->slots.begin() + static_cast<std::ptrdiff_t>(position));
  }
  std::move(items_ + position + 1, items_ + count_, items_ + position);
  --count_;
  std::destroy_at(items_ + count_);
  if (keys_) keys_->Reindex(position);
}

Ref<Object> Collection::NewEnum() {
  return MakeRef<ValueEnumerator>(std::vector<Value>(items_, items_ + count_));
}

size_t Collection::PositionOf(const Value& index) const {
  if (IsPositionKind(index)) {
    // Rounded ties to even like any Long parameter; a magnitude beyond the
    // Long range overflows (6) before it can be out of range.
    const int32_t n = runtime::ToLong(index);
    if (n < 1 || n > Count()) RaiseStandard(errors::kSubscriptOutOfRange);
    return static_cast<size_t>(n - 1);
  }
  if (index.IsString()) {
    if (!keys_) RaiseStandard(errors::kInvalidProcedureCall);
    auto it = keys_->map.find(detail::FoldKeyCase(index.string()));
    if (it == keys_->map.end()) RaiseStandard(errors::kInvalidProcedureCall);
    return it->second;
  }
  // Empty, Null, Missing, objects, arrays and error values select nothing.
  RaiseStandard(errors::kTypeMismatch);
}

const DispatchTable<Collection>& Collection::Dispatch() {
  static const auto table =
      DispatchTable<Collection>::Builder(u"Collection")
          .DefaultMember(u"Item")
          .Method(u"Add", 1, 4,
                  [](Collection& c, Args& a) {
                    // Args hands out one scratch Missing for every omitted
                    // argument: copy before taking the next one.
                    Value key = a[1];
                    Value before = a[2];
                    Value after = a[3];
                    c.Add(a[0], key, before, after);
                    return Value();
                  })
          .Method(u"Item", 1, 1, [](Collection& c, Args& a) { return c.Item(a[0]); })
          .Get(
              u"Item", [](Collection& c, Args& a) { return c.Item(a[0]); }, 1, 1)
          .Get(u"Count", [](Collection& c, Args&) { return Value(c.Count()); })
          .Method(u"Remove", 1, 1,
                  [](Collection& c, Args& a) {
                    c.Remove(a[0]);
                    return Value();
                  })
          .Method(u"_NewEnum", 0, 0, [](Collection& c, Args&) { return Value(c.NewEnum()); })
          .Method(u"NewEnum", 0, 0, [](Collection& c, Args&) { return Value(c.NewEnum()); })
          .Build();
  return table;
}

}  // namespace kestrel
