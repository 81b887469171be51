#include "kestrel/containers/named_strings.hpp"

#include <algorithm>
#include <exception>
#include <functional>
#include <span>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/error.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

namespace {

constexpr char16_t kEscape = u'/';
constexpr char16_t kAssign = u'=';
// Count and the look-up index are 16-bit on purpose.
constexpr int32_t kMaxIndex = 32767;

// One pass doing what three successive replacements do ("/" doubled, then
// the separator and "=" prefixed with "/"): the separator is never "/" or
// "=", so no replacement can touch what an earlier one produced.
void AppendEscaped(std::u16string& out, std::u16string_view text, char16_t separator) {
  for (char16_t c : text) {
    if (c == kEscape || c == separator || c == kAssign) out += kEscape;
    out += c;
  }
}

size_t Hash(std::u16string_view name) noexcept {
  return std::hash<std::u16string_view>{}(name);
}

}  // namespace

KESTREL_REGISTER_CLASS(NamedStrings, NamedStrings::kQualifiedName, Instancing::kCreatable);

void NamedStrings::SetSeparator(std::u16string_view separator) {
  if (separator.size() != 1 || separator[0] == kEscape || separator[0] == kAssign)
    RaiseStandard(errors::kSubscriptOutOfRange);
  separator_ = separator[0];
}

std::u16string NamedStrings::Text() const {
  // Items go out in index order for indices 0 .. count - 1. The count is not
  // lowered by Remove, so it can name indices no longer held; the first one
  // such a read reaches is the highest, so it fails before producing anything.
  if (count_ > static_cast<int32_t>(pairs_.size())) RaiseStandard(errors::kSubscriptOutOfRange);
  std::u16string text;
  for (int32_t i = 0; i < count_; ++i) {
    const Pair& pair = pairs_[size_t(i)];
    if (i > 0) text += separator_;
    AppendEscaped(text, pair.name, separator_);
    text += kAssign;
    AppendEscaped(text, pair.value, separator_);
  }
  return text;
}

void NamedStrings::SetText(std::u16string_view text) {
  Reset();
  // A pair that cannot be stored (the 16-bit index overflowing, memory
  // running out) ends the reading: the pairs stored so far stay, and the
  // failure is cleared instead of reaching the caller.
  try {
    std::u16string name;
    std::u16string value;
    bool in_value = false;
    for (size_t i = 0; i < text.size(); ++i) {
      char16_t c = text[i];
      if (c == kEscape) {
        // The next character is literal, whatever it is; a final "/" adds nothing.
        if (++i == text.size()) break;
        (in_value ? value : name) += text[i];
      } else if (c == kAssign) {
        // Only the first "=" of an item counts; later ones are dropped.
        in_value = true;
      } else if (c == separator_) {
        // An item without "=" before a separator is kept with an empty value...
        SetValue(name, value);
        name.clear();
        value.clear();
        in_value = false;
      } else {
        (in_value ? value : name) += c;
      }
    }
    // ...but a trailing one without "=" is dropped.
    if (in_value) SetValue(name, value);
  } catch (const std::exception&) {
    CurrentError().Clear();
  }
}

std::u16string NamedStrings::Value(std::u16string_view name) const {
  int32_t i = IndexOf(name);
  return i < 0 ? std::u16string() : pairs_[size_t(i)].value;
}

void NamedStrings::SetValue(std::u16string_view name, std::u16string_view value) {
  if (name.empty()) return;
  int32_t i = IndexOf(name);
  std::u16string new_value(value);
  if (i >= 0) {
    pairs_[size_t(i)].value = std::move(new_value);
    return;
  }
  // A new pair goes at index count, growing the list to count + 1 pairs:
  // after a Remove that also puts empty pairs at the indices in between.
  Pair pair{Hash(name), std::u16string(name), std::move(new_value)};
  pairs_.resize(size_t(count_), Pair{Hash({}), {}, {}});
  pairs_.push_back(std::move(pair));
  ++count_;
}

void NamedStrings::Remove(std::u16string_view name) {
  int32_t i = IndexOf(name);
  if (i >= 0) pairs_.erase(pairs_.begin() + i);
}

int16_t NamedStrings::Count() const {
  if (count_ > kMaxIndex) RaiseStandard(errors::kOverflow);
  return static_cast<int16_t>(count_);
}

void NamedStrings::Reset() noexcept {
  pairs_.clear();
  count_ = 0;
}

int32_t NamedStrings::IndexOf(std::u16string_view name) const {
  // Scans 0 .. count - 1 in order, first match winning; indices a Remove has
  // cut off match nothing.
  const size_t hash = Hash(name);
  const int32_t held = std::min(count_, static_cast<int32_t>(pairs_.size()));
  const int32_t end = std::min(held, kMaxIndex + 1);
  const Pair* pairs = pairs_.data();
  for (int32_t i = 0; i < end; ++i)
    if (pairs[i].hash == hash && pairs[i].name == name) return i;
  // The index is 16-bit: a scan that must step past 32767 overflows.
  if (count_ > kMaxIndex) RaiseStandard(errors::kOverflow);
  return -1;
}

kestrel::Value NamedStrings::ToArray(std::u16string Pair::*field) const {
  // What a client sees are two String arrays 0 .. n-1, unallocated when empty.
  if (pairs_.empty()) return kestrel::Value::UnallocatedArray(Kind::kString);
  kestrel::Value array =
      kestrel::Value::NewArray(Kind::kString, {{0, static_cast<int32_t>(pairs_.size()) - 1}});
  std::span<kestrel::Value> elements = array.MutableElements();
  for (size_t i = 0; i < pairs_.size(); ++i) elements[i] = kestrel::Value(pairs_[i].*field);
  return array;
}

const DispatchTable<NamedStrings>& NamedStrings::Dispatch() {
  using T = DispatchTable<NamedStrings>;
  using V = kestrel::Value;
  using runtime::ToText;
  static const T table =
      T::Builder(u"NamedStrings")
          .Property(
              u"Separator", [](NamedStrings& self, Args&) { return V(self.Separator()); },
              [](NamedStrings& self, Args&, const V& v) { self.SetSeparator(ToText(v)); })
          .Property(
              u"Text", [](NamedStrings& self, Args&) { return V(self.Text()); },
              [](NamedStrings& self, Args&, const V& v) { self.SetText(ToText(v)); })
          .Get(
              u"Value", [](NamedStrings& self, Args& a) { return V(self.Value(ToText(a[0]))); }, 1,
              1)
          .Let(
              u"Value",
              [](NamedStrings& self, Args& a, const V& v) {
                self.SetValue(ToText(a[0]), ToText(v));
              },
              1, 1)
          .Method(u"Remove", 1, 1,
                  [](NamedStrings& self, Args& a) {
                    self.Remove(ToText(a[0]));
                    return V();
                  })
          .Method(u"Exists", 1, 1,
                  [](NamedStrings& self, Args& a) { return V(self.Exists(ToText(a[0]))); })
          .Get(u"Count", [](NamedStrings& self, Args&) { return V(self.Count()); })
          .Get(u"Names", [](NamedStrings& self, Args&) { return self.Names(); })
          .Get(u"Values", [](NamedStrings& self, Args&) { return self.Values(); })
          .Method(u"Reset", 0, 0,
                  [](NamedStrings& self, Args&) {
                    self.Reset();
                    return V();
                  })
          .Build();
  return table;
}

}  // namespace kestrel
