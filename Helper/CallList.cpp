#include "Helper/CallList.hpp"

#include <algorithm>
#include <utility>

namespace sorrel::helper {

std::uint64_t CallList::add(std::unique_ptr<HelperCall> call) {
  call->id = ++lastID_;
  calls_.emplace(lastID_, std::move(call));
  return lastID_;
}

HelperCall* CallList::find(std::uint64_t id) const {
  const auto found = calls_.find(id);
  return found == calls_.end() ? nullptr : found->second.get();
}

std::unique_ptr<HelperCall> CallList::take(std::uint64_t id) {
  return std::move(calls_.extract(id).mapped());
}

bool CallList::hasRoomFor(std::uint32_t uid) const {
  std::size_t all = 0;
  std::size_t own = 0;
  for (const auto& [id, call] : calls_) {
    if (call->stage == HelperCall::Stage::Identifying) continue;
    ++all;
    if (call->uid == uid) ++own;
  }
  return own < kMostOfUser && all < kMost;
}

bool CallList::hasRoomForCaller(const std::string& sender) const {
  const auto own =
      std::ranges::count_if(calls_, [&](const auto& each) { return each.second->sender == sender; });
  return static_cast<std::size_t>(own) < kMostOfCaller;
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
