#include "kestrel/runtime/dictionary.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <unordered_map>
#include <utility>

#include "detail/key_folding.hpp"
#include "detail/nested_release.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

namespace {

// What a key is for matching: keys that are equal under the dictionary's
// rules map to the same KeyId, and only those.
enum class KeyTag : uint8_t {
  kEmpty,
  kNull,
  kWhole,   // a number with an integral value in the int64 range: bits = int64
  kReal,    // any other number: bits = the Double's bit pattern
  kText,    // text = the key (binary mode) or its case folding (text mode)
  kObject,  // bits = the object's address (identity)
};

struct KeyId {
  KeyTag tag = KeyTag::kEmpty;
  uint64_t bits = 0;
  // A String: the key itself (sharing its text) or, when folding changes
  // it, its case folding. Empty for every other tag.
  Value text;

  friend bool operator==(const KeyId& a, const KeyId& b) noexcept {
    return a.tag == b.tag && a.bits == b.bits && a.text.string() == b.text.string();
  }
};

struct KeyIdHash {
  size_t operator()(const KeyId& k) const noexcept {
    uint64_t h = k.bits ^ (static_cast<uint64_t>(k.tag) << 56);
    if (k.tag == KeyTag::kText) h ^= std::hash<std::u16string_view>()(k.text.string());
    // splitmix64 finaliser: consecutive integers and pointers spread evenly.
    h += 0x9e3779b97f4a7c15ULL;
    h = (h ^ (h >> 30)) * 0xbf58476d1ce4e5b9ULL;
    h = (h ^ (h >> 27)) * 0x94d049bb133111ebULL;
    return static_cast<size_t>(h ^ (h >> 31));
  }
};

KeyId NumberKey(double d) {
  // Every number compares by value across kinds: 1, 1.0 and Long 1 are one
  // key, and -0 is 0. Integral values are held as int64 so that LongLong
  // keys beyond 2^53 stay distinct; all NaNs are one key, so that a NaN key
  // can be found again at all.
  constexpr double kTwo63 = 9223372036854775808.0;
  if (std::isnan(d)) return {KeyTag::kReal, 0x7ff8000000000000ULL, {}};
  if (d >= -kTwo63 && d < kTwo63 && std::trunc(d) == d) {
    return {KeyTag::kWhole, static_cast<uint64_t>(static_cast<int64_t>(d)), {}};
  }
  return {KeyTag::kReal, std::bit_cast<uint64_t>(d), {}};
}

KeyId WholeKey(int64_t n) {
  return {KeyTag::kWhole, static_cast<uint64_t>(n), {}};
}

KeyId MakeKeyId(const Value& key, CompareMethod mode) {
  switch (static_cast<Kind>(key.code())) {
    case Kind::kEmpty:
      return {KeyTag::kEmpty, 0, {}};
    case Kind::kNull:
      return {KeyTag::kNull, 0, {}};
    case Kind::kInteger:
    case Kind::kBoolean:  // True is -1, False 0
      return WholeKey(key.integer());
    case Kind::kLong:
      return WholeKey(key.long_value());
    case Kind::kByte:
      return WholeKey(key.byte());
    case Kind::kLongLong:
      return WholeKey(key.long_long());
    case Kind::kSingle:
      return NumberKey(key.single());
    case Kind::kDouble:
      return NumberKey(key.dbl());
    case Kind::kDate:
      return NumberKey(key.date());
    case Kind::kString: {
      // Database mode compares as text mode does. Keys that folding leaves
      // as they are (binary mode, or ASCII without capitals) share the key's
      // text instead of holding a copy.
      const std::u16string_view text = key.string();
      const bool unchanged =
          mode == CompareMethod::kBinary || std::all_of(text.begin(), text.end(), [](char16_t c) {
            return c < 0x80 && (c < u'A' || c > u'Z');
          });
      return {KeyTag::kText, 0, unchanged ? key : Value(detail::FoldKeyCase(text))};
    }
    case Kind::kObject:
      return {KeyTag::kObject, reinterpret_cast<uintptr_t>(key.object()), {}};
    default:
      // Arrays and Error-kind values (Missing included) cannot be keys.
      RaiseStandard(errors::kTypeMismatch);
  }
}

}  // namespace

// Entries sit in a vector in insertion order; a hash index maps each KeyId
// to its entry's position. Remove leaves a tombstone (an entry without a
// slot) and the vector is compacted once tombstones outnumber live entries,
// so removals cost amortised constant time and positions stay valid between
// compactions. Every entry also carries a sequence number that only grows,
// so a live enumerator can find its place again after any change.
struct Dictionary::Impl {
  using Index = std::unordered_map<KeyId, size_t, KeyIdHash>;

  struct Entry {
    Value key;  // as first added (or as last renamed by SetKey)
    Value item;
    Index::value_type* slot;  // nullptr for a removed entry
    uint64_t sequence;        // ascending along `entries`
  };

  // Nodes of an unordered_map never move, so an entry can keep a pointer to
  // its own index node and compaction rewrites positions without hashing.
  Index index;
  std::vector<Entry> entries;
  size_t removed = 0;
  uint64_t next_sequence = 0;

