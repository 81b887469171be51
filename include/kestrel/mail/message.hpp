// The mail message records: Message, Recipient, Attachment, their lists
// Recipients and Attachments, and AttachmentType.
//
// They hold data only, in the shape of the Simple MAPI records that MAPI32
// copies them into field by field; nothing here talks to a mail system. A
// Message owns an Originator, a Recipients and an Attachments object from
// the start; object fields are assigned by reference (the very object is
// stored) and nothing is validated. The lists are 1-based Collections
// without keys; Recipient(0) and Attachment(0), or no index, mean the last
// element added, and any index outside 1 .. Count raises 9.
//
// Kept on purpose, because clients rely on it: reading ConversationID
// returns "" and copies the stored identifier into DateReceived. Not
// thread-safe.
//
//   auto msg = kestrel::MakeRef<kestrel::Message>();
//   auto to = kestrel::MakeRef<kestrel::Recipient>();
//   to->SetClass(kestrel::MAPI_TO);  to->SetAddress(u"SMTP:ann@example.com");
//   msg->Recipients()->Add(to);
//
// Every field is dispatchable under its name (get and let, or get and set
// for the objects), as are Add, Count, Recipients / Attachments and
// Recipient(index) / Attachment(index). Registered as Kestrel.Message,
// Kestrel.Recipient, Kestrel.Recipients, Kestrel.Attachment,
// Kestrel.Attachments and Kestrel.AttachmentType, all creatable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

// The enumerators keep their published Simple MAPI names and values.
enum MessageFlagsEnum : int32_t {
  MAPI_UNREAD = 1,
  MAPI_RECEIPT_REQUESTED = 2,
  MAPI_SENT = 4,
};

enum RecipientClassEnum : int32_t {
  MAPI_ORIG = 0,
  MAPI_TO = 1,
  MAPI_CC = 2,
  MAPI_BCC = 3,
};

enum AttachmentFlagsEnum : int32_t {
  MAPI_OLE = 1,
  MAPI_OLE_STATIC = 2,
};

// The type of an attachment's file-type field, which stays empty.
class KESTREL_API AttachmentType : public Dispatchable<AttachmentType> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.AttachmentType";
  static const DispatchTable<AttachmentType>& Dispatch();
};

class KESTREL_API Recipient : public Dispatchable<Recipient> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Recipient";

  RecipientClassEnum Class() const noexcept { return class_; }
  void SetClass(RecipientClassEnum v) noexcept { class_ = v; }
  const std::u16string& Name() const noexcept { return name_; }
  void SetName(std::u16string_view v) { name_ = v; }
  const std::u16string& Address() const noexcept { return address_; }
  void SetAddress(std::u16string_view v) { address_ = v; }

  static const DispatchTable<Recipient>& Dispatch();

 private:
  RecipientClassEnum class_ = MAPI_ORIG;
  std::u16string name_;
  std::u16string address_;
};

class KESTREL_API Attachment : public Dispatchable<Attachment> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Attachment";

  AttachmentFlagsEnum Flags() const noexcept { return flags_; }
  void SetFlags(AttachmentFlagsEnum v) noexcept { flags_ = v; }
  // Character of the body the attachment stands at; -1 for none.
  int32_t Position() const noexcept { return position_; }
  void SetPosition(int32_t v) noexcept { position_ = v; }
  const std::u16string& Path() const noexcept { return path_; }
  void SetPath(std::u16string_view v) { path_ = v; }
  const std::u16string& Name() const noexcept { return name_; }
  void SetName(std::u16string_view v) { name_ = v; }

  static const DispatchTable<Attachment>& Dispatch();

 private:
  AttachmentFlagsEnum flags_ = AttachmentFlagsEnum{0};
  int32_t position_ = -1;
  std::u16string path_;
  std::u16string name_;
};

