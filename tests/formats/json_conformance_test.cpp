// Every file of the parsing test suite: no crash, no hang; the y_ files give
// the tree another parser builds from the same bytes, and the n_ files the
// lenient reader accepts are exactly the ones listed below.
//
// Files that are valid UTF-8 are read as UTF-8; the others (invalid
// sequences, UTF-16, encoded surrogates) as Windows-1252, the text a client
// gets when it reads such a file through the ANSI code page.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "kestrel/formats/json.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/dictionary.hpp"
#include "kestrel/runtime/encoding.hpp"

namespace kestrel {
namespace {

namespace fs = std::filesystem;

std::u16string ReadAsText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::u16string text = FromUtf8(bytes);
  return ToUtf8(text) == bytes ? text : runtime::FromAnsi(bytes);
}

// Whether a Kestrel value is the value the other parser read. Objects are
// compared entry by entry in order (that parser sorts its keys, so by key).
bool SameTree(const Value& mine, const nlohmann::json& theirs) {
  switch (theirs.type()) {
    case nlohmann::json::value_t::object: {
      auto* d = mine.IsObject() ? dynamic_cast<Dictionary*>(mine.object()) : nullptr;
      if (d == nullptr || d->Count() != static_cast<int32_t>(theirs.size())) return false;
      Value keys = d->Keys();
      for (int32_t i = 0; i < d->Count(); ++i) {
        Value key = keys.GetElement({i});
        auto it = theirs.find(ToUtf8(key.string()));
        if (it == theirs.end() || !SameTree(d->Item(key), *it)) return false;
      }
      return true;
    }
    case nlohmann::json::value_t::array: {
      auto* c = mine.IsObject() ? dynamic_cast<Collection*>(mine.object()) : nullptr;
      if (c == nullptr || c->Count() != static_cast<int32_t>(theirs.size())) return false;
      return std::equal(c->begin(), c->end(), theirs.begin(), SameTree);
    }
    case nlohmann::json::value_t::string:
      return mine.IsString() && ToUtf8(mine.string()) == theirs.get<std::string>();
    case nlohmann::json::value_t::boolean:
      return mine.kind() == Kind::kBoolean && mine.boolean() == theirs.get<bool>();
    case nlohmann::json::value_t::null:
      return mine.IsNull();
    case nlohmann::json::value_t::number_float:
      return mine.kind() == Kind::kDouble && mine.dbl() == theirs.get<double>();
    case nlohmann::json::value_t::number_integer:
    case nlohmann::json::value_t::number_unsigned:
      if (mine.kind() == Kind::kLong) return mine.long_value() == theirs.get<int64_t>();
      return mine.kind() == Kind::kLongLong && mine.long_long() == theirs.get<int64_t>();
    default:
      return false;
  }
}

// The n_ files the lenient reader accepts, each with the rule that does.
const std::map<std::string, std::string>& AcceptedInvalid() {
  static const std::map<std::string, std::string> kAccepted = {
      {"n_array_comma_after_close.json", "text after the root container is never read"},
      {"n_array_extra_close.json", "text after the root container is never read"},
      {"n_object_trailing_comment.json", "text after the root container is never read"},
      {"n_object_trailing_comment_open.json", "text after the root container is never read"},
      {"n_object_trailing_comment_slash_open.json", "text after the root container is never read"},
      {"n_object_trailing_comment_slash_open_incomplete.json",
       "text after the root container is never read"},
      {"n_object_with_trailing_garbage.json", "text after the root container is never read"},
      {"n_structure_array_trailing_garbage.json", "text after the root container is never read"},
      {"n_structure_array_with_extra_array_close.json",
       "text after the root container is never read"},
      {"n_structure_double_array.json", "text after the root container is never read"},
      {"n_structure_object_followed_by_closing_object.json",
       "text after the root container is never read"},
      {"n_structure_object_with_trailing_garbage.json",
       "text after the root container is never read"},
      {"n_structure_trailing_#.json", "text after the root container is never read"},
      {"n_array_1_true_without_comma.json", "commas are optional and a leading one is accepted"},
      {"n_array_comma_and_number.json", "commas are optional and a leading one is accepted"},
      {"n_array_inner_array_no_comma.json", "commas are optional and a leading one is accepted"},
      {"n_array_missing_value.json", "commas are optional and a leading one is accepted"},
      {"n_number_1_000.json", "commas are optional and a leading one is accepted"},
      {"n_number_+1.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_-01.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_-2..json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_.2e-3.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_0.e1.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_2.e+3.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_2.e-3.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_2.e3.json", "numbers are gathered by character set and converted by the runtime"},
      {"n_number_neg_int_starting_with_zero.json",
       "numbers are gathered by character set and converted by the runtime"},
      {"n_number_neg_real_without_int_part.json",
       "numbers are gathered by character set and converted by the runtime"},
      {"n_number_real_without_fractional_part.json",
       "numbers are gathered by character set and converted by the runtime"},
      {"n_number_starting_with_dot.json",
       "numbers are gathered by character set and converted by the runtime"},
      {"n_number_with_leading_zero.json",
       "numbers are gathered by character set and converted by the runtime"},
      {"n_object_bracket_key.json", "an unquoted key is everything up to the colon"},
      {"n_object_key_with_single_quotes.json", "an unquoted key is everything up to the colon"},
      {"n_object_missing_key.json", "an unquoted key is everything up to the colon"},
      {"n_object_non_string_key.json", "an unquoted key is everything up to the colon"},
      {"n_object_non_string_key_but_huge_number_instead.json",
       "an unquoted key is everything up to the colon"},
      {"n_object_two_commas_in_a_row.json", "an unquoted key is everything up to the colon"},
      {"n_object_unquoted_key.json", "an unquoted key is everything up to the colon"},
      {"n_object_single_quote.json", "single quotes delimit keys and strings"},
      {"n_string_single_quote.json", "single quotes delimit keys and strings"},
      {"n_structure_object_with_comment.json",
       "comments, and a lone * between tokens, are skipped"},
      {"n_array_star_inside.json", "comments, and a lone * between tokens, are skipped"},
      {"n_string_backslash_00.json", "an unknown escape drops the backslash"},
      {"n_string_escape_x.json", "an unknown escape drops the backslash"},
      {"n_string_escaped_ctrl_char_tab.json", "an unknown escape drops the backslash"},
      {"n_string_escaped_emoji.json", "an unknown escape drops the backslash"},
      {"n_string_invalid_backslash_esc.json", "an unknown escape drops the backslash"},
      {"n_string_invalid_utf8_after_escape.json", "an unknown escape drops the backslash"},
      {"n_string_incomplete_surrogate_escape_invalid.json",
       "an unknown escape drops the backslash"},
      {"n_string_1_surrogate_then_escape_u.json",
       "\\u without four hex digits is an unknown escape"},
      {"n_string_1_surrogate_then_escape_u1.json",
       "\\u without four hex digits is an unknown escape"},
      {"n_string_1_surrogate_then_escape_u1x.json",
       "\\u without four hex digits is an unknown escape"},
      {"n_string_incomplete_escaped_character.json",
       "\\u without four hex digits is an unknown escape"},
      {"n_string_incomplete_surrogate.json", "\\u without four hex digits is an unknown escape"},
      {"n_string_invalid-utf-8-in-escape.json", "\\u without four hex digits is an unknown escape"},
      {"n_string_invalid_unicode_escape.json", "\\u without four hex digits is an unknown escape"},
      {"n_string_unescaped_ctrl_char.json", "any character but the quote is text inside a string"},
      {"n_string_unescaped_newline.json", "any character but the quote is text inside a string"},
      {"n_string_unescaped_tab.json", "any character but the quote is text inside a string"},
  };
  return kAccepted;
}

TEST(JSONConformance, SuiteFiles) {
  const fs::path folder = fs::path(KESTREL_TEST_DATA_DIR) / "json_suite";
  std::set<std::string> accepted_invalid;
  int y = 0, n = 0, i = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    const std::u16string text = ReadAsText(entry.path());
    JSON json;
    json.SetLargeIntegers(true);
    const bool ok = json.Parse(text);
    if (name[0] == 'n') {
      ++n;
      if (ok) accepted_invalid.insert(name);
      continue;
    }
    if (name[0] == 'i') {
      ++i;
      continue;
    }
    ++y;
    std::ifstream in(entry.path(), std::ios::binary);
    const nlohmann::json theirs = nlohmann::json::parse(in);
    if (!theirs.is_object() && !theirs.is_array()) {
      EXPECT_EQ(json.ParseError(), u"Invalid JSON");
    } else if (name == "y_object_escaped_null_in_key.json") {
      // Keys take no escapes: the key is the text between the quotes.
      EXPECT_TRUE(ok);
      auto& d = dynamic_cast<Dictionary&>(*json.JSONObject().object());
      EXPECT_EQ(d.Item(Value(u"foo\\u0000bar")).long_value(), 42);
    } else if (name.starts_with("y_object_duplicated_key")) {
      EXPECT_TRUE(json.ParseError().starts_with(
          u"This key is already associated with an element of this collection: "));
    } else {
      EXPECT_TRUE(ok) << ToUtf8(json.ParseError());
      EXPECT_TRUE(SameTree(json.JSONObject(), theirs));
    }
  }
  EXPECT_EQ(y, 95);
  EXPECT_EQ(n, 188);
  EXPECT_EQ(i, 35);
  std::set<std::string> listed;
  for (const auto& [file, rule] : AcceptedInvalid()) listed.insert(file);
  EXPECT_EQ(accepted_invalid, listed);
}

}  // namespace
}  // namespace kestrel
