#include "kestrel/diagnostics/log.hpp"

#include <gtest/gtest.h>

#include <string>

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
  struct Case {
    std::u16string_view cls;
    bool logged;
    std::u16string after_a_empty_b;
  };
  for (const Case& c :
       {Case{u"Kestrel.ILog", false, u""}, Case{u"Kestrel.LogString", true, u"a\n\nb\n"}}) {
    SCOPED_TRACE(ToUtf8(c.cls));
    Ref<Object> log = CreateObject(c.cls);
    EXPECT_EQ(u"Kestrel." + std::u16string(log->TypeName()), c.cls);
    EXPECT_NE(dynamic_cast<ILog*>(log.get()), nullptr);
    for (const char16_t* line : {u"a", u"", u"b"}) {
      Value r = Call(log, u"LogLine", CallKind::kMethod, {Value(line)});
      EXPECT_EQ(r.code(), uint16_t(Kind::kBoolean));
      EXPECT_EQ(r.boolean(), c.logged);
    }
    EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), c.after_a_empty_b);
    EXPECT_TRUE(Call(log, u"Clear", CallKind::kMethod).IsEmpty());
    EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), u"");
  }
}

TEST(LogFile, OpenTruncatesOrAppends) {
  TempFolder folder;
  std::string path = folder.File("run.log");
  struct Case {
    bool append;
    std::string bytes;
  };
  for (const Case& c : {Case{false, "new\r\n"}, Case{true, "old\r\nnew\r\n"}}) {
    SCOPED_TRACE(c.append);
    LogFile log;
    log.OpenFile(FromUtf8(path));
    log.LogLine(u"old");
    LogFile second;
    second.OpenFile(FromUtf8(path), c.append);
    EXPECT_TRUE(second.LogLine(u"new"));
    EXPECT_EQ(FileBytes(path), c.bytes);
    EXPECT_EQ(second.Log(), FromUtf8(c.bytes));
  }
}

TEST(LogFile, ClearLeavesAnEmptyFileStillInUse) {
  TempFolder folder;
  std::string path = folder.File("c.log");
  for (bool unicode : {false, true}) {
    SCOPED_TRACE(unicode);
    LogFile log;
    log.SetUnicode(unicode);
    log.OpenFile(FromUtf8(path));
    EXPECT_EQ(log.Log(), u"");  // a fresh file reads as "", not an error
    log.LogLine(u"x");
    log.Clear();
    EXPECT_EQ(log.Log(), u"");
    EXPECT_EQ(FileBytes(path), unicode ? std::string("\xFF\xFE") : std::string());
    log.LogLine(u"y");
    EXPECT_EQ(log.Log(), u"y\r\n");
  }
}

TEST(LogFile, UnicodeFileBytesAndReadBack) {
  TempFolder folder;
  std::string path = folder.File("u.log");
  LogFile log;
  log.SetUnicode(true);
  log.OpenFile(FromUtf8(path));
  log.LogLine(u"\u00E9\u4E2D");
  const std::string expected("\xFF\xFE\xE9\x00\x2D\x4E\x0D\x00\x0A\x00", 10);
  EXPECT_EQ(FileBytes(path), expected);
  EXPECT_EQ(log.Log(), u"\u00E9\u4E2D\r\n");
  // The flag changes later reads, not the stream already open.
  log.SetUnicode(false);
  log.LogLine(u"z");
  EXPECT_EQ(FileBytes(path), expected + std::string("z\0\r\0\n\0", 6));
}

TEST(LogFile, WithoutAFileRaises91AndAFailedOpenKeepsTheEarlierFile) {
  TempFolder folder;
  std::string path = folder.File("keep.log");
  LogFile log;
  EXPECT_RAISES(log.LogLine(u"x"), errors::kObjectVariableNotSet);
  EXPECT_RAISES(log.Log(), errors::kObjectVariableNotSet);
  EXPECT_RAISES(log.Clear(), errors::kObjectVariableNotSet);
  log.OpenFile(FromUtf8(path));
  EXPECT_RAISES(log.OpenFile(FromUtf8(folder.File("missing/x.log"))), errors::kPathNotFound);
  log.LogLine(u"still here");
  EXPECT_EQ(FileBytes(path), "still here\r\n");
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
