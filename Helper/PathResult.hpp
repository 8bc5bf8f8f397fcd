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

/// The result for one path of an event.
struct PathResult {
  HelperEventErrorID status = HelperEventErrorID::NoCause;
  std::string desc;  ///< "" for Success

  [[nodiscard]] bool isSuccess() const noexcept { return status == HelperEventErrorID::Success; }
};

/// One text for all refusals: it reveals nothing about the item.
inline constexpr std::string_view kRefusedItemText = "This item isn’t one that may be changed this way.";

PathResult succeeded();
PathResult refused(HelperEventErrorID status);
/// `what`, ": " and the system's words for `error`.
PathResult failed(HelperEventErrorID status, std::string_view what, int error);
/// Why a target may not be removed, or a removal has failed: like failed(), or like refused() if the policy
/// refused; with the name of the owner if that is the reason.
PathResult failed(HelperEventErrorID status, std::string_view what, const RemovalTarget& target);
PathResult failed(HelperEventErrorID status, std::string_view what, const FolderRemoval& removal);

/// The item at `path` if `policy` allows its removal and it is the one that the sender saw. In another mount
/// namespace the same path may lead to another item, so the sender's view can only cause refusals.
RemovalTarget findSeen(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
