#pragma once

#include <cstdint>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// The dictionary of the reply to an event of which nothing was done, in the form that HelperProtocol states:
/// each path of the event with the status of its kind and one text. Empty for an event that names no paths.
[[nodiscard]] HelperDictionary refusalOf(std::int32_t eventID, const HelperDictionary& event);

/// `reply`, behind a look at what it gets. A helper that refuses an event as a whole names no paths; but of
/// the event Maintenance the paths that failed are all that its sender reads, and none would mean that none
/// did. Such a reply gets the entries of refusalOf().
[[nodiscard]] HelperProtocol::EventReply completingReply(std::int32_t eventID, const HelperDictionary& event,
                                                         HelperProtocol::EventReply reply);

}  // namespace sorrel
