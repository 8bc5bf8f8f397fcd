#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

/// Nothing if `text` is not UTF-8.
[[nodiscard]] std::optional<std::u16string> utf16FromUTF8(std::string_view text);
/// An unpaired surrogate becomes U+FFFD.
[[nodiscard]] std::string utf8FromUTF16(std::u16string_view text);

}  // namespace sorrel
