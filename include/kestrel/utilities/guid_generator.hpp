// GUIDGenerator: the global class that hands out new random GUIDs as text
// (Kestrel.GUIDGenerator).
//
// Each GenerateGUID is a fresh version 4 (random) GUID from libuuid, in the
// registry form: 38 characters, upper-case hexadecimal digits grouped
// 8-4-4-4-12 between braces. One shared instance per thread; the instance
// holds no state, so any instance gives the same kind of result.
//
//   std::u16string id = kestrel::GlobalInstance<kestrel::GUIDGenerator>().GenerateGUID();
//   // e.g. u"{3F2504E0-4F89-41D3-9A0C-0305E82C3301}"
//
// Dispatchable as GenerateGUID.
#pragma once

#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API GUIDGenerator : public Dispatchable<GUIDGenerator> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.GUIDGenerator";

  std::u16string GenerateGUID();

  static const DispatchTable<GUIDGenerator>& Dispatch();
};

}  // namespace kestrel
