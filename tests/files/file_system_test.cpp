#include "kestrel/files/file_system.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/registry.hpp"
#include "run_as_unprivileged.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

namespace fs = std::filesystem;
using testing::FileBytes;
using testing::GiveToUnprivileged;
using testing::RunAsUnprivileged;
using testing::TempFolder;

// `prefix`, then `n` times `c`, then `suffix`.
std::u16string Repeated(std::u16string_view prefix, size_t n, char16_t c,
                        std::u16string_view suffix = u"") {
  std::u16string s(prefix);
  s.append(n, c);
  return s.append(suffix);
}

// Works in the temporary folder, so that relative names land there.
class FileSystemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = fs::current_path();
    fs::current_path(folder.path());
  }
  void TearDown() override { fs::current_path(previous_); }

  FileSystem files;
  TempFolder folder;
  fs::path previous_;
  std::u16string Path(const std::string& name) const { return FromUtf8(folder.File(name)); }
};

TEST_F(FileSystemTest, CreateFolderMakesParentsFirstAndRaisesFileErrors) {
  EXPECT_TRUE(files.CreateFolder(Path("x/y/z")));
  EXPECT_TRUE(fs::is_directory(folder.File("x/y/z")));
  EXPECT_TRUE(files.CreateFolder(Path("x/y/z/")));  // again: nothing to do
  EXPECT_TRUE(files.CreateFolder(u"./rel/sub"));
  EXPECT_TRUE(fs::is_directory(folder.File("rel/sub")));

  folder.Write("file", "f");
  EXPECT_RAISES(files.CreateFolder(Path("file")), errors::kFileAlreadyExists);
  EXPECT_RAISES(files.CreateFolder(Path("file/sub")), errors::kFileAlreadyExists);
  // A parent chain that ends in the empty name, before anything is created.
  for (std::u16string_view name : {u"none/b", u"none", u"rel", u"", u"/"}) {
    SCOPED_TRACE(ToUtf8(name));
    EXPECT_RAISES(files.CreateFolder(name), errors::kOutOfStackSpace);
  }
  EXPECT_FALSE(fs::exists(folder.File("none")));
}

TEST_F(FileSystemTest, TextFilesAreWindows1252WithoutAddedLineEndsAndRaiseFileErrors) {
  std::u16string path = Path("t.txt");
  files.WriteFile(path, u"x");
  files.AppendFile(path, u"y");
  EXPECT_EQ(FileBytes(folder.File("t.txt")), "xy");
  files.AppendFile(Path("new.txt"), u"a\r\nb\n\u00E9\u20AC\u4E2D");  // appending creates
  EXPECT_EQ(FileBytes(folder.File("new.txt")), "a\r\nb\n\xE9\x80?");
  EXPECT_EQ(files.ReadFile(Path("new.txt")), u"a\r\nb\n\u00E9\u20AC?");
  files.WriteFile(path, u"z");  // replaces
  EXPECT_EQ(files.ReadFile(path), u"z");

  // Every byte value, in ASCII runs and mixed blocks, across read chunks.
  std::string bytes;
  for (int i = 0; bytes.size() < 300000; ++i)
    bytes += i % 3 == 0 ? std::string(37, char(i % 256)) : std::string("plain ascii text, ");
  folder.Write("big.txt", bytes);
  EXPECT_EQ(files.ReadFile(Path("big.txt")), runtime::FromAnsi(bytes));

  // Whether a missing file or a missing folder is reported is the file-error
  // mapping's business; here each member shows that it hands over its path.
  folder.Write("empty.txt", "");
  EXPECT_RAISES(files.ReadFile(Path("missing.txt")), errors::kFileNotFound);
  EXPECT_RAISES(files.ReadFile(Path("empty.txt")), errors::kInputPastEndOfFile);
  EXPECT_RAISES(files.ReadFile(Path("")), errors::kPathFileAccessError);  // the folder itself
  EXPECT_RAISES(files.WriteFile(Path("no/x.txt"), u"x"), errors::kPathNotFound);
  EXPECT_RAISES(files.AppendFile(Path("no/x.txt"), u"x"), errors::kPathNotFound);
  EXPECT_RAISES(files.WriteFile(Path(""), u"x"), errors::kPathFileAccessError);
  EXPECT_RAISES(files.WriteFile(u"", u"x"), errors::kBadFileNameOrNumber);
  EXPECT_RAISES(files.ReadFile(std::u16string(u"a\0b", 3)), errors::kBadFileNameOrNumber);
}

