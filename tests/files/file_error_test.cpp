#include "kestrel/files/file_error.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

TEST(FileError, MapsErrnoToTheRuntimesFileErrors) {
  const struct {
    int errno_value;
    int32_t number;
  } cases[] = {
      {ENOENT, errors::kPathNotFound},
      {ENOTDIR, errors::kPathNotFound},
      {EACCES, errors::kPermissionDenied},
      {EPERM, errors::kPermissionDenied},
      {EROFS, errors::kPermissionDenied},
      {EEXIST, errors::kFileAlreadyExists},
      {ENOSPC, errors::kDiskFull},
      {EIO, errors::kDeviceIoError},
      {ENAMETOOLONG, errors::kBadFileNameOrNumber},
      {EISDIR, errors::kPathFileAccessError},
      {ENOTEMPTY, errors::kPathFileAccessError},
      {EBUSY, errors::kPathFileAccessError},
      {ELOOP, errors::kPathFileAccessError},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.errno_value);
    EXPECT_EQ(FileErrorNumber(c.errno_value), c.number);
    EXPECT_RAISES(RaiseFileError(c.errno_value), c.number);
  }
}

TEST(FileError, MissingLastComponentIsFileNotFound) {
  testing::TempFolder folder;
  const struct {
    std::string path;
    int32_t number;
  } cases[] = {
      {folder.File("missing.txt"), errors::kFileNotFound},
      {folder.File("missing/"), errors::kFileNotFound},
      {folder.path() + "//missing.txt", errors::kFileNotFound},
      {folder.File("no/missing.txt"), errors::kPathNotFound},
      {"kestrel-no-such-name", errors::kFileNotFound},  // in the current folder
      {"/kestrel-no-such-name", errors::kFileNotFound},
      {"", errors::kBadFileNameOrNumber},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(FileErrorNumber(ENOENT, c.path), c.number);
    EXPECT_RAISES(RaiseFileError(ENOENT, c.path), c.number);
  }
  // Only a missing entry is refined; other failures keep their number.
  EXPECT_EQ(FileErrorNumber(EACCES, folder.File("x")), errors::kPermissionDenied);
}

}  // namespace
}  // namespace kestrel::files
