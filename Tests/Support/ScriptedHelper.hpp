#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/HelpTool/HelperConnection.hpp"
#include "SorrelFramework/HelpTool/HelperInstallation.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel::test {

/// A helper of one test: records its events and answers them as the test specifies. Any thread.
class ScriptedHelper : public HelperProtocol {
 public:
  struct Event {
    std::int32_t id = 0;
    HelperDictionary dictionary;
  };
  struct Reply {
    bool flag = true;
    std::int32_t code = 0;
    std::optional<HelperDictionary> dictionary;
  };
  /// Answers an event; nothing for an event whose reply never comes.
  using Answer = std::function<std::optional<Reply>(const Event&)>;
  enum class Thread {
    Caller,   ///< inside handleEvent()
    Another,  ///< as a connection does
  };

  /// Without an answer function no event is ever answered.
  explicit ScriptedHelper(Answer answer = {}, Thread thread = Thread::Another);
  /// Waits for the pending replies.
  ~ScriptedHelper() override;
  ScriptedHelper(const ScriptedHelper&) = delete;
  ScriptedHelper& operator=(const ScriptedHelper&) = delete;

  /// Deletes nothing and reports that: for each path the numbers of the event, with this status and text.
  static Answer deleting(HelperEventErrorID status, std::string text = {});

  void getHelperVersion(VersionReply reply) override;
  void handleEvent(std::int32_t eventID, const HelperDictionary& eventDict, EventReply reply) override;
  void uninstall(UninstallReply reply) override;

  /// The events so far, in order of arrival.
  [[nodiscard]] std::vector<Event> events() const;
  /// Blocks until `count` events arrived; false after kPatience.
  [[nodiscard]] bool waitForEvents(std::size_t count) const;

 private:
  const Answer answer_;
  const Thread thread_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<Event> events_;
  std::vector<std::thread> replies_;
};

/// A connection to a helper of the test, which the test can break.
class ScriptedConnection : public HelperConnection {
 public:
  explicit ScriptedConnection(std::shared_ptr<HelperProtocol> helper) : helper_(std::move(helper)) {}

  void setInvalidationHandler(Handler handler) override;
  void resume() override;
  std::shared_ptr<HelperProtocol> remoteObjectProxyWithErrorHandler(Handler handler) override;

  /// Ends the connection as the system would.
  void invalidate() const;
  /// Loses a call as the system would.
  void loseCall() const;
  [[nodiscard]] bool isResumed() const;

 private:
  std::shared_ptr<HelperProtocol> helper_;
  mutable std::mutex mutex_;
  Handler invalidation_;
  Handler error_;
  bool isResumed_ = false;
};

/// An installation in a folder of the test: it installs empty files.
class ScriptedInstallation : public HelperInstallation {
 public:
  /// A helper that needs no installation if `isInstalled`.
  explicit ScriptedInstallation(std::string folder, bool isInstalled = false);

  [[nodiscard]] std::string serviceFile(const std::string& machServiceName) const override;
  [[nodiscard]] std::string program(const std::string& machServiceName) const override;
  [[nodiscard]] PrivilegeInstallResult install(const std::string& privilegeType,
                                               const std::string& machServiceName) override;

  /// The result of the next installations.
  void setOutcome(PrivilegeInstallResult outcome);
  /// "TYPE NAME" of each installation so far.
  [[nodiscard]] std::vector<std::string> installations() const;

 private:
  std::string folder_;
  bool isInstalled_;
  mutable std::mutex mutex_;
  PrivilegeInstallResult outcome_ = PrivilegeInstallResult::success;
  std::vector<std::string> installations_;
};

/// While it lives, PrivilegeHelper::shard() returns `helper`; null for a user who refuses the password, so
/// that callers get the message of PrivilegeInstallResult::getAdmainFail.
class HelperForShard {
 public:
  explicit HelperForShard(const std::shared_ptr<HelperProtocol>& helper);
  ~HelperForShard();
  HelperForShard(const HelperForShard&) = delete;
  HelperForShard& operator=(const HelperForShard&) = delete;
};

}  // namespace sorrel::test
