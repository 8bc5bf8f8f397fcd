#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace sorrel::test {

/// True in a program that the address checker watches. It keeps memory that was freed, and looks at memory by
/// way of descriptors of its own.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kHasAddressChecker = true;
#else
inline constexpr bool kHasAddressChecker = false;
#endif

/// While it lives, this thread's memory may leak: for calls into libraries that forget some.
class LeaksOfOthers {
 public:
#ifdef __SANITIZE_ADDRESS__
  LeaksOfOthers() { __lsan_disable(); }
  ~LeaksOfOthers() { __lsan_enable(); }
#else
  LeaksOfOthers() {}
  ~LeaksOfOthers() {}
#endif
  LeaksOfOthers(const LeaksOfOthers&) = delete;
  LeaksOfOthers& operator=(const LeaksOfOthers&) = delete;
};

}  // namespace sorrel::test
