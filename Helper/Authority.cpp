#include "Helper/Authority.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <map>
#include <utility>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sorrel::helper {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kPolkit = "org.freedesktop.PolicyKit1";
constexpr const char* kPolkitPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* kPolkitInterface = "org.freedesktop.PolicyKit1.Authority";
constexpr std::uint32_t kMayAskTheUser = 1;
constexpr std::uint64_t kNoTimeout = UINT64_MAX;

using Details = std::map<std::string, std::string>;
using Subject = sdbus::Struct<std::string, std::map<std::string, sdbus::Variant>>;
/// Authorised, could be by asking, details.
using CheckResult = sdbus::Struct<bool, bool, Details>;

std::string cancellationOf(std::uint64_t id) { return "event-" + std::to_string(id); }

}  // namespace

Authority::Authority(sdbus::IConnection& connection, std::string service)
    : service_(std::move(service)),
      bus_(sdbus::createProxy(connection, kBus, kBusPath)),
      polkit_(sdbus::createProxy(connection, kPolkit, kPolkitPath)) {}

Authority::~Authority() = default;

void Authority::userOf(const std::string& sender, UserAnswer answer) {
  bus_->callMethodAsync("GetConnectionUnixUser")
      .onInterface(kBus)
      .withArguments(sender)
      .uponReplyInvoke([answer = std::move(answer)](const sdbus::Error* error, std::uint32_t uid) {
        answer(error == nullptr ? std::optional(uid) : std::nullopt);
      });
}

void Authority::check(const std::string& sender, Action action, std::size_t count, std::uint64_t id,
                      CheckAnswer answer) {
  const Subject subject("system-bus-name", {{"name", sdbus::Variant(sender)}});
  const Details details = {{"count", std::to_string(count)}};
  polkit_->callMethodAsync("CheckAuthorization")
      .onInterface(kPolkitInterface)
      .withTimeout(kNoTimeout)
      .withArguments(subject, service_ + "." + nameOf(action), details, kMayAskTheUser, cancellationOf(id))
      .uponReplyInvoke([answer = std::move(answer)](const sdbus::Error* error, const CheckResult& result) {
        const bool isYes = error == nullptr && result.get<0>();
        answer(isYes, error != nullptr ? HelperRefusal::noAuthority : HelperRefusal::notAuthorised);
      });
}

void Authority::cancel(std::uint64_t id) {
  polkit_->callMethodAsync("CancelCheckAuthorization")
      .onInterface(kPolkitInterface)
      .withArguments(cancellationOf(id))
      .uponReplyInvoke([](const sdbus::Error*) {});
}

}  // namespace sorrel::helper
