// The Linux request object: libcurl's easy interface, one handle per
// request, the body sent from the caller's memory.
//
// libcurl's own defaults differ from the request object's in a few places,
// each set back here: no "Expect: 100-continue" round trip before a large
// body, no invented form Content-Type for a body the caller did not type,
// no Content-Length other than the body's own, http and https only.

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ascii_case.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/web/http_request.hpp"

namespace kestrel::web {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMaxRedirects = 10;
constexpr char kUserAgent[] = "Mozilla/4.0 (compatible; Kestrel)";

[[noreturn]] void RaiseRequestError(int32_t number) {
  std::u16string_view text;
  switch (number) {
    case request_errors::kNameNotResolved:
      text = u"The server name or address could not be resolved";
      break;
    case request_errors::kCannotConnect:
      text = u"A connection with the server could not be established";
      break;
    case request_errors::kTimeout:
      text = u"The operation timed out";
      break;
    case request_errors::kUnrecognizedScheme:
      text = u"The URL does not use a recognized protocol";
      break;
    case request_errors::kInvalidUrl:
      text = u"The URL is invalid";
      break;
    case request_errors::kSecurityError:
      text = u"A security error occurred";
      break;
    case request_errors::kRedirectFailed:
      text =
          u"The redirection failed because either the scheme changed or all attempts made "
          u"to redirect failed";
      break;
    default:
      text = u"The connection with the server was terminated abnormally";
      break;
  }
  Raise(number, kRequestErrorSource, text);
}

int32_t RequestErrorOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return request_errors::kNameNotResolved;
    case CURLE_COULDNT_CONNECT:
      return request_errors::kCannotConnect;
    case CURLE_OPERATION_TIMEDOUT:
      return request_errors::kTimeout;
    case CURLE_URL_MALFORMAT:
      return request_errors::kInvalidUrl;
    // Open has checked the scheme, so only a redirect can lead to one
    // that is refused.
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_TOO_MANY_REDIRECTS:
      return request_errors::kRedirectFailed;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_USE_SSL_FAILED:
      return request_errors::kSecurityError;
    default:
      return request_errors::kConnectionAborted;
  }
}

void InitCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct EasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
struct UrlDeleter {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};

using detail::EqualsNoCase;

class CurlHttpRequest final : public HttpRequest {
 public:
  void Open(std::u16string_view method, std::u16string_view url, bool asynchronous) override {
    if (asynchronous) RaiseStandard(errors::kInvalidProcedureCall);
    const std::string target = ToUtf8(url);
    https_ = CheckUrl(target);
    InitCurlOnce();
    handle_.reset(curl_easy_init());
    if (!handle_) RaiseStandard(errors::kOutOfMemory);
    method_ = ToUtf8(method);
    url_ = target;
    header_lines_.clear();
    has_content_type_ = false;
  }

  void SetRequestHeader(std::u16string_view name, std::u16string_view value) override {
    const std::string header_name = ToUtf8(name);
    // The length on the wire is always the body's; a second, different one
    // would break the message's framing.
    if (EqualsNoCase(header_name, "Content-Length")) return;
    if (EqualsNoCase(header_name, "Content-Type")) has_content_type_ = true;
    header_lines_.push_back(header_name + ": " + ToUtf8(value));
  }

  void Send(std::span<const uint8_t> body) override {
    if (!handle_) RaiseStandard(errors::kInvalidProcedureCall);
    CURL* h = handle_.get();
    response_.clear();
    status_line_.clear();
    content_type_.clear();
    status_ = 0;

    curl_easy_setopt(h, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
    // As the request object's default policy: https never redirects to
    // plain http.
    curl_easy_setopt(h, CURLOPT_REDIR_PROTOCOLS_STR, https_ ? "https" : "http,https");
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(h, CURLOPT_MAXREDIRS, kMaxRedirects);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_USERAGENT, kUserAgent);
    curl_easy_setopt(h, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    SetMethod(body);

    // libcurl's own additions that the request object never makes: a
    // round trip for "Expect: 100-continue" before a large body, and a form
    // Content-Type for a body nobody typed.
    headers_.reset();
    for (const std::string& line : header_lines_) AppendHeader(line);
    AppendHeader("Expect:");
    if (!has_content_type_) AppendHeader("Content-Type:");
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers_.get());

    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &CurlHttpRequest::OnBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, &CurlHttpRequest::OnHeader);
    curl_easy_setopt(h, CURLOPT_HEADERDATA, this);

