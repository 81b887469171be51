#include "kestrel/formats/json.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "json_number.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dictionary.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

namespace detail {

// What the reader makes is its own until Parse returns: no other thread can
// reach a node or a string of the tree being built. So a new container's
// count is set by a plain store, and a pooled string is handed out without
// a count per copy, its count settled once at the end; each of these would
// otherwise be an atomic instruction, a large share of building a tree.
struct FreshReferences {
  static Value Adopt(Object* fresh) noexcept {
    fresh->refs_.store(1, std::memory_order_relaxed);
    Value held;
    held.head_ = uint16_t(Kind::kObject);
    held.obj_ = fresh;
    return held;
  }
  // A copy of a string that its count does not know of yet.
  static Value Uncounted(const Value& text) noexcept {
    Value copy;
    copy.head_ = text.head_;
    copy.bits_ = text.bits_;
    return copy;
  }
  // Adds `delta` (mod 2^32) to a string's count.
  static void Charge(const Value& text, uint32_t delta) noexcept {
    if (text.IsString() && text.str_ != nullptr) {
      text.str_->refs.fetch_add(delta, std::memory_order_relaxed);
    }
  }
};

}  // namespace detail

namespace {

using detail::FreshReferences;

constexpr std::u16string_view kLineEnd = u"\r\n";
// How much of the text an array's failure line shows.
constexpr size_t kExcerptLength = 20;

bool IsBlank(char16_t c) noexcept {
  constexpr uint64_t kBlanks = (1ULL << ' ') | (1ULL << '\n') | (1ULL << '\r') | (1ULL << '\t');
  return c <= u' ' && ((kBlanks >> c) & 1) != 0;
}

// Blanks, "(", ")" and the characters that open comments: what Skip
// passes over or has to look at.
bool IsSkipped(char16_t c) noexcept {
  constexpr uint64_t kSkipped = (1ULL << ' ') | (1ULL << '\n') | (1ULL << '\r') | (1ULL << '\t') |
                                (1ULL << '(') | (1ULL << ')') | (1ULL << '*') | (1ULL << '/');
  return c < 64 && ((kSkipped >> c) & 1) != 0;
}

bool IsKeyBlank(char16_t c) noexcept {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

int HexDigit(char16_t c) noexcept {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

void AppendDecimal(std::u16string& out, size_t number) {
  char digits[24];
  auto [end, ec] = std::to_chars(digits, digits + sizeof(digits), number);
  out.append(digits, end);
}

// Member names repeat throughout a document (every record of a list has the
// same ones), and so do many short values. Within one parse, equal short
// texts share one string: strings are immutable and shared copy-on-write,
// so no holder can tell.
//
// A pooled string carries a large bias in its count while the pool lives,
// and its copies are handed out uncounted: a copy dropped during the parse
// (a failed container) takes one off the bias, and the pool's end settles
// the count to the copies it handed out, less those.
class StringPool {
 public:
  // `expected`: how many strings the pool is likely to hold.
  explicit StringPool(size_t expected) {
    while (first_size_ < kMostSlots && first_size_ < expected * 2) first_size_ *= 2;
  }
  StringPool(const StringPool&) = delete;
  StringPool& operator=(const StringPool&) = delete;
  ~StringPool() {
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (hashes_[i] != kUnused) FreshReferences::Charge(slots_[i].text, slots_[i].handed - kBias);
    }
  }

  // A string value. Only the shortest are pooled: those recur (codes,
  // flags, small words), while longer ones are mostly unique, and looking
  // each up in a table grown large by them costs more than it saves.
  Value Get(std::u16string_view text) {
    if (text.size() > kLongestValue) return Value(text);
    Slot* slot = Find(text);
    return slot != nullptr ? Hand(*slot) : Value(text);
  }

  // A member name, with the hash Dictionary::AddText takes. The pool keeps
  // that hash beside the name, so a name that recurs (as most do) is hashed
  // the dictionary's way once per parse.
  // `index` gets the name's slot, for KeyAt, or kNoSlot when the name is
  // not pooled.
  Value GetKey(std::u16string_view text, uint32_t& hash, bool& ascii, uint32_t& index) {
    Slot* slot = text.size() > kLongest ? nullptr : Find(text);
    if (slot == nullptr) {
      index = kNoSlot;
      hash = Dictionary::TextKeyHash(text, ascii);
      return Value(text);
    }
    index = static_cast<uint32_t>(slot - slots_.data());
    return KeyOf(*slot, hash, ascii);
  }

  // The length of the name in slot `index` when the `available` units at
  // `at` start with it and it holds no character that ends a plain name
  // (quotes, ":", blanks), else npos. Any slot will do: a match is a
  // match, so an index from before the table grew is merely a worse guess.
  size_t PlainKeyLengthAt(uint32_t index, const char16_t* at, size_t available) const noexcept {
    if (index >= slots_.size()) return std::u16string_view::npos;
    const Slot& slot = slots_[index];
    if (!slot.plain || slot.size > available || !SameUnits(slot.data, {at, slot.size})) {
      return std::u16string_view::npos;
    }
    return slot.size;
  }

  // The slot of the name that followed the one in slot `index` last time,
  // and setting it; kNoSlot when unknown. Like any guess, a stale one only
  // misses.
  uint32_t NextKeyOf(uint32_t index) const noexcept {
    return index < slots_.size() ? slots_[index].next_key : kNoSlot;
  }
  void SetNextKey(uint32_t index, uint32_t next) noexcept {
    if (index < slots_.size()) slots_[index].next_key = next;
  }

  // The name in a slot PlainKeyLengthAt matched, as GetKey gives it.
  Value KeyAt(uint32_t index, uint32_t& hash, bool& ascii) {
    return KeyOf(slots_[index], hash, ascii);
  }

  static constexpr uint32_t kNoSlot = UINT32_MAX;

  size_t Count() const noexcept { return used_; }

 private:
  // Far above any count a parse can hand out below kMostHanded, and far
  // below the count's wrap.
  static constexpr uint32_t kBias = uint32_t{1} << 30;
  static constexpr uint32_t kMostHanded = uint32_t{1} << 29;

  struct Slot {
    Value text;
    const char16_t* data = nullptr;  // text's units, compared without a call
    uint32_t size = 0;
    uint32_t handed = 0;    // uncounted copies given out
    uint32_t key_hash = 0;  // set with key_hashed, when the text is a key
    uint32_t next_key = kNoSlot;  // the name that followed this one last
    bool key_ascii = false;
    bool key_hashed = false;
    bool plain = false;  // no quote, apostrophe, ":" or blank in it
  };
  // What hashes_ holds for a slot not in use; Hash never returns it.
  static constexpr uint32_t kUnused = 0;

  static uint32_t Hash(std::u16string_view text) noexcept {
    // Four code units at a time; the length goes in first, so the zero
    // padding of the last word cannot make two texts alike.
    uint64_t h = 0xcbf29ce484222325ULL ^ text.size();
    size_t i = 0;
    for (; i + 4 <= text.size(); i += 4) {
      uint64_t units;
      std::memcpy(&units, text.data() + i, sizeof(units));
      h = (h ^ units) * 0x9e3779b97f4a7c15ULL;
      h ^= h >> 32;
    }
    if (i < text.size()) {
      // The last four units, overlapping the previous word, when there are
      // that many.
      uint64_t units = 0;
      if (text.size() >= 4) {
        std::memcpy(&units, text.data() + text.size() - 4, sizeof(units));
      } else {
        for (int shift = 0; i < text.size(); ++i, shift += 16) {
          units |= static_cast<uint64_t>(text[i]) << shift;
        }
      }
      h = (h ^ units) * 0x9e3779b97f4a7c15ULL;
    }
    h = (h ^ (h >> 29)) * 0xbf58476d1ce4e5b9ULL;
    return static_cast<uint32_t>(h ^ (h >> 32)) | 1;
  }

  // The slot holding `text`, added if new; nullptr once the pool is full.
  // The probe walks the hashes alone, a small array that stays in cache;
  // a slot is read only when its hash is the text's.
  Slot* Find(std::u16string_view text) {
    const uint32_t hash = Hash(text);
    if (slots_.empty()) Resize(first_size_);
    for (;;) {
      const size_t mask = slots_.size() - 1;
      for (size_t at = hash & mask;; at = (at + 1) & mask) {
        const uint32_t seen = hashes_[at];
        if (seen == kUnused) {
          if ((used_ + 1) * 2 > slots_.size()) break;
          Slot& slot = slots_[at];
          hashes_[at] = hash;
          slot.text = Value(text);
          slot.data = slot.text.string().data();
          slot.size = static_cast<uint32_t>(text.size());
          slot.plain = std::none_of(text.begin(), text.end(), [](char16_t c) {
            return c == u'"' || c == u'\'' || c == u':' || IsKeyBlank(c);
          });
          FreshReferences::Charge(slot.text, kBias);
          ++used_;
          return &slot;
        }
        if (seen == hash) {
          Slot& slot = slots_[at];
          if (slot.size == text.size() && SameUnits(slot.data, text)) return &slot;
        }
      }
      if (slots_.size() >= kMostSlots) return nullptr;
      Grow();
    }
  }

  // Pooled texts are short: four units at a time, inline.
  static bool SameUnits(const char16_t* pooled, std::u16string_view text) noexcept {
    size_t i = 0;
    for (; i + 4 <= text.size(); i += 4) {
      uint64_t a, b;
      std::memcpy(&a, pooled + i, sizeof(a));
      std::memcpy(&b, text.data() + i, sizeof(b));
      if (a != b) return false;
    }
    for (; i < text.size(); ++i) {
      if (pooled[i] != text[i]) return false;
    }
    return true;
  }

  Value KeyOf(Slot& slot, uint32_t& hash, bool& ascii) {
    if (!slot.key_hashed) {
      slot.key_hash = Dictionary::TextKeyHash({slot.data, slot.size}, slot.key_ascii);
      slot.key_hashed = true;
    }
    hash = slot.key_hash;
    ascii = slot.key_ascii;
    return Hand(slot);
  }

  static Value Hand(Slot& slot) {
    if (slot.handed >= kMostHanded) return slot.text;  // counted from here on
    ++slot.handed;
    return FreshReferences::Uncounted(slot.text);
  }

  static constexpr size_t kLongest = 32;  // member names
  static constexpr size_t kLongestValue = 8;
  size_t first_size_ = 256;
  static constexpr size_t kMostSlots = size_t{1} << 16;

  void Resize(size_t size) {
    slots_.resize(size);
    hashes_.assign(size, kUnused);
  }

  void Grow() {
    std::vector<Slot> old(slots_.size() * 2);
    std::vector<uint32_t> old_hashes(slots_.size() * 2, kUnused);
    old.swap(slots_);
    old_hashes.swap(hashes_);
    const size_t mask = slots_.size() - 1;
    for (size_t k = 0; k < old.size(); ++k) {
      if (old_hashes[k] == kUnused) continue;
      size_t i = old_hashes[k] & mask;
      while (hashes_[i] != kUnused) i = (i + 1) & mask;
      hashes_[i] = old_hashes[k];
      slots_[i] = std::move(old[k]);
    }
  }

  std::vector<Slot> slots_;
  std::vector<uint32_t> hashes_;  // per slot, kUnused or its text's hash
  size_t used_ = 0;
};

// One container being read. An array: its elements so far sit on the
// reader's element stack from `base` on, and its Collection is made, at its
// final size, when it ends. An object: the key of the member being read,
// and its members so far, which likewise sit on the reader's member stack
// from `base` on until the object ends, outgrows kStagedMembers or meets a
// key that needs the Dictionary's own matching (non-ASCII text in a text
// compare mode); from then on its Dictionary, owned by `container`, takes
// each member as it comes. With a compare mode the Dictionary refuses,
// the Dictionary is made at once (see Open).
struct Frame {
  Value container;
  Value key;
  Dictionary* dict = nullptr;
  size_t base = 0;
  // A bit per staged key's hash: a key whose bit is not set is not among
  // them, so most keys are not compared with the others.
  uint64_t staged_hashes = 0;
  uint32_t key_hash = 0;  // Dictionary::TextKeyHash of key
  // The pool slot of the last name read, for the next name's guess.
  uint32_t last_key = StringPool::kNoSlot;
  int16_t shape = -1;     // an object's place in Reader::member_counts_
  uint16_t members = 0;   // names read so far, up to 65535
  bool key_ascii = false;
  bool object = false;
  bool element = false;  // an item of an array
};

// The reader: one position over the text and an explicit stack of open
// containers, so that nesting never deepens the machine stack.
class Reader {
 public:
  Reader(std::u16string_view text, int32_t compare_mode, bool large_integers,
         std::u16string& errors, size_t pooled)
      : s_(text.data()),
        n_(text.size()),
        compare_mode_(compare_mode),
        large_integers_(large_integers),
        errors_(errors),
        strings_(pooled) {}

  size_t Pooled() const noexcept { return strings_.Count(); }

  Value Run() {
    Skip();
    if (pos_ >= n_ || (s_[pos_] != u'{' && s_[pos_] != u'[')) {
      errors_ = u"Invalid JSON";
      return Value::Nothing();
    }
    Open(s_[pos_] == u'{');
    while (!stack_.empty()) {
      if (stack_.back().object) {
        ObjectStep();
      } else {
        ArrayStep();
      }
    }
    return std::move(root_);
  }

 private:
  // Passes over blanks, "(", ")" and comments. The flags follow the
  // runtime's reader exactly, odd consequences included: a lone "/" or "*"
  // is passed over, "/" inside a line comment ends it, "*/" outside a block
  // comment starts a line comment, and any character after a "*" inside a
  // block comment spoils the following "*/".
  [[gnu::always_inline]] void Skip() noexcept {
    // Most tokens follow the last one directly.
    if (pos_ < n_ && !IsSkipped(s_[pos_])) return;
    // Blanks and line ends leave all flags off, so runs of them need no
    // state; only a character that can start a comment needs the machine.
    SkipBlanks();
    if (pos_ >= n_ || !IsSkipped(s_[pos_])) return;
    SkipComments();
  }

  [[gnu::noinline]] void SkipComments() noexcept {
    bool mark = false, in_comment = false, in_block = false;
    for (; pos_ < n_; ++pos_) {
      switch (s_[pos_]) {
        case u'\r':
        case u'\n':
          if (!in_block) mark = in_comment = false;
          break;
        case u'\t':
        case u' ':
        case u'(':
        case u')':
          break;
        case u'/':
          if (in_block) {
            if (mark) mark = in_comment = in_block = false;
          } else if (!mark) {
            mark = true;
            in_comment = false;
          } else {
            mark = false;
            in_comment = true;
          }
          break;
        case u'*':
          if (!mark) {
            mark = true;
          } else {
            mark = false;
            in_comment = in_block = true;
          }
          break;
        default:
          if (!in_comment) return;
      }
    }
  }

  // Line ends and indentation come in runs: sixteen units at a time,
  // packed to bytes first. Saturation sends every unit above 0x7f to 0x7f
  // or 0x80, so a byte is a blank exactly when its unit is.
  [[gnu::always_inline]] void SkipBlanks() noexcept {
#if defined(__SSE2__)
    const __m128i space = _mm_set1_epi8(' '), tab = _mm_set1_epi8('\t');
    const __m128i line_feed = _mm_set1_epi8('\n'), carriage = _mm_set1_epi8('\r');
    while (n_ - pos_ >= 16) {
      const auto* at = reinterpret_cast<const __m128i*>(s_ + pos_);
      const __m128i units = _mm_packs_epi16(_mm_loadu_si128(at), _mm_loadu_si128(at + 1));
      const __m128i blank =
          _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(units, space), _mm_cmpeq_epi8(units, line_feed)),
                       _mm_or_si128(_mm_cmpeq_epi8(units, carriage), _mm_cmpeq_epi8(units, tab)));
      const auto same = static_cast<unsigned>(_mm_movemask_epi8(blank));
      if (same != 0xffff) {
        pos_ += static_cast<size_t>(std::countr_one(same));
        return;
      }
      pos_ += 16;
    }
#endif
    while (pos_ < n_ && IsBlank(s_[pos_])) ++pos_;
  }

