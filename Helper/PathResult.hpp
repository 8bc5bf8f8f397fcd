#pragma once

#include <string>
#include <string_view>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/Native/ItemIdentity.hpp"
#include "SorrelFramework/Native/RemovalPolicy.hpp"
#include "SorrelFramework/Native/RemovalTarget.hpp"

namespace sorrel::helper {

/// What happened to one path of an event.
struct PathResult {
  HelperEventErrorID status = HelperEventErrorID::NoCause;
  std::string desc;  ///< "" for Success

  [[nodiscard]] bool isSuccess() const noexcept { return status == HelperEventErrorID::Success; }
};

/// One text for everything that is refused: it tells nothing of what stands under the path.
inline constexpr std::string_view kRefusedItemText = "This item isn’t one that may be changed this way.";

PathResult succeeded();
PathResult refused(HelperEventErrorID status);
/// `what`, ": " and the system's words for `error`; kRefusedItemText if the policy said no.
PathResult failed(HelperEventErrorID status, std::string_view what, int error, bool isRefused = false);

/// The item at `path` if `policy` lets it go and it is the one that the sender sees there. Another mount
/// namespace shows other things under the same names, so the sender's word can only cause refusals.
RemovalTarget findSeen(std::string_view path, const SenderView& seen, const RemovalPolicy& policy);

}  // namespace sorrel::helper
