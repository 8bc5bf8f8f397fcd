#include "SorrelFramework/Platform/ScanRoot.hpp"

#include <fcntl.h>
#include <linux/openat2.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Host.hpp"
#include "SorrelFramework/Platform/OpenFolderLimit.hpp"
#include "SorrelFramework/Platform/OpenResolving.hpp"

namespace sorrel {
namespace {

FileDescriptor openNow(const std::string& path) {
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  const std::string& root = Host::current().root();
  const std::string_view whole = path;
  if (!root.empty() && whole.starts_with(root) && whole.substr(root.size()).starts_with('/')) {
    const FileDescriptor top(::open(root.c_str(), flags));
    const std::string below = '.' + std::string(whole.substr(root.size()));
    if (!top.isOpen()) return {};
    if (auto folder =
            openResolving(top.get(), below.c_str(), flags, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS)) {
      return std::move(*folder);
    }
  }
  return FileDescriptor(::open(path.c_str(), flags));
}

}  // namespace

FileDescriptor openFolder(const std::string& path, const std::function<bool()>& isStopped) {
  if (path.find('\0') != std::string::npos) {
    errno = ENOENT;
    return {};
  }
  return OpenFolderLimit::openFirst([&path] { return openNow(path); }, isStopped);
}

}  // namespace sorrel