  // The first position from `i` on holding `a` or `b`, or the end.
  size_t FindEither(size_t i, char16_t a, char16_t b) const noexcept {
#if defined(__SSE2__)
    const __m128i wide_a = _mm_set1_epi16(static_cast<int16_t>(a));
    const __m128i wide_b = _mm_set1_epi16(static_cast<int16_t>(b));
    while (n_ - i >= 8) {
      const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s_ + i));
      const auto hits = static_cast<unsigned>(_mm_movemask_epi8(
          _mm_or_si128(_mm_cmpeq_epi16(units, wide_a), _mm_cmpeq_epi16(units, wide_b))));
      if (hits != 0) return i + static_cast<size_t>(std::countr_zero(hits)) / 2;
      i += 8;
    }
#endif
    while (i < n_ && s_[i] != a && s_[i] != b) ++i;
    return i;
  }

  // The end of a run of key characters from `i` on: the first quote, ":"
  // or blank, or the end of the text.
  size_t KeyRunEnd(size_t i) const noexcept {
#if defined(__SSE2__)
    // Eight units at a time while none can stop the run. Units from 0x8000
    // on compare as negative and stop it too; the exact test below then
    // goes on past them.
    const __m128i quote = _mm_set1_epi16(u'"'), apostrophe = _mm_set1_epi16(u'\'');
    const __m128i colon = _mm_set1_epi16(u':'), past_blanks = _mm_set1_epi16(u' ' + 1);
    while (n_ - i >= 8) {
      const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s_ + i));
      const __m128i stops = _mm_or_si128(
          _mm_or_si128(_mm_cmpeq_epi16(units, quote), _mm_cmpeq_epi16(units, apostrophe)),
          _mm_or_si128(_mm_cmpeq_epi16(units, colon), _mm_cmplt_epi16(units, past_blanks)));
      const auto hits = static_cast<unsigned>(_mm_movemask_epi8(stops));
      if (hits != 0) {
        i += static_cast<size_t>(std::countr_zero(hits)) / 2;
        break;
      }
      i += 8;
    }
