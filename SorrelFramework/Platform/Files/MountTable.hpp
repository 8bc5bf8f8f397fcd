#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace sorrel {

/// One line of /proc/self/mountinfo, proc(5).
struct Mount {
  std::uint64_t number = 0;
  std::string device;  ///< "major:minor" of the file system
  std::string root;    ///< the folder of that file system that is mounted, "/" for the whole file system
  std::string point;   ///< the mount point
  std::string type;    ///< the name that mount(8) uses
  /// The layers and work folder of an overlay, as its options name them; empty for other types.
  std::vector<std::string> layers{};

  friend bool operator==(const Mount&, const Mount&) = default;
};

/// True for types whose files are served by another process or machine, which may never answer.
[[nodiscard]] bool isServedType(std::string_view type);

/// The lines of a mount table, in their order; a line that cannot be read is skipped.
[[nodiscard]] std::vector<Mount> mountsIn(std::string_view mountTable);

/// The source of the mount table.
class MountSource {
 public:
  static constexpr const char* kTable = "/proc/self/mountinfo";
  virtual ~MountSource() = default;
  /// False if the table is the same as at the last read().
  virtual bool hasChanged() = 0;
  /// The text of kTable.
  virtual std::string read() = 0;

  static std::unique_ptr<MountSource> ofThisProcess();
};

/// The mounts of this process, kept up to date. Reads the table only: no file system is queried. Opened and
/// read at the first query.
class MountTable {
 public:
  explicit MountTable(std::unique_ptr<MountSource> source = nullptr) : source_(std::move(source)) {}

  /// Reads the table again if it has changed. True if it was read.
  bool refresh();
  /// As of the last refresh().
  [[nodiscard]] const std::vector<Mount>& mounts() const noexcept { return mounts_; }
  /// The mount with this ID as of the last refresh(); null if there is none.
  [[nodiscard]] const Mount* find(std::uint64_t number) const;

 private:
  std::unique_ptr<MountSource> source_;
  std::vector<Mount> mounts_;
  std::unordered_map<std::uint64_t, std::size_t> places_;  // in mounts_, by number
  bool isRead_ = false;
};

}  // namespace sorrel
