#pragma once

#include <string>
#include <string_view>

namespace sorrel {

/// The message for a user when the item called `name` could not be removed, in Foundation's English wording;
/// `error` is an errno. In a name that is not UTF-8, invalid bytes are shown as U+FFFD.
std::string removalErrorText(std::string_view name, int error);

}  // namespace sorrel
