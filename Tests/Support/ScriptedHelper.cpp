#include "Tests/Support/ScriptedHelper.hpp"

#include <filesystem>
#include <fstream>
#include <utility>

#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {

ScriptedHelper::ScriptedHelper(Answer answer, Thread thread) : answer_(std::move(answer)), thread_(thread) {}

ScriptedHelper::~ScriptedHelper() {
  for (std::thread& reply : replies_) {
    // The last owner of the helper may be a reply that it sends.
    if (reply.get_id() == std::this_thread::get_id()) {
      reply.detach();
    } else {
      reply.join();
    }
  }
}

ScriptedHelper::Answer ScriptedHelper::deleting(HelperEventErrorID status, std::string text) {
  return [status, text = std::move(text)](const Event& event) -> std::optional<Reply> {
    Reply reply{true, 0, event.dictionary};
    for (auto& [path, entry] : *reply.dictionary) {
      HelperDictionary* numbers = entry.asDictionary();
      if (numbers == nullptr) continue;
      numbers->insert_or_assign("DeleteStatus", status);
      numbers->insert_or_assign("DeleteDesc", text);
    }
    return reply;
  };
}

void ScriptedHelper::getHelperVersion(VersionReply reply) { reply("1.0.0"); }

void ScriptedHelper::uninstall(UninstallReply reply) { reply(true, ""); }

void ScriptedHelper::handleEvent(std::int32_t eventID, const HelperDictionary& eventDict, EventReply reply) {
  const Event event{eventID, eventDict};
  {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    arrived_.notify_all();
  }
  // Without the lock: an answer, and a reply on the caller's thread, may send the next event.
  std::optional<Reply> answer = answer_ ? answer_(event) : std::nullopt;
  if (!answer.has_value()) return;
  auto send = [answer = std::move(*answer), reply = std::move(reply)] {
    reply(answer.flag, answer.code, answer.dictionary);
  };
  if (thread_ == Thread::Caller) {
    send();
    return;
  }
  const std::lock_guard lock(mutex_);
  replies_.emplace_back(std::move(send));
}

std::vector<ScriptedHelper::Event> ScriptedHelper::events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

bool ScriptedHelper::waitForEvents(std::size_t count) const {
  std::unique_lock lock(mutex_);
  return arrived_.wait_for(lock, kPatience, [&] { return events_.size() >= count; });
}

void ScriptedConnection::setInvalidationHandler(Handler handler) {
  const std::lock_guard lock(mutex_);
  invalidation_ = std::move(handler);
}

void ScriptedConnection::resume() {
  const std::lock_guard lock(mutex_);
  isResumed_ = true;
}

std::shared_ptr<HelperProtocol> ScriptedConnection::remoteObjectProxyWithErrorHandler(Handler handler) {
  const std::lock_guard lock(mutex_);
  error_ = std::move(handler);
  return helper_;
}

void ScriptedConnection::invalidate() const {
  const std::lock_guard lock(mutex_);
  if (invalidation_) invalidation_();
}

void ScriptedConnection::loseCall() const {
  const std::lock_guard lock(mutex_);
  if (error_) error_();
}

bool ScriptedConnection::isResumed() const {
  const std::lock_guard lock(mutex_);
  return isResumed_;
}

ScriptedInstallation::ScriptedInstallation(std::string folder, bool isInstalled)
    : folder_(std::move(folder)), isInstalled_(isInstalled) {}

std::string ScriptedInstallation::serviceFile(const std::string& machServiceName) const {
  return isInstalled_ ? "/" : folder_ + "/" + machServiceName + ".service";
}

std::string ScriptedInstallation::program(const std::string& machServiceName) const {
  return isInstalled_ ? "/" : folder_ + "/" + machServiceName;
}

PrivilegeInstallResult ScriptedInstallation::install(const std::string& privilegeType,
                                                     const std::string& machServiceName) {
  const std::lock_guard lock(mutex_);
  installations_.push_back(privilegeType + " " + machServiceName);
  if (outcome_ == PrivilegeInstallResult::success && !folder_.empty()) {
    std::filesystem::create_directories(folder_);
    std::ofstream(serviceFile(machServiceName)).flush();
    std::ofstream(program(machServiceName)).flush();
  }
  return outcome_;
}

void ScriptedInstallation::setOutcome(PrivilegeInstallResult outcome) {
  const std::lock_guard lock(mutex_);
  outcome_ = outcome;
}

std::vector<std::string> ScriptedInstallation::installations() const {
  const std::lock_guard lock(mutex_);
  return installations_;
}

HelperForShard::HelperForShard(const std::shared_ptr<HelperProtocol>& helper) {
  // A path that never exists: the installation is attempted each time, and refused.
  const auto installation = std::make_shared<ScriptedInstallation>("/dev/null/no-folder", helper != nullptr);
  installation->setOutcome(PrivilegeInstallResult::getAdmainFail);
  PrivilegeHelper::shard().use(
      installation, [helper](const std::string&) { return std::make_shared<ScriptedConnection>(helper); });
}

HelperForShard::~HelperForShard() { PrivilegeHelper::shard().useSystem(); }

}  // namespace sorrel::test
