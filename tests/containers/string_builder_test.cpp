#include "kestrel/containers/string_builder.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

std::u16string Text(int32_t n) {
  return std::u16string(size_t(n), u'z');
}

// What a call returned, or minus the number of the error it raised.
template <class F>
int32_t Outcome(F&& call) {
  try {
    return call();
  } catch (const RuntimeError& e) {
    return -e.number();
  }
}

// Append grows by whole chunks; HeapMinimize, from 30000 characters in
// 32768, leaves at most one chunk free.
TEST(StringBuilder, CapacityMovesInWholeChunks) {
  const int32_t appended[][2] = {{3, 8192}, {8192, 8192}, {8193, 16384}};
  for (const auto& [n, capacity] : appended) {
    SCOPED_TRACE(n);
    StringBuilder sb;
    sb.Append(Text(n));
    EXPECT_EQ(sb.Length(), n);
    EXPECT_EQ(sb.Capacity(), capacity);
  }
  const int32_t kept[][2] = {{24576, 32768}, {24575, 24576}, {8192, 16384}, {0, 8192}};
  for (const auto& [length, capacity] : kept) {
    SCOPED_TRACE(length);
    StringBuilder sb;
    sb.Append(Text(30000));
    sb.Remove(0, 30000 - length);
    sb.HeapMinimize();
    EXPECT_EQ(sb.Capacity(), capacity);
    EXPECT_EQ(sb.toString(), Text(length));
  }
}

// Insert "XY" (length -1) or Remove on "abcd": the content after and minus
// the error raised, if any.
TEST(StringBuilder, InsertAndRemove) {
  struct Case {
    int32_t index, length, error;
    const char16_t* after;
  };
  for (const Case& c :
       {Case{0, -1, 0, u"XYabcd"}, Case{4, -1, 0, u"abcdXY"}, Case{5, -1, -9, u"abcd"},
        Case{-1, -1, -5, u"abcd"}, Case{1, 2, 0, u"ad"}, Case{4, 0, 0, u"abcd"},
        Case{3, 2, -9, u"abcd"}, Case{1, -2, -5, u"abcd"}, Case{1, INT32_MAX, -6, u"abcd"}}) {
    SCOPED_TRACE(::testing::Message() << c.index << " " << c.length);
    StringBuilder sb;
    sb.Append(u"abcd");
    EXPECT_EQ(Outcome([&] {
                c.length == -1 ? sb.Insert(c.index, u"XY") : sb.Remove(c.index, c.length);
                return 0;
              }),
              c.error);
    EXPECT_EQ(sb.toString(), c.after);
  }

  // Chunk 4, "abc" held (capacity 4): one chunk when that makes room, else
  // Append's growth; a chunk of 0 cannot make room.
  const int32_t growth[][3] = {{4, 1, 4}, {4, 2, 8}, {4, 5, 8}, {4, 9, 12}, {0, 2, -6}};
  for (const auto& row : growth) {
    const int32_t chunk = row[0], n = row[1], capacity = row[2];  // capturable copies
    SCOPED_TRACE(n);
    StringBuilder sb;
    sb.SetChunkSize(4);
    sb.Append(u"abc");
    sb.SetChunkSize(chunk);
    EXPECT_EQ(Outcome([&] {
                sb.Insert(1, Text(n));
                return sb.Capacity();
              }),
              capacity);
    if (capacity > 0) {
      EXPECT_EQ(sb.toString(), u"a" + Text(n) + u"bc");
    }
  }
  StringBuilder sb;
  EXPECT_RAISES(sb.SetChunkSize(1073741824), errors::kOverflow);
  EXPECT_EQ(sb.ChunkSize(), 8192);
}

TEST(StringBuilder, FindReportsOnlyBelowLengthAndShiftsArgumentsBelowOne) {
  struct Case {
    const char16_t *content, *find;
    int32_t start, compare, result;
  };
  const Case cases[] = {{u"abc", u"B", 1, 1, 2},
                        {u"abc", u"B", 1, 0, 0},
                        {u"abc", u"c", 1, 1, 0},     // the last
                        {u"abc", u"bc  ", 1, 1, 2},  // into the padding
                        {u"abc", u"a", 0, 1, -13},
                        // Below 1: start at the buffer read as a number, look for `compare`.
                        {u"000000003", u"x1y1", 0, 1, 4},
                        {u"000000002.5", u"x0y1", -7, 0, 2},
                        {u"0", u"a", 0, 1, -5}};  // start 0
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    const Case& c = cases[i];
    StringBuilder sb;
    sb.Append(c.content);
    EXPECT_EQ(Outcome([&] { return sb.Find(c.find, c.start, c.compare); }), c.result);
  }

  // Characters vacated by Remove or a shorter text read as padding again.
  StringBuilder sb;
  sb.Append(u"abcdef");
  sb.Remove(0, 3);
  EXPECT_EQ(sb.Find(u"ef "), 2);
  EXPECT_EQ(sb.Find(u"efd"), 0);
  sb.SetTheString(u"xy");
  EXPECT_EQ(sb.Find(u"xy "), 1);
  sb.SetTheString(u"");
  EXPECT_EQ(sb.Capacity(), 0);
}

TEST(StringBuilder, ByName) {
  Ref<Object> sb = CreateObject(u"Kestrel.StringBuilder");
  CallByName(sb, u"Append", CallKind::kMethod, {Value(u"abc")});
  CallByName(sb, u"InsertByVal", CallKind::kMethod, {Value(1.5), Value(int32_t{7})});  // at 2
  CallByName(sb, u"AppendNL", CallKind::kMethod, {Value(u"")});
  EXPECT_EQ(CallByName(sb, u"toString", CallKind::kGet).string(), u"ab7c\r\n");
  EXPECT_EQ(CallByName(sb, u"Find", CallKind::kMethod, {Value(u"B")}).long_value(), 2);
  EXPECT_RAISES(CallByName(sb, u"Insert", CallKind::kMethod, {Value(0)}),
                errors::kArgumentNotOptional);
}

}  // namespace
}  // namespace kestrel