#endif
    for (; i < n_; ++i) {
      const char16_t c = s_[i];
      if (c == u'"' || c == u'\'' || c == u':' || IsKeyBlank(c)) break;
    }
    return i;
  }

  std::u16string_view From(size_t pos, size_t length = std::u16string_view::npos) const {
    return std::u16string_view(s_, n_).substr(std::min(pos, n_), length);
  }

  void AppendAt(std::u16string_view what, size_t pos, std::u16string_view tail) {
    errors_.append(what);
    errors_.append(u" at position ");
    AppendDecimal(errors_, pos + 1);
    errors_.append(u" : ");
    errors_.append(tail);
    errors_.append(kLineEnd);
  }

  void AppendFailure(const RuntimeError& e, std::u16string_view what) {
    errors_.append(e.description());
    errors_.append(u": ");
    errors_.append(what);
    errors_.append(kLineEnd);
  }

  // Opens a container at the bracket under the position.
  void Open(bool object) {
    if (stack_.size() >= static_cast<size_t>(JSON::kMaxDepth)) {
      errors_.append(u"Nesting deeper than ");
      AppendDecimal(errors_, JSON::kMaxDepth);
      errors_.append(u" levels at position ");
      AppendDecimal(errors_, pos_ + 1);
      errors_.append(kLineEnd);
      Abandon();
      return;
    }
    ++pos_;
    const bool element = !stack_.empty() && !stack_.back().object;
    // Objects mostly share their shape with earlier ones in the same place:
    // the records of a list, the value of one member name in each record.
    // An object starts with room for as many members as the last one that
    // ended in its place (the depth for an item of a list, else the depth
    // and the name it is the value of).
    int32_t shape = -1;
    if (object) {
      if (element) {
        if (stack_.size() < kListShapes) shape = static_cast<int32_t>(stack_.size());
      } else if (!stack_.empty()) {
        const uint32_t place =
            stack_.back().key_hash + static_cast<uint32_t>(stack_.size()) * 0x9e3779b9U;
        shape = static_cast<int32_t>(kListShapes + (place >> 26));
      }
    }
    Frame& frame = stack_.emplace_back();
    frame.element = element;
    frame.shape = static_cast<int16_t>(shape);
    frame.object = object;
    if (object && compare_mode_ >= kLowestMode) {
      frame.base = members_.size();
    } else if (object) {
      auto* dict = new Dictionary();
      frame.container = FreshReferences::Adopt(dict);
      frame.dict = dict;
      if (shape >= 0) dict->Reserve(member_counts_[static_cast<size_t>(shape)]);
      if (compare_mode_ != 0) {
        try {
          dict->SetCompareMode(compare_mode_);
        } catch (const RuntimeError& e) {
          // The runtime's reader goes on past a refused mode with the error
          // still pending, so the object ends after its first member.
          mode_failure_ = e.description();
        }
      }
    } else {
      frame.base = items_.size();
    }
  }

  // Ends the innermost container and adds it to the one around it. When
  // that add fails, the enclosing container ends as well, and so on out.
  void Close() {
    for (;;) {
      if (const Frame& f = stack_.back(); f.shape >= 0) {
        const int32_t count =
            f.dict != nullptr ? f.dict->Count() : static_cast<int32_t>(members_.size() - f.base);
        member_counts_[static_cast<size_t>(f.shape)] = std::min(count, kMostMembersReserved);
      }
      Value done = Finish(stack_.back());
      stack_.pop_back();
      if (stack_.empty()) {
        root_ = std::move(done);
        return;
      }
      if (AddToTop(std::move(done))) return;
    }
  }

  // Ends every open container where it stands, with no further lines.
  void Abandon() {
    while (!stack_.empty()) {
      Value done = Finish(stack_.back());
      stack_.pop_back();
      if (stack_.empty()) {
        root_ = std::move(done);
        return;
      }
      try {
        AddQuietly(stack_.back(), std::move(done));
      } catch (const RuntimeError&) {
        // A duplicate key this late only loses the partial member.
      }
    }
  }

  // The finished container of the innermost frame.
  Value Finish(Frame& f) {
    if (f.object) {
      if (f.dict == nullptr) MakeDictionary(f, true);
      return std::move(f.container);
    }
    return MakeList(f.base);
  }

  // The Collection of the elements on the element stack from `base` on.
  Value MakeList(size_t base) {
    Value done =
        FreshReferences::Adopt(Collection::WithItems(std::span<Value>(items_).subspan(base)));
    items_.resize(base);
    return done;
  }

  // An object's Dictionary, made with the members staged so far. An object
  // that has ended gets exactly their room, in the Dictionary's own block;
  // one that goes on gets room for `more` in all, apart.
  void MakeDictionary(Frame& f, bool ended, int32_t more = 0) {
    const auto staged = std::span<Dictionary::TextMember>(members_).subspan(f.base);
    Dictionary* dict;
    if (ended) {
      dict = Dictionary::WithDistinctText(staged, compare_mode_);
      f.container = FreshReferences::Adopt(dict);
    } else {
      dict = new Dictionary();
      f.container = FreshReferences::Adopt(dict);
      if (compare_mode_ != 0) dict->SetCompareMode(compare_mode_);
      dict->Reserve(more);
      dict->AppendDistinctText(staged);
    }
    f.dict = dict;
    members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(f.base), members_.end());
  }

  // Stages the member being read: false, with the Dictionary made, when
  // its key is already there (the Dictionary then raises the error) or
  // the object has outgrown the stage.
  bool Stage(Frame& f, Value&& item) {
    if (members_.size() - f.base < kStagedMembers && (f.key_ascii || compare_mode_ == 0)) {
      const uint64_t bit = uint64_t{1} << (f.key_hash >> 26);
      const bool repeated = (f.staged_hashes & bit) != 0 && IsStaged(f);
      f.staged_hashes |= bit;
      if (!repeated) {
        members_.emplace_back(std::move(f.key), std::move(item), f.key_hash);
        return true;
      }
    }
    MakeDictionary(f, false, f.shape >= 0 ? member_counts_[static_cast<size_t>(f.shape)] : 0);
    return false;
  }

  // Whether the member being read repeats a key staged before it.
  [[gnu::noinline]] bool IsStaged(const Frame& f) const noexcept {
    const std::u16string_view key = f.key.string();
    for (size_t i = f.base; i < members_.size(); ++i) {
      if (members_[i].hash == f.key_hash &&
          Dictionary::SameTextKey(members_[i].key.string(), key, compare_mode_)) {
        return true;
      }
    }
    return false;
  }

  void AddQuietly(Frame& f, Value&& item) {
    if (f.object && f.dict == nullptr && Stage(f, std::move(item))) return;
    if (f.object) {
      // The key moves into the entry (no count taken and dropped), unless
      // a refused compare mode still needs it for its line.
      if (mode_failure_.empty()) {
        f.dict->AddText(std::move(f.key), f.key_hash, f.key_ascii, std::move(item));
      } else {
        f.dict->AddText(Value(f.key), f.key_hash, f.key_ascii, std::move(item));
      }
    } else {
      items_.push_back(std::move(item));
    }
  }

  // Adds a value to the innermost container; on a runtime failure appends
  // its line and returns false (the caller then ends that container).
  bool AddToTop(Value&& item) {
    Frame& f = stack_.back();
    try {
      AddQuietly(f, std::move(item));
    } catch (const RuntimeError& e) {
      AppendFailure(e, f.object ? f.key.string() : From(pos_, kExcerptLength));
      return false;
    }
    if (f.object && !mode_failure_.empty()) {
      errors_.append(mode_failure_);
      errors_.append(u": ");
      errors_.append(f.key.string());
      errors_.append(kLineEnd);
      return false;
    }
    return true;
  }

  void ObjectStep() {
    Skip();
    if (pos_ < n_ && s_[pos_] == u'}') {
      ++pos_;
      Close();
      return;
    }
    if (pos_ < n_ && s_[pos_] == u',') {
      ++pos_;
    }
    ReadKey();
    ReadMember();
  }

  void ArrayStep() {
    Skip();
    if (pos_ < n_ && s_[pos_] == u']') {
      ++pos_;
      Close();
      return;
    }
    if (pos_ < n_ && s_[pos_] == u',') {
      ++pos_;
      Skip();
    }
    if (pos_ >= n_) {
      // Without this stop the element step would add empty values forever.
      errors_.append(u"Unexpected end of text at position ");
      AppendDecimal(errors_, n_ + 1);
      errors_.append(kLineEnd);
      Abandon();
      return;
    }
    ReadMember();
  }

  // Reads the value of the current member or element and adds it, or opens
  // the container it starts.
  void ReadMember() {
    // Written out, a member's value mostly follows its ":" after one space.
    if (n_ - pos_ >= 2 && s_[pos_] == u' ' && !IsSkipped(s_[pos_ + 1])) {
      ++pos_;
    } else {
      Skip();
    }
    if (pos_ < n_ && (s_[pos_] == u'{' || s_[pos_] == u'[')) {
      if (s_[pos_] == u'[' && stack_.size() < static_cast<size_t>(JSON::kMaxDepth)) {
        // "[]" right here, as lists that are empty in this record and full
        // in the next are common; any other list is read by ReadList.
        if (n_ - pos_ >= 2 && s_[pos_ + 1] == u']') {
          pos_ += 2;
          AddList(FreshReferences::Adopt(Collection::WithRoom(0)));
        } else {
          ReadList();
        }
      } else {
        Open(s_[pos_] == u'{');
      }
      return;
    }
    const size_t start = pos_;
    const bool element = !stack_.back().object;
    bool added = true;
    try {
      // An element goes straight onto the element stack, which cannot
      // fail the way a member's Add can.
      if (element) {
        items_.push_back(ReadScalar());
      } else {
        added = AddToTop(ReadScalar());
      }
    } catch (const RuntimeError& e) {
      Frame& f = stack_.back();
      AppendFailure(e, f.object ? f.key.string() : From(pos_, kExcerptLength));
      Close();
      return;
    }
    if (!added) {
      Close();
    } else if (pos_ == start && element) {
      // A bad "true", "false" or "null" leaves the position where it was;
      // reading it again would add the same element forever. Its line is
      // already there, so the array just ends.
      Close();
    }
  }

  // A list read where it stands, with no frame of its own, for as long as
  // its elements are scalars that read cleanly: most lists are leaves (a
  // pair of coordinates, ids, tags, an empty list). Each pass is one step
  // of ArrayStep and ReadMember. Anything else (a nested container, the end
  // of the text, an element that fails) gives the list its frame at that
  // point, as Open would have made it, and the general steps take over
  // exactly where they would have been.
  [[gnu::noinline]] void ReadList() {
    ++pos_;
    const size_t base = items_.size();
    for (;;) {
      Skip();
      if (pos_ < n_ && s_[pos_] == u']') {
        ++pos_;
        AddList(MakeList(base));
        return;
      }
      const size_t comma = pos_;
      if (pos_ < n_ && s_[pos_] == u',') {
        ++pos_;
        Skip();
      }
      if (pos_ >= n_ || s_[pos_] == u'{' || s_[pos_] == u'[') {
        // The step is taken again with the frame, from the comma if there
        // was one (the blanks before it are behind either way).
        pos_ = comma;
        OpenList(base);
        return;
      }
      const size_t start = pos_;
      try {
        // Numbers read right here: lists of them are the commonest kind.
        const char16_t c = s_[pos_];
        if (c == u'-' || (c >= u'0' && c <= u'9')) {
          items_.push_back(ReadNumber());
        } else {
          items_.push_back(ReadScalar());
        }
      } catch (const RuntimeError& e) {
        OpenList(base);
        AppendFailure(e, From(pos_, kExcerptLength));
        Close();
        return;
      }
      if (pos_ == start) {
        // A bad literal: see ReadMember.
        OpenList(base);
        Close();
        return;
      }
    }
  }

  // Adds a list read without a frame to the innermost container, as Close
  // would have.
  void AddList(Value&& list) {
    if (!stack_.back().object) {
      items_.push_back(std::move(list));
    } else if (!AddToTop(std::move(list))) {
      Close();
    }
  }

  // The frame of a list whose elements from `base` on are already read.
  void OpenList(size_t base) {
    const bool element = !stack_.back().object;
    Frame& frame = stack_.emplace_back();
    frame.element = element;
    frame.base = base;
  }

  void ReadKey() {
    Skip();
    if (!ReadPlainKey()) ReadOtherKey();
  }

  // Any key but the usual one: unquoted, quoted with blanks, in either quote.
  [[gnu::noinline]] void ReadOtherKey() {
    scratch_.clear();
    bool in_double = false, in_single = false;
    while (pos_ < n_) {
      const char16_t c = s_[pos_];
      if (c == u'"' || c == u'\'') {
        bool& flag = c == u'"' ? in_double : in_single;
        flag = !flag;
        ++pos_;
        if (!flag) {
          Skip();
          if (pos_ >= n_ || s_[pos_] != u':') {
            AppendAt(u"Invalid Key", pos_, scratch_);
            break;
          }
        }
      } else if (c == u':') {
        ++pos_;
        if (!in_double && !in_single) break;
        scratch_.push_back(c);
      } else {
        // Whole runs of ordinary characters at once.
        const size_t start = pos_;
        pos_ = KeyRunEnd(pos_);
        scratch_.append(s_ + start, pos_ - start);
        if (pos_ == start) ++pos_;  // a blank, dropped
      }
    }
    Frame& f = stack_.back();
    uint32_t slot;
    f.key = strings_.GetKey(scratch_, f.key_hash, f.key_ascii, slot);
    strings_.SetNextKey(f.last_key, slot);
    NameRead(f, slot);
  }

  // The usual key, "name" then ":" with only blanks between, taken straight
  // from the text; false (position unchanged) for anything else.
  //
  // Records of one list name their members in the same order, so the name
  // is first compared with the one in the same place of the last object of
  // the same shape: a match needs neither a scan for the closing quote nor
  // a look-up in the pool.
  bool ReadPlainKey() {
    if (pos_ >= n_ || s_[pos_] != u'"') return false;
    Frame& f = stack_.back();
    uint32_t* guess = f.shape >= 0 && f.members < kPredictedMembers
                          ? &predicted_keys_[static_cast<size_t>(f.shape)][f.members]
                          : nullptr;
    // The name in this place last time, else the one that followed the
    // previous name when this place last guessed wrong: records that leave
    // a member out or add one still follow the same order around it.
    uint32_t slot = StringPool::kNoSlot;
    size_t end = std::u16string_view::npos;
    bool placed = false;
    if (guess != nullptr && *guess != StringPool::kNoSlot) {
      end = PooledKeyEnd(*guess);
      placed = end != std::u16string_view::npos;
      if (placed) slot = *guess;
    }
    if (!placed) {
      const uint32_t next = strings_.NextKeyOf(f.last_key);
      if (next != StringPool::kNoSlot) {
        end = PooledKeyEnd(next);
        if (end != std::u16string_view::npos) slot = next;
      }
    }
    const bool predicted = end != std::u16string_view::npos;
    if (!predicted) {
      end = KeyRunEnd(pos_ + 1);
      if (end >= n_ || s_[end] != u'"') return false;
    }
    size_t after = end + 1;
    while (after < n_ && IsBlank(s_[after])) ++after;
    if (after >= n_ || s_[after] != u':') return false;
    if (predicted) {
      f.key = strings_.KeyAt(slot, f.key_hash, f.key_ascii);
    } else {
      f.key = strings_.GetKey(std::u16string_view(s_ + pos_ + 1, end - pos_ - 1), f.key_hash,
                              f.key_ascii, slot);
    }
    if (!placed) {
      if (guess != nullptr) *guess = slot;
      strings_.SetNextKey(f.last_key, slot);
    }
    NameRead(f, slot);
    pos_ = after + 1;
    return true;
  }

  // Where a name that is the text in pool slot `index` ends, at its closing
  // quote, if the position holds that name; npos otherwise.
  size_t PooledKeyEnd(uint32_t index) const noexcept {
    const size_t length = strings_.PlainKeyLengthAt(index, s_ + pos_ + 1, n_ - pos_ - 1);
    if (length == std::u16string_view::npos || pos_ + 1 + length >= n_ ||
        s_[pos_ + 1 + length] != u'"') {
      return std::u16string_view::npos;
    }
    return pos_ + 1 + length;
  }

  // Notes the pool slot of the name just read (kNoSlot if not pooled).
  void NameRead(Frame& f, uint32_t slot) noexcept {
    f.last_key = slot;
    if (f.members != UINT16_MAX) ++f.members;
  }

  // Out of line: it holds a whole copy of the number reader and has two
  // callers (ReadMember, and ReadList for what is not a number); inlining
  // it into both would only grow the reader's loop.
  [[gnu::noinline]] Value ReadScalar() {
    if (pos_ < n_) {
      switch (s_[pos_]) {
        case u'"':
        case u'\'':
          return ReadString();
        case u't':
        case u'f':
          return ReadBoolean();
        case u'n':
          return ReadNull();
        default:
          break;
      }
    }
    return ReadNumber();
  }

  bool At(std::u16string_view word) const noexcept {
    return n_ - pos_ >= word.size() && std::u16string_view(s_ + pos_, word.size()) == word;
  }

  Value ReadBoolean() {
    if (At(u"true")) {
      pos_ += 4;
      return Value(true);
    }
    if (At(u"false")) {
      pos_ += 5;
      return Value(false);
    }
    AppendAt(u"Invalid Boolean", pos_, From(pos_));
    return Value(false);
  }

  Value ReadNull() {
    if (At(u"null")) {
      pos_ += 4;
      return Value::Null();
    }
    AppendAt(u"Invalid null value", pos_, From(pos_));
    return Value();
  }

  Value ReadString() {
    const char16_t quote = s_[pos_++];
    // Text without escapes becomes the value straight from the source.
    const size_t start = pos_;
    pos_ = FindEither(pos_, quote, u'\\');
    if (pos_ >= n_ || s_[pos_] == quote) {
      Value text = strings_.Get(std::u16string_view(s_ + start, pos_ - start));
      if (pos_ < n_) ++pos_;
      return text;
    }
    scratch_.assign(s_ + start, pos_ - start);
    while (pos_ < n_) {
      const char16_t c = s_[pos_];
      if (c == quote) {
        ++pos_;
        break;
      }
      if (c != u'\\') {
        // The run up to the next quote or escape at once.
        const size_t run = pos_;
        pos_ = FindEither(pos_, quote, u'\\');
        scratch_.append(s_ + run, pos_ - run);
        continue;
      }
      if (pos_ + 1 >= n_) {
        ++pos_;
        break;
      }
      char16_t out = 0;
      switch (s_[pos_ + 1]) {
        case u'"':
          out = u'"';
          break;
        case u'\\':
          out = u'\\';
          break;
        case u'/':
          out = u'/';
          break;
        case u'\'':
          out = u'\'';
          break;
        case u'b':
          out = 8;
          break;
        case u'f':
          out = 12;
          break;
        case u'n':
          out = u'\n';
          break;
        case u'r':
          out = u'\r';
          break;
        case u't':
          out = u'\t';
          break;
        case u'u':
          if (n_ - pos_ >= 6) {
            int unit = 0;
            for (size_t k = 2; k < 6 && unit >= 0; ++k) {
              const int digit = HexDigit(s_[pos_ + k]);
              unit = digit < 0 ? -1 : unit * 16 + digit;
            }
            if (unit >= 0) {
              scratch_.push_back(static_cast<char16_t>(unit));
              pos_ += 6;
              continue;
            }
          }
          break;
        default:
          break;
      }
      if (out != 0) {
        scratch_.push_back(out);
        pos_ += 2;
      } else {
        ++pos_;  // drop the backslash; the next character is read as text
      }
    }
    return strings_.Get(scratch_);
  }

  [[gnu::always_inline]] Value ReadNumber() {
    return detail::NumberReader(s_, n_, pos_, large_integers_).Read();
  }

  const char16_t* s_;
  size_t n_;
  size_t pos_ = 0;
  int32_t compare_mode_;
  bool large_integers_;
  std::u16string& errors_;
  std::u16string mode_failure_;
  std::u16string scratch_;
  std::vector<Frame> stack_;
  // The member count of the last object that ended in each place: first
  // per depth (the shallowest few) for items of lists, then per depth and
  // member name hashed to 64 places; capped so an odd large object does
  // not make every later one large.
  static constexpr int32_t kMostMembersReserved = 64;
  static constexpr size_t kListShapes = 16;
  std::array<int32_t, kListShapes + 64> member_counts_{};
  // Per shape, the pool slot of the name each member had in the last
  // object of that shape, for the first members.
  static constexpr uint32_t kPredictedMembers = 32;
  std::array<std::array<uint32_t, kPredictedMembers>, kListShapes + 64> predicted_keys_ = [] {
    std::array<std::array<uint32_t, kPredictedMembers>, kListShapes + 64> none;
    for (auto& shape : none) shape.fill(StringPool::kNoSlot);
    return none;
  }();
  std::vector<Value> items_;  // elements of the open arrays, innermost last
  // Members of the open objects that have no Dictionary yet, innermost
  // last. Objects of up to kStagedMembers members (most of any document)
  // are made whole when they end: each key is compared only with those
  // before it that share its bit in Frame::staged_hashes, and the
  // Dictionary gets all of its entries in one allocation.
  static constexpr size_t kStagedMembers = 32;
  // The lowest compare mode a Dictionary takes.
  static constexpr int32_t kLowestMode = -1;
  std::vector<Dictionary::TextMember> members_;
  StringPool strings_;
  Value root_ = Value::Nothing();
};

}  // namespace

