#pragma once

#include "SorrelFramework/Platform/Base/Fatal.hpp"

namespace sorrel {

inline constexpr std::string_view kArithmeticOverflow = "Arithmetic overflow";

/// `a + b`; an overflow is a fatal stop, since a sum of bytes that wraps would tell the user a lie.
template <class Integral>
[[nodiscard]] constexpr Integral checkedAdd(Integral a, Integral b) {
  Integral sum{};
  if (__builtin_add_overflow(a, b, &sum)) fatalStop(kArithmeticOverflow);
  return sum;
}

}  // namespace sorrel
