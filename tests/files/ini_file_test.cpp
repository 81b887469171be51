#include "kestrel/files/ini_file.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "kestrel/files/atomic_write.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::files {
namespace {

using namespace std::string_literals;
using testing::FileBytes;
using testing::TempFolder;

Value Arr(std::initializer_list<Value> items, int32_t lower = 0) {
  return Value::VariantArray(items, lower);
}

// "lower..upper:e1,e2" for a one-dimensional array.
std::string Dump(const Value& a) {
  std::string s = std::to_string(a.LBound()) + ".." + std::to_string(a.UBound()) + ":";
  for (size_t i = 0; i < a.ElementCount(); ++i)
    s += (i ? "," : "") + ToUtf8(runtime::ToText(a.ElementAt(i)));
  return s;
}

// "r0..r1,c0..c1:k=v,k=v" for a key-value table, row by row.
std::string DumpTable(const Value& t) {
  const Bounds rows = t.GetBounds(1), cols = t.GetBounds(2);
  std::string s = std::to_string(rows.lower) + ".." + std::to_string(rows.upper) + "," +
                  std::to_string(cols.lower) + ".." + std::to_string(cols.upper) + ":";
  for (int32_t r = rows.lower; r <= rows.upper; ++r) {
    s += (r > rows.lower ? "," : "") + ToUtf8(runtime::ToText(t.GetElement({r, cols.lower})));
    s += "=" + ToUtf8(runtime::ToText(t.GetElement({r, cols.upper})));
  }
  return s;
}

// A key-value table: rows from `first_row`, keys in the lower column.
Value Table(std::initializer_list<std::pair<Value, Value>> rows, int32_t first_row = 0,
            Bounds cols = {0, 1}) {
  int32_t r = first_row;
  Value t = Value::NewArray(Kind::kVariant, {{r, r + int32_t(rows.size()) - 1}, cols});
  for (const auto& [key, value] : rows) {
    t.SetElement({r, cols.lower}, key);
    t.SetElement({r++, cols.upper}, value);
  }
  return t;
}

class IniFileTest : public ::testing::Test {
 protected:
  IniFileTest() { ini_.SetFileName(FromUtf8(path_)); }

