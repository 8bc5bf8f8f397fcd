#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/PollingThread.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::test {

inline const std::string kWireService = "org.example.test-appHelper";

/// The memory of a reply with this dictionary.
FileDescriptor sealedReply(const std::optional<HelperDictionary>& dictionary);

/// Answers callers like a helper, and does nothing.
class WireService {
 public:
  using BeginResult = sdbus::Result<std::uint64_t, sdbus::UnixFd>;
  using Result = sdbus::Result<bool, std::int32_t, sdbus::UnixFd>;
  struct Event {
    std::int32_t id = 0;
    std::optional<HelperMessage> message;
  };
  using Answer = std::function<void(const Event&, Result&&)>;

  WireService(const std::string& address, Answer answer);

  static void reply(Result&& result, bool flag, std::int32_t code, const FileDescriptor& memory);
  /// Sends the event's dictionary back.
  static void echo(const Event& event, Result&& result);

  /// From now on Begin is refused with this word; "" ends that.
  void refuseWith(const std::string& reason);
  /// Calls of Stop and of CloseHelper so far.
  [[nodiscard]] int stops() const { return stops_; }
  [[nodiscard]] int closes() const { return closes_; }

  /// For use in an answer.
  void giveUpName() { connection_->releaseName(kWireService); }

  [[nodiscard]] std::string uniqueName() const { return connection_->getUniqueName(); }

  [[nodiscard]] std::vector<Event> events() const;
  [[nodiscard]] bool waitForEvents(std::size_t count) const;

 private:
  PollingThread::Wait wait() const;
  void process() const;
  void begin(BeginResult&& result, std::int32_t id, std::uint64_t bytes);
  void run(Result&& result, std::uint64_t ticket);

  const Answer answer_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<Event> events_;
  std::string refusal_;
  std::map<std::uint64_t, std::pair<std::int32_t, FileDescriptor>> begun_;  // by ticket
  std::atomic<int> stops_ = 0;
  std::atomic<int> closes_ = 0;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
  // Replaces the loop of sdbus-c++, which ends the process when the bus ends.
  PollingThread thread_{{[this] { return wait(); }, [this] { process(); }}};
};

}  // namespace sorrel::test
