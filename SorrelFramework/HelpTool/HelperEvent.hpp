#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel {

/// One event sent to the privileged helper and its reply, independent of the bus. It ends with one call of
/// refuse(), deliver() or lose(). Used on the connection's thread only.
class HelperEvent {
 public:
  using Handler = std::function<void()>;

  /// `onLoss` runs when the event is lost.
  HelperEvent(std::int32_t eventID, HelperDictionary dictionary, HelperProtocol::EventReply reply,
              std::shared_ptr<const Handler> onLoss);

  /// Encodes the event, with this process's view of its paths. False if it is over a cap.
  [[nodiscard]] bool encode();
  [[nodiscard]] std::int32_t eventID() const { return eventID_; }
  /// The values that Begin announces.
  [[nodiscard]] std::int32_t operation() const;
  [[nodiscard]] std::uint32_t paths() const;
  [[nodiscard]] std::uint64_t bytes() const { return bytes_.size(); }
  /// Writes the encoded event into the helper's memory.
  [[nodiscard]] bool fill(int memory) const;

  /// Uses up one of the attempts to begin again after the event reached no helper; false if none is left.
  [[nodiscard]] bool takeTry() { return --triesLeft_ > 0; }

  /// The user has stopped the event: the results in its reply are corrected by the state of the disk.
  void stop() { isStopped_ = true; }
  [[nodiscard]] bool isStopped() const { return isStopped_; }

  /// Replies that nothing was done; `reason` is a word of HelperRefusal.
  void refuse(const std::string& reason) const;
  /// Replies with the helper's answer. A malformed answer is a loss.
  void deliver(bool flag, std::int32_t code, int memory) const;
  /// No answer will come. Replies only if `isReplied`: then the state of the disk decides what was removed.
  void lose(bool isReplied) const;

 private:
  /// Corrects an answer by the state of the disk; true if everything is done.
  bool settle(HelperDictionary& answer) const;

  std::int32_t eventID_;
  HelperMessage message_;
  HelperProtocol::EventReply reply_;
  std::shared_ptr<const Handler> onLoss_;
  std::string bytes_;
  int triesLeft_ = 5;
  bool isStopped_ = false;
};

}  // namespace sorrel
