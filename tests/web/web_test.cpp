#include "kestrel/web/web.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/web/http_request.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"
#include "test_server.hpp"

namespace kestrel::web {
namespace {

using kestrel::testing::TempFolder;
using kestrel::testing::TestServer;

std::u16string U16(const std::string& s) {
  return FromUtf8(s);
}

// The boundary: what follows the closing "--" of a body, minus its end.
std::u16string BoundaryOf(const MultiformPost& form) {
  const std::u16string content = form.Content();
  return content.substr(content.size() - 46, 42);
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string Sha256Hex(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr);
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 15]);
  }
  return hex;
}

// --- the body ------------------------------------------------------------------

TEST(MultiformPost, NewFormIsTheClosingDelimiterAlone) {
  auto form = MakeRef<MultiformPost>();
  const std::u16string content = form->Content();
  ASSERT_EQ(content.size(), 48u);
  const std::u16string b = BoundaryOf(*form);
  EXPECT_EQ(content, u"--" + b + u"--\r\n");
  // "----" and a GUID in braces (GUIDGenerator's own tests check its digits).
  EXPECT_EQ(b.substr(0, 5), u"----{");
  EXPECT_EQ(b.back(), u'}');

  form->AddField(u"x", Value(1));
  form->NewRequest();
  EXPECT_EQ(form->Content().size(), 48u);
  EXPECT_NE(BoundaryOf(*form), b);
}

TEST(MultiformPost, FieldAndFileByteForByte) {
  TempFolder folder;
  WriteBytes(folder.File("f.txt"), "hi");
  auto form = MakeRef<MultiformPost>();
  form->AddField(u"a", Value(u"1"));
  form->AddFile(u"up", U16(folder.File("f.txt")));
  const std::u16string b = BoundaryOf(*form);
  const std::u16string expected = u"--" + b +
                                  u"\r\n"
                                  u"Content-Disposition: form-data; name=\"a\"\r\n"
                                  u"\r\n"
                                  u"1\r\n"
                                  u"--" +
                                  b +
                                  u"\r\n"
                                  u"Content-Disposition: form-data; name=\"up\"; "
                                  u"filename=\"f.txt\"\r\n"
                                  u"Content-Type: application/octet-stream\r\n"
                                  u"\r\n"
                                  u"hi\r\n"
                                  u"--" +
                                  b + u"--\r\n";
  EXPECT_EQ(form->Content(), expected);
  // Reading the content leaves the parts in place.
  EXPECT_EQ(form->Content(), expected);
}

TEST(MultiformPost, FieldValuesAsText) {
  struct Row {
    Value value;
    std::u16string_view line;
  };
  const Row rows[] = {
      {Value::Null(), u""},          {Value(), u""}, {Value(1.5), u"1.5"}, {Value(true), u"True"},
      {Value(u"\u00e9"), u"\u00e9"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.line));
    MultiformPost form;
    form.AddField(u"f", row.value);
    const std::u16string content = form.Content();
    const std::u16string head = u"name=\"f\"\r\n\r\n";
    const size_t at = content.find(head) + head.size();
    EXPECT_EQ(content.substr(at, row.line.size() + 4), std::u16string(row.line) + u"\r\n--");
  }
}

