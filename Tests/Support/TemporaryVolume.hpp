#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {

/// A number of bytes, written 3_MiB.
struct ByteCount {
  std::uint64_t value = 0;
};
constexpr ByteCount operator""_B(unsigned long long count) { return {count}; }
constexpr ByteCount operator""_KiB(unsigned long long count) { return {count << 10U}; }
constexpr ByteCount operator""_MiB(unsigned long long count) { return {count << 20U}; }
constexpr ByteCount operator""_GiB(unsigned long long count) { return {count << 30U}; }

/// A macOS volume in a temporary folder, with the home of alice. Names are paths below the root, without a
/// leading slash; missing parent folders are created. Each maker returns the item's path.
class TemporaryVolume : public TemporaryFolder {
 public:
  static constexpr std::string_view kUser = "alice";
  static constexpr std::string_view kBundleIdentifier = "org.example.test";

  /// With the folders Users/alice and Resources.
  TemporaryVolume();

  /// Makes Host::current() this volume as alice sees it, with Resources as the resource folder.
  void install() const;

  using TemporaryFolder::file;
  /// A sparse file of `size` bytes of value 0.
  std::string file(std::string_view name, ByteCount size) const;
  /// A file of `size` bytes that depend on `seed`, all written.
  std::string filledFile(std::string_view name, ByteCount size, unsigned seed = 1) const;
  std::string link(std::string_view name, std::string_view target) const;
  std::string fifo(std::string_view name) const;
  /// `count` nested folders, each called `name`, below the folder `top`. The path may grow longer than
  /// PATH_MAX: an item in the last folder can't always be reached by its path.
  std::string chain(std::string_view top, const std::string& name, int count) const;

  /// Sets the permission bits.
  void setMode(std::string_view name, mode_t mode) const;
  void setOwner(std::string_view name, uid_t uid) const;
  /// Sets the modification time of the item itself, in seconds since 1970.
  void setModified(std::string_view name, std::int64_t seconds) const;

  /// The file URL of an item, a folder's if `name` ends in "/"; "" for the root.
  [[nodiscard]] URL url(std::string_view name = "") const;
};

/// One item of a tree: all properties that a scan must not change.
struct TreeEntry {
  std::string path;  ///< below the root, "." for the root itself
  mode_t mode = 0;   ///< type and permission bits
  std::int64_t size = 0;
  std::int64_t modifiedSeconds = 0;
  std::int64_t modifiedNanoseconds = 0;
  std::string linkText;
  std::uint64_t digest = 0;  ///< of the content of a regular file

  friend bool operator==(const TreeEntry&, const TreeEntry&) = default;
};
void PrintTo(const TreeEntry& entry, std::ostream* out);

/// All items at and below `path`, a parent before its children, by name. No time stamp except access times
/// changes, and only regular files are opened.
std::vector<TreeEntry> snapshotOf(const std::string& path);

}  // namespace sorrel::test
