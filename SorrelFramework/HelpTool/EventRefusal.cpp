#include "SorrelFramework/HelpTool/EventRefusal.hpp"

#include <optional>
#include <utility>

namespace sorrel {
namespace {

constexpr const char* kOperation = "OperationValue";
constexpr const char* kNothingDone = "Nothing was done.";

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

}  // namespace

HelperDictionary refusalOf(std::int32_t eventID, const HelperDictionary& event) {
  HelperDictionary refusal;
  const std::optional<HelperEventErrorID> failure = failureOf(eventID, event);
  if (!failure.has_value()) return refusal;
  for (const auto& [path, value] : event) {
    if (path == kOperation) continue;
    HelperDictionary entry;
    if (failure == HelperEventErrorID::DeleteError) entry = numbersOf(value);
    if (failure == HelperEventErrorID::ShreadFail) entry["Path"] = path;
    entry["DeleteStatus"] = *failure;
    entry["DeleteDesc"] = kNothingDone;
    refusal.emplace_hint(refusal.end(), path, std::move(entry));
  }
  return refusal;
}

HelperProtocol::EventReply completingReply(std::int32_t eventID, const HelperDictionary& event,
                                           HelperProtocol::EventReply reply) {
  if (eventID != static_cast<std::int32_t>(HelperHanldeEventID::Maintenance)) return reply;
  HelperDictionary refusal = refusalOf(eventID, event);
  if (refusal.empty()) return reply;
  return [reply = std::move(reply), refusal = std::move(refusal)](
             bool flag, std::int32_t code, const std::optional<HelperDictionary>& dictionary) {
    const bool namesNone = !dictionary.has_value() || dictionary->empty();
    reply(flag, code, !flag && namesNone ? refusal : dictionary);
  };
}

}  // namespace sorrel
