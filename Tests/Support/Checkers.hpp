#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace sorrel::test {

/// True in a program built with the address sanitizer. It keeps freed memory, and reads memory through
/// descriptors of its own.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kHasAddressChecker = true;
#else
inline constexpr bool kHasAddressChecker = false;
#endif

/// True in a program built with the thread sanitizer. It records all memory accesses.
#ifdef __SANITIZE_THREAD__
inline constexpr bool kHasThreadChecker = true;
#else
inline constexpr bool kHasThreadChecker = false;
#endif

/// True if the memory use of a program is not meaningful.
inline constexpr bool kIsMemoryDistorted = kHasAddressChecker || kHasThreadChecker;

/// While it lives, this thread's memory may leak: for calls into libraries that leak.
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
