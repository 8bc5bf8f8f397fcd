#include "Tests/HelpTool/WireService.hpp"

#include <tuple>
#include <utility>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/SealedMessage.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {

FileDescriptor sealedReply(const std::optional<HelperDictionary>& dictionary) {
  return SealedMessage::seal({HelperMessage::Kind::Reply, dictionary, {}});
}

WireService::WireService(const std::string& address, Answer answer)
    : answer_(std::move(answer)), connection_(sdbus::createSessionBusConnectionWithAddress(address)) {
  const HelperWireNames names(kWireService);
  object_ = sdbus::createObject(*connection_, names.objectPath);
  object_->registerMethod(HelperWireNames::handleEvent)
      .onInterface(names.interface)
      .implementedAs([this](Result&& result, std::int32_t id, const sdbus::UnixFd& memory) {
        handle(id, memory.get(), std::move(result));
      });
  object_->registerMethod(HelperWireNames::getHelperVersion).onInterface(names.interface).implementedAs([] {
    return std::string("1.2.3");
  });
  object_->registerMethod(HelperWireNames::uninstall).onInterface(names.interface).implementedAs([] {
    return std::make_tuple(true, std::string("gone"));
  });
  object_->finishRegistration();
  connection_->requestName(kWireService);
  thread_.start();
}

void WireService::reply(Result&& result, bool flag, std::int32_t code, const FileDescriptor& memory) {
  result.returnResults(flag, code, sdbus::UnixFd(memory.get()));
}

void WireService::echo(const Event& event, Result&& result) {
  reply(std::move(result), true, event.id, sealedReply(event.message->dictionary));
}

std::vector<WireService::Event> WireService::events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

bool WireService::waitForEvents(std::size_t count) const {
  std::unique_lock lock(mutex_);
  return arrived_.wait_for(lock, kPatience, [&] { return events_.size() >= count; });
}

PollingThread::Wait WireService::wait() const {
  try {
    const sdbus::IConnection::PollData data = connection_->getEventLoopPollData();
    return {data.fd, data.events, data.getPollTimeout()};
  } catch (const sdbus::Error&) {
    return {};  // the bus is gone
  }
}

void WireService::process() const {
  try {
    while (connection_->processPendingRequest()) {
    }
  } catch (const sdbus::Error&) {
  }
}

void WireService::handle(std::int32_t id, int memory, Result&& result) {
  const Event event{id, SealedMessage::open(memory, HelperMessage::Kind::Event)};
  {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    arrived_.notify_all();
  }
  answer_(event, std::move(result));
}

}  // namespace sorrel::test
