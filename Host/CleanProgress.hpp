#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Host/CleanReport.hpp"
#include "Host/LiveLine.hpp"

namespace sorrel::cli {

/// The live line of a running clean: how many of its items are gone from the disk. The clean reports three
/// steps only, so the line checks the items itself, some of them each time. Main thread only.
class CleanProgress {
 public:
  CleanProgress(bool wanted, const std::vector<CleanItem>& items);

  void begin() { line_.begin(); }
  void end() { line_.end(); }
  /// Removes the line for good, because later output may go to the terminal itself, and writes `text` to
  /// standard error if that is a terminal.
  void announce(const std::string& text);

 private:
  struct Item {
    std::string path;
    std::int64_t size;
  };
  [[nodiscard]] std::string text();
  void lookForSome();

  std::size_t count_;
  std::size_t gone_ = 0;
  std::int64_t bytes_ = 0;
  std::size_t next_ = 0;
  std::vector<Item> there_;  ///< items that existed at their last check
  LiveLine line_;
};

}  // namespace sorrel::cli
