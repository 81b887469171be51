#include "kestrel/files/file_error.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using namespace errors;

TEST(FileError, MapsErrnoToTheRuntimesFileErrors) {
  // clang-format off
  const std::pair<int, int32_t> cases[] = {
      {ENOENT, kPathNotFound},         {ENOTDIR, kPathNotFound},  {EACCES, kPermissionDenied},
      {EPERM, kPermissionDenied},      {EROFS, kPermissionDenied},  {EEXIST, kFileAlreadyExists},
      {ENOSPC, kDiskFull},             {EIO, kDeviceIoError},   {ENAMETOOLONG, kBadFileNameOrNumber},
      {EISDIR, kPathFileAccessError},  {ENOTEMPTY, kPathFileAccessError},
      {EBUSY, kPathFileAccessError},   {ELOOP, kPathFileAccessError},
  };
  // clang-format on
  for (const auto& c : cases) {  // errno, number
    SCOPED_TRACE(c.first);
    EXPECT_EQ(FileErrorNumber(c.first), c.second);
    EXPECT_RAISES(RaiseFileError(c.first), c.second);
  }
}

TEST(FileError, MissingLastComponentIsFileNotFound) {
  testing::TempFolder folder;
  const std::pair<std::string, int32_t> cases[] = {
      {folder.File("missing.txt"), kFileNotFound},
      {folder.File("missing/"), kFileNotFound},
      {folder.path() + "//missing.txt", kFileNotFound},
      {folder.File("no/missing.txt"), kPathNotFound},
      {"kestrel-no-such-name", kFileNotFound},  // in the current folder
      {"/kestrel-no-such-name", kFileNotFound},
      {"", kBadFileNameOrNumber},
  };
  for (const auto& c : cases) {  // path, number
    SCOPED_TRACE(c.first);
    EXPECT_EQ(FileErrorNumber(ENOENT, c.first), c.second);
    EXPECT_RAISES(RaiseFileError(ENOENT, c.first), c.second);
  }
  // Only a missing entry is refined; other failures keep their number.
  EXPECT_EQ(FileErrorNumber(EACCES, folder.File("x")), kPermissionDenied);
}

}  // namespace
}  // namespace kestrel::files
