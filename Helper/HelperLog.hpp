#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace sorrel::helper {

/// The text with every byte that is not plain ASCII, and every quote and backslash, as \xHH: one line, in
/// which no text can fake the end of a field. Truncated after kMostEscaped bytes of input, with "..."
/// appended.
inline constexpr std::size_t kMostEscaped = 1024;
[[nodiscard]] std::string escapedForLog(std::string_view text);

/// A number that no user has, for callers that are not identified yet.
inline constexpr std::uint32_t kUnknownUser = UINT32_MAX;

/// Allows a burst, then the same number in each interval.
class RateLimit {
 public:
  using Clock = std::chrono::steady_clock;

  RateLimit(std::size_t burst, std::chrono::seconds interval) : burst_(burst), interval_(interval) {}
  /// True if one more may pass now.
  [[nodiscard]] bool admits(Clock::time_point now);
  /// True if the interval is over, so that the limit no longer applies.
  [[nodiscard]] bool isOver(Clock::time_point now) const { return now - start_ >= interval_; }
  /// Returns and resets the number of suppressed lines.
  [[nodiscard]] std::size_t takeHeldBack();

 private:
  std::size_t burst_;
  std::chrono::seconds interval_;
  Clock::time_point start_{};
  std::size_t passed_ = 0;
  std::size_t heldBack_ = 0;
};

/// The journal: standard error if the service manager reads it, else the system log and a copy on standard
/// error. The caller escapes external texts.
class HelperLog {
 public:
  using Now = std::function<RateLimit::Clock::time_point()>;

  /// `name` must outlive the log. To be constructed before the environment is cleared.
  explicit HelperLog(const char* name, Now now = RateLimit::Clock::now);

  /// Reports the suppressed lines that were not reported yet.
  ~HelperLog();
  HelperLog(const HelperLog&) = delete;
  HelperLog& operator=(const HelperLog&) = delete;

  void info(const std::string& line);
  void error(const std::string& line);
  /// A line that user `uid` can cause at will: at most kMostOfUser of them in ten seconds. `line` is called
  /// only if the line is written.
  void limited(std::uint32_t uid, const std::function<std::string()>& line);
  /// Writes how many lines of that user were suppressed since the last report.
  void reportHeldBack(std::uint32_t uid);

  static constexpr std::size_t kMostOfUser = 50;
  /// Users beyond this number within ten seconds share one limit.
  static constexpr std::size_t kMostUsers = 64;

 private:
  RateLimit& limitOf(std::uint32_t uid);
  void forgetQuietUsers();
  void report(std::uint32_t uid, RateLimit& limit);
  void write(int priority, const std::string& line);

  bool isJournal_;
  Now now_;
  std::map<std::uint32_t, RateLimit> limits_;
};

}  // namespace sorrel::helper
