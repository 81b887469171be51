// The profile engine on arbitrary bytes as an INI file. Every section that
// is listed, its keys and its lines must read back within the buffer
// contracts; a whole section written back unchanged must read the same;
// setting a key must make it readable and leave the list of sections as it
// was. The file lives on a memory file system when there is one, so that
// the flush of each rewrite costs nothing.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/files/profile.hpp"

using namespace kestrel::files;

namespace {

const std::string& FilePath() {
  static const std::string path = [] {
    std::filesystem::path folder = std::filesystem::exists("/dev/shm")
                                       ? std::filesystem::path("/dev/shm")
                                       : std::filesystem::temp_directory_path();
    return (folder / ("kestrel-profile-fuzz-" + std::to_string(::getpid()) + ".ini")).string();
  }();
  return path;
}

// A list read with a buffer large enough, split at its NULs.
std::vector<std::u16string> List(OptionalText section, bool whole_section) {
  std::u16string buffer(1 << 12, u' ');
  for (;;) {
    int32_t n = whole_section ? GetProfileSection(*section, buffer, FilePath())
                              : GetProfileString(section, std::nullopt, u"", buffer, FilePath());
    if (n < 0 || size_t(n) > buffer.size() - 1) std::abort();
    if (size_t(n) + 2 < buffer.size()) {
      std::vector<std::u16string> entries;
      std::u16string_view rest(buffer.data(), size_t(n));
      while (!rest.empty()) {
        size_t nul = rest.find(u'\0');
        if (nul == std::u16string_view::npos) std::abort();  // every entry ends
        // A section or key may be named "" ("[]", "=v"); a line never is.
        if (nul == 0 && whole_section) std::abort();
        entries.emplace_back(rest.substr(0, nul));
        rest.remove_prefix(nul + 1);
      }
      if (buffer[size_t(n)] != 0) std::abort();
      return entries;
    }
    buffer.assign(buffer.size() * 2, u' ');
  }
}

std::u16string Value(std::u16string_view section, std::u16string_view key) {
  std::u16string buffer(1 << 12, u' ');
  for (;;) {
    int32_t n = GetProfileString(section, key, u"\x01", buffer, FilePath());
    if (n < 0 || size_t(n) > buffer.size() - 1 || buffer[size_t(n)] != 0) std::abort();
    if (size_t(n) + 2 < buffer.size()) return buffer.substr(0, size_t(n));
    buffer.assign(buffer.size() * 2, u' ');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::ofstream(FilePath(), std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(data), std::streamsize(size));

  const std::vector<std::u16string> sections = List(std::nullopt, false);
  for (size_t i = 0; i < sections.size() && i < 8; ++i) {
    for (const std::u16string& key : List(sections[i], false)) Value(sections[i], key);
    List(sections[i], true);
  }
  // Small buffers: never a character written past the size handed over.
  for (size_t small = 0; small < 4; ++small) {
    std::vector<char16_t> buffer(small + 1, u'#');
    int32_t n = GetProfileString(std::nullopt, std::nullopt, u"", {buffer.data(), small},
                                 FilePath());
    if (buffer[small] != u'#' || n < 0 || (small < 2 && n != 0)) std::abort();
  }
  if (sections.empty()) return 0;

  const std::u16string& first = sections.front();
  const std::vector<std::u16string> lines = List(first, true);
  std::u16string text;
  for (const std::u16string& line : lines) text.append(line).push_back(u'\0');
  if (!WriteProfileSection(first, text, FilePath())) std::abort();
  if (List(first, true) != lines) std::abort();
  if (List(std::nullopt, false) != sections) std::abort();

  if (!WriteProfileString(first, u"fuzz key", u"fuzz value", FilePath())) std::abort();
  if (Value(first, u"FUZZ KEY") != u"fuzz value") std::abort();
  if (List(std::nullopt, false) != sections) std::abort();
  return 0;
}
