#include "kestrel/native/dll_loader.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

const std::string kTestLib = KESTREL_NATIVE_TEST_LIB;

// Whether the dynamic loader still holds the library, without loading it.
bool IsLoaded() {
  void* h = ::dlopen(kTestLib.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (h != nullptr) ::dlclose(h);
  return h != nullptr;
}

TEST(DllLoader, OneLoadPerNameAndFreedByNameOrRelease) {
  ASSERT_FALSE(IsLoaded());
  const std::u16string path = FromUtf8(kTestLib);
  {
    DllLoader loader;
    const int64_t handle = loader.LoadDLL(u"test", path);
    ASSERT_NE(handle, 0);
    // The first handle of a name comes back whatever the path says now.
    EXPECT_EQ(loader.LoadDLL(u"test", u"/nonexistent/libkt_missing.so"), handle);
    EXPECT_EQ(loader.LastLoadError(), u"");
    // Names are case-sensitive: "TEST" is a second record of the library.
    EXPECT_EQ(loader.LoadDLL(u"TEST", path), handle);
    loader.UnloadDLL(u"unknown");
    loader.UnloadDLL(u"test");
    EXPECT_TRUE(IsLoaded());
    loader.UnloadDLL(u"TEST");
    EXPECT_FALSE(IsLoaded());
    // One unload frees a library however often its name was loaded.
    loader.LoadDLL(u"test", path);
    loader.LoadDLL(u"test", path);
    loader.UnloadDLL(u"test");
    EXPECT_FALSE(IsLoaded());

    EXPECT_EQ(loader.LoadDLL(u"missing", u"libkt_missing.so"), 0);
    EXPECT_NE(ToUtf8(loader.LastLoadError()).find("libkt_missing.so"), std::string::npos);
    loader.LoadDLL(u"test", path);
    loader.LoadDLL(u"libc", u"libc.so.6");
  }
  EXPECT_FALSE(IsLoaded());
}

TEST(DllLoader, LateBoundLoadReturnsALongLongHandle) {
  Ref<Object> loader = CreateObject(u"Kestrel.DllLoader");
  Value handle = CallByName(loader, u"LoadDLL", CallKind::kMethod,
                            {Value(u"test"), Value(FromUtf8(kTestLib))});
  EXPECT_EQ(handle.kind(), Kind::kLongLong);
  EXPECT_NE(handle.long_long(), 0);
  loader = nullptr;  // the last reference: the loader is released
  EXPECT_FALSE(IsLoaded());
}

}  // namespace
}  // namespace kestrel
