#pragma once

#include <string>

namespace sorrel::test {

/// A new, empty file system in an image file, mounted during its lifetime. Only for children of
/// inMountingChild(), whose mounts no other process sees.
class LoopFileSystem {
 public:
  /// `type` is "btrfs", "xfs" or "ext2"; `options` are mount's, `makeOptions` those of mkfs.TYPE, or "".
  /// Makes the file `image` and the folder `point`.
  LoopFileSystem(const std::string& type, const std::string& image, std::string point,
                 const std::string& options = "", const std::string& makeOptions = "");
  ~LoopFileSystem();
  LoopFileSystem(const LoopFileSystem&) = delete;
  LoopFileSystem& operator=(const LoopFileSystem&) = delete;

  /// False if mkfs.TYPE, the kernel's part, a loop device or the permission to mount is missing.
  [[nodiscard]] bool isMounted() const { return isMounted_; }

 private:
  std::string point_;
  bool isMounted_ = false;
};

/// Makes the file `to` a clone of `from`, as `cp --reflink=always` does; false if that is not possible.
bool cloneFile(const std::string& from, const std::string& to);

}  // namespace sorrel::test
