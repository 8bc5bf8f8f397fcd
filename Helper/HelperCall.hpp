#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Helper/EventForm.hpp"
#include "Helper/Reply.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel::helper {

/// A call of HandleEvent or Uninstall that is under way. What it brought is read step by step, no further
/// than its caller is trusted by then.
struct HelperCall {
  enum class Stage { Identifying, Asking, Running };
  using EventAnswer = std::function<void(const Reply& reply)>;
  using UninstallAnswer = std::function<void(bool flag, const std::string& text)>;

  /// No user's number.
  static constexpr std::uint32_t kUnknownUser = UINT32_MAX;

  std::uint64_t id = 0;
  std::string sender;
  std::uint32_t uid = kUnknownUser;
  Stage stage = Stage::Identifying;
  std::optional<std::int32_t> eventID;  ///< none: Uninstall
  std::optional<SealedMemory> memory;   ///< of an event; none if it was not sound
  EventAnswer eventAnswer;
  UninstallAnswer uninstallAnswer;

  // Of an event, the views once they were read; they lie in the memory.
  std::optional<EventHeading> heading;
  std::optional<EventForm> form;
  std::optional<MessageView> view;

  [[nodiscard]] bool isEvent() const { return eventID.has_value(); }
  /// Reads the heading. False if this can be no event.
  [[nodiscard]] bool readHeading();
  /// Reads the whole event, behind its heading. False if its form is not sound.
  [[nodiscard]] bool read();

  [[nodiscard]] Action action() const { return heading.has_value() ? heading->action : Action::Uninstall; }
  /// As the heading claims, and never more than that.
  [[nodiscard]] std::size_t paths() const { return heading.has_value() ? heading->paths : 0; }
  /// Of a reply with an entry for each path, at most.
  [[nodiscard]] std::size_t mostReplyBytes() const;
  /// For a log: the call, who made it and what it is.
  [[nodiscard]] std::string described() const;
};

}  // namespace sorrel::helper