// A keyless list of T, the base of Recipients and Attachments.
template <class T>
class ElementList {
 public:
  // Appends the object itself (no key).
  void Add(const Ref<T>& v) { list_->Add(Value(v)); }
  int32_t Count() const noexcept { return list_->Count(); }
  // The list object itself: changes through it are changes of this list.
  const Ref<Collection>& List() const noexcept { return list_; }
  // The element at 1-based `index`; 0 or Missing is the last one added.
  // 9 outside 1 .. Count, 13 when the element there is not a T.
  Ref<T> Element(const Value& index = Value(int32_t{0})) const;

 protected:
  ElementList() : list_(MakeRef<Collection>()) {}

 private:
  Ref<Collection> list_;
};

template <class T>
Ref<T> ElementList<T>::Element(const Value& index) const {
  Value at = index;
  if (index.IsMissing() || index.IsEmpty() || (index.IsNumeric() && runtime::ToDouble(index) == 0))
    at = Value(Count());
  const Value item = list_->Item(at);
  T* element = item.IsObject() ? dynamic_cast<T*>(item.object()) : nullptr;
  if (element == nullptr) RaiseStandard(errors::kTypeMismatch);
  return Ref<T>(element);
}

class KESTREL_API Recipients : public Dispatchable<Recipients>, public ElementList<Recipient> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Recipients";

  const Ref<Collection>& GetRecipients() const noexcept { return List(); }
  Ref<kestrel::Recipient> Recipient(const Value& index = Value(int32_t{0})) const {
    return Element(index);
  }

  static const DispatchTable<Recipients>& Dispatch();
};

class KESTREL_API Attachments : public Dispatchable<Attachments>, public ElementList<Attachment> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Attachments";

  const Ref<Collection>& GetAttachments() const noexcept { return List(); }
  Ref<kestrel::Attachment> Attachment(const Value& index = Value(int32_t{0})) const {
    return Element(index);
  }

  static const DispatchTable<Attachments>& Dispatch();
};

class KESTREL_API Message : public Dispatchable<Message> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Message";

  Message();

  const std::u16string& Subject() const noexcept { return subject_; }
  void SetSubject(std::u16string_view v) { subject_ = v; }
  const std::u16string& Body() const noexcept { return body_; }
  void SetBody(std::u16string_view v) { body_ = v; }
  const std::u16string& MessageType() const noexcept { return message_type_; }
  void SetMessageType(std::u16string_view v) { message_type_ = v; }
  const std::u16string& DateReceived() const noexcept { return date_received_; }
  void SetDateReceived(std::u16string_view v) { date_received_ = v; }
  // Returns "" and sets DateReceived to the stored identifier (see above).
  std::u16string ConversationID();
  void SetConversationID(std::u16string_view v) { conversation_id_ = v; }
  MessageFlagsEnum Flags() const noexcept { return flags_; }
  void SetFlags(MessageFlagsEnum v) noexcept { flags_ = v; }

  const Ref<kestrel::Recipient>& Originator() const noexcept { return originator_; }
  void SetOriginator(Ref<kestrel::Recipient> v) noexcept { originator_ = std::move(v); }
  const Ref<kestrel::Recipients>& Recipients() const noexcept { return recipients_; }
  void SetRecipients(Ref<kestrel::Recipients> v) noexcept { recipients_ = std::move(v); }
  const Ref<kestrel::Attachments>& Attachments() const noexcept { return attachments_; }
  void SetAttachments(Ref<kestrel::Attachments> v) noexcept { attachments_ = std::move(v); }

  static const DispatchTable<Message>& Dispatch();

 private:
  std::u16string subject_;
  std::u16string body_;
  std::u16string message_type_;
  std::u16string date_received_;
  std::u16string conversation_id_;
  MessageFlagsEnum flags_ = MessageFlagsEnum{0};
  Ref<kestrel::Recipient> originator_;
  Ref<kestrel::Recipients> recipients_;
  Ref<kestrel::Attachments> attachments_;
};

}  // namespace kestrel
