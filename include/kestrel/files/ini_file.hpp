// IniFile: reads and writes one INI settings file ("[Section]" headers,
// key=value lines) through the profile engine (kestrel/files/profile.hpp).
//
// The object holds only four fields (FileName, BufferSize, NoValueString,
// DefaultValue) and no copy of the file: every member goes to the file at
// once, so changes made by others between calls are seen. What the class
// adds to the engine: a read buffer that starts at BufferSize characters and
// doubles until the text fits, a sentinel default that tells a missing key
// from an empty one, array forms of reading and writing, and section
// replacement that puts the old section back when writing fails. Arrays a
// caller passes in are the caller's; the members that fill arrays (the
// by-reference KeyValueArray, keys and Values) write into the caller's own
// Values. Not thread-safe per object.
//
//   auto ini = kestrel::MakeRef<kestrel::files::IniFile>();
//   ini->SetFileName(u"/home/me/app.ini");
//   ini->SetValue(u"db", u"host", u"example.org");  // ini->GetValue(u"db", u"host")
//
// How the port maps the classic profile interface:
// - Text crosses into the engine through the fixed 8-bit code page
//   (Windows-1252): names, values and defaults go through it on the way in,
//   results on the way out, so a character outside the code page is read
//   back as "?" even though the engine itself works in UTF-16.
// - FileName is stored without surrounding spaces and used as a UTF-8 path;
//   a relative path is relative to the current folder.
// - Reads hand the engine a buffer of exactly BufferSize characters and
//   retry with twice the size while the result fills it to within two
//   characters (n + 2 >= size, which covers both ways the engine marks a cut:
//   size - 1 for a value, size - 2 for a list); a size past the 32-bit range
//   raises 6. A BufferSize of 0 could never grow and a negative one cannot
//   make a buffer: both raise 5 when a read starts. Setting BufferSize is
//   unchecked.
// - NoValueString and DefaultValue cannot be changed: their setters always
//   raise (see below) and the getters return the initial values.
// - Merge and MergeSection are stubs on purpose and must stay stubs.
//
// Optional DefaultValue parameters are Missing when omitted and then take
// the DefaultValue property (always ""); given, they are read as text.
// Errors: 9 for mismatched array bounds or a table without exactly two
// columns (raised before anything is written), 13 for a keys argument that
// is not an array, 6 when a buffer cannot double, the conversions' own
// errors (94 for a Null name or value). Writes report failure only through
// their result.
//
// Registered as Kestrel.IniFile (creatable); dispatchable with the published
// member and parameter names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::files {