  // The first entry still present whose sequence number is `sequence` or
  // later; nullptr when there is none.
  const Entry* FirstPresentFrom(uint64_t sequence) const noexcept {
    auto it = std::lower_bound(entries.begin(), entries.end(), sequence,
                               [](const Entry& e, uint64_t s) { return e.sequence < s; });
    while (it != entries.end() && it->slot == nullptr) ++it;
    return it == entries.end() ? nullptr : &*it;
  }

  Entry* Find(const KeyId& id) {
    auto it = index.find(id);
    return it == index.end() ? nullptr : &entries[it->second];
  }

  // Appends a new entry; the caller has checked that the key is absent.
  Entry& Append(KeyId id, const Value& key, Value item) {
    auto it = index.emplace(std::move(id), entries.size()).first;
    try {
      entries.push_back(Entry{key, std::move(item), &*it, next_sequence});
    } catch (...) {
      index.erase(it);
      throw;
    }
    ++next_sequence;
    return entries.back();
  }

  void Erase(Entry& entry) noexcept {
    index.erase(index.find(entry.slot->first));
    entry.slot = nullptr;
    // Release the key and item now, not at the next compaction: the caller
    // expects a removed object to be let go.
    Value key = std::move(entry.key);
    Value item = std::move(entry.item);
    ++removed;
    if (index.empty()) {
      entries.clear();
      removed = 0;
    } else if (removed > 16 && removed > index.size()) {
      Compact();
    }
    // key and item are released here, after the structure is consistent
    // again, in case their destructors reach back into the dictionary.
  }

  void Compact() noexcept {
    size_t out = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].slot == nullptr) continue;
      if (out != i) entries[out] = std::move(entries[i]);
      entries[out].slot->second = out;
      ++out;
    }
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(out), entries.end());
    removed = 0;
  }

  template <class F>
  Value Collect(F field) const {
    const auto n = static_cast<int32_t>(index.size());
    Value array = Value::NewArray(Kind::kVariant, {Bounds{0, n - 1}});
    std::span<Value> out = array.MutableElements();
    size_t i = 0;
    for (const Entry& e : entries) {
      if (e.slot != nullptr) out[i++] = field(e);
    }
    return array;
  }
};

KESTREL_REGISTER_CLASS(Dictionary, Dictionary::kQualifiedName, Instancing::kCreatable);

Dictionary::Dictionary() : impl_(std::make_shared<Impl>()) {}

Dictionary::~Dictionary() {
  // A live enumerator keeps the entries; otherwise nested containers are
  // released one after another rather than one inside another.
  if (impl_.use_count() != 1) return;
  detail::NestedRelease release;
  for (Impl::Entry& e : impl_->entries) {
    release.Take(e.key);
    release.Take(e.item);
  }
  impl_.reset();
}

void Dictionary::Add(const Value& key, Value item) {
  // One hash and one probe: the key goes into the index first and comes out
  // again when the entry cannot be stored.
  auto [slot, added] = impl_->index.emplace(MakeKeyId(key, KeyMode()), impl_->entries.size());
  if (!added) RaiseStandard(errors::kDuplicateKey);
  try {
    impl_->entries.push_back(Impl::Entry{key, std::move(item), &*slot, impl_->next_sequence});
  } catch (...) {
    impl_->index.erase(slot);
    throw;
  }
  ++impl_->next_sequence;
}

Value Dictionary::Item(const Value& key) {
  KeyId id = MakeKeyId(key, KeyMode());
  if (Impl::Entry* e = impl_->Find(id)) return e->item;
  // Reading a missing key adds it: the runtime's dictionary does, and code
  // written against it relies on d(k) = d(k) + 1 working for a new k.
  impl_->Append(std::move(id), key, Value());
  return Value();
}

void Dictionary::SetItem(const Value& key, Value item) {
  KeyId id = MakeKeyId(key, KeyMode());
  if (Impl::Entry* e = impl_->Find(id)) {
    e->item = std::move(item);  // the key keeps its first spelling and kind
  } else {
    impl_->Append(std::move(id), key, std::move(item));
  }
}

void Dictionary::SetKey(const Value& key, const Value& new_key) {
  Impl::Entry* e = impl_->Find(MakeKeyId(key, KeyMode()));
  if (e == nullptr) RaiseStandard(errors::kElementNotFound);
  KeyId id = MakeKeyId(new_key, KeyMode());
  // Also when new_key names this very entry (another spelling in text mode):
  // the runtime refuses the rename rather than respell the key.
  if (impl_->index.contains(id)) RaiseStandard(errors::kDuplicateKey);
  // The entry keeps its place in the order; its index node is re-keyed in
  // place (extract and insert keep the node, so the entry's slot stays valid).
  auto node = impl_->index.extract(impl_->index.find(e->slot->first));
  node.key() = std::move(id);
  impl_->index.insert(std::move(node));
  e->key = new_key;
}

