// A tour of what Kestrel can do today. Each section prints what it shows.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kestrel/containers/named_strings.hpp"
#include "kestrel/containers/stack.hpp"
#include "kestrel/containers/string_builder.hpp"
#include "kestrel/diagnostics/log.hpp"
#include "kestrel/diagnostics/profiler.hpp"
#include "kestrel/diagnostics/tracer.hpp"
#include "kestrel/files/file_system.hpp"
#include "kestrel/files/ini_file.hpp"
#include "kestrel/formats/crypto.hpp"
#include "kestrel/formats/json.hpp"
#include "kestrel/formats/md5_hash.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/mail/mapi32.hpp"
#include "kestrel/mail/message.hpp"
#include "kestrel/native/call_ptr.hpp"
#include "kestrel/runtime/arithmetic.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/dictionary.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/error.hpp"
#include "kestrel/runtime/format.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/runtime/strings.hpp"
#include "kestrel/time/time_interval.hpp"
#include "kestrel/utilities/guid_generator.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "kestrel/web/web.hpp"

using namespace kestrel;

namespace {

std::string Text(const Value& v) {
  return ToUtf8(runtime::ToText(v));
}

void Show(const std::string& expression, const Value& v) {
  std::printf("  %-34s -> %-22s (kind %u)\n", expression.c_str(), Text(v).c_str(), v.code());
}

void Section(const char* title) {
  std::printf("\n%s\n", title);
}

}  // namespace

