// File: a file object as other classes hand it out (LogFile.File, and the
// file-system members later on). It names one file by its absolute path and
// holds nothing open; the file need not exist.
//
//   auto f = kestrel::MakeRef<kestrel::files::File>("/tmp/run.log");
//   f->Path();  // u"/tmp/run.log"
//   f->Name();  // u"run.log"
//
// Dispatchable as Path and Name (get); registered as Kestrel.File, not
// creatable by clients. Not thread-safe.
#pragma once

#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::files {

class KESTREL_API File : public Dispatchable<File> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.File";

  File() = default;
  // `path` is made absolute (AbsolutePath) here, once.
  explicit File(const std::string& path);

  // The absolute path and the last component of it.
  std::u16string Path() const;
  std::u16string Name() const;
  // The absolute path as the file system takes it (UTF-8).
  const std::string& native_path() const noexcept { return path_; }

  static const DispatchTable<File>& Dispatch();

 private:
  std::string path_;
};

}  // namespace kestrel::files
