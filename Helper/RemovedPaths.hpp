#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "Helper/ResultTable.hpp"
#include "SorrelFramework/HelpTool/MessageView.hpp"

namespace sorrel::helper {

/// The journal's report of the paths that an event removed.
struct RemovedPaths {
  static constexpr std::size_t kMost = 100;
  /// The first kMost removed paths that did not lie below another removed path.
  std::vector<std::string_view> topmost;
  /// Number of all paths of that kind.
  std::size_t count = 0;

  /// The texts are those of `event`.
  static RemovedPaths of(const MessageView& event, const ResultTable& results);
};

}  // namespace sorrel::helper
