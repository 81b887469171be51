#include "kestrel/files/file.hpp"

#include <filesystem>

#include "kestrel/files/text_file.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::files {

KESTREL_REGISTER_CLASS(File, File::kQualifiedName, Instancing::kNotCreatable);

File::File(const std::string& path) : path_(AbsolutePath(path)) {}

std::u16string File::Path() const {
  return FromUtf8(path_);
}

std::u16string File::Name() const {
  return FromUtf8(std::filesystem::path(path_).filename().string());
}

const DispatchTable<File>& File::Dispatch() {
  using T = DispatchTable<File>;
  static const T table = T::Builder(u"File")
                             .Get(u"Path", [](File& self, Args&) { return Value(self.Path()); })
                             .Get(u"Name", [](File& self, Args&) { return Value(self.Name()); })
                             .Build();
  return table;
}

}  // namespace kestrel::files
