// MAPI32 and MAPI32PTR against the recording provider, which writes down
// every call and record it receives and returns the codes a test chooses.
#include "kestrel/mail/mapi32.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"
#include "mail_fixtures.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

using testing::NewRecipient;

constexpr char16_t kRecorder[] = u"" KESTREL_MAPI_RECORDER;

class Recorder {
 public:
  Recorder() : library_(::dlopen(KESTREL_MAPI_RECORDER, RTLD_NOW)) {
    EXPECT_NE(library_, nullptr) << ::dlerror();
    log_ = reinterpret_cast<const char* (*)()>(::dlsym(library_, "recording_log"));
    reset_ = reinterpret_cast<void (*)(uint32_t, uint32_t, uint32_t)>(
        ::dlsym(library_, "recording_reset"));
    Reset();
  }
  ~Recorder() { ::dlclose(library_); }
  void Reset(uint32_t logon = 0, uint32_t logoff = 0, uint32_t send = 0) {
    reset_(logon, logoff, send);
  }
  std::string Log() const { return log_(); }

 private:
  void* library_;
  const char* (*log_)();
  void (*reset_)(uint32_t, uint32_t, uint32_t);
};

class Mapi32Test : public ::testing::Test {
 protected:
  Mapi32Test() {
    mapi_->SetMAPIPath(kRecorder);
    mapi_->SetMessage(message_);
  }
  Recorder recorder_;
  Ref<MAPI32> mapi_ = MakeRef<MAPI32>();
  Ref<Message> message_ = MakeRef<Message>();
};

TEST_F(Mapi32Test, SessionGoesFromLogonToSendMailAndLogoff) {
  mapi_->SetLogonFlags(MAPI_LOGON_UI);
  mapi_->SetLogoffFlags(MAPI_LOGOFF_UI);
  mapi_->SetSendMailFlags(MAPI_DIALOG);
  EXPECT_EQ(mapi_->Logon(), 0);
  EXPECT_EQ(mapi_->LastLoggedonSession(), 0x123456789A);
  EXPECT_EQ(mapi_->Session(), 0x123456789A);
  EXPECT_EQ(mapi_->SendMail(), 0);
  EXPECT_EQ(mapi_->Logoff(), 0);
  EXPECT_EQ(recorder_.Log(),
            "MAPILogon ui=0 profile=null password=null flags=1 reserved=0\n"
            "MAPISendMail session=0x123456789a ui=0 flags=8 reserved=0\n"
            "message reserved=0 subject=null note=null type=null date=null conversation=null "
            "flags=0 recips=0/null files=0/null\n"
            "originator reserved=0 class=0 name=null address=null eid=0 entry=null\n"
            "MAPILogoff session=0x123456789a ui=0 flags=2 reserved=0\n");

  // A failed log-on still copies whatever handle there is into Session.
  recorder_.Reset(3);
  mapi_->SetSession(7);
  EXPECT_EQ(mapi_->Logon(), 3);
  EXPECT_EQ(mapi_->Session(), 0x123456789A);
}

TEST_F(Mapi32Test, RecordsCarryTheMessageAsAnsiWithNullsForEmptyTexts) {
  message_->SetSubject(u"Caf\u00e9");
  message_->SetBody(u"Line 1\r\nLine 2");
  message_->SetDateReceived(u"2024/01/02 03:04");
  message_->SetConversationID(u"C1");
  message_->SetFlags(MAPI_RECEIPT_REQUESTED);
  message_->SetOriginator(NewRecipient(MAPI_ORIG, u"Me", u""));
  message_->Recipients()->Add(NewRecipient(MAPI_TO, u"Ann", u"SMTP:ann@example.com"));
  message_->Recipients()->Add(NewRecipient(MAPI_ORIG, u"", u"bob@example.com"));
  auto file = MakeRef<Attachment>();
  file->SetFlags(MAPI_OLE);
  file->SetPath(u"/tmp/a.txt");
  message_->Attachments()->Add(file);
  auto named = MakeRef<Attachment>();
  named->SetPosition(3);
  named->SetPath(u"/tmp/b");
  named->SetName(u"b.bin");
  message_->Attachments()->Add(named);

  EXPECT_EQ(mapi_->SendMail(), 0);
  EXPECT_EQ(recorder_.Log(),
            "MAPISendMail session=0 ui=0 flags=0 reserved=0\n"
            "message reserved=0 subject=\"Caf\xe9\" note=\"Line 1\r\nLine 2\" type=null "
            "date=null conversation=null flags=2 recips=2/set files=2/set\n"
            "originator reserved=0 class=0 name=\"Me\" address=null eid=0 entry=null\n"
            "recip reserved=0 class=1 name=\"Ann\" address=\"SMTP:ann@example.com\" eid=0 "
            "entry=null\n"
            "recip reserved=0 class=0 name=null address=\"bob@example.com\" eid=0 entry=null\n"
            "file reserved=0 flags=0 position=-1 path=\"/tmp/a.txt\" name=null type=null\n"
            "file reserved=0 flags=0 position=3 path=\"/tmp/b\" name=\"b.bin\" type=null\n");
}

