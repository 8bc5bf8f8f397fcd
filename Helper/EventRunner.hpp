#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Helper/EventForm.hpp"
#include "Helper/HelperConfiguration.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel::helper {

/// One event that the system has authorised, as the worker process gets it. It has been checked and has this
/// form: only the dictionaries and types that the kind of event has. What its texts say is hostile all the
/// same.
struct EventJob {
  EventForm form;
  std::uint32_t caller = 0;  ///< user id, as reported by the bus
  /// The dictionary, with the sender's view of each path. Lies in sealed memory.
  MessageView event;
  const HelperConfiguration& configuration;
};

/// Gets the result of each path as soon as the path is processed: the answer includes it even if the worker
/// dies right after.
class ResultSink {
 public:
  virtual ~ResultSink() = default;
  /// Once for each path, in any order. `index` is that of its entry in the event's top-level dictionary. A
  /// text longer than kMostResultText bytes is truncated.
  virtual void result(std::size_t index, HelperEventErrorID status, std::string_view desc) = 0;
};
inline constexpr std::size_t kMostResultText = 512;

/// The text for every path, followed by the fault, while the configuration has one.
inline constexpr std::string_view kFaultyConfigurationText = "The helper’s configuration can’t be used: ";

/// The rest of the caller's answer besides the results. A path without a result counts as failed.
struct EventOutcome {
  bool flag = false;
  std::int32_t code = static_cast<std::int32_t>(HelperEventErrorID::NoCause);
};

/// Executes the event. Runs in a process of its own, as root, that may be killed at any moment and has one
/// thread; its current folder is "/", its environment contains only PATH.
EventOutcome runEvent(const EventJob& job, ResultSink& sink);

}  // namespace sorrel::helper
