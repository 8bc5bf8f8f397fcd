#include "Tools/LastUse.hpp"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "SorrelFramework/Platform/Items/RecentlyUsed.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"

namespace sorrel::tools {
namespace {

constexpr std::array<const char*, 3> kAttributes = {
    "com.apple.lastuseddate#PS", "osx.com.apple.lastuseddate#PS", "user.com.apple.lastuseddate#PS"};
constexpr std::size_t kNumberBytes = 8;
constexpr std::uint64_t kNanosecondsOfASecond = 1'000'000'000;
constexpr std::uint64_t kEndOfYears = 253'402'300'800;  // 10000-01-01

std::uint64_t numberIn(std::string_view bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = kNumberBytes; i-- > 0;) number = number << 8U | static_cast<unsigned char>(bytes[i]);
  return number;
}

std::optional<Date> ofAttribute(const std::string& path) {
  for (const char* const name : kAttributes) {
    std::array<char, 2 * kNumberBytes> bytes{};
    const ssize_t length = ::lgetxattr(path.c_str(), name, bytes.data(), bytes.size());
    if (length < 0) continue;
    const auto date = lastUseInAttribute({bytes.data(), static_cast<std::size_t>(length)});
    if (date) return date;
  }
  return std::nullopt;
}

bool isLater(const timespec& a, const timespec& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

/// An unpacked file has an access time older than its change time, until it is started.
std::optional<Date> ofReading(const struct stat& status) {
  constexpr mode_t kAnyExecute = S_IXUSR | S_IXGRP | S_IXOTH;
  if (!S_ISREG(status.st_mode) || (status.st_mode & kAnyExecute) == 0) return std::nullopt;
  if (!isLater(status.st_atim, status.st_ctim)) return std::nullopt;
  return Date{static_cast<double>(status.st_atim.tv_sec)};
}

}  // namespace

std::optional<Date> lastUseInAttribute(std::string_view bytes) {
  if (bytes.size() != 2 * kNumberBytes) return std::nullopt;
  const std::uint64_t seconds = numberIn(bytes.substr(0, kNumberBytes));
  const std::uint64_t nanoseconds = numberIn(bytes.substr(kNumberBytes));
  if (seconds == 0 || seconds >= kEndOfYears || nanoseconds >= kNanosecondsOfASecond) return std::nullopt;
  return Date{static_cast<double>(seconds)};
}

std::optional<Date> lastUse(const std::string& path) {
  std::optional<Date> last = ofAttribute(path);
  const Host& host = Host::current();
  struct stat status {};
  if (host.layout() != Host::Layout::LinuxDesktop || ::lstat(path.c_str(), &status) != 0) return last;
  last = std::max(last, ofReading(status));
  const auto list = RecentlyUsed::read(host.applicationSupportFolder() + "/recently-used.xbel");
  if (!list) return last;
  std::error_code error;
  const std::string place = std::filesystem::absolute(path, error).lexically_normal().string();
  return std::max({last, list->opened(place), list->ran(place)});
}

}  // namespace sorrel::tools
