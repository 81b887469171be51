#include "kestrel/files/profile.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using namespace std::literals;
using testing::FileBytes;
using testing::TempFolder;

// The value a read hands back.
std::u16string ReadString(OptionalText section, OptionalText key, std::u16string_view fallback,
                          const std::string& path) {
  std::u16string buffer(256, u' ');
  buffer.resize(size_t(GetProfileString(section, key, fallback, buffer, path)));
  return buffer;
}

TEST(GetProfileString, ReadsValuesByTheFileRules) {
  struct Case {
    std::string_view file;
    std::u16string_view section, key, expected;
  };
  // clang-format off
  const Case cases[] = {
      {"[Db]\r\nHost=a\r\n", u"dB", u"HOST", u"a"},
      {"[s]\r\nk=first\r\nK=second\r\n", u"s", u"k", u"first"},
      // A repeated header of the same section is never searched.
      {"[s]\r\na=1\r\n[s]\r\nb=2\r\n", u"s", u"b", u"(none)"},
      {"  [ s\t]\r\n \tk \t= v \t\r\n", u"s", u"k", u"v"},
      // A vertical tab is a blank too.
      {"\v[\vs\v]\r\n\vk\v=\v'v'\v\r\n", u"s", u"k", u"v"},
      {"[s\r\nk=v\r\n", u"s", u"k", u"v"},  {"[s] trailing text\r\nk=v\r\n", u"s", u"k", u"v"},
      {"k=before\r\n[s]\r\n", u"s", u"k", u"(none)"},
      {"[]\r\n=empty name\r\n", u"", u"", u"empty name"},
      {"[s]\nk=lf\n", u"s", u"k", u"lf"},  {"[s]\rk=cr\r", u"s", u"k", u"cr"},
      {"[s]\r\nk=v\r\n\0"sv, u"s", u"k", u"v"},
      {"[s]\r\nk=\"quoted\"\r\n", u"s", u"k", u"quoted"},
      {"[s]\r\nk=  'single'  \r\n", u"s", u"k", u"single"},
      {"[s]\r\nk=\"crossed'\r\n", u"s", u"k", u"\"crossed'"},
      {"[s]\r\nk=\"\r\n", u"s", u"k", u"\""},  {"[s]\r\n\"k\"=v\r\n", u"s", u"\"k\"", u"v"},
      {"[s]\r\n;k=comment\r\n", u"s", u";k", u"(none)"},
      {"[s]\r\nk=a;b\r\n", u"s", u"k", u"a;b"},  {"[s]\r\n#k=hash\r\n", u"s", u"#k", u"hash"},
      {"[s]\r\nk\r\n", u"s", u"k", u"(none)"},
      // Name arguments lose spaces, not tabs.
      {"[s]\r\nk=v\r\n", u"  s  ", u" k ", u"v"},  {"[s]\r\nk=v\r\n", u"\ts", u"k", u"(none)"},
      {"[s]\r\nk=v\r\n", u"s", u"k\v", u"(none)"},
  };
  // clang-format on
  TempFolder folder;
  const std::string path = folder.File("a.ini");
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.file));
    folder.Write("a.ini", c.file);
    EXPECT_EQ(ReadString(c.section, c.key, u"(none)", path), c.expected);
  }
}

