#include "kestrel/files/atomic_write.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

namespace kestrel::files {
namespace {

AtomicWriteSteps& DefaultSteps() {
  static AtomicWriteSteps steps;
  return steps;
}

std::atomic<AtomicWriteSteps*> current_steps{nullptr};

AtomicWriteSteps& Steps() {
  AtomicWriteSteps* steps = current_steps.load(std::memory_order_acquire);
  return steps != nullptr ? *steps : DefaultSteps();
}

// rename(2) replaces a symbolic link itself; writing through a link must
// replace the file it points to, so the link survives.
std::string ReplacementTarget(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
  std::error_code ec;
  std::filesystem::path target = std::filesystem::weakly_canonical(path, ec);
  return ec ? path : target.string();
}

std::string FolderOf(const std::string& path) {
  std::string folder = std::filesystem::path(path).parent_path().string();
  return folder.empty() ? std::string(".") : folder;
}

// Makes the rename itself durable. Best effort: the new content is already
// complete on disk, and a folder that cannot be opened or synced changes
// nothing about which file a reader sees.
void FlushFolder(const std::string& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

int ErrorOr(int fallback) {
  return errno != 0 ? errno : fallback;
}

// Whether fchown could give a new file the owner and group of `file`: root
// gives any; anyone else only their own user and one of their groups.
bool CanGiveOwnership(const struct stat& file) {
  if (::geteuid() == 0) return true;
  if (file.st_uid != ::geteuid()) return false;
  if (file.st_gid == ::getegid()) return true;
  std::vector<gid_t> groups(size_t(std::max(::getgroups(0, nullptr), 0)));
  if (groups.empty()) return false;
  groups.resize(size_t(std::max(::getgroups(int(groups.size()), groups.data()), 0)));
  return std::find(groups.begin(), groups.end(), file.st_gid) != groups.end();
}

// A rename is atomic but puts a new file behind the name; writing in place
// keeps the file itself but is not atomic.
enum class Way { kRename, kInPlace };

Way ChooseWay(const struct stat& file, const std::string& folder) {
  // The file's other names would keep the old content.
  if (file.st_nlink > 1) return Way::kInPlace;
  // No temporary file can be created beside it.
  if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) return Way::kInPlace;
  // The new file would belong to the caller, not to the file's owner or group.
  if (!CanGiveOwnership(file)) return Way::kInPlace;
  return Way::kRename;
}

int WriteAll(AtomicWriteSteps& steps, int fd, std::string_view content) {
  const char* data = content.data();
  size_t left = content.size();
  while (left > 0) {
    ssize_t n = steps.Write(fd, data, left);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return ErrorOr(EIO);
    if (n == 0) return ENOSPC;  // no progress and no error: the disk is full
    data += n;
    left -= size_t(n);
  }
  return 0;
}

// Returned by ReplaceByRename when the temporary file could not be given
// the old file's owner, group or mode (the file system refused).
constexpr int kIdentityNotKept = -1;

// `old_file` is null for a file that does not exist yet.
int ReplaceByRename(AtomicWriteSteps& steps, const std::string& target, const std::string& folder,
                    std::string_view content, const struct stat* old_file) {
  std::string temp_path;
  int fd = steps.CreateTemporary(folder, temp_path);
  if (fd < 0) return ErrorOr(EIO);

  // From here every failure removes the temporary file; the original has
  // not been touched until the rename, which either happens whole or not.
  auto fail = [&](int error) {
    if (fd >= 0) ::close(fd);
    ::unlink(temp_path.c_str());
    return error != 0 ? error : EIO;
  };

  // Owner before mode: a change of owner clears the set-user-ID and
  // set-group-ID bits, which the mode then puts back.
  if (old_file != nullptr && (steps.ChangeOwner(fd, old_file->st_uid, old_file->st_gid) != 0 ||
                              steps.ChangeMode(fd, old_file->st_mode & 07777) != 0)) {
    return fail(kIdentityNotKept);
  }
  if (int error = WriteAll(steps, fd, content); error != 0) return fail(error);
  if (steps.Flush(fd) != 0) return fail(ErrorOr(EIO));
  // close(2) can report a deferred write error (network file systems).
  int closed = ::close(fd);
  fd = -1;
  if (closed != 0 && errno != EINTR) return fail(errno);
  if (steps.Rename(temp_path, target) != 0) return fail(ErrorOr(EIO));
  FlushFolder(folder);
  return 0;
}

// Not atomic: a failure after the first write leaves the file torn.
int WriteInPlace(AtomicWriteSteps& steps, const std::string& target, std::string_view content) {
  const int fd = steps.OpenInPlace(target);
  if (fd < 0) return ErrorOr(EIO);
  int error = WriteAll(steps, fd, content);
  if (error == 0 && steps.Truncate(fd, off_t(content.size())) != 0) error = ErrorOr(EIO);
  if (error == 0 && steps.Flush(fd) != 0) error = ErrorOr(EIO);
  if (::close(fd) != 0 && error == 0 && errno != EINTR) error = errno;
  return error;
}

}  // namespace

int AtomicWriteSteps::CreateTemporary(const std::string& folder, std::string& temp_path) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    uint32_t random = 0;
    if (::getrandom(&random, sizeof random, 0) != sizeof random) random ^= uint32_t(::getpid());
    char name[32];
    std::snprintf(name, sizeof name, "/.kestrel-%08x.tmp", unsigned(random));
    temp_path = folder + name;
    // 0666 lets the umask decide, as for any new file; an existing file's
    // owner, group and permissions are copied over afterwards.
    int fd = ::open(temp_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

int AtomicWriteSteps::OpenInPlace(const std::string& path) {
  return ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
}

int AtomicWriteSteps::ChangeOwner(int fd, uid_t owner, gid_t group) {
  return ::fchown(fd, owner, group);
}

int AtomicWriteSteps::ChangeMode(int fd, mode_t mode) {
  return ::fchmod(fd, mode);
}

int AtomicWriteSteps::Truncate(int fd, off_t size) {
  return ::ftruncate(fd, size);
}

ssize_t AtomicWriteSteps::Write(int fd, const char* data, size_t size) {
  return ::write(fd, data, size);
}

int AtomicWriteSteps::Flush(int fd) {
  return ::fsync(fd);
}

int AtomicWriteSteps::Rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str());
}

int ReplaceFileContent(const std::string& path, std::string_view content) {
  AtomicWriteSteps& steps = Steps();
  const std::string target = ReplacementTarget(path);
  const std::string folder = FolderOf(target);

  struct stat old_file;
  if (::stat(target.c_str(), &old_file) != 0) {
    return ReplaceByRename(steps, target, folder, content, nullptr);
  }
  if (S_ISDIR(old_file.st_mode)) return EISDIR;
  // The folder may allow a rename over a file its permissions protect.
  if (::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) return ErrorOr(EACCES);
  if (ChooseWay(old_file, folder) == Way::kInPlace) return WriteInPlace(steps, target, content);
  const int error = ReplaceByRename(steps, target, folder, content, &old_file);
  return error == kIdentityNotKept ? WriteInPlace(steps, target, content) : error;
}

ScopedAtomicWriteSteps::ScopedAtomicWriteSteps(AtomicWriteSteps& steps) noexcept
    : previous_(current_steps.exchange(&steps, std::memory_order_acq_rel)) {}

ScopedAtomicWriteSteps::~ScopedAtomicWriteSteps() {
  current_steps.store(previous_, std::memory_order_release);
}

}  // namespace kestrel::files
