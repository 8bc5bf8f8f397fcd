#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/PollingThread.hpp"
#include "SorrelFramework/Platform/FileDescriptor.hpp"

namespace sorrel::test {

inline const std::string kWireService = "org.example.test-appHelper";

/// A reply's memory with a message of this dictionary.
FileDescriptor sealedReply(const std::optional<HelperDictionary>& dictionary);

/// The helper's end of the wire, without a helper behind it.
class WireService {
 public:
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

  /// In an answer.
  void giveUpName() { connection_->releaseName(kWireService); }

  [[nodiscard]] std::string uniqueName() const { return connection_->getUniqueName(); }

  [[nodiscard]] std::vector<Event> events() const;
  [[nodiscard]] bool waitForEvents(std::size_t count) const;

 private:
  PollingThread::Wait wait() const;
  void process() const;
  void handle(std::int32_t id, int memory, Result&& result);

  const Answer answer_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<Event> events_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
  // In place of the loop of sdbus-c++, which ends the process when the bus goes.
  PollingThread thread_{{[this] { return wait(); }, [this] { process(); }}};
};

}  // namespace sorrel::test
