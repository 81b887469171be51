// Log sinks: objects that take finished text lines and give back everything
// they have accumulated. The tracer writes only through ILog and never
// formats for a particular sink.
//
// ILog is the interface (Log, LogLine, Clear) and also a creatable class
// whose own members do nothing. A client's sink derives from it in C++, or
// is any object answering LogLine, Log and Clear by name. Two sinks ship:
//   - LogString keeps the lines in memory, each ended by a line feed;
//   - LogFile writes them to a text file (ANSI or UTF-16), each ended by
//     CR LF. Every LogLine reaches the kernel before it returns, so a
//     process killed at any moment keeps every line logged so far.
// Sinks are shared by whoever holds them (Ref); none is thread-safe.
//
//   auto log = kestrel::MakeRef<kestrel::diagnostics::LogFile>();
//   log->OpenFile(u"/tmp/run.log");          // truncates; Append keeps
//   log->LogLine(u"started");                // "started\r\n" is in the file
//
// Registered as Kestrel.ILog, Kestrel.LogString and Kestrel.LogFile (all
// creatable); dispatchable with the published member names.
#pragma once

#include <string>
#include <string_view>

#include "kestrel/files/file.hpp"
#include "kestrel/files/text_file.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::diagnostics {

class KESTREL_API ILog : public Dispatchable<ILog> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.ILog";

  // The whole log accumulated so far. ILog's own: "".
  virtual std::u16string Log();
  // Appends one line; true when it was logged. ILog's own: false.
  virtual bool LogLine(std::u16string_view line);
  // Discards the accumulated log. ILog's own: nothing.
  virtual void Clear();

  static const DispatchTable<ILog>& Dispatch();
};

// The log in memory: every line followed by a line feed (no carriage
// return).
class KESTREL_API LogString : public ILog {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.LogString";

  std::u16string Log() override { return buffer_; }
  bool LogLine(std::u16string_view line) override;  // always true
  void Clear() override { buffer_.clear(); }

  static const DispatchTable<LogString>& Dispatch();
  std::u16string_view TypeName() const noexcept override;
  Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) override;

 private:
  std::u16string buffer_;
};

// The log in a text file. OpenFile must come first: until then LogLine,
// Log and Clear raise 91. File errors (missing folder, denied, ...) pass to
// the caller as the runtime's file errors; a failed OpenFile keeps the file
// that was open before.
class KESTREL_API LogFile : public ILog {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.LogFile";

  // Encoding of later OpenFile, Log and Clear calls: true UTF-16 (with a
  // byte-order mark at the start of the file), false ANSI. A file already
  // open keeps the encoding it was opened with.
  bool Unicode() const noexcept { return unicode_; }
  void SetUnicode(bool unicode) noexcept { unicode_ = unicode; }

  // The file taken at the last OpenFile; null before.
  const Ref<files::File>& File() const noexcept { return file_; }

  // Creates or truncates `path` (appending keeps its lines; a missing file
  // is created either way) and makes it the log. Returns Empty.
  Value OpenFile(std::u16string_view path, bool append = false);

  // The file's whole content, read afresh in the current encoding.
  std::u16string Log() override;
  // Writes `line` and CR LF with one system call; true.
  bool LogLine(std::u16string_view line) override;
  // Re-creates the file empty at the same path, open for further lines.
  void Clear() override;

  static const DispatchTable<LogFile>& Dispatch();
  std::u16string_view TypeName() const noexcept override;
  Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) override;

 private:
  // OpenFile on a file-system path (the absolute one, when Clear re-creates).
  void OpenNative(const std::string& native, bool append);
  files::TextEncoding Encoding() const noexcept {
    return unicode_ ? files::TextEncoding::kUtf16 : files::TextEncoding::kAnsi;
  }

  bool unicode_ = false;
  files::TextFileWriter writer_;
  Ref<files::File> file_;
};

}  // namespace kestrel::diagnostics
