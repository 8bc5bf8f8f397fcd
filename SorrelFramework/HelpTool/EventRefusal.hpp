#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// The user's message for a path when the helper refused its event; `reason` is a word of HelperRefusal.
[[nodiscard]] std::string refusalText(std::string_view reason);

/// The dictionary of the reply to an event that was not executed at all, in the form that HelperProtocol
/// defines: each path of the event with the status of its kind and `text`. Empty for an event that names no
/// paths.
[[nodiscard]] HelperDictionary refusalOf(std::int32_t eventID, const HelperDictionary& event,
                                         const std::string& text);

/// Corrects the reply to an event that may have ended before the helper could report it, if the event removes
/// its paths: Delete, Shred, or Clean. A path counts as removed if the sender found an item there before
/// (`views`, one for each key of the event) and finds none now. The keys of the reply are the event's paths,
/// or their running numbers as the helper writes them. The reply to a Clean lists only failures, so the path
/// is removed from it. True if no failure is left.
bool settleByDisk(std::int32_t eventID, const HelperDictionary& event, const std::vector<SenderView>& views,
                  HelperDictionary& reply);

}  // namespace sorrel
