// Named-strings text: the first byte picks the separator, the rest is UTF-16
// text read with Text let. Whatever was stored must come back through the
// text form: a second object reading the first one's Text holds the same
// pairs in the same order, and writes the same Text again. Every stored name
// is non-empty and unique.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "kestrel/containers/named_strings.hpp"

using namespace kestrel;

namespace {

bool SameStrings(const Value& a, const Value& b) {
  if (a.IsAllocated() != b.IsAllocated()) return false;
  if (!a.IsAllocated()) return true;
  if (a.LBound() != 0 || b.LBound() != 0 || a.ElementCount() != b.ElementCount()) return false;
  for (size_t i = 0; i < a.ElementCount(); ++i)
    if (a.Elements()[i].string() != b.Elements()[i].string()) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static constexpr char16_t kSeparators[] = {u';', u',', u'&', u'|', u'\t', u'\u00A7'};
  const std::u16string separator(1, kSeparators[data[0] % std::size(kSeparators)]);
  std::u16string text((size - 1) / 2, u'\0');
  std::memcpy(text.data(), data + 1, text.size() * 2);

  NamedStrings first;
  first.SetSeparator(separator);
  first.SetText(text);
  const std::u16string written = first.Text();

  NamedStrings second;
  second.SetSeparator(separator);
  second.SetText(written);
  if (!SameStrings(first.Names(), second.Names())) std::abort();
  if (!SameStrings(first.Values(), second.Values())) std::abort();
  if (second.Text() != written) std::abort();

  Value names = first.Names();
  if (size_t(first.Count()) != names.ElementCount()) std::abort();
  std::set<std::u16string_view> seen;
  for (const Value& name : names.Elements())
    if (name.string().empty() || !seen.insert(name.string()).second) std::abort();
  return 0;
}
