#include "Helper/ResultTable.hpp"

#include "Helper/EventRunner.hpp"

namespace sorrel::helper {

void ResultTable::set(std::size_t index, HelperEventErrorID status, std::string_view text) {
  if (index >= statuses_.size() || isKnown(index)) return;
  statuses_[index] = static_cast<std::uint8_t>(status);
  if (status == HelperEventErrorID::Success) {
    ++successes_;
    if (!text.empty()) ++remarks_;
    return;
  }
  const std::uint32_t place = keep(text.substr(0, kMostResultText));
  if (place == 0) return;
  if (places_.empty()) places_.resize(statuses_.size());
  places_[index] = place;
}

std::uint32_t ResultTable::keep(std::string_view text) {
  if (text.empty()) return 0;
  const auto known = shared_.find(text);
  if (known != shared_.end()) return known->second;
  if (texts_.size() + text.size() + 2 > kMostTextBytes) return 0;
  const auto place = static_cast<std::uint32_t>(texts_.size() + 1);
  texts_.push_back(static_cast<char>(text.size() & 0xff));
  texts_.push_back(static_cast<char>(text.size() >> 8));
  texts_ += text;
  if (shared_.size() < kSharedTexts) shared_.emplace(text, place);
  return place;
}

HelperEventErrorID ResultTable::status(std::size_t index, HelperEventErrorID otherwise) const {
  return isKnown(index) ? static_cast<HelperEventErrorID>(statuses_[index]) : otherwise;
}

std::string_view ResultTable::text(std::size_t index, std::string_view otherwise) const {
  if (places_.empty() || places_[index] == 0) return otherwise;
  const std::string_view kept = std::string_view(texts_).substr(places_[index] - 1);
  const auto byte = [&](std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(kept[at]));
  };
  return kept.substr(2, byte(0) | byte(1) << 8);
}

}  // namespace sorrel::helper
