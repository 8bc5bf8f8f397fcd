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
constexpr std::uint32_t kAsksNoUser = 0;
/// A key in the details of a result: the user has closed the dialog.
constexpr const char* kDismissed = "polkit.dismissed";
constexpr std::uint64_t kNoTimeout = UINT64_MAX;

using Details = std::map<std::string, std::string>;
using Subject = sdbus::Struct<std::string, std::map<std::string, sdbus::Variant>>;
/// Whether the subject is authorised; whether a password could authorise it; details.
using CheckResult = sdbus::Struct<bool, bool, Details>;

/// The items of the event as readable text: polkit's messages have no plural forms.
std::string countedItems(Action action, std::size_t count) {
  const char* const item = action == Action::Move ? "extension" : "item";
  return std::to_string(count) + " " + item + (count == 1 ? "" : "s");
}

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
  const Details details = {{"items", countedItems(action, count)}};
  const std::string name = service_ + "." + nameOf(action);
  polkit_->callMethodAsync("CheckAuthorization")
      .onInterface(kPolkitInterface)
      .withTimeout(kNoTimeout)
      .withArguments(subject, name, details, kMayAskTheUser, cancellationOf(id))
      .uponReplyInvoke([this, sender, name, answer = std::move(answer)](const sdbus::Error* error,
                                                                        const CheckResult& result) {
        if (error != nullptr) return answer(false, HelperRefusal::noAuthority);
        if (result.get<0>()) return answer(true, "");
        if (result.get<1>()) return answer(false, HelperRefusal::noAgent);
        if (result.get<2>().contains(kDismissed)) return answer(false, HelperRefusal::notAuthorised);
        explain(sender, name, answer);
      });
}

void Authority::explain(const std::string& sender, const std::string& action, CheckAnswer answer) {
  const Subject subject("system-bus-name", {{"name", sdbus::Variant(sender)}});
  polkit_->callMethodAsync("CheckAuthorization")
      .onInterface(kPolkitInterface)
      .withArguments(subject, action, Details(), kAsksNoUser, std::string())
      .uponReplyInvoke([answer = std::move(answer)](const sdbus::Error* error, const CheckResult& result) {
        // An authorisation in this second check, made without a dialog, was not given for this event: it does
        // not count.
        if (error != nullptr || result.get<0>()) return answer(false, HelperRefusal::notAuthorised);
        answer(false, result.get<1>() ? HelperRefusal::wrongPassword : HelperRefusal::neverAsked);
      });
}

void Authority::cancel(std::uint64_t id) {
  polkit_->callMethodAsync("CancelCheckAuthorization")
      .onInterface(kPolkitInterface)
      .withArguments(cancellationOf(id))
      .uponReplyInvoke([](const sdbus::Error*) {});
}

}  // namespace sorrel::helper
