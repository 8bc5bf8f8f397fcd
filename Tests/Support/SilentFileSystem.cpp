#include "Tests/Support/SilentFileSystem.hpp"

#include <fcntl.h>
#include <sys/mount.h>

namespace sorrel::test {

FileDescriptor mountSilentFileSystem(const std::string& point) {
  FileDescriptor server(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!server.isOpen()) return server;
  const std::string options = "fd=" + std::to_string(server.get()) + ",rootmode=40000,user_id=0,group_id=0";
  if (::mount("silent", point.c_str(), "fuse.silent", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
    return FileDescriptor();
  }
  return server;
}

}  // namespace sorrel::test
