#include "kestrel/files/profile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using namespace std::literals;
using testing::FileBytes;
using testing::TempFolder;

void WriteBytes(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// What a read hands back: the returned count and that many characters.
struct ReadResult {
  int32_t n;
  std::u16string text;
};

ReadResult ReadString(OptionalText section, OptionalText key, std::u16string_view fallback,
                      const std::string& path, size_t size = 256) {
  std::u16string buffer(size, u' ');
  int32_t n = GetProfileString(section, key, fallback, buffer, path);
  return {n, buffer.substr(0, size_t(n))};
}

ReadResult ReadSection(std::u16string_view section, const std::string& path, size_t size = 256) {
  std::u16string buffer(size, u' ');
  int32_t n = GetProfileSection(section, buffer, path);
  return {n, buffer.substr(0, size_t(n))};
}

TEST(GetProfileString, ReadsValuesByTheFileRules) {
  struct Case {
    std::string_view file;
    std::u16string_view section, key, expected;
  };
  const Case cases[] = {
      {"[Db]\r\nHost=a\r\n", u"dB", u"HOST", u"a"},
      {"[s]\r\nk=first\r\nK=second\r\n", u"s", u"k", u"first"},
      // A repeated header of the same section is never searched.
      {"[s]\r\na=1\r\n[s]\r\nb=2\r\n", u"s", u"b", u"(none)"},
      {"  [ s\t]\r\n \tk \t= v \t\r\n", u"s", u"k", u"v"},
      {"[s\r\nk=v\r\n", u"s", u"k", u"v"},
      {"[s] trailing text\r\nk=v\r\n", u"s", u"k", u"v"},
      {"k=before\r\n[s]\r\n", u"s", u"k", u"(none)"},
      {"[]\r\n=empty name\r\n", u"", u"", u"empty name"},
      {"[s]\nk=lf\n", u"s", u"k", u"lf"},
      {"[s]\rk=cr\r", u"s", u"k", u"cr"},
      {"[s]\r\nk=v\r\n\0"sv, u"s", u"k", u"v"},
      {"[s]\r\nk=\"quoted\"\r\n", u"s", u"k", u"quoted"},
      {"[s]\r\nk=  'single'  \r\n", u"s", u"k", u"single"},
      {"[s]\r\nk=\"crossed'\r\n", u"s", u"k", u"\"crossed'"},
      {"[s]\r\nk=\"\r\n", u"s", u"k", u"\""},
      {"[s]\r\n\"k\"=v\r\n", u"s", u"\"k\"", u"v"},
      {"[s]\r\n;k=comment\r\n", u"s", u";k", u"(none)"},
      {"[s]\r\nk=a;b\r\n", u"s", u"k", u"a;b"},
      {"[s]\r\n#k=hash\r\n", u"s", u"#k", u"hash"},
      {"[s]\r\nk\r\n", u"s", u"k", u"(none)"},
      // Name arguments lose spaces, not tabs.
      {"[s]\r\nk=v\r\n", u"  s  ", u" k ", u"v"},
      {"[s]\r\nk=v\r\n", u"\ts", u"k", u"(none)"},
  };
  TempFolder folder;
  const std::string path = folder.File("a.ini");
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.file));
    WriteBytes(path, c.file);
    EXPECT_EQ(ReadString(c.section, c.key, u"(none)", path).text, c.expected);
  }
}

TEST(GetProfileString, DefaultLosesTrailingSpacesOnlyAndMissingFilesReadAsEmpty) {
  TempFolder folder;
  const std::string missing = folder.File("missing.ini");
  EXPECT_EQ(ReadString(u"s", u"k", u"  d  ", missing).text, u"  d");
  EXPECT_EQ(ReadString(std::nullopt, std::nullopt, u"d", missing).n, 0);
  // Missing section with no key name: the default, as for a missing key.
  EXPECT_EQ(ReadString(u"s", std::nullopt, u"d", missing).text, u"d");
  EXPECT_EQ(ReadSection(u"s", missing).n, 0);
}

TEST(GetProfileString, ListsNamesEachEndedByANul) {
  TempFolder folder;
  const std::string path = folder.File("a.ini");
  WriteBytes(path,
             "[one]\r\nk=1\r\n; note\r\nno equals\r\n\r\nm = 2\r\n[Two]\r\n[one]\r\nlate=3\r\n");
  EXPECT_EQ(ReadString(std::nullopt, std::nullopt, u"", path).text, u"one\0Two\0one\0"sv);
  EXPECT_EQ(ReadString(u"ONE", std::nullopt, u"", path).text, u"k\0m\0"sv);
  EXPECT_EQ(ReadString(u"two", std::nullopt, u"d", path).n, 0);
  // A whole section: every non-blank line, comments and lines without "="
  // included.
  EXPECT_EQ(ReadSection(u"one", path).text, u"k=1\0; note\0no equals\0m = 2\0"sv);
}

