// The response-side text of an HTTP answer, as a server could send it: the
// first line of the input is a Content-Type value and the rest the body;
// the whole input is also read as a status line. Nothing may fail or read
// out of bounds; the charset is no longer than the value it came from, and
// a phrase is either taken from the line or a registered one (31 characters
// at most).
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/web/http_request.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t end = input.find('\n');
  const std::string_view content_type = input.substr(0, end);
  const std::string_view body =
      end == std::string_view::npos ? std::string_view() : input.substr(end + 1);

  const std::string charset = kestrel::web::CharsetOfContentType(content_type);
  if (charset.size() > content_type.size()) std::abort();

  const std::u16string text = kestrel::web::DecodeResponseText(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(body.data()), body.size()),
      content_type);
  // Charsets with escape sequences may turn bytes into no text at all, so
  // there is no bound to check; the sanitizers watch every access.
  (void)text;

  const std::string phrase = kestrel::web::ReasonPhraseOfStatusLine(input);
  if (phrase.size() > 31 && input.find(phrase) == std::string_view::npos) std::abort();
  return 0;
}
