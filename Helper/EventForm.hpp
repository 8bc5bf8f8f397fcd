#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel::helper {

/// What the system is asked about: each has rules of its own.
enum class Action { Delete, Shred, Move, Maintenance, Uninstall };

/// The ending of the action's name behind the service's; a plain word.
[[nodiscard]] const char* nameOf(Action action);

/// What an event asks for, read from its number and its dictionary alone: no path in it has been looked at.
struct EventForm {
  HelperHanldeEventID kind = HelperHanldeEventID::Delete;
  std::optional<HelperOperationID> operation;  ///< of a Maintenance event
  std::size_t paths = 0;                       ///< that it names

  /// Nothing unless the event has a known number and exactly the form that HelperProtocol states for it: no
  /// other keys, types or depths, and a word from the sender about each path. Whether a path is absolute,
  /// normal or allowed is for whoever works on it.
  static std::optional<EventForm> of(std::int32_t eventID, const MessageView& event);

  [[nodiscard]] Action action() const;
  /// The status of a path on which nothing was achieved.
  [[nodiscard]] HelperEventErrorID failure() const;
  /// One word for a log.
  [[nodiscard]] const char* name() const;
};

/// What an event claims to be, for whoever decides whether it is worth a look: what its number and the head
/// of its message say, and of a Maintenance event, which is short, its form. An event of this heading still
/// may have no form at all.
struct EventHeading {
  /// Of a Maintenance event, which names extensions and no files: more is none.
  static constexpr std::size_t kMostMaintenanceBytes = std::size_t{4} << 20;

  HelperHanldeEventID kind = HelperHanldeEventID::Delete;
  Action action = Action::Delete;
  std::size_t paths = 0;

  /// Costs the same for an event of any size. Nothing for what can be no event.
  static std::optional<EventHeading> of(std::int32_t eventID, std::string_view message);
};

/// True for an entry of a Maintenance event that is about a path; the one other is "OperationValue".
[[nodiscard]] bool isPathEntry(const MessageView::Entry& entry);

}  // namespace sorrel::helper
