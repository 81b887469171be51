// UTF-8 at the boundary: Kestrel's strings are UTF-16 code units; C++
// callers that hold UTF-8 convert explicitly with these two functions.
#pragma once

#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel {

// Invalid UTF-8 sequences become U+FFFD, one per maximal bad subpart.
KESTREL_API std::u16string FromUtf8(std::string_view utf8);
// Unpaired surrogates become U+FFFD.
KESTREL_API std::string ToUtf8(std::u16string_view utf16);

}  // namespace kestrel
