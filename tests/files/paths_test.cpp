#include "kestrel/files/paths.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kestrel/frame/unicode.hpp"

namespace kestrel::files {
namespace {

struct Binary {
  std::u16string_view a, b, want;
};
struct Unary {
  std::u16string_view path, want;
};

std::string Trace(std::u16string_view a, std::u16string_view b = u"") {
  return "\"" + ToUtf8(a) + "\" \"" + ToUtf8(b) + "\"";
}

TEST(Paths, BuildPathJoinsWithExactlyOneSeparator) {
  const Binary cases[] = {
      {u"/x", u"f", u"/x/f"},     {u"/x/", u"f", u"/x/f"},
      {u"/x", u"/f", u"/x/f"},    {u"/x/", u"/f", u"/x/f"},
      {u"/x//", u"/f", u"/x//f"}, {u"", u"f", u"f"},
      {u"/x", u"", u"/x"},        {u"", u"", u""},
      {u"a", u"../b", u"a/../b"}, {u"/x", u"/abs", u"/x/abs"},
      {u"a\\b", u"c", u"a\\b/c"},
  };
  for (const Binary& c : cases) {
    SCOPED_TRACE(Trace(c.a, c.b));
    EXPECT_EQ(BuildPath(c.a, c.b), c.want);
  }
}

// clang-format off
TEST(Paths, CanonicalizePathResolvesDotsWithinTheRoot) {
  const Unary cases[] = {
      {u"/x/y/../b.txt", u"/x/b.txt"},  {u"/x/./y/./z", u"/x/y/z"},  {u"/x/y/..", u"/x"},
      {u"/x/y/.", u"/x/y"},
      {u"/x/y/../", u"/x"},    // the last component was ".."
      {u"/x/y/", u"/x/y/"},    // a trailing separator is kept
      {u"//x///y", u"/x/y"},   // runs collapse
      {u"/../../x", u"/x"},    // never above the root
      {u"a/b/../c", u"a/c"},   // relative stays relative
      {u"../a", u"a"},         // nothing to remove: dropped
      {u"a/../../b/", u"b/"},  {u"/", u"/"},
      {u"a/..", u"/"},  {u".", u"/"},  {u"", u"/"},  // an empty result is the root
      {u"/a/...", u"/a/..."},  // only "." and ".." are special
      {u"/a\\..\\b", u"/a\\..\\b"},  // "\" is a name character
  };
  for (const Unary& c : cases) {
    SCOPED_TRACE(Trace(c.path));
    EXPECT_EQ(CanonicalizePath(c.path), c.want);
  }
}

TEST(Paths, RelativePathToClimbsFromTheFolderToTheFile) {
  const Binary cases[] = {
      {u"/x", u"/x/y/f.txt", u"./y/f.txt"},      {u"/x/y", u"/x/f.txt", u"../f.txt"},
      {u"/x/y/z", u"/x/f.txt", u"../../f.txt"},
      {u"/x/y", u"/q/f.txt", u"../../q/f.txt"},  // only the root in common
      {u"/x//y/", u"/x/y//f.txt", u"./f.txt"},   // runs and trailing ignored
      {u"/", u"/f.txt", u"./f.txt"},             {u"/x", u"/x", u"./"},
      {u"/X", u"/x/f", u"../x/f"},               // case-sensitive
      {u"a/b", u"a/c/f", u"../c/f"},             {u"a", u"b/f", u""},  // relative, nothing shared
      {u"/x", u"x/f", u""},                      {u"x", u"/x/f", u""},  // absolute and relative
      {u"", u"", u""},
  };
  for (const Binary& c : cases) {
    SCOPED_TRACE(Trace(c.a, c.b));
    EXPECT_EQ(RelativePathTo(c.a, c.b), c.want);
  }
}
// clang-format on

TEST(Paths, ComponentsOfAPath) {
  const struct {
    std::u16string_view path, parent, last, base, extension;
  } cases[] = {
      {u"/a/b.txt", u"/a", u"b.txt", u"b", u"txt"},
      {u"/a/b/", u"/a", u"b", u"b", u""},
      {u"/a//b", u"/a", u"b", u"b", u""},
      {u"//a", u"/", u"a", u"a", u""},
      {u"/a", u"/", u"a", u"a", u""},
      {u"a", u"", u"a", u"a", u""},
      {u"/", u"", u"", u"", u""},
      {u"", u"", u"", u"", u""},
      {u"x/a.tar.GZ", u"x", u"a.tar.GZ", u"a.tar", u"GZ"},
      {u"/home/.profile", u"/home", u".profile", u"", u"profile"},
      {u"/a.d/b", u"/a.d", u"b", u"b", u""},  // a dot in a folder is no extension
      {u"c\\d.e", u"", u"c\\d.e", u"c\\d", u"e"},
      {u"f.", u"", u"f.", u"f", u""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Trace(c.path));
    EXPECT_EQ(ParentFolderName(c.path), c.parent);
    EXPECT_EQ(LastComponent(c.path), c.last);
    EXPECT_EQ(BaseName(c.path), c.base);
    EXPECT_EQ(ExtensionName(c.path), c.extension);
    EXPECT_EQ(IsPathRelative(c.path), !c.path.starts_with(u"/"));
  }
}

}  // namespace
}  // namespace kestrel::files
