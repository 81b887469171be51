#include "kestrel/mail/message.hpp"

#include <gtest/gtest.h>

#include <string>

#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

Value Get(const Value& object, std::u16string_view name, std::initializer_list<Value> args = {}) {
  return CallByName(object, name, CallKind::kGet, args);
}

TEST(Message, NewObjectsStartAsTheRecordsDo) {
  const Value m(CreateObject(Message::kQualifiedName));
  for (const char16_t* text : {u"Subject", u"Body", u"MessageType", u"DateReceived"})
    EXPECT_EQ(Get(m, text).string(), u"") << ToUtf8(text);
  EXPECT_EQ(Get(m, u"Flags").long_value(), 0);
  const Value originator = Get(m, u"Originator");
  ASSERT_FALSE(originator.IsNothing());
  EXPECT_EQ(Get(originator, u"Class").long_value(), MAPI_ORIG);
  EXPECT_EQ(Get(originator, u"Name").string(), u"");
  EXPECT_EQ(Get(Get(m, u"Recipients"), u"Count").long_value(), 0);
  EXPECT_EQ(Get(Get(m, u"Attachments"), u"Count").long_value(), 0);

  const Value a(CreateObject(Attachment::kQualifiedName));
  EXPECT_EQ(Get(a, u"Position").long_value(), -1);
  EXPECT_EQ(Get(a, u"Flags").long_value(), 0);
  EXPECT_NO_THROW(CreateObject(AttachmentType::kQualifiedName));
}

TEST(Message, ConversationIdReadsEmptyAndMovesIntoDateReceived) {
  Message m;
  m.SetDateReceived(u"2024/01/02 03:04");
  m.SetConversationID(u"C1");
  EXPECT_EQ(m.DateReceived(), u"2024/01/02 03:04");  // writing alone changes nothing else
  EXPECT_EQ(m.ConversationID(), u"");
  EXPECT_EQ(m.DateReceived(), u"C1");
}

TEST(Message, ObjectFieldsHoldTheVeryObjectAssigned) {
  auto m = MakeRef<Message>();
  auto r = MakeRef<Recipients>();
  CallByName(m, u"Recipients", CallKind::kSet, {Value(r)});
  EXPECT_EQ(m->Recipients().get(), r.get());
  EXPECT_RAISES(CallByName(m, u"Originator", CallKind::kSet, {Value(r)}), errors::kTypeMismatch);
  CallByName(m, u"Originator", CallKind::kSet, {Value::Nothing()});
  EXPECT_FALSE(m->Originator());
}

// Recipients and Attachments behave alike; walked as Recipients here and
// through late binding as Attachments.
TEST(Recipients, IndexZeroIsTheLastAddedAndOutOfRangeIsNine) {
  Recipients list;
  EXPECT_RAISES(list.Recipient(), errors::kSubscriptOutOfRange);
  auto first = MakeRef<Recipient>();
  auto second = MakeRef<Recipient>();
  list.Add(first);
  list.Add(second);
  struct Row {
    Value index;
    Recipient* expected;  // nullptr: raises 9
  };
  const Row rows[] = {{Value(int32_t{1}), first.get()},  {Value(int32_t{2}), second.get()},
                      {Value(int32_t{0}), second.get()}, {Value::Missing(), second.get()},
                      {Value(1.0), first.get()},         {Value(int32_t{3}), nullptr},
                      {Value(int32_t{-1}), nullptr}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.index.code());
    if (r.expected == nullptr)
      EXPECT_RAISES(list.Recipient(r.index), errors::kSubscriptOutOfRange);
    else
      EXPECT_EQ(list.Recipient(r.index).get(), r.expected);
  }
  // The list handed out is the list itself.
  list.GetRecipients()->Add(Value(u"not a recipient"));
  EXPECT_EQ(list.Count(), 3);
  EXPECT_RAISES(list.Recipient(), errors::kTypeMismatch);

  const Value attachments(CreateObject(Attachments::kQualifiedName));
  const Value a(CreateObject(Attachment::kQualifiedName));
  CallByName(attachments, u"Add", CallKind::kMethod, {a});
  EXPECT_EQ(Get(attachments, u"Attachment").object(), a.object());
  EXPECT_EQ(Get(attachments, u"Attachment", {Value(int32_t{1})}).object(), a.object());
  EXPECT_EQ(Get(Get(attachments, u"Attachments"), u"Count").long_value(), 1);
  EXPECT_RAISES(Get(attachments, u"Attachment", {Value(int32_t{2})}), errors::kSubscriptOutOfRange);
}

}  // namespace
}  // namespace kestrel
