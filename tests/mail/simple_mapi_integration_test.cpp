// The kestrel_mapi provider end to end: records handed over through its C
// header, sent to an aiosmtpd server on loopback or shown through the real
// xdg-email, and the same through MAPI32 and MAPI32PTR.
#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>
#include <string>
#include <vector>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/mail/mapi32.hpp"
#include "kestrel/mail/simple_mapi.h"
#include "mail_fixtures.hpp"

namespace kestrel {
namespace {

using testing::AllBytes;
using testing::MailConfig;
using testing::SmtpIni;
using testing::SmtpServer;
using testing::TempFolder;
using File = testing::ReceivedMessage::File;

// A message in Simple MAPI records, with storage for its texts.
class Draft {
 public:
  Draft& To(ULONG cls, const std::string& name, const std::string& address) {
    recips_.push_back(MapiRecipDesc{0, cls, Text(name), Text(address), 0, nullptr});
    return *this;
  }
  Draft& Attach(const std::string& path, const std::string& name = "") {
    files_.push_back(MapiFileDesc{0, 0, 0xFFFFFFFF, Text(path), Text(name), nullptr});
    return *this;
  }
  MapiMessage* Record(const std::string& subject = "", const std::string& body = "") {
    message_ = MapiMessage{};
    message_.lpszSubject = Text(subject);
    message_.lpszNoteText = Text(body);
    message_.nRecipCount = static_cast<ULONG>(recips_.size());
    message_.lpRecips = recips_.empty() ? nullptr : recips_.data();
    message_.nFileCount = static_cast<ULONG>(files_.size());
    message_.lpFiles = files_.empty() ? nullptr : files_.data();
    return &message_;
  }

