#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"

#include <strings.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

#include "SorrelFramework/HelpTool/DBusHelperConnection.hpp"
#include "SorrelFramework/HelpTool/SystemHelperInstallation.hpp"
#include "SorrelFramework/Platform/Files/FileManager.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/UserDefaults.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"

namespace sorrel {
namespace {

constexpr const char* kNoConnection = "HelperTool as? HelperProtocol";

std::optional<std::string> infoText(const std::string& key) {
  const auto& info = Host::current().mainBundle().infoDictionary;
  const auto found = info.find(key);
  return found == info.end() ? std::nullopt : std::optional(found->second);
}

/// The info dictionary contains texts: a boolean there is spelled "true", "YES" or "1".
bool infoFlag(const std::string& key) {
  const std::string text = infoText(key).value_or("");
  return text == "1" || ::strcasecmp(text.c_str(), "yes") == 0 || ::strcasecmp(text.c_str(), "true") == 0;
}

std::string bundleVersion() { return infoText("CFBundleVersion").value_or("1.0.0"); }

std::string installedKey(const std::string& machServiceName) { return machServiceName + "-Install"; }

}  // namespace

/// Each field is read and written under the lock; no lock is held while a helper is called or installed.
struct PrivilegeHelper::Fields {
  mutable std::mutex mutex;
  std::shared_ptr<HelperConnection> connect;
  std::shared_ptr<HelperProtocol> tool;
  std::atomic<int> lostCalls = 0;

  template <class Type>
  std::shared_ptr<Type> get(std::shared_ptr<Type> Fields::*field) const {
    const std::lock_guard lock(mutex);
    return this->*field;
  }
  /// The old value is destroyed after the lock is released: its destructor may run foreign code.
  template <class Type>
  void set(std::shared_ptr<Type> Fields::*field, std::shared_ptr<Type> value) {
    const std::lock_guard lock(mutex);
    (this->*field).swap(value);
  }
  template <class Type>
  void clear(std::shared_ptr<Type> Fields::*field) {
    set(field, std::shared_ptr<Type>());
  }
  void clearConnectThenTool() {
    clear(&Fields::connect);
    clear(&Fields::tool);
  }
  void clearToolThenConnect() {
    clear(&Fields::tool);
    clear(&Fields::connect);
  }
};

PrivilegeHelper& PrivilegeHelper::shard() {
  // Never freed: threads of a connection may outlive the objects of main().
  static PrivilegeHelper* const instance = [] {
    auto* made = new PrivilegeHelper(nullptr, nullptr);
    made->useSystem();
    return made;
  }();
  return *instance;
}

PrivilegeHelper::PrivilegeHelper(std::shared_ptr<HelperInstallation> installation, HelperConnector connector)
    : installation_(std::move(installation)),
      connector_(std::move(connector)),
      fields_(std::make_shared<Fields>()) {}

void PrivilegeHelper::use(std::shared_ptr<HelperInstallation> installation, HelperConnector connector) {
  installation_ = std::move(installation);
  connector_ = std::move(connector);
  // New fields: blocks of the old connections that are still on the main queue change nothing here.
  fields_ = std::make_shared<Fields>();
}

void PrivilegeHelper::useSystem() {
  use(std::make_shared<SystemHelperInstallation>(),
      [](const std::string& machServiceName) { return DBusHelperConnection::make(machServiceName); });
}

PrivilegeHelper::Tool PrivilegeHelper::getHelperTool(const std::string& machServiceName,
                                                     const std::string& privilegeType) {
  if (!checkHelper(machServiceName)) {
    std::string outcome = installPrivilege(privilegeType, machServiceName);
    if (outcome != PrivilegeInstallResult::success.content()) return {nullptr, std::move(outcome)};
  }
  if (std::shared_ptr<HelperProtocol> kept = helpTool()) return {std::move(kept), std::nullopt};
  const std::shared_ptr<HelperConnection> connection = getConnect(machServiceName);
  if (connection == nullptr) return {nullptr, kNoConnection};
  std::shared_ptr<HelperProtocol> proxy =
      connection->remoteObjectProxyWithErrorHandler([watch = std::weak_ptr(fields_)] {
        if (const auto fields = watch.lock()) ++fields->lostCalls;
        MainQueue::post([watch] {
          if (const auto fields = watch.lock()) fields->clearToolThenConnect();
        });
      });
  if (proxy == nullptr) return {nullptr, kNoConnection};
  fields_->set(&Fields::tool, proxy);
  return {std::move(proxy), std::nullopt};
}

bool PrivilegeHelper::checkHelper(const std::string& machServiceName) const {
  const std::string version = bundleVersion();
  if (!fileExists(installation_->serviceFile(machServiceName))) return false;
  if (!fileExists(installation_->program(machServiceName))) return false;
  if (!infoFlag("ReInstallHelper")) return true;
  return UserDefaults::standard().string(installedKey(machServiceName)) == version;
}

std::string PrivilegeHelper::installPrivilege(const std::string& privilegeType,
                                              const std::string& machServiceName) {
  const PrivilegeInstallResult outcome = installation_->install(privilegeType, machServiceName);
  if (outcome == PrivilegeInstallResult::success) {
    UserDefaults::standard().set(installedKey(machServiceName), bundleVersion());
  }
  fields_->clearConnectThenTool();
  return outcome.content();
}

std::shared_ptr<HelperConnection> PrivilegeHelper::getConnect(const std::string& machServiceName) {
  if (std::shared_ptr<HelperConnection> kept = helpConnect()) return kept;
  std::shared_ptr<HelperConnection> connection = connector_(machServiceName);
  if (connection == nullptr) return nullptr;
  connection->setInvalidationHandler([watch = std::weak_ptr(fields_)] {
    MainQueue::post([watch] {
      if (const auto fields = watch.lock()) fields->clearConnectThenTool();
    });
  });
  connection->resume();
  fields_->set(&Fields::connect, connection);
  return connection;
}

void PrivilegeHelper::closeHelper() {
  const std::shared_ptr<HelperProtocol> tool = helpTool();
  if (tool == nullptr) return;
  tool->handleEvent(static_cast<std::int32_t>(HelperHanldeEventID::CloseHelper), {},
                    [](bool, std::int32_t, const std::optional<HelperDictionary>&) {});
}

bool PrivilegeHelper::stopEvents() {
  const std::shared_ptr<HelperConnection> connection = helpConnect();
  return connection != nullptr && connection->stopEvents();
}

int PrivilegeHelper::lostCalls() const { return fields_->lostCalls; }

std::shared_ptr<HelperConnection> PrivilegeHelper::helpConnect() const {
  return fields_->get(&Fields::connect);
}

std::shared_ptr<HelperProtocol> PrivilegeHelper::helpTool() const { return fields_->get(&Fields::tool); }

}  // namespace sorrel
