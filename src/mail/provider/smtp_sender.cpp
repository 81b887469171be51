#include <curl/curl.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "provider.hpp"

namespace kestrel::mapi {
namespace {

struct CurlDeleter {
  void operator()(CURL* c) const noexcept { curl_easy_cleanup(c); }
  void operator()(curl_slist* l) const noexcept { curl_slist_free_all(l); }
  void operator()(curl_mime* m) const noexcept { curl_mime_free(m); }
};
template <class T>
using CurlPtr = std::unique_ptr<T, CurlDeleter>;

void Append(CurlPtr<curl_slist>& list, const std::string& line) {
  curl_slist* grown = curl_slist_append(list.get(), line.c_str());
  if (grown == nullptr) throw std::bad_alloc();
  (void)list.release();
  list.reset(grown);
}

// The codes of a failed transfer. libcurl reports a refused MAIL FROM and a
// refused RCPT TO with the same code; its message tells them apart.
ULONG ResultOf(CURLcode code, const char* error) {
  switch (code) {
    case CURLE_OK:
      return SUCCESS_SUCCESS;
    case CURLE_LOGIN_DENIED:
      return MAPI_E_LOGON_FAILURE;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SSL_CONNECT_ERROR:
      return MAPI_E_NETWORK_FAILURE;
    case CURLE_SEND_ERROR:
      if (std::strncmp(error, "RCPT failed", 11) == 0) return MAPI_E_UNKNOWN_RECIPIENT;
      if (error[0] == '\0' || std::strstr(error, "Send failure") != nullptr)
        return MAPI_E_NETWORK_FAILURE;
      return MAPI_E_FAILURE;
    case CURLE_OUT_OF_MEMORY:
      return MAPI_E_INSUFFICIENT_MEMORY;
    default:
      return MAPI_E_FAILURE;
  }
}

}  // namespace

ULONG SendSmtp(const Config& config, const Outgoing& m) {
  static std::once_flag curl_ready;
  std::call_once(curl_ready, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

  CurlPtr<CURL> curl(curl_easy_init());
  if (!curl) return MAPI_E_INSUFFICIENT_MEMORY;
  CURL* c = curl.get();
  const Address sender = SenderOf(m, config);

  // Bcc recipients are only in the envelope.
  CurlPtr<curl_slist> headers;
  for (const std::string& line : HeaderLines(m, sender, /*with_bcc=*/false)) Append(headers, line);

  CurlPtr<curl_slist> recipients;
  for (const auto* list : {&m.to, &m.cc, &m.bcc})
    for (const Address& a : *list) Append(recipients, "<" + a.address + ">");

  CurlPtr<curl_mime> mime(curl_mime_init(c));
  curl_mimepart* text = curl_mime_addpart(mime.get());
  curl_mime_data(text, m.body.data(), m.body.size());
  curl_mime_type(text, "text/plain; charset=UTF-8");
  curl_mime_encoder(text, "quoted-printable");
  for (const File& f : m.files) {
    curl_mimepart* part = curl_mime_addpart(mime.get());
    curl_mime_data(part, f.content.data(), f.content.size());
    curl_mime_type(part, f.content_type.c_str());
    curl_mime_encoder(part, "base64");
    if (IsPlainFileName(f.name)) {
      curl_mime_filename(part, f.name.c_str());
    } else {
      // libcurl would quote the raw bytes; a name beyond plain ASCII is
      // written the way mail readers decode it.
      curl_mime_headers(part, curl_slist_append(nullptr, DispositionHeader(f.name).c_str()), 1);
    }
  }

  char error[CURL_ERROR_SIZE] = "";
  curl_easy_setopt(c, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_URL, config.url.c_str());
  curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
  if (config.start_tls) curl_easy_setopt(c, CURLOPT_USE_SSL, long{CURLUSESSL_ALL});
  if (!config.user.empty()) {
    curl_easy_setopt(c, CURLOPT_USERNAME, config.user.c_str());
    curl_easy_setopt(c, CURLOPT_PASSWORD, config.password.c_str());
  }
  const std::string mail_from = "<" + sender.address + ">";
  curl_easy_setopt(c, CURLOPT_MAIL_FROM, mail_from.c_str());
  curl_easy_setopt(c, CURLOPT_MAIL_RCPT, recipients.get());
  curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(c, CURLOPT_MIMEPOST, mime.get());
  curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, 30L);
  return ResultOf(curl_easy_perform(c), error);
}

}  // namespace kestrel::mapi
