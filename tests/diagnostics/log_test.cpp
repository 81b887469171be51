#include "kestrel/diagnostics/log.hpp"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::FileBytes;
using testing::TempFolder;

Value Call(const Ref<Object>& o, std::u16string_view name, CallKind kind,
           std::initializer_list<Value> args = {}) {
  return CallByName(o, name, kind, args);
}

TEST(LogSinks, InterfaceMembersByName) {
  // ILog's own members do nothing; LogString keeps LF-ended lines.
  for (const auto& [cls, logged, after] : {std::tuple(u"Kestrel.ILog", false, u""),
                                           std::tuple(u"Kestrel.LogString", true, u"a\n\nb\n")}) {
    SCOPED_TRACE(logged);
    Ref<Object> log = CreateObject(cls);
    EXPECT_EQ(u"Kestrel." + std::u16string(log->TypeName()), cls);
    for (const char16_t* line : {u"a", u"", u"b"}) {
      Value r = Call(log, u"LogLine", CallKind::kMethod, {Value(line)});
      EXPECT_EQ(r.code(), uint16_t(Kind::kBoolean));
      EXPECT_EQ(r.boolean(), logged);
    }
    EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), after);
    EXPECT_TRUE(Call(log, u"Clear", CallKind::kMethod).IsEmpty());
    EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), u"");
  }
}

// A fresh file reads as "", not an error; Clear leaves an empty file (with
// its byte order mark when Unicode) still in use.
TEST(LogFile, AnsiAndUnicodeBytesClearAndReadBack) {
  TempFolder folder;
  std::string path = folder.File("u.log");
  struct Case {
    bool unicode;
    std::u16string text;
    std::string bytes, cleared, z;
  };
  const Case cases[] = {
      {false, u"\u00E9", "\xE9\r\n", "", "z\r\n"},
      {true, u"\u00E9\u4E2D", std::string("\xFF\xFE\xE9\x00\x2D\x4E\x0D\x00\x0A\x00", 10),
       "\xFF\xFE", std::string("z\0\r\0\n\0", 6)}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.unicode);
    LogFile log;
    log.SetUnicode(c.unicode);
    log.OpenFile(FromUtf8(path));
    EXPECT_EQ(log.Log(), u"");
    EXPECT_TRUE(log.LogLine(c.text));
    EXPECT_EQ(FileBytes(path), c.bytes);
    EXPECT_EQ(log.Log(), c.text + u"\r\n");
    log.Clear();
    EXPECT_EQ(log.Log(), u"");
    EXPECT_EQ(FileBytes(path), c.cleared);
    log.SetUnicode(!c.unicode);  // changes later reads, not the stream already open
    log.LogLine(u"z");
    EXPECT_EQ(FileBytes(path), c.cleared + c.z);
  }
}

TEST(LogFile, WithoutAFileRaises91AndAFailedOpenKeepsTheEarlierFile) {
  TempFolder folder;
  std::string path = folder.File("keep.log");
  LogFile log;
  EXPECT_RAISES(log.LogLine(u"x"), errors::kObjectVariableNotSet);
  EXPECT_RAISES(log.Log(), errors::kObjectVariableNotSet);
  EXPECT_RAISES(log.Clear(), errors::kObjectVariableNotSet);
  log.OpenFile(FromUtf8(path));
  log.LogLine(u"old");
  EXPECT_RAISES(log.OpenFile(FromUtf8(folder.File("missing/x.log"))), errors::kPathNotFound);
  log.LogLine(u"still here");
  EXPECT_EQ(FileBytes(path), "old\r\nstill here\r\n");
  log.OpenFile(FromUtf8(path));  // truncates
  log.LogLine(u"new");
  EXPECT_EQ(FileBytes(path), "new\r\n");
}

TEST(LogFile, ByName) {
  TempFolder folder;
  std::string path = folder.File("n.log");
  Ref<Object> log = CreateObject(u"Kestrel.LogFile");
  EXPECT_TRUE(Call(log, u"File", CallKind::kGet).IsNothing());
  Call(log, u"OpenFile", CallKind::kMethod, {Value(FromUtf8(path))});
  Call(log, u"LogLine", CallKind::kMethod, {Value(u"a")});
  Call(log, u"OpenFile", CallKind::kMethod, {Value(FromUtf8(path)), Value(true)});
  Call(log, u"LogLine", CallKind::kMethod, {Value(u"b")});
  EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), u"a\r\nb\r\n");
  Value file = Call(log, u"File", CallKind::kGet);
  EXPECT_EQ(runtime::ToText(CallByName(file, u"Path", CallKind::kGet)), FromUtf8(path));
  EXPECT_RAISES(CreateObject(u"Kestrel.File"), errors::kCannotCreateObject);
}

}  // namespace
}  // namespace kestrel::diagnostics
