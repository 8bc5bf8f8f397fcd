#pragma once

#include <string>
#include <string_view>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/Removal/FolderRemoval.hpp"
#include "SorrelFramework/Removal/ItemIdentity.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/RemovalTarget.hpp"

namespace sorrel::helper {

/// What happened to one path of an event.
struct PathResult {
  HelperEventErrorID status = HelperEventErrorID::NoCause;
  std::string desc;  ///< "" for Success

  [[nodiscard]] bool isSuccess() const noexcept { return status == HelperEventErrorID::Success; }
};

/// One text for everything that is refused: it says nothing about the item.
inline constexpr std::string_view kRefusedItemText = "This item isn’t one that may be changed this way.";

PathResult succeeded();
PathResult refused(HelperEventErrorID status);
/// `what`, ": " and the system's words for `error`.
PathResult failed(HelperEventErrorID status, std::string_view what, int error);
/// Why a target may not be removed, or a removal has failed: as failed(), or as refused() if the policy said
/// no; with the name of the owner where that is why.
PathResult failed(HelperEventErrorID status, std::string_view what, const RemovalTarget& target);
PathResult failed(HelperEventErrorID status, std::string_view what, const FolderRemoval& removal);

/// The item at `path` if `policy` lets it go and it is the one that the sender sees there. Another mount
/// namespace shows other things under the same names, so the sender's word can only cause refusals.
RemovalTarget findSeen(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
