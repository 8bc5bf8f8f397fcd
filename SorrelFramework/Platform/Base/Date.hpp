#pragma once

#include <compare>
#include <optional>
#include <string>

namespace sorrel {

/// A point in time: seconds since 1970-01-01 00:00:00 UTC. A double, because dates that other programs stored
/// may lie millions of years away.
struct Date {
  double secondsSince1970 = 0;

  [[nodiscard]] static Date now();

  friend auto operator<=>(const Date&, const Date&) = default;
};

/// Seconds between 1970 and 2001, the epoch of property list dates.
inline constexpr double kSecondsFrom1970To2001 = 978307200.0;

/// "YYYY-MM-DDThh:mm:ssZ" (ISO 8601, UTC) without fractions of a second; nothing outside the years 1 to 9999.
[[nodiscard]] std::optional<std::string> isoText(Date date);

}  // namespace sorrel
