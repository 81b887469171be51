// The in-memory form of one INI file: its lines as written (so that a
// rewrite changes only what an edit touches), classified once, plus an
// index for reads. Internal to the profile engine.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel::files::detail {

enum class LineKind : uint8_t {
  kBlank,    // blanks only (space, tab, vertical tab)
  kHeader,   // "[name]" (the "]" is optional)
  kComment,  // first non-blank character ";"
  kEntry,    // name=value
  kOther,    // text without "=": part of a section, but no key
};

enum class LineEnd : uint8_t { kNone, kCrLf, kLf, kCr };

struct ProfileLine {
  std::u16string text;  // without its line end
  LineEnd end = LineEnd::kCrLf;
  LineKind kind = LineKind::kBlank;
};

enum class ProfileEncoding : uint8_t { kAnsi, kUtf8WithMark };

// What a line says, derived from its text.
struct LineMeaning {
  LineKind kind;
  std::u16string_view name;   // header: section name; entry: key name
  std::u16string_view value;  // entry: the value, blanks and outer quotes removed
};
LineMeaning Interpret(std::u16string_view text);
LineKind Classify(std::u16string_view text);

// Without surrounding blanks (space, tab, vertical tab).
std::u16string_view TrimBlanks(std::u16string_view text);

// Case-insensitive key of a section or key name.
std::u16string FoldName(std::u16string_view name);

struct ProfileDocument {
  std::vector<ProfileLine> lines;
  ProfileEncoding encoding = ProfileEncoding::kAnsi;
  // Bytes from the first NUL on: text after it is not read as lines, but a
  // rewrite keeps it.
  std::string trailer;
  // Lines added after the trailer. A new section goes after the file's last
  // byte, even where reads stop at a NUL before it.
  std::vector<ProfileLine> after_trailer;

  static ProfileDocument Parse(std::string_view bytes);
  std::string Serialize() const;
  // Where lines added at the end of the file go.
  std::vector<ProfileLine>& End();
};

// Read-side index over a parsed document: sections in file order, the first
// section of each name, and the first entry of each key in it.
class ProfileIndex {
 public:
  struct Section {
    std::u16string name;
    uint32_t header = 0;                                     // line of the header
    uint32_t end = 0;                                        // line after the section's last line
    std::vector<uint32_t> keys;                              // entry lines in file order
    std::unordered_map<std::u16string, uint32_t> first_key;  // folded name -> line
  };

  explicit ProfileIndex(const ProfileDocument& document);

  const std::vector<Section>& sections() const noexcept { return sections_; }
  const Section* Find(std::u16string_view name) const;
  // The entry line of `key` in `section`, or -1.
  int64_t FindKey(const Section& section, std::u16string_view key) const;

 private:
  std::vector<Section> sections_;
  std::unordered_map<std::u16string, uint32_t> first_section_;  // folded name -> index
};

}  // namespace kestrel::files::detail
