#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel::helper {

/// What the system is asked about: each has rules of its own.
enum class Action { Delete, Shred, Move, Maintenance };

/// The ending of the action's name behind the service's; a plain word.
[[nodiscard]] const char* nameOf(Action action);

/// What an event asks for, read from its number and its dictionary alone: no path in it has been looked at.
struct EventForm {
  HelperHanldeEventID kind = HelperHanldeEventID::Delete;
  std::optional<HelperOperationID> operation;  ///< of a Maintenance event
  std::size_t paths = 0;                       ///< number of the paths that it names

  /// Nothing unless the event has a known number and exactly the form that HelperProtocol states for it: no
  /// other keys, types or depths, and a word from the sender about each path. Whether a path is absolute,
  /// normal or allowed is for whoever works on it.
  static std::optional<EventForm> of(std::int32_t eventID, const MessageView& event);

  /// What a caller says that its event will be, before any of it is there. Nothing for a kind or an operation
  /// that does not exist, or a number of paths that it can't have.
  static std::optional<EventForm> announced(std::int32_t eventID, std::int32_t operation,
                                            std::uint32_t paths);

  friend bool operator==(const EventForm&, const EventForm&) = default;

  [[nodiscard]] Action action() const;
  /// Whether it is about paths that are gone if it succeeds.
  [[nodiscard]] bool removes() const;
  /// The status of a path on which nothing was achieved.
  [[nodiscard]] HelperEventErrorID failure() const;
  /// One word for a log.
  [[nodiscard]] const char* name() const;
};

/// True for an entry of a Maintenance event that is about a path; the one other is "OperationValue".
[[nodiscard]] bool isPathEntry(const MessageView::Entry& entry);

}  // namespace sorrel::helper
