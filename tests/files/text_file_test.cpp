#include "kestrel/files/text_file.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using testing::FileBytes;
using testing::TempFolder;

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
  const Case cases[] = {
      {"ansi",
       TextEncoding::kAnsi,
       {u"ab", u"", u"\u00E9\u20AC"},
       Bytes({'a', 'b', 13, 10, 13, 10, 0xE9, 0x80, 13, 10}),
       u"ab\r\n\r\n\u00E9\u20AC\r\n"},
      // A character Windows-1252 lacks is written as "?" and read back so.
      {"ansi outside the code page", TextEncoding::kAnsi, {u"\u4E2D"}, "?\r\n", u"?\r\n"},
      {"utf16",
       TextEncoding::kUtf16,
       {u"a\u20AC", u""},
       Bytes({0xFF, 0xFE, 'a', 0, 0xAC, 0x20, 13, 0, 10, 0, 13, 0, 10, 0}),
       u"a\u20AC\r\n\r\n"},
      {"utf16 no lines", TextEncoding::kUtf16, {}, Bytes({0xFF, 0xFE}), u""},
  };
  TempFolder folder;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string path = folder.File("out.txt");
    {
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

TEST(TextFileWriter, Utf16AppendAddsNoSecondMarkAndTruncateDropsOldLines) {
  TempFolder folder;
  for (bool append : {true, false}) {
    SCOPED_TRACE(append);
    std::string path = folder.File("log.txt");
    TextFileWriter::Open(path, OpenMode::kTruncate, TextEncoding::kUtf16).WriteLine(u"a");
    TextFileWriter::Open(path, append ? OpenMode::kAppend : OpenMode::kTruncate,
                         TextEncoding::kUtf16)
        .WriteLine(u"b");
    EXPECT_EQ(FileBytes(path), Bytes({0xFF, 0xFE}) + (append ? Bytes({'a', 0, 13, 0, 10, 0}) : "") +
                                   Bytes({'b', 0, 13, 0, 10, 0}));
  }
  // Appending creates a missing file, with its mark.
  std::string fresh = folder.File("fresh.txt");
  TextFileWriter::Open(fresh, OpenMode::kAppend, TextEncoding::kUtf16).WriteLine(u"x");
  EXPECT_EQ(FileBytes(fresh), Bytes({0xFF, 0xFE, 'x', 0, 13, 0, 10, 0}));
}

TEST(TextFileWriter, AppendingEndsALineCutShortFirst) {
  struct Case {
    const char* what;
    TextEncoding encoding;
    std::string before, after;
  };
  const Case cases[] = {
      {"ansi, cut", TextEncoding::kAnsi, "ab\r\nc", "ab\r\nc\r\nx\r\n"},
      {"ansi, whole", TextEncoding::kAnsi, "ab\r\n", "ab\r\nx\r\n"},
      {"utf-16, cut after a unit", TextEncoding::kUtf16, Bytes({0xFF, 0xFE, 'c', 0}),
       Bytes({0xFF, 0xFE, 'c', 0, 13, 0, 10, 0, 'x', 0, 13, 0, 10, 0})},
      {"utf-16, cut inside a unit", TextEncoding::kUtf16, Bytes({0xFF, 0xFE, 'c'}),
       Bytes({0xFF, 0xFE, 'c', 0, 13, 0, 10, 0, 'x', 0, 13, 0, 10, 0})},
  };
  TempFolder folder;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::string path = folder.File("cut.txt");
    std::ofstream(path, std::ios::binary | std::ios::trunc) << c.before;
    TextFileWriter::Open(path, OpenMode::kAppend, c.encoding).WriteLine(u"x");
    EXPECT_EQ(FileBytes(path), c.after);
  }
}

TEST(TextFileWriter, MovedWriterKeepsTheFileAndClosedOneRefuses) {
  TempFolder folder;
  std::string path = folder.File("m.txt");
  auto first = TextFileWriter::Open(path, OpenMode::kTruncate, TextEncoding::kAnsi);
  TextFileWriter second = std::move(first);
  EXPECT_FALSE(first.IsOpen());
  second.WriteLine(u"x");
  EXPECT_EQ(second.path(), path);
  second.Close();
  EXPECT_FALSE(second.IsOpen());
  EXPECT_RAISES(second.WriteLine(u"y"), errors::kBadFileNameOrNumber);
  EXPECT_EQ(FileBytes(path), "x\r\n");
}

TEST(TextFile, FailuresRaiseTheFileErrors) {
  TempFolder folder;
  std::string missing_folder = folder.File("no/such/file.txt");
  std::string long_name = folder.File(std::string(300, 'n'));
  auto write = [](const std::string& path) {
    TextFileWriter::Open(path, OpenMode::kAppend, TextEncoding::kAnsi);
  };
  auto read = [](const std::string& path) { ReadAllText(path, TextEncoding::kUtf16); };
  EXPECT_RAISES(write(missing_folder), errors::kPathNotFound);
  EXPECT_RAISES(write(folder.path()), errors::kPathFileAccessError);
  EXPECT_RAISES(write(long_name), errors::kBadFileNameOrNumber);
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
