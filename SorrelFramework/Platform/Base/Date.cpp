#include "SorrelFramework/Platform/Base/Date.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>

namespace sorrel {
namespace {

// 0001-01-01 and 10000-01-01, in seconds since 1970: between them a year has four digits.
constexpr double kFirstSecond = -62135596800.0;
constexpr double kEndSecond = 253402300800.0;

}  // namespace

Date Date::now() {
  timespec moment{};
  ::clock_gettime(CLOCK_REALTIME, &moment);
  return {static_cast<double>(moment.tv_sec) + static_cast<double>(moment.tv_nsec) * 1e-9};
}

std::optional<std::string> isoText(Date date) {
  const double seconds = std::floor(date.secondsSince1970);
  if (!(seconds >= kFirstSecond && seconds < kEndSecond)) return std::nullopt;
  const auto moment = static_cast<std::time_t>(seconds);
  std::tm fields{};
  if (::gmtime_r(&moment, &fields) == nullptr) return std::nullopt;
  std::array<char, 80> text{};
  const int length =
      std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", fields.tm_year + 1900,
                    fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
  return std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace sorrel