int main() {
  Section("Values and the runtime's conversions");
  Show("CStr(123.4 + 567.8)", Value(runtime::ToText(runtime::Add(Value(123.4), Value(567.8)))));
  Show("1E15", Value(1e15));
  Show("1 / 30", runtime::Divide(Value(1), Value(30)));
  Show("CInt(2.5), CInt(3.5)",
       Value(runtime::ToText(Value(runtime::ToInteger(Value(2.5)))) + u", " +
             runtime::ToText(Value(runtime::ToInteger(Value(3.5))))));
  Show("CLng(\" &HFF \")", Value(runtime::ToLong(Value(u" &HFF "))));

  Section("Arithmetic with kind promotion");
  Show("CInt 32767 + CInt 1", runtime::Add(Value(int16_t{32767}), Value(int16_t{1})));
  Show("\"12\" + 1", runtime::Add(Value(u"12"), Value(1)));
  Show("\"12\" + \"1\"", runtime::Add(Value(u"12"), Value(u"1")));
  Show("Null + 1 is Null", Value(runtime::Add(Value::Null(), Value(1)).IsNull()));
  Show("7 \\ 2, 7 Mod -3",
       runtime::Concat(runtime::IntDivide(Value(7), Value(2)),
                       runtime::Concat(Value(u", "), runtime::Mod(Value(7), Value(-3)))));

  Section("Comparison: binary and text mode");
  Show("StrComp(\"a\", \"B\", binary)", Value(runtime::StrComp(u"a", u"B")));
  Show("StrComp(\"a\", \"B\", text)", Value(runtime::StrComp(u"a", u"B", CompareMethod::kText)));
  Show("1 < \"1\" (numbers sort first)",
       Value(runtime::Compare(Value(1), Value(u"1")) == Ordering::kLess));

  Section("String functions");
  Show("Replace(\"a-b-c\", \"-\", \"+\")", Value(runtime::Replace(u"a-b-c", u"-", u"+")));
  Show("InStr(1, \"Hello\", \"L\", text)",
       Value(runtime::InStr(1, u"Hello", u"L", CompareMethod::kText)));
  Show("Join(Split(\"x y z\"), \"|\")", Value(runtime::Join(runtime::Split(u"x y z"), u"|")));
  Show("Hex(-1 as Integer)", runtime::Hex(Value(int16_t{-1})));

  Section("Arrays: any bounds, first index fastest, copy-on-write");
  Value grid = Value::NewArray(Kind::kVariant, {{1, 2}, {-1, 0}});
  grid.SetElement({2, 0}, Value(u"corner"));
  Value copy = grid;
  copy.SetElement({2, 0}, Value(u"changed"));
  Show("grid(2, 0) after changing a copy", grid.GetElement({2, 0}));
  Show("UBound(grid, 2)", Value(grid.UBound(2)));

  Section("Containers");
  auto dict = MakeRef<Dictionary>();
  dict->SetCompareMode(CompareMethod::kText);
  dict->Add(Value(u"Apple"), Value(1));
  dict->Add(Value(2.0), Value(u"two"));
  Show("dict.Exists(\"APPLE\") in text mode", Value(dict->Exists(Value(u"APPLE"))));
  Show("dict.Item(2) (Long finds Double key)", dict->Item(Value(2)));
  Show("Join(dict.Keys)", Value(runtime::Join(dict->Keys(), u", ")));
  auto list = MakeRef<Collection>();
  list->Add(Value(u"first"), Value(u"k1"));
  list->Add(Value(u"second"));
  Show("list.Item(\"K1\")", list->Item(Value(u"K1")));
  Show("list.Count", Value(list->Count()));

  Section("Utilities: the global helper class, as free functions");
  Show("Max(Null, 3)", utilities::Max(Value::Null(), Value(3)));
  Show("Max(10, \"9\") (text beats numbers)", utilities::Max(Value(10), Value(u"9")));
  Show("Round(-2.5), Round(0.125, 2)",
       runtime::Concat(Value(utilities::Round(Value(-2.5))),
                       runtime::Concat(Value(u", "), Value(utilities::Round(Value(0.125), 2)))));
  Value counter(int16_t{32767});
  utilities::Increment(counter);
  Show("Increment(32767 as Integer)", counter);
  Value list_array;
  for (int n : {3, 1, 2, 3}) utilities::AddToArray(list_array, Value(n), /*unique=*/true);
  utilities::SQuickSort(list_array, list_array.LBound(), list_array.UBound());
  Show("AddToArray unique, SQuickSort", Value(runtime::Join(list_array, u" ")));
  Show("GetWindowsVersionString", Value(utilities::GetWindowsVersionString()));

  Section("Stack, StringBuilder, NamedStrings");
  auto stack = MakeRef<Stack>();
  stack->Add(Value(5));
  stack->Add(Value(u"x"));
  Show("Top after Add 5, Add \"x\"", stack->Top());
  Show("Remove (returns Null, kept so)", Value(stack->Remove().IsNull()));
  auto builder = MakeRef<StringBuilder>();
  for (int i = 0; i < 3; ++i) builder->Append(u"ab");
  builder->Insert(0, u"<");
  Show("StringBuilder: Insert(0) + 3 x Append", Value(builder->toString()));
  Show("Capacity (characters, one chunk)", Value(builder->Capacity()));
  auto pairs = MakeRef<NamedStrings>();
  pairs->SetText(u"user=ann;path=C://x;note=a/=b");  // "/" escapes
  Show("NamedStrings Value(\"note\")", Value(pairs->Value(u"note")));
  Show("NamedStrings Text", Value(pairs->Text()));

  Section("Dates: the runtime's calendar rules");
  double jan31 = runtime::DateSerial(2011, 1, 31);
  Show("DateAdd(\"m\", 1, 1/31/2011)", Value::Date(runtime::DateAdd(u"m", 1, jan31)));
  Show("DateSerial(2024, 13, 0)", Value::Date(runtime::DateSerial(2024, 13, 0)));
  Show("DateDiff(\"yyyy\", 12/31/2023, 1/1/2024)",
       Value(runtime::DateDiff(u"yyyy", runtime::DateSerial(2023, 12, 31),
                               runtime::DateSerial(2024, 1, 1))));
  Show("DatePart(\"ww\", 1/1/2021, Monday, 4 days)",
       Value(runtime::DatePart(u"ww", runtime::DateSerial(2021, 1, 1), 2, 2)));
  Show("CDate(\"March 5, 2024 2:30 PM\")",
       Value::Date(runtime::ToDate(Value(u"March 5, 2024 2:30 PM"))));

  Section("Format and Like: the runtime's pattern languages");
  const Value moment =
      Value::Date(runtime::DateSerial(2024, 3, 5) + runtime::TimeSerial(14, 30, 0));
  const struct {
    Value value;
    std::u16string_view pattern;
  } formats[] = {
      {Value(-1234.567), u"Currency"},
      {Value(1234.5), u"Scientific"},
      {Value(0.4567), u"Percent"},
      {Value(1234567), u"#,##0,"},
      {Value(2.71828182), u"#.###E+###"},
      {Value(-5), u"0.00;(0.00);\\z\\e\\r\\o"},
      {moment, u"Long Date"},
      {moment, u"Medium Time"},
      {moment, u"dddd, mmm d \"at\" h:mm AM/PM"},
      {Value(u"kestrel"), u">@@@@@@@@@"},
  };
  for (const auto& f : formats)
    Show("Format(" + Text(f.value) + ", \"" + ToUtf8(f.pattern) + "\")",
         Value(runtime::Format(f.value, f.pattern)));
  Show("FormatPercent(-0.5) (sign outside \"%\")",
       Value(runtime::FormatPercent(Value(-0.5), -1, runtime::Tristate::kUseDefault,
                                    runtime::Tristate::kTrue)));
  Show("Round(2.675, 2), Round(2.665, 2)",
       runtime::Concat(runtime::Round(Value(2.675), 2),
                       runtime::Concat(Value(u", "), runtime::Round(Value(2.665), 2))));
  Show("\"report-2024.txt\" Like \"report-####.*\"",
       Value(runtime::Like(u"report-2024.txt", u"report-####.*")));
  Show("\"B\" Like \"[!a-z]\" binary", Value(runtime::Like(u"B", u"[!a-z]")));
  Show("\"B\" Like \"[!a-z]\" text", Value(runtime::Like(u"B", u"[!a-z]", CompareMethod::kText)));

  Section("TimeInterval");
  auto span = MakeRef<TimeInterval>();
  span->SetDate1(Value::Date(jan31));
  span->SetIntervalNumber(1, enTimeSpanIntervalMonth);
  Show("Date2 = Date1 + 1 month", Value::Date(span->Date2()));
  Show("GetIntervalNumber(days)", Value(span->GetIntervalNumber(enTimeSpanIntervalDay)));
  Show("Includes(2/14/2011)", Value(span->Includes(Value::Date(runtime::DateSerial(2011, 2, 14)))));

  Section("Tracing and profiling");
  {
    using namespace kestrel::diagnostics;
    auto log = MakeRef<LogString>();
    auto profile_path = std::filesystem::temp_directory_path() / "kestrel_demo_profile.txt";
    auto profile = MakeRef<ProfileDataFile>();
    profile->OpenFile(profile_path.string());
    auto profiler = MakeRef<kestrel::diagnostics::Profiler>();
    profiler->SetData(profile);
    Tracer tracer;
    tracer.SetLogTo(log);
    tracer.SetProfiler(profiler);
    tracer.SetProfilerOn(true);
    tracer.TraceIn(u"Load", u"Demo");
    tracer.TraceIn(u"Parse", u"Demo");
    tracer.Trace(u"3 records", Info);
    tracer.TraceOut(u"Parse", u"Demo");
    tracer.TraceOut(u"Load", u"Demo");
    std::printf("  trace log:\n%s", ToUtf8(log->Log()).c_str());
    std::printf("  profile lines (date, ID, parent, ticks in, ticks, name, depth):\n%s",
                ToUtf8(profile->Data()).c_str());
    profile->Clear();
    std::filesystem::remove(profile_path);
  }

  Section("Text, lists, digests, GUIDs and encryption");
  Show("ListMember(\"a, b ,c\", 2)", Value(utilities::ListMember(u"a, b ,c", 2)));
  Show("BuildString(\"{0} of {1}\", 3, 7)",
       Value(utilities::BuildString(Value(u"{0} of {1}"), {Value(3), Value(7)})));
  Show("ParseIn(\"a/b<TAB>c\")", Value(utilities::Instance().ParseIn(u"a/b\tc")));
  Show("HexToDec(\"FFFF\")", Value(utilities::Instance().HexToDec(u"FFFF")));
  Show("MD5(\"abc\") (lower case)", Value(utilities::MD5(u"abc")));
  {
    // Hash this program's own file, as HashFile reads any file: in 16 KiB blocks.
    auto hasher = MakeRef<MD5Hash>();
    Show("MD5Hash.HashFile(/proc/self/exe)",
         Value(hasher->HashFile(std::filesystem::read_symlink("/proc/self/exe").string())));
  }
  Show("GUIDGenerator.GenerateGUID", Value(GlobalInstance<GUIDGenerator>().GenerateGUID()));
  {
    // A 4-byte length, the text and zero padding, enciphered 32 bytes at a time.
    const std::string text = "Meet me at the usual place";
    const std::string password = "correct horse battery staple";
    auto bytes = [](const std::string& s) {
      return Value::ByteArray({reinterpret_cast<const uint8_t*>(s.data()), s.size()});
    };
    auto crypto = MakeRef<Crypto>();
    const Value sealed = crypto->EncryptData(bytes(text), bytes(password));
    Show("UBound(Crypto.EncryptData(26-byte text, password)) + 1", Value(sealed.UBound() + 1));
    const Value opened = crypto->DecryptData(sealed, bytes(password));
    Show("Crypto.DecryptData(..., password)",
         Value(FromUtf8(
             {reinterpret_cast<const char*>(opened.Bytes().data()), opened.Bytes().size()})));
    Show("UBound(Crypto.DecryptData(..., \"wrong\"))",
         Value(crypto->DecryptData(sealed, bytes("wrong")).UBound()));
  }

  Section("Files, paths and INI settings");
  {
    auto& fs = GlobalInstance<files::FileSystem>();
    const std::u16string folder = fs.GetTempFolderName() + u"/kestrel-demo/settings";
    fs.CreateFolder(folder);  // parents first
    const std::u16string path = folder + u"/app.ini";
    Show("AbsoluteFileName(\"../app.ini\", folder)",
         Value(fs.AbsoluteFileName(u"../app.ini", folder)));
    Show("RelativeFileName(path, temp folder)",
         Value(fs.RelativeFileName(path, fs.GetTempFolderName())));
    Show("BaseName / ExtensionName(path)",
         Value(fs.BaseName(path) + u" / " + fs.ExtensionName(path)));

    auto ini = MakeRef<files::IniFile>();
    ini->SetFileName(path);
    ini->SetValue(u"Database", u"Host", u"db.example.org");
    ini->SetValue(u"Database", u"Port", u"5432");
    ini->SetValue(u"Log", u"Level", u"");  // the key stays, with an empty value
    Show("GetValue(\"database\", \"HOST\")", Value(ini->GetValue(u"database", u"HOST")));
    Show("GetValue(Database, User, \"admin\")",
         Value(ini->GetValue(u"Database", u"User", Value(u"admin"))));
    Show("KeyExists(Log, Level)", Value(ini->KeyExists(u"Log", u"Level")));
    Show("Join(GetSections(), \",\")", Value(runtime::Join(ini->GetSections(), u",")));
    std::printf("  the file:\n%s", ToUtf8(fs.ReadFile(path)).c_str());
    fs.DeleteFolder(fs.ParentFolderName(folder));
  }

  Section("JSON: a lenient reader into Dictionaries and Collections");
  {
    Ref<Object> json = CreateObject(u"Kestrel.JSON");
    const Value document(
        u"// settings, with comments\n"
        u"{ name: 'Kestrel', /* unquoted keys, single quotes */\n"
        u"  \"servers\": [ {host: 'a.example.org', port: 8080}, {host: 'b', port: 8081} ] }");
    Show("Parse(document)", CallByName(json, u"Parse", CallKind::kMethod, {document}));
    Value root = CallByName(json, u"JSONObject", CallKind::kGet);
    // Walked by name, as a script would: root("servers")(2)("PORT").
    Value servers = CallByName(root.object(), u"Item", CallKind::kGet, {Value(u"servers")});
    Value second = CallByName(servers.object(), u"Item", CallKind::kGet, {Value(2)});
    Show("root(\"Name\")", CallByName(root.object(), u"Item", CallKind::kGet, {Value(u"Name")}));
    Show("servers.Count", CallByName(servers.object(), u"Count", CallKind::kGet));
    Show("servers(2)(\"PORT\")", CallByName(second.object(), u"Item", CallKind::kGet, {Value(u"PORT")}));
    Show("Parse(\"{\"a\":tru, \"a\":1}\")",
         CallByName(json, u"Parse", CallKind::kMethod, {Value(u"{\"a\":tru, \"a\":1}")}));
    std::printf("  ParseError:\n%s",
                ToUtf8(CallByName(json, u"ParseError", CallKind::kGet).string()).c_str());
  }

  Section("MultiformPost: a field and a file posted to a local server");
  if (const char* server = std::getenv("KESTREL_DEMO_WEB_URL"); server == nullptr) {
    std::printf("  skipped: scripts/demo.sh starts the server and sets KESTREL_DEMO_WEB_URL\n");
  } else {
    const std::string upload =
        (std::filesystem::temp_directory_path() / "kestrel-demo-upload.txt").string();
    files::FileSystem& fs = GlobalInstance<files::FileSystem>();
    fs.WriteFile(FromUtf8(upload), u"Hello from Kestrel\r\nbytes \u20AC\u00E9 survive\r\n");
    Ref<Object> form = CreateObject(u"Kestrel.MultiformPost");
    CallByName(form, u"AddField", CallKind::kMethod, {Value(u"greeting"), Value(u"caf\u00E9")});
    // UploadAsFileName and ContentType omitted: the defaults come back.
    std::vector<Value> file_args = {Value(u"report"), Value(FromUtf8(upload)), Value(u""),
                                    Value(u"")};
    CallByName(form, u"AddFile", CallKind::kMethod, file_args);
    Show("AddFile's UploadAsFileName", file_args[2]);
    Show("AddFile's ContentType", file_args[3]);
    Show("Len(Content)",
         Value(int32_t(CallByName(form, u"Content", CallKind::kGet).string().size())));
    const Value answer = CallByName(form, u"Post", CallKind::kMethod,
                                    {Value(FromUtf8(std::string(server) + "/multipart"))});
    std::printf("  the server received:\n%s", ToUtf8(answer.string()).c_str());
    int32_t status = 0;
    std::u16string status_text;
    GlobalInstance<web::WEB>().HTTPGET(FromUtf8(std::string(server) + "/status/404"), &status,
                                       &status_text);
    std::printf("  HTTPGET of a missing page: %d %s, no error\n", status,
                ToUtf8(status_text).c_str());
    fs.DeleteFile(FromUtf8(upload));
  }

  Section("Late binding and the Error class");
  Ref<Object> saved = CreateObject(u"Kestrel.Error");
  CallByName(saved, u"Number", CallKind::kLet, {Value(errors::kObjectErrorBase + 1)});
  CallByName(saved, u"Source", CallKind::kLet, {Value(u"Demo")});
  CallByName(saved, u"Description", CallKind::kLet, {Value(u"Something went wrong")});
  CallByName(saved, u"HelpContext", CallKind::kLet, {Value(u"0")});
  try {
    CallByName(saved, u"Raise", CallKind::kMethod);
  } catch (const RuntimeError& e) {
    std::printf("  caught: %s (source %s)\n", e.what(), ToUtf8(e.source()).c_str());
  }
  try {
    CreateObject(u"Kestrel.NoSuchClass");
  } catch (const RuntimeError& e) {
    std::printf("  caught: %s\n", e.what());
  }

  Section("Native calls: the C library by name through CallPTR");
  {
    CallPTR call;
    call.LoadDLL(u"libc.so.6");
    static const char kText[] = "automation";
    call.AddParameter(reinterpret_cast<intptr_t>(kText));
    std::printf("  strlen(\"%s\") = %lld\n", kText,
                static_cast<long long>(call.CallDLLFunctionByName(u"strlen")));
    call.ClearParameters();
    std::printf("  getpid() = %lld\n",
                static_cast<long long>(call.CallDLLFunctionByName(u"getpid")));
    try {
      call.CallDLLFunctionByName(u"no_such_function");
    } catch (const RuntimeError& e) {
      std::printf("  caught: %s (source %s)\n", e.what(), ToUtf8(e.source()).c_str());
    }
  }

  Section("Mail: a message with an attachment through MAPI32 and the kestrel_mapi provider");
  if (std::getenv("KESTREL_MAIL_CONFIG") == nullptr) {
    std::printf("  (skipped: scripts/demo.sh configures a local SMTP server for this)\n");
  } else {
    const std::filesystem::path attachment =
        std::filesystem::temp_directory_path() / "kestrel-demo-attachment.bin";
    std::FILE* f = std::fopen(attachment.c_str(), "wb");
    if (f != nullptr) {
      std::fwrite("\x00\x01\xfe\xff", 1, 4, f);
      std::fclose(f);
    }
    auto message = MakeRef<Message>();
    message->SetSubject(u"Kestrel demo: the caf\u00e9 figures");
    message->SetBody(u"Hello from the Kestrel demo.\r\nThe attachment holds four bytes.");
    auto to = MakeRef<Recipient>();
    to->SetClass(MAPI_TO);
    to->SetName(u"Ann Example");
    to->SetAddress(u"SMTP:ann@example.com");
    message->Recipients()->Add(to);
    auto file = MakeRef<Attachment>();
    file->SetPath(FromUtf8(attachment.string()));
    file->SetName(u"figures.bin");
    message->Attachments()->Add(file);

    auto mapi = MakeRef<MAPI32>();
    mapi->SetMessage(message);
    std::printf("  MAPIPath %s, available: %s\n", ToUtf8(mapi->MAPIPath()).c_str(),
                mapi->IsAvailable() ? "yes" : "no");
    const int32_t logon = mapi->Logon();
    std::printf("  Logon    -> %d %s (session %lld)\n", logon,
                ToUtf8(mapi->LastResultDescription()).c_str(),
                static_cast<long long>(mapi->Session()));
    const int32_t sent = mapi->SendMail();
    std::printf("  SendMail -> %d %s\n", sent, ToUtf8(mapi->LastResultDescription()).c_str());
    const int32_t logoff = mapi->Logoff();
    std::printf("  Logoff   -> %d %s\n", logoff, ToUtf8(mapi->LastResultDescription()).c_str());
    std::filesystem::remove(attachment);
  }

  std::printf("\nRegistered classes:");
  for (const auto& name : Registry::Instance().Names()) std::printf(" %s", ToUtf8(name).c_str());
  std::printf("\n");
  return 0;
}
