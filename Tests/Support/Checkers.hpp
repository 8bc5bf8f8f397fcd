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

/// True in a program that the thread checker watches. It remembers who touched which memory.
#ifdef __SANITIZE_THREAD__
inline constexpr bool kHasThreadChecker = true;
#else
inline constexpr bool kHasThreadChecker = false;
#endif

/// True if what a program takes of memory says nothing about it.
inline constexpr bool kIsMemoryDistorted = kHasAddressChecker || kHasThreadChecker;

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
