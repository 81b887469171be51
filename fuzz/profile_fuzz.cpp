// The profile engine on arbitrary bytes as an INI file. Every section that
// is listed, its keys and its lines must read back within the buffer
// contracts; a whole section written back unchanged must read the same;
// setting a key must make it readable and leave the list of sections as it
// was; no write may lose a byte from the first NUL on, and a new section
// goes after the file's last byte when a NUL hides the end from reads. The
// file lives on a memory file system when there is one, so that the flush
// of each rewrite costs nothing.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
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

std::string FileBytes() {
  std::ifstream in(FilePath(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Whether `name` is listed, ASCII letters matched without regard to case
// (the name probed for has no letter that a non-ASCII one folds to).
bool Listed(const std::vector<std::u16string>& names, std::u16string_view name) {
  auto fold = [](char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c; };
  for (const std::u16string& listed : names) {
    if (std::equal(listed.begin(), listed.end(), name.begin(), name.end(),
                   [&](char16_t a, char16_t b) { return fold(a) == fold(b); })) {
      return true;
    }
  }
  return false;
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
    int32_t n =
        GetProfileString(std::nullopt, std::nullopt, u"", {buffer.data(), small}, FilePath());
    if (buffer[small] != u'#' || n < 0 || (small < 2 && n != 0)) std::abort();
  }
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t nul = input.find('\0');
  const std::string_view trailer = nul == input.npos ? std::string_view() : input.substr(nul);

  if (!sections.empty()) {
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
    if (!FileBytes().ends_with(trailer)) std::abort();
  }

  constexpr std::u16string_view kNew = u"~fuzz new~";
  if (Listed(sections, kNew)) return 0;
  if (!WriteProfileString(kNew, u"fuzz key", u"v", FilePath())) std::abort();
  if (nul != input.npos) {
    if (!FileBytes().ends_with(std::string(trailer) + "\r\n[~fuzz new~]\r\nfuzz key=v\r\n")) {
      std::abort();
    }
  } else if (Value(kNew, u"fuzz key") != u"v") {
    std::abort();
  }
  return 0;
}
