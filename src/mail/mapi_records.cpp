#include "mapi_records.hpp"

#include <cstdint>

#include "kestrel/frame/errors.hpp"

namespace kestrel::detail {
namespace {

LPSTR Text(ByteStore& strings, const std::u16string& text) {
  return reinterpret_cast<LPSTR>(static_cast<intptr_t>(strings.AddString(text, false)));
}

void Fill(MapiRecipDesc& r, const Recipient& from, ByteStore& strings) {
  r = MapiRecipDesc{};
  r.ulRecipClass = static_cast<ULONG>(from.Class());
  r.lpszName = Text(strings, from.Name());
  r.lpszAddress = Text(strings, from.Address());
}

}  // namespace

int64_t MapiRecords::Build(const Message* m, ByteStore& strings) {
  if (m == nullptr) RaiseStandard(errors::kObjectVariableNotSet);
  message = MapiMessage{};
  message.lpszSubject = Text(strings, m->Subject());
  message.lpszNoteText = Text(strings, m->Body());
  message.lpszMessageType = Text(strings, m->MessageType());
  // The received date and the conversation belong to received mail: a
  // message being sent leaves both null.
  message.flFlags = static_cast<FLAGS>(m->Flags());
  if (!m->Originator()) RaiseStandard(errors::kObjectVariableNotSet);
  Fill(originator, *m->Originator(), strings);
  message.lpOriginator = &originator;

  if (!m->Recipients()) RaiseStandard(errors::kObjectVariableNotSet);
  const int32_t n = m->Recipients()->Count();
  recipients.assign(static_cast<size_t>(n), MapiRecipDesc{});
  for (int32_t k = 1; k <= n; ++k)
    Fill(recipients[size_t(k - 1)], *m->Recipients()->Recipient(Value(k)), strings);
  message.nRecipCount = static_cast<ULONG>(n);
  message.lpRecips = n > 0 ? recipients.data() : nullptr;

  if (!m->Attachments()) RaiseStandard(errors::kObjectVariableNotSet);
  const int32_t count = m->Attachments()->Count();
  files.assign(static_cast<size_t>(count), MapiFileDesc{});
  for (int32_t k = 1; k <= count; ++k) {
    const Ref<Attachment> a = m->Attachments()->Attachment(Value(k));
    MapiFileDesc& f = files[size_t(k - 1)];
    // The attachment's own flags are not handed on: every file goes as
    // plain data.
    f.nPosition = static_cast<ULONG>(a->Position());
    f.lpszPathName = Text(strings, a->Path());
    f.lpszFileName = Text(strings, a->Name());
  }
  message.nFileCount = static_cast<ULONG>(count);
  message.lpFiles = count > 0 ? files.data() : nullptr;
  return static_cast<int64_t>(reinterpret_cast<intptr_t>(&message));
}

}  // namespace kestrel::detail
