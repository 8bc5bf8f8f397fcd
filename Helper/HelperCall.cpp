#include "Helper/HelperCall.hpp"

#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel::helper {

bool HelperCall::read() {
  memory = SealedMemory::sealFilled(file);
  if (!memory.has_value()) return false;
  view = MessageView::of(memory->bytes(), HelperMessage::Kind::Event);
  return view.has_value() && EventForm::of(static_cast<std::int32_t>(form.kind), *view) == form;
}

std::string HelperCall::described() const {
  const std::string user = uid == kUnknownUser ? "?" : std::to_string(uid);
  return "call " + std::to_string(id) + ": uid=" + user + " sender=" + escapedForLog(sender) +
         " kind=" + form.name();
}

}  // namespace sorrel::helper
