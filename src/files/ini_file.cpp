#include "kestrel/files/ini_file.hpp"

#include <algorithm>
#include <limits>
#include <new>
#include <span>
#include <vector>

#include "kestrel/files/file_system.hpp"
#include "kestrel/files/profile.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/runtime/strings.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel::files {
namespace {

// Text crossing into or out of the engine passes the 8-bit code page, as it
// would through the classic interface: what it lacks becomes "?".
std::u16string ThroughCodePage(std::u16string_view text) {
  return runtime::FromAnsi(runtime::ToAnsi(text));
}

// A converted name that may be absent, kept alive next to the view on it.
class InboundName {
 public:
  explicit InboundName(std::optional<std::u16string_view> name) {
    if (name) text_ = ThroughCodePage(*name);
  }
  OptionalText view() const { return text_ ? OptionalText(*text_) : std::nullopt; }

 private:
  std::optional<std::u16string> text_;
};

std::u16string SpaceBuffer(int32_t size) {
  try {
    return std::u16string(static_cast<size_t>(size), u' ');
  } catch (const std::bad_alloc&) {
    RaiseStandard(errors::kOutOfMemory);
  }
}

// Reads into a buffer of `size` characters, doubling it until the result
// ends at least two characters short of the end. Both ways the engine marks
// a cut land on the retry side: a value cut short returns size - 1, a list
// size - 2.
template <class Read>
std::u16string GrowingRead(int32_t size, Read read) {
  // 0 would double to 0 for ever; a negative size makes no buffer.
  if (size <= 0) RaiseStandard(errors::kInvalidProcedureCall);
  for (;;) {
    std::u16string buffer = SpaceBuffer(size);
    const int32_t n = read(std::span<char16_t>(buffer.data(), buffer.size()));
    if (int64_t{n} + 2 < size) {
      buffer.resize(static_cast<size_t>(std::max(n, 0)));
      return ThroughCodePage(buffer);
    }
    if (size > std::numeric_limits<int32_t>::max() / 2) RaiseStandard(errors::kOverflow);
    size *= 2;
  }
}

// LBound / UBound of one dimension as the runtime reads them: 13 for a
// value that is not an array, 9 for a dimension it lacks.
Bounds DimensionBounds(const Value& array, int dimension) {
  if (!array.IsArray()) RaiseStandard(errors::kTypeMismatch);
  return array.GetBounds(dimension);
}

// The columns of a key-value table: exactly two, else 9.
Bounds TableColumns(const Value& table) {
  const Bounds columns = DimensionBounds(table, 2);
  if (int64_t{columns.upper} - columns.lower != 1) RaiseStandard(errors::kSubscriptOutOfRange);
  return columns;
}

void CheckSameBounds(const Value& keys, const Value& values) {
  const Bounds k = DimensionBounds(keys, 1);
  const Bounds v = DimensionBounds(values, 1);
  if (k.lower != v.lower || k.upper != v.upper) RaiseStandard(errors::kSubscriptOutOfRange);
}

// Calls fn(i) for every index of `bounds`; int64 so that an upper bound at
// the top of the 32-bit range ends the loop.
template <class Fn>
void ForEachIndex(Bounds bounds, Fn fn) {
  for (int64_t i = bounds.lower; i <= bounds.upper; ++i) fn(static_cast<int32_t>(i));
}

// Replaces a section: shape check first (nothing is changed when it
// raises), then remove and write; when the writing step reports failure, an
// existing section gets its old lines back.
template <class Check, class Write>
bool ReplaceSection(IniFile& ini, std::u16string_view section, Check check, Write write) {
  const bool existed = ini.SectionExists(section);
  const std::u16string backup = ini.GetSection(section);
  check();
  ini.RemoveSection(section);
  if (write()) return true;
  if (existed) ini.SetSection(section, backup);
  return false;
}

}  // namespace

IniFile::IniFile() : no_value_string_(1, char16_t{1}) {}

void IniFile::SetFileName(std::u16string_view file_name) {
  file_name_ = runtime::Trim(file_name);
}

void IniFile::SetNoValueString(std::u16string_view no_value_string) {
  if (no_value_string.empty()) RaiseStandard(errors::kInvalidPropertyValue);
  RaiseStandard(errors::kOutOfStackSpace);
}

