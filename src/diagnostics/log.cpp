#include "kestrel/diagnostics/log.hpp"

#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::diagnostics {

KESTREL_REGISTER_CLASS(ILog, ILog::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(LogString, LogString::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(LogFile, LogFile::kQualifiedName, Instancing::kCreatable);

namespace {

// The three interface members, the same in every sink's table: each calls
// the virtual, so a sink's own members and its ILog side cannot drift.
template <class T>
typename DispatchTable<T>::Builder InterfaceMembers(std::u16string_view class_name) {
  typename DispatchTable<T>::Builder builder(class_name);
  builder.Get(u"Log", [](T& self, Args&) { return Value(self.Log()); })
      .Method(u"LogLine", 1, 1, [](T& self, Args& a) { return Value(self.LogLine(a.Text(0))); })
      .Method(u"Clear", 0, 0, [](T& self, Args&) {
        self.Clear();
        return Value();
      });
  return builder;
}

}  // namespace

// --- ILog ----------------------------------------------------------------------

std::u16string ILog::Log() {
  return {};
}
bool ILog::LogLine(std::u16string_view) {
  return false;
}
void ILog::Clear() {}

const DispatchTable<ILog>& ILog::Dispatch() {
  static const auto table = InterfaceMembers<ILog>(u"ILog").Build();
  return table;
}

// --- LogString -----------------------------------------------------------------

bool LogString::LogLine(std::u16string_view line) {
  buffer_.append(line);
  buffer_.push_back(u'\n');
  return true;
}

const DispatchTable<LogString>& LogString::Dispatch() {
  static const auto table = InterfaceMembers<LogString>(u"LogString").Build();
  return table;
}

std::u16string_view LogString::TypeName() const noexcept {
  return Dispatch().class_name();
}

Value LogString::Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) {
  return Dispatch().Invoke(*this, name, kind, args);
}

// --- LogFile -------------------------------------------------------------------

Value LogFile::OpenFile(std::u16string_view path, bool append) {
  OpenNative(ToUtf8(path), append);
  return Value();
}

void LogFile::OpenNative(const std::string& native, bool append) {
  // Open first: when that fails, the earlier file stays the log.
  files::TextFileWriter writer = files::TextFileWriter::Open(
      native, append ? files::OpenMode::kAppend : files::OpenMode::kTruncate, Encoding());
  auto file = MakeRef<files::File>(native);
  writer_ = std::move(writer);  // closes the earlier file, if any
  file_ = std::move(file);
}

std::u16string LogFile::Log() {
  if (!file_) RaiseStandard(errors::kObjectVariableNotSet);
  return files::ReadAllText(file_->native_path(), Encoding());
}

bool LogFile::LogLine(std::u16string_view line) {
  // No stream before OpenFile, nor after a Clear whose re-creation failed.
  if (!writer_.IsOpen()) RaiseStandard(errors::kObjectVariableNotSet);
  writer_.WriteLine(line);
  return true;
}

void LogFile::Clear() {
  if (!file_) RaiseStandard(errors::kObjectVariableNotSet);
  // Close before re-creating: if the re-creation fails, the sink is left
  // without a stream (LogLine raises 91) rather than writing into a file
  // that is no longer the cleared one.
  writer_.Close();
  // A copy: OpenNative replaces the file object that owns the path.
  std::string path = file_->native_path();
  OpenNative(path, false);
}

const DispatchTable<LogFile>& LogFile::Dispatch() {
  static const auto table =
      InterfaceMembers<LogFile>(u"LogFile")
          .Property(
              u"Unicode", [](LogFile& self, Args&) { return Value(self.Unicode()); },
              [](LogFile& self, Args&, const Value& v) { self.SetUnicode(runtime::ToBoolean(v)); })
          .Get(u"File",
               [](LogFile& self, Args&) { return Value(static_cast<Object*>(self.File().get())); })
          .Method(u"OpenFile", 1, 2,
                  [](LogFile& self, Args& a) {
                    bool append = a.Has(1) && a.Boolean(1);
                    return self.OpenFile(a.Text(0), append);
                  })
          .Build();
  return table;
}

std::u16string_view LogFile::TypeName() const noexcept {
  return Dispatch().class_name();
}

Value LogFile::Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) {
  return Dispatch().Invoke(*this, name, kind, args);
}

}  // namespace kestrel::diagnostics
