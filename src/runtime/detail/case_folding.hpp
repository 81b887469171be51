// Simple case folding for the text-mode searches and Like.
//
// Each code point folds to one code point of the same UTF-16 length, so a
// folded copy keeps every character at its position: what the searches
// report as positions and what Like's "?" counts stay those of the original.
#pragma once

#include <string>
#include <string_view>

namespace kestrel::runtime::detail {

// u_foldCase for each code point; unpaired surrogates pass through.
std::u16string SimpleFoldCase(std::u16string_view text);

}  // namespace kestrel::runtime::detail
