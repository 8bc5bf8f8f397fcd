#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Helper/EventForm.hpp"
#include "Helper/HelperLog.hpp"
#include "Helper/Reply.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::helper {

/// An active event.
struct HelperCall {
  enum class Stage {
    Identifying,  ///< waits for the bus to report the caller's user
    Asking,       ///< waits for polkit
    Filling,      ///< the caller fills its memory
    Running,      ///< a worker process is running
  };
  using Clock = std::chrono::steady_clock;

  std::uint64_t id = 0;  ///< the ticket
  std::string sender;
  std::uint32_t uid = kUnknownUser;
  Stage stage = Stage::Identifying;
  EventForm form;         ///< as announced
  std::size_t bytes = 0;  ///< of the event's message, as announced

  /// The answers to the method call that is waiting now. `refuse` is empty while none is waiting.
  std::function<void(const std::string& reason)> refuse;
  std::function<bool(std::uint64_t ticket, const FileDescriptor& memory)>
      begun;  ///< returns false if the answer was lost
  std::function<void(const Reply& reply)> finished;

  FileDescriptor file;  ///< filled by the caller
  Clock::time_point fillDeadline;
  std::optional<SealedMemory> memory;  ///< the event, sealed
  std::optional<MessageView> view;     ///< points into the memory

  [[nodiscard]] bool isAuthorised() const { return stage >= Stage::Filling; }
  /// Seals and parses the memory that the caller has filled. False unless it is an event of the announced
  /// form.
  [[nodiscard]] bool read();
  [[nodiscard]] Action action() const { return form.action(); }
  [[nodiscard]] std::size_t paths() const { return form.paths; }
  /// The maximum size of the reply in bytes, without the texts of the results.
  [[nodiscard]] std::size_t mostReplyBytes() const { return bytes + paths() * HelperLimits::wordsBytes; }
  /// For a log: the call, its caller and its kind.
  [[nodiscard]] std::string described() const;
};

}  // namespace sorrel::helper
