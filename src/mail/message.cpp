#include "kestrel/mail/message.hpp"

#include <string>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "object_arg.hpp"

namespace kestrel {

KESTREL_REGISTER_CLASS(Message, Message::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(Recipient, Recipient::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(Recipients, Recipients::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(Attachment, Attachment::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(Attachments, Attachments::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(AttachmentType, AttachmentType::kQualifiedName, Instancing::kCreatable);

namespace {

using detail::ObjectArg;

// Text members of the records: get and let of a string.
template <class C, const std::u16string& (C::*Get)() const, void (C::*Set)(std::u16string_view)>
void AddText(typename DispatchTable<C>::Builder& b, std::u16string_view name) {
  b.Property(
      name, [](C& c, Args&) { return Value((c.*Get)()); },
      [](C& c, Args&, const Value& v) { (c.*Set)(runtime::ToText(v)); });
}

}  // namespace

std::u16string Message::ConversationID() {
  // Kept as clients know it: the getter hands the identifier to
  // DateReceived and returns nothing of its own.
  date_received_ = conversation_id_;
  return {};
}

Message::Message()
    : originator_(MakeRef<kestrel::Recipient>()),
      recipients_(MakeRef<kestrel::Recipients>()),
      attachments_(MakeRef<kestrel::Attachments>()) {}

const DispatchTable<AttachmentType>& AttachmentType::Dispatch() {
  static const auto table = DispatchTable<AttachmentType>::Builder(u"AttachmentType").Build();
  return table;
}

const DispatchTable<Recipient>& Recipient::Dispatch() {
  using R = Recipient;
  static const auto table = [] {
    DispatchTable<R>::Builder b(u"Recipient");
    b.Property(
        u"Class", [](R& r, Args&) { return Value(int32_t{r.Class()}); },
        [](R& r, Args&, const Value& v) {
          r.SetClass(static_cast<RecipientClassEnum>(runtime::ToLong(v)));
        });
    AddText<R, &R::Name, &R::SetName>(b, u"Name");
    AddText<R, &R::Address, &R::SetAddress>(b, u"Address");
    return b.Build();
  }();
  return table;
}

const DispatchTable<Attachment>& Attachment::Dispatch() {
  using A = Attachment;
  static const auto table = [] {
    DispatchTable<A>::Builder b(u"Attachment");
    b.Property(
        u"Flags", [](A& a, Args&) { return Value(int32_t{a.Flags()}); },
        [](A& a, Args&, const Value& v) {
          a.SetFlags(static_cast<AttachmentFlagsEnum>(runtime::ToLong(v)));
        });
    b.Property(
        u"Position", [](A& a, Args&) { return Value(a.Position()); },
        [](A& a, Args&, const Value& v) { a.SetPosition(runtime::ToLong(v)); });
    AddText<A, &A::Path, &A::SetPath>(b, u"Path");
    AddText<A, &A::Name, &A::SetName>(b, u"Name");
    return b.Build();
  }();
  return table;
}

const DispatchTable<Recipients>& Recipients::Dispatch() {
  using L = Recipients;
  static const auto table =
      DispatchTable<L>::Builder(u"Recipients")
          .Method(u"Add", 1, 1,
                  [](L& l, Args& a) {
                    l.Add(ObjectArg<kestrel::Recipient>(a[0]));
                    return Value();
                  })
          .Get(u"Count", [](L& l, Args&) { return Value(l.Count()); })
          .Get(u"Recipients", [](L& l, Args&) { return Value(l.GetRecipients()); })
          .Get(
              u"Recipient", [](L& l, Args& a) { return Value(l.Recipient(a[0])); }, 0, 1)
          .Build();
  return table;
}

const DispatchTable<Attachments>& Attachments::Dispatch() {
  using L = Attachments;
  static const auto table =
      DispatchTable<L>::Builder(u"Attachments")
          .Method(u"Add", 1, 1,
                  [](L& l, Args& a) {
                    l.Add(ObjectArg<kestrel::Attachment>(a[0]));
                    return Value();
                  })
          .Get(u"Count", [](L& l, Args&) { return Value(l.Count()); })
          .Get(u"Attachments", [](L& l, Args&) { return Value(l.GetAttachments()); })
          .Get(
              u"Attachment", [](L& l, Args& a) { return Value(l.Attachment(a[0])); }, 0, 1)
          .Build();
  return table;
}

const DispatchTable<Message>& Message::Dispatch() {
  using M = Message;
  static const auto table = [] {
    DispatchTable<M>::Builder b(u"Message");
    AddText<M, &M::Subject, &M::SetSubject>(b, u"Subject");
    AddText<M, &M::Body, &M::SetBody>(b, u"Body");
    AddText<M, &M::MessageType, &M::SetMessageType>(b, u"MessageType");
    AddText<M, &M::DateReceived, &M::SetDateReceived>(b, u"DateReceived");
    b.Property(
        u"ConversationID", [](M& m, Args&) { return Value(m.ConversationID()); },
        [](M& m, Args&, const Value& v) { m.SetConversationID(runtime::ToText(v)); });
    b.Property(
        u"Flags", [](M& m, Args&) { return Value(int32_t{m.Flags()}); },
        [](M& m, Args&, const Value& v) {
          m.SetFlags(static_cast<MessageFlagsEnum>(runtime::ToLong(v)));
        });
    b.Get(u"Originator", [](M& m, Args&) { return Value(m.Originator()); });
    b.Set(u"Originator",
          [](M& m, Args&, const Value& v) { m.SetOriginator(ObjectArg<kestrel::Recipient>(v)); });
    b.Get(u"Recipients", [](M& m, Args&) { return Value(m.Recipients()); });
    b.Set(u"Recipients",
          [](M& m, Args&, const Value& v) { m.SetRecipients(ObjectArg<kestrel::Recipients>(v)); });
    b.Get(u"Attachments", [](M& m, Args&) { return Value(m.Attachments()); });
    b.Set(u"Attachments", [](M& m, Args&, const Value& v) {
      m.SetAttachments(ObjectArg<kestrel::Attachments>(v));
    });
    return b.Build();
  }();
  return table;
}

}  // namespace kestrel
