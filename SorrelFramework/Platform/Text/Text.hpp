#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

// Characters, text order and regular expressions. Texts are UTF-8; every function here accepts any bytes and
// documents how it treats those that are not UTF-8. All are safe on any thread.

/// Strict UTF-8: no overlong form, no surrogate, nothing above U+10FFFF. The empty text is valid.
[[nodiscard]] bool isValidUTF8(std::string_view text) noexcept;

/// `text` with U+FFFD in place of each maximal subpart of an ill-formed sequence (The Unicode Standard, 3.9).
[[nodiscard]] std::string replacingInvalidUTF8(std::string_view text);

/// Number of user-perceived characters: extended grapheme clusters (UAX #29). CR LF is one. Bytes that are
/// not UTF-8 count as in the result of replacingInvalidUTF8().
[[nodiscard]] std::size_t graphemeCount(std::string_view text);

/// Same text under canonical equivalence: "é" equals "e" with a combining accent. Bytes that are not UTF-8
/// are equal to the same bytes only.
[[nodiscard]] bool textEqual(std::string_view a, std::string_view b);
/// Order of the scalar values of the composed (NFC) forms: no locale, no case folding, "Z" before "a". A
/// strict weak order whose equivalence is textEqual().
[[nodiscard]] bool textLess(std::string_view a, std::string_view b);

/// The pieces between the separators, at least one: "" gives [""], "a/" gives ["a", ""]. An empty separator
/// gives the whole text.
[[nodiscard]] std::vector<std::string> componentsSeparatedBy(std::string_view text,
                                                             std::string_view separator);

/// All occurrences replaced, from left to right, without overlap. An empty `target` occurs nowhere.
[[nodiscard]] std::string replacingOccurrences(std::string_view text, std::string_view target,
                                               std::string_view replacement);

/// Case-sensitive search under canonical equivalence. An empty `needle` is found nowhere.
[[nodiscard]] bool containsText(std::string_view text, std::string_view needle);

/// Default lower case of Unicode, independent of the locale. Bytes that are not UTF-8 are kept.
[[nodiscard]] std::string lowercased(std::string_view text);

/// The whole matches of a regular expression without options, in order. The search covers as many UTF-16
/// units of `text` as it has user-perceived characters, so a text with characters outside the basic plane is
/// searched only in part. Nothing if the pattern does not compile; a search that exceeds its limits of time
/// and stack ends there. Invalid UTF-8 is replaced first.
[[nodiscard]] std::vector<std::string> regexMatches(std::string_view pattern, std::string_view text);

}  // namespace sorrel
