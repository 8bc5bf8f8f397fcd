#pragma once

#include <optional>

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel {

/// A message in SealedMemory, as replies travel.
struct SealedMessage {
  /// Reads a descriptor of any origin, which may be closed afterwards: nothing unless it is SealedMemory of a
  /// sound message of this kind.
  [[nodiscard]] static std::optional<HelperMessage> open(int descriptor, HelperMessage::Kind kind);
};

}  // namespace sorrel
