// Case folding of container keys (Collection keys, Dictionary text keys in
// text mode): the folded text is what the key index hashes and compares, so
// "Straße", "STRASSE" and "strasse" land on one entry.
#pragma once

#include <unicode/stringoptions.h>  // U_FOLD_CASE_DEFAULT
#include <unicode/ustring.h>
#include <unicode/utypes.h>

#include <climits>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"

namespace kestrel::detail {

// Full Unicode case folding (U_FOLD_CASE_DEFAULT): the folded form may be
// longer than the text ("ß" folds to "ss"). Unpaired surrogates pass through
// unchanged, so any UTF-16 text can be a key.
inline std::u16string FoldKeyCase(std::u16string_view text) {
  // Most keys are ASCII; their folding is A-Z to a-z and nothing else, and
  // skipping ICU for them keeps bulk inserts cheap.
  std::u16string out(text.size(), u'\0');
  size_t i = 0;
  for (; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c >= 0x80) break;
    out[i] = (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
  }
  if (i == text.size()) return out;

  if (text.size() > static_cast<size_t>(INT32_MAX / 3)) RaiseStandard(errors::kOutOfMemory);
  const auto length = static_cast<int32_t>(text.size());
  const auto* src = reinterpret_cast<const UChar*>(text.data());
  // One code point folds to at most three code units, so three times the
  // length is always enough; the preflight retry only guards that bound.
  out.resize(text.size() * 3);
  UErrorCode status = U_ZERO_ERROR;
  int32_t folded =
      u_strFoldCase(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()), src,
                    length, U_FOLD_CASE_DEFAULT, &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    out.resize(static_cast<size_t>(folded));
    status = U_ZERO_ERROR;
    folded = u_strFoldCase(reinterpret_cast<UChar*>(out.data()), folded, src, length,
                           U_FOLD_CASE_DEFAULT, &status);
  }
  // Folding fails only when memory runs out; there is no partial key to use.
  if (U_FAILURE(status)) RaiseStandard(errors::kOutOfMemory);
  out.resize(static_cast<size_t>(folded));
  return out;
}

}  // namespace kestrel::detail
