// JSON.Parse over any text: the bytes read as UTF-8 and, separately, as raw
// UTF-16 code units. Parse must return, never raise, report success exactly
// when ParseError is empty, keep the text unchanged, and hand out a tree of
// Dictionaries, Collections and scalars that walks and releases cleanly.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/formats/json.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/dictionary.hpp"

namespace {

// Walks the tree with its own stack, as deep trees need.
void Walk(const kestrel::Value& root) {
  std::vector<kestrel::Value> pending{root};
  while (!pending.empty()) {
    kestrel::Value v = std::move(pending.back());
    pending.pop_back();
    switch (v.kind()) {
      case kestrel::Kind::kEmpty:
      case kestrel::Kind::kNull:
      case kestrel::Kind::kBoolean:
      case kestrel::Kind::kLong:
      case kestrel::Kind::kLongLong:
      case kestrel::Kind::kDouble:
      case kestrel::Kind::kString:
        break;
      case kestrel::Kind::kObject:
        if (auto* d = dynamic_cast<kestrel::Dictionary*>(v.object())) {
          kestrel::Value items = d->Items();
          for (int32_t i = 0; i < d->Count(); ++i) pending.push_back(items.GetElement({i}));
        } else if (auto* c = dynamic_cast<kestrel::Collection*>(v.object())) {
          for (const kestrel::Value& item : *c) pending.push_back(item);
        } else if (v.object() != nullptr) {
          std::abort();
        }
        break;
      default:
        std::abort();
    }
  }
}

void Check(std::u16string_view text, bool large_integers) {
  kestrel::JSON json;
  json.SetLargeIntegers(large_integers);
  const bool ok = json.Parse(text);
  if (ok != json.ParseError().empty() || json.Text() != text) std::abort();
  Walk(json.JSONObject());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Check(kestrel::FromUtf8(bytes), size % 2 == 0);
  std::u16string units(size / 2, u'\0');
  std::memcpy(units.data(), data, units.size() * 2);
  Check(units, size % 2 == 1);
  return 0;
}
