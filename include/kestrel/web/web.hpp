// WEB and MultiformPost: one synchronous HTTP request, and a
// multipart/form-data body built from text fields and files, then posted.
//
// WEB is a global class (Kestrel.WEB) with the single member HTTPGET, which
// sends a POST with no body although it is named for GET: that is the
// member's long-standing behaviour and clients rely on it. Whatever the
// status, 200 or not, it comes back through the by-reference status and
// status text with the response text and no error.
//
// MultiformPost (creatable, Kestrel.MultiformPost) builds the body as text
// in the fixed ANSI code page, a file's content one character per byte, so
// a file holding any bytes goes out unchanged (a field's text outside the
// code page goes out as "?"). A file is read whole when it is added and
// held until NewRequest. The boundary is "----" and a new GUID from
// GUIDGenerator (42 characters); every line ends in CR LF:
//
//   --<boundary>
//   Content-Disposition: form-data; name="<field>"
//   <empty line>
//   <value>
//
// and for a file, after the name, `; filename="<upload name>"` and the line
// `Content-Type: <type>` before the empty line. Content adds the closing
// `--<boundary>--` CR LF without changing the parts, so more can be added
// afterwards; posting twice sends the same body with the same boundary.
// Post sends it with the headers Content-Type (multipart/form-data;
// boundary=<boundary>) and Content-Length, and raises 9999 with the source
// "Post" and the server's status text for any status but 200.
//
// Request failures (see kestrel/web/http_request.hpp) and file failures of
// AddFile (FileSystem.ReadBinaryFile: 53 for a missing file, 9 for an empty
// one) reach the caller unchanged. Not thread-safe per object.
//
//   auto form = kestrel::MakeRef<kestrel::web::MultiformPost>();
//   form->AddField(u"name", kestrel::Value(u"Ada"));
//   form->AddFile(u"upload", u"/tmp/report.pdf");
//   std::u16string answer = form->Post(u"http://127.0.0.1:8080/upload");
//
// Dispatchable as HTTPGET(Url, [HTTPStatus], [HTTPStatusText]), and as
// NewRequest, AddField(FieldName, Value), AddFile(FieldName, FileName,
// [UploadAsFileName], [ContentType]) (the defaults are written back into
// the caller's variables), Content and Post(Url).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::web {

// The error Post raises when the status is not 200.
inline constexpr int32_t kPostFailed = 9999;

class KESTREL_API WEB : public Dispatchable<WEB> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.WEB";

  // Sends a POST to `url` with no body; the status and its text go to the
  // optional out-parameters, the response text is the result.
  std::u16string HTTPGET(std::u16string_view url, int32_t* http_status = nullptr,
                         std::u16string* http_status_text = nullptr);

  static const DispatchTable<WEB>& Dispatch();
};

class KESTREL_API MultiformPost : public Dispatchable<MultiformPost> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.MultiformPost";
  static constexpr std::u16string_view kDefaultContentType = u"application/octet-stream";

  MultiformPost();

  // No parts; a new boundary.
  void NewRequest();
  // A text part; Null gives an empty value line, any other value its text
  // as the runtime converts it.
  void AddField(std::u16string_view field_name, const Value& value);
  // A file part. An empty `upload_as_file_name` becomes the last component
  // of `file_name`, an empty `content_type` application/octet-stream; both
  // are written back, as a client's by-reference variables receive them.
  void AddFile(std::u16string_view field_name, std::u16string_view file_name,
               std::u16string& upload_as_file_name, std::u16string& content_type);
  void AddFile(std::u16string_view field_name, std::u16string_view file_name);
  // The parts and the closing delimiter.
  std::u16string Content() const;
  // Posts Content() to `url`; the response text on status 200.
  std::u16string Post(std::u16string_view url);

  static const DispatchTable<MultiformPost>& Dispatch();

 private:
  // One part: its text, and for a file the file's bytes (a Byte array),
  // which follow the text and are followed by CR LF. The bytes stay bytes
  // until someone asks for the text: Content decodes them one character per
  // byte, while Post sends them as they are, which is what encoding the
  // decoded text would give back, without the round trip.
  struct Part {
    std::u16string text;
    Value file;
  };

  std::u16string PartHeader(std::u16string_view field_name) const;
  std::u16string Closing() const;
  size_t ContentSize() const;

  std::vector<Part> parts_;
  std::u16string boundary_;
  std::u16string content_type_;
};

}  // namespace kestrel::web
