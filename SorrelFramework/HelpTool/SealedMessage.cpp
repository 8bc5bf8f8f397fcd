#include "SorrelFramework/HelpTool/SealedMessage.hpp"

#include <string>

#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel {

FileDescriptor SealedMessage::seal(const HelperMessage& message) {
  const std::optional<std::string> bytes = encodeHelperMessage(message);
  return bytes.has_value() ? SealedMemory::make(*bytes) : FileDescriptor();
}

std::optional<HelperMessage> SealedMessage::open(int descriptor, HelperMessage::Kind kind) {
  const std::optional<SealedMemory> memory = SealedMemory::map(descriptor, HelperLimits::bytesOf(kind));
  if (!memory.has_value()) return std::nullopt;
  return decodeHelperMessage(memory->bytes(), kind);
}

}  // namespace sorrel
