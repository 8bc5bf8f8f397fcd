#include "Helper/HelperLog.hpp"

#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace sorrel::helper {

std::string escapedForLog(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string escaped;
  for (const char byte : text.substr(0, kMostEscaped)) {
    if (byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\') {
      escaped.push_back(byte);
      continue;
    }
    const auto value = static_cast<unsigned char>(byte);
    escaped += {'\\', 'x', kDigits[value >> 4], kDigits[value & 0xf]};
  }
  if (text.size() > kMostEscaped) escaped += "...";
  return escaped;
}

bool RateLimit::admits(Clock::time_point now) {
  if (passed_ == 0 || isOver(now)) {
    start_ = now;
    passed_ = 0;
  }
  if (passed_ < burst_) {
    ++passed_;
    return true;
  }
  ++heldBack_;
  return false;
}

std::size_t RateLimit::takeHeldBack() { return std::exchange(heldBack_, 0); }

HelperLog::HelperLog(const char* name, Now now)
    : isJournal_(std::getenv("JOURNAL_STREAM") != nullptr), now_(std::move(now)) {
  if (!isJournal_) ::openlog(name, LOG_PID | LOG_PERROR | LOG_NDELAY, LOG_AUTHPRIV);
}

HelperLog::~HelperLog() {
  for (auto& [uid, limit] : limits_) report(uid, limit);
}

void HelperLog::info(const std::string& line) { write(LOG_INFO, line); }
void HelperLog::error(const std::string& line) { write(LOG_ERR, line); }

void HelperLog::limited(std::uint32_t uid, const std::function<std::string()>& line) {
  if (!limitOf(uid).admits(now_())) return;
  reportHeldBack(uid);
  write(LOG_WARNING, line());
}

void HelperLog::reportHeldBack(std::uint32_t uid) { report(uid, limitOf(uid)); }

void HelperLog::report(std::uint32_t uid, RateLimit& limit) {
  const std::size_t heldBack = limit.takeHeldBack();
  if (heldBack == 0) return;
  const std::string user = uid == kUnknownUser ? "?" : std::to_string(uid);
  write(LOG_WARNING, std::to_string(heldBack) + " more lines for uid=" + user + " were not logged");
}

RateLimit& HelperLog::limitOf(std::uint32_t uid) {
  if (!limits_.contains(uid) && limits_.size() >= kMostUsers) forgetQuietUsers();
  const bool isNew = !limits_.contains(uid);
  const std::uint32_t key = isNew && limits_.size() >= kMostUsers ? kUnknownUser : uid;
  return limits_.try_emplace(key, kMostOfUser, std::chrono::seconds(10)).first->second;
}

void HelperLog::forgetQuietUsers() {
  const auto isQuiet = [now = now_()](const auto& each) {
    return each.first != kUnknownUser && each.second.isOver(now);
  };
  for (auto& each : limits_) {
    if (isQuiet(each)) report(each.first, each.second);
  }
  std::erase_if(limits_, isQuiet);
}

void HelperLog::write(int priority, const std::string& line) {
  if (!isJournal_) {
    ::syslog(priority, "%s", line.c_str());
    return;
  }
  // The journal reads the priority from the beginning of the line; one write call is one line.
  const std::string whole = "<" + std::to_string(priority) + ">" + line + "\n";
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, whole.data(), whole.size());
}

}  // namespace sorrel::helper
