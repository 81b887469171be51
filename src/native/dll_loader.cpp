#include "kestrel/native/dll_loader.hpp"

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"
#include "native_call.hpp"

namespace kestrel {

namespace nd = native::detail;

KESTREL_REGISTER_CLASS(DllLoader, DllLoader::kQualifiedName, Instancing::kCreatable);

DllLoader::~DllLoader() {
  for (const DllInfo& dll : dlls_) nd::CloseLibrary(dll.module);
}

int64_t DllLoader::LoadDLL(std::u16string_view name, std::u16string_view path) {
  // The first record of a name wins: a second load under the same name
  // hands back that handle and ignores the new path.
  for (const DllInfo& dll : dlls_)
    if (dll.name == name) return reinterpret_cast<intptr_t>(dll.module);
  void* module = nd::OpenLibrary(ToUtf8(path), last_load_error_);
  if (module == nullptr) return 0;
  dlls_.push_back(DllInfo{std::u16string(name), module});
  return reinterpret_cast<intptr_t>(module);
}

void DllLoader::UnloadDLL(std::u16string_view name) noexcept {
  for (auto it = dlls_.begin(); it != dlls_.end(); ++it) {
    if (it->name == name) {
      nd::CloseLibrary(it->module);
      dlls_.erase(it);
      return;
    }
  }
}

const DispatchTable<DllLoader>& DllLoader::Dispatch() {
  using T = DispatchTable<DllLoader>;
  static const T table =
      T::Builder(u"DllLoader")
          .Method(
              u"LoadDLL", 2, 2,
              [](DllLoader& self, Args& a) { return Value(self.LoadDLL(a.Text(0), a.Text(1))); })
          .Method(u"UnloadDLL", 1, 1,
                  [](DllLoader& self, Args& a) {
                    self.UnloadDLL(a.Text(0));
                    return Value();
                  })
          .Get(u"LastLoadError", [](DllLoader& self, Args&) { return Value(self.LastLoadError()); })
          .Build();
  return table;
}

}  // namespace kestrel
