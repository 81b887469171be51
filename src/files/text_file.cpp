#include "kestrel/files/text_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/encoding.hpp"

namespace kestrel::files {
namespace {

constexpr char kUtf16Bom[] = {'\xFF', '\xFE'};

// Writes all of `bytes`. A regular file takes the whole buffer in one call;
// the loop is only for a short write (disk nearly full, a signal arriving
// mid-way) and EINTR, so a line is never split by us across calls otherwise.
void WriteAll(int fd, const char* bytes, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, bytes, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      RaiseFileError(errno);
    }
    bytes += n;
    size -= size_t(n);
  }
}

// A writer killed inside write(2) can leave part of its line: the kernel
// stops a write to a regular file at a page boundary once SIGKILL is
// pending. The line never completed, so nothing promised is lost, but the
// next line must not be glued to the fragment: end it first. A UTF-16 file
// cut after an odd byte is first realigned to whole code units.
void StartOnFreshLine(int fd, off_t size, TextEncoding encoding) {
  char tail[2] = {};
  const size_t want = size >= 2 ? 2 : 1;
  if (::pread(fd, tail, want, size - off_t(want)) != ssize_t(want)) return;
  if (encoding == TextEncoding::kAnsi) {
    if (tail[want - 1] != '\n') WriteAll(fd, "\r\n", 2);
    return;
  }
  if (size % 2 != 0) {
    WriteAll(fd, "\0\r\0\n\0", 5);
  } else if (tail[0] != '\n' || tail[1] != '\0') {
    WriteAll(fd, "\r\0\n\0", 4);
  }
}

void AppendUtf16Le(std::string& out, std::u16string_view text) {
  for (char16_t unit : text) {
    out.push_back(char(unit & 0xFF));
    out.push_back(char(unit >> 8));
  }
}

}  // namespace

TextFileWriter TextFileWriter::Open(const std::string& path, OpenMode mode, TextEncoding encoding) {
  int flags = O_CREAT | O_APPEND | O_CLOEXEC;
  if (mode == OpenMode::kTruncate) flags |= O_TRUNC;
  // Appending reads the file's last bytes (StartOnFreshLine); a file we may
  // write but not read is still appended to, without that check.
  int fd = -1;
  if (mode == OpenMode::kAppend) {
    do {
      fd = ::open(path.c_str(), flags | O_RDWR, 0644);
    } while (fd < 0 && errno == EINTR);
  }
  if (fd < 0 && (mode == OpenMode::kTruncate || errno == EACCES)) {
    do {
      fd = ::open(path.c_str(), flags | O_WRONLY, 0644);
    } while (fd < 0 && errno == EINTR);
  }
  if (fd < 0) RaiseFileError(errno);

  TextFileWriter writer;
  writer.fd_ = fd;  // owned from here: a failure below closes it
  writer.path_ = path;
  writer.encoding_ = encoding;
  struct stat st;
  if (::fstat(fd, &st) != 0) RaiseFileError(errno);
  if (st.st_size == 0) {
    if (encoding == TextEncoding::kUtf16) WriteAll(fd, kUtf16Bom, sizeof kUtf16Bom);
  } else if (mode == OpenMode::kAppend) {
    StartOnFreshLine(fd, st.st_size, encoding);
  }
  return writer;
}

TextFileWriter::TextFileWriter(TextFileWriter&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      path_(std::move(other.path_)),
      encoding_(other.encoding_) {}

TextFileWriter& TextFileWriter::operator=(TextFileWriter&& other) noexcept {
  if (this != &other) {
    Close();
    fd_ = std::exchange(other.fd_, -1);
    path_ = std::move(other.path_);
    encoding_ = other.encoding_;
  }
  return *this;
}

TextFileWriter::~TextFileWriter() {
  Close();
}

void TextFileWriter::WriteLine(std::u16string_view line) {
  if (fd_ < 0) RaiseStandard(errors::kBadFileNameOrNumber);
  std::string bytes;
  if (encoding_ == TextEncoding::kAnsi) {
    bytes = runtime::ToAnsi(line);
    bytes += "\r\n";
  } else {
    bytes.reserve(line.size() * 2 + 4);
    AppendUtf16Le(bytes, line);
    AppendUtf16Le(bytes, u"\r\n");
  }
  WriteAll(fd_, bytes.data(), bytes.size());
}

void TextFileWriter::Close() noexcept {
  // Every line already went to the kernel, so a failing close loses nothing
  // that WriteLine promised; it is ignored, and never retried (on Linux the
  // descriptor is gone even when close reports EINTR).
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

std::u16string ReadAllText(const std::string& path, TextEncoding encoding) {
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) RaiseFileError(errno, path);
  std::string bytes;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      int error = errno;  // EISDIR for a folder
      ::close(fd);
      RaiseFileError(error);
    }
    if (n == 0) break;
    bytes.append(buffer, size_t(n));
  }
  ::close(fd);

  if (encoding == TextEncoding::kAnsi) return runtime::FromAnsi(bytes);
  size_t start = bytes.size() >= 2 && bytes[0] == kUtf16Bom[0] && bytes[1] == kUtf16Bom[1] ? 2 : 0;
  std::u16string text;
  text.reserve((bytes.size() - start) / 2);
  // An odd trailing byte is half a code unit, not a character: dropped.
  for (size_t i = start; i + 1 < bytes.size(); i += 2)
    text.push_back(char16_t(uint8_t(bytes[i]) | (uint8_t(bytes[i + 1]) << 8)));
  return text;
}

std::string AbsolutePath(const std::string& path) {
  std::error_code ec;
  std::filesystem::path p =
      path.empty() ? std::filesystem::current_path(ec) : std::filesystem::absolute(path, ec);
  if (ec) RaiseFileError(ec.value());
  std::string text = p.lexically_normal().string();
  // "/tmp/dir/" and "/tmp/dir" are the same folder; report it without the
  // trailing separator, as the root aside.
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace kestrel::files
