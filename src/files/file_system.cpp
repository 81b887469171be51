#include "kestrel/files/file_system.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "kestrel/files/file_error.hpp"
#include "kestrel/files/paths.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel::files {
namespace {

// Size in characters of the buffers the path conversions hand their result
// through: a result needs one more place for its terminator.
constexpr size_t kPathBuffer = 260;

// Runs one step of a trapped member: whatever the step raises is dropped and
// the member goes on with its next step.
template <class Step>
void Resume(Step&& step) noexcept {
  try {
    step();
  } catch (const std::exception&) {
    // Trapped on purpose: the member's result does not depend on the step.
  }
}

// The UTF-8 name the file system takes, or nullopt for a name that cannot
// reach it: a NUL would silently cut the name short.
std::optional<std::string> TryNative(std::u16string_view path) {
  if (path.find(u'\0') != std::u16string_view::npos) return std::nullopt;
  return ToUtf8(path);
}

std::string Native(std::u16string_view path) {
  std::optional<std::string> native = TryNative(path);
  if (!native) RaiseStandard(errors::kBadFileNameOrNumber);
  return std::move(*native);
}

// stat(2) of a path, following symbolic links; false when it fails.
bool StatPath(std::u16string_view path, struct stat& st) {
  std::optional<std::string> native = TryNative(path);
  return native && ::stat(native->c_str(), &st) == 0;
}

int OpenRetry(const std::string& path, int flags, mode_t mode = 0) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Owns a descriptor. Readers let it close silently; writers call Close()
// so that a failing close (a delayed write error) is reported.
class Descriptor {
 public:
  explicit Descriptor(int fd) noexcept : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);  // a failure here loses nothing we promised
  }
  int get() const noexcept { return fd_; }
  void Close() {
    // Never retried: on Linux the descriptor is gone even after EINTR.
    if (::close(std::exchange(fd_, -1)) != 0 && errno != EINTR) RaiseFileError(errno);
  }

 private:
  int fd_;
};

struct stat StatOpen(const Descriptor& file) {
  struct stat st;
  if (::fstat(file.get(), &st) != 0) RaiseFileError(errno);
  // Opening a folder for reading succeeds; reading it is the access error.
  if (S_ISDIR(st.st_mode)) RaiseFileError(EISDIR);
  return st;
}

// Reads until `buffer` is full or the file ends; returns the bytes read.
size_t ReadUpTo(const Descriptor& file, std::span<uint8_t> buffer) {
  size_t done = 0;
  while (done < buffer.size()) {
    ssize_t n = ::read(file.get(), buffer.data() + done, buffer.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      RaiseFileError(errno);
    }
    if (n == 0) break;
    done += size_t(n);
  }
  return done;
}

void WriteAll(const Descriptor& file, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(file.get(), bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      RaiseFileError(errno);
    }
    bytes = bytes.subspan(size_t(n));
  }
}

// Asks for huge pages behind a large buffer that is about to be filled:
// filling fresh memory costs a page fault per page, and with 2 MiB pages a
// 128 MiB text takes 64 faults instead of 32768. Only the 2 MiB-aligned
// inside of the buffer can use them; the request is advice, and a kernel
// that declines it changes nothing but the speed.
void PreferHugePages(void* data, size_t size) noexcept {
  constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
  uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + kHugePage - 1) & ~(kHugePage - 1);
  uintptr_t end = (reinterpret_cast<uintptr_t>(data) + size) & ~(kHugePage - 1);
  if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

