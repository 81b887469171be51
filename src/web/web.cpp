#include "kestrel/web/web.hpp"

#include <span>
#include <string>
#include <utility>

#include "kestrel/files/file_system.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/utilities/guid_generator.hpp"
#include "kestrel/web/http_request.hpp"

namespace kestrel::web {
namespace {

constexpr std::u16string_view kCrLf = u"\r\n";
constexpr std::u16string_view kDisposition = u"Content-Disposition: form-data; name=\"";

}  // namespace

KESTREL_REGISTER_CLASS(WEB, WEB::kQualifiedName, Instancing::kGlobal);
KESTREL_REGISTER_CLASS(MultiformPost, MultiformPost::kQualifiedName, Instancing::kCreatable);

// --- WEB ---------------------------------------------------------------------------

std::u16string WEB::HTTPGET(std::u16string_view url, int32_t* http_status,
                            std::u16string* http_status_text) {
  auto request = NewHttpRequest();
  request->Open(u"POST", url, false);
  request->Send();
  if (http_status != nullptr) *http_status = request->Status();
  if (http_status_text != nullptr) *http_status_text = request->StatusText();
  return request->ResponseText();
}

const DispatchTable<WEB>& WEB::Dispatch() {
  using T = DispatchTable<WEB>;
  static const T table = T::Builder(u"WEB")
                             .Method(u"HTTPGET", 1, 3,
                                     [](WEB& self, Args& a) {
                                       int32_t status = 0;
                                       std::u16string status_text;
                                       Value text(self.HTTPGET(a.Text(0), &status, &status_text));
                                       // Omitted ones land in Args' scratch slots.
                                       a[1] = Value(status);
                                       a[2] = Value(std::move(status_text));
                                       return text;
                                     })
                             .Build();
  return table;
}

// --- MultiformPost -------------------------------------------------------------------

MultiformPost::MultiformPost() {
  NewRequest();
}

void MultiformPost::NewRequest() {
  parts_.clear();
  boundary_ = u"----" + GlobalInstance<GUIDGenerator>().GenerateGUID();
  content_type_ = u"multipart/form-data; boundary=" + boundary_;
}

std::u16string MultiformPost::PartHeader(std::u16string_view field_name) const {
  std::u16string text;
  text += u"--";
  text += boundary_;
  text += kCrLf;
  text += kDisposition;
  text += field_name;
  text += u'"';
  return text;
}

std::u16string MultiformPost::Closing() const {
  return u"--" + boundary_ + u"--" + std::u16string(kCrLf);
}

void MultiformPost::AddField(std::u16string_view field_name, const Value& value) {
  // Converted before anything is added, so a value that cannot become text
  // leaves the body as it was.
  const std::u16string text = value.IsNull() ? std::u16string() : runtime::ToText(value);
  Part part{PartHeader(field_name), Value()};
  part.text += kCrLf;
  part.text += kCrLf;
  part.text += text;
  part.text += kCrLf;
  parts_.push_back(std::move(part));
}

void MultiformPost::AddFile(std::u16string_view field_name, std::u16string_view file_name,
                            std::u16string& upload_as_file_name, std::u16string& content_type) {
  auto& fs = GlobalInstance<files::FileSystem>();
  if (content_type.empty()) content_type = kDefaultContentType;
  if (upload_as_file_name.empty()) upload_as_file_name = fs.FileName(file_name);

  Part part{PartHeader(field_name), fs.ReadBinaryFile(Value(file_name))};
  part.text += u"; filename=\"";
  part.text += upload_as_file_name;
  part.text += u'"';
  part.text += kCrLf;
  part.text += u"Content-Type: ";
  part.text += content_type;
  part.text += kCrLf;
  part.text += kCrLf;
  parts_.push_back(std::move(part));
}

void MultiformPost::AddFile(std::u16string_view field_name, std::u16string_view file_name) {
  std::u16string upload_as_file_name;
  std::u16string content_type;
  AddFile(field_name, file_name, upload_as_file_name, content_type);
}

// Characters of the parts, which are also the bytes they become.
size_t MultiformPost::ContentSize() const {
  size_t size = 0;
  for (const Part& part : parts_) {
    size += part.text.size();
    if (part.file.IsArray()) size += part.file.Bytes().size() + kCrLf.size();
  }
  return size;
}

std::u16string MultiformPost::Content() const {
  const std::u16string closing = Closing();
  const size_t size = ContentSize() + closing.size();
  std::u16string content;
  content.reserve(size);
  for (const Part& part : parts_) {
    content += part.text;
    if (part.file.IsArray()) {
      const std::span<const uint8_t> bytes = part.file.Bytes();
      const size_t at = content.size();
      content.resize(at + bytes.size());
      runtime::DecodeAnsi(
          std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
          &content[at]);
      content += kCrLf;
    }
  }
  content += closing;
  return content;
}

std::u16string MultiformPost::Post(std::u16string_view url) {
  // The content through the ANSI code page: texts encoded, file bytes as
  // they are (decoding them to text and encoding that gives every byte
  // back), all in one buffer sent as it is.
  std::string bytes;
  const std::u16string closing = Closing();
  const size_t size = ContentSize() + closing.size();
  bytes.reserve(size);
  for (const Part& part : parts_) {
    bytes += runtime::ToAnsi(part.text);
    if (part.file.IsArray()) {
      const std::span<const uint8_t> file = part.file.Bytes();
      bytes.append(reinterpret_cast<const char*>(file.data()), file.size());
      bytes += "\r\n";
    }
  }
  bytes += runtime::ToAnsi(closing);

  auto request = NewHttpRequest();
  request->Open(u"POST", url, false);
  request->SetRequestHeader(u"Content-Type", content_type_);
  request->SetRequestHeader(u"Content-Length",
                            runtime::ToText(Value(static_cast<int64_t>(bytes.size()))));
  request->Send(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  if (request->Status() != 200) Raise(kPostFailed, u"Post", request->StatusText());
  return request->ResponseText();
}

const DispatchTable<MultiformPost>& MultiformPost::Dispatch() {
  using T = DispatchTable<MultiformPost>;
  using M = MultiformPost;
  static const T table =
      T::Builder(u"MultiformPost")
          .Method(u"NewRequest", 0, 0,
                  [](M& self, Args&) {
                    self.NewRequest();
                    return Value();
                  })
          .Method(u"AddField", 2, 2,
                  [](M& self, Args& a) {
                    self.AddField(a.Text(0), a[1]);
                    return Value();
                  })
          .Method(u"AddFile", 2, 4,
                  [](M& self, Args& a) {
                    std::u16string upload_as = a.Has(2) ? a.Text(2) : std::u16string();
                    std::u16string content_type = a.Has(3) ? a.Text(3) : std::u16string();
                    const bool upload_as_defaulted = upload_as.empty();
                    const bool type_defaulted = content_type.empty();
                    // The parameters are by reference: a caller's empty
                    // variable receives its default, which is in place
                    // before the file is read, so even when reading fails.
                    auto write_back = [&] {
                      if (upload_as_defaulted && !upload_as.empty()) a[2] = Value(upload_as);
                      if (type_defaulted && !content_type.empty()) a[3] = Value(content_type);
                    };
                    try {
                      self.AddFile(a.Text(0), a.Text(1), upload_as, content_type);
                    } catch (...) {
                      write_back();
                      throw;
                    }
                    write_back();
                    return Value();
                  })
          .Get(u"Content", [](M& self, Args&) { return Value(self.Content()); })
          .Method(u"Post", 1, 1, [](M& self, Args& a) { return Value(self.Post(a.Text(0))); })
          .Build();
  return table;
}

}  // namespace kestrel::web
