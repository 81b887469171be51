// Replacing a file's content atomically, and the seam its failure paths are
// tested through.
//
// ReplaceFileContent writes the new content to a fresh temporary file in the
// same folder, flushes it to disk, gives it the old file's permissions and
// renames it over the original. rename(2) within one file system is atomic,
// so a reader (or a crash) sees the old file or the new one, never a torn
// one. On any failure the temporary file is removed and the original is left
// untouched. A path that is a symbolic link replaces the link's target, not
// the link.
//
// AtomicWriteSteps is the backend of those steps. Tests substitute a
// subclass that fails one step (ScopedAtomicWriteSteps) to show that every
// failure leaves the original intact.
//
//   int error = kestrel::files::ReplaceFileContent("/etc/app.ini", bytes);
//   if (error != 0) { /* errno value; the old file is unchanged */ }
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel::files {

// The system calls behind ReplaceFileContent. Each returns what its system
// call returns and leaves errno set on failure.
class KESTREL_API AtomicWriteSteps {
 public:
  virtual ~AtomicWriteSteps() = default;
  // Creates a new, exclusive temporary file in `folder`; returns its
  // descriptor and its path in `temp_path`, or -1.
  virtual int CreateTemporary(const std::string& folder, std::string& temp_path);
  virtual ssize_t Write(int fd, const char* data, size_t size);
  virtual int Flush(int fd);
  virtual int Rename(const std::string& from, const std::string& to);
};

// Replaces the content of `path` (creating the file when it is missing).
// Returns 0, or the errno value of the step that failed.
KESTREL_API int ReplaceFileContent(const std::string& path, std::string_view content);

// Routes ReplaceFileContent through `steps` for the guard's lifetime (tests).
// Process-wide; not for concurrent use.
class KESTREL_API ScopedAtomicWriteSteps {
 public:
  explicit ScopedAtomicWriteSteps(AtomicWriteSteps& steps) noexcept;
  ~ScopedAtomicWriteSteps();
  ScopedAtomicWriteSteps(const ScopedAtomicWriteSteps&) = delete;
  ScopedAtomicWriteSteps& operator=(const ScopedAtomicWriteSteps&) = delete;

 private:
  AtomicWriteSteps* previous_;
};

}  // namespace kestrel::files