TEST(GetProfileString, KeepsTheBufferContracts) {
  TempFolder folder;
  const std::string path = folder.File("a.ini");
  WriteBytes(path, "[s]\r\nkey=abcdef\r\nk2=x\r\n");
  struct Case {
    const char* what;
    OptionalText section, key;
    size_t size;
    int32_t n;
    std::u16string_view text;  // the first n + 1 characters of the buffer
  };
  const Case cases[] = {
      {"value fits", u"s", u"key", 7, 6, u"abcdef\0"sv},
      {"value cut to size - 1", u"s", u"key", 6, 5, u"abcde\0"sv},
      {"default cut", u"s", u"none", 3, 2, u"de\0"sv},
      {"size 1", u"s", u"key", 1, 0, u"\0"sv},
      {"list fits", u"s", std::nullopt, 9, 7, u"key\0k2\0\0"sv},
      {"list that needs the whole buffer", u"s", std::nullopt, 8, 6, u"key\0k2\0"sv},
      {"list cut", u"s", std::nullopt, 6, 4, u"key\0\0"sv},
      {"list cut in a name", u"s", std::nullopt, 4, 2, u"ke\0"sv},
      {"list size 1", std::nullopt, std::nullopt, 1, 0, u"\0"sv},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::u16string buffer(c.size, u' ');
    int32_t n = GetProfileString(c.section, c.key, u"default", buffer, path);
    EXPECT_EQ(n, c.n);
    EXPECT_EQ(buffer.substr(0, c.text.size()), c.text);
  }
  std::u16string empty;
  EXPECT_EQ(GetProfileString(u"s", u"key", u"", empty, path), 0);
  std::u16string section(12, u' ');
  EXPECT_EQ(GetProfileSection(u"s", section, path), 10);  // "key=abcdef" + 2 NULs
  EXPECT_EQ(section.substr(0, 12), u"key=abcdef\0\0"sv);
}

TEST(WriteProfileString, WritesFilesByTheLayoutRules) {
  struct Case {
    const char* what;
    const char* before;  // nullptr: no file
    std::u16string_view section;
    OptionalText key, value;
    const char* after;
  };
  const Case cases[] = {
      {"new file", nullptr, u" s ", u" k ", u" v ", "[s]\r\nk= v \r\n"},
      {"new section at the end", "[a]\r\nx=1\r\n", u"b", u"k", u"v",
       "[a]\r\nx=1\r\n[b]\r\nk=v\r\n"},
      {"new key after the last key, before blank lines and comments",
       "[a]\r\nx=1\r\n\r\n; about b\r\n[b]\r\n", u"A", u"y", u"2",
       "[a]\r\nx=1\r\ny=2\r\n\r\n; about b\r\n[b]\r\n"},
      {"existing key keeps place, spelling and line ends", "[a]\nKey = old\nz=1\n", u"a", u"KEY",
       u"new", "[a]\nKey=new\nz=1\n"},
      {"empty value keeps the key", "[a]\r\nk=1\r\n", u"a", u"k", u"", "[a]\r\nk=\r\n"},
      {"value written as given, no quoting", nullptr, u"a", u"k", u"\"q\" ;x",
       "[a]\r\nk=\"q\" ;x\r\n"},
      {"delete the last key, header stays", "[a]\r\nk=1\r\n", u"a", u"k", std::nullopt, "[a]\r\n"},
      {"delete a section, its comments stay", "top\r\n[a]\r\n; c\r\nk=1\r\nother\r\n[b]\r\nm=2\r\n",
       u"A", std::nullopt, std::nullopt, "top\r\n; c\r\n[b]\r\nm=2\r\n"},
      {"delete from a missing file leaves an empty file", nullptr, u"a", u"k", std::nullopt, ""},
      {"delete a missing key changes nothing", "[a]\nk=1", u"a", u"x", std::nullopt, "[a]\nk=1"},
      {"missing final line end added", "[a]\r\nk=1", u"a", u"m", u"2", "[a]\r\nk=1\r\nm=2\r\n"},
      {"bytes before the first section kept", "\xE9t\xE9\r\n[a]\r\n", u"a", u"k", u"\u00E9",
       "\xE9t\xE9\r\n[a]\r\nk=\xE9\r\n"},
      {"a byte-order mark is kept and the file stays UTF-8", "\xEF\xBB\xBF[a]\r\nk=1\r\n", u"a",
       u"m", u"\u00E9", "\xEF\xBB\xBF[a]\r\nk=1\r\nm=\xC3\xA9\r\n"},
  };
  TempFolder folder;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = folder.File("w.ini");
    std::filesystem::remove(path);
    if (c.before != nullptr) WriteBytes(path, c.before);
    EXPECT_TRUE(WriteProfileString(c.section, c.key, c.value, path));
    EXPECT_EQ(FileBytes(path), c.after);
  }
}

