#include "Helper/EventForm.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sorrel::helper {
namespace {

using Type = MessageView::Type;

constexpr std::string_view kOperationKey = "OperationValue";
constexpr std::string_view kTargetKey = "ToPath";

/// The entries expected below each path of an event.
enum class Below { Nothing, Numbers, Target };

struct Row {
  HelperHanldeEventID kind;
  std::optional<HelperOperationID> operation;
  bool hasPaths;
  Below below;
  Action action;
  HelperEventErrorID failure;
  const char* name;
};

constexpr auto kNoOperation = std::nullopt;
using Kind = HelperHanldeEventID;
using Operation = HelperOperationID;
using Error = HelperEventErrorID;
constexpr auto kRows = std::to_array<Row>({
    {Kind::Delete, kNoOperation, true, Below::Numbers, Action::Delete, Error::DeleteError, "delete"},
    {Kind::Shred, kNoOperation, true, Below::Nothing, Action::Shred, Error::ShreadFail, "shred"},
    {Kind::Maintenance, Operation::CleanDNS, false, Below::Nothing, Action::Maintenance, Error::NoCause,
     "clean-dns"},
    {Kind::Maintenance, Operation::RebuildSpotlight, false, Below::Nothing, Action::Maintenance,
     Error::NoCause, "rebuild-index"},
    // A list of paths is a deletion, in any kind of event.
    {Kind::Maintenance, Operation::Clean, true, Below::Nothing, Action::Delete, Error::DeleteError, "clean"},
    {Kind::Maintenance, Operation::Move, true, Below::Target, Action::Move, Error::MoveFail, "move"},
});

const Row* rowOf(Kind kind, std::optional<Operation> operation) {
  const auto* found = std::ranges::find_if(
      kRows, [&](const Row& row) { return row.kind == kind && row.operation == operation; });
  return found == kRows.end() ? nullptr : found;
}

bool isNumberKey(std::string_view key) {
  return !key.empty() && std::ranges::all_of(key, [](char byte) { return byte >= '0' && byte <= '9'; });
}

bool fits(const MessageView::Dictionary& below, Below form) {
  switch (form) {
    case Below::Nothing:
      return below.empty();
    case Below::Target:
      return below.size() == 1 && below.begin()->key == kTargetKey && below.begin()->type == Type::Text;
    case Below::Numbers:
      return std::ranges::all_of(below.begin(), below.end(), [](const MessageView::Entry& entry) {
        return entry.type == Type::Number && isNumberKey(entry.key);
      });
  }
  return false;
}

/// The operation of a Maintenance event; nothing if it is missing or unknown.
std::optional<Operation> operationOf(const MessageView& event) {
  for (const MessageView::Entry& entry : event.dictionary()) {
    if (entry.key != kOperationKey || entry.type != Type::Number) continue;
    if (entry.number < 0 || entry.number > static_cast<std::int64_t>(Operation::Move)) return std::nullopt;
    return static_cast<Operation>(entry.number);
  }
  return std::nullopt;
}

bool isKnown(std::int32_t eventID) {
  return eventID >= 0 && eventID <= static_cast<std::int32_t>(Kind::CloseHelper);
}

}  // namespace

const char* nameOf(Action action) {
  switch (action) {
    case Action::Delete:
      return "delete";
    case Action::Shred:
      return "shred";
    case Action::Move:
      return "move";
    case Action::Maintenance:
      break;
  }
  return "maintenance";
}

bool isPathEntry(const MessageView::Entry& entry) { return entry.key != kOperationKey; }

std::optional<EventForm> EventForm::of(std::int32_t eventID, const MessageView& event) {
  if (!isKnown(eventID)) return std::nullopt;
  EventForm form;
  form.kind = static_cast<Kind>(eventID);
  const bool isMaintenance = form.kind == Kind::Maintenance;
  if (isMaintenance) form.operation = operationOf(event);
  const Row* const row = rowOf(form.kind, form.operation);
  if (row == nullptr || !event.hasDictionary()) return std::nullopt;
  if (!event.dictionary().empty() && !event.hasViews()) return std::nullopt;
  for (const MessageView::Entry& entry : event.dictionary()) {
    if (isMaintenance && !isPathEntry(entry)) continue;
    if (!row->hasPaths || entry.type != Type::Dictionary || !fits(entry.below, row->below))
      return std::nullopt;
    ++form.paths;
  }
  return form;
}

std::optional<EventForm> EventForm::announced(std::int32_t eventID, std::int32_t operation,
                                              std::uint32_t paths) {
  if (!isKnown(eventID) || paths > HelperLimits::paths) return std::nullopt;
  EventForm form{static_cast<Kind>(eventID), std::nullopt, paths};
  if (operation != HelperWireNames::noOperation) form.operation = static_cast<Operation>(operation);
  const Row* const row = rowOf(form.kind, form.operation);
  return row == nullptr || (paths > 0 && !row->hasPaths) ? std::nullopt : std::optional(form);
}

bool EventForm::removes() const { return action() == Action::Delete || action() == Action::Shred; }
Action EventForm::action() const { return rowOf(kind, operation)->action; }
HelperEventErrorID EventForm::failure() const { return rowOf(kind, operation)->failure; }
const char* EventForm::name() const { return rowOf(kind, operation)->name; }

}  // namespace sorrel::helper
