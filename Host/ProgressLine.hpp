#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Host/LiveLine.hpp"

namespace sorrel::cli {

/// The live line of a running scan: per cent, items, bytes, and the last item. Main thread only.
class ProgressLine {
 public:
  explicit ProgressLine(bool wanted);

  void begin() { line_.begin(); }
  void item(std::string_view path, std::int64_t size);
  void percent(float fraction);
  /// Removes the line from the screen for good.
  void end() { line_.end(); }

 private:
  [[nodiscard]] std::string text() const;

  std::string path_;
  std::int64_t items_ = 0;
  std::int64_t bytes_ = 0;
  float fraction_ = 0;
  LiveLine line_;
};

}  // namespace sorrel::cli
