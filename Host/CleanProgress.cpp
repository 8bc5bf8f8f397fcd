#include "Host/CleanProgress.hpp"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Text/SizeText.hpp"

namespace sorrel::cli {
namespace {

/// Number of items checked per drawing of the line.
constexpr std::size_t kLooks = 500;

}  // namespace

CleanProgress::CleanProgress(bool wanted, const std::vector<CleanItem>& items)
    : count_(items.size()), line_(wanted, [this] { return text(); }) {
  if (!line_.isEnabled()) return;
  for (const CleanItem& item : items) {
    if (item.name.starts_with('/')) there_.push_back({item.name, item.size});
  }
}

void CleanProgress::announce(const std::string& text) {
  line_.end();
  if (::isatty(STDERR_FILENO) == 1) std::cerr << text << std::flush;
}

std::string CleanProgress::text() {
  lookForSome();
  return "removing: " + std::to_string(gone_) + " of " + std::to_string(count_) +
         (count_ == 1 ? " item, " : " items, ") + sizeText(bytes_);
}

void CleanProgress::lookForSome() {
  for (std::size_t looks = std::min(kLooks, there_.size()); looks > 0 && !there_.empty(); --looks) {
    if (next_ >= there_.size()) next_ = 0;
    if (statusOf(there_[next_].path).has_value()) {
      ++next_;
      continue;
    }
    ++gone_;
    bytes_ += std::min(there_[next_].size, INT64_MAX - bytes_);
    std::swap(there_[next_], there_.back());
    there_.pop_back();
  }
}

}  // namespace sorrel::cli
