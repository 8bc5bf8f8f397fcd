#pragma once

#include <string>
#include <string_view>

namespace sorrel::cli {

/// `bytes` as valid UTF-8: each ill-formed sequence becomes one U+FFFD, split as the Unicode standard
/// recommends (the longest part that could have begun a character).
std::string validUTF8(std::string_view bytes);

/// `bytes` for a terminal: valid UTF-8 in which control characters and bidirectional control characters are
/// escaped ("\n", "\x1b", "\u202e"), so that a file's name can neither move the cursor nor look like another
/// one.
std::string printable(std::string_view bytes);

}  // namespace sorrel::cli
