#include "Helper/HelperCall.hpp"

#include "Helper/HelperLog.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"

namespace sorrel::helper {

bool HelperCall::readHeading() {
  if (isEvent() && memory.has_value()) heading = EventHeading::of(*eventID, memory->bytes());
  return heading.has_value();
}

bool HelperCall::read() {
  if (form.has_value()) return true;
  if (!heading.has_value()) return false;
  view = MessageView::of(memory->bytes(), HelperMessage::Kind::Event);
  if (view.has_value()) form = EventForm::of(*eventID, *view);
  return form.has_value();
}

std::size_t HelperCall::mostReplyBytes() const {
  return (memory.has_value() ? memory->bytes().size() : 0) + paths() * HelperLimits::wordsBytes;
}

std::string HelperCall::described() const {
  const char* kind = isEvent() && !heading.has_value() ? "event" : nameOf(action());
  if (form.has_value()) kind = form->name();
  const std::string user = uid == kUnknownUser ? "?" : std::to_string(uid);
  return "call " + std::to_string(id) + ": uid=" + user + " sender=" + escapedForLog(sender) +
         " kind=" + kind;
}

}  // namespace sorrel::helper
