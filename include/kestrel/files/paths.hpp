// Paths: Kestrel's own path functions over "/" paths. They work on the text
// alone and never touch the file system, so they neither fail nor depend on
// what exists; FileSystem's path members are built on them.
//
// The separator is "/". "\" is an ordinary name character, as it is in
// Linux file names. A path that starts with "/" is absolute, any other
// (the empty one included) is relative. Runs of separators count as one.
// Names compare case-sensitively. Every function is pure and thread-safe.
//
//   using namespace kestrel::files;
//   CanonicalizePath(BuildPath(u"/x/y", u"../b.txt"));  // u"/x/b.txt"
//   RelativePathTo(u"/x", u"/x/y/f.txt");               // u"./y/f.txt"
#pragma once

#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel::files {

// `folder` and `name` joined by one separator: one is added when neither
// side has one at the seam, and when both have one, one is dropped. If
// either side is empty the other is returned as it is. Nothing else is
// changed: BuildPath(u"a/", u"../b") is u"a/../b".
KESTREL_API std::u16string BuildPath(std::u16string_view folder, std::u16string_view name);

// `path` with "." and ".." components resolved. Each ".." removes the
// component before it; it never climbs above the root, and a ".." that has
// nothing left to remove in a relative path is dropped, so a relative path
// stays relative ("../a" gives "a"). Runs of separators collapse to one. A
// trailing separator is kept unless the last component was "." or "..".
// An empty path, or an empty result, gives "/".
KESTREL_API std::u16string CanonicalizePath(std::u16string_view path);

// The path that leads from the folder `folder` to the file `file`: one
// "../" per folder component below the part both share, then the rest of
// the file's path; "./" instead when the file lies in or below the folder
// ("/x", "/x/y/f.txt" gives "./y/f.txt"; "/x/y", "/x/f.txt" gives
// "../f.txt"). Components are compared literally; "." and ".." are not
// resolved first. "" when there is no such path: one side absolute and the
// other relative, or both relative without a common first component.
KESTREL_API std::u16string RelativePathTo(std::u16string_view folder, std::u16string_view file);

// The path less its last component, trailing separators ignored and without
// a trailing separator of its own, except that the root stays "/": "/a/b/"
// gives "/a", "/a" gives "/", and a single component ("a", "/", "") gives "".
KESTREL_API std::u16string ParentFolderName(std::u16string_view path);

// The last component, trailing separators ignored: "/a/b.txt/" gives
// "b.txt"; "/" and "" give "".
KESTREL_API std::u16string LastComponent(std::u16string_view path);

// The last component less its last extension: "a.tar.gz" gives "a.tar",
// "README" stays "README", and a dot-file such as ".profile" gives "".
KESTREL_API std::u16string BaseName(std::u16string_view path);

// The last extension of the last component, without the dot and with its
// case kept: "a.tar.GZ" gives "GZ"; "" when the last component has no dot.
KESTREL_API std::u16string ExtensionName(std::u16string_view path);

// True unless the path starts with "/".
KESTREL_API bool IsPathRelative(std::u16string_view path) noexcept;

}  // namespace kestrel::files
