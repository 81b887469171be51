// The Like operator: the first byte says where the UTF-16 units that follow
// split into text and pattern. Both compare modes run on every input and
// may only match, fail or raise 93 for a bad pattern. Checks that a match
// survives a star added on either side, and that every text matches itself
// once its special characters are bracketed.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/strings.hpp"

using namespace kestrel;

namespace {

// Like, or nullopt-like -1 for a bad pattern; anything else aborts.
int Match(std::u16string_view text, std::u16string_view pattern, CompareMethod mode) {
  try {
    return runtime::Like(text, pattern, mode) ? 1 : 0;
  } catch (const RuntimeError& e) {
    if (e.number() != errors::kInvalidPatternString) std::abort();
    return -1;
  }
}

std::u16string Literal(std::u16string_view text) {
  std::u16string out;
  for (const char16_t c : text) {
    if (c == u'[' || c == u'*' || c == u'?' || c == u'#') {
      out += u'[';
      out += c;
      out += u']';
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::u16string units((size - 1) / 2, u'\0');
  std::memcpy(units.data(), data + 1, units.size() * 2);
  const size_t split = units.size() * data[0] / 256;
  const std::u16string_view text = std::u16string_view(units).substr(0, split);
  const std::u16string_view pattern = std::u16string_view(units).substr(split);

  for (const CompareMethod mode : {CompareMethod::kBinary, CompareMethod::kText}) {
    const int matched = Match(text, pattern, mode);
    if (matched == 1) {
      const std::u16string star(u"*");
      if (Match(text, star + std::u16string(pattern), mode) != 1) std::abort();
      if (Match(text, std::u16string(pattern) + star, mode) != 1) std::abort();
    }
    if (Match(text, Literal(text), mode) != 1) std::abort();
    if (Match(text, u"*", mode) != 1) std::abort();
  }
  if (!runtime::Like(Value::Null(), Value(pattern)).IsNull()) std::abort();
  return 0;
}
