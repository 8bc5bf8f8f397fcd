#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Helper/EventForm.hpp"

namespace sdbus {
class IConnection;
class IProxy;
class Error;
}  // namespace sdbus

namespace sorrel::helper {

/// Identity and permissions of a caller; queried over the bus, answered from its event loop. Each callback
/// runs once, and never inside the call; none runs after the destruction of the object.
class Authority {
 public:
  using UserAnswer = std::function<void(std::optional<std::uint32_t> uid)>;
  using CheckAnswer = std::function<void(bool isAuthorised, const std::string& reason)>;

  /// `service` is the prefix of the actions' names. The connection must outlive the object.
  Authority(sdbus::IConnection& connection, std::string service);
  ~Authority();
  Authority(const Authority&) = delete;
  Authority& operator=(const Authority&) = delete;

  /// The user of the connection with this unique name, as reported by the bus; nothing if it is gone.
  void userOf(const std::string& sender, UserAnswer answer);
  /// Queries polkit about that connection; the user may be asked for a password, without a time limit.
  /// Everything except a clear yes is a no, with a word of HelperRefusal as the reason. The user sees
  /// `count`, and nothing else of the event. `id` is for cancel().
  void check(const std::string& sender, Action action, std::size_t count, std::uint64_t id,
             CheckAnswer answer);
  /// Withdraws the question to the user. The answer still comes.
  void cancel(std::uint64_t id);

 private:
  /// Finds out why polkit refused though it could ask: a wrong password, or a rule that never asks.
  void explain(const std::string& sender, const std::string& action, CheckAnswer answer);

  std::string service_;
  std::unique_ptr<sdbus::IProxy> bus_;
  std::unique_ptr<sdbus::IProxy> polkit_;
};

}  // namespace sorrel::helper
