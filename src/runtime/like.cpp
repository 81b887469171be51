// The Like operator.
//
// A pattern is compiled first into tokens that each match exactly one
// character, plus stars; compiling is where every error is found, so a bad
// pattern raises 93 whatever the text is, even an empty one. Matching then
// walks the text and the tokens together and remembers only the latest star:
// when a token fails, that star takes one more character and the tokens
// after it start again. Earlier stars never need to take more, since
// anything they could take the latest star can take as well. So the work is
// at most text length times pattern length however many stars there are,
// never the exponential search of naive backtracking.
//
// Text mode folds both texts with the simple case folding of the text-mode
// searches before compiling, so ranges are compared between folded
// characters too ("[A-Z]" is "[a-z]").

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "detail/case_folding.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/strings.hpp"

namespace kestrel::runtime {
namespace {

[[noreturn]] void RaiseInvalidPattern() {
  RaiseStandard(errors::kInvalidPatternString);
}

struct Range {
  char16_t low;
  char16_t high;
};

struct Token {
  enum class Type : uint8_t { kStar, kLiteral, kAny, kDigit, kList };
  Type type;
  bool negated = false;
  char16_t unit = 0;   // kLiteral
  uint32_t first = 0;  // kList: ranges_[first, first + count)
  uint32_t count = 0;
};

class Pattern {
 public:
  explicit Pattern(std::u16string_view pattern) {
    size_t i = 0;
    while (i < pattern.size()) {
      const char16_t c = pattern[i++];
      switch (c) {
        case u'*':
          // A run of stars matches what one star does.
          if (tokens_.empty() || tokens_.back().type != Token::Type::kStar) {
            tokens_.push_back({Token::Type::kStar});
          }
          break;
        case u'?':
          tokens_.push_back({Token::Type::kAny});
          break;
        case u'#':
          tokens_.push_back({Token::Type::kDigit});
          break;
        case u'[':
          i = CompileList(pattern, i);
          break;
        default:
          tokens_.push_back({Token::Type::kLiteral, false, c});
          break;
      }
    }
  }

  bool Matches(std::u16string_view text) const {
    constexpr size_t kNone = SIZE_MAX;
    size_t t = 0;
    size_t p = 0;
    size_t star = kNone;   // the latest star's token
    size_t star_text = 0;  // where the text stood after what that star took
    while (t < text.size()) {
      if (p < tokens_.size()) {
        const Token& token = tokens_[p];
        if (token.type == Token::Type::kStar) {
          star = p++;
          star_text = t;
          continue;
        }
        if (MatchesOne(token, text[t])) {
          ++p;
          ++t;
          continue;
        }
      }
      if (star == kNone) return false;
      p = star + 1;
      t = ++star_text;
    }
    while (p < tokens_.size() && tokens_[p].type == Token::Type::kStar) ++p;
    return p == tokens_.size();
  }

 private:
  // A list from just after its "[" to its "]"; returns the position after
  // the "]".
  size_t CompileList(std::u16string_view pattern, size_t begin) {
    const size_t end = pattern.find(u']', begin);
    if (end == std::u16string_view::npos) RaiseInvalidPattern();
    const std::u16string_view list = pattern.substr(begin, end - begin);
    if (list.empty()) return end + 1;  // "[]" stands for the empty text

    Token token{Token::Type::kList};
    size_t k = 0;
    if (list[0] == u'!') {
      token.negated = true;
      k = 1;
    }
    const size_t items = k;
    token.first = static_cast<uint32_t>(ranges_.size());
    while (k < list.size()) {
      const char16_t low = list[k];
      // A hyphen between two characters makes a range, except a leading
      // hyphen, which is itself; a trailing one has no upper end.
      const bool range = !(k == items && low == u'-') && k + 2 < list.size() && list[k + 1] == u'-';
      const char16_t high = range ? list[k + 2] : low;
      if (high < low) RaiseInvalidPattern();
      ranges_.push_back({low, high});
      k += range ? 3 : 1;
    }
    token.count = static_cast<uint32_t>(ranges_.size() - token.first);
    tokens_.push_back(token);
    return end + 1;
  }

  bool MatchesOne(const Token& token, char16_t c) const {
    switch (token.type) {
      case Token::Type::kLiteral:
        return c == token.unit;
      case Token::Type::kAny:
        return true;
      case Token::Type::kDigit:
        return c >= u'0' && c <= u'9';
      case Token::Type::kList: {
        bool in = false;
        for (uint32_t i = token.first; i < token.first + token.count && !in; ++i) {
          in = c >= ranges_[i].low && c <= ranges_[i].high;
        }
        return in != token.negated;
      }
      case Token::Type::kStar:
        break;
    }
    return false;
  }

  std::vector<Token> tokens_;
  std::vector<Range> ranges_;
};

}  // namespace

bool Like(std::u16string_view text, std::u16string_view pattern, CompareMethod mode) {
  if (mode == CompareMethod::kBinary) return Pattern(pattern).Matches(text);
  // Database mode compares like text mode.
  return Pattern(detail::SimpleFoldCase(pattern)).Matches(detail::SimpleFoldCase(text));
}

}  // namespace kestrel::runtime