TEST_F(Mapi32Test, ResultCodesAndTheirDescriptions) {
  EXPECT_EQ(mapi_->LastResultDescription(), u"MAPI Success");
  struct Row {
    uint32_t code;
    std::u16string_view text;
  };
  // The uneven capitals, the gap at 7 and the two codes no provider returns.
  const Row rows[] = {{3, u"MAPI Login failure"},
                      {6, u"MAPI Block too small"},
                      {7, u""},
                      {9, u"MAPI too many files"},
                      {13, u"MAPI Attachment Write Failure"},
                      {25, u"MAPI Invalid Recipients"},
                      {27, u""},
                      {998, u"MAPI Invalid parameter"},
                      {999, u"MAPI No Library"},
                      {0, u"MAPI Success"}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.code);
    recorder_.Reset(0, 0, r.code);
    EXPECT_EQ(mapi_->SendMail(), static_cast<int32_t>(r.code));
    EXPECT_EQ(mapi_->LastResultDescription(), r.text);
  }
  // Late bound, through Logoff's result.
  recorder_.Reset(0, 19, 0);
  const Value m(mapi_);
  EXPECT_EQ(CallByName(m, u"Logoff", CallKind::kMethod, {}).long_value(), 19);
  EXPECT_EQ(CallByName(m, u"LastResultDescription", CallKind::kGet, {}).string(),
            u"MAPI Invalid session");
}

TEST_F(Mapi32Test, FailuresBeforeTheCallRaiseAndKeepTheLastResult) {
  recorder_.Reset(0, 0, 14);
  mapi_->SendMail();
  EXPECT_RAISES(mapi_->SetParentWindowHandle(42), errors::kOutOfStackSpace);
  EXPECT_RAISES(CallByName(Value(mapi_), u"ParentWindowHandle", CallKind::kLet, {Value(42)}),
                errors::kOutOfStackSpace);
  EXPECT_EQ(mapi_->ParentWindowHandle(), 0);

  message_->Recipients()->GetRecipients()->Add(Value(MakeRef<Attachment>()));
  EXPECT_RAISES(mapi_->SendMail(), errors::kTypeMismatch);
  mapi_->SetMessage(nullptr);
  EXPECT_RAISES(mapi_->SendMail(), errors::kObjectVariableNotSet);
  mapi_->SetMAPIPath(u"/nonexistent/libmail.so");
  EXPECT_RAISES(mapi_->Logon(), errors::kObjectErrorBase);
  EXPECT_EQ(recorder_.Log().find("MAPILogon"), std::string::npos);
  EXPECT_EQ(mapi_->LastResultDescription(), u"MAPI Unknown recipient");
}

TEST_F(Mapi32Test, DefaultsAndAvailability) {
  const Value m(CreateObject(MAPI32::kQualifiedName));
  EXPECT_EQ(CallByName(m, u"MAPIPath", CallKind::kGet, {}).string(), kDefaultMapiLibrary);
  EXPECT_EQ(CallByName(m, u"Session", CallKind::kGet, {}).long_long(), 0);
  EXPECT_TRUE(CallByName(m, u"Message", CallKind::kGet, {}).IsNothing());
  // The provider next to libkestrel, whatever MAPIPath says.
  CallByName(m, u"MAPIPath", CallKind::kLet, {Value(u"/nonexistent.so")});
  EXPECT_TRUE(CallByName(m, u"IsAvailable", CallKind::kMethod, {}).boolean());
  EXPECT_RAISES(CreateObject(MAPI32PTR::kQualifiedName), errors::kCannotCreateObject);
}

TEST(MAPI32PTR, ComposeAndShowLogsOnShowsAndLogsOffOrStopsAtTheFirstFailure) {
  Recorder recorder;
  struct Row {
    uint32_t logon, send, logoff;
    const char* description;  // nullptr: no error
    const char* calls;        // the first word of each line the recorder wrote
  };
  const Row rows[] = {
      {0, 0, 0, nullptr, "MAPILogon MAPISendMail MAPILogoff"},
      {0, 1, 0, nullptr, "MAPILogon MAPISendMail MAPILogoff"},  // cancelled by the user
      {3, 0, 0, "MAPI ERROR: 3", "MAPILogon"},
      {0, 2, 0, "MAPI ERROR: 2", "MAPILogon MAPISendMail"},
      {0, 0, 19, "MAPI ERROR: 19", "MAPILogon MAPISendMail MAPILogoff"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.calls);
    recorder.Reset(r.logon, r.logoff, r.send);
    MAPI32PTR show;
    show.SetMAPIPath(kRecorder);
    show.SetMessage(MakeRef<Message>());
    try {
      show.ComposeAndShow();
      EXPECT_EQ(r.description, nullptr);
    } catch (const RuntimeError& e) {
      ASSERT_NE(r.description, nullptr);
      EXPECT_EQ(e.number(), errors::kObjectErrorBase);
      EXPECT_EQ(e.source(), u"MAPI32.ComposeAndShow");
      EXPECT_EQ(ToUtf8(e.description()), r.description);
    }
    std::string calls;
    const std::string log = recorder.Log();
    for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1)
      if (log.compare(at, 4, "MAPI") == 0)
        calls += (calls.empty() ? "" : " ") + log.substr(at, log.find(' ', at) - at);
    EXPECT_EQ(calls, r.calls);
    if (r.logon == 0) {
      EXPECT_NE(log.find("MAPISendMail session=0x123456789a ui=0 flags=9 reserved=0\n"),
                std::string::npos);
    }
  }

  recorder.Reset();
  MAPI32PTR no_message;
  no_message.SetMAPIPath(kRecorder);
  EXPECT_RAISES(no_message.ComposeAndShow(), errors::kObjectVariableNotSet);
  EXPECT_EQ(recorder.Log(), "MAPILogon ui=0 profile=null password=null flags=0 reserved=0\n");
}

}  // namespace
}  // namespace kestrel
