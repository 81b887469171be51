#include "kestrel/files/atomic_write.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "kestrel/files/profile.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using testing::FileBytes;
using testing::TempFolder;

enum class Step { kNone, kCreateTemporary, kShortWrite, kFlush, kRename };

// The real steps, with the chosen one failing as a full or failing disk
// makes it fail.
class FailingSteps : public AtomicWriteSteps {
 public:
  explicit FailingSteps(Step failing) : failing_(failing) {}

  int CreateTemporary(const std::string& folder, std::string& temp_path) override {
    if (failing_ == Step::kCreateTemporary) return Fail(ENOSPC);
    wrote_part_ = false;
    return AtomicWriteSteps::CreateTemporary(folder, temp_path);
  }
  // Half the bytes go through, then the disk is full.
  ssize_t Write(int fd, const char* data, size_t size) override {
    if (failing_ == Step::kShortWrite) {
      if (wrote_part_) return Fail(ENOSPC);
      wrote_part_ = true;
      return AtomicWriteSteps::Write(fd, data, size / 2);
    }
    return AtomicWriteSteps::Write(fd, data, size);
  }
  int Flush(int fd) override {
    return failing_ == Step::kFlush ? Fail(EIO) : AtomicWriteSteps::Flush(fd);
  }
  int Rename(const std::string& from, const std::string& to) override {
    return failing_ == Step::kRename ? Fail(EXDEV) : AtomicWriteSteps::Rename(from, to);
  }

 private:
  static int Fail(int error) {
    errno = error;
    return -1;
  }
  Step failing_;
  bool wrote_part_ = false;
};

TEST(ReplaceFileContent, EveryFailingStepLeavesTheOriginalIntact) {
  struct Case {
    const char* step;
    Step failing;
    int error;
  };
  const Case cases[] = {
      {"temporary file", Step::kCreateTemporary, ENOSPC},
      {"short write", Step::kShortWrite, ENOSPC},
      {"flush", Step::kFlush, EIO},
      {"rename", Step::kRename, EXDEV},
  };
  const std::string original = "; kept byte for byte\r\n[s]\r\nk=old\r\n";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.step);
    TempFolder folder;
    const std::string path = folder.File("settings.ini");
    std::ofstream(path, std::ios::binary) << original;

    FailingSteps steps(c.failing);
    ScopedAtomicWriteSteps guard(steps);
    EXPECT_EQ(ReplaceFileContent(path, std::string(1 << 16, 'x')), c.error);
    EXPECT_FALSE(WriteProfileString(u"s", u"k", u"new", path));
    EXPECT_FALSE(WriteProfileSection(u"s", std::nullopt, path));

    EXPECT_EQ(FileBytes(path), original);
    // No temporary file is left behind either.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()),
                            std::filesystem::directory_iterator()),
              1);
  }
}

TEST(ReplaceFileContent, ReplacesContentAndKeepsPermissions) {
  TempFolder folder;
  const std::string path = folder.File("f");
  std::ofstream(path, std::ios::binary) << "a much longer old content";
  std::filesystem::permissions(path, std::filesystem::perms(0640));

  FailingSteps real(Step::kNone);
  ScopedAtomicWriteSteps guard(real);
  EXPECT_EQ(ReplaceFileContent(path, "new"), 0);
  EXPECT_EQ(FileBytes(path), "new");
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(ReplaceFileContent(folder.File("created"), ""), 0);
  EXPECT_TRUE(std::filesystem::exists(folder.File("created")));
  EXPECT_EQ(ReplaceFileContent(folder.path(), "x"), EISDIR);
}

}  // namespace
}  // namespace kestrel::files
