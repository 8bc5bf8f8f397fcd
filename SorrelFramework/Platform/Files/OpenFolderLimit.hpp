#pragma once

#include <cstddef>
#include <functional>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

namespace sorrel {

/// How many folders each walk of this process may keep open. A walk that gets no descriptor (EMFILE, ENFILE)
/// lowers the limit for all of them; each closes its surplus folders when it next enters or leaves a folder.
/// The limit is back at kMost once no walk runs. Any thread.
class OpenFolderLimit {
 public:
  static constexpr std::size_t kMost = 32;
  /// True if there are fewer descriptors than the walks could use.
  [[nodiscard]] static bool isShort() noexcept { return most() < kMost; }
  [[nodiscard]] static std::size_t most() noexcept;
  /// Halves the limit, down to 1.
  static void lower() noexcept;

  /// One running walk.
  class Walk {
   public:
    Walk();
    ~Walk();
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
  };

  /// Wakes the walks that wait for a descriptor, after one was closed.
  static void wakeWaiting();

  /// Calls `open` until it succeeds or fails for another reason than a lack of descriptors; in between calls
  /// `giveBack`, which closes one of the caller's own folders, or waits for other walks when that returns
  /// false. Gives up, with errno, when `isStopped` returns true or no other walk returns a descriptor.
  static FileDescriptor openSparing(const std::function<FileDescriptor()>& open,
                                    const std::function<bool()>& giveBack,
                                    const std::function<bool()>& isStopped);

  /// The same for the first folder of a walk, which is opened only if that leaves a descriptor free: a walk
  /// needs a second one to go down or up. Otherwise walks could take the last ones from each other, and none
  /// would make progress.
  static FileDescriptor openFirst(const std::function<FileDescriptor()>& open,
                                  const std::function<bool()>& isStopped);
  /// True if one more descriptor is free besides `opened`. If `opened` is closed: true unless `error`, with
  /// which it could not be opened, is a lack of descriptors.
  [[nodiscard]] static bool leavesRoom(const FileDescriptor& opened, int error);
  [[nodiscard]] static bool isLackOfDescriptors(int error) noexcept;
};

}  // namespace sorrel
