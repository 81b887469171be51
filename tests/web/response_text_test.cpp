#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/web/http_request.hpp"

namespace kestrel::web {
namespace {

std::u16string Decode(std::string_view bytes, std::string_view content_type) {
  return DecodeResponseText(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
      content_type);
}

TEST(ResponseText, CharsetOfContentType) {
  struct Row {
    std::string_view content_type, charset;
  };
  static constexpr Row kRows[] = {
      {"text/html; charset=UTF-8", "UTF-8"},
      {"text/html;charset=\"ISO-8859-2\"", "ISO-8859-2"},
      {"text/plain; format=flowed; CHARSET = koi8-r ", "koi8-r"},
      // A ";" inside a quoted value does not start a parameter.
      {"multipart/mixed; boundary=\"a;charset=x\"; charset=utf-8", "utf-8"},
      {"text/plain; flag; charset=utf-16", "utf-16"},
      {"text/plain", ""},
      {"text/plain; charset", ""},
      {"", ""},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.content_type);
    EXPECT_EQ(CharsetOfContentType(row.content_type), row.charset);
  }
}

TEST(ResponseText, DecodesByCharsetThenMarkThenUtf8) {
  struct Row {
    std::string_view bytes, content_type;
    std::u16string_view text;
  };
  static constexpr Row kRows[] = {
      // The ANSI code page keeps its five undefined bytes as C1 controls.
      {"\x80\x81\x8D\x8F\x90\x9D\xE9", "text/plain; charset=windows-1252",
       u"\u20AC\u0081\u008D\u008F\u0090\u009D\u00E9"},
      {"\x80\xE9", "text/plain; charset=CP1252", u"\u20AC\u00E9"},
      {"\x80\xE9", "text/plain; charset=iso-8859-1", u"\u0080\u00E9"},
      // A declared Unicode form drops its byte-order mark.
      {"\xEF\xBB\xBFok", "text/plain; charset=utf-8", u"ok"},
      {std::string_view("\xFF\xFEo\0k\0", 6), "text/plain; charset=utf-16", u"ok"},
      // Declared UTF-16 without a mark is little-endian.
      {std::string_view("o\0k\0", 4), "text/plain; charset=UTF-16", u"ok"},
      {std::string_view("\xFE\xFF\0o\0k", 6), "text/plain; charset=utf-16", u"ok"},
      // No charset, or one nobody knows: the mark decides, else UTF-8.
      {std::string_view("\xFF\xFEo\0k\0", 6), "text/plain; charset=no-such-set", u"ok"},
      {"\xEF\xBB\xBF\xC3\xA9", "", u"\u00E9"},
      {"\xC3\xA9\xF0\x9F\x98\x80", "text/plain", u"\u00E9\U0001F600"},
      {"a\xFF"
       "b\xE2\x82",
       "text/plain", u"a\uFFFDb\uFFFD"},
      {"", "text/plain; charset=utf-16", u""},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.content_type);
    EXPECT_EQ(Decode(row.bytes, row.content_type), row.text);
  }
}

TEST(ResponseText, ReasonPhraseOfStatusLine) {
  struct Row {
    std::string_view line, phrase;
  };
  static constexpr Row kRows[] = {
      {"HTTP/1.1 404 Not Found\r\n", "Not Found"},
      {"HTTP/1.0 200 All  good here\r\n", "All  good here"},
      {"HTTP/1.1 200\r\n", ""},
      // HTTP/2 has no reason phrase: the standard one stands in.
      {"HTTP/2 500 \r\n", "Internal Server Error"},
      {"HTTP/3 303\r\n", "See Other"},
      {"HTTP/2 299\r\n", ""},
      {"HTTP/1.1 4x4 Nope\r\n", ""},
      {"Content-Type: text/plain\r\n", ""},
      {"HTTP/", ""},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(ReasonPhraseOfStatusLine(row.line), row.phrase);
  }
}

}  // namespace
}  // namespace kestrel::web
