#include "SorrelFramework/Platform/FileDescriptor.hpp"

#include <unistd.h>

namespace sorrel {

void FileDescriptor::reset() noexcept {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace sorrel
