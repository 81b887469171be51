#include "kestrel/files/atomic_write.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "kestrel/files/profile.hpp"
#include "run_as_unprivileged.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using testing::FileBytes;
using testing::GiveToUnprivileged;
using testing::RunAsUnprivileged;
using testing::RunningAsRoot;
using testing::TempFolder;

struct stat StatOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
  return st;
}

enum class Step { kNone, kCreate, kChown, kOpen, kShortWrite, kTruncate, kFlush, kRename };

// The real steps, with the chosen one failing as a full or failing disk, or
// a file system without owners, makes it fail.
class FailingSteps : public AtomicWriteSteps {
 public:
  explicit FailingSteps(Step failing) : failing_(failing) {}

  int CreateTemporary(const std::string& folder, std::string& temp_path) override {
    return Is(Step::kCreate, ENOSPC) ? -1 : AtomicWriteSteps::CreateTemporary(folder, temp_path);
  }
  int OpenInPlace(const std::string& path) override {
    return Is(Step::kOpen, EACCES) ? -1 : AtomicWriteSteps::OpenInPlace(path);
  }
  int ChangeOwner(int fd, uid_t owner, gid_t group) override {
    return Is(Step::kChown, EPERM) ? -1 : AtomicWriteSteps::ChangeOwner(fd, owner, group);
  }
  // One byte goes through, then the disk is full.
  ssize_t Write(int fd, const char* data, size_t size) override {
    if (wrote_ && Is(Step::kShortWrite, ENOSPC)) return -1;
    wrote_ = true;
    return AtomicWriteSteps::Write(fd, data, failing_ == Step::kShortWrite ? 1 : size);
  }
  int Truncate(int fd, off_t size) override {
    return Is(Step::kTruncate, EIO) ? -1 : AtomicWriteSteps::Truncate(fd, size);
  }
  int Flush(int fd) override { return Is(Step::kFlush, EIO) ? -1 : AtomicWriteSteps::Flush(fd); }
  int Rename(const std::string& from, const std::string& to) override {
    return Is(Step::kRename, EXDEV) ? -1 : AtomicWriteSteps::Rename(from, to);
  }

 private:
  // Whether `step` is the failing one; if so errno is set to `error`.
  bool Is(Step step, int error) {
    if (failing_ != step) return false;
    errno = error;
    return true;
  }
  Step failing_;
  bool wrote_ = false;
};

enum class Link { kNone, kHard, kSymbolic };

TEST(ReplaceFileContent, KeepsModeOwnerAndLinksAndReportsEveryFailingStep) {
  const std::string old_content = "a much longer old content";
  const struct {
    const char* what;
    Step failing;
    Link link;        // a second name (writes go through a symbolic one)
    bool given_away;  // owned by nobody (only root can set that up)
    int error;
    const char* after;  // nullptr: torn
    bool in_place;      // the same inode afterwards
  } cases[] = {
      {"replaced, mode kept", Step::kNone, Link::kNone, false, 0, "new", false},
      {"replaced, owner and group kept", Step::kNone, Link::kNone, true, 0, "new", false},
      {"hard-linked: written in place", Step::kNone, Link::kHard, false, 0, "new", true},
      {"symbolic link: the target replaced", Step::kNone, Link::kSymbolic, false, 0, "new", false},
      {"owner refused: written in place", Step::kChown, Link::kNone, false, 0, "new", true},
      // A failed replacement leaves the original, and no temporary file.
      {"temporary file", Step::kCreate, Link::kNone, false, ENOSPC, old_content.c_str(), true},
      {"short write", Step::kShortWrite, Link::kNone, false, ENOSPC, old_content.c_str(), true},
      {"flush", Step::kFlush, Link::kNone, false, EIO, old_content.c_str(), true},
      {"rename", Step::kRename, Link::kNone, false, EXDEV, old_content.c_str(), true},
      // In place, only a failure before the first byte does.
      {"open in place", Step::kOpen, Link::kHard, false, EACCES, old_content.c_str(), true},
      {"short write in place", Step::kShortWrite, Link::kHard, false, ENOSPC, nullptr, true},
      {"truncate", Step::kTruncate, Link::kHard, false, EIO, nullptr, true},
  };
  for (const auto& c : cases) {
    if (c.given_away && !RunningAsRoot()) continue;
    SCOPED_TRACE(c.what);
    TempFolder folder;
    const std::string path = folder.Write("f", old_content);
    ::chmod(path.c_str(), 0640);
    if (c.given_away) GiveToUnprivileged(path);
    const std::string link = folder.File("link");
    if (c.link == Link::kHard) std::filesystem::create_hard_link(path, link);
    if (c.link == Link::kSymbolic) std::filesystem::create_symlink(path, link);
    const struct stat before = StatOf(path);

    FailingSteps steps(c.failing);
    ScopedAtomicWriteSteps guard(steps);
    EXPECT_EQ(ReplaceFileContent(c.link == Link::kSymbolic ? link : path, "new"), c.error);
    const struct stat after = StatOf(path);
    if (c.after != nullptr) {
      EXPECT_EQ(FileBytes(path), c.after);
    }
    EXPECT_EQ(FileBytes(link), c.link == Link::kNone ? "" : FileBytes(path));
    EXPECT_EQ(std::filesystem::is_symlink(link), c.link == Link::kSymbolic);
    EXPECT_EQ(after.st_mode & 07777, 0640u);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(after.st_ino == before.st_ino, c.in_place);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()),
                            std::filesystem::directory_iterator()),
              c.link == Link::kNone ? 1 : 2);
  }
}

// Permissions deny root nothing: as root, the writes run as nobody.
TEST(ReplaceFileContent, FollowsThePermissionsOfFileAndFolder) {
  const struct {
    const char* what;
    mode_t file_mode, folder_mode;
    bool written;  // else the file is unchanged
  } cases[] = {
      {"unreadable file: never rewritten", 0200, 0755, false},
      {"read-only file in a writable folder: not replaced", 0444, 0755, false},
      {"writable file in a read-only folder: written in place", 0644, 0555, true},
  };
  TempFolder folder;
  const std::string path = folder.File("p.ini");
  // Another user's file that anyone may write (root's, as root) is written
  // in place: a new file would belong to the writer.
  const std::string others = folder.Write("others.ini", "[s]\r\nk=1\r\n");
  ::chmod(others.c_str(), 0666);
  const struct stat others_before = StatOf(others);
  GiveToUnprivileged(folder.path());

  RunAsUnprivileged([&] {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.what);
      folder.Write("p.ini", "[s]\r\nk=1\r\n");
      const ino_t inode = StatOf(path).st_ino;
      ::chmod(path.c_str(), c.file_mode);
      ::chmod(folder.path().c_str(), c.folder_mode);
      EXPECT_EQ(WriteProfileString(u"s", u"k", u"2", path), c.written);
      ::chmod(folder.path().c_str(), 0755);
      ::chmod(path.c_str(), 0644);
      EXPECT_EQ(FileBytes(path), c.written ? "[s]\r\nk=2\r\n" : "[s]\r\nk=1\r\n");
      EXPECT_EQ(StatOf(path).st_ino, inode);
    }
    EXPECT_TRUE(WriteProfileString(u"s", u"k", u"2", others));
  });
  EXPECT_EQ(FileBytes(others), "[s]\r\nk=2\r\n");
  EXPECT_EQ(StatOf(others).st_uid, others_before.st_uid);
  EXPECT_EQ(StatOf(others).st_gid, others_before.st_gid);
}

}  // namespace
}  // namespace kestrel::files
