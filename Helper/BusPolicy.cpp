#include "Helper/BusPolicy.hpp"

#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";

/// Calls over one connection, each with a harmless descriptor.
class Calls {
 public:
  explicit Calls(sdbus::IConnection& connection) : connection_(connection) {}

  void send(const std::string& destination, const std::string& path, const std::string& interface,
            const char* method) {
    proxies_.push_back(sdbus::createProxy(connection_, destination, path));
    sdbus::MethodCall call = proxies_.back()->createMethodCall(interface, method);
    call << sdbus::UnixFd(descriptor_.get());
    proxies_.back()->callMethod(
        call,
        [this](sdbus::MethodReply& reply, const sdbus::Error* error) {
          const bool isDenied = error != nullptr && error->getName() == kAccessDenied;
          if (isDenied && reply.getSender() == kBus) ++refused_;
        },
        UINT64_MAX);
  }
  /// Sends the signal to the connection itself.
  void sendSignal(const std::string& path, const std::string& interface) {
    const auto object = sdbus::createObject(connection_, path);
    sdbus::Signal signal = object->createSignal(interface, "Probe");
    signal.setDestination(connection_.getUniqueName());
    signal << sdbus::UnixFd(descriptor_.get());
    object->emitSignal(signal);
  }
  [[nodiscard]] bool areRefused() const { return refused_ == proxies_.size(); }

 private:
  sdbus::IConnection& connection_;
  FileDescriptor descriptor_{::open("/dev/null", O_RDONLY | O_CLOEXEC)};
  std::vector<std::unique_ptr<sdbus::IProxy>> proxies_;  // a call ends with its proxy
  std::size_t refused_ = 0;
};

}  // namespace

bool refusesDescriptors(sdbus::IConnection& probe, const HelperWireNames& names) {
  const std::string self = probe.getUniqueName();
  bool isDelivered = false;
  // Only signals from the connection itself: any user may send a signal of these names.
  const sdbus::Slot arrival =
      probe.addMatch("type='signal',sender='" + self + "',interface='" + names.interface + "'",
                     [&isDelivered](sdbus::Message&) { isDelivered = true; });
  Calls calls(probe);
  calls.send(names.service, names.objectPath, names.interface, HelperWireNames::getHelperVersion);
  for (const std::string& destination : {names.service, self}) {
    calls.send(destination, names.objectPath, "org.freedesktop.DBus.Introspectable", "Introspect");
    calls.send(destination, names.objectPath, "org.freedesktop.DBus.Properties", "GetAll");
    calls.send(destination, names.objectPath, "org.freedesktop.DBus.Peer", "Ping");
  }
  calls.sendSignal(names.objectPath, names.interface);
  // The bus answers in order: refused and delivered messages come before this reply.
  std::string id;
  sdbus::createProxy(probe, kBus, "/org/freedesktop/DBus")
      ->callMethod("GetId")
      .onInterface(kBus)
      .storeResultsTo(id);
  while (probe.processPendingRequest()) {
  }
  return calls.areRefused() && !isDelivered;
}

bool isGuarded(sdbus::IConnection& probe, const HelperWireNames& names, HelperLog& log) {
  try {
    if (refusesDescriptors(probe, names)) return true;
    log.error("the policy of the bus lets descriptors through: no call is taken");
  } catch (const sdbus::Error& error) {
    log.error("the policy of the bus: " + escapedForLog(error.getMessage()));
  }
  return false;
}

}  // namespace sorrel::helper