KESTREL_REGISTER_CLASS(JSON, JSON::kQualifiedName, Instancing::kCreatable);

JSON::~JSON() = default;

void JSON::Clear() noexcept {
  root_ = Value::Nothing();
  text_ = Value(std::u16string_view());
  parse_error_.clear();
}

bool JSON::Parse(std::u16string_view text) {
  return Parse(Value(text));
}

bool JSON::Parse(const Value& text) {
  // Held before Clear, which may drop the very string `text` refers to.
  Value kept = text.IsString() ? text : Value(runtime::ToText(text));
  Clear();
  text_ = std::move(kept);
  Reader reader(text_.string(), compare_mode_, large_integers_, parse_error_, pooled_);
  root_ = reader.Run();
  pooled_ = reader.Pooled();
  return parse_error_.empty();
}

const DispatchTable<JSON>& JSON::Dispatch() {
  using T = DispatchTable<JSON>;
  static const T table =
      T::Builder(u"JSON")
          .Property(
              u"CompareMode", [](JSON& j, Args&) { return Value(j.CompareMode()); },
              [](JSON& j, Args&, const Value& v) { j.SetCompareMode(runtime::ToLong(v)); })
          .Property(
              u"LargeIntegers", [](JSON& j, Args&) { return Value(j.LargeIntegers()); },
              [](JSON& j, Args&, const Value& v) { j.SetLargeIntegers(runtime::ToBoolean(v)); })
          .Get(u"ParseError", [](JSON& j, Args&) { return Value(j.ParseError()); })
          .Get(u"Text", [](JSON& j, Args&) { return j.text_; })
          .Get(u"JSONObject", [](JSON& j, Args&) { return j.JSONObject(); })
          .Method(u"Clear", 0, 0,
                  [](JSON& j, Args&) {
                    j.Clear();
                    return Value();
                  })
          .Method(u"Parse", 1, 1,
                  [](JSON& j, Args& a) {
                    return Value(a[0].IsString() ? j.Parse(a[0]) : j.Parse(a.Text(0)));
                  })
          .Build();
  return table;
}

}  // namespace kestrel
