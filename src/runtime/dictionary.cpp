#include "kestrel/runtime/dictionary.hpp"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "detail/key_folding.hpp"
#include "detail/nested_release.hpp"
#include "frame/node_memory.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

namespace {

// What a key is for matching: keys that are equal under the dictionary's
// rules have the same tag and bits (or text), and only those.
enum class KeyTag : uint8_t {
  kEmpty,
  kNull,
  kWhole,   // a number with an integral value in the int64 range: bits = int64
  kReal,    // any other number: bits = the Double's bit pattern
  kText,    // compared as text (binary, or ASCII case-insensitive: see below)
  kObject,  // bits = the object's address (identity)
};

// In text mode an ASCII key matches through ASCII case-insensitive
// comparison of its own text, with no folded copy; any other text key is
// matched through its full Unicode case folding. Folding never produces
// "A".."Z" and folds ASCII exactly to lower case, so comparing both forms
// with ASCII case ignored is the same as comparing their foldings.
inline char16_t AsciiLower(char16_t c) noexcept {
  return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}

uint32_t Mix(uint64_t h) noexcept {
  // splitmix64 finaliser: consecutive integers and pointers spread evenly.
  h += 0x9e3779b97f4a7c15ULL;
  h = (h ^ (h >> 30)) * 0xbf58476d1ce4e5b9ULL;
  h = (h ^ (h >> 27)) * 0x94d049bb133111ebULL;
  return static_cast<uint32_t>(h ^ (h >> 31));
}

// Texts are hashed four code units (one 64-bit word) at a time.
constexpr uint64_t kLanes = 0x0001000100010001ULL;

uint64_t LoadUnits(const char16_t* p, size_t n) noexcept {
  uint64_t w = 0;
  if (n == 4) {
    std::memcpy(&w, p, sizeof(w));
  } else {
    for (size_t k = 0; k < n; ++k) w |= static_cast<uint64_t>(p[k]) << (16 * k);
  }
  return w;
}

// "A".."Z" to lower case in each unit of a word, every other unit kept.
uint64_t LowerUnits(uint64_t w) noexcept {
  if ((w & (0xff80 * kLanes)) == 0) {
    // All units ASCII: c + 0x3f reaches 0x80 from "A" on, c + 0x25 from
    // just past "Z"; neither carries into the next unit.
    const uint64_t from_a = w + 0x3f * kLanes;
    const uint64_t past_z = w + 0x25 * kLanes;
    return w | (((from_a & ~past_z) & (0x80 * kLanes)) >> 2);
  }
  uint64_t out = 0;
  for (int shift = 0; shift < 64; shift += 16) {
    const auto c = static_cast<char16_t>(w >> shift);
    out |= static_cast<uint64_t>(AsciiLower(c)) << shift;
  }
  return out;
}

// The hash of a text, with "A".."Z" folded when `fold` is set; `any` gets
// every unit ORed together.
uint32_t HashUnits(std::u16string_view text, bool fold, uint64_t& any) noexcept {
  uint64_t h = 0xcbf29ce484222325ULL ^ text.size() ^ (static_cast<uint64_t>(KeyTag::kText) << 56);
  uint64_t seen = 0;
  size_t i = 0;
  for (; i + 4 <= text.size(); i += 4) {
    uint64_t w = LoadUnits(text.data() + i, 4);
    seen |= w;
    if (fold) w = LowerUnits(w);
    h = (h ^ w) * 0x100000001b3ULL;
    h ^= h >> 29;
  }
  if (i < text.size()) {
    // The last four units, overlapping the previous word, when there are
    // that many: one load instead of one per unit.
    uint64_t w = text.size() >= 4 ? LoadUnits(text.data() + text.size() - 4, 4)
                                  : LoadUnits(text.data() + i, text.size() - i);
    seen |= w;
    if (fold) w = LowerUnits(w);
    h = (h ^ w) * 0x100000001b3ULL;
  }
  any = seen;
  return Mix(h);
}

uint32_t HashText(std::u16string_view text, bool fold) noexcept {
  uint64_t any;
  return HashUnits(text, fold, any);
}

// HashText(text, true) for ASCII text, in the same pass as the check;
// false for any other text.
bool HashAsciiText(std::u16string_view text, uint32_t& hash) noexcept {
  uint64_t any;
  hash = HashUnits(text, true, any);
  return (any & (0xff80 * kLanes)) == 0;
}

bool TextEqual(std::u16string_view a, std::u16string_view b, bool fold) noexcept {
  if (a.size() != b.size()) return false;
  if (!fold) return a == b;
  size_t i = 0;
  for (; i + 4 <= a.size(); i += 4) {
    const uint64_t x = LoadUnits(a.data() + i, 4), y = LoadUnits(b.data() + i, 4);
    if (x != y && LowerUnits(x) != LowerUnits(y)) return false;
  }
  if (i < a.size() && a.size() >= 4) {
    const size_t last = a.size() - 4;
    const uint64_t x = LoadUnits(a.data() + last, 4), y = LoadUnits(b.data() + last, 4);
    return x == y || LowerUnits(x) == LowerUnits(y);
  }
  for (; i < a.size(); ++i) {
    if (a[i] != b[i] && AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

// A key reduced to what matching needs. `text` views the key's own text
// or, for a non-ASCII key in text mode, `folded`.
struct Probe {
  KeyTag tag = KeyTag::kEmpty;
  uint32_t hash = 0;
  uint64_t bits = 0;
  std::u16string_view text;
  Value folded;
};

void SetBits(Probe& p, KeyTag tag, uint64_t bits) noexcept {
  p.tag = tag;
  p.bits = bits;
  p.hash = Mix(bits ^ (static_cast<uint64_t>(tag) << 56));
}

void SetNumber(Probe& p, double d) noexcept {
  // Every number compares by value across kinds: 1, 1.0 and Long 1 are one
  // key, and -0 is 0. Integral values are held as int64 so that LongLong
  // keys beyond 2^53 stay distinct; all NaNs are one key, so that a NaN key
  // can be found again at all.
  constexpr double kTwo63 = 9223372036854775808.0;
  if (std::isnan(d)) {
    SetBits(p, KeyTag::kReal, 0x7ff8000000000000ULL);
  } else if (d >= -kTwo63 && d < kTwo63 && std::trunc(d) == d) {
    SetBits(p, KeyTag::kWhole, static_cast<uint64_t>(static_cast<int64_t>(d)));
  } else {
    SetBits(p, KeyTag::kReal, std::bit_cast<uint64_t>(d));
  }
}

// The probe of a key that is not text; false for a text key.
bool SetScalar(Probe& p, const Value& key) {
  switch (static_cast<Kind>(key.code())) {
    case Kind::kEmpty:
      SetBits(p, KeyTag::kEmpty, 0);
      return true;
    case Kind::kNull:
      SetBits(p, KeyTag::kNull, 0);
      return true;
    case Kind::kInteger:
    case Kind::kBoolean:  // True is -1, False 0
      SetBits(p, KeyTag::kWhole, static_cast<uint64_t>(int64_t{key.integer()}));
      return true;
    case Kind::kLong:
      SetBits(p, KeyTag::kWhole, static_cast<uint64_t>(int64_t{key.long_value()}));
      return true;
    case Kind::kByte:
      SetBits(p, KeyTag::kWhole, key.byte());
      return true;
    case Kind::kLongLong:
      SetBits(p, KeyTag::kWhole, static_cast<uint64_t>(key.long_long()));
      return true;
    case Kind::kSingle:
      SetNumber(p, key.single());
      return true;
    case Kind::kDouble:
      SetNumber(p, key.dbl());
      return true;
    case Kind::kDate:
      SetNumber(p, key.date());
      return true;
    case Kind::kString:
      return false;
    case Kind::kObject:
      SetBits(p, KeyTag::kObject, reinterpret_cast<uintptr_t>(key.object()));
      return true;
    default:
      // Arrays and Error-kind values (Missing included) cannot be keys.
      RaiseStandard(errors::kTypeMismatch);
  }
}

Probe MakeProbe(const Value& key, CompareMethod mode) {
  Probe p;
  if (SetScalar(p, key)) return p;
  // Database mode compares as text mode does.
  const bool fold = mode != CompareMethod::kBinary;
  p.tag = KeyTag::kText;
  p.text = key.string();
  // Binary mode hashes as text mode does for ASCII (with "A".."Z"
  // folded), so that one hash serves a key in either mode; equal texts
  // still hash alike, and matching stays exact.
  if (!fold) {
    p.hash = HashText(p.text, true);
  } else if (!HashAsciiText(p.text, p.hash)) {
    p.folded = Value(detail::FoldKeyCase(p.text));
    p.text = p.folded.string();
    p.hash = HashText(p.text, true);
  }
  return p;
}

// Whether the full case foldings of two texts are equal, without making
// them: a stored key outside ASCII against a probe's (folded) text.
bool FoldedEqual(std::u16string_view a, std::u16string_view b) noexcept {
  // ICU counts in int32_t. A kept key outside ASCII is far shorter (its
  // folding was made once), and a longer probe cannot fold to the same.
  if (a.size() > INT32_MAX || b.size() > INT32_MAX) return false;
  UErrorCode status = U_ZERO_ERROR;
  const int32_t order =
      u_strCaseCompare(reinterpret_cast<const UChar*>(a.data()), static_cast<int32_t>(a.size()),
                       reinterpret_cast<const UChar*>(b.data()), static_cast<int32_t>(b.size()),
                       U_FOLD_CASE_DEFAULT, &status);
  return U_SUCCESS(status) && order == 0;
}

}  // namespace

// Entries sit in a vector in insertion order, each with its key's hash and
// tag (what else matching needs is made again from the key on a hash
// match). Up to kLinearLimit entries a look-up scans them; past that
// an open-addressing table of entry positions (linear probing) is built and
// kept. Remove leaves a tombstone (an entry that is not live, and a kGone
// slot) and the vector is compacted once tombstones outnumber live entries,
// so removals cost amortised constant time and positions stay valid between
// compactions. Every entry also carries a sequence number that only grows,
// so a live enumerator can find its place again after any change.
struct Dictionary::Impl {
  static constexpr size_t kLinearLimit = 8;
  static constexpr uint32_t kFree = UINT32_MAX;
  static constexpr uint32_t kGone = UINT32_MAX - 1;

  struct Entry {
    Value key;  // as first added (or as last renamed by SetKey)
    Value item;
    uint64_t sequence;  // ascending along `entries`
    uint32_t hash;
    KeyTag tag;
    bool live = true;
    // A text key outside ASCII in text mode: it matches through its full
    // case folding, which is not kept (keys like that are rare, and the
    // entry stays small for the common ones) but compared as it folds.
    bool folded;

    Entry(Value&& k, Value&& i, uint64_t s, uint32_t h, KeyTag t, bool f) noexcept
        : key(std::move(k)), item(std::move(i)), sequence(s), hash(h), tag(t), folded(f) {}
    // A text key matched through its own text.
    Entry(Value&& k, Value&& i, uint64_t s, uint32_t h) noexcept
        : key(std::move(k)),
          item(std::move(i)),
          sequence(s),
          hash(h),
          tag(KeyTag::kText),
          folded(false) {}

    // Whether this entry's text key is `text`, a key's own text or, for a
    // text key outside ASCII in text mode, its folding.
    bool SameText(std::u16string_view text, bool fold) const noexcept {
      return folded ? FoldedEqual(key.string(), text) : TextEqual(key.string(), text, fold);
    }
    bool Matches(const Probe& p, bool fold) const noexcept {
      if (hash != p.hash || tag != p.tag) return false;
      if (tag == KeyTag::kText) return SameText(p.text, fold);
      // Matching bits are a function of the key: made again, not kept.
      Probe mine;
      SetScalar(mine, key);
      return mine.bits == p.bits;
    }
    void SetKey(const Value& k, const Probe& p) {
      key = k;
      hash = p.hash;
      tag = p.tag;
      folded = !p.folded.IsEmpty();
    }
  };

  // The entries' storage: a vector's, except that it may start in a block
  // the dictionary was allocated with (Dictionary::WithRoom), which it
  // never frees. Moving it out of that block allocates.
  class EntryStore {
   public:
    EntryStore() noexcept = default;
    EntryStore(Entry* block, uint32_t room) noexcept : data_(block), capacity_(room) {}
    EntryStore(EntryStore&& other) {
      if (other.owned_) {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        std::swap(owned_, other.owned_);
        return;
      }
      reserve(other.size_);
      std::uninitialized_move(other.begin(), other.end(), data_);
      size_ = other.size_;
      other.clear();
    }
    EntryStore& operator=(EntryStore&&) = delete;
    ~EntryStore() {
      clear();
      Free();
    }

    Entry* begin() noexcept { return data_; }
    Entry* end() noexcept { return data_ + size_; }
    const Entry* begin() const noexcept { return data_; }
    const Entry* end() const noexcept { return data_ + size_; }
    Entry* data() noexcept { return data_; }
    size_t size() const noexcept { return size_; }
    size_t capacity() const noexcept { return capacity_; }
    bool empty() const noexcept { return size_ == 0; }
    Entry& operator[](size_t i) noexcept { return data_[i]; }
    const Entry& operator[](size_t i) const noexcept { return data_[i]; }

    void reserve(size_t capacity) {
      if (capacity <= capacity_) return;
      if (capacity > kGone) throw std::bad_alloc();
      auto* block = static_cast<Entry*>(detail::AllocateNode(capacity * sizeof(Entry)));
      std::uninitialized_move(begin(), end(), block);
      std::destroy(begin(), end());
      Free();
      data_ = block;
      capacity_ = static_cast<uint32_t>(capacity);
      owned_ = true;
    }
    template <class... Args>
    Entry& emplace_back(Args&&... args) {
      if (size_ == capacity_) reserve(capacity_ == 0 ? 2 : size_t{capacity_} * 2);
      Entry* e = new (data_ + size_) Entry(std::forward<Args>(args)...);
      ++size_;
      return *e;
    }
    // Drops the entries from `from` on.
    void truncate(size_t from) noexcept {
      std::destroy(data_ + from, end());
      size_ = static_cast<uint32_t>(from);
    }
    void clear() noexcept { truncate(0); }
    // Empties the store whose entries the caller has destroyed itself.
    void Forget() noexcept { size_ = 0; }
    // Counts the entries the caller has constructed in place past the end,
    // within the capacity.
    void Grew(size_t count) noexcept { size_ += static_cast<uint32_t>(count); }

    // Empties the store without destroying the entries, which the caller
    // gets to destroy with TakenEntries. The dictionary's own block is not
    // used again: the entries may still be in it while they go.
    struct TakenEntries {
      Entry* data;
      uint32_t size, capacity;
      bool owned;
      ~TakenEntries() {
        std::destroy(data, data + size);
        if (owned) detail::FreeNode(data, capacity * sizeof(Entry));
      }
    };
    TakenEntries TakeAll() noexcept {
      TakenEntries taken{data_, size_, capacity_, owned_};
      data_ = nullptr;
      size_ = capacity_ = 0;
      owned_ = false;
      return taken;
    }

   private:
    void Free() noexcept {
      if (owned_) detail::FreeNode(data_, capacity_ * sizeof(Entry));
    }

    Entry* data_ = nullptr;
    uint32_t size_ = 0;
    uint32_t capacity_ = 0;
    bool owned_ = false;  // data_ is a block of its own, not the dictionary's
  };

  // The hash table's slots, in a block from the node store: a vector's
  // size and data without its third word, as dictionaries are made by the
  // thousand and most never have a table.
  class SlotTable {
   public:
    SlotTable() noexcept = default;
    SlotTable(SlotTable&& other) noexcept
        : slots_(std::exchange(other.slots_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    SlotTable& operator=(SlotTable&&) = delete;
    ~SlotTable() { clear(); }

    bool empty() const noexcept { return size_ == 0; }
    size_t size() const noexcept { return size_; }
    uint32_t& operator[](size_t i) noexcept { return slots_[i]; }
    uint32_t operator[](size_t i) const noexcept { return slots_[i]; }
    // `size` slots, each `value`. Raises std::bad_alloc, the table then
    // as it was.
    void assign(size_t size, uint32_t value) {
      if (size != size_) {
        auto* block = static_cast<uint32_t*>(detail::AllocateNode(size * sizeof(uint32_t)));
        clear();
        slots_ = block;
        size_ = static_cast<uint32_t>(size);
      }
      std::fill_n(slots_, size_, value);
    }
    void clear() noexcept {
      if (slots_ != nullptr) detail::FreeNode(slots_, size_ * sizeof(uint32_t));
      slots_ = nullptr;
      size_ = 0;
    }

   private:
    uint32_t* slots_ = nullptr;
    uint32_t size_ = 0;
  };

  // Entries moved to the heap for an enumerator that may outlive the
  // dictionary (see NewEnum), held by both until the last lets go.
  struct Shared;

  Impl() noexcept = default;
  Impl(Entry* block, uint32_t room) noexcept : entries(block, room) {}

  // The members pack into each other's padding: the dictionary's own
  // block holds this whole.
  [[no_unique_address]] EntryStore entries;
  uint32_t live = 0;
  [[no_unique_address]] SlotTable table;  // empty while look-ups scan
  uint32_t table_filled = 0;              // slots that are not kFree
  uint64_t next_sequence = 0;

  // The first entry still present whose sequence number is `sequence` or
  // later; nullptr when there is none.
  const Entry* FirstPresentFrom(uint64_t sequence) const noexcept {
    auto it = std::lower_bound(entries.begin(), entries.end(), sequence,
                               [](const Entry& e, uint64_t s) { return e.sequence < s; });
    while (it != entries.end() && !it->live) ++it;
    return it == entries.end() ? nullptr : &*it;
  }

  size_t Mask() const noexcept { return table.size() - 1; }

  Entry* Find(const Probe& p, bool fold) noexcept {
    return const_cast<Entry*>(std::as_const(*this).Find(p, fold));
  }
  const Entry* Find(const Probe& p, bool fold) const noexcept {
    return FindBy(p.hash, [&](const Entry& e) { return e.Matches(p, fold); });
  }

  // The live entry of hash `hash` that `same` accepts: a scan while there
  // is no table, else a walk of the key's probe sequence.
  template <class Same>
  const Entry* FindBy(uint32_t hash, Same same) const noexcept {
    if (table.empty()) {
      for (const Entry& e : entries) {
        if (e.live && same(e)) return &e;
      }
      return nullptr;
    }
    for (size_t i = hash & Mask();; i = (i + 1) & Mask()) {
      const uint32_t slot = table[i];
      if (slot == kFree) return nullptr;
      if (slot != kGone && same(entries[slot])) return &entries[slot];
    }
  }

  void Place(uint32_t hash, uint32_t position) noexcept {
    size_t i = hash & Mask();
    while (table[i] != kFree && table[i] != kGone) i = (i + 1) & Mask();
    if (table[i] == kFree) ++table_filled;
    table[i] = position;
  }

  // The table slot holding `position`.
  size_t SlotOf(uint32_t hash, uint32_t position) const noexcept {
    size_t i = hash & Mask();
    while (table[i] != position) i = (i + 1) & Mask();
    return i;
  }

  // Rebuild, or no table when there is no memory for one: scanning still
  // finds every entry, and the table is tried again at the next add.
  void TryRebuild() noexcept {
    try {
      Rebuild();
    } catch (const std::bad_alloc&) {
      table.clear();
      table_filled = 0;
    }
  }

  void Rebuild() {
    // Sized for every entry there is room for, so that filling a reserved
    // dictionary rebuilds the table once.
    const size_t expected = std::max(size_t{live}, entries.capacity());
    size_t size = 16;
    while (size < expected * 2 + 2) size *= 2;
    table.assign(size, kFree);
    table_filled = 0;
    for (size_t k = 0; k < entries.size(); ++k) {
      if (entries[k].live) Place(entries[k].hash, static_cast<uint32_t>(k));
    }
  }

  // The live entry whose text key equals `text` (of hash `hash`); the same
  // as Find for a text probe, without building one.
  const Entry* FindText(std::u16string_view text, uint32_t hash, bool fold) const noexcept {
    return FindBy(hash, [&](const Entry& e) {
      return e.hash == hash && e.tag == KeyTag::kText && e.SameText(text, fold);
    });
  }

  // Appends the members in place, in one pass; the caller has checked
  // that their keys are absent and made room for them.
  void AppendDistinct(std::span<TextMember> members) noexcept {
    Entry* out = entries.end();
    uint64_t sequence = next_sequence;
    for (TextMember& m : members) {
      ::new (out++) Entry(std::move(m.key), std::move(m.item), sequence++, m.hash);
    }
    next_sequence = sequence;
    entries.Grew(members.size());
    live += static_cast<uint32_t>(members.size());
    if (!table.empty() || entries.size() > kLinearLimit) TryRebuild();
  }

  // Appends a new entry; the caller has checked that the key is absent.
  Entry& Append(Value key, Value item, const Probe& p) {
    return Append(std::move(key), std::move(item), p.hash, p.tag, !p.folded.IsEmpty());
  }
  Entry& Append(Value&& key, Value&& item, uint32_t hash, KeyTag tag, bool folded) {
    if (entries.size() >= kGone) RaiseStandard(errors::kOutOfMemory);
    if (entries.empty()) entries.reserve(2);
    Entry& e =
        entries.emplace_back(std::move(key), std::move(item), next_sequence, hash, tag, folded);
    ++next_sequence;
    ++live;
    const auto position = static_cast<uint32_t>(entries.size() - 1);
    if (!table.empty() && (table_filled + 1) * 4 <= table.size() * 3) {
      Place(e.hash, position);
    } else if (!table.empty() || entries.size() > kLinearLimit) {
      TryRebuild();
    }
    return e;
  }

  void Erase(Entry& entry) noexcept {
    const auto position = static_cast<uint32_t>(&entry - entries.data());
    if (!table.empty()) table[SlotOf(entry.hash, position)] = kGone;
    entry.live = false;
    // Release the key and item now, not at the next compaction: the caller
    // expects a removed object to be let go.
    Value key = std::move(entry.key);
    Value item = std::move(entry.item);
    --live;
    const size_t removed = entries.size() - live;
    if (live == 0) {
      entries.clear();
      table.clear();
      table_filled = 0;
    } else if (removed > 16 && removed > live) {
      Compact();
    }
    // key and item are released here, after the structure is consistent
    // again, in case their destructors reach back into the dictionary.
  }

  void Compact() noexcept {
    size_t out = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
      if (!entries[i].live) continue;
      if (out != i) entries[out] = std::move(entries[i]);
      ++out;
    }
    entries.truncate(out);
    if (!table.empty()) {
      // Same size, fewer entries: refilling cannot need more memory.
      table.assign(table.size(), kFree);
      table_filled = 0;
      for (size_t k = 0; k < entries.size(); ++k) Place(entries[k].hash, static_cast<uint32_t>(k));
    }
  }

  template <class F>
  Value Collect(F field) const {
    const auto n = static_cast<int32_t>(live);
    Value array = Value::NewArray(Kind::kVariant, {Bounds{0, n - 1}});
    std::span<Value> out = array.MutableElements();
    size_t i = 0;
    for (const Entry& e : entries) {
      if (e.live) out[i++] = field(e);
    }
    return array;
  }
};

struct Dictionary::Impl::Shared {
  Impl impl;
  std::atomic<uint32_t> holders{1};

  // The Shared whose impl this is.
  static Shared* Of(Impl* impl) noexcept {
    static_assert(offsetof(Shared, impl) == 0);
    return reinterpret_cast<Shared*>(impl);
  }
  void Hold() noexcept { holders.fetch_add(1, std::memory_order_relaxed); }
  // Lets go of one hold; true when it was the last, and the caller is to
  // delete it.
  bool Drop() noexcept { return holders.fetch_sub(1, std::memory_order_acq_rel) == 1; }
};

KESTREL_REGISTER_CLASS(Dictionary, Dictionary::kQualifiedName, Instancing::kCreatable);

Dictionary::Dictionary() : impl_(new (storage_) Impl()) {
  static_assert(sizeof(Impl) <= kImplSize && alignof(Impl) <= 8);
}

bool Dictionary::SharesEntries() const noexcept {
  return impl_ != reinterpret_cast<const Impl*>(storage_);
}

Dictionary::Dictionary(uint32_t room, int32_t compare_mode) noexcept
    : compare_mode_(compare_mode),
      impl_(new (storage_) Impl(reinterpret_cast<Impl::Entry*>(this + 1), room)),
      room_(room) {
  static_assert(sizeof(Dictionary) % alignof(Impl::Entry) == 0);
}

Dictionary* Dictionary::WithRoom(uint32_t count, int32_t compare_mode) {
  if (compare_mode < -1) RaiseStandard(errors::kInvalidProcedureCall);
  if (count > Impl::kGone) throw std::bad_alloc();
  void* block = detail::AllocateNode(sizeof(Dictionary) + count * sizeof(Impl::Entry));
  return ::new (block) Dictionary(count, compare_mode);
}

Dictionary::~Dictionary() {
  // A live enumerator keeps shared entries; otherwise nested containers are
  // released one after another rather than one inside another.
  const bool shared = SharesEntries();
  if (shared && !Impl::Shared::Of(impl_)->Drop()) return;
  Impl::EntryStore& entries = impl_->entries;
  // One pass: object items are queued, everything else is let go here.
  auto release = [&entries](auto& queue) __attribute__((always_inline)) {
    for (Impl::Entry& e : entries) {
      // Ends both values: nothing else in an entry holds anything.
      detail::NestedRelease::Release(e.key, queue);
      detail::NestedRelease::Release(e.item, queue);
    }
    entries.Forget();
  };
  if (detail::NestedRelease::Queue* queue = detail::NestedRelease::Active()) {
    release(*queue);
  } else {
    detail::NestedRelease::Outermost(release);
  }
  if (shared) {
    delete Impl::Shared::Of(impl_);
  } else {
    impl_->~Impl();
  }
}

void* Dictionary::operator new(size_t size) {
  return detail::AllocateNode(size);
}

void Dictionary::operator delete(void* block, size_t size) noexcept {
  detail::FreeNode(block, size);
}

void Dictionary::operator delete(Dictionary* self, std::destroying_delete_t) noexcept {
  const size_t bytes = sizeof(Dictionary) + self->room_ * sizeof(Impl::Entry);
  self->~Dictionary();
  detail::FreeNode(self, bytes);
}

void Dictionary::Add(const Value& key, Value item) {
  Probe p = MakeProbe(key, KeyMode());
  if (impl_->Find(p, TextMode())) RaiseStandard(errors::kDuplicateKey);
  impl_->Append(key, std::move(item), p);
}

bool Dictionary::SameTextKey(std::u16string_view a, std::u16string_view b,
                             int32_t compare_mode) noexcept {
  return TextEqual(a, b, compare_mode != 0);
}

void Dictionary::AppendDistinctText(std::span<TextMember> members) {
  Impl& d = *impl_;
  if (members.size() >= Impl::kGone - d.entries.size()) RaiseStandard(errors::kOutOfMemory);
  d.entries.reserve(d.entries.size() + members.size());
  d.AppendDistinct(members);
}

Dictionary* Dictionary::WithDistinctText(std::span<TextMember> members, int32_t compare_mode) {
  if (members.size() > Impl::kGone) throw std::bad_alloc();
  Dictionary* dict = WithRoom(static_cast<uint32_t>(members.size()), compare_mode);
  dict->impl_->AppendDistinct(members);
  return dict;
}

void Dictionary::AddText(Value&& key, uint32_t hash, bool ascii, Value item) {
  // A key outside ASCII in text mode is matched through its folding, which
  // has a hash of its own.
  if (!ascii && TextMode()) return Add(key, std::move(item));
  if (impl_->FindText(key.string(), hash, TextMode()) != nullptr) {
    RaiseStandard(errors::kDuplicateKey);
  }
  impl_->Append(std::move(key), std::move(item), hash, KeyTag::kText, false);
}

uint32_t Dictionary::TextKeyHash(std::u16string_view text, bool& ascii) noexcept {
  uint32_t hash;
  ascii = HashAsciiText(text, hash);
  return hash;
}

Value Dictionary::Item(const Value& key) {
  Probe p = MakeProbe(key, KeyMode());
  if (Impl::Entry* e = impl_->Find(p, TextMode())) return e->item;
  // Reading a missing key adds it: the runtime's dictionary does, and code
  // written against it relies on d(k) = d(k) + 1 working for a new k.
  impl_->Append(key, Value(), p);
  return Value();
}

void Dictionary::SetItem(const Value& key, Value item) {
  Probe p = MakeProbe(key, KeyMode());
  if (Impl::Entry* e = impl_->Find(p, TextMode())) {
    e->item = std::move(item);  // the key keeps its first spelling and kind
  } else {
    impl_->Append(key, std::move(item), p);
  }
}

void Dictionary::SetKey(const Value& key, const Value& new_key) {
  Impl::Entry* e = impl_->Find(MakeProbe(key, KeyMode()), TextMode());
  if (e == nullptr) RaiseStandard(errors::kElementNotFound);
  Probe p = MakeProbe(new_key, KeyMode());
  // Also when new_key names this very entry (another spelling in text mode):
  // the runtime refuses the rename rather than respell the key.
  if (impl_->Find(p, TextMode())) RaiseStandard(errors::kDuplicateKey);
  // The entry keeps its place in the order; only its table slot moves.
  const auto position = static_cast<uint32_t>(e - impl_->entries.data());
  if (!impl_->table.empty()) impl_->table[impl_->SlotOf(e->hash, position)] = Impl::kGone;
  e->SetKey(new_key, p);
  if (!impl_->table.empty()) impl_->Place(e->hash, position);
}

bool Dictionary::Exists(const Value& key) const {
  return impl_->Find(MakeProbe(key, KeyMode()), TextMode()) != nullptr;
}

int32_t Dictionary::Count() const noexcept {
  return static_cast<int32_t>(impl_->live);
}

void Dictionary::Reserve(int32_t count) {
  if (count > 0) impl_->entries.reserve(static_cast<size_t>(count));
}

Value Dictionary::Keys() const {
  return impl_->Collect([](const Impl::Entry& e) { return e.key; });
}

Value Dictionary::Items() const {
  return impl_->Collect([](const Impl::Entry& e) { return e.item; });
}

void Dictionary::Remove(const Value& key) {
  Impl::Entry* e = impl_->Find(MakeProbe(key, KeyMode()), TextMode());
  if (e == nullptr) RaiseStandard(errors::kElementNotFound);
  impl_->Erase(*e);
}

void Dictionary::RemoveAll() noexcept {
  // Moved out first so that destructors of keys and items run against an
  // already empty dictionary.
  const auto taken = impl_->entries.TakeAll();
  impl_->table.clear();
  impl_->table_filled = 0;
  impl_->live = 0;
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
  // Holds either the dictionary or its shared entries (a hold already
  // taken for it).
  KeyEnumerator(Ref<Object> owner, Impl::Shared* shared, const Impl* entries)
      : owner_(std::move(owner)), shared_(shared), entries_(entries) {
    Reset();
  }
  ~KeyEnumerator() override {
    if (shared_ != nullptr && shared_->Drop()) delete shared_;
  }
  KeyEnumerator(const KeyEnumerator&) = delete;
  KeyEnumerator& operator=(const KeyEnumerator&) = delete;

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
  Ref<Object> owner_;
  Impl::Shared* shared_;
  const Impl* entries_;
  uint64_t next_ = 0;
  bool at_end_ = true;
};

Ref<Object> Dictionary::NewEnum() {
  if (RefCount() > 0) return MakeRef<KeyEnumerator>(Ref<Object>(this), nullptr, impl_);
  if (!SharesEntries()) {
    auto* shared = new Impl::Shared{Impl(std::move(*impl_))};
    impl_->~Impl();
    impl_ = &shared->impl;
  }
  auto* shared = Impl::Shared::Of(impl_);
  shared->Hold();
  try {
    return MakeRef<KeyEnumerator>(nullptr, shared, impl_);
  } catch (...) {
    shared->Drop();  // the dictionary still holds it
    throw;
  }
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
