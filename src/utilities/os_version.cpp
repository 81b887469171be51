// The running system's name and version on Linux: NAME and VERSION_ID from
// the os-release file, the kernel release from uname(2). This is the one
// place that knows where those come from; GetWindowsVersionString only
// joins the parts.

#include <sys/utsname.h>

#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel::utilities::detail {
namespace {

std::mutex& PathMutex() {
  static std::mutex mutex;
  return mutex;
}

std::string& PathStorage() {
  static std::string path = "/etc/os-release";
  return path;
}

// The value of one os-release assignment: shell-style, so a value may be
// double-quoted (backslash escapes the next character), single-quoted
// (taken literally) or bare (backslash escapes the next character).
std::string UnquoteValue(std::string_view raw) {
  std::string out;
  char quote = 0;
  for (size_t i = 0; i < raw.size(); ++i) {
    char c = raw[i];
    if (quote == '\'') {
      if (c == '\'')
        quote = 0;
      else
        out += c;
    } else if (c == '\\' && i + 1 < raw.size()) {
      out += raw[++i];
    } else if (quote == '"') {
      if (c == '"')
        quote = 0;
      else
        out += c;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else {
      out += c;
    }
  }
  return out;
}

std::string_view TrimBlanks(std::string_view s) {
  const char* blanks = " \t\r\n";
  size_t first = s.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  size_t last = s.find_last_not_of(blanks);
  return s.substr(first, last - first + 1);
}

struct OsRelease {
  std::optional<std::string> name;
  std::optional<std::string> version_id;
};

std::optional<OsRelease> ReadOsRelease(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  OsRelease release;
  std::string line;
  // Later assignments override earlier ones, as when the file is sourced.
  while (std::getline(in, line)) {
    std::string_view text = TrimBlanks(line);
    if (text.empty() || text.front() == '#') continue;
    size_t eq = text.find('=');
    if (eq == std::string_view::npos) continue;
    std::string_view key = text.substr(0, eq);
    if (key == "NAME") {
      release.name = UnquoteValue(text.substr(eq + 1));
    } else if (key == "VERSION_ID") {
      release.version_id = UnquoteValue(text.substr(eq + 1));
    }
  }
  if (in.bad()) return std::nullopt;
  return release;
}

}  // namespace

std::string SetOsReleasePath(std::string path) {
  std::lock_guard<std::mutex> lock(PathMutex());
  std::swap(PathStorage(), path);
  return path;
}

std::u16string OsVersionString() noexcept {
  try {
    std::string path;
    {
      std::lock_guard<std::mutex> lock(PathMutex());
      path = PathStorage();
    }
    std::optional<OsRelease> release = ReadOsRelease(path);
    if (!release || !release->name || !release->version_id) return {};
    struct utsname uts;
    if (uname(&uts) != 0) return {};
    return FromUtf8(*release->name + " " + *release->version_id + "." + uts.release);
  } catch (...) {
    // Allocation failure while reading: the version is simply unknown.
    return {};
  }
}

}  // namespace kestrel::utilities::detail