TEST_F(FileSystemTest, ExistenceTellsFilesFromFolders) {
  folder.Write("f", "f");
  fs::create_directory(folder.File("d"));
  fs::create_directory_symlink(folder.File("d"), folder.File("link"));
  const struct {
    std::string name;
    bool file, folder;
  } cases[] = {
      {"f", true, false},     {"d", false, true},   {"link", false, true},
      {"none", false, false}, {"f/", false, false}, {"d/", false, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(files.FileExists(Path(c.name)), c.file);
    EXPECT_EQ(files.FolderExists(Path(c.name)), c.folder);
  }
  EXPECT_FALSE(files.FileExists(u""));
  EXPECT_FALSE(files.FolderExists(u""));
}

TEST_F(FileSystemTest, DeleteFolderRemovesReadOnlyContentButNotLinkTargets) {
  fs::create_directories(folder.File("tree/ro/inner"));
  folder.Write("tree/ro/inner/f", "f");
  folder.Write("tree/ro/g", "g");
  fs::create_directory(folder.File("outside"));
  folder.Write("outside/keep", "k");
  fs::create_directory_symlink(folder.File("outside"), folder.File("tree/link"));
  ::chmod(folder.File("tree/ro/g").c_str(), 0444);
  ::chmod(folder.File("tree/ro/inner").c_str(), 0500);
  ::chmod(folder.File("tree/ro").c_str(), 0555);

  EXPECT_TRUE(files.DeleteFolder(Path("tree/")));
  EXPECT_FALSE(fs::exists(folder.File("tree")));
  EXPECT_EQ(FileBytes(folder.File("outside/keep")), "k");
}

TEST_F(FileSystemTest, TrappedMembersReturnTrueWhenTheyFail) {
  fs::create_directory(folder.File("d"));
  EXPECT_TRUE(files.DeleteFolder(Path("none")));
  EXPECT_TRUE(files.DeleteFile(Path("none")));
  EXPECT_TRUE(files.DeleteFile(Path("d")));  // a folder is no file
  EXPECT_TRUE(fs::is_directory(folder.File("d")));
  EXPECT_TRUE(files.CopyFile(Path("none"), Path("copy")));
  EXPECT_TRUE(files.MoveFile(Path("none"), Path("moved")));
  EXPECT_FALSE(fs::exists(folder.File("copy")) || fs::exists(folder.File("moved")));
  EXPECT_TRUE(files.DeleteFolder(std::u16string(u"a\0b", 3)));
}

// In a folder that denies changes, CreateFolder raises 70 and the trapped
// members report True while everything stays. Root is denied nothing, so
// then the checks run as nobody.
TEST_F(FileSystemTest, DeniedChanges) {
  GiveToUnprivileged(folder.path());
  RunAsUnprivileged([&] {
    fs::create_directories(folder.File("locked/stays"));
    folder.Write("locked/file", "f");
    ::chmod(folder.File("locked").c_str(), 0555);
    EXPECT_TRUE(files.DeleteFolder(Path("locked/stays")));
    EXPECT_TRUE(fs::is_directory(folder.File("locked/stays")));
    EXPECT_TRUE(files.DeleteFile(Path("locked/file")));
    EXPECT_TRUE(files.FileExists(Path("locked/file")));
    EXPECT_TRUE(files.MoveFile(Path("locked/file"), Path("out")));
    EXPECT_TRUE(files.FileExists(Path("locked/file")));
    EXPECT_FALSE(files.FileExists(Path("out")));
    EXPECT_RAISES(files.CreateFolder(Path("locked/new/deeper")), errors::kPermissionDenied);
    ::chmod(folder.File("locked").c_str(), 0755);  // so that the folder can be removed
  });
}

TEST_F(FileSystemTest, CopyAndMoveReplaceOnlyAsAskedAndGoIntoFolders) {
  const struct {
    const char* name;
    bool move;
    bool overwrite;
    std::string destination;
    std::string a_after, b_after, d_a_after;  // "" for a missing file
  } cases[] = {
      {"copy replaces", false, true, "b", "A", "A", ""},
      {"copy without overwrite", false, false, "b", "A", "B", ""},
      {"copy into a folder", false, true, "d/", "A", "B", "A"},
      {"move with overwrite deletes b first", true, true, "b", "", "A", ""},
      {"move without overwrite: both stay", true, false, "b", "A", "B", ""},
      {"move into a folder", true, false, "d/", "", "B", "A"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    folder.Write("a", "A");
    folder.Write("b", "B");
    fs::create_directory(folder.File("d"));
    const auto from = Path("a"), to = Path(c.destination);
    EXPECT_TRUE(c.move ? files.MoveFile(from, to, c.overwrite)
                       : files.CopyFile(from, to, c.overwrite));
    EXPECT_EQ(FileBytes(folder.File("a")), c.a_after);
    EXPECT_EQ(FileBytes(folder.File("b")), c.b_after);
    EXPECT_EQ(FileBytes(folder.File("d/a")), c.d_a_after);
    fs::remove_all(folder.File("d"));
  }

  // Across file systems the file is copied and its old name removed.
  struct stat here, shm;
  if (::stat(folder.path().c_str(), &here) != 0 || ::stat("/dev/shm", &shm) != 0 ||
      here.st_dev == shm.st_dev)
    GTEST_SKIP() << "no second file system to move to";
  std::string other = "/dev/shm/kestrel-move-" + std::to_string(::getpid());
  folder.Write("a", "A");
  EXPECT_TRUE(files.MoveFile(Path("a"), FromUtf8(other)));
  EXPECT_EQ(FileBytes(other), "A");
  EXPECT_FALSE(fs::exists(folder.File("a")));
  folder.Write("a", "A2");
  EXPECT_TRUE(files.MoveFile(Path("a"), FromUtf8(other), false));  // no replacing here either
  EXPECT_EQ(FileBytes(other), "A");
  EXPECT_EQ(FileBytes(folder.File("a")), "A2");
  fs::remove(other);
}

TEST_F(FileSystemTest, PathConversionsGoThroughA260CharacterBuffer) {
  const struct {
    std::u16string relative, folder, want;
  } absolute[] = {
      {u"../b.txt", u"/x/y", u"/x/b.txt"},
      {u"", u"/x/y", u""},
      {u"/abs/f", u"/x", u"/x/abs/f"},  // appended like any other
      {u" b.txt ", u"", u"b.txt"},      // cleaned: surrounding spaces go
      {u"b", Repeated(u"/", 256, u'd'), Repeated(u"/", 256, u'd', u"/b")},  // 259 characters
      {u"bc", Repeated(u"/", 256, u'd'), u""},
      {u"../b", Repeated(u"/", 300, u'd'), u"/b"},  // only the result counts
  };
  for (const auto& c : absolute) {
    SCOPED_TRACE(ToUtf8(c.relative) + " in " + ToUtf8(c.folder.substr(0, 20)));
    EXPECT_EQ(files.AbsoluteFileName(c.relative, c.folder), c.want);
  }
  const struct {
    std::u16string file, folder, want;
  } relative[] = {
      {u"/x/y/f.txt", u"/x", u"./y/f.txt"},  // the climbing rules are the path functions'
      {Repeated(u"/x/", 257, u'f'), u"/x", Repeated(u"./", 257, u'f')},  // 259 characters
      {Repeated(u"/x/", 258, u'f'), u"/x", u""},
  };
  for (const auto& c : relative) {
    SCOPED_TRACE(ToUtf8(c.file.substr(0, 20)));
    EXPECT_EQ(files.RelativeFileName(c.file, c.folder), c.want);
  }
}

TEST_F(FileSystemTest, ShortAndLongPathsOfExistingPathsAreUnchanged) {
  std::string deep = folder.File(std::string(100, 'a') + "/" + std::string(100, 'b') + "/" +
                                 std::string(100, 'c'));
  fs::create_directories(deep);
  folder.Write("f", "f");
  const struct {
    std::u16string path, want;
  } cases[] = {
      // clang-format off
      {u"", u""},  {Path("none"), u""},  {Path("f"), Path("f")},
      {FromUtf8(folder.path()), FromUtf8(folder.path())},
      {FromUtf8(deep), std::u16string(260, u' ')},  // 260 characters or more: 260 spaces
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(ToUtf8(c.path));
    EXPECT_EQ(files.ShortPath(c.path), c.want);
    EXPECT_EQ(files.LongPath(c.path), c.want);
  }
}

TEST_F(FileSystemTest, TemporaryNamesAreRandomNamesInTheTemporaryFolder) {
  const char* saved = std::getenv("TMPDIR");
  std::string previous = saved ? saved : "";
  ::setenv("TMPDIR", (folder.path() + "//").c_str(), 1);
  EXPECT_EQ(files.GetTempFolderName(), FromUtf8(folder.path()));
  std::u16string name = files.GetTempFileName();
  EXPECT_EQ(files.ParentFolderName(name), FromUtf8(folder.path()));
  std::u16string base = files.BaseName(name);
  EXPECT_EQ(base.size(), 11u);
  EXPECT_EQ(base.find_first_not_of(u"0123456789abcdef", 3), std::u16string::npos);
  EXPECT_EQ(files.ExtensionName(name), u"tmp");
  EXPECT_FALSE(fs::exists(ToUtf8(name)));
  EXPECT_NE(files.GetTempFileName(), name);
  EXPECT_EQ(files.ExtensionName(files.GetTempFileName(u"")), u"");
  std::u16string log = files.FileName(files.GetTempFileName(u"log"));
  EXPECT_TRUE(log.ends_with(u"log") && log.size() == 14) << ToUtf8(log);

  ::setenv("TMPDIR", folder.File("none").c_str(), 1);
  EXPECT_EQ(files.GetTempFolderName(), u"/tmp");
  saved ? ::setenv("TMPDIR", previous.c_str(), 1) : ::unsetenv("TMPDIR");
}

TEST_F(FileSystemTest, BinaryFilesAreOneBasedByteArrays) {
  folder.Write("ten", "0123456789");
  Value bytes = Value::ByteArray(std::vector<uint8_t>{0, 0xFF, 7});
  files.WriteBinaryFile(Value(Path("ten")), bytes);
  EXPECT_EQ(FileBytes(folder.File("ten")), std::string("\0\xFF\x07", 3));
  Value read = files.ReadBinaryFile(Value(Path("ten")));
  EXPECT_EQ(read.code(), kArrayFlag | uint16_t(Kind::kByte));
  EXPECT_EQ(read.LBound(), 1);
  EXPECT_EQ(read.UBound(), 3);
  EXPECT_TRUE(std::equal(read.Bytes().begin(), read.Bytes().end(), bytes.Bytes().begin()));

  Value grid = Value::NewArray(Kind::kByte, {Bounds{0, 1}, Bounds{5, 6}});
  grid.SetElement({1, 6}, Value(uint8_t{'z'}));
  files.WriteBinaryFile(Value(Path("grid")), grid);
  EXPECT_EQ(FileBytes(folder.File("grid")), std::string("\0\0\0z", 4));

  folder.Write("empty", "");
  EXPECT_RAISES(files.ReadBinaryFile(Value(Path("empty"))), errors::kSubscriptOutOfRange);
  EXPECT_RAISES(files.ReadBinaryFile(Value(Path("none"))), errors::kFileNotFound);
  EXPECT_RAISES(files.WriteBinaryFile(Value(Path("no/none")), bytes), errors::kPathNotFound);
  for (const Value& wrong : {Value(u"abc"), Value::NewArray(Kind::kInteger, {Bounds{0, 1}})}) {
    EXPECT_RAISES(files.WriteBinaryFile(Value(Path("ten")), wrong), errors::kTypeMismatch);
  }
  EXPECT_EQ(FileBytes(folder.File("ten")), std::string("\0\xFF\x07", 3));  // untouched
  // Names are literal: no wildcard matches "ten".
  files.WriteBinaryFile(Value(Path("t*")), bytes);
  EXPECT_EQ(FileBytes(folder.File("t*")).size(), 3u);
}

TEST_F(FileSystemTest, LateBoundThroughTheRegistry) {
  EXPECT_EQ(Registry::Instance().Find(u"kestrel.filesystem"), Instancing::kGlobal);
  Ref<Object> global = Registry::Instance().Global(FileSystem::kQualifiedName);
  folder.Write("a", "A");
  folder.Write("b", "B");
  auto call = [&](std::u16string_view member, std::vector<Value> args) {
    return CallByName(global, member, CallKind::kMethod, std::span<Value>(args));
  };
  // Overwrite omitted: True.
  EXPECT_TRUE(call(u"copyfile", {Value(Path("a")), Value(Path("b"))}).boolean());
  EXPECT_EQ(FileBytes(folder.File("b")), "A");
  EXPECT_TRUE(call(u"GetTempFileName", {}).string().ends_with(u".tmp"));
  EXPECT_EQ(call(u"ReadBinaryFile", {Value(Path("a"))}).LBound(), 1);
  EXPECT_EQ(CallByName(global, u"FileName", CallKind::kGet, {Value(u"/x/y.z")}).string(), u"y.z");
  EXPECT_RAISES(call(u"ReadFile", {Value(Path("none"))}), errors::kFileNotFound);
  EXPECT_RAISES(call(u"WriteFile", {Value(Path("x"))}), errors::kArgumentNotOptional);
}

}  // namespace
}  // namespace kestrel::files
