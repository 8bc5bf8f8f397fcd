#include "Tests/Helper/RawCaller.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";

std::string refusalOf(const sdbus::Error& error) {
  return error.getName() == HelperWireNames(kService).refusalName() ? error.getMessage() : error.getName();
}

void append(sdbus::MethodCall& call, const Announced& announced) {
  call << announced.event << announced.operation << announced.paths << announced.bytes;
}

}  // namespace

Announced Announced::of(std::int32_t event, const std::string& message) {
  Announced announced{event, HelperWireNames::noOperation, 0, message.size()};
  const auto view = MessageView::of(message, HelperMessage::Kind::Event);
  if (!view.has_value()) return announced;
  for (const MessageView::Entry& entry : view->dictionary()) {
    const bool isOperation = event == 2 && entry.key == "OperationValue";
    if (isOperation) announced.operation = static_cast<std::int32_t>(entry.number);
    announced.paths += isOperation ? 0 : 1;
  }
  return announced;
}

RawCaller::RawCaller(const std::string& address)
    : connection_(sdbus::createSessionBusConnectionWithAddress(address)),
      bus_(sdbus::createProxy(*connection_, kBus, "/org/freedesktop/DBus")),
      helper_(sdbus::createProxy(*connection_, kService, HelperWireNames(kService).objectPath)) {}

RawCaller::~RawCaller() = default;

std::string RawCaller::uniqueName() const { return connection_->getUniqueName(); }

RawCaller::Ticket RawCaller::begin(const Announced& announced) {
  Ticket ticket;
  try {
    sdbus::MethodCall call =
        helper_->createMethodCall(HelperWireNames(kService).interface, HelperWireNames::begin);
    append(call, announced);
    sdbus::MethodReply reply = helper_->callMethod(call, UINT64_MAX);
    sdbus::UnixFd memory;
    reply >> ticket.number >> memory;
    ticket.memory = FileDescriptor(memory.release());
  } catch (const sdbus::Error& error) {
    ticket.refusal = refusalOf(error);
  }
  return ticket;
}

RawCaller::Ticket RawCaller::fill(std::int32_t event, const std::string& message) {
  Ticket ticket = begin(Announced::of(event, message));
  if (!ticket.memory.isOpen()) return ticket;
  EXPECT_EQ(::pwrite(ticket.memory.get(), message.data(), message.size(), 0),
            static_cast<ssize_t>(message.size()));
  return ticket;
}

Answer RawCaller::run(std::uint64_t ticket, std::string* bytes) {
  Answer answer;
  try {
    sdbus::UnixFd memory;
    helper_->callMethod(HelperWireNames::run)
        .onInterface(HelperWireNames(kService).interface)
        .withTimeout(5 * kPatience)
        .withArguments(ticket)
        .storeResultsTo(answer.flag, answer.code, memory);
    const auto mapped = SealedMemory::map(memory.get(), HelperLimits::bytesOf(HelperMessage::Kind::Reply));
    if (!mapped.has_value()) return answer;
    answer.isThere = true;
    if (bytes != nullptr) {
      *bytes = mapped->bytes();
      return answer;
    }
    const auto read = decodeHelperMessage(mapped->bytes(), HelperMessage::Kind::Reply);
    answer.isThere = read.has_value();
    if (read.has_value()) answer.dictionary = read->dictionary.value_or(HelperDictionary());
  } catch (const sdbus::Error& error) {
    answer.refusal = refusalOf(error);
  }
  return answer;
}

void RawCaller::stop() {
  EXPECT_EQ(call(HelperWireNames::stop, [](auto&) {}), "");
}

void RawCaller::beginUnanswered(const Announced& announced) {
  send(HelperWireNames::begin, [&](sdbus::MethodCall& call) { append(call, announced); });
}

void RawCaller::runUnanswered(std::uint64_t ticket) {
  send(HelperWireNames::run, [&](sdbus::MethodCall& call) { call << ticket; });
}

void RawCaller::send(const char* method, const std::function<void(sdbus::MethodCall&)>& arguments,
                     int times) {
  for (int i = 0; i < times; ++i) {
    sdbus::MethodCall call = helper_->createMethodCall(HelperWireNames(kService).interface, method);
    arguments(call);
    helper_->callMethod(
        call, [](sdbus::MethodReply&, const sdbus::Error*) {}, UINT64_MAX);
  }
  waitForBus();
}

std::string RawCaller::call(const char* method, const std::function<void(sdbus::MethodCall&)>& arguments) {
  try {
    sdbus::MethodCall call = helper_->createMethodCall(HelperWireNames(kService).interface, method);
    arguments(call);
    helper_->callMethod(call, UINT64_MAX);
    return "";
  } catch (const sdbus::Error& error) {
    return refusalOf(error);
  }
}

void RawCaller::waitForBus() {
  std::string id;
  bus_->callMethod("GetId").onInterface(kBus).storeResultsTo(id);
}

}  // namespace sorrel::test
