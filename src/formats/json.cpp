#include "kestrel/formats/json.hpp"

#include <charconv>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/collection.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dictionary.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

constexpr std::u16string_view kLineEnd = u"\r\n";
// How much of the text an array's failure line shows.
constexpr size_t kExcerptLength = 20;

bool IsNumberChar(char16_t c) noexcept {
  return (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.' || c == u'e' || c == u'E';
}

bool IsKeyBlank(char16_t c) noexcept {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

int HexDigit(char16_t c) noexcept {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

void AppendDecimal(std::u16string& out, size_t number) {
  char digits[24];
  auto [end, ec] = std::to_chars(digits, digits + sizeof(digits), number);
  out.append(digits, end);
}

// Digits of a well-formed number, narrowed to ASCII for from_chars; false
// when the text is not of the form -?d+(.d+)?([eE][+-]?d+)? or too long, so
// that the runtime's own conversion decides.
bool StrictDecimal(std::u16string_view text, char* out, size_t capacity) {
  if (text.size() >= capacity) return false;
  size_t i = 0;
  auto digits = [&] {
    const size_t start = i;
    while (i < text.size() && text[i] >= u'0' && text[i] <= u'9') ++i;
    return i > start;
  };
  if (i < text.size() && text[i] == u'-') ++i;
  if (!digits()) return false;
  if (i < text.size() && text[i] == u'.') {
    ++i;
    if (!digits()) return false;
  }
  if (i < text.size() && (text[i] == u'e' || text[i] == u'E')) {
    ++i;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
    if (!digits()) return false;
  }
  if (i != text.size()) return false;
  for (size_t k = 0; k < text.size(); ++k) out[k] = static_cast<char>(text[k]);
  return true;
}

// One container being read: its value (which owns it), a typed pointer for
// adding, and for an object the key of the member being read.
struct Frame {
  Value container;
  Dictionary* dict = nullptr;
  Collection* list = nullptr;
  Value key;
};

// The reader: one position over the text and an explicit stack of open
// containers, so that nesting never deepens the machine stack.
class Reader {
 public:
  Reader(std::u16string_view text, int32_t compare_mode, bool large_integers,
         std::u16string& errors)
      : s_(text.data()),
        n_(text.size()),
        compare_mode_(compare_mode),
        large_integers_(large_integers),
        errors_(errors) {}

  Value Run() {
    Skip();
    if (pos_ >= n_ || (s_[pos_] != u'{' && s_[pos_] != u'[')) {
      errors_ = u"Invalid JSON";
      return Value::Nothing();
    }
    Open(s_[pos_] == u'{');
    while (!stack_.empty()) {
      if (stack_.back().dict != nullptr) {
        ObjectStep();
      } else {
        ArrayStep();
      }
    }
    return std::move(root_);
  }

 private:
  // Passes over blanks, "(", ")" and comments. The flags follow the
  // runtime's reader exactly, odd consequences included: a lone "/" or "*"
  // is passed over, "/" inside a line comment ends it, "*/" outside a block
  // comment starts a line comment, and any character after a "*" inside a
  // block comment spoils the following "*/".
  void Skip() noexcept {
    // Blanks and line ends leave all flags off, so runs of them need no
    // state; only a character that can start a comment needs the machine.
    while (pos_ < n_ &&
           (s_[pos_] == u' ' || s_[pos_] == u'\n' || s_[pos_] == u'\r' || s_[pos_] == u'\t')) {
      ++pos_;
    }
    if (pos_ >= n_ ||
        (s_[pos_] != u'/' && s_[pos_] != u'*' && s_[pos_] != u'(' && s_[pos_] != u')')) {
      return;
    }
    bool mark = false, in_comment = false, in_block = false;
    for (; pos_ < n_; ++pos_) {
      switch (s_[pos_]) {
        case u'\r':
        case u'\n':
          if (!in_block) mark = in_comment = false;
          break;
        case u'\t':
        case u' ':
        case u'(':
        case u')':
          break;
        case u'/':
          if (in_block) {
            if (mark) mark = in_comment = in_block = false;
          } else if (!mark) {
            mark = true;
            in_comment = false;
          } else {
            mark = false;
            in_comment = true;
          }
          break;
        case u'*':
          if (!mark) {
            mark = true;
          } else {
            mark = false;
            in_comment = in_block = true;
          }
          break;
        default:
          if (!in_comment) return;
      }
    }
  }

  std::u16string_view From(size_t pos, size_t length = std::u16string_view::npos) const {
    return std::u16string_view(s_, n_).substr(std::min(pos, n_), length);
  }

  void AppendAt(std::u16string_view what, size_t pos, std::u16string_view tail) {
    errors_.append(what);
    errors_.append(u" at position ");
    AppendDecimal(errors_, pos + 1);
    errors_.append(u" : ");
    errors_.append(tail);
    errors_.append(kLineEnd);
  }

  void AppendFailure(const RuntimeError& e, std::u16string_view what) {
    errors_.append(e.description());
    errors_.append(u": ");
    errors_.append(what);
    errors_.append(kLineEnd);
  }

  // Opens a container at the bracket under the position.
  void Open(bool object) {
    if (stack_.size() >= static_cast<size_t>(JSON::kMaxDepth)) {
      errors_.append(u"Nesting deeper than ");
      AppendDecimal(errors_, JSON::kMaxDepth);
      errors_.append(u" levels at position ");
      AppendDecimal(errors_, pos_ + 1);
      errors_.append(kLineEnd);
      Abandon();
      return;
    }
    ++pos_;
    Frame frame;
    if (object) {
      auto dict = MakeRef<Dictionary>();
      try {
        dict->SetCompareMode(compare_mode_);
      } catch (const RuntimeError& e) {
        // The runtime's reader goes on past a refused mode with the error
        // still pending, so the object ends after its first member.
        mode_failure_ = e.description();
      }
      frame.dict = dict.get();
      frame.container = Value(dict);
    } else {
      auto list = MakeRef<Collection>();
      frame.list = list.get();
      frame.container = Value(list);
    }
    stack_.push_back(std::move(frame));
  }

  // Ends the innermost container and adds it to the one around it. When
  // that add fails, the enclosing container ends as well, and so on out.
  void Close() {
    for (;;) {
      Value done = std::move(stack_.back().container);
      stack_.pop_back();
      if (stack_.empty()) {
        root_ = std::move(done);
        return;
      }
      if (AddToTop(std::move(done))) return;
    }
  }

  // Ends every open container where it stands, with no further lines.
  void Abandon() {
    while (!stack_.empty()) {
      Value done = std::move(stack_.back().container);
      stack_.pop_back();
      if (stack_.empty()) {
        root_ = std::move(done);
        return;
      }
      try {
        AddQuietly(stack_.back(), std::move(done));
      } catch (const RuntimeError&) {
        // A duplicate key this late only loses the partial member.
      }
    }
  }

  static void AddQuietly(Frame& f, Value item) {
    if (f.dict != nullptr) {
      f.dict->Add(f.key, std::move(item));
    } else {
      f.list->Add(std::move(item));
    }
  }

  // Adds a value to the innermost container; on a runtime failure appends
  // its line and returns false (the caller then ends that container).
  bool AddToTop(Value item) {
    Frame& f = stack_.back();
    try {
      AddQuietly(f, std::move(item));
    } catch (const RuntimeError& e) {
      AppendFailure(e, f.dict != nullptr ? f.key.string() : From(pos_, kExcerptLength));
      return false;
    }
    if (f.dict != nullptr && !mode_failure_.empty()) {
      errors_.append(mode_failure_);
      errors_.append(u": ");
      errors_.append(f.key.string());
      errors_.append(kLineEnd);
      return false;
    }
    return true;
  }

  void ObjectStep() {
    Skip();
    if (pos_ < n_ && s_[pos_] == u'}') {
      ++pos_;
      Close();
      return;
    }
    if (pos_ < n_ && s_[pos_] == u',') {
      ++pos_;
    }
    ReadKey();
    ReadMember();
  }

  void ArrayStep() {
    Skip();
    if (pos_ < n_ && s_[pos_] == u']') {
      ++pos_;
      Close();
      return;
    }
    if (pos_ < n_ && s_[pos_] == u',') {
      ++pos_;
      Skip();
    }
    if (pos_ >= n_) {
      // Without this stop the element step would add empty values forever.
      errors_.append(u"Unexpected end of text at position ");
      AppendDecimal(errors_, n_ + 1);
      errors_.append(kLineEnd);
      Abandon();
      return;
    }
    ReadMember();
  }

  // Reads the value of the current member or element and adds it, or opens
  // the container it starts.
  void ReadMember() {
    Skip();
    if (pos_ < n_ && (s_[pos_] == u'{' || s_[pos_] == u'[')) {
      Open(s_[pos_] == u'{');
      return;
    }
    const size_t start = pos_;
    Value item;
    try {
      item = ReadScalar();
    } catch (const RuntimeError& e) {
      Frame& f = stack_.back();
      AppendFailure(e, f.dict != nullptr ? f.key.string() : From(pos_, kExcerptLength));
      Close();
      return;
    }
    if (!AddToTop(std::move(item))) {
      Close();
    } else if (pos_ == start && stack_.back().list != nullptr) {
      // A bad "true", "false" or "null" leaves the position where it was;
      // reading it again would add the same element forever. Its line is
      // already there, so the array just ends.
      Close();
    }
  }

  void ReadKey() {
    Skip();
    scratch_.clear();
    bool in_double = false, in_single = false;
    while (pos_ < n_) {
      const char16_t c = s_[pos_];
      if (c == u'"' || c == u'\'') {
        bool& flag = c == u'"' ? in_double : in_single;
        flag = !flag;
        ++pos_;
        if (!flag) {
          Skip();
          if (pos_ >= n_ || s_[pos_] != u':') {
            AppendAt(u"Invalid Key", pos_, scratch_);
            break;
          }
        }
      } else if (c == u':') {
        ++pos_;
        if (!in_double && !in_single) break;
        scratch_.push_back(c);
      } else {
        // Whole runs of ordinary characters at once.
        const size_t start = pos_;
        while (pos_ < n_) {
          const char16_t d = s_[pos_];
          if (d == u'"' || d == u'\'' || d == u':' || IsKeyBlank(d)) break;
          ++pos_;
        }
        scratch_.append(s_ + start, pos_ - start);
        if (pos_ == start) ++pos_;  // a blank, dropped
      }
    }
    stack_.back().key = Value(std::u16string_view(scratch_));
  }

  Value ReadScalar() {
    if (pos_ < n_) {
      switch (s_[pos_]) {
        case u'"':
        case u'\'':
          return ReadString();
        case u't':
        case u'f':
          return ReadBoolean();
        case u'n':
          return ReadNull();
        default:
          break;
      }
    }
    return ReadNumber();
  }

  bool At(std::u16string_view word) const noexcept {
    return n_ - pos_ >= word.size() && std::u16string_view(s_ + pos_, word.size()) == word;
  }

  Value ReadBoolean() {
    if (At(u"true")) {
      pos_ += 4;
      return Value(true);
    }
    if (At(u"false")) {
      pos_ += 5;
      return Value(false);
    }
    AppendAt(u"Invalid Boolean", pos_, From(pos_));
    return Value(false);
  }

  Value ReadNull() {
    if (At(u"null")) {
      pos_ += 4;
      return Value::Null();
    }
    AppendAt(u"Invalid null value", pos_, From(pos_));
    return Value();
  }

  Value ReadString() {
    const char16_t quote = s_[pos_++];
    // Text without escapes becomes the value straight from the source.
    const size_t start = pos_;
    while (pos_ < n_ && s_[pos_] != quote && s_[pos_] != u'\\') ++pos_;
    if (pos_ >= n_ || s_[pos_] == quote) {
      Value text(std::u16string_view(s_ + start, pos_ - start));
      if (pos_ < n_) ++pos_;
      return text;
    }
    scratch_.assign(s_ + start, pos_ - start);
    while (pos_ < n_) {
      const char16_t c = s_[pos_];
      if (c == quote) {
        ++pos_;
        break;
      }
      if (c != u'\\') {
        scratch_.push_back(c);
        ++pos_;
        continue;
      }
      if (pos_ + 1 >= n_) {
        ++pos_;
        break;
      }
      char16_t out = 0;
      switch (s_[pos_ + 1]) {
        case u'"':
          out = u'"';
          break;
        case u'\\':
          out = u'\\';
          break;
        case u'/':
          out = u'/';
          break;
        case u'\'':
          out = u'\'';
          break;
        case u'b':
          out = 8;
          break;
        case u'f':
          out = 12;
          break;
        case u'n':
          out = u'\n';
          break;
        case u'r':
          out = u'\r';
          break;
        case u't':
          out = u'\t';
          break;
        case u'u':
          if (n_ - pos_ >= 6) {
            int unit = 0;
            for (size_t k = 2; k < 6 && unit >= 0; ++k) {
              const int digit = HexDigit(s_[pos_ + k]);
              unit = digit < 0 ? -1 : unit * 16 + digit;
            }
            if (unit >= 0) {
              scratch_.push_back(static_cast<char16_t>(unit));
              pos_ += 6;
              continue;
            }
          }
          break;
        default:
          break;
      }
      if (out != 0) {
        scratch_.push_back(out);
        pos_ += 2;
      } else {
        ++pos_;  // drop the backslash; the next character is read as text
      }
    }
    return Value(std::u16string_view(scratch_));
  }

  Value ReadNumber() {
    const size_t start = pos_;
    bool real = false;
    while (pos_ < n_ && IsNumberChar(s_[pos_])) {
      const char16_t c = s_[pos_];
      real = real || c == u'.' || c == u'e' || c == u'E';
      ++pos_;
    }
    if (pos_ >= n_) return Value();
    const std::u16string_view text(s_ + start, pos_ - start);
    return real ? ToReal(text) : ToWhole(text);
  }

  // Well-formed numbers are converted here; every other text goes to the
  // runtime's conversion, which gives the same value or raises its error.
  Value ToReal(std::u16string_view text) const {
    char buffer[64];
    if (StrictDecimal(text, buffer, sizeof(buffer))) {
      double value = 0;
      auto [end, ec] = std::from_chars(buffer, buffer + text.size(), value);
      if (ec == std::errc() && std::isfinite(value)) return Value(value);
    }
    return Value(runtime::ToDouble(Value(text)));
  }

  Value ToWhole(std::u16string_view text) const {
    size_t i = text.size() > 0 && text[0] == u'-' ? 1 : 0;
    const size_t digits = text.size() - i;
    if (digits >= 1 && digits <= 18) {
      int64_t magnitude = 0;
      for (; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c < u'0' || c > u'9') break;
        magnitude = magnitude * 10 + (c - u'0');
      }
      if (i == text.size()) {
        const int64_t value = text[0] == u'-' ? -magnitude : magnitude;
        if (value >= INT32_MIN && value <= INT32_MAX) return Value(static_cast<int32_t>(value));
        if (large_integers_) return Value(value);
      }
    }
    const Value number(text);
    if (!large_integers_) return Value(runtime::ToLong(number));
    try {
      return Value(runtime::ToLong(number));
    } catch (const RuntimeError& e) {
      if (e.number() != errors::kOverflow) throw;
    }
    return Value(runtime::ToLongLong(number));
  }

  const char16_t* s_;
  size_t n_;
  size_t pos_ = 0;
  int32_t compare_mode_;
  bool large_integers_;
  std::u16string& errors_;
  std::u16string mode_failure_;
  std::u16string scratch_;
  std::vector<Frame> stack_;
  Value root_ = Value::Nothing();
};

}  // namespace

KESTREL_REGISTER_CLASS(JSON, JSON::kQualifiedName, Instancing::kCreatable);

JSON::~JSON() = default;

void JSON::Clear() noexcept {
  root_ = Value::Nothing();
  text_.clear();
  parse_error_.clear();
}

bool JSON::Parse(std::u16string_view text) {
  Clear();
  text_.assign(text);
  Reader reader(text_, compare_mode_, large_integers_, parse_error_);
  root_ = reader.Run();
  return parse_error_.empty();
}

const DispatchTable<JSON>& JSON::Dispatch() {
  using T = DispatchTable<JSON>;
  static const T table =
      T::Builder(u"JSON")
          .Property(
              u"CompareMode", [](JSON& j, Args&) { return Value(j.CompareMode()); },
              [](JSON& j, Args&, const Value& v) { j.SetCompareMode(runtime::ToLong(v)); })
          .Property(
              u"LargeIntegers", [](JSON& j, Args&) { return Value(j.LargeIntegers()); },
              [](JSON& j, Args&, const Value& v) { j.SetLargeIntegers(runtime::ToBoolean(v)); })
          .Get(u"ParseError", [](JSON& j, Args&) { return Value(j.ParseError()); })
          .Get(u"Text", [](JSON& j, Args&) { return Value(j.Text()); })
          .Get(u"JSONObject", [](JSON& j, Args&) { return j.JSONObject(); })
          .Method(u"Clear", 0, 0,
                  [](JSON& j, Args&) {
                    j.Clear();
                    return Value();
                  })
          .Method(u"Parse", 1, 1, [](JSON& j, Args& a) { return Value(j.Parse(a.Text(0))); })
          .Build();
  return table;
}

}  // namespace kestrel
