#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// What the user reads about a path when the helper refused its event; `reason` is a word of HelperRefusal.
[[nodiscard]] std::string refusalText(std::string_view reason);

/// The dictionary of the reply to an event of which nothing was done, in the form that HelperProtocol states:
/// each path of the event with the status of its kind and `text`. Empty for an event that names no paths.
[[nodiscard]] HelperDictionary refusalOf(std::int32_t eventID, const HelperDictionary& event,
                                         const std::string& text);

/// Corrects the reply to a Delete that may have ended before the helper could report it: a path counts as
/// deleted if the sender saw an item there before (`views`, one for each key of the event) and sees none now.
/// The keys of the reply are the event's paths, or their running numbers as the helper writes them.
void settleByDisk(const HelperDictionary& event, const std::vector<SenderView>& views,
                  HelperDictionary& reply);

}  // namespace sorrel