TEST(MultiformPost, AddFileWritesItsDefaultsBack) {
  TempFolder folder;
  WriteBytes(folder.File("data.bin"), "x");
  Ref<Object> form = CreateObject(u"Kestrel.MultiformPost");
  const Value path(U16(folder.File("data.bin")));

  std::vector<Value> defaults = {Value(u"f"), path, Value(u""), Value(u"")};
  CallByName(form.get(), u"AddFile", CallKind::kMethod, defaults);
  EXPECT_EQ(defaults[2].string(), u"data.bin");
  EXPECT_EQ(defaults[3].string(), u"application/octet-stream");

  std::vector<Value> given = {Value(u"g"), path, Value(u"up.txt"), Value(u"text/plain")};
  CallByName(form.get(), u"AddFile", CallKind::kMethod, given);
  EXPECT_EQ(given[2].string(), u"up.txt");
  const std::u16string content(CallByName(form.get(), u"Content", CallKind::kGet).string());
  EXPECT_NE(content.find(u"name=\"g\"; filename=\"up.txt\"\r\nContent-Type: text/plain\r\n"),
            std::u16string::npos);

  // A missing file is FileSystem's error; the default is in place already.
  std::vector<Value> missing = {Value(u"h"), Value(U16(folder.File("none"))), Value(u"")};
  EXPECT_RAISES(CallByName(form.get(), u"AddFile", CallKind::kMethod, missing),
                errors::kFileNotFound);
  EXPECT_EQ(missing[2].string(), u"none");
}

// The request object's operations, recorded; answers with `g_status`.
std::vector<std::u16string> g_calls;
int32_t g_status = 200;

class RecordingRequest : public HttpRequest {
 public:
  void Open(std::u16string_view method, std::u16string_view url, bool async) override {
    g_calls.push_back(u"Open " + std::u16string(method) + u" " + std::u16string(url) +
                      (async ? u" async" : u" sync"));
  }
  void SetRequestHeader(std::u16string_view name, std::u16string_view value) override {
    g_calls.push_back(std::u16string(name) + u": " + std::u16string(value));
  }
  void Send(std::span<const uint8_t> body) override {
    g_calls.push_back(u"Send " + U16(std::to_string(body.size())));
  }
  int32_t Status() const override { return g_status; }
  std::u16string StatusText() const override { return u"Teapot"; }
  std::u16string ResponseText() const override { return u"answer"; }
  void SetTimeouts(int32_t, int32_t, int32_t, int32_t) override {}
};

TEST(MultiformPost, DrivesTheRequestObjectThroughTheSeam) {
  // Puts libcurl's factory back however the test ends.
  struct Restore {
    HttpRequestFactory previous;
    ~Restore() {
      SetHttpRequestFactory(previous);
      g_status = 200;
    }
  } restore{SetHttpRequestFactory(
      []() -> std::unique_ptr<HttpRequest> { return std::make_unique<RecordingRequest>(); })};
  MultiformPost form;
  g_calls.clear();
  EXPECT_EQ(form.Post(u"http://host/p"), u"answer");
  const std::vector<std::u16string> post = {
      u"Open POST http://host/p sync",
      u"Content-Type: multipart/form-data; boundary=" + BoundaryOf(form), u"Content-Length: 48",
      u"Send 48"};
  EXPECT_EQ(g_calls, post);

  g_status = 418;
  try {
    form.Post(u"http://host/p");
    ADD_FAILURE() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kPostFailed);
    EXPECT_EQ(e.description(), u"Teapot");
  }
}

// --- against the test server ---------------------------------------------------------

TEST(WebIntegration, HttpgetReturnsAnyStatusWithoutError) {
  struct Row {
    std::string path;
    int32_t status;
    std::u16string_view status_text, text;
  };
  const Row rows[] = {
      {"/status/200", 200, u"OK", u"page 200 OK"},
      {"/status/404", 404, u"Not Found", u"page 404 Not Found"},
      {"/status/500", 500, u"Internal Server Error", u"page 500 Internal Server Error"},
      {"/status/418?reason=Short%20and%20stout", 418, u"Short and stout",
       u"page 418 Short and stout"},
  };
  auto& web = GlobalInstance<WEB>();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    int32_t status = 0;
    std::u16string status_text;
    EXPECT_EQ(web.HTTPGET(TestServer::Http().Url(row.path), &status, &status_text), row.text);
    EXPECT_EQ(status, row.status);
    EXPECT_EQ(status_text, row.status_text);
  }

  // By name: the status and its text go back into the caller's variables.
  std::vector<Value> args = {Value(TestServer::Http().Url("/status/404")), Value(), Value()};
  const Value text =
      CallByName(CreateObject(u"Kestrel.WEB").get(), u"HTTPGET", CallKind::kMethod, args);
  EXPECT_EQ(text.string(), u"page 404 Not Found");
  EXPECT_EQ(args[1].code(), uint16_t(Kind::kLong));
  EXPECT_EQ(args[1].long_value(), 404);
  EXPECT_EQ(args[2].string(), u"Not Found");
}

