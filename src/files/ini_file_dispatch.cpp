// Late-bound access to IniFile: names and texts converted at the boundary,
// optional DefaultValue arguments handed on as Missing, and the arrays that
// members fill passed as the caller's own Values.
#include <string>

#include "kestrel/files/ini_file.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::files {
namespace {

// Typed Boolean parameters with a default: converted when given, so a value
// that is no Boolean still raises 13 as the typed parameter would.
bool Flag(Args& a, size_t i, bool fallback) {
  return a.Has(i) ? a.Boolean(i) : fallback;
}

}  // namespace

KESTREL_REGISTER_CLASS(IniFile, IniFile::kQualifiedName, Instancing::kCreatable);

const DispatchTable<IniFile>& IniFile::Dispatch() {
  using T = DispatchTable<IniFile>;
  static const T table =
      T::Builder(u"IniFile")
          .Property(
              u"FileName", [](IniFile& f, Args&) { return Value(f.FileName()); },
              [](IniFile& f, Args&, const Value& v) { f.SetFileName(runtime::ToText(v)); })
          .Property(
              u"BufferSize", [](IniFile& f, Args&) { return Value(f.BufferSize()); },
              [](IniFile& f, Args&, const Value& v) { f.SetBufferSize(runtime::ToLong(v)); })
          .Property(
              u"NoValueString", [](IniFile& f, Args&) { return Value(f.NoValueString()); },
              [](IniFile& f, Args&, const Value& v) { f.SetNoValueString(runtime::ToText(v)); })
          .Property(
              u"DefaultValue", [](IniFile& f, Args&) { return Value(f.DefaultValue()); },
              [](IniFile& f, Args&, const Value& v) { f.SetDefaultValue(runtime::ToText(v)); })
          .Method(u"FileExists", 0, 0, [](IniFile& f, Args&) { return Value(f.FileExists()); })
          .Method(u"GetValue", 2, 3,
                  [](IniFile& f, Args& a) { return Value(f.GetValue(a.Text(0), a.Text(1), a[2])); })
          .Method(u"SetValue", 3, 3,
                  [](IniFile& f, Args& a) {
                    return Value(f.SetValue(a.Text(0), a.Text(1), a.Text(2)));
                  })
          .Method(u"GetSection", 1, 1,
                  [](IniFile& f, Args& a) { return Value(f.GetSection(a.Text(0))); })
          .Method(u"SetSection", 2, 2,
                  [](IniFile& f, Args& a) { return f.SetSection(a.Text(0), a.Text(1)); })
          .Method(u"SectionExists", 1, 1,
                  [](IniFile& f, Args& a) { return Value(f.SectionExists(a.Text(0))); })
          .Method(u"KeyExists", 2, 2,
                  [](IniFile& f, Args& a) { return Value(f.KeyExists(a.Text(0), a.Text(1))); })
          .Method(u"AddSection", 1, 1, [](IniFile& f, Args& a) { return f.AddSection(a.Text(0)); })
          .Method(u"RemoveSection", 1, 1,
                  [](IniFile& f, Args& a) { return Value(f.RemoveSection(a.Text(0))); })
          .Method(u"RemoveKey", 2, 2,
                  [](IniFile& f, Args& a) { return f.RemoveKey(a.Text(0), a.Text(1)); })
          .Method(u"GetSections", 0, 0, [](IniFile& f, Args&) { return f.GetSections(); })
          .Method(u"GetKeys", 1, 1, [](IniFile& f, Args& a) { return f.GetKeys(a.Text(0)); })
          .Method(u"GetValuesArray", 2, 3,
                  [](IniFile& f, Args& a) { return f.GetValuesArray(a.Text(0), a[1], a[2]); })
          .Method(
              u"SetValuesArray", 3, 3,
              [](IniFile& f, Args& a) { return Value(f.SetValuesArray(a.Text(0), a[1], a[2])); })
          .Method(u"GetKeyValuesArray", 2, 3,
                  [](IniFile& f, Args& a) { return f.GetKeyValuesArray(a.Text(0), a[1], a[2]); })
          .Method(u"SetKeyValuesArray", 2, 2,
                  [](IniFile& f, Args& a) { return Value(f.SetKeyValuesArray(a.Text(0), a[1])); })
          .Method(u"GetSectionKeyValueArrays", 3, 4,
                  [](IniFile& f, Args& a) {
                    return Value(f.GetSectionKeyValueArrays(a.Text(0), a[1], a[2], a[3]));
                  })
          .Method(u"SetSectionKeyValueArrays", 3, 3,
                  [](IniFile& f, Args& a) {
                    return Value(f.SetSectionKeyValueArrays(a.Text(0), a[1], a[2]));
                  })
          .Method(u"GetSectionKeyValuesArray", 1, 2,
                  [](IniFile& f, Args& a) { return f.GetSectionKeyValuesArray(a.Text(0), a[1]); })
          .Method(u"SetSectionKeyValuesArray", 2, 2,
                  [](IniFile& f, Args& a) {
                    return Value(f.SetSectionKeyValuesArray(a.Text(0), a[1]));
                  })
          .Method(u"Merge", 1, 3,
                  [](IniFile& f, Args& a) {
                    const std::u16string source = a.Text(0);
                    const bool append_source = Flag(a, 1, true);
                    // TargetFileName is by reference: the defaulted name goes
                    // back to the caller (an omitted one reads as "").
                    std::u16string target = a.Has(2) ? a.Text(2) : std::u16string();
                    const bool was_empty = target.empty();
                    Ref<IniFile> merged = f.Merge(source, append_source, target);
                    if (was_empty) a[2] = Value(target);
                    return Value(merged);
                  })
          .Method(u"MergeSection", 2, 3,
                  [](IniFile& f, Args& a) {
                    return Value(f.MergeSection(a.Text(0), a.Text(1), Flag(a, 2, false)));
                  })
          .Build();
  return table;
}

}  // namespace kestrel::files
