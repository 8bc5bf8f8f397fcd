#pragma once

#include <string>
#include <string_view>

namespace sorrel {

/// What a user reads when the item called `name` could not be removed, as Foundation words it in English;
/// `error` is an errno. A name that is no UTF-8 is shown with U+FFFD.
std::string removalErrorText(std::string_view name, int error);

}  // namespace sorrel
