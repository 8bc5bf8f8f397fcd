#include "Helper/CallList.hpp"

#include <algorithm>
#include <utility>

namespace sorrel::helper {
namespace {

using Stage = HelperCall::Stage;

bool isIdentified(const HelperCall& call) { return call.stage != Stage::Identifying; }

}  // namespace

template <class Condition>
std::size_t CallList::count(Condition condition) const {
  const auto matching =
      std::ranges::count_if(calls_, [&](const auto& each) { return condition(*each.second); });
  return static_cast<std::size_t>(matching);
}

HelperCall& CallList::add(std::unique_ptr<HelperCall> call) {
  call->id = ++lastID_;
  return *calls_.emplace(lastID_, std::move(call)).first->second;
}

HelperCall* CallList::find(std::uint64_t id) const {
  const auto found = calls_.find(id);
  return found == calls_.end() ? nullptr : found->second.get();
}

std::unique_ptr<HelperCall> CallList::take(std::uint64_t id) {
  return std::move(calls_.extract(id).mapped());
}

bool CallList::canIdentify(const std::string& sender) const {
  const auto isOwn = [&](const HelperCall& call) { return !isIdentified(call) && call.sender == sender; };
  return count(std::not_fn(isIdentified)) < kMostUnidentified && count(isOwn) == 0;
}

bool CallList::hasCallOf(std::uint32_t uid) const {
  return count([&](const HelperCall& call) { return isIdentified(call) && call.uid == uid; }) > 0;
}

bool CallList::mayAsk() const {
  return count([](const HelperCall& call) { return call.stage == Stage::Asking; }) < kMostQuestions;
}

bool CallList::isFull() const { return count(std::mem_fn(&HelperCall::isAuthorised)) >= kMost; }
bool CallList::hasWork() const { return count(isIdentified) > 0; }
bool CallList::hasAuthorisedWork() const { return count(std::mem_fn(&HelperCall::isAuthorised)) > 0; }

std::size_t CallList::mostReplyBytesBeside(const HelperCall& call) const {
  std::size_t sum = 0;
  for (const auto& [id, other] : calls_) {
    if (other->stage == Stage::Running && id != call.id) sum += other->mostReplyBytes();
  }
  return sum;
}

std::optional<HelperCall::Clock::time_point> CallList::firstDeadline() const {
  std::optional<HelperCall::Clock::time_point> first;
  for (const auto& [id, call] : calls_) {
    if (call->stage == Stage::Filling &&
        call->fillDeadline < first.value_or(HelperCall::Clock::time_point::max())) {
      first = call->fillDeadline;
    }
  }
  return first;
}

std::vector<std::uint64_t> CallList::all() const {
  std::vector<std::uint64_t> ids;
  for (const auto& [id, call] : calls_) ids.push_back(id);
  return ids;
}

std::vector<std::uint64_t> CallList::from(const std::string& sender) const {
  std::vector<std::uint64_t> ids;
  for (const auto& [id, call] : calls_) {
    if (call->sender == sender) ids.push_back(id);
  }
  return ids;
}

}  // namespace sorrel::helper
