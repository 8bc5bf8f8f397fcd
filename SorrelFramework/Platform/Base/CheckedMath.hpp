#pragma once

#include "SorrelFramework/Platform/Base/Fatal.hpp"

namespace sorrel {

inline constexpr std::string_view kArithmeticOverflow = "Arithmetic overflow";

/// `a + b`; an overflow is a fatal stop, because a wrapped sum of bytes would show the user a wrong figure.
template <class Integral>
[[nodiscard]] constexpr Integral checkedAdd(Integral a, Integral b) {
  Integral sum{};
  if (__builtin_add_overflow(a, b, &sum)) fatalStop(kArithmeticOverflow);
  return sum;
}

}  // namespace sorrel
