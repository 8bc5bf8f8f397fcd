#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "SorrelFramework/HelpTool/HelperConnection.hpp"

namespace sorrel {

/// The privileged helper as a service of the system bus, which starts it on demand. Names and forms are those
/// of HelperWireNames and EventCodec; beside each path travels what this process sees there.
///
/// Nothing is sent before the bus has told that the owner of the service name runs as root; it is sent to
/// that owner and to no later one. No call has a time-out. A call is lost, and its reply never comes, if the
/// helper or the bus goes away, answers with an error, or with anything but a sound message. A helper that
/// only gave up its name still answers. If the bus itself says that the owner was gone when the call came,
/// the call goes to the next helper, once; after any other loss it may have been done, and never goes again.
/// An event over a cap of HelperLimits is not sent: its reply comes at once with the flag false and the code
/// HelperEventErrorID::NoCause. CloseHelper alone never starts a helper.
class DBusHelperConnection : public HelperConnection {
 public:
  struct Options {
    std::string busAddress;      ///< "" for the system bus
    std::uint32_t ownerUID = 0;  ///< who the helper has to be
  };

  /// Nothing if the name is none that a bus takes, or if there is no bus.
  [[nodiscard]] static std::shared_ptr<HelperConnection> make(const std::string& machServiceName,
                                                              const Options& options);
  /// make() for the system bus and root.
  [[nodiscard]] static std::shared_ptr<HelperConnection> make(const std::string& machServiceName);

  void setInvalidationHandler(Handler handler) override;
  void resume() override;
  /// Starts the helper if it does not run; nothing if it can't be started, or is not run by root.
  [[nodiscard]] std::shared_ptr<HelperProtocol> remoteObjectProxyWithErrorHandler(Handler handler) override;

 private:
  class Link;
  class Proxy;

  explicit DBusHelperConnection(std::shared_ptr<Link> link);

  std::shared_ptr<Link> link_;  // proxies and calls that wait for a reply hold it too
};

}  // namespace sorrel
