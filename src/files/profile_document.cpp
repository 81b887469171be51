#include "profile_document.hpp"

#include <unicode/uchar.h>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/encoding.hpp"

namespace kestrel::files::detail {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// Vertical tab counts as a blank, as space and tab do.
bool IsBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\v';
}

// One matching pair of outer quotes goes; crossed or unmatched quotes are
// part of the value.
std::u16string_view Unquote(std::u16string_view value) {
  if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
      value.back() == value.front()) {
    return value.substr(1, value.size() - 2);
  }
  return value;
}

std::string_view LineEndBytes(LineEnd end) {
  switch (end) {
    case LineEnd::kCrLf:
      return "\r\n";
    case LineEnd::kLf:
      return "\n";
    case LineEnd::kCr:
      return "\r";
    case LineEnd::kNone:
      break;
  }
  return {};
}

// Every line ends, so that a file without a final line end gets one when
// rewritten; only `open_end` lets the last line stay as it was (text cut by
// a NUL is not the end of the file).
void SerializeLines(const std::vector<ProfileLine>& lines, ProfileEncoding encoding, bool open_end,
                    std::string& bytes) {
  for (const ProfileLine& line : lines) {
    bytes += encoding == ProfileEncoding::kAnsi ? runtime::ToAnsi(line.text) : ToUtf8(line.text);
    const bool last = &line == &lines.back();
    bytes.append(line.end == LineEnd::kNone && !(last && open_end) ? LineEndBytes(LineEnd::kCrLf)
                                                                   : LineEndBytes(line.end));
  }
}

}  // namespace

std::u16string_view TrimBlanks(std::u16string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

LineMeaning Interpret(std::u16string_view text) {
  std::u16string_view rest = text;
  while (!rest.empty() && IsBlank(rest.front())) rest.remove_prefix(1);
  if (rest.empty()) return {LineKind::kBlank, {}, {}};
  if (rest.front() == u'[') {
    std::u16string_view name = rest.substr(1);
    name = name.substr(0, name.find(u']'));  // text after "]" is ignored
    return {LineKind::kHeader, TrimBlanks(name), {}};
  }
  if (rest.front() == u';') return {LineKind::kComment, {}, {}};
  size_t equals = rest.find(u'=');
  if (equals == std::u16string_view::npos) return {LineKind::kOther, {}, {}};
  return {LineKind::kEntry, TrimBlanks(rest.substr(0, equals)),
          Unquote(TrimBlanks(rest.substr(equals + 1)))};
}

LineKind Classify(std::u16string_view text) {
  return Interpret(text).kind;
}

std::u16string FoldName(std::u16string_view name) {
  std::u16string folded(name);
  // Unit by unit: names come from an 8-bit code page, all in the BMP. Most
  // are ASCII, folded without the table lookup.
  for (char16_t& unit : folded) {
    if (unit < 0x80) {
      if (unit >= u'A' && unit <= u'Z') unit = char16_t(unit + (u'a' - u'A'));
    } else {
      unit = char16_t(u_foldCase(unit, U_FOLD_CASE_DEFAULT));
    }
  }
  return folded;
}

ProfileDocument ProfileDocument::Parse(std::string_view bytes) {
  ProfileDocument document;
  if (bytes.starts_with(kUtf8Mark)) {
    document.encoding = ProfileEncoding::kUtf8WithMark;
    bytes.remove_prefix(kUtf8Mark.size());
  }
  if (size_t nul = bytes.find('\0'); nul != std::string_view::npos) {
    document.trailer.assign(bytes.substr(nul));
    bytes = bytes.substr(0, nul);
  }
  const std::u16string text =
      document.encoding == ProfileEncoding::kAnsi ? runtime::FromAnsi(bytes) : FromUtf8(bytes);

  std::u16string_view rest = text;
  while (!rest.empty()) {
    size_t stop = 0;
    while (stop < rest.size() && rest[stop] != u'\r' && rest[stop] != u'\n') ++stop;
    if (stop == rest.size()) stop = std::u16string_view::npos;
    ProfileLine line;
    line.text.assign(rest.substr(0, stop));
    line.kind = Classify(line.text);
    if (stop == std::u16string_view::npos) {
      line.end = LineEnd::kNone;
      rest = {};
    } else if (rest[stop] == u'\r' && stop + 1 < rest.size() && rest[stop + 1] == u'\n') {
      line.end = LineEnd::kCrLf;
      rest.remove_prefix(stop + 2);
    } else {
      line.end = rest[stop] == u'\r' ? LineEnd::kCr : LineEnd::kLf;
      rest.remove_prefix(stop + 1);
    }
    document.lines.push_back(std::move(line));
  }
  return document;
}

std::string ProfileDocument::Serialize() const {
  std::string bytes;
  if (encoding == ProfileEncoding::kUtf8WithMark) bytes.append(kUtf8Mark);
  SerializeLines(lines, encoding, !trailer.empty(), bytes);
  bytes += trailer;
  // The trailer's last line may be unfinished: the added lines start a new one.
  if (!after_trailer.empty()) bytes.append(LineEndBytes(LineEnd::kCrLf));
  SerializeLines(after_trailer, encoding, false, bytes);
  return bytes;
}

std::vector<ProfileLine>& ProfileDocument::End() {
  return trailer.empty() ? lines : after_trailer;
}

ProfileIndex::ProfileIndex(const ProfileDocument& document) {
  Section* current = nullptr;
  for (uint32_t i = 0; i < document.lines.size(); ++i) {
    const ProfileLine& line = document.lines[i];
    if (line.kind == LineKind::kHeader) {
      if (current != nullptr) current->end = i;
      Section section;
      section.name = Interpret(line.text).name;
      section.header = i;
      sections_.push_back(std::move(section));
      current = &sections_.back();
      // The first section of a name wins; a repeated header is never searched.
      first_section_.try_emplace(FoldName(current->name), uint32_t(sections_.size() - 1));
    } else if (line.kind == LineKind::kEntry && current != nullptr) {
      current->keys.push_back(i);
      current->first_key.try_emplace(FoldName(Interpret(line.text).name), i);
    }
  }
  if (current != nullptr) current->end = uint32_t(document.lines.size());
}

const ProfileIndex::Section* ProfileIndex::Find(std::u16string_view name) const {
  auto it = first_section_.find(FoldName(name));
  return it == first_section_.end() ? nullptr : &sections_[it->second];
}

int64_t ProfileIndex::FindKey(const Section& section, std::u16string_view key) const {
  auto it = section.first_key.find(FoldName(key));
  return it == section.first_key.end() ? -1 : int64_t(it->second);
}

}  // namespace kestrel::files::detail