 private:
  char* Text(const std::string& s) { return s.empty() ? nullptr : texts_.emplace_back(s).data(); }
  std::deque<std::string> texts_;
  std::vector<MapiRecipDesc> recips_;
  std::vector<MapiFileDesc> files_;
  MapiMessage message_{};
};

std::string Lf(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i)
    if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') out += text[i];
  return out;
}

TEST(SimpleMapiIntegration, SendsToCcAndBccWithAnsiTextAndAttachments) {
  SmtpServer server;
  MailConfig config(SmtpIni(server.Url()));
  TempFolder files;
  Draft d;
  d.To(MAPI_TO, "Ann \xc9lan", "SMTP:ann@example.com")
      .To(MAPI_TO, "", "bob@example.com")
      .To(MAPI_CC, "Carl", "carl@example.com")
      .To(MAPI_BCC, "Dora", "dora@example.com")
      .Attach(files.Write("data.bin", AllBytes()), "report.pdf")
      .Attach(files.Write("second.txt", AllBytes()));
  LHANDLE session = 0;
  ASSERT_EQ(MAPILogon(0, nullptr, nullptr, 0, 0, &session), SUCCESS_SUCCESS);
  EXPECT_NE(session, 0u);
  // Windows-1252: u-umlaut, sharp s, en dash, e-acute, euro sign.
  EXPECT_EQ(MAPISendMail(session, 0,
                         d.Record("Gr\xfc\xdf"
                                  "e \x96 caf\xe9",
                                  "H\xe9llo\r\n\x80 5\r\n"),
                         0, 0),
            SUCCESS_SUCCESS);
  EXPECT_EQ(MAPILogoff(session, 0, 0, 0), SUCCESS_SUCCESS);
  EXPECT_EQ(MAPILogoff(session, 0, 0, 0), MAPI_E_INVALID_SESSION);

  const auto received = server.Messages();
  ASSERT_EQ(received.size(), 1u);
  const auto& m = received[0];
  EXPECT_EQ(m.mail_from, "tests@kestrel.test");
  EXPECT_EQ(m.rcpt_to, (std::vector<std::string>{"ann@example.com", "bob@example.com",
                                                 "carl@example.com", "dora@example.com"}));
  EXPECT_EQ(m.headers.at("From"), "Kestrel Tests <tests@kestrel.test>");
  EXPECT_EQ(m.headers.at("To"), "Ann \xc3\x89lan <ann@example.com>, bob@example.com");
  EXPECT_EQ(m.headers.at("Cc"), "Carl <carl@example.com>");
  EXPECT_EQ(m.headers.count("Bcc"), 0u);
  EXPECT_EQ(m.headers.at("Subject"),
            "Gr\xc3\xbc\xc3\x9f"
            "e \xe2\x80\x93 caf\xc3\xa9");
  EXPECT_EQ(m.headers.count("Date"), 1u);
  EXPECT_EQ(m.headers.at("Message-ID").find('@') != std::string::npos, true);
  EXPECT_EQ(Lf(m.body), "H\xc3\xa9llo\n\xe2\x82\xac 5\n");
  EXPECT_EQ(m.attachments, (std::vector<File>{{"report.pdf", "application/pdf", AllBytes()},
                                              {"second.txt", "text/plain", AllBytes()}}));
}

TEST(SimpleMapiIntegration, EachFailureHasItsCodeAndSendsNothing) {
  SmtpServer server;
  TempFolder files;
  const std::string file = files.Write("a.txt", "a");
  struct Row {
    const char* what;
    std::string ini;
    Draft draft;
    ULONG expected;
  };
  const std::string url = server.Url();
  // clang-format off
  Row rows[] = {
      {"missing attachment", SmtpIni(url), {}, MAPI_E_ATTACHMENT_NOT_FOUND},
      {"folder as attachment", SmtpIni(url), {}, MAPI_E_ATTACHMENT_OPEN_FAILURE},
      {"refused recipient", SmtpIni(url), {}, MAPI_E_UNKNOWN_RECIPIENT},
      {"line break in address", SmtpIni(url), {}, MAPI_E_UNKNOWN_RECIPIENT},
      {"not an address", SmtpIni(url), {}, MAPI_E_UNKNOWN_RECIPIENT},
      {"originator class", SmtpIni(url), {}, MAPI_E_BAD_RECIPTYPE},
      {"no recipients", SmtpIni(url), {}, MAPI_E_INVALID_RECIPS},
      {"wrong password", SmtpIni(url, "User=ann\r\nPassword=wrong\r\n"), {}, MAPI_E_LOGON_FAILURE},
      {"closed port", SmtpIni("smtp://127.0.0.1:" + std::to_string(testing::ClosedPort())), {},
       MAPI_E_NETWORK_FAILURE},
      // Never in clear text when TLS is asked for and the server has none.
      {"StartTLS refused", SmtpIni(url, "StartTLS=1\r\n"), {}, MAPI_E_FAILURE},
      {"StartTLS in capitals", SmtpIni(url, "StartTLS=YES\r\n"), {}, MAPI_E_FAILURE},
  };
  // clang-format on
  rows[0].draft.To(MAPI_TO, "", "ann@example.com").Attach(file).Attach(files.File("none"));
  rows[1].draft.To(MAPI_TO, "", "ann@example.com").Attach(files.path());
  rows[2].draft.To(MAPI_TO, "", "ann@example.com").To(MAPI_CC, "", "refused@example.com");
  rows[3].draft.To(MAPI_TO, "", "ann@example.com\r\nBcc: eve@example.com");
  rows[4].draft.To(MAPI_TO, "Ann", "");
  rows[5].draft.To(MAPI_ORIG, "", "ann@example.com");
  for (int i : {7, 8, 9, 10}) rows[i].draft.To(MAPI_TO, "", "ann@example.com");
  for (Row& r : rows) {
    SCOPED_TRACE(r.what);
    MailConfig config(r.ini);
    EXPECT_EQ(MAPISendMail(0, 0, r.draft.Record("s", "b"), 0, 0), r.expected);
  }
  EXPECT_EQ(server.Messages().size(), 0u);

  // The right password goes through.
  MailConfig config(SmtpIni(server.Url(), "User=ann\r\nPassword=secret\r\n"));
  Draft d;
  d.To(MAPI_TO, "", "ann@example.com");
  EXPECT_EQ(MAPISendMail(0, 0, d.Record(), 0, 0), SUCCESS_SUCCESS);
  EXPECT_EQ(server.Messages().size(), 1u);
}

TEST(SimpleMapiIntegration, SessionsAndConfiguration) {
  Draft d;
  d.To(MAPI_TO, "", "ann@example.com");
  EXPECT_EQ(MAPILogoff(12345, 0, 0, 0), MAPI_E_INVALID_SESSION);
  EXPECT_EQ(MAPISendMail(12345, 0, d.Record(), 0, 0), MAPI_E_INVALID_SESSION);
  MailConfig config(SmtpIni("smtp://127.0.0.1:1"));
  EXPECT_EQ(MAPILogon(0, nullptr, nullptr, 0, 0, nullptr), MAPI_E_FAILURE);
  LHANDLE a = 0, b = 0;
  ASSERT_EQ(MAPILogon(0, nullptr, nullptr, 0, 0, &a), SUCCESS_SUCCESS);
  ASSERT_EQ(MAPILogon(0, nullptr, nullptr, 0, 0, &b), SUCCESS_SUCCESS);
  EXPECT_NE(a, b);
  EXPECT_EQ(MAPILogoff(a, 0, 0, 0), SUCCESS_SUCCESS);
  EXPECT_EQ(MAPILogoff(b, 0, 0, 0), SUCCESS_SUCCESS);

  // No server and no sendmail: no way to send.
  ::setenv("KESTREL_MAIL_SENDMAIL", "/nonexistent/sendmail", 1);
  MailConfig empty("[SMTP]\r\nFrom=me@example.com\r\n");
  EXPECT_EQ(MAPILogon(0, nullptr, nullptr, 0, 0, &a), MAPI_E_LOGON_FAILURE);
  EXPECT_EQ(MAPISendMail(0, 0, d.Record(), 0, 0), MAPI_E_LOGON_FAILURE);
  ::unsetenv("KESTREL_MAIL_SENDMAIL");
}

TEST(SimpleMapiIntegration, WithoutAServerTheLocalSendmailTakesTheMessage) {
  TempFolder out;
  const std::string sendmail =
      out.Write("sendmail", "#!/bin/sh\nexec /usr/bin/python3 " KESTREL_MAIL_TEST_DIR
                            "/smtp_server.py --sendmail " +
                                out.path() + " \"$@\"\n");
  std::filesystem::permissions(sendmail, std::filesystem::perms::owner_all);
  ::setenv("KESTREL_MAIL_SENDMAIL", sendmail.c_str(), 1);
  MailConfig config("[SMTP]\r\nFrom=me@example.com\r\n");
  Draft d;
  d.To(MAPI_TO, "Ann", "ann@example.com")
      .To(MAPI_BCC, "", "dora@example.com")
      .Attach(out.Write("data", AllBytes()),
              "donn\xe9"
              "es.bin");
  EXPECT_EQ(MAPISendMail(0, 0, d.Record("Caf\xe9", "Body\r\n"), 0, 0), SUCCESS_SUCCESS);
  ::unsetenv("KESTREL_MAIL_SENDMAIL");

  const auto received = testing::ReadMessages(out);
  ASSERT_EQ(received.size(), 1u);
  const auto& m = received[0];
  EXPECT_EQ(m.mail_from, "me@example.com");
  EXPECT_EQ(m.rcpt_to, (std::vector<std::string>{"ann@example.com", "dora@example.com"}));
  EXPECT_EQ(m.headers.at("Bcc"), "dora@example.com");  // sendmail -t takes it out
  EXPECT_EQ(m.headers.at("Subject"), "Caf\xc3\xa9");
  EXPECT_EQ(Lf(m.body), "Body\n");
  ASSERT_EQ(m.attachments.size(), 1u);
  EXPECT_EQ(m.attachments[0].name,
            "donn\xc3\xa9"
            "es.bin");
  EXPECT_EQ(m.attachments[0].bytes, AllBytes());
}

TEST(SimpleMapiIntegration, LargeBodyAndThousandRecipientsArriveWhole) {
  SmtpServer server;
  MailConfig config(SmtpIni(server.Url()));
  Draft d;
  std::vector<std::string> expected;  // the To recipients, then the Cc ones
  for (int i = 0; i < 1000; ++i) {
    const int n = i < 500 ? 2 * i : 2 * (i - 500) + 1;
    expected.push_back("user" + std::to_string(n) + "@example.com");
    d.To(i < 500 ? MAPI_TO : MAPI_CC, "User " + std::to_string(n), expected.back());
  }
  std::string body;
  while (body.size() < 10 * 1024 * 1024) body += "0123456789 abcdefghijklmnopqrstuvwxyz =?\r\n";
  ASSERT_EQ(MAPISendMail(0, 0, d.Record("big", body), 0, 0), SUCCESS_SUCCESS);
  const auto received = server.Messages();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].rcpt_to, expected);
  EXPECT_EQ(Lf(received[0].body), Lf(body));
  EXPECT_NE(received[0].headers.at("Cc").find("User 999 <user999@example.com>"), std::string::npos);
}

