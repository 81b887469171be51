// File errors: the one place where an errno value becomes the runtime's file
// error number, so that every file operation of the library reports the
// same failure with the same number.
//
//   ENOENT, ENOTDIR            76 path not found (53 file not found when only
//                                 the last component is missing, see below)
//   EACCES, EPERM, EROFS       70 permission denied
//   EEXIST                     58 file already exists
//   ENOSPC, EDQUOT             61 disk full
//   EIO                        57 device I/O error
//   ENAMETOOLONG               52 bad file name or number
//   EISDIR, ENOTEMPTY, EBUSY,  75 path/file access error
//   anything else
//
// Without the path, a missing file cannot be told from a missing folder, so
// the plain overloads say "path not found". The path-aware overloads look at
// the folder that would hold `path`: when it exists, only the last component
// is missing and the error is 53. An empty path names nothing and is a bad
// file name (52). Stateless and thread-safe.
//
//   int fd = ::open(path.c_str(), O_RDONLY);
//   if (fd < 0) kestrel::files::RaiseFileError(errno, path);  // 53, 76, 70 ...
//   int32_t n = kestrel::files::FileErrorNumber(EEXIST);     // 58
#pragma once

#include <cstdint>
#include <string>

#include "kestrel/frame/export.hpp"

namespace kestrel::files {

// The runtime error number for an errno value.
KESTREL_API int32_t FileErrorNumber(int errno_value) noexcept;
// As above, refined by the path the failing operation was given.
KESTREL_API int32_t FileErrorNumber(int errno_value, const std::string& path) noexcept;

// Raise the number above with its standard text.
[[noreturn]] KESTREL_API void RaiseFileError(int errno_value);
[[noreturn]] KESTREL_API void RaiseFileError(int errno_value, const std::string& path);

}  // namespace kestrel::files
