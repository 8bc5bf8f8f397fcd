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

/// An event that is under way.
struct HelperCall {
  enum class Stage {
    Identifying,  ///< the bus is asked for the user of the caller
    Asking,       ///< polkit is asked
    Filling,      ///< the caller fills the memory that it got
    Running,      ///< a worker process is at work
  };
  using Clock = std::chrono::steady_clock;

  std::uint64_t id = 0;  ///< its ticket
  std::string sender;
  std::uint32_t uid = kUnknownUser;
  Stage stage = Stage::Identifying;
  EventForm form;         ///< as announced
  std::size_t bytes = 0;  ///< of the event's message, as announced

  /// The answers to the method call that waits for one now. `refuse` is empty while none waits.
  std::function<void(const std::string& reason)> refuse;
  std::function<bool(std::uint64_t ticket, const FileDescriptor& memory)> begun;  ///< false if it got lost
  std::function<void(const Reply& reply)> finished;

  FileDescriptor file;  ///< what the caller fills
  Clock::time_point fillDeadline;
  std::optional<SealedMemory> memory;  ///< the event, sealed
  std::optional<MessageView> view;     ///< lies in the memory

  [[nodiscard]] bool isAuthorised() const { return stage >= Stage::Filling; }
  /// Seals and reads what the caller has filled in. False unless it is an event of the announced form.
  [[nodiscard]] bool read();
  [[nodiscard]] Action action() const { return form.action(); }
  [[nodiscard]] std::size_t paths() const { return form.paths; }
  /// The most bytes that the reply can have without its results' own texts.
  [[nodiscard]] std::size_t mostReplyBytes() const { return bytes + paths() * HelperLimits::wordsBytes; }
  /// For a log: the call, who made it and what it is.
  [[nodiscard]] std::string described() const;
};

}  // namespace sorrel::helper
