// JSON: reads JSON text into a tree of the runtime's containers, leniently,
// and reports problems as readable lines instead of raising.
//
// Every object becomes a Dictionary (its CompareMode taken from this
// object's, 1 unless set) and every array a Collection; strings become
// String, numbers Long or (with ".", "e" or "E") Double, true and false
// Boolean, null Null. The reader is forgiving: "//" and "/* */" comments,
// "(" and ")" anywhere between tokens, single or double quotes, unquoted
// keys (whitespace inside keys is dropped), and commas optional or leading.
// Problems append a line each to ParseError; a runtime failure inside a
// container (a duplicate key, a number out of range or text such as 1-2
// that is no number) ends that container and adds its description, ": ",
// then the key (objects) or the next 20 characters (arrays), CR LF. Parse
// never raises, and returns True exactly when ParseError is empty.
//
// Choices of this library where the lenient reading has no natural answer:
//   - Text that ends inside an array ends the array there: nothing is
//     added past the end, and ParseError gets the single line
//     "Unexpected end of text at position P" CR LF, P being one past the
//     last character. Every enclosing container ends there too, silently.
//   - Containers nest at most kMaxDepth levels. One deeper ends the parse
//     with "Nesting deeper than 10000 levels at position P" CR LF; the
//     containers read so far stay in the tree. Parsing keeps its own stack
//     and releasing a tree never recurses per level, so no depth of input
//     reaches the machine stack.
//   - "\u" not followed by four hexadecimal digits is an unknown escape:
//     the backslash is dropped and "u" is kept. A "\u" escape always gives
//     exactly one code unit, so a lone surrogate stays a lone surrogate.
//   - A CompareMode that Dictionary refuses (below -1) fails every object
//     as the runtime's reader does, with the failure pending: the object
//     ends after its first member, reported with that member's key.
//   - LargeIntegers (default False) is an extension: when True, an integer
//     outside the Long range becomes a LongLong instead of failing its
//     container (outside the LongLong range it still overflows).
//
//   auto json = kestrel::MakeRef<kestrel::JSON>();
//   json->Parse(u"{name: 'Ann', /* note */ tags: [1, 2.5]}");   // true
//   json->JSONObject();   // a Dictionary with keys "name" and "tags"
//
// Dispatchable as CompareMode (get, let), ParseError, Text, JSONObject,
// LargeIntegers (get, let), Clear and Parse(Text); registered as
// Kestrel.JSON. Not thread-safe per object.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API JSON : public Dispatchable<JSON> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.JSON";
  // Deepest nesting of objects and arrays that Parse reads.
  static constexpr int32_t kMaxDepth = 10000;

  JSON() { Clear(); }
  ~JSON() override;
  JSON(const JSON&) = delete;
  JSON& operator=(const JSON&) = delete;

  int32_t CompareMode() const noexcept { return compare_mode_; }
  // Stored unchecked; a mode a Dictionary refuses fails each object later.
  void SetCompareMode(int32_t mode) noexcept { compare_mode_ = mode; }
  bool LargeIntegers() const noexcept { return large_integers_; }
  void SetLargeIntegers(bool on) noexcept { large_integers_ = on; }

  const std::u16string& ParseError() const noexcept { return parse_error_; }
  std::u16string_view Text() const noexcept { return text_.string(); }
  // The root Dictionary or Collection, or Nothing.
  const Value& JSONObject() const noexcept { return root_; }

  void Clear() noexcept;
  bool Parse(std::u16string_view text);
  bool Parse(const std::u16string& text) { return Parse(std::u16string_view(text)); }
  bool Parse(const char16_t* text) { return Parse(std::u16string_view(text)); }
  // The same for a String value, which Text then shares instead of copying
  // (strings are immutable); any other kind is converted to text first.
  bool Parse(const Value& text);

  static const DispatchTable<JSON>& Dispatch();

 private:
  int32_t compare_mode_ = 1;
  bool large_integers_ = false;
  std::u16string parse_error_;
  Value text_;  // a String
  Value root_;
  // How many strings the reader pooled last time: the next parse starts
  // its pool at that size instead of growing it again step by step.
  size_t pooled_ = 0;
};

}  // namespace kestrel
