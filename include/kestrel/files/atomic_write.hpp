// Replacing a file's content while keeping the file's identity, and the seam
// its failure paths are tested through.
//
// ReplaceFileContent normally writes the new content to a fresh temporary
// file in the same folder, flushes it to disk, gives it the old file's
// owner, group and permissions and renames it over the original. rename(2)
// within one file system is atomic, so a reader (or a crash) sees the old
// file or the new one, never a torn one; on any failure the temporary file
// is removed and the original is left untouched.
//
// A rename makes a new file, so it is used only when the new file can be
// the old one in every way that shows. Otherwise the content is written IN
// PLACE (open for writing, write, truncate, flush), which keeps the file's
// inode, hard links, owner, group and mode, but is NOT atomic: a crash or
// a full disk midway can leave the file part new, part old. That happens
// for a file with more than one hard link, a file in a folder where the
// caller may not create files, and a file whose owner or group a new file
// could not be given (the caller is not root and does not own it or is not
// in its group, or the file system refuses the change).
//
// A file the caller may not write is never replaced, even in a folder that
// would allow the rename: the call fails with EACCES and the file is
// unchanged. A path that is a symbolic link replaces the link's target, not
// the link. A missing file is created with the umask's permissions.
//
// AtomicWriteSteps is the backend of those steps. Tests substitute a
// subclass that fails one step (ScopedAtomicWriteSteps) to show what each
// failure leaves behind.
//
//   int error = kestrel::files::ReplaceFileContent("/etc/app.ini", bytes);
//   if (error != 0) { /* errno value; see above for what the file holds */ }
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
  // Opens the existing file for writing without truncating it; a
  // descriptor or -1.
  virtual int OpenInPlace(const std::string& path);
  virtual int ChangeOwner(int fd, uid_t owner, gid_t group);
  virtual int ChangeMode(int fd, mode_t mode);
  virtual ssize_t Write(int fd, const char* data, size_t size);
  virtual int Truncate(int fd, off_t size);
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
