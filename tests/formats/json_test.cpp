#include "kestrel/formats/json.hpp"

#include <gtest/gtest.h>

#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/dictionary.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

constexpr std::u16string_view kDuplicate =
    u"This key is already associated with an element of this collection: ";

// A tree as one line: {key:value,...} for a Dictionary, [...] for a
// Collection, "text" (non-ASCII as \uXXXX), Long as digits, Double with a
// "d" and LongLong with "ll" before them, true/false, null, empty.
std::u16string Render(const Value& v) {
  std::u16string out;
  auto number = [&](std::u16string_view prefix, auto n) {
    out += prefix;
    for (char c : std::to_string(n)) out += char16_t(c);
  };
  switch (v.kind()) {
    case Kind::kEmpty:
      return u"empty";
    case Kind::kNull:
      return u"null";
    case Kind::kBoolean:
      return v.boolean() ? u"true" : u"false";
    case Kind::kLong:
      number(u"", v.long_value());
      return out;
    case Kind::kLongLong:
      number(u"ll", v.long_long());
      return out;
    case Kind::kDouble: {
      std::string text = std::to_string(v.dbl());
      text.erase(text.find_last_not_of('0') + 1);
      if (text.back() == '.') text.pop_back();
      out = u"d" + FromUtf8(text);
      return out;
    }
    case Kind::kString:
      out = u"\"";
      for (char16_t c : v.string()) {
        if (c < 0x80) {
          out += c;
        } else {
          char hex[8];
          std::snprintf(hex, sizeof(hex), "\\u%04X", unsigned(c));
          out += FromUtf8(hex);
        }
      }
      return out + u"\"";
    case Kind::kObject:
      if (auto* d = dynamic_cast<Dictionary*>(v.object())) {
        Value keys = d->Keys(), items = d->Items();
        out = u"{";
        for (int32_t i = 0; i < d->Count(); ++i) {
          if (i > 0) out += u",";
          out += keys.GetElement({i}).string();
          out += u":" + Render(items.GetElement({i}));
        }
        return out + u"}";
      }
      if (auto* c = dynamic_cast<Collection*>(v.object())) {
        out = u"[";
        for (const Value& item : *c) out += (out.size() > 1 ? u"," : u"") + Render(item);
        return out + u"]";
      }
      return u"nothing";
    default:
      return u"?";
  }
}

