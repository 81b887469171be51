// What a response's bytes and status line mean as text: the charset of a
// Content-Type value, the body decoded by it, and the reason phrase.
//
// All three read text from the network, so they accept anything: no input
// makes them fail, only give "" or U+FFFD.

#include <unicode/ucnv.h>
#include <unicode/utypes.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "ascii_case.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/web/http_request.hpp"

namespace kestrel::web {
namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

using detail::EqualsNoCase;

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

// The names under which servers announce the ANSI code page. They decode
// through the runtime's table, which keeps the five bytes the code page
// leaves undefined as the controls of the same number, as the platform does.
bool IsAnsiCharset(std::string_view name) {
  static constexpr std::array<std::string_view, 4> kNames = {"windows-1252", "cp1252", "x-cp1252",
                                                             "cp-1252"};
  return std::any_of(kNames.begin(), kNames.end(),
                     [&](std::string_view n) { return EqualsNoCase(n, name); });
}

// Decodes with an ICU converter; false when ICU does not know the name.
bool DecodeWithIcu(const std::string& charset, std::string_view bytes, std::u16string& out) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(charset.c_str(), &status);
  if (U_FAILURE(status)) return false;
  // Unmappable or malformed input becomes U+FFFD (ICU's default callback).
  // Two units per byte are enough for nearly every charset; the few that
  // can give more say how many they need, and go again.
  out.resize(bytes.size() * 2 + 2);
  int32_t n = 0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    status = U_ZERO_ERROR;
    ucnv_resetToUnicode(converter);
    n = ucnv_toUChars(converter, reinterpret_cast<UChar*>(out.data()),
                      static_cast<int32_t>(out.size()), bytes.data(),
                      static_cast<int32_t>(bytes.size()), &status);
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    out.resize(static_cast<size_t>(n) + 1);
  }
  ucnv_close(converter);
  if (U_FAILURE(status)) return false;
  out.resize(static_cast<size_t>(n));
  return true;
}

// "utf-16" without a mark means little-endian on the platform, where ICU
// would read big-endian; a mark, when there is one, still decides.
std::string UnicodeByteOrder(const std::string& charset, std::string_view bytes) {
  if (!EqualsNoCase(charset, "utf-16") && !EqualsNoCase(charset, "unicode")) return charset;
  return bytes.size() >= 2 && bytes.substr(0, 2) == "\xFE\xFF" ? "UTF-16BE" : "UTF-16LE";
}

// The charset a byte-order mark announces, and the mark's length.
std::pair<const char*, size_t> CharsetOfBom(std::string_view b) {
  if (b.size() >= 3 && b.substr(0, 3) == "\xEF\xBB\xBF") return {"UTF-8", 3};
  if (b.size() >= 2 && b.substr(0, 2) == "\xFF\xFE") return {"UTF-16LE", 2};
  if (b.size() >= 2 && b.substr(0, 2) == "\xFE\xFF") return {"UTF-16BE", 2};
  return {nullptr, 0};
}

struct Phrase {
  int32_t code;
  std::string_view text;
};

constexpr std::array<Phrase, 62> kPhrases = {{
    {100, "Continue"},
    {101, "Switching Protocols"},
    {102, "Processing"},
    {103, "Early Hints"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {207, "Multi-Status"},
    {208, "Already Reported"},
    {226, "IM Used"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {418, "I'm a teapot"},
    {421, "Misdirected Request"},
    {422, "Unprocessable Content"},
    {423, "Locked"},
    {424, "Failed Dependency"},
    {425, "Too Early"},
    {426, "Upgrade Required"},
    {428, "Precondition Required"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {451, "Unavailable For Legal Reasons"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
    {506, "Variant Also Negotiates"},
    {507, "Insufficient Storage"},
    {508, "Loop Detected"},
    {510, "Not Extended"},
    {511, "Network Authentication Required"},
}};

}  // namespace

std::string CharsetOfContentType(std::string_view content_type) {
  // Parameters follow the media type, each "; name=value" with the value a
  // token or a quoted string; a ";" inside quotes belongs to the value.
  size_t i = content_type.find(';');
  while (i != std::string_view::npos && i < content_type.size()) {
    ++i;  // past ';'
    const size_t eq = content_type.find('=', i);
    const size_t semi = content_type.find(';', i);
    if (eq == std::string_view::npos) return std::string();
    if (semi != std::string_view::npos && semi < eq) {
      i = semi;  // a parameter without a value
      continue;
    }
    const std::string_view name = TrimBlanks(content_type.substr(i, eq - i));
    size_t v = eq + 1;
    while (v < content_type.size() && IsBlank(content_type[v])) ++v;
    std::string value;
    size_t next;
    if (v < content_type.size() && content_type[v] == '"') {
      size_t k = v + 1;
      for (; k < content_type.size() && content_type[k] != '"'; ++k) {
        if (content_type[k] == '\\' && k + 1 < content_type.size()) ++k;
        value.push_back(content_type[k]);
      }
      next = content_type.find(';', k);
    } else {
      next = content_type.find(';', v);
      value = std::string(TrimBlanks(content_type.substr(
          v, next == std::string_view::npos ? std::string_view::npos : next - v)));
    }
    if (EqualsNoCase(name, "charset")) return value;
    i = next;
  }
  return std::string();
}

std::u16string DecodeResponseText(std::span<const uint8_t> body, std::string_view content_type) {
  const std::string_view bytes(reinterpret_cast<const char*>(body.data()), body.size());
  const std::string charset = CharsetOfContentType(content_type);
  if (!charset.empty()) {
    if (IsAnsiCharset(charset)) return runtime::FromAnsi(bytes);
    std::u16string text;
    if (DecodeWithIcu(UnicodeByteOrder(charset, bytes), bytes, text)) {
      // A byte-order mark is not part of the text, whichever Unicode form
      // was declared.
      if (!text.empty() && text.front() == u'\uFEFF') text.erase(0, 1);
      return text;
    }
  }
  const auto [bom_charset, bom_size] = CharsetOfBom(bytes);
  if (bom_charset != nullptr) {
    std::u16string text;
    if (DecodeWithIcu(bom_charset, bytes.substr(bom_size), text)) return text;
  }
  return FromUtf8(bytes);
}

std::string_view StandardReasonPhrase(int32_t code) noexcept {
  for (const Phrase& p : kPhrases)
    if (p.code == code) return p.text;
  return {};
}

std::string ReasonPhraseOfStatusLine(std::string_view line) {
  while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.remove_suffix(1);
  if (line.size() < 5 || line.substr(0, 5) != "HTTP/") return std::string();
  const size_t space = line.find(' ');
  if (space == std::string_view::npos) return std::string();
  const std::string_view version = line.substr(5, space - 5);
  std::string_view rest = line.substr(space + 1);
  while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
  if (rest.size() < 3 ||
      !std::all_of(rest.begin(), rest.begin() + 3, [](char c) { return c >= '0' && c <= '9'; }))
    return std::string();
  const int32_t code = (rest[0] - '0') * 100 + (rest[1] - '0') * 10 + (rest[2] - '0');
  rest.remove_prefix(3);
  // HTTP/1.x: whatever follows the code and its space, spaces inside kept.
  if (!version.empty() && version[0] < '2') {
    if (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
    return std::string(rest);
  }
  return std::string(StandardReasonPhrase(code));
}

}  // namespace kestrel::web