void WriteText(std::u16string_view file_name, std::u16string_view text, int mode_flag) {
  const std::string path = Native(file_name);
  Descriptor file(OpenRetry(path, O_WRONLY | O_CREAT | mode_flag, 0666));
  if (file.get() < 0) RaiseFileError(errno, path);
  const std::string bytes = runtime::ToAnsi(text);
  WriteAll(file, std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  file.Close();
}

bool IsFolder(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// --- forced removal -------------------------------------------------------------

// The names in an open folder, "." and ".." left out.
std::vector<std::string> ListFolder(int folder, int& error) {
  std::vector<std::string> names;
  int fd = ::dup(folder);
  DIR* dir = fd < 0 ? nullptr : ::fdopendir(fd);
  if (dir == nullptr) {
    if (error == 0) error = errno;
    if (fd >= 0) ::close(fd);
    return names;
  }
  // Listed before anything is removed: removing entries while reading the
  // folder may make the listing skip some.
  while (const dirent* entry = ::readdir(dir)) {
    std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(dir);
  return names;
}

// A folder whose entries are to go needs read and search permission to
// list and reach them, and write permission to remove them: the owner's
// permissions are widened to all three.
void MakeRemovable(int parent, const char* name, mode_t mode, int& error) {
  if ((mode & S_IRWXU) == S_IRWXU) return;
  if (::fchmodat(parent, name, (mode & 07777) | S_IRWXU, 0) != 0 && error == 0) error = errno;
}

// Removes everything inside the open folder `folder`, folders depth first.
// Goes on past entries it cannot remove; `error` keeps the first failure.
void RemoveContent(int folder, int& error) {
  auto note = [&error](int e) {
    if (error == 0) error = e;
  };
  for (const std::string& name : ListFolder(folder, error)) {
    struct stat st;
    if (::fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      note(errno);
      continue;
    }
    if (!S_ISDIR(st.st_mode)) {
      // Files, links and the rest: the entry goes, a link's target stays.
      if (::unlinkat(folder, name.c_str(), 0) != 0) note(errno);
      continue;
    }
    MakeRemovable(folder, name.c_str(), st.st_mode, error);
    int sub = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (sub < 0) {
      note(errno);
      continue;
    }
    RemoveContent(sub, error);
    ::close(sub);
    if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0) note(errno);
  }
}

// Removes a folder and everything in it, as far as possible; raises the
// first failure after trying everything else.
void RemoveFolderTree(const std::string& native) {
  // "/a/b/" is the folder b itself, not what a link named b points to.
  std::string path = native.substr(0, native.find_last_not_of('/') + 1);
  // The root cannot be removed; do not empty it on the way to failing.
  if (path.empty()) RaiseFileError(EBUSY);
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) RaiseFileError(errno, path);
  if (!S_ISDIR(st.st_mode)) {
    // A link to a folder: the link goes, the folder it names stays.
    if (::unlink(path.c_str()) != 0) RaiseFileError(errno, path);
    return;
  }
  int error = 0;
  MakeRemovable(AT_FDCWD, path.c_str(), st.st_mode, error);
  int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder >= 0) {
    RemoveContent(folder, error);
    ::close(folder);
  } else if (error == 0) {
    error = errno;
  }
  if (::rmdir(path.c_str()) != 0 && error == 0) error = errno;
  if (error != 0) RaiseFileError(error, path);
}

void RemoveFile(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) RaiseFileError(errno, path);
  // DeleteFile removes files only; a folder by that name is no such file.
  if (S_ISDIR(st.st_mode)) RaiseStandard(errors::kFileNotFound);
  if (::unlink(path.c_str()) != 0) RaiseFileError(errno, path);
}

// --- copy and move -------------------------------------------------------------

// A destination ending in "/" names the folder that receives the source
// under its own name.
std::u16string Target(std::u16string_view source, std::u16string_view destination) {
  if (!destination.ends_with(u'/')) return std::u16string(destination);
  return BuildPath(destination, LastComponent(source));
}

// 0, or the errno value of the failure.
int CopyContent(const std::string& from, const std::string& to, bool overwrite) {
  std::error_code ec;
  std::filesystem::copy_file(from, to,
                             overwrite ? std::filesystem::copy_options::overwrite_existing
                                       : std::filesystem::copy_options::none,
                             ec);
  return ec ? ec.value() : 0;
}

// Moving by a new link and removing the old name never replaces the
// destination (link fails with EEXIST); for file systems whose rename
// refuses the no-replace flag. Folders cannot be linked, so for them the
// destination is checked first and renamed onto: a small window in which a
// new destination could be replaced, accepted for that rare case.
int MoveByLink(const std::string& from, const std::string& to) {
  if (::link(from.c_str(), to.c_str()) == 0) {
    if (::unlink(from.c_str()) == 0) return 0;
    int error = errno;
    ::unlink(to.c_str());  // leave things as they were
    return error;
  }
  if (errno != EPERM) return errno;
  struct stat st;
  if (::lstat(to.c_str(), &st) == 0) return EEXIST;
  return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

// Across file systems a file is copied, then its old name removed; when the
// old name cannot be removed the copy is removed again, so that the move
// either happens or leaves both sides as they were. Only regular files move
// this way.
int MoveByCopy(const std::string& from, const std::string& to) {
  struct stat st;
  if (::lstat(from.c_str(), &st) != 0) return errno;
  if (!S_ISREG(st.st_mode)) return EXDEV;
  if (int error = CopyContent(from, to, false); error != 0) return error;
  if (::unlink(from.c_str()) == 0) return 0;
  int error = errno;
  ::unlink(to.c_str());
  return error;
}

void MoveEntry(const std::string& from, const std::string& to) {
  int error = 0;
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
    error = errno;
    if (error == EINVAL || error == ENOSYS) error = MoveByLink(from, to);
    if (error == EXDEV) error = MoveByCopy(from, to);
  }
  if (error != 0) RaiseFileError(error, from);
}