void IniFile::SetDefaultValue(std::u16string_view) {
  RaiseStandard(errors::kOutOfStackSpace);
}

std::string IniFile::Path() const {
  return ToUtf8(file_name_);
}

std::u16string IniFile::DefaultText(const Value& default_value) const {
  return default_value.IsMissing() ? default_value_ : runtime::ToText(default_value);
}

std::u16string IniFile::ReadString(OptionalName section, OptionalName key,
                                   std::u16string_view default_text) {
  const InboundName section_in(section);
  const InboundName key_in(key);
  const std::u16string default_in = ThroughCodePage(default_text);
  const std::string path = Path();
  return GrowingRead(buffer_size_, [&](std::span<char16_t> buffer) {
    return GetProfileString(section_in.view(), key_in.view(), default_in, buffer, path);
  });
}

Value IniFile::ReadList(OptionalName section) {
  const std::u16string names = ReadString(section, std::nullopt, u"");
  std::vector<Value> pieces;
  // A single character is no list (it can only be the NUL after a key
  // named "").
  if (names.size() > 1) {
    const std::u16string_view body(names.data(), names.size() - 1);  // without the final NUL
    size_t start = 0;
    for (;;) {
      const size_t end = body.find(u'\0', start);
      pieces.emplace_back(body.substr(start, end - start));
      if (end == std::u16string_view::npos) break;
      start = end + 1;
    }
  }
  return Value::VariantArray(pieces, 0);
}

bool IniFile::Probe(std::u16string_view section, OptionalName key) {
  // Deliberately short: Len(sentinel) + 2 characters are enough to tell the
  // sentinel from anything else, since a longer value is cut one character
  // past the sentinel's length.
  const InboundName section_in(section);
  const InboundName key_in(key);
  const std::u16string sentinel = ThroughCodePage(no_value_string_);
  std::u16string buffer = SpaceBuffer(static_cast<int32_t>(no_value_string_.size() + 2));
  const int32_t n = GetProfileString(section_in.view(), key_in.view(), sentinel, buffer, Path());
  buffer.resize(static_cast<size_t>(std::max(n, 0)));
  return ThroughCodePage(buffer) != no_value_string_;
}

bool IniFile::FileExists() const {
  return GlobalInstance<FileSystem>().FileExists(file_name_);
}

std::u16string IniFile::GetValue(std::u16string_view section_name, std::u16string_view key_name,
                                 const Value& default_value) {
  return ReadString(section_name, key_name, DefaultText(default_value));
}

bool IniFile::SetValue(std::u16string_view section_name, std::u16string_view key_name,
                       std::u16string_view value) {
  const std::u16string key = ThroughCodePage(key_name);
  const std::u16string text = ThroughCodePage(value);
  return WriteProfileString(ThroughCodePage(section_name), key, text, Path());
}

std::u16string IniFile::GetSection(std::u16string_view section_name) {
  const std::u16string section = ThroughCodePage(section_name);
  const std::string path = Path();
  return GrowingRead(buffer_size_, [&](std::span<char16_t> buffer) {
    return GetProfileSection(section, buffer, path);
  });
}

Value IniFile::SetSection(std::u16string_view section_name, std::u16string_view section_value) {
  const std::u16string text = ThroughCodePage(section_value);
  if (WriteProfileSection(ThroughCodePage(section_name), text, Path())) return Value(true);
  return Value();
}

bool IniFile::SectionExists(std::u16string_view section_name) {
  return Probe(section_name, std::nullopt);
}

bool IniFile::KeyExists(std::u16string_view section_name, std::u16string_view key_name) {
  return Probe(section_name, key_name);
}

Value IniFile::AddSection(std::u16string_view section_name) {
  if (SectionExists(section_name)) return Value(true);
  return SetSection(section_name, u"");
}

bool IniFile::RemoveSection(std::u16string_view section_name) {
  return WriteProfileSection(ThroughCodePage(section_name), std::nullopt, Path());
}

Value IniFile::RemoveKey(std::u16string_view section_name, std::u16string_view key_name) {
  const std::u16string key = ThroughCodePage(key_name);
  if (WriteProfileString(ThroughCodePage(section_name), key, std::nullopt, Path())) {
    return Value(true);
  }
  return Value();
}

