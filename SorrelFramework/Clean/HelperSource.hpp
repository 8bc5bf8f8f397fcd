#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// The helper's proxy, or nothing and perhaps the message why.
using HelperAnswer = std::pair<std::shared_ptr<HelperProtocol>, std::optional<std::string>>;
using HelperSource = std::function<HelperAnswer(const std::string& machServiceName)>;

/// Asks for the privileged helper of that name; may install it and ask the user, so it may block for long.
/// Any thread.
[[nodiscard]] HelperAnswer getHelper(const std::string& machServiceName);

/// For tests: who answers getHelper() from now on; an empty function puts the real one back.
void setHelperSourceForTesting(HelperSource source);

}  // namespace sorrel
