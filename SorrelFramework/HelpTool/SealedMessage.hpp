#pragma once

#include <optional>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel {

/// A message in SealedMemory, the form in which replies are sent.
struct SealedMessage {
  /// Reads a descriptor of any origin, which may be closed afterwards: nothing unless it is SealedMemory with
  /// a well-formed message of this kind.
  [[nodiscard]] static std::optional<HelperMessage> open(int descriptor, HelperMessage::Kind kind);
};

}  // namespace sorrel
