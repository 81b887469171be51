#include "kestrel/files/text_file.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using testing::FileBytes;
using testing::TempFolder;
constexpr auto kAnsi = TextEncoding::kAnsi, kUtf16 = TextEncoding::kUtf16;

std::string Bytes(std::initializer_list<int> values) {
  std::string s;
  for (int v : values) s.push_back(char(v));
  return s;
}

TEST(TextFileWriter, WritesExactBytesAndReadsThemBack) {
  struct Case {
    const char* name;
    TextEncoding encoding;
    std::vector<std::u16string> lines;
    std::string bytes;
    std::u16string text;  // what ReadAllText gives back
  };
  // clang-format off
  const Case cases[] = {
      {"ansi", kAnsi, {u"ab", u"", u"\u00E9\u20AC"},
       Bytes({'a', 'b', 13, 10, 13, 10, 0xE9, 0x80, 13, 10}), u"ab\r\n\r\n\u00E9\u20AC\r\n"},
      // A character Windows-1252 lacks is written as "?" and read back so.
      {"ansi outside the code page", kAnsi, {u"\u4E2D"}, "?\r\n", u"?\r\n"},
      {"utf16", kUtf16, {u"a\u20AC", u""},
       Bytes({0xFF, 0xFE, 'a', 0, 0xAC, 0x20, 13, 0, 10, 0, 13, 0, 10, 0}), u"a\u20AC\r\n\r\n"},
      {"utf16 no lines", kUtf16, {}, Bytes({0xFF, 0xFE}), u""},
  };
  // clang-format on
  TempFolder folder;
  const std::string path = folder.File("out.txt");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    {  // truncating drops what the row before wrote
      auto writer = TextFileWriter::Open(path, OpenMode::kTruncate, c.encoding);
      EXPECT_TRUE(writer.IsOpen());
      for (const auto& line : c.lines) writer.WriteLine(line);
      // Every line is in the file before the writer closes.
      EXPECT_EQ(FileBytes(path), c.bytes);
    }
    EXPECT_EQ(FileBytes(path), c.bytes);
    EXPECT_EQ(ReadAllText(path, c.encoding), c.text);
  }
}

// Appending "x": a missing file is created (with its mark), a UTF-16 file
// gets no second mark, and a last line cut short is ended first.
TEST(TextFileWriter, AppendingAddsNoSecondMarkAndEndsALineCutShort) {
  const std::string utf16_x = Bytes({'x', 0, 13, 0, 10, 0});
  const struct {
    const char* what;
    TextEncoding encoding;
    std::optional<std::string> before;  // nullopt: no file
    std::string after;
  } cases[] = {
      // clang-format off
      {"ansi, cut", kAnsi, "ab\r\nc", "ab\r\nc\r\nx\r\n"},
      {"ansi, whole", kAnsi, "ab\r\n", "ab\r\nx\r\n"},
      {"utf-16, missing", kUtf16, std::nullopt, Bytes({0xFF, 0xFE}) + utf16_x},
      {"utf-16, whole", kUtf16, Bytes({0xFF, 0xFE, 'a', 0, 13, 0, 10, 0}),
       Bytes({0xFF, 0xFE, 'a', 0, 13, 0, 10, 0}) + utf16_x},
      {"utf-16, cut after a unit", kUtf16, Bytes({0xFF, 0xFE, 'c', 0}),
       Bytes({0xFF, 0xFE, 'c', 0, 13, 0, 10, 0}) + utf16_x},
      {"utf-16, cut inside a unit", kUtf16, Bytes({0xFF, 0xFE, 'c'}),
       Bytes({0xFF, 0xFE, 'c', 0, 13, 0, 10, 0}) + utf16_x},
      // clang-format on
  };
  TempFolder folder;
  const std::string path = folder.File("log.txt");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove(path);
    if (c.before) std::ofstream(path, std::ios::binary) << *c.before;
    TextFileWriter::Open(path, OpenMode::kAppend, c.encoding).WriteLine(u"x");
    EXPECT_EQ(FileBytes(path), c.after);
  }
}

TEST(TextFileWriter, MovedWriterKeepsTheFileAndClosedOneRefuses) {
  TempFolder folder;
  std::string path = folder.File("m.txt");
  auto first = TextFileWriter::Open(path, OpenMode::kTruncate, kAnsi);
  TextFileWriter second = std::move(first);
  EXPECT_FALSE(first.IsOpen());
  second.WriteLine(u"x");
  second.Close();
  EXPECT_FALSE(second.IsOpen());
  EXPECT_RAISES(second.WriteLine(u"y"), errors::kBadFileNameOrNumber);
  EXPECT_EQ(FileBytes(path), "x\r\n");
}

TEST(TextFile, FailuresRaiseTheFileErrors) {
  TempFolder folder;
  std::string missing_folder = folder.File("no/such/file.txt");
  auto write = [](const std::string& path) {
    TextFileWriter::Open(path, OpenMode::kAppend, kAnsi);
  };
  auto read = [](const std::string& path) { ReadAllText(path, kUtf16); };
  EXPECT_RAISES(write(missing_folder), errors::kPathNotFound);
  EXPECT_RAISES(write(folder.path()), errors::kPathFileAccessError);
  EXPECT_RAISES(write(folder.File(std::string(300, 'n'))), errors::kBadFileNameOrNumber);
  EXPECT_RAISES(read(folder.File("none.txt")), errors::kFileNotFound);
  EXPECT_RAISES(read(missing_folder), errors::kPathNotFound);
  EXPECT_RAISES(read(folder.path()), errors::kPathFileAccessError);
}

TEST(TextFile, AbsolutePathIsLexical) {
  EXPECT_EQ(AbsolutePath("/tmp/a/./b/../c/"), "/tmp/a/c");
  EXPECT_EQ(AbsolutePath("x.log"), std::filesystem::current_path().string() + "/x.log");
}

}  // namespace
}  // namespace kestrel::files
