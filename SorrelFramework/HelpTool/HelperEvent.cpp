#include "SorrelFramework/HelpTool/HelperEvent.hpp"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/EventRefusal.hpp"
#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/SealedMessage.hpp"

namespace sorrel {
namespace {

constexpr const char* kOperation = "OperationValue";
constexpr auto kNoCause = static_cast<std::int32_t>(HelperEventErrorID::NoCause);
constexpr const char* kLostText = "The privileged helper ended before it had finished.";

}  // namespace

HelperEvent::HelperEvent(std::int32_t eventID, HelperDictionary dictionary, HelperProtocol::EventReply reply,
                         std::shared_ptr<const Handler> onLoss)
    : eventID_(eventID),
      message_{HelperMessage::Kind::Event, std::move(dictionary), {}},
      reply_(std::move(reply)),
      onLoss_(std::move(onLoss)) {}

bool HelperEvent::encode() {
  if (message_.dictionary->size() > HelperLimits::paths) return false;
  message_.views.reserve(message_.dictionary->size());
  for (const auto& [key, value] : *message_.dictionary) message_.views.push_back(viewOf(key));
  std::optional<std::string> bytes = encodeHelperMessage(message_);
  if (!bytes.has_value()) return false;
  bytes_ = *std::move(bytes);
  return true;
}

std::int32_t HelperEvent::operation() const {
  const auto found = message_.dictionary->find(kOperation);
  const bool isMaintenance = eventID_ == static_cast<std::int32_t>(HelperHanldeEventID::Maintenance);
  const bool hasOne =
      isMaintenance && found != message_.dictionary->end() && found->second.asNumber() != nullptr;
  return hasOne ? static_cast<std::int32_t>(*found->second.asNumber()) : HelperWireNames::noOperation;
}

std::uint32_t HelperEvent::paths() const {
  const bool hasOperation = operation() != HelperWireNames::noOperation;
  return static_cast<std::uint32_t>(message_.dictionary->size() - (hasOperation ? 1 : 0));
}

bool HelperEvent::fill(int memory) const {
  std::size_t done = 0;
  while (done < bytes_.size()) {
    const ssize_t count =
        ::pwrite(memory, bytes_.data() + done, bytes_.size() - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

void HelperEvent::refuse(const std::string& reason) const {
  reply_(false, kNoCause, refusalOf(eventID_, *message_.dictionary, refusalText(reason)));
}

void HelperEvent::deliver(bool flag, std::int32_t code, int memory) const {
  std::optional<HelperMessage> answer = SealedMessage::open(memory, HelperMessage::Kind::Reply);
  if (!answer.has_value()) return lose(DBusHelperConnection::repliesToLostEvents);
  if (isStopped_ && answer->dictionary.has_value()) flag = settle(*answer->dictionary) || flag;
  reply_(flag, code, answer->dictionary);
}

void HelperEvent::lose(bool isReplied) const {
  if (onLoss_ != nullptr && *onLoss_) (*onLoss_)();
  if (!isReplied) return;
  HelperDictionary answer = refusalOf(eventID_, *message_.dictionary, kLostText);
  const bool flag = settle(answer);
  reply_(flag, kNoCause, answer);
}

bool HelperEvent::settle(HelperDictionary& answer) const {
  return settleByDisk(eventID_, *message_.dictionary, message_.views, answer);
}

}  // namespace sorrel
