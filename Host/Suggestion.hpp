#pragma once

#include <span>
#include <string>
#include <string_view>

namespace sorrel::cli {

/// The name among `names` that `word` was most likely meant to be: at most two letters wrong, missing or
/// extra, and fewer than half of the word. "" if none is that close; the first one on a tie.
std::string_view nearestName(std::string_view word, std::span<const std::string_view> names);

/// " Did you mean 'X'?", or "" if no name is close.
std::string suggestion(std::string_view word, std::span<const std::string_view> names);

}  // namespace sorrel::cli
