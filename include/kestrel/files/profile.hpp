// The profile engine: reading and writing INI files ("[Section]" headers,
// key=value lines) through four operations with the contracts of the
// classic profile interface, including its buffer-size rules, so that code
// written against that interface (growing buffers, sentinels) runs as is.
//
// Reading rules:
// - Section and key names match without regard to case; the first matching
//   section and the first matching key in it count. Name arguments lose
//   surrounding spaces (not tabs).
// - In the file, blanks are space, tab and vertical tab: they are ignored
//   around key names, inside the brackets of a header and before its "[".
// - A value loses surrounding blanks, then one matching pair of outer
//   quotes (single or double). A default loses trailing spaces.
// - A line whose first non-blank character is ";" is a comment. Lines
//   before the first header belong to no section. Reads stop at the first
//   NUL byte of the file.
// - Lists (an absent section name: all section names; an absent key name:
//   the keys of a section; GetProfileSection: every non-blank line of a
//   section) put a NUL after each entry and one more at the end. The count
//   returned excludes that last NUL. An empty list (no sections, a section
//   without keys) is that one NUL and returns 0; the keys of a missing
//   section are the default, as a missing key's value is.
//
// Buffer contracts (`buffer.size()` is the size handed over):
// - below 2: nothing fits; 0 is returned;
// - a single value or default cut short: size - 1 characters and a NUL,
//   returns size - 1;
// - a list cut short, or one that would need the whole buffer: the first
//   size - 2 characters and two NULs, returns size - 2.
//
// Writing: a write rewrites the whole file through ReplaceFileContent (see
// atomic_write.hpp). Usually that is atomic: a temporary file in the same
// folder, flushed to disk, renamed over the original, so a crash or a full
// disk leaves the old file or the new one. A file with other hard links,
// one in a folder the caller may not create files in, or one whose owner
// the caller could not give a new file is rewritten in place instead,
// which keeps its links, owner and mode but is NOT atomic: a failure midway
// can leave it torn. A file the caller may not write is never replaced: the
// write returns false. A failed write returns false.
// New files are "[Section]\r\nkey=value\r\n"; existing lines keep their
// text and line ends; a missing final line end is added. In a file with a
// NUL byte, writes keep every byte from the NUL on; a new section goes
// after the file's last byte, after a CR LF, where reads do not see it.
//
// Files are Windows-1252 text. A file that starts with a UTF-8 byte-order
// mark (written by another tool) is read as UTF-8 and written back as UTF-8
// with the mark. Paths are file-system paths (UTF-8); a relative path is
// relative to the current folder.
//
// Reads keep a parsed copy of a file only while its identity (device and
// inode), size and modification time are unchanged, and only once the
// modification time lies in a past clock tick, so any change made between
// two calls, by this process or another, is seen. The copies are shared by
// all threads under a lock; the functions are thread-safe.
//
//   char16_t buffer[64];
//   int32_t n = kestrel::files::GetProfileString(u"db", u"host", u"localhost",
//                                               buffer, "/etc/app.ini");
//   std::u16string_view host(buffer, n);
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel::files {

// A name or text that may be absent (the classic interface's null pointer).
using OptionalText = std::optional<std::u16string_view>;

// The value of `key` in `section`, or `default_text` when either is missing.
// An absent `key` lists the section's keys (the default when the section is
// missing); an absent `section` lists all section names.
KESTREL_API int32_t GetProfileString(OptionalText section, OptionalText key,
                                     std::u16string_view default_text, std::span<char16_t> buffer,
                                     const std::string& path);

// Every non-blank line of `section`, each followed by a NUL.
KESTREL_API int32_t GetProfileSection(std::u16string_view section, std::span<char16_t> buffer,
                                      const std::string& path);

// Writes key=value (creating the file, section and key as needed); an
// absent `value` deletes the key, an absent `key` deletes the section with
// its keys (comment lines inside it stay). Deleting from a missing file
// succeeds and leaves an empty file.
KESTREL_API bool WriteProfileString(std::u16string_view section, OptionalText key,
                                    OptionalText value, const std::string& path);

// Replaces the lines of `section` by the NUL-separated entries of `text`
// (the form GetProfileSection returns; an empty entry ends the list), or
// appends the section when it is missing. An absent `text` deletes the
// section.
KESTREL_API bool WriteProfileSection(std::u16string_view section, OptionalText text,
                                     const std::string& path);

// Whether reads may keep parsed copies (on by default). Off, every read
// parses the file afresh: the benchmarks compare the two.
KESTREL_API void SetProfileCopiesEnabled(bool enabled) noexcept;

}  // namespace kestrel::files
