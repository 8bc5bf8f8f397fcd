#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Helper/HelperKit.hpp"

namespace sdbus {
class IConnection;
class IProxy;
class MethodCall;
}  // namespace sdbus

namespace sorrel::test {

/// What Begin announces.
struct Announced {
  std::int32_t event = 0;
  std::int32_t operation = HelperWireNames::noOperation;
  std::uint32_t paths = 0;
  std::uint64_t bytes = 0;

  /// The announcement of a well-formed event, as the library makes it.
  static Announced of(std::int32_t event, const std::string& message);
};

/// A connection that talks to the helper without the library, with valid or invalid messages. Starts no
/// thread, so that a child process of one that has some may use it.
class RawCaller {
 public:
  struct Ticket {
    std::uint64_t number = 0;
    FileDescriptor memory;
    std::string refusal;  ///< the helper's reason, or the name of any other error
  };

  explicit RawCaller(const std::string& address);
  ~RawCaller();

  Ticket begin(const Announced& announced);
  /// begin(), and the message written into the memory.
  Ticket fill(std::int32_t event, const std::string& message);
  /// Runs the event; `bytes` gets the message of the reply.
  Answer run(std::uint64_t ticket, std::string* bytes = nullptr);
  void stop();

  /// The same without waiting for an answer; return when the bus has the call.
  void beginUnanswered(const Announced& announced);
  void runUnanswered(std::uint64_t ticket);
  /// Calls a method of the helper with these arguments, once for each of `times`.
  void send(const char* method, const std::function<void(sdbus::MethodCall&)>& arguments, int times = 1);
  /// Calls it and waits; "" or the helper's reason, or the name of any other error.
  std::string call(const char* method, const std::function<void(sdbus::MethodCall&)>& arguments);
  [[nodiscard]] std::string uniqueName() const;

 private:
  void waitForBus();

  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> bus_;
  std::unique_ptr<sdbus::IProxy> helper_;
};

}  // namespace sorrel::test
