#include "SorrelFramework/HelpTool/EventRefusal.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

namespace sorrel {
namespace {

constexpr const char* kOperation = "OperationValue";

std::optional<HelperEventErrorID> failureOf(std::int32_t eventID, const HelperDictionary& event) {
  if (eventID == static_cast<std::int32_t>(HelperHanldeEventID::Delete)) {
    return HelperEventErrorID::DeleteError;
  }
  if (eventID == static_cast<std::int32_t>(HelperHanldeEventID::Shred)) return HelperEventErrorID::ShreadFail;
  if (eventID != static_cast<std::int32_t>(HelperHanldeEventID::Maintenance)) return std::nullopt;
  const auto operation = event.find(kOperation);
  const std::int64_t* value = operation == event.end() ? nullptr : operation->second.asNumber();
  if (value == nullptr) return std::nullopt;
  if (*value == static_cast<std::int64_t>(HelperOperationID::Clean)) return HelperEventErrorID::DeleteError;
  if (*value == static_cast<std::int64_t>(HelperOperationID::Move)) return HelperEventErrorID::MoveFail;
  return std::nullopt;
}

HelperDictionary numbersOf(const HelperValue& value) {
  HelperDictionary numbers;
  if (value.asDictionary() == nullptr) return numbers;
  for (const auto& [key, number] : *value.asDictionary()) {
    if (number.asNumber() != nullptr) numbers.emplace(key, number);
  }
  return numbers;
}

/// The key in the helper's reply for the path with this index: of fixed width, so that texts sort as numbers.
std::string numberKey(std::size_t index) {
  constexpr std::size_t kDigits = 7;
  const std::string digits = std::to_string(index);
  return std::string(kDigits - std::min(kDigits, digits.size()), '0') + digits;
}

bool hasGone(const std::string& path, const SenderView& before) {
  return before.kind == SenderView::Kind::Present && viewOf(path).kind == SenderView::Kind::Absent;
}

}  // namespace

std::string refusalText(std::string_view reason) {
  if (reason == HelperRefusal::notAuthorised) return "The operation was not authorised.";
  if (reason == HelperRefusal::wrongPassword) return "No right password was given.";
  if (reason == HelperRefusal::noAgent) return "No program of this session can ask for a password.";
  if (reason == HelperRefusal::neverAsked) {
    return "The rules of this system refuse it; they ask only in an active session at the machine itself.";
  }
  if (reason == HelperRefusal::noAuthority) return "The system can’t authorise the operation now.";
  if (reason == HelperRefusal::tooMany) return "The privileged helper is at work for you already.";
  if (reason == HelperRefusal::busy) return "The privileged helper is busy.";
  if (reason == HelperRefusal::stopped) return "The operation was stopped.";
  return "Nothing was done.";
}

HelperDictionary refusalOf(std::int32_t eventID, const HelperDictionary& event, const std::string& text) {
  HelperDictionary refusal;
  const std::optional<HelperEventErrorID> failure = failureOf(eventID, event);
  if (!failure.has_value()) return refusal;
  for (const auto& [path, value] : event) {
    if (path == kOperation) continue;
    HelperDictionary entry;
    if (failure == HelperEventErrorID::DeleteError) entry = numbersOf(value);
    if (failure == HelperEventErrorID::ShreadFail) entry["Path"] = path;
    entry["DeleteStatus"] = *failure;
    entry["DeleteDesc"] = text;
    refusal.emplace_hint(refusal.end(), path, std::move(entry));
  }
  return refusal;
}

bool settleByDisk(std::int32_t eventID, const HelperDictionary& event, const std::vector<SenderView>& views,
                  HelperDictionary& reply) {
  const std::optional<HelperEventErrorID> failure = failureOf(eventID, event);
  if (failure != HelperEventErrorID::DeleteError && failure != HelperEventErrorID::ShreadFail) return false;
  const bool listsFailuresAlone = event.contains(kOperation);
  std::size_t index = 0;
  for (const auto& [path, numbers] : event) {
    const SenderView before = index < views.size() ? views[index] : SenderView();
    auto entry = reply.find(numberKey(index++));
    if (entry == reply.end()) entry = reply.find(path);
    HelperDictionary* const words = entry == reply.end() ? nullptr : entry->second.asDictionary();
    if (words == nullptr || !hasGone(path, before)) continue;
    if (listsFailuresAlone) {
      reply.erase(entry);
      continue;
    }
    (*words)["DeleteStatus"] = HelperEventErrorID::Success;
    (*words)["DeleteDesc"] = "";
  }
  return listsFailuresAlone && reply.empty();
}

}  // namespace sorrel
