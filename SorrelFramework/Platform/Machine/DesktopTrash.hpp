#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace sorrel {

/// One of the user's trash folders on the desktop, by the freedesktop.org trash rules. What was thrown away
/// lies in `files`; `info` records where each item came from, and when; `directorysizes` keeps the sizes of
/// folders; file managers move what they are about to delete to `expunged`.
class DesktopTrash {
 public:
  /// The trash whose items lie in the folder `files`; nothing if it is none: on a macOS volume, for a folder
  /// that is not the user's own or a link (but the home's trash may be a link that the user owns), and for
  /// any place but the home's trash and, at the top of a mounted volume, `.Trash-UID` and `.Trash/UID`, the
  /// latter only if `.Trash` has the sticky bit.
  static std::optional<DesktopTrash> withFiles(const std::string& files);

  [[nodiscard]] const std::string& folder() const noexcept { return folder_; }
  [[nodiscard]] std::string filesFolder() const { return folder_ + "/files"; }
  [[nodiscard]] std::string infoFolder() const { return folder_ + "/info"; }
  [[nodiscard]] std::string expungedFolder() const { return folder_ + "/expunged"; }
  /// The record of the item `name` of `files`.
  [[nodiscard]] std::string infoFile(std::string_view name) const;
  /// The item that an entry of `info` records; nothing if its name is not that of a record.
  static std::optional<std::string_view> itemOfInfo(std::string_view entry);

  /// Takes the lines of the items that `isGone` accepts out of `directorysizes`, which is replaced in one
  /// step; all other bytes stay. False if such lines are still there. A file that another user owns, or that
  /// is a link, is left alone.
  [[nodiscard]] bool removeSizes(const std::function<bool(const std::string& name)>& isGone) const;

 private:
  explicit DesktopTrash(std::string folder) : folder_(std::move(folder)) {}

  std::string folder_;
};

}  // namespace sorrel
