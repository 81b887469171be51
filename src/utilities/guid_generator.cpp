#include "kestrel/utilities/guid_generator.hpp"

#include <uuid/uuid.h>

#include "kestrel/runtime/registry.hpp"

namespace kestrel {

KESTREL_REGISTER_CLASS(GUIDGenerator, GUIDGenerator::kQualifiedName, Instancing::kGlobal);

std::u16string GUIDGenerator::GenerateGUID() {
  uuid_t id;
  uuid_generate_random(id);
  // 36 characters and the terminating NUL.
  char text[37];
  uuid_unparse_upper(id, text);
  std::u16string result;
  result.reserve(38);
  result.push_back(u'{');
  result.append(text, text + 36);
  result.push_back(u'}');
  return result;
}

const DispatchTable<GUIDGenerator>& GUIDGenerator::Dispatch() {
  using T = DispatchTable<GUIDGenerator>;
  static const T table =
      T::Builder(u"GUIDGenerator")
          .Method(u"GenerateGUID", 0, 0,
                  [](GUIDGenerator& self, Args&) { return Value(self.GenerateGUID()); })
          .Build();
  return table;
}

}  // namespace kestrel
