#include "kestrel/utilities/guid_generator.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

TEST(GUIDGenerator, GeneratesDistinctVersion4GuidsInRegistryForm) {
  // Upper-case digits, braces, 8-4-4-4-12; version 4 and the standard variant.
  const std::regex form("\\{[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\\}");
  GUIDGenerator& generator = GlobalInstance<GUIDGenerator>();
  std::set<std::u16string> seen;
  for (int i = 0; i < 1000; ++i) {
    std::u16string id = generator.GenerateGUID();
    ASSERT_TRUE(std::regex_match(ToUtf8(id), form)) << ToUtf8(id);
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(GUIDGenerator, CallableByNameThroughTheGlobalInstance) {
  Ref<Object> global = Registry::Instance().Global(u"Kestrel.GUIDGenerator");
  Value id = CallByName(global, u"GenerateGUID", CallKind::kMethod);
  EXPECT_EQ(id.string().size(), 38u);
  EXPECT_NE(id.string(), CallByName(global, u"generateguid", CallKind::kMethod).string());
}

}  // namespace
}  // namespace kestrel
