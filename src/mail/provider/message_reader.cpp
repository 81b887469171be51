#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "provider.hpp"

namespace kestrel::mapi {
namespace {

// The records' strings are Windows-1252; everything leaves as UTF-8.
std::string Text(const char* ansi) {
  if (ansi == nullptr) return {};
  return ToUtf8(runtime::FromAnsi(ansi));
}

// Display names and the subject go into header lines: a line break there
// would start a header of the caller's choosing, so breaks become spaces.
std::string OneLine(std::string text) {
  for (char& c : text)
    if (c == '\r' || c == '\n') c = ' ';
  return text;
}

std::string LastComponent(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Reads a whole regular file: 11 when it is not there, 12 when it cannot
// be read (a folder, no permission, a read error).
ULONG ReadFile(const std::string& path, std::string& out) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0)
    return errno == EACCES ? MAPI_E_ATTACHMENT_OPEN_FAILURE : MAPI_E_ATTACHMENT_NOT_FOUND;
  if (!S_ISREG(st.st_mode)) return MAPI_E_ATTACHMENT_OPEN_FAILURE;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return MAPI_E_ATTACHMENT_OPEN_FAILURE;
  out.clear();
  out.reserve(static_cast<size_t>(st.st_size));
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return MAPI_E_ATTACHMENT_OPEN_FAILURE;
    }
    out.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  return SUCCESS_SUCCESS;
}

// A recipient's address; Simple MAPI resolves a display name when there is
// no address, and the only names this provider can resolve are addresses.
std::optional<std::string> AddressOf(const MapiRecipDesc& r) {
  if (r.lpszAddress != nullptr && *r.lpszAddress != '\0') return ParseAddress(r.lpszAddress);
  return ParseAddress(r.lpszName);
}

}  // namespace

std::optional<std::string> ParseAddress(const char* text) {
  if (text == nullptr) return std::nullopt;
  std::string_view a(text);
  if (a.size() >= 5 && ::strncasecmp(a.data(), "SMTP:", 5) == 0) a.remove_prefix(5);
  const size_t at = a.rfind('@');
  if (at == std::string_view::npos || at == 0 || at + 1 == a.size()) return std::nullopt;
  for (const char c : a) {
    const auto u = static_cast<unsigned char>(c);
    // Controls (line breaks above all), blanks and the characters that
    // delimit addresses in headers and SMTP commands.
    if (u <= 0x20 || u == 0x7F || std::strchr("<>()[],;:\"\\", c) != nullptr) return std::nullopt;
  }
  return ToUtf8(runtime::FromAnsi(a));
}

ULONG ReadMessage(const MapiMessage& message, bool read_content, Outgoing& out) {
  out = Outgoing{};
  out.subject = OneLine(Text(message.lpszSubject));
  out.body = Text(message.lpszNoteText);
  if (const MapiRecipDesc* o = message.lpOriginator; o != nullptr) {
    const bool named = o->lpszAddress != nullptr && *o->lpszAddress != '\0';
    if (named) {
      const auto address = ParseAddress(o->lpszAddress);
      if (!address) return MAPI_E_UNKNOWN_RECIPIENT;
      out.originator = Address{OneLine(Text(o->lpszName)), *address};
    }
  }
  if (message.nRecipCount > 0 && message.lpRecips == nullptr) return MAPI_E_INVALID_RECIPS;
  for (ULONG i = 0; i < message.nRecipCount; ++i) {
    const MapiRecipDesc& r = message.lpRecips[i];
    std::vector<Address>* list = nullptr;
    switch (r.ulRecipClass) {
      case MAPI_TO:
        list = &out.to;
        break;
      case MAPI_CC:
        list = &out.cc;
        break;
      case MAPI_BCC:
        list = &out.bcc;
        break;
      default:
        return MAPI_E_BAD_RECIPTYPE;
    }
    const auto address = AddressOf(r);
    if (!address) return MAPI_E_UNKNOWN_RECIPIENT;
    const bool name_is_address = r.lpszAddress == nullptr || *r.lpszAddress == '\0';
    list->push_back(Address{name_is_address ? std::string() : OneLine(Text(r.lpszName)), *address});
  }
  if (message.nFileCount > 0 && message.lpFiles == nullptr) return MAPI_E_ATTACHMENT_NOT_FOUND;
  for (ULONG i = 0; i < message.nFileCount; ++i) {
    const MapiFileDesc& f = message.lpFiles[i];
    File file;
    file.path = Text(f.lpszPathName);
    if (file.path.empty()) return MAPI_E_ATTACHMENT_NOT_FOUND;
    file.name = OneLine(Text(f.lpszFileName));
    if (file.name.empty()) file.name = LastComponent(file.path);
    file.content_type = ContentTypeFor(file.name);
    if (read_content) {
      if (const ULONG rc = ReadFile(file.path, file.content); rc != SUCCESS_SUCCESS) return rc;
    } else {
      struct stat st {};
      if (::stat(file.path.c_str(), &st) != 0) return MAPI_E_ATTACHMENT_NOT_FOUND;
      if (!S_ISREG(st.st_mode)) return MAPI_E_ATTACHMENT_OPEN_FAILURE;
    }
    out.files.push_back(std::move(file));
  }
  return SUCCESS_SUCCESS;
}

}  // namespace kestrel::mapi