// Lists end every entry with a NUL and the list with one more; a list or a
// value cut short keeps the buffer contracts.
TEST(GetProfileString, FillsTheBufferByTheListAndSizeContracts) {
  const char* lists =
      "[one]\r\nk=1\r\n; note\r\nno equals\r\n\v\r\n\vm = 2\v\r\n[Two]\r\n[one]\r\nlate=3\r\n";
  const char* small = "[s]\r\nkey=abcdef\r\nk2=x\r\n";
  const std::u16string_view kWholeSection = u"(lines)";  // as key: read with GetProfileSection
  const struct {
    const char* what;
    const char* file;  // nullptr: no file
    OptionalText section, key;
    size_t size;
    std::u16string_view written;  // the first n + 2 characters of the buffer
  } cases[] = {
      {"sections, duplicates included", lists, std::nullopt, std::nullopt, 64,
       u"one\0Two\0one\0\0 "sv},
      {"keys of the first section of the name", lists, u"ONE", std::nullopt, 64, u"k\0m\0\0 "sv},
      {"every non-blank line of a section", lists, u"one", kWholeSection, 64,
       u"k=1\0; note\0no equals\0m = 2\0\0 "sv},
      // An empty list is the list's own NUL alone.
      {"keys of a section without keys", lists, u"two", std::nullopt, 64, u"\0 "sv},
      {"lines of a missing section", lists, u"none", kWholeSection, 64, u"\0 "sv},
      {"sections of an empty file", "", std::nullopt, std::nullopt, 64, u"\0 "sv},
      {"sections of a missing file", nullptr, std::nullopt, std::nullopt, 64, u"\0 "sv},
      {"lines of a missing file", nullptr, u"one", kWholeSection, 64, u"\0 "sv},
      // The keys of a missing section are the default, less trailing spaces.
      {"keys of a missing section", lists, u"none", std::nullopt, 64, u"default\0 "sv},
      {"value fits", small, u"s", u"key", 7, u"abcdef\0"sv},
      {"value cut to size - 1", small, u"s", u"key", 6, u"abcde\0"sv},
      {"default cut", small, u"s", u"none", 3, u"de\0"sv},
      {"size 1", small, u"s", u"key", 1, u"\0"sv},
      {"size 0", small, u"s", u"key", 0, u""sv},
      {"list fits", small, u"s", std::nullopt, 9, u"key\0k2\0\0 "sv},
      {"list that needs the whole buffer", small, u"s", std::nullopt, 8, u"key\0k2\0\0"sv},
      {"list cut", small, u"s", std::nullopt, 6, u"key\0\0\0"sv},
      {"list cut in a name", small, u"s", std::nullopt, 4, u"ke\0\0"sv},
      {"list size 1", small, std::nullopt, std::nullopt, 1, u"\0"sv},
      {"lines cut", small, u"s", kWholeSection, 12, u"key=abcdef\0\0"sv},
  };
  TempFolder folder;
  const std::string path = folder.File("a.ini");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove(path);
    if (c.file != nullptr) folder.Write("a.ini", c.file);
    std::u16string buffer(c.size, u' ');
    const int32_t n = c.key == kWholeSection
                          ? GetProfileSection(*c.section, buffer, path)
                          : GetProfileString(c.section, c.key, u"default  ", buffer, path);
    EXPECT_EQ(buffer.substr(0, size_t(n) + 2), c.written);
  }
}