class KESTREL_API IniFile : public Dispatchable<IniFile> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.IniFile";
  static constexpr int32_t kInitialBufferSize = 1024;

  IniFile();

  // --- properties -----------------------------------------------------------
  const std::u16string& FileName() const noexcept { return file_name_; }
  // Stored trimmed of surrounding spaces (tabs stay).
  void SetFileName(std::u16string_view file_name);
  int32_t BufferSize() const noexcept { return buffer_size_; }
  void SetBufferSize(int32_t buffer_size) noexcept { buffer_size_ = buffer_size; }
  // The sentinel KeyExists hands the engine as the default: one character of
  // code 1, for the life of the object.
  const std::u16string& NoValueString() const noexcept { return no_value_string_; }
  // Raises 380 for "" and 28 (out of stack space) for anything else: the
  // published setter assigns the property to itself without end, which the
  // port reports at once instead of recursing. The value stays.
  [[noreturn]] void SetNoValueString(std::u16string_view no_value_string);
  // Always "".
  const std::u16string& DefaultValue() const noexcept { return default_value_; }
  // Always raises 28, for the same reason; the value stays "".
  [[noreturn]] void SetDefaultValue(std::u16string_view default_value);

  // --- single values and sections ---------------------------------------------
  // FileSystem.FileExists(FileName): an existing file, not a folder.
  bool FileExists() const;
  // The value of the key; the default (as text) when the key or section is
  // missing.
  std::u16string GetValue(std::u16string_view section_name, std::u16string_view key_name,
                          const Value& default_value = Value::Missing());
  // Writes key=value, creating file, section and key as needed; an empty
  // value is written as "key=" (the key stays).
  bool SetValue(std::u16string_view section_name, std::u16string_view key_name,
                std::u16string_view value);
  // Every line of the section, each followed by a NUL; "" when the section
  // has none or is missing.
  std::u16string GetSection(std::u16string_view section_name);
  // Replaces the section's lines by `section_value` (entries each ended by a
  // NUL, the form GetSection returns). True, or Empty on failure.
  Value SetSection(std::u16string_view section_name, std::u16string_view section_value);
  bool SectionExists(std::u16string_view section_name);
  // Reads through a buffer of Len(NoValueString) + 2 characters, so a long
  // value is cut short there and still differs from the sentinel. A key
  // whose value is the sentinel itself reports as missing.
  bool KeyExists(std::u16string_view section_name, std::u16string_view key_name);
  // True when the section exists already; otherwise SetSection(name, "").
  Value AddSection(std::u16string_view section_name);
  bool RemoveSection(std::u16string_view section_name);
  // True, or Empty on failure.
  Value RemoveKey(std::u16string_view section_name, std::u16string_view key_name);

  // --- lists and arrays ----------------------------------------------------------
  // Key and value lists are one-dimensional arrays of Values; tables are
  // two-dimensional with exactly two columns, keys in the lower one. Rows
  // run over the first dimension's bounds, whatever they are.

  // Section names / the section's key names in file order, bounds 0 upward;
  // an array with no elements (0 to -1) when there are none.
  Value GetSections();
  Value GetKeys(std::u16string_view section_name);
  // Element i is GetValue(section, keys(i), default); same bounds as `keys`.
  Value GetValuesArray(std::u16string_view section_name, const Value& keys,
                       const Value& default_value = Value::Missing());
  // SetValue for every pair (all are attempted); the AND of the results.
  // `keys` and `values` must have the same bounds, else 9 before any write.
  bool SetValuesArray(std::u16string_view section_name, const Value& keys, const Value& values);
  // Fills the value column of the caller's table in place and returns a
  // copy of it.
  Value GetKeyValuesArray(std::u16string_view section_name, Value& key_value_array,
                          const Value& default_value = Value::Missing());
  // Writes every row whose key (Null, Empty and Missing read as "") is not
  // ""; a Null, Empty or Missing value is written as "". The AND of the
  // written rows' results (True when none is written).
  bool SetKeyValuesArray(std::u16string_view section_name, const Value& key_value_array);
  // keys = GetKeys(section), then values = GetValuesArray(section, keys,
  // default): both written into the caller's Values. Always true.
  bool GetSectionKeyValueArrays(std::u16string_view section_name, Value& keys, Value& values,
                                const Value& default_value = Value::Missing());
  // Replaces the section by the pairs: checks the shape (9, nothing changed
  // yet), removes the section and writes the pairs. When a write fails and
  // the section existed before, its old lines are written back; the result
  // is then False. An error raised while writing the pairs (a Null element,
  // say) leaves the section as far as it got.
  bool SetSectionKeyValueArrays(std::u16string_view section_name, const Value& keys,
                                const Value& values);
  // A table of the section's keys and values, rows from 0 and columns 0 and
  // 1; an empty one-dimensional array when the section has no keys.
  Value GetSectionKeyValuesArray(std::u16string_view section_name,
                                 const Value& default_value = Value::Missing());
  // As SetSectionKeyValueArrays, from a two-column table.
  bool SetSectionKeyValuesArray(std::u16string_view section_name, const Value& key_value_array);

  // --- stubs ---------------------------------------------------------------------
  // Deliberately merges nothing: sets an empty `target_file_name` to
  // FileName and returns null. Neither file is touched.
  Ref<IniFile> Merge(std::u16string_view source_file_name, bool append_source,
                     std::u16string& target_file_name);
  // Deliberately does nothing; returns "".
  std::u16string MergeSection(std::u16string_view section1, std::u16string_view section2,
                              bool append_keys = false);

  static const DispatchTable<IniFile>& Dispatch();

 private:
  using OptionalName = std::optional<std::u16string_view>;

  std::u16string DefaultText(const Value& default_value) const;
  // The read loop over GetProfileString / GetProfileSection.
  std::u16string ReadString(OptionalName section, OptionalName key,
                            std::u16string_view default_text);
  // GetSections and GetKeys: the NUL-ended names split into an array.
  Value ReadList(OptionalName section);
  bool Probe(std::u16string_view section, OptionalName key);
  std::string Path() const;

  std::u16string file_name_;
  int32_t buffer_size_ = kInitialBufferSize;
  std::u16string no_value_string_;
  std::u16string default_value_;
};

}  // namespace kestrel::files
