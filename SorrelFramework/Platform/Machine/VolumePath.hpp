#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

/// The target of a path on a mounted volume.
struct VolumePlace {
  /// The given path if this machine finds the same item by it; otherwise a path by which it does.
  std::string path;
  std::string real;  ///< spelled as on disk, and without the links that were followed
  bool exists = false;
};

enum class LastLink : std::uint8_t { Kept, Followed };

/// Resolves `path`, which is the volume's root folder `root` ("" for "/") or lies below it, as the volume's
/// own system does: absolute links begin at the root, nothing leads above it, and an absent name matches one
/// that differs in letter case (the first in byte order; composed and decomposed letters are the same).
/// `last` determines the treatment of a link at the end of the path. A path that leads nowhere is kept,
/// unless a link redirects it on the volume.
[[nodiscard]] VolumePlace placeOnVolume(const std::string& root, std::string_view path, LastLink last);

/// Names in a folder in byte order; none if it can't be read.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& folder);

}  // namespace sorrel
