#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "SorrelFramework/HelpTool/HelperConnection.hpp"

namespace sorrel {

/// The privileged helper as a service of the system bus, which starts it on demand. Names and forms are those
/// of HelperWireNames and EventCodec; each path is sent together with this process's view of it.
///
/// Nothing is sent before the bus has reported that the owner of the service name runs as root; it is sent to
/// that owner and to no later one. No call has a time-out. A call is lost, and its reply never comes, if the
/// helper or the bus goes away, or answers with an unknown error or a malformed message. If the bus itself
/// reports that it did not deliver the call, or the helper refuses it because it is ending, the call goes to
/// the next helper; after any other loss it may have been executed, and is never sent again. The reply to an
/// event that the helper refused, or that exceeds a cap of HelperLimits, has the flag false, the code
/// HelperEventErrorID::NoCause and an entry for each path. CloseHelper is the only call that never starts a
/// helper.
class DBusHelperConnection : public HelperConnection {
 public:
  struct Options {
    std::string busAddress;      ///< "" for the system bus
    std::uint32_t ownerUID = 0;  ///< the user that the helper must run as
  };

  /// Replies to lost events too: with failures, except for paths of a Delete, a Shred or a Clean that are
  /// gone from the disk. Off by default: the reply to a lost event never comes.
  static inline bool repliesToLostEvents = false;

  /// Nothing if the name is not a valid bus name, or if there is no bus.
  [[nodiscard]] static std::shared_ptr<HelperConnection> make(const std::string& machServiceName,
                                                              const Options& options);
  /// make() for the system bus and root.
  [[nodiscard]] static std::shared_ptr<HelperConnection> make(const std::string& machServiceName);

  void setInvalidationHandler(Handler handler) override;
  void resume() override;
  /// Starts the helper if it does not run; nothing if it can't be started, or does not run as root.
  [[nodiscard]] std::shared_ptr<HelperProtocol> remoteObjectProxyWithErrorHandler(Handler handler) override;
  bool stopEvents() override;

 private:
  class Link;
  class Proxy;

  explicit DBusHelperConnection(std::shared_ptr<Link> link);

  std::shared_ptr<Link> link_;  // proxies and calls that wait for a reply hold it too
};

}  // namespace sorrel
