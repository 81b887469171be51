// Header names, methods, schemes and charset names are ASCII and compared
// without regard to case, whatever the process locale says.
#pragma once

#include <algorithm>
#include <string_view>

namespace kestrel::web::detail {

inline char AsciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline bool EqualsNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return AsciiLower(x) == AsciiLower(y);
         });
}

}  // namespace kestrel::web::detail
