#include "kestrel/files/file_error.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "kestrel/frame/errors.hpp"

namespace kestrel::files {
namespace {

// The folder that would hold `path`: "." for a bare name, "/" for a name in
// the root. Runs of separators count as one and trailing ones are ignored,
// as the kernel does when it resolves the path.
std::string HoldingFolder(const std::string& path) {
  size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return "/";
  size_t slash = path.rfind('/', end);
  if (slash == std::string::npos) return ".";
  size_t folder_end = path.find_last_not_of('/', slash);
  if (folder_end == std::string::npos) return "/";
  return path.substr(0, folder_end + 1);
}

bool IsFolder(const std::string& path) noexcept {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

int32_t FileErrorNumber(int errno_value) noexcept {
  switch (errno_value) {
    case ENOENT:
    case ENOTDIR:
      return errors::kPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return errors::kPermissionDenied;
    case EEXIST:
      return errors::kFileAlreadyExists;
    case ENOSPC:
    case EDQUOT:
      return errors::kDiskFull;
    case EIO:
      return errors::kDeviceIoError;
    case ENAMETOOLONG:
      return errors::kBadFileNameOrNumber;
    default:  // EISDIR, ENOTEMPTY, EBUSY, ELOOP, ...
      return errors::kPathFileAccessError;
  }
}

int32_t FileErrorNumber(int errno_value, const std::string& path) noexcept {
  if (errno_value != ENOENT) return FileErrorNumber(errno_value);
  if (path.empty()) return errors::kBadFileNameOrNumber;
  try {
    if (IsFolder(HoldingFolder(path))) return errors::kFileNotFound;
  } catch (...) {
    // Out of memory while building the folder's name: the plain answer.
  }
  return errors::kPathNotFound;
}

void RaiseFileError(int errno_value) {
  RaiseStandard(FileErrorNumber(errno_value));
}

void RaiseFileError(int errno_value, const std::string& path) {
  RaiseStandard(FileErrorNumber(errno_value, path));
}

}  // namespace kestrel::files
