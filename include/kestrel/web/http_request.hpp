// HttpRequest: the synchronous HTTP request object that WEB and
// MultiformPost drive, and the text rules its response follows.
//
// The web classes need six operations of a request object: open with a
// method, a URL and a synchronous flag; set a request header; send with an
// optional body; read the status code, the status text and the response
// decoded to text. HttpRequest is that seam, with SetTimeouts as well.
// NewHttpRequest() hands out the Linux implementation (libcurl's easy
// interface, one handle per request); SetHttpRequestFactory replaces it,
// for tests that inject failures or clients that bring their own transport.
//
// The Linux request:
//   - follows up to 10 redirects, turning a POST into a GET on 301, 302 and
//     303, never from https to http; speaks http and https only, verifying servers against the
//     system's certificate store; takes proxies from the usual environment
//     variables (http_proxy, https_proxy, no_proxy, ...);
//   - limits waiting as SetTimeouts says, in milliseconds (0: no limit):
//     connecting 60000, sending 30000 and receiving 30000 by default. A
//     send or receive limit is the longest stall between two pieces of
//     progress, checked about once a second; libcurl has no separate limit
//     for name resolution, which counts against the connect limit instead;
//   - sends the body straight from the caller's bytes, which must stay alive
//     until Send returns; a Content-Length header set by the caller is not
//     passed on, as the length always comes from the body itself;
//   - StatusText is the reason phrase of the final status line, or the
//     standard phrase for the code under HTTP/2, which carries none;
//   - ResponseText decodes the body by the charset of the Content-Type
//     header, else by a byte-order mark, else as UTF-8 (DecodeResponseText).
//
// Failures of the request itself raise the request object's errors, with
// the source "WinHttp.WinHttpRequest" (kRequestErrorSource):
//   -2147012889 the server name or address could not be resolved
//   -2147012867 a connection with the server could not be established
//   -2147012894 the operation timed out
//   -2147012890 the URL does not use a recognized protocol
//   -2147012891 the URL is invalid
//   -2147012866 the connection with the server was terminated abnormally
//   -2147012721 a security error occurred (TLS, certificates)
//   -2147012740 the redirection failed (more than 10, or to another scheme)
// Open raises the URL errors, Send the others. A request object is used by
// one thread at a time.
//
//   auto request = kestrel::web::NewHttpRequest();
//   request->Open(u"POST", u"http://127.0.0.1:8080/echo", false);
//   request->Send();  // request->Status() == 200
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel::web {

inline constexpr std::u16string_view kRequestErrorSource = u"WinHttp.WinHttpRequest";

namespace request_errors {
inline constexpr int32_t kNameNotResolved = -2147012889;
inline constexpr int32_t kCannotConnect = -2147012867;
inline constexpr int32_t kTimeout = -2147012894;
inline constexpr int32_t kUnrecognizedScheme = -2147012890;
inline constexpr int32_t kInvalidUrl = -2147012891;
inline constexpr int32_t kConnectionAborted = -2147012866;
inline constexpr int32_t kSecurityError = -2147012721;
inline constexpr int32_t kRedirectFailed = -2147012740;
}  // namespace request_errors

class KESTREL_API HttpRequest {
 public:
  virtual ~HttpRequest();

  // Prepares a request; `asynchronous` must be false (the web classes only
  // ever wait for their answer), true raises 5.
  virtual void Open(std::u16string_view method, std::u16string_view url, bool asynchronous) = 0;
  virtual void SetRequestHeader(std::u16string_view name, std::u16string_view value) = 0;
  // Sends the request with `body` (none when empty) and waits for the answer.
  virtual void Send(std::span<const uint8_t> body = {}) = 0;
  virtual int32_t Status() const = 0;
  virtual std::u16string StatusText() const = 0;
  virtual std::u16string ResponseText() const = 0;
  // Limits in milliseconds; 0 means no limit.
  virtual void SetTimeouts(int32_t resolve_ms, int32_t connect_ms, int32_t send_ms,
                           int32_t receive_ms) = 0;
};

using HttpRequestFactory = std::unique_ptr<HttpRequest> (*)();

// A new request object from the current factory (libcurl by default).
KESTREL_API std::unique_ptr<HttpRequest> NewHttpRequest();
// Replaces the factory for every thread; nullptr restores libcurl's.
// Returns the previous one.
KESTREL_API HttpRequestFactory SetHttpRequestFactory(HttpRequestFactory factory) noexcept;
// The libcurl request, whatever the factory.
KESTREL_API std::unique_ptr<HttpRequest> NewCurlHttpRequest();

// --- the response's text ------------------------------------------------------

// The charset parameter of a Content-Type value, unquoted, or "" when there
// is none: `text/html; charset="ISO-8859-2"` gives "ISO-8859-2".
KESTREL_API std::string CharsetOfContentType(std::string_view content_type);

// The body as text: by the charset the Content-Type declares (Windows-1252
// and its aliases through the runtime's ANSI code page, others through ICU;
// UTF-16 without a mark is little-endian; a leading byte-order mark is not
// text and is dropped); when none is
// declared or the name is unknown, by a byte-order mark (UTF-8, UTF-16 LE or
// BE); otherwise as UTF-8. Bytes that do not decode become U+FFFD.
KESTREL_API std::u16string DecodeResponseText(std::span<const uint8_t> body,
                                              std::string_view content_type);

// The reason phrase of a status line: "HTTP/1.1 404 Not Found" gives
// "Not Found". HTTP/2 and later carry none, so "HTTP/2 404" gives
// StandardReasonPhrase of its code; a line that is not a status line "".
KESTREL_API std::string ReasonPhraseOfStatusLine(std::string_view status_line);
// The registered phrase of a status code ("Not Found" for 404), "" for
// codes without one.
KESTREL_API std::string_view StandardReasonPhrase(int32_t code) noexcept;

}  // namespace kestrel::web
