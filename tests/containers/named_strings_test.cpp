#include "kestrel/containers/named_strings.hpp"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "kestrel/runtime/error.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

using Strings = std::vector<std::u16string>;

// The elements of a String array 0 .. n-1; {} for an unallocated one.
Strings Elements(const Value& array) {
  EXPECT_EQ(array.code(), kArrayFlag | uint16_t(Kind::kString));
  if (array.IsAllocated()) {
    EXPECT_EQ(array.LBound(), 0);
  }
  Strings out;
  for (const Value& v : array.Elements()) out.emplace_back(v.string());
  return out;
}

TEST(NamedStrings, TextLetReadsItems) {
  // separator, text, names, values, text read back
  const std::tuple<char16_t, std::u16string, Strings, Strings, std::u16string> cases[] = {
      {';', u"a=1;A=2", {u"a", u"A"}, {u"1", u"2"}, u"a=1;A=2"},
      // An item without "=" counts before a separator, not at the end.
      {';', u"a;b=2", {u"a", u"b"}, {u"", u"2"}, u"a=;b=2"},
      {';', u"b=2;a", {u"b"}, {u"2"}, u"b=2"},
      {';', u"a=1;b=x=y;a=3", {u"a", u"b"}, {u"3", u"xy"}, u"a=3;b=xy"},
      {';', u"=1;;a=;b=1/", {u"a", u"b"}, {u"", u"1"}, u"a=;b=1"},
      // Escapes both ways: "/" before "/", "=" and the separator.
      {';', u"/;x/==/=/;//", {u";x="}, {u"=;/"}, u"/;x/==/=/;//"},
      {',', u"n;m=p;q=r/,s,a", {u"n;m"}, {u"p;qr,s"}, u"n;m=p;qr/,s"},
      {';', u"", {}, {}, u""},
  };
  for (const auto& [separator, text, names, values, text_back] : cases) {
    SCOPED_TRACE(::testing::PrintToString(text));
    NamedStrings ns;
    ns.SetSeparator(std::u16string(1, separator));
    ns.SetText(text);
    EXPECT_EQ(Elements(ns.Names()), names);
    EXPECT_EQ(Elements(ns.Values()), values);
    EXPECT_EQ(ns.Count(), int16_t(names.size()));
    EXPECT_EQ(ns.Text(), text_back);
  }
}

TEST(NamedStrings, RemoveLeavesTheCountStale) {
  NamedStrings ns;
  ns.SetText(u"a=1;b=2;c=3");
  ns.Remove(u"b");
  ns.Remove(u"zz");
  EXPECT_EQ(ns.Count(), 3);
  EXPECT_EQ(Elements(ns.Names()), Strings({u"a", u"c"}));
  EXPECT_EQ(ns.Value(u"c"), u"3");
  EXPECT_RAISES(ns.Text(), errors::kSubscriptOutOfRange);
  // A new name goes at the stale count, leaving an empty pair before it.
  ns.SetValue(u"d", u"4");
  EXPECT_EQ(ns.Text(), u"a=1;c=3;=;d=4");

  ns.SetText(u"x=1");
  ns.Remove(u"x");
  EXPECT_FALSE(ns.Names().IsAllocated());
  EXPECT_RAISES(ns.Text(), errors::kSubscriptOutOfRange);
}

TEST(NamedStrings, SixteenBitIndexEndsTextLetQuietly) {
  std::u16string text;
  for (int i = 0; i <= 32768; ++i) text += {char16_t(0x4000 + i), u'=', u';'};
  NamedStrings ns;
  CurrentError().Set(RuntimeError(5, u"x", u"earlier"));
  ns.SetText(text);
  EXPECT_EQ(CurrentError().Number(), 0);
  EXPECT_EQ(ns.Names().ElementCount(), 32768u);
  EXPECT_RAISES(ns.Count(), errors::kOverflow);
  EXPECT_RAISES(ns.Exists(u"absent"), errors::kOverflow);
  EXPECT_TRUE(ns.Exists(std::u16string(1, u'\x4005')));
}

TEST(NamedStrings, CallByName) {
  Ref<Object> ns = CreateObject(u"kestrel.namedstrings");
  ASSERT_TRUE(ns);
  CallByName(ns, u"Value", CallKind::kLet, {Value(u"k"), Value(u"a;b")});
  EXPECT_EQ(CallByName(ns, u"Value", CallKind::kGet, {Value(u"k")}).string(), u"a;b");
  EXPECT_EQ(CallByName(ns, u"Count", CallKind::kGet).code(), uint16_t(Kind::kInteger));
  EXPECT_TRUE(CallByName(ns, u"Reset", CallKind::kMethod).IsEmpty());
  EXPECT_FALSE(CallByName(ns, u"Exists", CallKind::kMethod, {Value(u"k")}).boolean());
  for (const char16_t* bad : {u"/", u"=", u"", u";;"})
    EXPECT_RAISES(CallByName(ns, u"Separator", CallKind::kLet, {Value(bad)}),
                  errors::kSubscriptOutOfRange);
  EXPECT_EQ(CallByName(ns, u"Separator", CallKind::kGet).string(), u";");
}

}  // namespace
}  // namespace kestrel