    // 0 is "no limit" here and "the default" (300 s) to libcurl, whose
    // longest limit is INT_MAX milliseconds (24 days).
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, long{connect_ms_ > 0 ? connect_ms_ : INT_MAX});
    curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, &CurlHttpRequest::OnProgress);
    curl_easy_setopt(h, CURLOPT_XFERINFODATA, this);
    connected_ = false;
    timed_out_ = false;
    last_up_ = last_down_ = -1;

    const CURLcode code = curl_easy_perform(h);
    if (code != CURLE_OK) {
      RaiseRequestError(timed_out_ ? request_errors::kTimeout : RequestErrorOf(code));
    }
    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    status_ = static_cast<int32_t>(status);
    const char* type = nullptr;
    if (curl_easy_getinfo(h, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type != nullptr)
      content_type_ = type;
  }

  int32_t Status() const override { return status_; }
  std::u16string StatusText() const override {
    return FromUtf8(ReasonPhraseOfStatusLine(status_line_));
  }
  std::u16string ResponseText() const override {
    return DecodeResponseText(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(response_.data()),
                                 response_.size()),
        content_type_);
  }

  void SetTimeouts(int32_t /*resolve_ms*/, int32_t connect_ms, int32_t send_ms,
                   int32_t receive_ms) override {
    // Name resolution has no limit of its own in libcurl; it counts against
    // the connect limit.
    if (connect_ms < -1 || send_ms < -1 || receive_ms < -1)
      RaiseStandard(errors::kInvalidProcedureCall);
    // -1, like 0, means no limit.
    connect_ms_ = connect_ms < 0 ? 0 : connect_ms;
    send_ms_ = send_ms < 0 ? 0 : send_ms;
    receive_ms_ = receive_ms < 0 ? 0 : receive_ms;
  }

 private:
  // Raises the URL errors; true for an https URL.
  static bool CheckUrl(const std::string& url) {
    std::unique_ptr<CURLU, UrlDeleter> parsed(curl_url());
    if (!parsed) RaiseStandard(errors::kOutOfMemory);
    const CURLUcode rc = curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0);
    if (rc == CURLUE_UNSUPPORTED_SCHEME || rc == CURLUE_BAD_SCHEME)
      RaiseRequestError(request_errors::kUnrecognizedScheme);
    if (rc != CURLUE_OK) RaiseRequestError(request_errors::kInvalidUrl);
    char* scheme = nullptr;
    if (curl_url_get(parsed.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK)
      RaiseRequestError(request_errors::kInvalidUrl);
    const bool https = EqualsNoCase(scheme, "https");
    const bool known = https || EqualsNoCase(scheme, "http");
    curl_free(scheme);
    if (!known) RaiseRequestError(request_errors::kUnrecognizedScheme);
    return https;
  }

  void AppendHeader(const std::string& line) {
    curl_slist* list = curl_slist_append(headers_.get(), line.c_str());
    if (list == nullptr) RaiseStandard(errors::kOutOfMemory);
    headers_.release();
    headers_.reset(list);
  }

  void SetMethod(std::span<const uint8_t> body) {
    CURL* h = handle_.get();
    // POSTFIELDS points into the caller's bytes: libcurl reads them while
    // sending, without a copy of its own. A POST without a body still
    // carries "Content-Length: 0".
    static const char kNoBody[] = "";
    const char* data = body.empty() ? kNoBody : reinterpret_cast<const char*>(body.data());
    if (EqualsNoCase(method_, "POST") || !body.empty()) {
      curl_easy_setopt(h, CURLOPT_POST, 1L);
      curl_easy_setopt(h, CURLOPT_POSTFIELDS, data);
      curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
      // Kept as POST through libcurl's own redirect rule (301, 302 and 303
      // become GET); any other method is named explicitly.
      if (!EqualsNoCase(method_, "POST"))
        curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method_.c_str());
    } else if (EqualsNoCase(method_, "GET")) {
      curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
    } else if (EqualsNoCase(method_, "HEAD")) {
      curl_easy_setopt(h, CURLOPT_NOBODY, 1L);
    } else {
      curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method_.c_str());
    }
  }

  static size_t OnBody(char* data, size_t size, size_t count, void* self) {
    auto* request = static_cast<CurlHttpRequest*>(self);
    request->response_.append(data, size * count);
    return size * count;
  }

  static size_t OnHeader(char* data, size_t size, size_t count, void* self) {
    auto* request = static_cast<CurlHttpRequest*>(self);
    const std::string_view line(data, size * count);
    // Every response on the way (100 Continue, each redirect) starts with
    // its status line; the last one seen is the final response's.
    if (line.size() >= 5 && line.substr(0, 5) == "HTTP/") request->status_line_ = line;
    return size * count;
  }

  // Send and receive limits are the longest time without progress in the
  // direction that is under way: sending while the body is not all out,
  // receiving afterwards. Waiting for a connection is the connect limit's.
  static int OnProgress(void* self, curl_off_t /*down_total*/, curl_off_t down_now,
                        curl_off_t up_total, curl_off_t up_now) {
    auto* request = static_cast<CurlHttpRequest*>(self);
    const Clock::time_point now = Clock::now();
    if (!request->connected_) {
      curl_off_t connect_time = 0;
      curl_easy_getinfo(request->handle_.get(), CURLINFO_CONNECT_TIME_T, &connect_time);
      if (connect_time == 0) return 0;
      request->connected_ = true;
      request->last_progress_ = now;
    }
    if (down_now != request->last_down_ || up_now != request->last_up_) {
      request->last_down_ = down_now;
      request->last_up_ = up_now;
      request->last_progress_ = now;
      return 0;
    }
    const int32_t limit = up_now < up_total ? request->send_ms_ : request->receive_ms_;
    if (limit > 0 && now - request->last_progress_ >= std::chrono::milliseconds(limit)) {
      request->timed_out_ = true;
      return 1;
    }
    return 0;
  }

  std::unique_ptr<CURL, EasyDeleter> handle_;
  std::vector<std::string> header_lines_;
  std::unique_ptr<curl_slist, ListDeleter> headers_;
  std::string method_;
  std::string url_;
  bool https_ = false;
  bool has_content_type_ = false;

  int32_t connect_ms_ = 60000;
  int32_t send_ms_ = 30000;
  int32_t receive_ms_ = 30000;

  bool connected_ = false;
  bool timed_out_ = false;
  curl_off_t last_up_ = -1;
  curl_off_t last_down_ = -1;
  Clock::time_point last_progress_{};

  std::string response_;
  std::string status_line_;
  std::string content_type_;
  int32_t status_ = 0;
};

std::atomic<HttpRequestFactory> g_factory{nullptr};

}  // namespace

HttpRequest::~HttpRequest() = default;

std::unique_ptr<HttpRequest> NewCurlHttpRequest() {
  return std::make_unique<CurlHttpRequest>();
}

std::unique_ptr<HttpRequest> NewHttpRequest() {
  const HttpRequestFactory factory = g_factory.load(std::memory_order_acquire);
  return factory != nullptr ? factory() : NewCurlHttpRequest();
}

HttpRequestFactory SetHttpRequestFactory(HttpRequestFactory factory) noexcept {
  return g_factory.exchange(factory, std::memory_order_acq_rel);
}

}  // namespace kestrel::web