TEST(MailIntegration, Mapi32SendsThroughTheInstalledProvider) {
  SmtpServer server;
  MailConfig config(SmtpIni(server.Url()));
  TempFolder files;
  auto message = MakeRef<Message>();
  message->SetSubject(u"Report \u00e9t\u00e9");
  message->SetBody(u"See attached.");
  message->Recipients()->Add(testing::NewRecipient(MAPI_TO, u"Ann", u"SMTP:ann@example.com"));
  auto file = MakeRef<Attachment>();
  file->SetPath(FromUtf8(files.Write("bytes.bin", AllBytes())));
  message->Attachments()->Add(file);

  auto mapi = MakeRef<MAPI32>();  // MAPIPath: the provider's file name
  mapi->SetMessage(message);
  ASSERT_EQ(mapi->Logon(), 0);
  EXPECT_EQ(mapi->SendMail(), 0);
  EXPECT_EQ(mapi->LastResultDescription(), u"MAPI Success");
  EXPECT_EQ(mapi->Logoff(), 0);
  EXPECT_EQ(mapi->Logoff(), 19);
  EXPECT_EQ(mapi->LastResultDescription(), u"MAPI Invalid session");

  const auto received = server.Messages();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].rcpt_to, std::vector<std::string>{"ann@example.com"});
  EXPECT_EQ(received[0].headers.at("Subject"), "Report \xc3\xa9t\xc3\xa9");
  EXPECT_EQ(received[0].attachments,
            (std::vector<File>{{"bytes.bin", "application/octet-stream", AllBytes()}}));
}