// --- path forms --------------------------------------------------------------------

// What a buffer of kPathBuffer characters gives back once cleaned: the
// result, or "" when it does not fit with its terminator (the buffer is
// then left blank, and cleaning blanks gives "").
std::u16string ThroughPathBuffer(std::u16string path) {
  if (path.size() >= kPathBuffer) return {};
  return utilities::CleanupString(path);
}

// ShortPath and LongPath: Linux names have one form only, so an existing
// path is its own short and long form. A form too long for the buffer
// leaves it untouched and the untouched buffer (260 spaces) is the result.
std::u16string ExistingPathForm(std::u16string_view path) {
  struct stat st;
  if (path.empty() || !StatPath(path, st)) return {};
  if (path.size() >= kPathBuffer) return std::u16string(kPathBuffer, u' ');
  return std::u16string(path);
}

uint32_t RandomNumber() {
  uint32_t value;
  if (::getrandom(&value, sizeof value, 0) == ssize_t(sizeof value)) return value;
  return std::random_device()();
}

}  // namespace

KESTREL_REGISTER_CLASS(FileSystem, FileSystem::kQualifiedName, Instancing::kGlobal);

// --- folders ---------------------------------------------------------------

bool FileSystem::CreateFolder(std::u16string_view folder_name) {
  const std::u16string parent = files::ParentFolderName(folder_name);
  if (!FolderExists(parent)) {
    // Parents first. The empty name never exists, so a chain of missing
    // parents that ends there has no end: report the stack running out
    // rather than running it out.
    if (parent.empty()) RaiseStandard(errors::kOutOfStackSpace);
    CreateFolder(parent);
  }
  if (!FolderExists(folder_name)) {
    const std::string path = Native(folder_name);
    if (::mkdir(path.c_str(), 0777) != 0) RaiseFileError(errno, path);
  }
  return true;
}

bool FileSystem::DeleteFolder(std::u16string_view folder_name) {
  bool exists = false;
  Resume([&] { exists = FolderExists(folder_name); });
  if (exists) Resume([&] { RemoveFolderTree(Native(folder_name)); });
  return true;
}

bool FileSystem::FolderExists(std::u16string_view folder_name) {
  struct stat st;
  return StatPath(folder_name, st) && S_ISDIR(st.st_mode);
}

// --- text files ----------------------------------------------------------------

std::u16string FileSystem::ReadFile(std::u16string_view file_name) {
  const std::string path = Native(file_name);
  Descriptor file(OpenRetry(path, O_RDONLY));
  if (file.get() < 0) RaiseFileError(errno, path);
  const struct stat st = StatOpen(file);

  // The size is a hint: the text grows chunk by chunk, each decoded while
  // its bytes are still in cache, and a file that grows or shrinks while
  // being read is read to its actual end.
  constexpr size_t kChunk = size_t{128} << 10;
  std::u16string text;
  text.reserve(size_t(st.st_size));
  PreferHugePages(text.data(), text.capacity() * sizeof(char16_t));
  auto buffer = std::make_unique_for_overwrite<uint8_t[]>(kChunk);
  for (;;) {
    size_t n = ReadUpTo(file, std::span(buffer.get(), kChunk));
    if (n == 0) break;
    size_t old = text.size();
    text.resize(old + n);
    runtime::DecodeAnsi(std::string_view(reinterpret_cast<const char*>(buffer.get()), n),
                        text.data() + old);
    if (n < kChunk) break;
  }
  // Reading all of nothing is reading past the end.
  if (text.empty()) RaiseStandard(errors::kInputPastEndOfFile);
  return text;
}

void FileSystem::WriteFile(std::u16string_view file_name, std::u16string_view text) {
  WriteText(file_name, text, O_TRUNC);
}

void FileSystem::AppendFile(std::u16string_view file_name, std::u16string_view text) {
  WriteText(file_name, text, O_APPEND);
}

