#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel::helper {

/// The actions that the system authorises: each has rules of its own.
enum class Action { Delete, Shred, Move, Maintenance };

/// The suffix of the action's name after the service's; a plain word.
[[nodiscard]] const char* nameOf(Action action);

/// The request of an event, read from its number and its dictionary only: no path in it has been checked.
struct EventForm {
  HelperHanldeEventID kind = HelperHanldeEventID::Delete;
  std::optional<HelperOperationID> operation;  ///< of a Maintenance event
  std::size_t paths = 0;                       ///< number of its paths

  /// Nothing unless the event has a known number and exactly the form that HelperProtocol defines for it: no
  /// other keys, types or depths, and the sender's view of each path. Whether a path is absolute, normal or
  /// allowed is checked by the code that works on it.
  static std::optional<EventForm> of(std::int32_t eventID, const MessageView& event);

  /// The form that a caller announces for its event, before the event itself exists. Nothing for an unknown
  /// kind or operation, or for an impossible number of paths.
  static std::optional<EventForm> announced(std::int32_t eventID, std::int32_t operation,
                                            std::uint32_t paths);

  friend bool operator==(const EventForm&, const EventForm&) = default;

  [[nodiscard]] Action action() const;
  /// True if it names paths that are gone after a success.
  [[nodiscard]] bool removes() const;
  /// The status of a path for which nothing was done.
  [[nodiscard]] HelperEventErrorID failure() const;
  /// One word for a log.
  [[nodiscard]] const char* name() const;
};

/// True for an entry of a Maintenance event that is a path; the only other entry is "OperationValue".
[[nodiscard]] bool isPathEntry(const MessageView::Entry& entry);

}  // namespace sorrel::helper
