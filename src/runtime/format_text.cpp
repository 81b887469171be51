// Text patterns: character placeholders, case and fill direction.
//
// Placeholders take the text's characters from the right by default, as
// digit placeholders take digits, so the characters left over go in front
// of the first placeholder; "!" fills from the left and leaves them after
// the last one. With no placeholder at all the whole text stands where the
// left-overs would (first, or last with "!").
#include <string>
#include <string_view>
#include <vector>

#include "detail/format.hpp"
#include "kestrel/runtime/strings.hpp"

namespace kestrel::runtime::detail {

std::u16string FormatTextPattern(std::u16string_view text, bool is_null,
                                 std::u16string_view pattern) {
  const std::vector<std::u16string_view> sections = SplitSections(pattern, 2);
  std::u16string_view section = sections[0];
  if (is_null || text.empty()) {
    if (sections.size() == 2 && !sections[1].empty()) {
      section = sections[1];
    } else if (is_null) {
      return {};
    }
  }

  size_t placeholders = 0;
  bool left_to_right = false;
  char16_t case_mark = 0;  // the last of "<" and ">"
  for (size_t i = 0; i < section.size();) {
    if (const size_t n = LiteralAt(section, i, nullptr)) {
      i += n;
      continue;
    }
    const char16_t c = section[i++];
    if (c == u'@' || c == u'&') {
      ++placeholders;
    } else if (c == u'!') {
      left_to_right = true;
    } else if (c == u'<' || c == u'>') {
      case_mark = c;
    }
  }
  std::u16string chars;
  if (case_mark == u'<') {
    chars = LCase(text);
  } else if (case_mark == u'>') {
    chars = UCase(text);
  } else {
    chars.assign(text);
  }
  const size_t count = chars.size();
  // Left-overs: the characters no placeholder takes.
  const std::u16string_view left_over =
      count <= placeholders ? std::u16string_view()
      : left_to_right       ? std::u16string_view(chars).substr(placeholders)
                            : std::u16string_view(chars).substr(0, count - placeholders);

  std::u16string out;
  if (placeholders == 0 && !left_to_right) out.append(left_over);
  size_t index = 0;
  for (size_t i = 0; i < section.size();) {
    if (const size_t n = LiteralAt(section, i, &out)) {
      i += n;
      continue;
    }
    const char16_t c = section[i++];
    if (c == u'@' || c == u'&') {
      const size_t j = index++;
      if (!left_to_right && j == 0) out.append(left_over);
      // From the right, placeholder j takes character count - placeholders + j.
      const bool has_char = left_to_right ? j < count : count + j >= placeholders;
      if (has_char) {
        out += chars[left_to_right ? j : count + j - placeholders];
      } else if (c == u'@') {
        out += u' ';
      }
      if (left_to_right && index == placeholders) out.append(left_over);
    } else if (c != u'!' && c != u'<' && c != u'>') {
      out += c;
    }
  }
  if (placeholders == 0 && left_to_right) out.append(left_over);
  return out;
}

}  // namespace kestrel::runtime::detail