// --- files -----------------------------------------------------------------

bool FileSystem::FileExists(std::u16string_view file_name) {
  struct stat st;
  return StatPath(file_name, st) && !S_ISDIR(st.st_mode);
}

bool FileSystem::DeleteFile(std::u16string_view file_name) {
  Resume([&] { RemoveFile(Native(file_name)); });
  return true;
}

bool FileSystem::CopyFile(std::u16string_view source, std::u16string_view destination,
                          bool overwrite) {
  Resume([&] {
    const std::string from = Native(source);
    const std::string to = Native(Target(source, destination));
    if (int error = CopyContent(from, to, overwrite); error != 0) RaiseFileError(error, to);
  });
  return true;
}

bool FileSystem::MoveFile(std::u16string_view source, std::u16string_view destination,
                          bool overwrite) {
  if (overwrite) {
    bool present = false;
    Resume([&] { present = FileExists(destination); });
    if (present) Resume([&] { DeleteFile(destination); });
  }
  Resume([&] { MoveEntry(Native(source), Native(Target(source, destination))); });
  return true;
}

// --- path pieces -------------------------------------------------------------

std::u16string FileSystem::FileName(std::u16string_view path) {
  std::u16string name;
  Resume([&] { name = LastComponent(path); });
  return name;
}

std::u16string FileSystem::ParentFolderName(std::u16string_view path) {
  std::u16string parent;
  Resume([&] { parent = files::ParentFolderName(path); });
  return parent;
}

std::u16string FileSystem::BaseName(std::u16string_view path) {
  return files::BaseName(path);
}

std::u16string FileSystem::ExtensionName(std::u16string_view path) {
  return files::ExtensionName(path);
}

bool FileSystem::IsPathRelative(std::u16string_view path) {
  return files::IsPathRelative(path);
}

// --- path conversions --------------------------------------------------------

std::u16string FileSystem::AbsoluteFileName(std::u16string_view relative_path,
                                            std::u16string_view relative_to_folder) {
  if (relative_path.empty()) return {};
  return ThroughPathBuffer(CanonicalizePath(BuildPath(relative_to_folder, relative_path)));
}

std::u16string FileSystem::RelativeFileName(std::u16string_view file_name,
                                            std::u16string_view relative_to_folder) {
  return ThroughPathBuffer(RelativePathTo(relative_to_folder, file_name));
}

std::u16string FileSystem::ShortPath(std::u16string_view path) {
  return ExistingPathForm(path);
}

std::u16string FileSystem::LongPath(std::u16string_view path) {
  return ExistingPathForm(path);
}

// --- temporary names ---------------------------------------------------------

std::u16string FileSystem::GetTempFileName(std::u16string_view extension) {
  char name[12];
  std::snprintf(name, sizeof name, "kst%08x", unsigned(RandomNumber()));
  std::u16string path = BuildPath(GetTempFolderName(), FromUtf8(name));
  return path.append(extension);
}

std::u16string FileSystem::GetTempFolderName() {
  const char* variable = std::getenv("TMPDIR");
  std::string folder = variable != nullptr && *variable != '\0' && IsFolder(variable)
                           ? std::string(variable)
                           : std::string("/tmp");
  size_t end = folder.find_last_not_of('/');
  folder.resize(end == std::string::npos ? 1 : end + 1);  // the root keeps its "/"
  return FromUtf8(folder);
}

// --- binary files --------------------------------------------------------------

Value FileSystem::ReadBinaryFile(const Value& file_name) {
  const std::string path = Native(runtime::ToText(file_name));
  Descriptor file(OpenRetry(path, O_RDONLY));
  if (file.get() < 0) RaiseFileError(errno, path);
  const struct stat st = StatOpen(file);
  // Bounds 1 to 0 cannot be made; a length beyond a Long cannot be indexed.
  if (st.st_size == 0) RaiseStandard(errors::kSubscriptOutOfRange);
  if (st.st_size > std::numeric_limits<int32_t>::max()) RaiseStandard(errors::kOutOfMemory);
  Value bytes = Value::NewArray(Kind::kByte, {Bounds{1, int32_t(st.st_size)}});
  // Straight into the array. A file that shrank meanwhile leaves zeros at
  // the end, as reading past the end of a binary file does.
  ReadUpTo(file, bytes.MutableBytes());
  return bytes;
}

