#pragma once

#include <string>
#include <string_view>

namespace sorrel::tools {

/// What a tool prints. It leaves in blocks that a pipe takes as a whole, so that a tool that is killed never
/// leaves a part of a line behind, which could be the path of something else.
class ToolOutput {
 public:
  /// Makes sure that no file of the tool's own gets the number of a standard stream that was closed. First of
  /// all in main.
  ToolOutput();

  /// True for a text that can stand on a line of its own: UTF-8, no line feed, and within what a pipe takes
  /// at once.
  [[nodiscard]] static bool fits(std::string_view line);
  /// Adds a line that fits.
  void addLine(std::string_view line);
  /// Adds a text of at most PIPE_BUF bytes.
  void addText(std::string_view text);
  /// Writes what is left; false if any of the output was lost.
  [[nodiscard]] bool finish();

 private:
  void flush();

  std::string block_;
  bool lost_ = false;
};

}  // namespace sorrel::tools
