#pragma once

#include <string>
#include <string_view>

#include "SorrelFramework/Platform/Base/Date.hpp"

namespace sorrel {

/// `date` written with a pattern of Unicode Technical Standard 35 ("yyyy-MM-dd HH:mm:ss") in the Gregorian
/// calendar and the language of `locale` ("zh_CN"). `timeZone` is a name such as "Asia/Shanghai", the
/// machine's own if it is empty. "" for an invalid pattern. Any thread.
[[nodiscard]] std::string formattedDate(Date date, std::string_view pattern, const std::string& locale,
                                        std::string_view timeZone = {});

}  // namespace sorrel
