#include "kestrel/containers/string_builder.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/runtime/strings.hpp"

namespace kestrel {

namespace {

using Traits = std::char_traits<char16_t>;

// Byte counts are Longs: anything past the 32-bit range is an overflow.
int32_t CheckedBytes(int64_t bytes) {
  if (bytes > INT32_MAX || bytes < INT32_MIN) RaiseStandard(errors::kOverflow);
  return static_cast<int32_t>(bytes);
}

int32_t BytesOf(std::u16string_view text) {
  if (text.size() > static_cast<size_t>(INT32_MAX)) RaiseStandard(errors::kOverflow);
  return CheckedBytes(2 * static_cast<int64_t>(text.size()));
}

size_t Chars(int32_t bytes) {
  return static_cast<size_t>(bytes / 2);
}

// A String argument as text, without copying when it already is one.
std::u16string_view TextArg(const Value& v, std::u16string& scratch) {
  if (v.IsString()) return v.string();
  scratch = runtime::ToText(v);
  return scratch;
}

}  // namespace

KESTREL_REGISTER_CLASS(StringBuilder, StringBuilder::kQualifiedName, Instancing::kCreatable);

void StringBuilder::SetChunkSize(int32_t characters) {
  chunk_ = CheckedBytes(2 * int64_t{characters});
}

void StringBuilder::SetTheString(std::u16string_view text) {
  const int32_t n = BytesOf(text);
  if (n == 0) {
    Clear();
    return;
  }
  if (n > capacity_) GrowTo(n);
  Traits::copy(data_.get(), text.data(), text.size());
  if (n < length_) padding_written_ = false;  // the old tail is not spaces
  length_ = n;
}

void StringBuilder::Clear() noexcept {
  data_.reset();
  allocated_ = 0;
  length_ = 0;
  capacity_ = 0;
  padding_written_ = true;
}

void StringBuilder::AppendNL(std::u16string_view sThis) {
  Append(sThis);
  Append(u"\r\n");
}

void StringBuilder::Insert(int32_t iIndex, std::u16string_view sThis) {
  if (iIndex < 0) RaiseStandard(errors::kInvalidProcedureCall);
  const int32_t offset = CheckedBytes(2 * int64_t{iIndex});
  if (offset > length_) RaiseStandard(errors::kSubscriptOutOfRange);
  const int32_t n = BytesOf(sThis);
  const int32_t need = CheckedBytes(int64_t{length_} + n);
  // Insert adds one chunk when the text does not fit. A text longer than
  // the free room plus that chunk would not fit either, so it gets the
  // whole chunks Append would add: for anything that one chunk makes room
  // for, the two rules are the same.
  if (need > capacity_) GrowTo(need);
  char16_t* at = data_.get() + Chars(offset);
  Traits::move(at + sThis.size(), at, Chars(length_ - offset));
  Traits::copy(at, sThis.data(), sThis.size());
  length_ = need;
}

void StringBuilder::Remove(int32_t iIndex, int32_t lLen) {
  if (iIndex < 0 || lLen < 0) RaiseStandard(errors::kInvalidProcedureCall);
  // Both limits are computed before either is tested, so an overflowing end
  // raises 6 even when the start is already out of range.
  const int32_t offset = CheckedBytes(2 * int64_t{iIndex});
  const int32_t end = CheckedBytes(2 * int64_t{CheckedBytes(int64_t{iIndex} + lLen)});
  if (offset > length_ || end > length_) RaiseStandard(errors::kSubscriptOutOfRange);
  if (lLen == 0) return;
  char16_t* base = data_.get();
  Traits::move(base + Chars(offset), base + Chars(end), Chars(length_ - end));
  length_ -= end - offset;
  padding_written_ = false;  // the vacated characters still hold old text
}

int32_t StringBuilder::Find(std::u16string_view sToFind, int32_t lStartIndex, int32_t compare) {
  WritePadding();
  const std::u16string_view buffer(data_.get(), Chars(capacity_));
  int32_t p = 0;
  if (lStartIndex >= 1) {
    p = runtime::InStr(lStartIndex, buffer, sToFind, runtime::ToCompareMethod(compare));
  } else {
    // Kept as clients know it: below 1 the arguments shift by one place, as
    // in a search call that leaves out its start. The buffer becomes the
    // start (a Long, converted as the runtime converts text), sToFind the
    // text searched and `compare` the text sought, in binary mode.
    const int32_t start = runtime::ToLong(Value(buffer));
    p = runtime::InStr(start, sToFind, runtime::ToText(Value(compare)), CompareMethod::kBinary);
  }
  // Strictly below Length: a match at the last content character is not
  // reported. Clients are written against this.
  return p < Length() ? p : 0;
}

void StringBuilder::HeapMinimize() {
  const int32_t spare = capacity_ - length_;
  if (spare <= chunk_) return;
  // Stepping down by a chunk of 0 or less would never end.
  if (chunk_ <= 0) RaiseStandard(errors::kOverflow);
  // The fewest whole chunks that leave at most one chunk free (and more
  // than none, since spare > chunk_).
  const int32_t bytes = capacity_ - (spare - 1) / chunk_ * chunk_;
  const size_t chars = Chars(bytes);
  if (chars < allocated_) {
    // A failed shrink keeps the larger block, which is still valid.
    if (void* p = std::realloc(data_.get(), chars * sizeof(char16_t))) {
      (void)data_.release();
      data_.reset(static_cast<char16_t*>(p));
      allocated_ = chars;
    }
  }
  capacity_ = bytes;
}

void StringBuilder::GrowTo(int64_t need) {
  if (need > INT32_MAX) RaiseStandard(errors::kOverflow);
  // A chunk of 0 or less never reaches `need`: adding it over and over
  // would loop forever or run into the 32-bit limit.
  if (chunk_ <= 0) RaiseStandard(errors::kOverflow);
  const int64_t chunks = (need - capacity_ + chunk_ - 1) / chunk_;
  SetCapacity(CheckedBytes(capacity_ + chunks * chunk_));
}

void StringBuilder::SetCapacity(int32_t bytes) {
  const size_t chars = Chars(bytes);
  if (chars > allocated_) {
    // Storage grows geometrically underneath the chunked capacity, so that
    // many small chunks on a long text cost amortised constant time per
    // character rather than a copy of the whole text each.
    size_t target = std::max(chars, 2 * allocated_);
    void* p = std::realloc(data_.get(), target * sizeof(char16_t));
    if (p == nullptr && target > chars) {
      target = chars;
      p = std::realloc(data_.get(), target * sizeof(char16_t));
    }
    if (p == nullptr) RaiseStandard(errors::kOutOfMemory);
    (void)data_.release();
    data_.reset(static_cast<char16_t*>(p));
    allocated_ = target;
  }
  if (bytes > capacity_) padding_written_ = false;
  capacity_ = bytes;
}

void StringBuilder::WritePadding() noexcept {
  if (padding_written_) return;
  Traits::assign(data_.get() + Chars(length_), Chars(capacity_ - length_), u' ');
  padding_written_ = true;
}

const DispatchTable<StringBuilder>& StringBuilder::Dispatch() {
  using T = DispatchTable<StringBuilder>;
  using S = StringBuilder;
  static const T table =
      T::Builder(u"StringBuilder")
          .Get(u"Length", [](S& s, Args&) { return Value(s.Length()); })
          .Get(u"Capacity", [](S& s, Args&) { return Value(s.Capacity()); })
          .Property(
              u"ChunkSize", [](S& s, Args&) { return Value(s.ChunkSize()); },
              [](S& s, Args&, const Value& v) { s.SetChunkSize(runtime::ToLong(v)); })
          .Get(u"toString", [](S& s, Args&) { return Value(s.Content()); })
          .Let(u"TheString",
               [](S& s, Args&, const Value& v) {
                 std::u16string scratch;
                 s.SetTheString(TextArg(v, scratch));
               })
          .Method(u"Clear", 0, 0,
                  [](S& s, Args&) {
                    s.Clear();
                    return Value();
                  })
          .Method(u"AppendNL", 1, 1,
                  [](S& s, Args& a) {
                    std::u16string scratch;
                    s.AppendNL(TextArg(a[0], scratch));
                    return Value();
                  })
          .Method(u"Append", 1, 1,
                  [](S& s, Args& a) {
                    std::u16string scratch;
                    s.Append(TextArg(a[0], scratch));
                    return Value();
                  })
          .Method(u"AppendByVal", 1, 1,
                  [](S& s, Args& a) {
                    std::u16string scratch;
                    s.AppendByVal(TextArg(a[0], scratch));
                    return Value();
                  })
          .Method(u"Insert", 2, 2,
                  [](S& s, Args& a) {
                    const int32_t index = a.Long(0);
                    std::u16string scratch;
                    s.Insert(index, TextArg(a[1], scratch));
                    return Value();
                  })
          .Method(u"InsertByVal", 2, 2,
                  [](S& s, Args& a) {
                    const int32_t index = a.Long(0);
                    std::u16string scratch;
                    s.InsertByVal(index, TextArg(a[1], scratch));
                    return Value();
                  })
          .Method(u"Remove", 2, 2,
                  [](S& s, Args& a) {
                    const int32_t index = a.Long(0);
                    s.Remove(index, a.Long(1));
                    return Value();
                  })
          .Method(u"Find", 1, 3,
                  [](S& s, Args& a) {
                    std::u16string scratch;
                    const std::u16string_view find = TextArg(a[0], scratch);
                    const int32_t start = a.Has(1) ? a.Long(1) : 1;
                    const int32_t compare = a.Has(2) ? a.Long(2) : 1;
                    return Value(s.Find(find, start, compare));
                  })
          .Method(u"HeapMinimize", 0, 0,
                  [](S& s, Args&) {
                    s.HeapMinimize();
                    return Value();
                  })
          .Build();
  return table;
}

}  // namespace kestrel
