// FileSystem: the global class of one-line file, folder and path operations
// (Kestrel.FileSystem): make and remove folders, read and write whole text
// and binary files, test, copy, move and delete files, take paths apart,
// convert between absolute and relative paths and name temporary files.
//
// It holds no state; one shared instance per thread serves clients, and any
// instance behaves the same. CreateFolder reaches its parents through the
// class's own CreateFolder, and MoveFile removes a destination with the
// class's own FileExists and DeleteFile.
//
// On Linux:
//   - The separator is "/" and "\" is an ordinary name character; the path
//     members are the functions of kestrel/files/paths.hpp. Names are
//     literal everywhere: "*" and "?" are name characters, never wildcards.
//   - Paths reach the file system as UTF-8. The path members keep every
//     character (nothing is narrowed to the 8-bit code page on the way), and
//     their 260-character buffer rules count UTF-16 code units.
//   - Text files are 8-bit Windows-1252 (a character outside it is written
//     as "?"). WriteFile and AppendFile write exactly the text, no line end.
//     ReadFile of an empty file raises 62 (input past end of file), of a
//     missing file 53, or 76 when its folder is missing too.
//   - Linux has no short names: ShortPath and LongPath give the path of an
//     existing file or folder unchanged, "" for anything else, and 260
//     spaces for an existing path of 260 characters or more.
//   - GetTempFolderName is $TMPDIR when that names a folder, else "/tmp",
//     without a trailing separator. GetTempFileName joins it with "/" and a
//     random base name "kst" + 8 lowercase hexadecimal digits; no file is
//     created.
//   - "With force" (DeleteFolder, DeleteFile) removes read-only content too:
//     a read-only folder inside is made writable so its entries can go. The
//     permissions of the folder that holds the target are never changed, so
//     a target in a read-only folder stays. Symbolic links are removed, never
//     followed.
//   - MoveFile never replaces an existing destination by itself (only its
//     Overwrite step removes one) and moves across file systems by copying
//     and then deleting the source.
//
// Failures: DeleteFolder, DeleteFile, CopyFile and MoveFile trap every
// failure, go on with their next step and return True whether or not the
// operation happened; test the outcome with FileExists or FolderExists.
// FileName and ParentFolderName never raise, and neither do the path
// members (IsPathRelative, AbsoluteFileName, RelativeFileName, ShortPath,
// LongPath). Every other member raises the runtime's file error (see
// kestrel/files/file_error.hpp): 53 file not found, 76 path not found,
// 70 permission denied, 58 file already exists, 75 path/file access error.
//
// CreateFolder creates missing parents first, stopping at the first parent
// that exists. A name whose chain of parents ends in the empty name without
// meeting an existing folder (a relative name none of whose ancestors
// exists, such as "a/b" with no "a" here, a bare name such as "a", the
// empty name, or "/") would recurse for ever; that endless recursion is
// part of the member's published behaviour, and it is reported as the
// runtime's out-of-stack-space error 28 at once instead of exhausting the
// stack. Pass such names with a leading "./" or as absolute paths.
//
//   auto& fs = kestrel::GlobalInstance<kestrel::files::FileSystem>();
//   fs.CreateFolder(u"/tmp/a/b");
//   fs.WriteFile(u"/tmp/a/b/x.txt", u"x");  // fs.ReadFile(...) == u"x"
#pragma once

#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::files {

class KESTREL_API FileSystem : public Dispatchable<FileSystem> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.FileSystem";

  // --- folders ---------------------------------------------------------------
  // Creates the folder and its missing parents; True whenever it returns.
  // A file in the way raises 58, a denied parent 70, a name whose parent
  // chain ends in the empty name 28 (see above).
  bool CreateFolder(std::u16string_view folder_name);
  // Trapped: deletes an existing folder with all its content, with force.
  // True, even when nothing could be deleted.
  bool DeleteFolder(std::u16string_view folder_name);
  // True for an existing folder (a symbolic link to one included).
  bool FolderExists(std::u16string_view folder_name);

  // --- text files ----------------------------------------------------------------
  // The whole file, line ends kept.
  std::u16string ReadFile(std::u16string_view file_name);
  // Creates or replaces the file with `text`.
  void WriteFile(std::u16string_view file_name, std::u16string_view text);
  // Adds `text` at the end, creating the file when it is missing.
  void AppendFile(std::u16string_view file_name, std::u16string_view text);

  // --- files -----------------------------------------------------------------
  // True for an existing entry that is not a folder.
  bool FileExists(std::u16string_view file_name);
  // Trapped: deletes the file (not a folder), with force. Always True.
  bool DeleteFile(std::u16string_view file_name);
  // Trapped: copies `source` to `destination`, replacing an existing
  // destination only when `overwrite`. A destination ending in "/" is the
  // folder to copy into, under the source's name. Always True.
  bool CopyFile(std::u16string_view source, std::u16string_view destination, bool overwrite = true);
  // Trapped: when `overwrite` and FileExists(destination), DeleteFile
  // (destination) first; then moves `source` there (into the folder for a
  // destination ending in "/"). Always True.
  bool MoveFile(std::u16string_view source, std::u16string_view destination, bool overwrite = true);

  // --- path pieces (never raise) ------------------------------------------------
  std::u16string FileName(std::u16string_view path);
  std::u16string ParentFolderName(std::u16string_view path);
  std::u16string BaseName(std::u16string_view path);
  std::u16string ExtensionName(std::u16string_view path);
  bool IsPathRelative(std::u16string_view path);

  // --- path conversions (never raise) -----------------------------------------
  // CanonicalizePath(BuildPath(relative_to_folder, relative_path)), even for
  // an absolute `relative_path`; "" when `relative_path` is empty or the
  // result is 260 characters or longer; cleaned with CleanupString.
  std::u16string AbsoluteFileName(std::u16string_view relative_path,
                                  std::u16string_view relative_to_folder);
  // RelativePathTo(relative_to_folder, file_name); "" when there is none or
  // it is 260 characters or longer; cleaned with CleanupString.
  std::u16string RelativeFileName(std::u16string_view file_name,
                                  std::u16string_view relative_to_folder);
  std::u16string ShortPath(std::u16string_view path);
  std::u16string LongPath(std::u16string_view path);

  // --- temporary names ---------------------------------------------------------
  // `extension` is appended verbatim: it carries its own dot.
  std::u16string GetTempFileName(std::u16string_view extension = u".tmp");
  std::u16string GetTempFolderName();

  // --- binary files --------------------------------------------------------------
  // The whole file as a Byte array with bounds 1 to its length. A missing
  // file raises 53 (76 without its folder), an empty one 9.
  Value ReadBinaryFile(const Value& file_name);
  // Deletes an existing file of that name, then writes every byte of
  // `bytes`, a Byte array of any shape (13 for any other value).
  void WriteBinaryFile(const Value& file_name, const Value& bytes);

  static const DispatchTable<FileSystem>& Dispatch();
};

}  // namespace kestrel::files
