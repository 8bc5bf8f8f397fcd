#include "SorrelFramework/HelpTool/SealedMessage.hpp"

#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel {

std::optional<HelperMessage> SealedMessage::open(int descriptor, HelperMessage::Kind kind) {
  const std::optional<SealedMemory> memory = SealedMemory::map(descriptor, HelperLimits::bytesOf(kind));
  if (!memory.has_value()) return std::nullopt;
  return decodeHelperMessage(memory->bytes(), kind);
}

}  // namespace sorrel
