#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

/// One of the user's trash folders on the desktop, by the freedesktop.org trash rules. The deleted items are
/// in `files`; `info` records the origin and deletion time of each item; `directorysizes` keeps the sizes of
/// folders; file managers move items that they are about to delete to `expunged`.
class DesktopTrash {
 public:
  /// The trash whose items lie in the folder `files`; nothing if it is not one: on a macOS volume, for a
  /// folder that is not the user's own or a link (but the home's trash may be a link that the user owns), and
  /// for any path other than the home's trash and, at the root of a mounted volume, `.Trash-UID` and
  /// `.Trash/UID`, the latter only if `.Trash` has the sticky bit.
  static std::optional<DesktopTrash> withFiles(const std::string& files);

  [[nodiscard]] const std::string& folder() const noexcept { return folder_; }
  [[nodiscard]] std::string filesFolder() const { return folder_ + "/files"; }
  [[nodiscard]] std::string infoFolder() const { return folder_ + "/info"; }
  [[nodiscard]] std::string expungedFolder() const { return folder_ + "/expunged"; }
  /// The record of the item `name` of `files`.
  [[nodiscard]] std::string infoFile(std::string_view name) const;
  /// The item that an entry of `info` records; nothing if its name is not that of a record.
  static std::optional<std::string_view> itemOfInfo(std::string_view entry);

  /// Removes the lines of the items that `isGone` accepts from `directorysizes`, which is replaced in one
  /// step; all other bytes stay. False if such lines are still there. A file that another user owns, or that
  /// is a link, is left alone.
  [[nodiscard]] bool removeSizes(const std::function<bool(const std::string& name)>& isGone) const;

 private:
  explicit DesktopTrash(std::string folder) : folder_(std::move(folder)) {}

  std::string folder_;
};

}  // namespace sorrel