void FileSystem::WriteBinaryFile(const Value& file_name, const Value& bytes) {
  if (!bytes.IsArray() || bytes.kind() != Kind::kByte) RaiseStandard(errors::kTypeMismatch);
  const std::string path = Native(runtime::ToText(file_name));
  // Writing alone would not shorten a longer old file, whose tail would
  // survive: an existing file goes first.
  struct stat st;
  if (!path.empty() && ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) {
    if (::unlink(path.c_str()) != 0) RaiseFileError(errno, path);
  }
  Descriptor file(OpenRetry(path, O_WRONLY | O_CREAT | O_TRUNC, 0666));
  if (file.get() < 0) RaiseFileError(errno, path);
  WriteAll(file, bytes.Bytes());
  file.Close();
}

// --- late binding ----------------------------------------------------------------

namespace {

using FS = FileSystem;

bool OverwriteArg(Args& a, size_t i) {
  return a.Has(i) ? a.Boolean(i) : true;
}

}  // namespace

const DispatchTable<FileSystem>& FileSystem::Dispatch() {
  static const auto table =
      DispatchTable<FS>::Builder(u"FileSystem")
          .Method(u"CreateFolder", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.CreateFolder(a.Text(0))); })
          .Method(u"DeleteFolder", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.DeleteFolder(a.Text(0))); })
          .Method(u"ReadFile", 1, 1, [](FS& fs, Args& a) { return Value(fs.ReadFile(a.Text(0))); })
          .Method(u"WriteFile", 2, 2,
                  [](FS& fs, Args& a) {
                    fs.WriteFile(a.Text(0), a.Text(1));
                    return Value();
                  })
          .Method(u"AppendFile", 2, 2,
                  [](FS& fs, Args& a) {
                    fs.AppendFile(a.Text(0), a.Text(1));
                    return Value();
                  })
          .Method(u"FileExists", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.FileExists(a.Text(0))); })
          .Method(u"DeleteFile", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.DeleteFile(a.Text(0))); })
          .Method(u"CopyFile", 2, 3,
                  [](FS& fs, Args& a) {
                    return Value(fs.CopyFile(a.Text(0), a.Text(1), OverwriteArg(a, 2)));
                  })
          .Method(u"MoveFile", 2, 3,
                  [](FS& fs, Args& a) {
                    return Value(fs.MoveFile(a.Text(0), a.Text(1), OverwriteArg(a, 2)));
                  })
          .Method(u"FileName", 1, 1, [](FS& fs, Args& a) { return Value(fs.FileName(a.Text(0))); })
          .Method(u"ParentFolderName", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.ParentFolderName(a.Text(0))); })
          .Method(u"FolderExists", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.FolderExists(a.Text(0))); })
          .Method(u"BaseName", 1, 1, [](FS& fs, Args& a) { return Value(fs.BaseName(a.Text(0))); })
          .Method(u"ExtensionName", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.ExtensionName(a.Text(0))); })
          .Method(u"IsPathRelative", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.IsPathRelative(a.Text(0))); })
          .Method(u"AbsoluteFileName", 2, 2,
                  [](FS& fs, Args& a) { return Value(fs.AbsoluteFileName(a.Text(0), a.Text(1))); })
          .Method(u"RelativeFileName", 2, 2,
                  [](FS& fs, Args& a) { return Value(fs.RelativeFileName(a.Text(0), a.Text(1))); })
          .Method(u"GetTempFileName", 0, 1,
                  [](FS& fs, Args& a) {
                    return Value(a.Has(0) ? fs.GetTempFileName(a.Text(0)) : fs.GetTempFileName());
                  })
          .Method(u"GetTempFolderName", 0, 0,
                  [](FS& fs, Args&) { return Value(fs.GetTempFolderName()); })
          .Method(u"ShortPath", 1, 1,
                  [](FS& fs, Args& a) { return Value(fs.ShortPath(a.Text(0))); })
          .Method(u"LongPath", 1, 1, [](FS& fs, Args& a) { return Value(fs.LongPath(a.Text(0))); })
          .Method(u"ReadBinaryFile", 1, 1, [](FS& fs, Args& a) { return fs.ReadBinaryFile(a[0]); })
          .Method(u"WriteBinaryFile", 2, 2,
                  [](FS& fs, Args& a) {
                    fs.WriteBinaryFile(a[0], a[1]);
                    return Value();
                  })
          .Build();
  return table;
}

}  // namespace kestrel::files
