#include "Tests/Support/LoopFileSystem.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel::test {
namespace {

// mkfs.xfs makes no smaller ones; the image is sparse.
constexpr off_t kImageBytes = off_t{320} << 20;

bool runs(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

}  // namespace

LoopFileSystem::LoopFileSystem(const std::string& type, const std::string& image, std::string point,
                               const std::string& options, const std::string& makeOptions)
    : point_(std::move(point)) {
  std::filesystem::create_directories(point_);
  const FileDescriptor file(::open(image.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  isMounted_ = ::ftruncate(file.get(), kImageBytes) == 0 &&
               runs("mkfs." + type + " -q " + makeOptions + ' ' + image) &&
               runs("mount -t " + type + " -o loop" + (options.empty() ? "" : "," + options) + ' ' + image +
                    ' ' + point_);
}

LoopFileSystem::~LoopFileSystem() {
  if (isMounted_) runs("umount " + point_);
}

bool cloneFile(const std::string& from, const std::string& to) {
  const FileDescriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor copy(::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  return source.isOpen() && copy.isOpen() && ::ioctl(copy.get(), FICLONE, source.get()) == 0;
}

}  // namespace sorrel::test