TEST(WriteProfileSection, ReplacesAppendsAndDeletesSections) {
  struct Case {
    const char* what;
    const char* before;
    OptionalText text;
    const char* after;
  };
  const Case cases[] = {
      {"replaces every line, keeps the separating blank line",
       "[s]\r\na=1\r\n; c\r\nb=2\r\n\r\n[t]\r\n", u"x=9\0y=8\0"sv,
       "[s]\r\nx=9\r\ny=8\r\n\r\n[t]\r\n"},
      {"appends a missing section", "[t]\r\n", u"x=9\0"sv, "[t]\r\n[s]\r\nx=9\r\n"},
      {"empty text leaves an empty section", "", u""sv, "[s]\r\n"},
      {"an empty entry ends the list", "", u"a=1\0\0b=2\0"sv, "[s]\r\na=1\r\n"},
      {"absent text deletes", "[s]\r\na=1\r\n[t]\r\n", std::nullopt, "[t]\r\n"},
  };
  TempFolder folder;
  const std::string path = folder.File("s.ini");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    WriteBytes(path, c.before);
    EXPECT_TRUE(WriteProfileSection(u"s", c.text, path));
    EXPECT_EQ(FileBytes(path), c.after);
  }
  // What GetProfileSection returns writes back to the same section.
  WriteBytes(path, "[s]\r\nk=1\r\nm=2\r\n");
  std::u16string buffer(64, u' ');
  int32_t n = GetProfileSection(u"s", buffer, path);
  EXPECT_TRUE(WriteProfileSection(u"s", std::u16string_view(buffer.data(), size_t(n)), path));
  EXPECT_EQ(FileBytes(path), "[s]\r\nk=1\r\nm=2\r\n");
}

TEST(WriteProfileString, ReportsFailureAndKeepsTheFile) {
  TempFolder folder;
  EXPECT_FALSE(WriteProfileString(u"s", u"k", u"v", folder.File("no/such/folder.ini")));
  EXPECT_FALSE(WriteProfileString(u"s", u"k", u"v", ""));
  // A folder where the file should be.
  EXPECT_FALSE(WriteProfileString(u"s", u"k", u"v", folder.path()));
  if (::geteuid() != 0) {  // root reads and writes regardless of permissions
    const std::string path = folder.File("locked.ini");
    WriteBytes(path, "[s]\r\nk=1\r\n");
    ::chmod(path.c_str(), 0);
    EXPECT_FALSE(WriteProfileString(u"s", u"m", u"2", path));  // unreadable: never rewritten
    ::chmod(path.c_str(), 0600);
    EXPECT_EQ(FileBytes(path), "[s]\r\nk=1\r\n");
  }
}

TEST(WriteProfileString, WritesThroughASymbolicLink) {
  TempFolder folder;
  const std::string target = folder.File("real.ini");
  const std::string link = folder.File("link.ini");
  WriteBytes(target, "[s]\r\n");
  std::filesystem::create_symlink(target, link);
  EXPECT_TRUE(WriteProfileString(u"s", u"k", u"v", link));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(FileBytes(target), "[s]\r\nk=v\r\n");
}

TEST(GetProfileString, SeesEveryChangeMadeBetweenCalls) {
  TempFolder folder;
  const std::string path = folder.File("c.ini");
  WriteBytes(path, "[s]\r\nk=1\r\n");
  EXPECT_EQ(ReadString(u"s", u"k", u"", path).text, u"1");
  // Same size, same moment: another writer's change in place.
  WriteBytes(path, "[s]\r\nk=2\r\n");
  EXPECT_EQ(ReadString(u"s", u"k", u"", path).text, u"2");

  // An old file, so that its parsed copy is kept; then a same-size change
  // whose writer puts the old modification time back.
  WriteBytes(path, "[s]\r\nk=3\r\n");
  struct timespec old_times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), old_times, 0), 0);
  EXPECT_EQ(ReadString(u"s", u"k", u"", path).text, u"3");
  EXPECT_EQ(ReadString(u"s", u"k", u"", path).text, u"3");
  WriteBytes(path, "[s]\r\nk=4\r\n");
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), old_times, 0), 0);
  EXPECT_EQ(ReadString(u"s", u"k", u"", path).text, u"4");

  // Replaced by rename: another file behind the same name.
  const std::string other = folder.File("other.ini");
  WriteBytes(other, "[s]\r\nk=5\r\n");
  ASSERT_EQ(::utimensat(AT_FDCWD, other.c_str(), old_times, 0), 0);
  std::filesystem::rename(other, path);
  EXPECT_EQ(ReadString(u"s", u"k", u"", path).text, u"5");
}

}  // namespace
}  // namespace kestrel::files
