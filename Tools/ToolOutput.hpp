#pragma once

#include <string>
#include <string_view>

namespace sorrel::tools {

/// The output of a tool. It is written in blocks that a pipe accepts as a whole, so that a killed tool never
/// leaves a part of a line, which could be the path of another item.
class ToolOutput {
 public:
  /// Ensures that no file of the tool's own gets the number of a closed standard stream. First in main.
  ToolOutput();

  /// True for a text that fits on a line of its own: UTF-8, no line feed, and not longer than a pipe accepts
  /// at once.
  [[nodiscard]] static bool fits(std::string_view line);
  /// Adds a line that fits.
  void addLine(std::string_view line);
  /// Adds a text of at most PIPE_BUF bytes.
  void addText(std::string_view text);
  /// Flushes the rest; false if any of the output was lost.
  [[nodiscard]] bool finish();

 private:
  void flush();

  std::string block_;
  bool lost_ = false;
};

}  // namespace sorrel::tools
