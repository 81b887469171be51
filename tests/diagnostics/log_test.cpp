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
    std::u16string_view type_name;
    bool logged;
    std::u16string after_a_empty_b;
  };
  const Case cases[] = {
      {u"Kestrel.ILog", u"ILog", false, u""},
      {u"Kestrel.LogString", u"LogString", true, u"a\n\nb\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(ToUtf8(c.cls));
    Ref<Object> log = CreateObject(c.cls);
    EXPECT_EQ(log->TypeName(), c.type_name);
    for (const char16_t* line : {u"a", u"", u"b"}) {
      Value r = Call(log, u"LogLine", CallKind::kMethod, {Value(line)});
      EXPECT_EQ(r.code(), uint16_t(Kind::kBoolean));
      EXPECT_EQ(r.boolean(), c.logged);
    }
    EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), c.after_a_empty_b);
    EXPECT_TRUE(Call(log, u"Clear", CallKind::kMethod).IsEmpty());
    EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), u"");
    // The C++ interface is the same object's.
    EXPECT_NE(dynamic_cast<ILog*>(log.get()), nullptr);
  }
}

TEST(LogFile, OpenTruncatesOrAppends) {
  TempFolder folder;
  std::string path = folder.File("run.log");
  struct Case {
    const char* name;
    bool append;
    std::string bytes;
  };
  const Case cases[] = {
      {"truncate", false, "new\r\n"},
      {"append", true, "old\r\nnew\r\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
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
    EXPECT_EQ(log.File()->Path(), FromUtf8(path));
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

TEST(LogFile, WithoutAFileRaises91) {
  LogFile log;
  EXPECT_FALSE(log.File());
  EXPECT_RAISES(log.LogLine(u"x"), errors::kObjectVariableNotSet);
  EXPECT_RAISES(log.Log(), errors::kObjectVariableNotSet);
  EXPECT_RAISES(log.Clear(), errors::kObjectVariableNotSet);
}

TEST(LogFile, FailedOpenKeepsTheEarlierFile) {
  TempFolder folder;
  std::string path = folder.File("keep.log");
  LogFile log;
  log.OpenFile(FromUtf8(path));
  EXPECT_RAISES(log.OpenFile(FromUtf8(folder.File("missing/x.log"))), errors::kPathNotFound);
  log.LogLine(u"still here");
  EXPECT_EQ(FileBytes(path), "still here\r\n");
  EXPECT_EQ(log.File()->Path(), FromUtf8(path));
}

TEST(LogFile, ByName) {
  TempFolder folder;
  std::string path = folder.File("n.log");
  Ref<Object> log = CreateObject(u"Kestrel.LogFile");
  EXPECT_TRUE(Call(log, u"File", CallKind::kGet).IsNothing());
  EXPECT_FALSE(runtime::ToBoolean(Call(log, u"Unicode", CallKind::kGet)));
  EXPECT_TRUE(Call(log, u"OpenFile", CallKind::kMethod, {Value(FromUtf8(path))}).IsEmpty());
  EXPECT_EQ(Call(log, u"LogLine", CallKind::kMethod, {Value(u"a")}).boolean(), true);
  EXPECT_TRUE(
      Call(log, u"OpenFile", CallKind::kMethod, {Value(FromUtf8(path)), Value(true)}).IsEmpty());
  Call(log, u"LogLine", CallKind::kMethod, {Value(u"b")});
  EXPECT_EQ(runtime::ToText(Call(log, u"Log", CallKind::kGet)), u"a\r\nb\r\n");

  Value file = Call(log, u"File", CallKind::kGet);
  ASSERT_TRUE(file.IsObject() && !file.IsNothing());
  EXPECT_EQ(file.object()->TypeName(), u"File");
  EXPECT_EQ(runtime::ToText(CallByName(file, u"Path", CallKind::kGet)), FromUtf8(path));
  EXPECT_EQ(runtime::ToText(CallByName(file, u"Name", CallKind::kGet)), u"n.log");
  EXPECT_RAISES(CreateObject(u"Kestrel.File"), errors::kCannotCreateObject);
}

}  // namespace
}  // namespace kestrel::diagnostics
