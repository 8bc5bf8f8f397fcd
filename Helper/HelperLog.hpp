#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace sorrel::helper {

/// The text with every byte that is not plain ASCII, and every quote and backslash, as \xHH: one line, in
/// which nobody can pretend the end of a field. Cut after kMostEscaped bytes of input, with "..." behind it.
inline constexpr std::size_t kMostEscaped = 1024;
[[nodiscard]] std::string escapedForLog(std::string_view text);

/// Lets a burst through, then as much in each interval.
class RateLimit {
 public:
  using Clock = std::chrono::steady_clock;

  RateLimit(std::size_t burst, std::chrono::seconds interval) : burst_(burst), interval_(interval) {}
  /// Whether one more may pass at this moment.
  [[nodiscard]] bool admits(Clock::time_point now);
  /// How many were held back since the last call.
  [[nodiscard]] std::size_t takeHeldBack();

 private:
  std::size_t burst_;
  std::chrono::seconds interval_;
  Clock::time_point start_{};
  std::size_t passed_ = 0;
  std::size_t heldBack_ = 0;
};

/// The journal: standard error where the service manager reads it, else the system log with a copy there. The
/// caller escapes what comes from outside.
class HelperLog {
 public:
  /// `name` must stay. To be made before the environment is cleared.
  explicit HelperLog(const char* name);

  void info(const std::string& line);
  /// Of which somebody outside may cause any number: kept to kRefusals in ten seconds. False if it was held
  /// back.
  bool refusal(const std::string& line);
  void error(const std::string& line);

  static constexpr std::size_t kRefusals = 50;

 private:
  void write(int priority, const std::string& line);

  bool isJournal_;
  RateLimit refusals_{kRefusals, std::chrono::seconds(10)};
};

}  // namespace sorrel::helper
