#pragma once

#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// The path in the text of a URL: without any "file://", percent-decoded; "" if it can't be decoded as UTF-8.
std::string pathInText(std::string_view url);
std::string pathTextOf(const URL& url);

}  // namespace sorrel