TEST(WebIntegration, HttpgetSendsAnEmptyPost) {
  const std::u16string echo = GlobalInstance<WEB>().HTTPGET(TestServer::Http().Url("/echo"));
  EXPECT_EQ(echo.substr(0, 11), u"POST /echo\n");
  EXPECT_NE(echo.find(u"\nContent-Length: 0\n"), std::u16string::npos);
  EXPECT_EQ(echo.find(u"Content-Type"), std::u16string::npos);
  EXPECT_EQ(echo.back(), u'\n');  // the empty line, then no body
}

TEST(WebIntegration, PostSendsTheContentWithItsHeaders) {
  MultiformPost form;
  const std::u16string b = BoundaryOf(form);
  const std::u16string echo = form.Post(TestServer::Http().Url("/echo"));
  EXPECT_NE(echo.find(u"\nContent-Type: multipart/form-data; boundary=" + b + u"\n"),
            std::u16string::npos);
  EXPECT_NE(echo.find(u"\nContent-Length: 48\n"), std::u16string::npos);
  EXPECT_EQ(echo.substr(echo.size() - 50), u"\n\n" + form.Content());
  // Posting again sends the same body.
  EXPECT_EQ(form.Post(TestServer::Http().Url("/echo")), echo);
}

TEST(WebIntegration, EveryByteOfAFileArrives) {
  TempFolder folder;
  std::string all;
  for (int round = 0; round < 2; ++round)
    for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  WriteBytes(folder.File("all.bin"), all);

  auto form = MakeRef<MultiformPost>();
  form->AddField(u"name", Value(u"caf\u00e9 \u20ac"));
  form->AddField(u"empty", Value::Null());
  form->AddFile(u"blob", U16(folder.File("all.bin")));
  std::u16string as = u"r\u00e9sum\u00e9.txt";
  std::u16string type = u"text/plain";
  form->AddFile(u"doc", U16(folder.File("all.bin")), as, type);

  const std::string digest = Sha256Hex(all);
  const std::u16string expected =
      U16("field name=caf\xc3\xa9 \xc2\x80\n"  // the euro sign's byte, read as Latin-1
          "field empty=\n"
          "file blob filename=all.bin type=application/octet-stream size=512 sha256=" +
          digest +
          "\n"
          "file doc filename=r\xc3\xa9sum\xc3\xa9.txt type=text/plain size=512 sha256=" +
          digest + "\n");
  EXPECT_EQ(form->Post(TestServer::Http().Url("/multipart")), expected);
}

TEST(WebIntegration, PostFailsUnlessTheStatusIs200) {
  struct Row {
    std::string path;
    std::u16string_view description;
  };
  const Row rows[] = {
      {"/status/500", u"Internal Server Error"},
      {"/status/201", u"Created"},
      {"/status/404?reason=Gone%20fishing", u"Gone fishing"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    MultiformPost form;
    try {
      form.Post(TestServer::Http().Url(row.path));
      ADD_FAILURE() << "no error";
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), kPostFailed);
      EXPECT_EQ(e.source(), u"Post");
      EXPECT_EQ(e.description(), row.description);
    }
  }
}

