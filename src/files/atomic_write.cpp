#include "kestrel/files/atomic_write.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>

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

}  // namespace

int AtomicWriteSteps::CreateTemporary(const std::string& folder, std::string& temp_path) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    uint32_t random = 0;
    if (::getrandom(&random, sizeof random, 0) != sizeof random) random ^= uint32_t(::getpid());
    char name[32];
    std::snprintf(name, sizeof name, "/.kestrel-%08x.tmp", unsigned(random));
    temp_path = folder + name;
    // 0666 lets the umask decide, as for any new file; an existing file's
    // permissions are copied over afterwards.
    int fd = ::open(temp_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
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
  const bool existed = ::stat(target.c_str(), &old_file) == 0;
  if (existed && S_ISDIR(old_file.st_mode)) return EISDIR;

  std::string temp_path;
  int fd = steps.CreateTemporary(folder, temp_path);
  if (fd < 0) return errno != 0 ? errno : EIO;

  // From here every failure removes the temporary file; the original has
  // not been touched until the rename, which either happens whole or not.
  auto fail = [&](int error) {
    if (fd >= 0) ::close(fd);
    ::unlink(temp_path.c_str());
    return error != 0 ? error : EIO;
  };

  const char* data = content.data();
  size_t left = content.size();
  while (left > 0) {
    ssize_t n = steps.Write(fd, data, left);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail(errno);
    if (n == 0) return fail(ENOSPC);  // no progress and no error: the disk is full
    data += n;
    left -= size_t(n);
  }
  if (existed) ::fchmod(fd, old_file.st_mode & 07777);
  if (steps.Flush(fd) != 0) return fail(errno);
  // close(2) can report a deferred write error (network file systems).
  int closed = ::close(fd);
  fd = -1;
  if (closed != 0 && errno != EINTR) return fail(errno);
  if (steps.Rename(temp_path, target) != 0) return fail(errno);
  FlushFolder(folder);
  return 0;
}

ScopedAtomicWriteSteps::ScopedAtomicWriteSteps(AtomicWriteSteps& steps) noexcept
    : previous_(current_steps.exchange(&steps, std::memory_order_acq_rel)) {}

ScopedAtomicWriteSteps::~ScopedAtomicWriteSteps() {
  current_steps.store(previous_, std::memory_order_release);
}

}  // namespace kestrel::files