TEST(WriteProfileString, AndWriteProfileSectionFollowTheLayoutRules) {
  const std::u16string_view kWholeSection = u"(section)";  // as key: WriteProfileSection
  const struct {
    const char* what;
    std::optional<std::string_view> before;  // nullopt: no file
    std::u16string_view section;
    OptionalText key, value;
    std::string_view after;
  } cases[] = {
      {"new file", std::nullopt, u" s ", u" k ", u" v ", "[s]\r\nk= v \r\n"},
      {"new section at the end", "[a]\r\nx=1\r\n", u"b", u"k", u"v",
       "[a]\r\nx=1\r\n[b]\r\nk=v\r\n"},
      {"new key after the last key, before blank lines and comments",
       "[a]\r\nx=1\r\n\r\n; about b\r\n[b]\r\n", u"A", u"y", u"2",
       "[a]\r\nx=1\r\ny=2\r\n\r\n; about b\r\n[b]\r\n"},
      {"existing key keeps place, spelling and line ends", "[a]\nKey = old\nz=1\n", u"a", u"KEY",
       u"new", "[a]\nKey=new\nz=1\n"},
      {"empty value keeps the key", "[a]\r\nk=1\r\n", u"a", u"k", u"", "[a]\r\nk=\r\n"},
      {"value written as given, no quoting", std::nullopt, u"a", u"k", u"\"q\" ;x",
       "[a]\r\nk=\"q\" ;x\r\n"},
      {"delete the last key, header stays", "[a]\r\nk=1\r\n", u"a", u"k", std::nullopt, "[a]\r\n"},
      {"delete a section, its comments stay", "top\r\n[a]\r\n; c\r\nk=1\r\nother\r\n[b]\r\nm=2\r\n",
       u"A", std::nullopt, std::nullopt, "top\r\n; c\r\n[b]\r\nm=2\r\n"},
      {"delete from a missing file leaves an empty file", std::nullopt, u"a", u"k", std::nullopt,
       ""},
      {"delete a missing key changes nothing", "[a]\nk=1", u"a", u"x", std::nullopt, "[a]\nk=1"},
      {"missing final line end added", "[a]\r\nk=1", u"a", u"m", u"2", "[a]\r\nk=1\r\nm=2\r\n"},
      {"bytes before the first section kept", "\xE9t\xE9\r\n[a]\r\n", u"a", u"k", u"\u00E9",
       "\xE9t\xE9\r\n[a]\r\nk=\xE9\r\n"},
      {"a byte-order mark is kept and the file stays UTF-8", "\xEF\xBB\xBF[a]\r\nk=1\r\n", u"a",
       u"m", u"\u00E9", "\xEF\xBB\xBF[a]\r\nk=1\r\nm=\xC3\xA9\r\n"},
      // Reads stop at a NUL; writes keep every byte after it.
      {"a new section goes after the last byte", "[a]\r\nk=1\0tail\0"sv, u"b", u"k", u"v",
       "[a]\r\nk=1\0tail\0\r\n[b]\r\nk=v\r\n"sv},
      {"a new key goes before the NUL", "[a]\r\nk=1\0[b]"sv, u"a", u"m", u"2",
       "[a]\r\nk=1\r\nm=2\r\n\0[b]"sv},
      {"a deleted section leaves the bytes after the NUL", "[a]\r\nk=1\r\n\0[a]\r\n"sv, u"a",
       std::nullopt, std::nullopt, "\0[a]\r\n"sv},
      {"section replaced, its separating blank line kept",
       "[s]\r\na=1\r\n; c\r\nb=2\r\n\r\n[t]\r\n", u"s", kWholeSection, u"x=9\0y=8\0"sv,
       "[s]\r\nx=9\r\ny=8\r\n\r\n[t]\r\n"},
      {"missing section appended", "[t]\r\n", u"s", kWholeSection, u"x=9\0"sv,
       "[t]\r\n[s]\r\nx=9\r\n"},
      {"missing section appended after the last byte", "[t]\r\n\0[s]"sv, u"s", kWholeSection,
       u"x=9\0"sv, "[t]\r\n\0[s]\r\n[s]\r\nx=9\r\n"sv},
      {"empty section text", "", u"s", kWholeSection, u""sv, "[s]\r\n"},
      {"an empty entry ends the section text", "", u"s", kWholeSection, u"a=1\0\0b=2\0"sv,
       "[s]\r\na=1\r\n"},
      {"absent section text deletes", "[s]\r\na=1\r\n[t]\r\n", u"s", kWholeSection, std::nullopt,
       "[t]\r\n"},
  };
  TempFolder folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = folder.File("w.ini");
    std::filesystem::remove(path);
    if (c.before) folder.Write("w.ini", *c.before);
    EXPECT_TRUE(c.key == kWholeSection ? WriteProfileSection(c.section, c.value, path)
                                       : WriteProfileString(c.section, c.key, c.value, path));
    EXPECT_EQ(FileBytes(path), c.after);
  }
}

TEST(WriteProfileString, FailsWhereNoFileCanBeWritten) {
  TempFolder folder;
  EXPECT_FALSE(WriteProfileString(u"s", u"k", u"v", folder.File("no/such/folder.ini")));
  EXPECT_FALSE(WriteProfileString(u"s", u"k", u"v", ""));
  // A folder where the file should be.
  EXPECT_FALSE(WriteProfileString(u"s", u"k", u"v", folder.path()));
}

TEST(GetProfileString, SeesEveryChangeMadeBetweenCalls) {
  TempFolder folder;
  const std::string path = folder.File("c.ini");
  folder.Write("c.ini", "[s]\r\nk=1\r\n");
  EXPECT_EQ(ReadString(u"s", u"k", u"", path), u"1");
  // Same size, same moment: another writer's change in place.
  folder.Write("c.ini", "[s]\r\nk=2\r\n");
  EXPECT_EQ(ReadString(u"s", u"k", u"", path), u"2");

  // An old file, so that its parsed copy is kept; then a same-size change
  // whose writer puts the old modification time back.
  folder.Write("c.ini", "[s]\r\nk=3\r\n");
  struct timespec old_times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), old_times, 0), 0);
  EXPECT_EQ(ReadString(u"s", u"k", u"", path), u"3");
  EXPECT_EQ(ReadString(u"s", u"k", u"", path), u"3");
  folder.Write("c.ini", "[s]\r\nk=4\r\n");
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), old_times, 0), 0);
  EXPECT_EQ(ReadString(u"s", u"k", u"", path), u"4");

  // Replaced by rename: another file behind the same name.
  const std::string other = folder.Write("other.ini", "[s]\r\nk=5\r\n");
  ASSERT_EQ(::utimensat(AT_FDCWD, other.c_str(), old_times, 0), 0);
  std::filesystem::rename(other, path);
  EXPECT_EQ(ReadString(u"s", u"k", u"", path), u"5");
}

}  // namespace
}  // namespace kestrel::files
