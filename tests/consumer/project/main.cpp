#include <kestrel/runtime/convert.hpp>
#include <kestrel/runtime/dispatch.hpp>
#include <kestrel/runtime/registry.hpp>

#include <cstdio>

int main() {
  using namespace kestrel;
  Ref<Object> error = CreateObject(u"Kestrel.Error");
  CallByName(error, u"Number", CallKind::kLet, {Value(5)});
  Value number = CallByName(error, u"Number", CallKind::kGet);
  std::printf("%s\n", Value(runtime::ToText(number)).ToUtf8String().c_str());
  return number.long_value() == 5 ? 0 : 1;
}