// The composer: the real xdg-email hands a mailto address to the handler a
// temporary desktop registers, which writes it down.
class ComposerIntegration : public ::testing::Test {
 protected:
  ComposerIntegration() {
    std::filesystem::create_directories(xdg_.File("data/applications"));
    xdg_.Write("mimeapps.list",
               "[Default Applications]\nx-scheme-handler/mailto=kestrel-test-mail.desktop\n");
    xdg_.Write("data/applications/kestrel-test-mail.desktop",
               "[Desktop Entry]\nType=Application\nName=Kestrel test mail\n"
               "Exec=" KESTREL_MAIL_TEST_DIR
               "/record_mailto.sh %u\n"
               "MimeType=x-scheme-handler/mailto;\n");
    Set("XDG_CONFIG_HOME", xdg_.path());
    Set("XDG_DATA_HOME", xdg_.File("data"));
    Set("XDG_DATA_DIRS", xdg_.File("data"));
    Set("DISPLAY", ":99");  // named only: the handler draws nothing
    Set("KESTREL_MAILTO_RECORD", xdg_.File("mailto"));
    for (const char* name : {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "KDE_FULL_SESSION",
                             "GNOME_DESKTOP_SESSION_ID", "WAYLAND_DISPLAY", "BROWSER"})
      ::unsetenv(name);
  }
  ~ComposerIntegration() override {
    for (const char* name :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_DATA_DIRS", "DISPLAY", "KESTREL_MAILTO_RECORD"})
      ::unsetenv(name);
  }
  static void Set(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }
  std::string Mailto() const { return testing::FileBytes(xdg_.File("mailto")); }

  TempFolder xdg_;
};

TEST_F(ComposerIntegration, DialogOpensTheComposerFilledIn) {
  TempFolder files;
  const std::string path = files.Write("notes.txt", "x");
  Draft d;
  d.To(MAPI_TO, "Ann", "SMTP:ann@example.com")
      .To(MAPI_TO, "", "bob@example.com")
      .To(MAPI_CC, "", "carl@example.com")
      .To(MAPI_BCC, "", "dora@example.com")
      .Attach(path);
  EXPECT_EQ(MAPISendMail(0, 0, d.Record("Caf\xe9 & more", "Line 1\r\nLine 2"), MAPI_DIALOG, 0),
            SUCCESS_SUCCESS);
  EXPECT_EQ(Mailto(),
            "mailto:ann@example.com?subject=Caf%C3%A9%20%26%20more&body=Line%201%0D%0ALine%202"
            "&cc=carl@example.com&bcc=dora@example.com&attach=" +
                path + "&to=bob@example.com\n");

  // Nothing to show it with: the composer could not be started.
  ::setenv("XDG_DATA_DIRS", files.path().c_str(), 1);
  ::setenv("XDG_DATA_HOME", files.path().c_str(), 1);
  ::setenv("BROWSER", "/bin/false", 1);
  EXPECT_EQ(MAPISendMail(0, 0, d.Record(), MAPI_DIALOG, 0), MAPI_E_FAILURE);
}

TEST_F(ComposerIntegration, ComposeAndShowGoesThroughTheProvider) {
  MailConfig config(SmtpIni("smtp://127.0.0.1:1"));  // a session needs a configuration
  auto message = MakeRef<Message>();
  message->SetSubject(u"Hello");
  MAPI32PTR show;
  show.SetMessage(message);
  EXPECT_NO_THROW(show.ComposeAndShow());
  EXPECT_EQ(Mailto(), "mailto:?subject=Hello\n");
}

}  // namespace
}  // namespace kestrel
