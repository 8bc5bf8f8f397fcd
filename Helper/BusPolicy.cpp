#include "Helper/BusPolicy.hpp"

#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <string>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {

bool refusesDescriptors(sdbus::IConnection& probe, const HelperWireNames& names) {
  constexpr const char* kBus = "org.freedesktop.DBus";
  const FileDescriptor harmless(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const auto service = sdbus::createProxy(probe, names.service, names.objectPath);
  sdbus::MethodCall call = service->createMethodCall(names.interface, HelperWireNames::getHelperVersion);
  call << sdbus::UnixFd(harmless.get());
  bool isRefused = false;
  service->callMethod(
      call,
      [&](sdbus::MethodReply& reply, const sdbus::Error* error) {
        isRefused = error != nullptr && reply.getSender() == kBus;
      },
      UINT64_MAX);
  // The bus answers in order: its refusal comes before this reply.
  std::string id;
  sdbus::createProxy(probe, kBus, "/org/freedesktop/DBus")
      ->callMethod("GetId")
      .onInterface(kBus)
      .storeResultsTo(id);
  while (probe.processPendingRequest()) {
  }
  return isRefused;
}

}  // namespace sorrel::helper
