#include "Tests/HelpTool/WireService.hpp"

#include <tuple>
#include <utility>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {

FileDescriptor sealedReply(const std::optional<HelperDictionary>& dictionary) {
  return SealedMemory::make(encodeHelperMessage({HelperMessage::Kind::Reply, dictionary, {}}).value());
}

WireService::WireService(const std::string& address, Answer answer)
    : answer_(std::move(answer)), connection_(sdbus::createSessionBusConnectionWithAddress(address)) {
  const HelperWireNames names(kWireService);
  object_ = sdbus::createObject(*connection_, names.objectPath);
  object_->registerMethod(HelperWireNames::begin)
      .onInterface(names.interface)
      .implementedAs([this](BeginResult&& result, std::int32_t id, std::int32_t, std::uint32_t,
                            std::uint64_t bytes) { begin(std::move(result), id, bytes); });
  object_->registerMethod(HelperWireNames::run)
      .onInterface(names.interface)
      .implementedAs([this](Result&& result, std::uint64_t ticket) { run(std::move(result), ticket); });
  object_->registerMethod(HelperWireNames::stop).onInterface(names.interface).implementedAs([this] {
    ++stops_;
  });
  object_->registerMethod(HelperWireNames::closeHelper).onInterface(names.interface).implementedAs([this] {
    ++closes_;
    return true;
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

void WireService::refuseWith(const std::string& reason) {
  const std::lock_guard lock(mutex_);
  refusal_ = reason;
}

void WireService::begin(BeginResult&& result, std::int32_t id, std::uint64_t bytes) {
  const std::lock_guard lock(mutex_);
  if (!refusal_.empty()) {
    result.returnError(sdbus::Error(HelperWireNames(kWireService).refusalName(), refusal_));
    return;
  }
  FileDescriptor memory = SealedMemory::forFilling(bytes);
  const int descriptor = memory.get();
  const std::uint64_t ticket = begun_.size() + 1;
  begun_.emplace(ticket, std::pair(id, std::move(memory)));
  result.returnResults(ticket, sdbus::UnixFd(descriptor));
}

void WireService::run(Result&& result, std::uint64_t ticket) {
  Event event;
  {
    const std::lock_guard lock(mutex_);
    event.id = begun_.at(ticket).first;
    const auto memory = SealedMemory::sealFilled(begun_.at(ticket).second);
    begun_.at(ticket).second = FileDescriptor();
    if (memory.has_value()) event.message = decodeHelperMessage(memory->bytes(), HelperMessage::Kind::Event);
    events_.push_back(event);
    arrived_.notify_all();
  }
  answer_(event, std::move(result));
}

}  // namespace sorrel::test
