#include "SorrelFramework/Platform/Files/OpenResolving.hpp"

#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace sorrel {

std::optional<FileDescriptor> openResolving(int folder, const char* name, int flags, std::uint64_t resolve) {
  static std::atomic<bool> isMissing{false};
  if (isMissing.load(std::memory_order_relaxed)) return std::nullopt;
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = resolve;
  const long opened = ::syscall(SYS_openat2, folder, name, &how, sizeof how);
  // A sandbox that does not know the call may return EPERM.
  if (opened < 0 && errno == EPERM) return std::nullopt;
  if (opened < 0 && errno == ENOSYS) {
    isMissing.store(true, std::memory_order_relaxed);
    return std::nullopt;
  }
  return FileDescriptor(static_cast<int>(opened));
}

}  // namespace sorrel
