// Text files as the library's sinks and readers use them: create-or-truncate
// or open-or-create for appending, ANSI (Windows-1252) or UTF-16 LE with a
// byte-order mark, lines ended by carriage return + line feed, and reading a
// whole file back as text.
//
// TextFileWriter is crash-safe by construction: every WriteLine is one
// write(2) of the whole encoded line on a descriptor opened with O_APPEND,
// and no user-space buffer holds any part of it afterwards. A line that
// WriteLine has returned from is in the kernel's hands, so a process killed
// at any moment loses no completed line (and never leaves half of one from
// an earlier call).
//
// Failures raise the runtime's file errors through one errno mapping
// (ENOENT 53 or 76, EACCES 70, EISDIR 75, ENOSPC 61, EIO 57, ...); see
// file_error.hpp. Not thread-safe per object.
//
//   auto log = kestrel::files::TextFileWriter::Open("/tmp/x.log",
//       kestrel::files::OpenMode::kTruncate, kestrel::files::TextEncoding::kAnsi);
//   log.WriteLine(u"first line");
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/files/file_error.hpp"
#include "kestrel/frame/export.hpp"

namespace kestrel::files {

enum class TextEncoding { kAnsi, kUtf16 };
enum class OpenMode { kTruncate, kAppend };

class KESTREL_API TextFileWriter {
 public:
  // Creates the file (or truncates it) / opens it for appending, creating it
  // when missing. A new or emptied UTF-16 file starts with the byte-order
  // mark FF FE; appending to an existing UTF-16 file writes no second mark.
  // Appending to a file whose last line has no line end (a writer killed
  // mid-line: the kernel may cut a write short when SIGKILL arrives) first
  // ends that line, so every line written here starts a line of its own.
  static TextFileWriter Open(const std::string& path, OpenMode mode, TextEncoding encoding);

  TextFileWriter() = default;
  TextFileWriter(TextFileWriter&& other) noexcept;
  TextFileWriter& operator=(TextFileWriter&& other) noexcept;
  TextFileWriter(const TextFileWriter&) = delete;
  TextFileWriter& operator=(const TextFileWriter&) = delete;
  ~TextFileWriter();  // closes; a failing close is ignored on purpose

  bool IsOpen() const noexcept { return fd_ >= 0; }
  const std::string& path() const noexcept { return path_; }
  TextEncoding encoding() const noexcept { return encoding_; }

  // Writes `line` and CR LF in one system call. ANSI: characters outside
  // Windows-1252 become "?".
  void WriteLine(std::u16string_view line);
  void Close() noexcept;

 private:
  int fd_ = -1;
  std::string path_;
  TextEncoding encoding_ = TextEncoding::kAnsi;
};

// The whole file as text in the given encoding (a UTF-16 byte-order mark is
// skipped). An empty file gives "".
KESTREL_API std::u16string ReadAllText(const std::string& path, TextEncoding encoding);

// The absolute form of a path (no symlink resolution), as file objects
// report it.
KESTREL_API std::string AbsolutePath(const std::string& path);

}  // namespace kestrel::files
