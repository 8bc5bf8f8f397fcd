#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace sorrel::cli {

/// The live line of a running scan: per cent, items, bytes, and the item of the moment. On standard error,
/// and only if that is a terminal; otherwise it does nothing. One thread.
class ProgressLine {
 public:
  explicit ProgressLine(bool wanted);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void item(std::string_view path, std::int64_t size);
  void percent(float fraction);
  /// Takes the line off the screen again.
  void clear();

 private:
  void draw(bool atOnce);

  bool enabled_;
  bool drawn_ = false;
  std::string path_;
  std::int64_t items_ = 0;
  std::int64_t bytes_ = 0;
  float fraction_ = 0;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace sorrel::cli
