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

/// Who a caller is and what the system lets it do; asked over the bus, answered from its event loop. The
/// callbacks come once each, and never inside the call; none comes after the end of the object.
class Authority {
 public:
  using UserAnswer = std::function<void(std::optional<std::uint32_t> uid)>;
  using CheckAnswer = std::function<void(bool isAuthorised, const std::string& reason)>;

  /// `service` is the beginning of the actions' names. The connection must outlive the object.
  Authority(sdbus::IConnection& connection, std::string service);
  ~Authority();
  Authority(const Authority&) = delete;
  Authority& operator=(const Authority&) = delete;

  /// The user of the connection with this unique name, as the bus knows it; nothing if it is gone.
  void userOf(const std::string& sender, UserAnswer answer);
  /// Asks polkit about that connection; the user may be asked for a password, for as long as it takes.
  /// Whatever is not a clear yes is a no, with a word of HelperRefusal as the reason. `count` is shown to the
  /// user; nothing else of the event is. `id` is for cancel().
  void check(const std::string& sender, Action action, std::size_t count, std::uint64_t id,
             CheckAnswer answer);
  /// Takes the question back from the user. The answer comes all the same.
  void cancel(std::uint64_t id);

 private:
  /// Finds out why there was no yes though polkit could ask: a wrong password, or a rule that never asks.
  void explain(const std::string& sender, const std::string& action, CheckAnswer answer);

  std::string service_;
  std::unique_ptr<sdbus::IProxy> bus_;
  std::unique_ptr<sdbus::IProxy> polkit_;
};

}  // namespace sorrel::helper
