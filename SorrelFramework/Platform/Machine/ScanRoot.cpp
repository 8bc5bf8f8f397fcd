#include "SorrelFramework/Platform/Machine/ScanRoot.hpp"

#include <fcntl.h>
#include <linux/openat2.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

#include "SorrelFramework/Platform/Files/OpenFolderLimit.hpp"
#include "SorrelFramework/Platform/Files/OpenResolving.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Machine/VolumePath.hpp"

namespace sorrel {
namespace {

constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// With a ".." in the path, a concurrent rename makes the kernel return EAGAIN.
constexpr int kMostTries = 16;

FileDescriptor openOnVolume(const std::string& root, const std::string& path) {
  const FileDescriptor top(::open(root.c_str(), kFlags));
  if (!top.isOpen()) return {};
  const std::string below = '.' + path.substr(root.size());
  for (int i = 0; i < kMostTries; ++i) {
    auto folder = openResolving(top.get(), below.c_str(), kFlags, RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS);
    if (!folder)
      return FileDescriptor(
          ::open(placeOnVolume(root, path, LastLink::Followed).real.c_str(), kFlags | O_NOFOLLOW));
    if (folder->isOpen() || errno != EAGAIN) return std::move(*folder);
  }
  return {};
}

FileDescriptor openNow(const std::string& path) {
  const std::string& root = Host::current().root();
  const std::string_view whole = path;
  if (!root.empty() && whole.starts_with(root) && whole.substr(root.size()).starts_with('/'))
    return openOnVolume(root, path);
  return FileDescriptor(::open(path.c_str(), kFlags));
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
