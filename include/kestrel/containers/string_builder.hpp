// StringBuilder: builds a long UTF-16 text by writing into spare room
// instead of concatenating, so many small appends cost one copy each.
//
// The buffer grows in whole chunks (8192 characters unless ChunkSize says
// otherwise) and HeapMinimize gives surplus chunks back. Its first Length
// characters are the content, the rest up to Capacity is padding that reads
// as spaces: Find searches both. Counts are kept in bytes (2 per character)
// and shown in characters, so byte counts past the 32-bit range raise 6.
// A failing call leaves the builder as it was. Not thread-safe.
//
// Behaviours kept on purpose, because clients rely on them:
//   - Find reports a match only at a position strictly below Length, so a
//     match at the last content character gives 0, while one that starts in
//     the content and runs into the padding is reported.
//   - Find with lStartIndex below 1 converts the whole buffer to a number,
//     uses it as the start and looks for the decimal text of `compare` in
//     sToFind, in binary mode; ordinary text content raises 13.
//   - Insert grows by one chunk when the text does not fit.
// Choices of this library where clients cannot have relied on anything:
//   - An Insert longer than the free room plus one chunk grows the buffer
//     as Append does (the fewest whole chunks that make room).
//   - A negative position or length raises 5 and changes nothing.
//   - Characters vacated by Remove, or by a shorter TheString, become padding
//     spaces again, so Find never sees removed text.
//   - A chunk size of 0 or below cannot make room: a call that has to grow
//     (or HeapMinimize with free room above that chunk size) raises 6.
//
//   kestrel::StringBuilder sb;
//   sb.Append(u"Hello");  sb.Insert(0, u">> ");
//   sb.toString();   // u">> Hello"
//
// Dispatchable as Length, Capacity, ChunkSize (get and let), toString,
// TheString (let), Clear, AppendNL, Append, AppendByVal, Insert,
// InsertByVal, Remove, Find and HeapMinimize; registered as
// Kestrel.StringBuilder.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API StringBuilder : public Dispatchable<StringBuilder> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.StringBuilder";

  StringBuilder() = default;

  int32_t Length() const noexcept { return length_ / 2; }
  int32_t Capacity() const noexcept { return capacity_ / 2; }
  int32_t ChunkSize() const noexcept { return chunk_ / 2; }
  // 6 when the size in bytes leaves the 32-bit range (above 1073741823).
  void SetChunkSize(int32_t characters);

  // The content, without padding.
  std::u16string toString() const { return std::u16string(Content()); }
  // Replaces the content. The empty text also gives back all storage;
  // otherwise the capacity only grows.
  void SetTheString(std::u16string_view text);
  // Empties the builder and gives back its storage.
  void Clear() noexcept;

  void Append(std::u16string_view sThis) {
    const int64_t need = int64_t{length_} + 2 * static_cast<int64_t>(sThis.size());
    if (need > capacity_) GrowTo(need);
    std::char_traits<char16_t>::copy(data_.get() + length_ / 2, sThis.data(), sThis.size());
    length_ = static_cast<int32_t>(need);
  }
  void AppendByVal(std::u16string_view sThis) { Append(sThis); }
  // sThis followed by carriage return and line feed.
  void AppendNL(std::u16string_view sThis);

  // Inserts at the 0-based character offset iIndex (0 .. Length; 9 beyond).
  void Insert(int32_t iIndex, std::u16string_view sThis);
  void InsertByVal(int32_t iIndex, std::u16string_view sThis) { Insert(iIndex, sThis); }
  // Removes lLen characters from the 0-based offset iIndex; 9 when the range
  // runs past the content. The capacity stays.
  void Remove(int32_t iIndex, int32_t lLen);

  // The 1-based position of sToFind in the buffer at or after lStartIndex,
  // `compare` 0 binary or 1 text; 0 when absent (see above for the strict
  // test and for lStartIndex below 1).
  int32_t Find(std::u16string_view sToFind, int32_t lStartIndex = 1, int32_t compare = 1);

  // Lowers the capacity by whole chunks until the free room is at most one
  // chunk (and still above 0), giving the storage back.
  void HeapMinimize();

  static const DispatchTable<StringBuilder>& Dispatch();

 private:
  struct FreeStorage {
    void operator()(char16_t* p) const noexcept { std::free(p); }
  };

  std::u16string_view Content() const noexcept {
    return {data_.get(), static_cast<size_t>(length_ / 2)};
  }
  // Grows the capacity by whole chunks to at least `need` bytes.
  void GrowTo(int64_t need);
  // Sets the capacity in bytes and makes the storage hold at least that many
  // characters; the padding it adds is not written yet.
  void SetCapacity(int32_t bytes);
  // Writes the spaces the padding stands for.
  void WritePadding() noexcept;

  // Storage for `allocated_` characters, of which the first capacity_ / 2
  // are the buffer. Allocated with malloc so that growth can use realloc.
  std::unique_ptr<char16_t[], FreeStorage> data_;
  size_t allocated_ = 0;
  int32_t chunk_ = 16384;  // bytes
  int32_t length_ = 0;     // bytes
  int32_t capacity_ = 0;   // bytes
  // Whether the characters from Length to Capacity hold spaces in storage.
  // Padding is written only when something reads it (Find).
  bool padding_written_ = true;
};

}  // namespace kestrel
