#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel::helper {

/// Where the mount table comes from.
class MountSource {
 public:
  virtual ~MountSource() = default;
  /// Whether the table may be another than at the last read().
  virtual bool hasChanged() = 0;
  /// The text of /proc/self/mountinfo, proc(5).
  virtual std::string read() = 0;

  /// That of this process.
  static std::unique_ptr<MountSource> ofThisProcess();
};

/// Which file systems the helper works on: those that are known to keep their files on this machine and to
/// answer without a user's program or the network, and those that the administrator adds. A FUSE or network
/// file system may never answer, and answers what its maker likes.
class FileSystemFence {
 public:
  explicit FileSystemFence(std::vector<std::string> allowedTypes,
                           std::unique_ptr<MountSource> source = MountSource::ofThisProcess());

  /// Whether the mount of this number may be entered. Looks into the mount table alone: the file system
  /// itself is not asked. A mount that the table does not know may not.
  [[nodiscard]] bool mayEnter(std::uint64_t mount);

  /// Types by the number of the mount. A line that cannot be read is skipped.
  [[nodiscard]] static std::map<std::uint64_t, std::string> typesIn(std::string_view mountTable);

 private:
  void read();
  [[nodiscard]] bool isAllowed(std::string_view type) const;

  std::vector<std::string> allowedTypes_;
  std::unique_ptr<MountSource> source_;
  std::map<std::uint64_t, std::string> types_;
};

}  // namespace sorrel::helper
