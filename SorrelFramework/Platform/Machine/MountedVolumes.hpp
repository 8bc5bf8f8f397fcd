#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// The mounted volumes of Host::current() as folder URLs, the root first. On the desktop these are the file
/// systems that hold a user's files (mountPointsIn()); on a macOS volume the root folder and each folder
/// directly below ROOT/Volumes in the order of the names' bytes, except links. Network mounts are never
/// accessed. Any thread.
[[nodiscard]] std::vector<URL> mountedVolumeURLs();

/// The same without the network mounts: any access to those may block for minutes. Any thread.
[[nodiscard]] std::vector<URL> localVolumeURLs();

/// A line of the mount table that a user would call a volume.
struct MountPoint {
  std::string path;
  std::string fileSystem;
  bool isNetwork = false;  ///< reading its state may block for minutes

  friend bool operator==(const MountPoint&, const MountPoint&) = default;
};

/// The volumes in the text of /proc/self/mountinfo, proc(5): the root regardless of its type, then, in the
/// order of the lines, mounts of file systems that hold a user's files. A line hidden by a later one at the
/// same mount point is left out, and of several mounts of one folder of one device only the first counts. A
/// line that cannot be parsed is skipped.
[[nodiscard]] std::vector<MountPoint> mountPointsIn(std::string_view mountTable);

}  // namespace sorrel
