// DllLoader: a named registry of loaded native libraries, so that a client
// loads a library once and frees it by the name it chose.
//
// LoadDLL(Name, Path) loads Path and records it under Name; a Name already
// recorded returns the handle of its first load and loads nothing, whatever
// Path says now. Names match exactly (case-sensitive). A failed load
// returns 0 and raises nothing; LastLoadError (an extension) keeps the
// loader's text of the last failure. UnloadDLL(Name) frees the library and
// forgets the name at once, however often it was loaded under that name;
// an unknown name does nothing. The loader owns what it loaded: releasing
// it frees every library still recorded.
//
// On Linux loading is dlopen(RTLD_NOW | RTLD_LOCAL) of Path as given (a path
// with "/" is opened as such, a bare name is searched the usual way) and
// the handle is dlopen's, as a pointer-sized integer (LongLong through late
// binding). Not thread-safe per object.
//
//   kestrel::DllLoader loader;
//   int64_t handle = loader.LoadDLL(u"c", u"libc.so.6");  // 0 on failure
//   loader.UnloadDLL(u"c");
//
// Dispatchable as LoadDLL(Name, Path), UnloadDLL(Name) and LastLoadError;
// registered as Kestrel.DllLoader.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API DllLoader : public Dispatchable<DllLoader> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.DllLoader";

  DllLoader() = default;
  ~DllLoader() override;
  DllLoader(const DllLoader&) = delete;
  DllLoader& operator=(const DllLoader&) = delete;

  // The library's handle, or 0 when it could not be loaded.
  int64_t LoadDLL(std::u16string_view name, std::u16string_view path);
  void UnloadDLL(std::u16string_view name) noexcept;

  const std::u16string& LastLoadError() const noexcept { return last_load_error_; }

  static const DispatchTable<DllLoader>& Dispatch();

 private:
  struct DllInfo {
    std::u16string name;
    void* module;
  };
  std::vector<DllInfo> dlls_;
  std::u16string last_load_error_;
};

}  // namespace kestrel