bool Dictionary::Exists(const Value& key) const {
  return impl_->index.contains(MakeKeyId(key, KeyMode()));
}

int32_t Dictionary::Count() const noexcept {
  return static_cast<int32_t>(impl_->index.size());
}

Value Dictionary::Keys() const {
  return impl_->Collect([](const Impl::Entry& e) { return e.key; });
}

Value Dictionary::Items() const {
  return impl_->Collect([](const Impl::Entry& e) { return e.item; });
}

void Dictionary::Remove(const Value& key) {
  Impl::Entry* e = impl_->Find(MakeKeyId(key, KeyMode()));
  if (e == nullptr) RaiseStandard(errors::kElementNotFound);
  impl_->Erase(*e);
}

void Dictionary::RemoveAll() noexcept {
  // Moved out first so that destructors of keys and items run against an
  // already empty dictionary.
  std::vector<Impl::Entry> entries = std::move(impl_->entries);
  impl_->entries.clear();
  impl_->index.clear();
  impl_->removed = 0;
}

void Dictionary::SetCompareMode(int32_t mode) {
  // Keys already indexed were folded (or not) under the current mode.
  if (Count() > 0 || mode < -1) RaiseStandard(errors::kInvalidProcedureCall);
  compare_mode_ = mode;
}

// Walks the dictionary's own entries. It holds the sequence number of the
// key it hands out next, fixed when the previous key was handed out, as a
// pointer to the next node would be: a removed key is skipped, and past the
// last key the enumerator stays at its end until Reset.
class Dictionary::KeyEnumerator : public Dispatchable<KeyEnumerator>, public Enumerator {
 public:
  explicit KeyEnumerator(std::shared_ptr<const Impl> entries) : entries_(std::move(entries)) {
    Reset();
  }

  bool Next(Value& out) override {
    const Impl::Entry* e = at_end_ ? nullptr : entries_->FirstPresentFrom(next_);
    if (e == nullptr) {
      at_end_ = true;
      out = Value();
      return false;
    }
    out = e->key;
    const Impl::Entry* following = entries_->FirstPresentFrom(e->sequence + 1);
    at_end_ = following == nullptr;
    if (following) next_ = following->sequence;
    return true;
  }
  void Reset() override {
    const Impl::Entry* first = entries_->FirstPresentFrom(0);
    at_end_ = first == nullptr;
    if (first) next_ = first->sequence;
  }
  bool Done() const noexcept { return at_end_; }

  static const DispatchTable<KeyEnumerator>& Dispatch() {
    static const auto table = EnumeratorDispatchTable<KeyEnumerator>(u"DictionaryEnumerator");
    return table;
  }

 private:
  std::shared_ptr<const Impl> entries_;
  uint64_t next_ = 0;
  bool at_end_ = true;
};

Ref<Object> Dictionary::NewEnum() {
  return MakeRef<KeyEnumerator>(impl_);
}

const DispatchTable<Dictionary>& Dictionary::Dispatch() {
  using D = Dictionary;
  static const auto table =
      DispatchTable<D>::Builder(u"Dictionary")
          .DefaultMember(u"Item")
          .Method(u"Add", 2, 2,
                  [](D& d, Args& a) {
                    d.Add(a[0], a[1]);
                    return Value();
                  })
          .Get(
              u"Item", [](D& d, Args& a) { return d.Item(a[0]); }, 1, 1)
          .Let(u"Item", [](D& d, Args& a, const Value& v) { d.SetItem(a[0], v); })
          .Set(u"Item",
               [](D& d, Args& a, const Value& v) {
                 // A Set statement assigns object references only.
                 if (!v.IsObject()) RaiseStandard(errors::kObjectRequired);
                 d.SetItem(a[0], v);
               })
          // Key can only be written: d.Key(old) = new.
          .Let(
              u"Key", [](D& d, Args& a, const Value& v) { d.SetKey(a[0], v); }, 1, 1)
          .Get(u"Count", [](D& d, Args&) { return Value(d.Count()); })
          .Method(u"Exists", 1, 1, [](D& d, Args& a) { return Value(d.Exists(a[0])); })
          .Method(u"Keys", 0, 0, [](D& d, Args&) { return d.Keys(); })
          .Method(u"Items", 0, 0, [](D& d, Args&) { return d.Items(); })
          .Method(u"Remove", 1, 1,
                  [](D& d, Args& a) {
                    d.Remove(a[0]);
                    return Value();
                  })
          .Method(u"RemoveAll", 0, 0,
                  [](D& d, Args&) {
                    d.RemoveAll();
                    return Value();
                  })
          .Property(
              u"CompareMode", [](D& d, Args&) { return Value(d.CompareMode()); },
              [](D& d, Args&, const Value& v) { d.SetCompareMode(runtime::ToLong(v)); })
          .Method(u"_NewEnum", 0, 0, [](D& d, Args&) { return Value(d.NewEnum()); })
          .Method(u"NewEnum", 0, 0, [](D& d, Args&) { return Value(d.NewEnum()); })
          .Build();
  return table;
}

}  // namespace kestrel
