#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace sorrel {

void FileDescriptor::reset() noexcept { static_cast<void>(close()); }

bool FileDescriptor::close() noexcept { return isOpen() && ::close(std::exchange(descriptor_, -1)) == 0; }

bool writeAll(int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace sorrel