  TempFolder folder_;
  std::string path_ = folder_.File("t.ini");
  IniFile ini_;
};

TEST_F(IniFileTest, WritesReadsAndRemovesValues) {
  EXPECT_TRUE(ini_.SetValue(u"s", u"k", u"v"));
  EXPECT_TRUE(ini_.SetValue(u"s", u"empty", u""));
  EXPECT_TRUE(ini_.SetValue(u"s", u"sentinel", u"\x01"));
  EXPECT_TRUE(ini_.SetValue(u"s", u"long", u"abcdef"));
  EXPECT_EQ(FileBytes(path_), "[s]\r\nk=v\r\nempty=\r\nsentinel=\x01\r\nlong=abcdef\r\n");
  EXPECT_TRUE(ini_.FileExists());
  EXPECT_TRUE(ini_.SetValue(u"q", u"\x01", u"1"));
  EXPECT_TRUE(ini_.SetValue(u"q", u"b", u"2"));

  EXPECT_EQ(ini_.GetValue(u"S", u"K"), u"v");
  EXPECT_EQ(ini_.GetValue(u"s", u"absent", Value(u"dflt")), u"dflt");
  EXPECT_EQ(ini_.GetValue(u"s", u"absent"), u"");
  EXPECT_EQ(ini_.GetValue(u"s", u"empty", Value(u"dflt")), u"");

  // Key nullptr: SectionExists.
  const std::tuple<const char16_t*, const char16_t*, bool> probes[] = {
      // clang-format off
      {u"s", u"empty", true},  {u"s", u"long", true},  {u"S", nullptr, true},
      {u"s", u"sentinel", false},  {u"s", u"absent", false},  {u"x", u"k", false},
      {u"x", nullptr, false},
      // The probe's short buffer cuts the key list to its first name, here
      // the sentinel itself.
      {u"q", nullptr, false},
      // clang-format on
  };
  for (const auto& [section, key, exists] : probes) {
    SCOPED_TRACE(ToUtf8(section) + "/" + (key ? ToUtf8(key) : "(section)"));
    EXPECT_EQ(key ? ini_.KeyExists(section, key) : ini_.SectionExists(section), exists);
  }

  EXPECT_TRUE(ini_.AddSection(u"new").boolean());
  EXPECT_TRUE(ini_.SectionExists(u"new"));  // a section without keys exists
  EXPECT_TRUE(ini_.AddSection(u"new").boolean());
  EXPECT_TRUE(ini_.RemoveKey(u"s", u"k").boolean());
  EXPECT_FALSE(ini_.KeyExists(u"s", u"k"));
  EXPECT_TRUE(ini_.RemoveSection(u"s"));
  EXPECT_EQ(FileBytes(path_), "[q]\r\n\x01=1\r\nb=2\r\n[new]\r\n");
}

TEST_F(IniFileTest, ListsAndTablesOfSectionsAndKeys) {
  EXPECT_FALSE(ini_.FileExists());
  EXPECT_EQ(Dump(ini_.GetSections()), "0..-1:");
  EXPECT_EQ(ini_.GetSection(u"a"), u"");

  folder_.Write("t.ini", "[b]\r\nz=1\r\ny=2\r\n[a]\r\n[c]\r\n");
  EXPECT_EQ(Dump(ini_.GetSections()), "0..2:b,a,c");
  EXPECT_EQ(Dump(ini_.GetKeys(u"b")), "0..1:z,y");
  EXPECT_EQ(Dump(ini_.GetKeys(u"a")), "0..-1:");
  EXPECT_EQ(Dump(ini_.GetKeys(u"x")), "0..-1:");
  EXPECT_EQ(ini_.GetSection(u"b"), u"z=1\0y=2\0"s);
  EXPECT_EQ(ini_.GetSection(u"a"), u"");
  EXPECT_EQ(DumpTable(ini_.GetSectionKeyValuesArray(u"b")), "0..1,0..1:z=1,y=2");
  const Value none = ini_.GetSectionKeyValuesArray(u"x");
  EXPECT_EQ(none.Dimensions(), 1);
  EXPECT_EQ(Dump(none), "0..-1:");
  Value keys, values;
  EXPECT_TRUE(ini_.GetSectionKeyValueArrays(u"b", keys, values));
  EXPECT_EQ(Dump(keys), "0..1:z,y");
  EXPECT_EQ(Dump(values), "0..1:1,2");
}

// Every read starts from BufferSize and doubles until the text fits,
// whatever way the engine marks the cut.
TEST_F(IniFileTest, ReadsLongTextWholeThroughAGrowingBuffer) {
  for (int32_t size : {4, 1024}) {
    for (size_t length : {size_t{1021}, size_t{1022}, size_t{1023}, size_t{5000}}) {
      SCOPED_TRACE(std::to_string(size) + " / " + std::to_string(length));
      const std::string name(length, 'n');
      const std::string value(length, 'v');
      folder_.Write("t.ini", "[" + name + "]\r\n" + name + "=" + value + "\r\n");
      ini_.SetBufferSize(size);
      EXPECT_EQ(ini_.GetValue(FromUtf8(name), FromUtf8(name)), FromUtf8(value));
      EXPECT_EQ(Dump(ini_.GetSections()), "0..0:" + name);
      EXPECT_EQ(Dump(ini_.GetKeys(FromUtf8(name))), "0..0:" + name);
      EXPECT_EQ(ToUtf8(ini_.GetSection(FromUtf8(name))), name + "=" + value + '\0');
    }
  }
}

TEST_F(IniFileTest, BufferSizeThatCannotGrowRaises5) {
  folder_.Write("t.ini", "[s]\r\nk=v\r\n");
  for (int32_t size : {0, -1}) {
    SCOPED_TRACE(size);
    ini_.SetBufferSize(size);
    EXPECT_RAISES(ini_.GetValue(u"s", u"k"), 5);
    EXPECT_RAISES(ini_.GetSection(u"s"), 5);
    EXPECT_RAISES(ini_.GetSections(), 5);
    EXPECT_TRUE(ini_.KeyExists(u"s", u"k"));  // the probe has its own buffer
  }
}

TEST_F(IniFileTest, ValueArraysKeepBoundsAndCheckThemBeforeWriting) {
  EXPECT_TRUE(ini_.SetValuesArray(u"s", Arr({u"a", u"b"}, 1), Arr({u"1", u"2"}, 1)));
  EXPECT_TRUE(ini_.SetValuesArray(u"s", Arr({}), Arr({})));
  const std::string before = FileBytes(path_);
  EXPECT_EQ(before, "[s]\r\na=1\r\nb=2\r\n");
  EXPECT_EQ(Dump(ini_.GetValuesArray(u"s", Arr({u"b", u"x", u"a"}, 5), Value(u"d"))), "5..7:2,d,1");
  EXPECT_EQ(Dump(ini_.GetValuesArray(u"s", Arr({}))), "0..-1:");

  EXPECT_RAISES(ini_.SetValuesArray(u"s", Arr({u"x", u"y", u"z"}, 0), Arr({u"x", u"y", u"z"}, 1)),
                9);
  EXPECT_RAISES(ini_.SetValuesArray(u"s", Arr({u"x"}), Arr({u"x", u"y"})), 9);
  EXPECT_RAISES(ini_.SetValuesArray(u"s", Value(u"x"), Arr({u"x"})), 13);
  EXPECT_RAISES(ini_.GetValuesArray(u"s", Value(u"x")), 13);
  EXPECT_EQ(FileBytes(path_), before);
}

TEST_F(IniFileTest, KeyValueTablesNeedTwoColumns) {
  folder_.Write("t.ini", "[s]\r\na=1\r\n");
  const std::string before = FileBytes(path_);
  Value three = Value::NewArray(Kind::kVariant, {{0, 0}, {0, 2}});
  const Value one_dimension = Arr({u"a", u"b"});
  for (const Value& bad : {three, one_dimension}) {
    Value table = bad;
    EXPECT_RAISES(ini_.GetKeyValuesArray(u"s", table), 9);
    EXPECT_RAISES(ini_.SetKeyValuesArray(u"s", bad), 9);
    EXPECT_RAISES(ini_.SetSectionKeyValuesArray(u"s", bad), 9);
  }
  EXPECT_EQ(FileBytes(path_), before);

  // Filled in place, whatever the bounds; the result is a copy.
  Value table = Table({{u"a", Value()}, {u"zz", Value()}}, 1, {5, 6});
  const Value result = ini_.GetKeyValuesArray(u"s", table, Value(u"d"));
  EXPECT_EQ(DumpTable(table), "1..2,5..6:a=1,zz=d");
  EXPECT_EQ(DumpTable(result), DumpTable(table));
}

TEST_F(IniFileTest, SetKeyValuesArraySkipsRowsWithoutAKey) {
  // clang-format off
  const Value table = Table({{u"a", u"1"}, {Value(), u"empty key"}, {Value::Null(), u"null key"},
                             {Value::Missing(), u"missing key"}, {u"", u"blank key"},
                             {u"b", Value::Null()}, {Value(int32_t{7}), Value(2.5)}});
  // clang-format on
  EXPECT_TRUE(ini_.SetKeyValuesArray(u"s", table));
  EXPECT_EQ(FileBytes(path_), "[s]\r\na=1\r\nb=\r\n7=2.5\r\n");
  EXPECT_TRUE(ini_.SetKeyValuesArray(u"s", Table({{Value(), u"x"}})));
}

TEST_F(IniFileTest, SetSectionReplacesTheSection) {
  folder_.Write("t.ini", "[a]\r\nold=1\r\n[b]\r\nx=1\r\n");
  EXPECT_TRUE(ini_.SetSectionKeyValueArrays(u"a", Arr({u"k1", u"k2"}), Arr({u"v1", u"v2"})));
  EXPECT_EQ(FileBytes(path_), "[b]\r\nx=1\r\n[a]\r\nk1=v1\r\nk2=v2\r\n");
  EXPECT_TRUE(ini_.SetSectionKeyValuesArray(u"b", Table({{u"y", u"2"}})));
  EXPECT_EQ(FileBytes(path_), "[a]\r\nk1=v1\r\nk2=v2\r\n[b]\r\ny=2\r\n");
  EXPECT_RAISES(ini_.SetSectionKeyValueArrays(u"a", Arr({u"k"}), Arr({u"v"}, 1)), 9);
  EXPECT_EQ(FileBytes(path_), "[a]\r\nk1=v1\r\nk2=v2\r\n[b]\r\ny=2\r\n");

  EXPECT_TRUE(ini_.SetSection(u"a", u"p=1\0q=2\0"s).boolean());
  EXPECT_EQ(ini_.GetSection(u"a"), u"p=1\0q=2\0"s);
}

// Fails the second rename only: the section's removal goes through, the
// write of the new pair fails, and the restoring write goes through.
class FailSecondRename : public AtomicWriteSteps {
 public:
  int Rename(const std::string& from, const std::string& to) override {
    if (++renames == 2) {
      errno = EIO;
      return -1;
    }
    return AtomicWriteSteps::Rename(from, to);
  }
  int renames = 0;
};

// With the second rename failing, array writes still attempt every pair,
// and a failed section replacement restores the old section.
TEST_F(IniFileTest, FailedWritesGoOnOrRestore) {
  const std::string section = "[b]\r\nx=1\r\n[c]\r\nold=1\r\nmore=2\r\n";
  const auto c_keys = Arr({u"1", u"2", u"3"});
  const auto c_values = Arr({u"x", u"y", u"z"});
  const auto c_table = Table({{u"1", u"x"}, {u"2", u"y"}, {u"3", u"z"}});
  const struct {
    const char* what;
    std::string before, after;
    std::function<bool()> write;
  } cases[] = {
      {"SetValuesArray", "", "[c]\r\n1=x\r\n3=z\r\n",
       [&] { return ini_.SetValuesArray(u"c", c_keys, c_values); }},
      {"SetKeyValuesArray", "", "[c]\r\n1=x\r\n3=z\r\n",
       [&] { return ini_.SetKeyValuesArray(u"c", c_table); }},
      {"SetSectionKeyValueArrays", section, section,
       [&] { return ini_.SetSectionKeyValueArrays(u"c", c_keys, c_values); }},
      {"SetSectionKeyValuesArray", section, section,
       [&] { return ini_.SetSectionKeyValuesArray(u"c", c_table); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    folder_.Write("t.ini", c.before);
    FailSecondRename steps;
    ScopedAtomicWriteSteps guard(steps);
    EXPECT_FALSE(c.write());
    EXPECT_EQ(FileBytes(path_), c.after);
  }
}

TEST_F(IniFileTest, WritesIntoAMissingFolderFail) {
  ini_.SetFileName(FromUtf8(folder_.File("missing/t.ini")));
  EXPECT_FALSE(ini_.SetValue(u"s", u"k", u"v"));
  EXPECT_TRUE(ini_.SetSection(u"s", u"k=v\0"s).IsEmpty());
  EXPECT_TRUE(ini_.RemoveKey(u"s", u"k").IsEmpty());
  EXPECT_FALSE(ini_.SetValuesArray(u"s", Arr({u"a", u"b"}), Arr({u"1", u"2"})));
  EXPECT_EQ(ini_.GetValue(u"s", u"k", Value(u"d")), u"d");
}

TEST_F(IniFileTest, SentinelAndDefaultCannotBeChanged) {
  EXPECT_RAISES(ini_.SetNoValueString(u""), 380);
  EXPECT_RAISES(ini_.SetNoValueString(u"x"), 28);
  EXPECT_RAISES(ini_.SetDefaultValue(u"x"), 28);
}

TEST_F(IniFileTest, MergeStubsTouchNothing) {
  const std::string source = folder_.Write("source.ini", "[m]\r\nk=1\r\n");
  std::u16string target;
  EXPECT_EQ(ini_.Merge(FromUtf8(source), true, target).get(), nullptr);
  EXPECT_EQ(target, FromUtf8(path_));  // an empty target is defaulted, nothing else
  target = u"other";
  EXPECT_EQ(ini_.Merge(FromUtf8(source), false, target).get(), nullptr);
  EXPECT_EQ(target, u"other");
  EXPECT_EQ(ini_.MergeSection(u"m", u"s", true), u"");
  EXPECT_EQ(FileBytes(source), "[m]\r\nk=1\r\n");
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(IniFileTest, TextOutsideTheCodePageBecomesAQuestionMark) {
  EXPECT_TRUE(ini_.SetValue(u"s\u00E9", u"k", u"a\u4E2D\u00E9"));
  EXPECT_EQ(FileBytes(path_), "[s\xE9]\r\nk=a?\xE9\r\n");
  EXPECT_EQ(ini_.GetValue(u"s\u00E9", u"k"), u"a?\u00E9");
  EXPECT_EQ(ini_.GetValue(u"s", u"\u4E2D", Value(u"\u4E2D")), u"?");
}

TEST_F(IniFileTest, LateBoundCallsWriteBackByReference) {
  Ref<Object> ini = CreateObject(u"Kestrel.IniFile");
  CallByName(ini, u"FileName", CallKind::kLet, {Value(FromUtf8(" " + path_ + " "))});
  EXPECT_EQ(CallByName(ini, u"filename", CallKind::kGet).string(), FromUtf8(path_));
  EXPECT_TRUE(
      CallByName(ini, u"SetValue", CallKind::kMethod, {Value(u"s"), Value(u"k"), Value(u"v")})
          .boolean());
  EXPECT_EQ(CallByName(ini, u"GetValue", CallKind::kMethod, {Value(u"s"), Value(u"x")}).string(),
            u"");

  Value arrays[] = {Value(u"s"), Value(), Value()};
  EXPECT_TRUE(CallByName(ini, u"GetSectionKeyValueArrays", CallKind::kMethod, arrays).boolean());
  EXPECT_EQ(Dump(arrays[1]), "0..0:k");
  EXPECT_EQ(Dump(arrays[2]), "0..0:v");

  Value fill[] = {Value(u"s"), Table({{u"k", Value()}})};
  CallByName(ini, u"GetKeyValuesArray", CallKind::kMethod, fill);
  EXPECT_EQ(DumpTable(fill[1]), "0..0,0..1:k=v");

  Value merge[] = {Value(u"other.ini"), Value(true), Value(u"")};
  EXPECT_TRUE(CallByName(ini, u"Merge", CallKind::kMethod, merge).IsNothing());
  EXPECT_EQ(merge[2].string(), FromUtf8(path_));
}

}  // namespace
}  // namespace kestrel::files
