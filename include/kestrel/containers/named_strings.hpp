// NamedStrings: an ordered list of name/value string pairs with a one-line
// text form, for small settings or parameter sets kept in a single string.
//
// Names are unique under binary (case-sensitive) comparison and keep the
// position of their first insertion; the empty name is never stored. The
// text form joins items name=value with a one-character separator (";" by
// default); "/" escapes a following "/", "=" or separator. Reading Text
// walks the pair count, which Remove deliberately leaves as it was, so a
// Text read after a Remove raises 9; Count and the look-up index are 16-bit
// (6 past 32767). The object owns copies of every string; not thread-safe.
//
//   auto ns = kestrel::MakeRef<kestrel::NamedStrings>();
//   ns->SetText(u"a=1;b=x/=y");
//   ns->Value(u"b");   // u"x=y"
//
// Dispatchable as Separator, Text, Value(Name) (get and let), Remove,
// Exists, Count, Names, Values and Reset; registered as Kestrel.NamedStrings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API NamedStrings : public Dispatchable<NamedStrings> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.NamedStrings";

  NamedStrings() = default;

  std::u16string Separator() const { return std::u16string(1, separator_); }
  // Exactly one character other than "/" and "="; error 9 otherwise, and
  // the separator stays as it was.
  void SetSeparator(std::u16string_view separator);

  // Items in index order; error 9 when the count has gone stale (see Remove).
  std::u16string Text() const;
  // Replaces the whole list with the pairs read from `text`. A failure while
  // storing a pair ends the reading quietly, keeping the pairs stored so far.
  void SetText(std::u16string_view text);

  // The value stored under `name`, or "" when there is none.
  std::u16string Value(std::u16string_view name) const;
  // Replaces the value of an existing name in place or appends a new pair;
  // an empty name is ignored.
  void SetValue(std::u16string_view name, std::u16string_view value);

  // Drops the pair of `name` (absent names are ignored) without lowering the
  // count.
  void Remove(std::u16string_view name);
  bool Exists(std::u16string_view name) const { return IndexOf(name) >= 0; }
  // Pairs added since the last reset; error 6 beyond 32767.
  int16_t Count() const;
  // Copies of the stored arrays: String arrays 0 .. n-1, unallocated when
  // they hold nothing.
  kestrel::Value Names() const { return ToArray(&Pair::name); }
  kestrel::Value Values() const { return ToArray(&Pair::value); }
  // Empties the list; the separator is kept.
  void Reset() noexcept;

  static const DispatchTable<NamedStrings>& Dispatch();

 private:
  struct Pair {
    size_t hash;  // of name: lets the scan skip most pairs without comparing text
    std::u16string name;
    std::u16string value;
  };

  // Index of `name`, or -1. Error 6 when the 16-bit scan index overflows.
  int32_t IndexOf(std::u16string_view name) const;
  kestrel::Value ToArray(std::u16string Pair::*field) const;

  // Can be shorter than count_ after a Remove.
  std::vector<Pair> pairs_;
  int32_t count_ = 0;
  char16_t separator_ = u';';
};

}  // namespace kestrel