Value IniFile::GetSections() {
  return ReadList(std::nullopt);
}

Value IniFile::GetKeys(std::u16string_view section_name) {
  return ReadList(section_name);
}

Value IniFile::GetValuesArray(std::u16string_view section_name, const Value& keys,
                              const Value& default_value) {
  const Bounds bounds = DimensionBounds(keys, 1);
  Value result = Value::NewArray(Kind::kVariant, {bounds});
  ForEachIndex(bounds, [&](int32_t i) {
    const std::u16string key = runtime::ToText(keys.GetElement({i}));
    result.SetElement({i}, Value(GetValue(section_name, key, default_value)));
  });
  return result;
}

bool IniFile::SetValuesArray(std::u16string_view section_name, const Value& keys,
                             const Value& values) {
  CheckSameBounds(keys, values);
  bool ok = true;
  ForEachIndex(keys.GetBounds(1), [&](int32_t i) {
    const std::u16string key = runtime::ToText(keys.GetElement({i}));
    const std::u16string value = runtime::ToText(values.GetElement({i}));
    ok = SetValue(section_name, key, value) && ok;
  });
  return ok;
}

Value IniFile::GetKeyValuesArray(std::u16string_view section_name, Value& key_value_array,
                                 const Value& default_value) {
  const Bounds columns = TableColumns(key_value_array);
  ForEachIndex(key_value_array.GetBounds(1), [&](int32_t row) {
    const std::u16string key = runtime::ToText(key_value_array.GetElement({row, columns.lower}));
    const int32_t cell[] = {row, columns.upper};
    runtime::AssignElement(key_value_array, cell,
                           Value(GetValue(section_name, key, default_value)));
  });
  return key_value_array;
}

bool IniFile::SetKeyValuesArray(std::u16string_view section_name, const Value& key_value_array) {
  const Bounds columns = TableColumns(key_value_array);
  const Value empty_text(u"");
  bool ok = true;
  ForEachIndex(key_value_array.GetBounds(1), [&](int32_t row) {
    const std::u16string key = runtime::ToText(
        utilities::NEMz(key_value_array.GetElement({row, columns.lower}), empty_text));
    if (key.empty()) return;
    const std::u16string value = runtime::ToText(
        utilities::NEMz(key_value_array.GetElement({row, columns.upper}), empty_text));
    ok = SetValue(section_name, key, value) && ok;
  });
  return ok;
}

bool IniFile::GetSectionKeyValueArrays(std::u16string_view section_name, Value& keys, Value& values,
                                       const Value& default_value) {
  keys = GetKeys(section_name);
  values = GetValuesArray(section_name, keys, default_value);
  return true;
}

bool IniFile::SetSectionKeyValueArrays(std::u16string_view section_name, const Value& keys,
                                       const Value& values) {
  return ReplaceSection(
      *this, section_name, [&] { CheckSameBounds(keys, values); },
      [&] { return SetValuesArray(section_name, keys, values); });
}

Value IniFile::GetSectionKeyValuesArray(std::u16string_view section_name,
                                        const Value& default_value) {
  const Value keys = GetKeys(section_name);
  const Bounds rows = keys.GetBounds(1);
  if (rows.upper < rows.lower) return Value::VariantArray({});
  Value table = Value::NewArray(Kind::kVariant, {rows, Bounds{0, 1}});
  ForEachIndex(rows, [&](int32_t row) { table.SetElement({row, 0}, keys.GetElement({row})); });
  GetKeyValuesArray(section_name, table, default_value);
  return table;
}

bool IniFile::SetSectionKeyValuesArray(std::u16string_view section_name,
                                       const Value& key_value_array) {
  return ReplaceSection(
      *this, section_name, [&] { TableColumns(key_value_array); },
      [&] { return SetKeyValuesArray(section_name, key_value_array); });
}

Ref<IniFile> IniFile::Merge(std::u16string_view, bool, std::u16string& target_file_name) {
  if (target_file_name.empty()) target_file_name = file_name_;
  return Ref<IniFile>();
}

std::u16string IniFile::MergeSection(std::u16string_view, std::u16string_view, bool) {
  return std::u16string();
}

}  // namespace kestrel::files
