#pragma once

#include <optional>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel {

/// A message in SealedMemory, as it travels between the two programs.
struct SealedMessage {
  /// Not open if the message is over a cap of HelperLimits, or if the system has no memory for it.
  [[nodiscard]] static FileDescriptor seal(const HelperMessage& message);

  /// Reads a descriptor that came from anybody, who may close it afterwards: nothing unless it is
  /// SealedMemory of a sound message of this kind.
  [[nodiscard]] static std::optional<HelperMessage> open(int descriptor, HelperMessage::Kind kind);
};

}  // namespace sorrel
