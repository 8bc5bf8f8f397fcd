#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/HelpTool/HelperProtocol.hpp"

namespace sorrel::helper {

/// The results of all paths of one event. Takes one byte for each path, four more once any of them has a
/// text, and stores the texts of failures, each of the first ones only once.
class ResultTable {
 public:
  /// Limit for all texts of a table; later results are kept without their texts. The tables of all events
  /// that may run at once take sixteen times as much.
  static constexpr std::size_t kMostTextBytes = std::size_t{8} << 20;
  /// Number of texts that are searched for duplicates.
  static constexpr std::size_t kSharedTexts = 256;

  explicit ResultTable(std::size_t entries) : statuses_(entries, kOpen) {}

  /// The first result of an entry counts; a result for an index out of range is ignored.
  void set(std::size_t index, HelperEventErrorID status, std::string_view text);

  [[nodiscard]] std::size_t entries() const noexcept { return statuses_.size(); }
  [[nodiscard]] bool isKnown(std::size_t index) const { return statuses_[index] != kOpen; }
  [[nodiscard]] bool isSuccess(std::size_t index) const { return statuses_[index] == 0; }
  [[nodiscard]] std::size_t successes() const noexcept { return successes_; }
  /// Number of successes with a text.
  [[nodiscard]] std::size_t remarks() const noexcept { return remarks_; }
  /// The status of an entry, `otherwise` if it is unknown.
  [[nodiscard]] HelperEventErrorID status(std::size_t index, HelperEventErrorID otherwise) const;
  /// The text of a failure, `otherwise` if there is none.
  [[nodiscard]] std::string_view text(std::size_t index, std::string_view otherwise) const;

 private:
  static constexpr std::uint8_t kOpen = 0xff;

  std::uint32_t keep(std::string_view text);

  std::vector<std::uint8_t> statuses_;
  std::vector<std::uint32_t> places_;  // offset of the text plus 1; 0 for none
  std::string texts_;                  // each preceded by its length in two bytes
  std::map<std::string, std::uint32_t, std::less<>> shared_;
  std::size_t successes_ = 0;
  std::size_t remarks_ = 0;
};

}  // namespace sorrel::helper
