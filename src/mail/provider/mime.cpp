#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "provider.hpp"

namespace kestrel::mapi {
namespace {

bool NeedsEncoding(std::string_view text) {
  if (text.find("=?") != std::string_view::npos) return true;
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u >= 0x7F) return true;
  }
  return false;
}

std::string RfcParameter(const std::string& name) {
  // RFC 2231: UTF-8'' followed by the name percent-encoded.
  std::string out = "UTF-8''";
  for (const char c : name) {
    const auto u = static_cast<unsigned char>(c);
    if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') ||
        std::strchr("!#$&+-.^_`|~", c) != nullptr) {
      out += c;
    } else {
      static constexpr char kHex[] = "0123456789ABCDEF";
      out += '%';
      out += kHex[u >> 4];
      out += kHex[u & 15];
    }
  }
  return out;
}

std::string DateHeaderValue() {
  // Written by hand: strftime would follow the process locale's day and
  // month names, and the header needs the English ones.
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  ::localtime_r(&now, &tm);
  const long offset = tm.tm_gmtoff / 60;
  const long magnitude = offset < 0 ? -offset : offset;
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d %c%02ld%02ld",
                kDays[tm.tm_wday], tm.tm_mday, kMonths[tm.tm_mon], tm.tm_year + 1900, tm.tm_hour,
                tm.tm_min, tm.tm_sec, offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
  return text;
}

std::string NewMessageId(const std::string& from_address) {
  std::random_device random;
  char id[48];
  std::snprintf(id, sizeof id, "%08x%08x.%lx", random(), random(),
                static_cast<unsigned long>(std::time(nullptr)));
  const size_t at = from_address.rfind('@');
  const std::string domain = at == std::string::npos ? "localhost" : from_address.substr(at + 1);
  return "<" + std::string(id) + "@" + domain + ">";
}

// One address per folded line, so that a long list keeps every line short.
std::string AddressHeader(const char* name, const std::vector<Address>& list) {
  std::string line = name;
  line += ": ";
  for (size_t i = 0; i < list.size(); ++i) {
    if (i > 0) line += ",\r\n ";
    line += FormatMailbox(list[i]);
  }
  return line;
}

}  // namespace

std::string Base64(std::string_view bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const uint32_t v = uint32_t(uint8_t(bytes[i])) << 16 | uint32_t(uint8_t(bytes[i + 1])) << 8 |
                       uint8_t(bytes[i + 2]);
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += kDigits[(v >> 6) & 63];
    out += kDigits[v & 63];
  }
  if (i < bytes.size()) {
    uint32_t v = uint32_t(uint8_t(bytes[i])) << 16;
    if (i + 1 < bytes.size()) v |= uint32_t(uint8_t(bytes[i + 1])) << 8;
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

bool IsPlainFileName(const std::string& name) {
  for (const char c : name) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u >= 0x7F || c == '"' || c == '\\') return false;
  }
  return true;
}

std::string DispositionHeader(const std::string& file_name) {
  if (IsPlainFileName(file_name))
    return "Content-Disposition: attachment; filename=\"" + file_name + "\"";
  return "Content-Disposition: attachment; filename*=" + RfcParameter(file_name);
}

std::string EncodeHeaderText(const std::string& utf8) {
  if (!NeedsEncoding(utf8)) return utf8;
  // Encoded words of at most 45 bytes of text (60 base64 digits, 72 with
  // the frame), each cut between two characters, one per folded line.
  std::string out;
  size_t start = 0;
  while (start < utf8.size()) {
    size_t end = std::min(utf8.size(), start + 45);
    while (end < utf8.size() && end > start + 1 && (uint8_t(utf8[end]) & 0xC0) == 0x80) --end;
    if (!out.empty()) out += "\r\n ";
    out += "=?UTF-8?B?" + Base64(std::string_view(utf8).substr(start, end - start)) + "?=";
    start = end;
  }
  return out;
}

std::string FormatMailbox(const Address& a) {
  if (a.name.empty()) return "<" + a.address + ">";
  if (NeedsEncoding(a.name)) return EncodeHeaderText(a.name) + " <" + a.address + ">";
  std::string quoted = "\"";
  for (const char c : a.name) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\" <" + a.address + ">";
}

std::vector<std::string> HeaderLines(const Outgoing& m, const Address& sender, bool with_bcc) {
  std::vector<std::string> lines;
  lines.push_back("From: " + FormatMailbox(sender));
  if (!m.to.empty()) lines.push_back(AddressHeader("To", m.to));
  if (!m.cc.empty()) lines.push_back(AddressHeader("Cc", m.cc));
  if (with_bcc && !m.bcc.empty()) lines.push_back(AddressHeader("Bcc", m.bcc));
  if (!m.subject.empty()) lines.push_back("Subject: " + EncodeHeaderText(m.subject));
  lines.push_back("Date: " + DateHeaderValue());
  lines.push_back("Message-ID: " + NewMessageId(sender.address));
  return lines;
}

std::string ContentTypeFor(const std::string& file_name) {
  static constexpr std::array<std::pair<const char*, const char*>, 28> kTypes{{
      {"txt", "text/plain"},
      {"log", "text/plain"},
      {"csv", "text/csv"},
      {"htm", "text/html"},
      {"html", "text/html"},
      {"xml", "application/xml"},
      {"json", "application/json"},
      {"ini", "text/plain"},
      {"pdf", "application/pdf"},
      {"zip", "application/zip"},
      {"gz", "application/gzip"},
      {"png", "image/png"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"gif", "image/gif"},
      {"bmp", "image/bmp"},
      {"svg", "image/svg+xml"},
      {"rtf", "application/rtf"},
      {"doc", "application/msword"},
      {"xls", "application/vnd.ms-excel"},
      {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
      {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {"odt", "application/vnd.oasis.opendocument.text"},
      {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
      {"mp3", "audio/mpeg"},
      {"wav", "audio/wav"},
      {"mp4", "video/mp4"},
      {"ics", "text/calendar"},
  }};
  const size_t dot = file_name.find_last_of('.');
  if (dot != std::string::npos && dot + 1 < file_name.size()) {
    const std::string ext = file_name.substr(dot + 1);
    for (const auto& [e, type] : kTypes)
      if (::strcasecmp(e, ext.c_str()) == 0) return type;
  }
  return "application/octet-stream";
}

Address SenderOf(const Outgoing& m, const Config& config) {
  if (m.originator) return *m.originator;
  if (!config.from.empty()) {
    // "Name <address>" or a bare address.
    const size_t open = config.from.find('<');
    const size_t close = config.from.rfind('>');
    if (open != std::string::npos && close != std::string::npos && close > open) {
      std::string name = config.from.substr(0, open);
      while (!name.empty() && (name.back() == ' ' || name.back() == '"')) name.pop_back();
      while (!name.empty() && (name.front() == ' ' || name.front() == '"')) name.erase(0, 1);
      return Address{name, config.from.substr(open + 1, close - open - 1)};
    }
    return Address{"", config.from};
  }
  // As the local mail tools do: the login name at this host.
  std::string user = "nobody";
  if (const passwd* pw = ::getpwuid(::getuid()); pw != nullptr && pw->pw_name) user = pw->pw_name;
  char host[256] = "localhost";
  ::gethostname(host, sizeof host - 1);
  return Address{"", user + "@" + host};
}

}  // namespace kestrel::mapi