TEST(JSON, TreesAndErrorLines) {
  const std::u16string dup = std::u16string(kDuplicate);
  // k1:1 ... k33:33, then a key that repeats k2.
  std::u16string many = u"{", many_tree = u"{";
  for (int i = 1; i <= 33; ++i) {
    const std::u16string n = FromUtf8(std::to_string(i));
    many += u"k" + n + u":" + n + u",";
    many_tree += (i > 1 ? u",k" : u"k") + n + u":" + n;
  }
  many += u"K2:0}";
  many_tree += u"}";
  const struct {
    std::u16string_view text;
    std::u16string_view tree;
    std::u16string errors;
  } kCases[] = {
      {u"  {}", u"{}", u""},
      {u"1", u"nothing", u"Invalid JSON"},
      {u"", u"nothing", u"Invalid JSON"},
      {u"{} trailing text is never read", u"{}", u""},
      {u"([1])", u"[1]", u""},
      {u"{\"a\":1 \"b\":2}", u"{a:1,b:2}", u""},
      {u"[,1,2]", u"[1,2]", u""},
      {u"[1.5, 2, -3e2, 1E2, -0]", u"[d1.5,2,d-300,d100,0]", u""},
      {u"[2147483647, -2147483648, 0.1e1]", u"[2147483647,-2147483648,d1]", u""},
      {u"[true,false,null,'x']", u"[true,false,null,\"x\"]", u""},
      // Keys: unquoted, either quote, blanks dropped, ":" kept inside quotes.
      {u"{a:1, 'b':2, \"c d\" :3, \"e:f\":4, :5}", u"{a:1,b:2,cd:3,e:f:4,:5}", u""},
      {u"{\"a\" 1}", u"{a:1}", u"Invalid Key at position 6 : a\r\n"},
      // Records read each name afresh, whatever the last record had there.
      {u"[{\"ab\":1,c:2},{\"abc\":3,c:4},{\"a\":5},{'a b':6},{\"ab\" :7},{\"AB\":8}]",
       u"[{ab:1,c:2},{abc:3,c:4},{a:5},{ab:6},{ab:7},{AB:8}]", u""},
      // Records that add or leave out a member around the same order, with
      // names that are prefixes of the ones they stand in for.
      {u"[{\"a\":1,\"bc\":2,\"c\":3},{\"a\":4,\"x\":0,\"bc\":5,\"c\":6},"
       u"{\"a\":7,\"b\":8,\"c\":9},{\"a\":1,\"x\":2,\"c\":3}]",
       u"[{a:1,bc:2,c:3},{a:4,x:0,bc:5,c:6},{a:7,b:8,c:9},{a:1,x:2,c:3}]", u""},
      // Strings: the other quote is text; escapes.
      {u"[\"it's\", 'say \"hi\"']", u"[\"it's\",\"say \"hi\"\"]", u""},
      {u"['\\\"\\\\\\/\\'\\b\\f\\n\\r\\t']", u"[\"\"\\/'\b\f\n\r\t\"]", u""},
      {u"[\"\\u0041\\q\\u12\", \"\\uD800\"]", u"[\"Aqu12\",\"\\uD800\"]", u""},
      {u"[\"abc", u"[\"abc\"]", u"Unexpected end of text at position 6\r\n"},
      // Skipping: comments, lone "/" and "*", and their odd consequences.
      {u"// c\n{/* b */ a : 1 // x\n}", u"{a:1}", u""},
      {u"[1,/2 * ,3]", u"[1,2,3]", u""},
      {u"[1 */ 2\n,3]", u"[1,3]", u""},
      {u"[1 // a / 2\n]", u"[1,2]", u""},
      {u"[1 /* a*b */ ,2\n]", u"[1]", u"Unexpected end of text at position 18\r\n"},
      // Syntax problems append a line and reading goes on.
      {u"{\"a\":tru}", u"{a:false,tru}:empty,:empty}",
       u"Invalid Boolean at position 6 : tru}\r\n" + dup + u"\r\n"},
      {u"[nul]", u"[empty]", u"Invalid null value at position 2 : nul]\r\n"},
      // Runtime failures end the container they happen in, only that one.
      {u"{\"A\":1,\"a\":2}", u"{A:1}", dup + u"a\r\n"},
      {u"{\"a\":{\"b\":1,\"b\":2},\"c\":3}", u"{a:{b:1}}", dup + u"b\r\n"},
      {u"{\"a\":[],\"b\":[ ],\"c\":[[],[1],[]],\"a\":[],\"d\":1}", u"{a:[],b:[],c:[[],[1],[]]}",
       dup + u"a\r\n"},
      // Past its first 32 members an object matches keys the Dictionary's
      // way, and so does a non-ASCII key from the start (full folding).
      {many, many_tree, dup + u"K2\r\n"},
      {u"{\"a\":1,\"stra\u00dfe\":2,\"b\":3,\"STRASSE\":4}", u"{a:1,stra\u00dfe:2,b:3}",
       dup + u"STRASSE\r\n"},
      {u"[1-2, 3]", u"[]", u"Type mismatch: , 3]\r\n"},
      {u"[1,,2]", u"[1]", u"Type mismatch: ,2]\r\n"},
      {u"{\"n\":2147483648,\"m\":1}", u"{}", u"Overflow: n\r\n"},
      {u"[[1e999],2]", u"[[]]", u"Overflow: ],2]\r\n"},
      // Inner lists read the same when an element is a container, fails, or
      // is a bad literal partway through.
      {u"{\"a\":[1,[2,3],4,,5]}", u"{a:[1,[2,3],4],5]}:empty,:empty}",
       u"Type mismatch: ,5]}\r\n" + dup + u"\r\n"},
      {u"{\"a\":[[1e999],2],\"b\":1}", u"{a:[[]],2],b:1}", u"Overflow: ],2],\"b\":1}\r\n"},
      {u"[[1,nul],[2]]", u"[[1,empty],empty]",
       u"Invalid null value at position 5 : nul],[2]]\r\n"
       u"Invalid null value at position 5 : nul],[2]]\r\n"},
      // The end of the text inside an array ends every container there.
      {u"[1,", u"[1]", u"Unexpected end of text at position 4\r\n"},
      {u"[1", u"[empty]", u"Unexpected end of text at position 3\r\n"},
      {u"{\"a\":[[", u"{a:[[]]}", u"Unexpected end of text at position 8\r\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(ToUtf8(c.text));
    JSON json;
    EXPECT_EQ(json.Parse(c.text), c.errors.empty());
    EXPECT_EQ(ToUtf8(Render(json.JSONObject())), ToUtf8(c.tree));
    EXPECT_EQ(ToUtf8(json.ParseError()), ToUtf8(c.errors));
    EXPECT_EQ(json.Text(), c.text);
  }
}

TEST(JSON, CompareModeAndLargeIntegersShapeTheTree) {
  const struct {
    int32_t mode;
    bool large;
    std::u16string_view text, tree, errors;
  } kCases[] = {
      {0, false, u"{\"A\":1,\"a\":2}", u"{A:1,a:2}", u""},
      {-2, false, u"{\"x\":{\"a\":1,\"b\":2},\"y\":{}}", u"{x:{a:1}}",
       u"Invalid procedure call or argument: a\r\nInvalid procedure call or argument: x\r\n"},
      {1, true, u"[2147483648, -9223372036854775808, 12]",
       u"[ll2147483648,ll-9223372036854775808,12]", u""},
      {1, true, u"[9223372036854775808]", u"[]", u"Overflow: ]\r\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(ToUtf8(c.text));
    JSON json;
    json.SetCompareMode(c.mode);
    json.SetLargeIntegers(c.large);
    json.Parse(c.text);
    EXPECT_EQ(ToUtf8(Render(json.JSONObject())), ToUtf8(c.tree));
    EXPECT_EQ(ToUtf8(json.ParseError()), ToUtf8(c.errors));
    if (c.mode == 0) {
      EXPECT_EQ(dynamic_cast<Dictionary&>(*json.JSONObject().object()).CompareMode(), 0);
    }
  }
}

TEST(JSON, NestingLimitAndDeepTrees) {
  const auto nested = [](int depth) {
    return std::u16string(size_t(depth), u'[') + std::u16string(size_t(depth), u']');
  };
  JSON json;
  EXPECT_TRUE(json.Parse(nested(JSON::kMaxDepth)));
  EXPECT_FALSE(json.Parse(nested(JSON::kMaxDepth + 1)));
  EXPECT_EQ(ToUtf8(json.ParseError()), "Nesting deeper than 10000 levels at position 10001\r\n");
  EXPECT_EQ(dynamic_cast<Collection&>(*json.JSONObject().object()).Count(), 1);

  // Containers release a deep tree level after level, not level inside
  // level: a chain far deeper than the machine stack allows must not crash.
  Value root(MakeRef<Dictionary>());
  Value tip = root;
  for (int i = 0; i < 300000; ++i) {
    Value next = i % 2 ? Value(MakeRef<Dictionary>()) : Value(MakeRef<Collection>());
    if (auto* d = dynamic_cast<Dictionary*>(tip.object())) {
      d->Add(Value(i), next);
    } else {
      dynamic_cast<Collection*>(tip.object())->Add(next);
    }
    tip = next;
  }
  tip = Value();
  root = Value();
}

// Releasing a tree holds back the count drops of the names its records
// share and applies them at the end: names and records still held
// elsewhere must come through whole, and nothing may be left over (the
// sanitizer build checks both). 300 names outnumber the slots that hold
// the drops back, so some are applied while the tree is still going.
TEST(JSON, ReleasingATreeKeepsWhatIsHeldElsewhere) {
  std::u16string record = u"{";
  for (int i = 0; i < 300; ++i) record += u"n" + FromUtf8(std::to_string(i)) + u":[1],";
  record.back() = u'}';
  JSON json;
  ASSERT_TRUE(json.Parse(u"[" + record + u"," + record + u"," + record + u"]"));
  auto& list = dynamic_cast<Collection&>(*json.JSONObject().object());
  Value second = list.Item(Value(2));
  Value names = dynamic_cast<Dictionary&>(*list.Item(Value(1)).object()).Keys();
  json.Clear();
  auto& kept = dynamic_cast<Dictionary&>(*second.object());
  ASSERT_EQ(kept.Count(), 300);
  for (int32_t i = 0; i < 300; i += 37) {
    SCOPED_TRACE(i);
    const std::u16string name = u"n" + FromUtf8(std::to_string(i));
    EXPECT_EQ(names.GetElement({i}).string(), name);
    EXPECT_EQ(Render(kept.Item(Value(name))), u"[1]");
  }
}

TEST(JSON, ClearAndMembersByName) {
  Ref<Object> json = CreateObject(u"Kestrel.JSON");
  auto call = [&](std::u16string_view name, CallKind kind, std::initializer_list<Value> args) {
    return CallByName(json.get(), name, kind, args);
  };
  EXPECT_EQ(call(u"CompareMode", CallKind::kGet, {}).long_value(), 1);
  EXPECT_FALSE(call(u"parse", CallKind::kMethod, {Value(u"[1,")}).boolean());
  EXPECT_EQ(call(u"ParseError", CallKind::kGet, {}).string(),
            u"Unexpected end of text at position 4\r\n");
  EXPECT_TRUE(call(u"Parse", CallKind::kMethod, {Value(u"{}")}).boolean());
  EXPECT_TRUE(call(u"JSONObject", CallKind::kGet, {}).IsObject());
  call(u"Clear", CallKind::kMethod, {});
  EXPECT_TRUE(call(u"JSONObject", CallKind::kGet, {}).IsNothing());
  EXPECT_EQ(call(u"Text", CallKind::kGet, {}).string(), u"");
}

}  // namespace
}  // namespace kestrel