TEST(WebIntegration, RequestFailuresRaiseTheRequestObjectsErrors) {
  struct Row {
    std::u16string url;
    int32_t number;
    std::u16string_view description;
  };
  const Row rows[] = {
      {U16("http://127.0.0.1:" + std::to_string(testing::ClosedPort()) + "/"),
       request_errors::kCannotConnect, u"A connection with the server could not be established"},
      {u"gopherx://127.0.0.1/", request_errors::kUnrecognizedScheme,
       u"The URL does not use a recognized protocol"},
      {u"ftp://127.0.0.1/", request_errors::kUnrecognizedScheme,
       u"The URL does not use a recognized protocol"},
      {u"http://[::1/", request_errors::kInvalidUrl, u"The URL is invalid"},
      {u"http://", request_errors::kInvalidUrl, u"The URL is invalid"},
      {TestServer::Https().Url("/echo"), request_errors::kSecurityError,
       u"A security error occurred"},
      {TestServer::Http().Url("/loop"), request_errors::kRedirectFailed, {}},
      {TestServer::Http().Url("/redirect/302?to=ftp://127.0.0.1/"),
       request_errors::kRedirectFailed,
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.url));
    for (bool post : {false, true}) {
      try {
        if (post) {
          MultiformPost().Post(row.url);
        } else {
          GlobalInstance<WEB>().HTTPGET(row.url);
        }
        ADD_FAILURE() << "no error";
      } catch (const RuntimeError& e) {
        EXPECT_EQ(e.number(), row.number);
        EXPECT_EQ(e.source(), u"WinHttp.WinHttpRequest");
        if (!row.description.empty()) {
          EXPECT_EQ(e.description(), row.description);
        }
      }
    }
  }
}

// --- the request object ---------------------------------------------------------------

TEST(HttpRequestIntegration, DecodesEachDeclaredCharset) {
  struct Row {
    std::string name;
    std::u16string_view text;
  };
  const Row rows[] = {
      {"windows-1252", u"caf\u00e9 \u20ac \u201cq\u201d \u0081\u008d\u008f\u0090\u009d"},
      {"utf-8", u"Gr\u00fc\u00dfe \u20ac \U0001F600 \uFFFD!"},
      {"iso-8859-2", u"\u0141\u00f3d\u017a \u0151\u0171"},
      {"utf-16", u"Gr\u00fc\u00dfe \u20ac"},
      {"bom", u"Gr\u00fc\u00dfe \u20ac"},
      {"none", u"Gr\u00fc\u00dfe \u20ac"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    auto request = NewHttpRequest();
    request->Open(u"GET", TestServer::Http().Url("/charset/" + row.name), false);
    request->Send();
    EXPECT_EQ(request->ResponseText(), row.text);
  }
}

TEST(HttpRequestIntegration, FollowsRedirectsPostBecomingGetOn301To303) {
  struct Row {
    int code;
    std::u16string_view request_line;
    bool body_kept;
  };
  const Row rows[] = {
      {301, u"GET /echo", false}, {302, u"GET /echo", false}, {303, u"GET /echo", false},
      {307, u"POST /echo", true}, {308, u"POST /echo", true},
  };
  const std::string body = "k=v";
  for (const Row& row : rows) {
    SCOPED_TRACE(row.code);
    auto request = NewHttpRequest();
    request->Open(u"POST", TestServer::Http().Url("/redirect/" + std::to_string(row.code)), false);
    request->Send(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(body.data()), body.size()));
    EXPECT_EQ(request->Status(), 200);
    const std::u16string echo = request->ResponseText();
    EXPECT_EQ(echo.substr(0, echo.find(u'\n')), row.request_line);
    EXPECT_EQ(echo.ends_with(u"\n\nk=v"), row.body_kept);
  }
}

TEST(HttpRequestIntegration, ReceiveTimeoutEndsAStalledAnswer) {
  auto request = NewHttpRequest();
  request->SetTimeouts(0, 60000, 30000, 300);
  request->Open(u"POST", TestServer::Http().Url("/slow?seconds=5"), false);
  EXPECT_RAISES(request->Send(), request_errors::kTimeout);
}

}  // namespace
}  // namespace kestrel::web
