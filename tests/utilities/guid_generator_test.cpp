#include "kestrel/utilities/guid_generator.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

TEST(GUIDGenerator, DistinctVersion4GuidsInBracedUpperCaseForm) {
  // 8-4-4-4-12 upper-case digits in braces; version 4, variant 10xx.
  const std::regex form(
      "\\{[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\\}");
  Ref<Object> global = Registry::Instance().Global(GUIDGenerator::kQualifiedName);
  std::set<std::u16string> seen;
  for (int i = 0; i < 1000; ++i) {
    std::u16string id =
        i % 2 ? GlobalInstance<GUIDGenerator>().GenerateGUID()
              : std::u16string(CallByName(global, u"GenerateGUID", CallKind::kMethod).string());
    ASSERT_TRUE(std::regex_match(ToUtf8(id), form)) << ToUtf8(id);
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

}  // namespace
}  // namespace kestrel
