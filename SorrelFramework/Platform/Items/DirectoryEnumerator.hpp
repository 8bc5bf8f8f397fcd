#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Files/FolderListing.hpp"
#include "SorrelFramework/Platform/Files/FolderStack.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Platform/Items/ResourceValues.hpp"
#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {

/// Options of a walk; callers pass the raw values as numbers.
enum EnumerationOption : std::uint32_t {
  NSDirectoryEnumerationSkipsSubdirectoryDescendants = 1,  ///< the direct children only
  NSDirectoryEnumerationSkipsPackageDescendants = 2,       ///< packages are visited, not entered
  NSDirectoryEnumerationSkipsHiddenFiles = 4,              ///< hidden items are neither visited nor entered
};
using EnumerationOptions = std::uint32_t;

/// Gets the URL of a folder that can't be read and the errno. False ends the walk.
using EnumerationErrorHandler = std::function<bool(const URL&, int)>;

/// The position of a walk: what a filter may query and set for the current item.
class EnumerationPosition {
 public:
  /// 1 for the direct children of the root, 2 for theirs; 0 before the first item.
  [[nodiscard]] int level() const noexcept { return level_; }
  /// Keeps the walk from entering the current item; no effect for an item that is not a folder.
  void skipDescendants() noexcept { skips_ = true; }

 protected:
  EnumerationPosition() = default;
  ~EnumerationPosition() = default;
  int level_ = 0;
  bool skips_ = false;
};

/// True if an item of that name is visited at all.
[[nodiscard]] bool isMet(std::string_view name, EnumerationOptions options);
/// True if a walk enters the folder.
[[nodiscard]] bool isEntered(std::string_view name, const FileStatus& status, EnumerationOptions options);

/// Walks everything below a folder, a parent before its children, the children of one folder in the order of
/// their names' bytes. The root itself is not visited; a root that is a link to a folder is entered, links
/// below it are not, nor are mount points. Unreadable folders are visited but not entered. The number of open
/// files does not grow with the depth. A root that is missing or not a folder gives a walk without items.
class DirectoryEnumerator : public EnumerationPosition {
 public:
  struct Item {
    URL url;           ///< ends in "/" for a folder
    std::string name;  ///< last path component, as bytes
    FileStatus status;
  };

  explicit DirectoryEnumerator(const URL& root, EnumerationOptions options = 0,
                               EnumerationErrorHandler errorHandler = {});

  /// The next item, null at the end. Valid until the next call.
  const Item* next();

  /// Values of the current item; nothing if it is gone.
  [[nodiscard]] ResourceValues values(ResourceKeys keys) const;

 private:
  struct Level {
    FolderListing listing;
    std::size_t next = 0;
    std::size_t urlLength = 0;  // of the folder's part of urlText_
  };
  void enterPresentItem();
  void readTop();
  void leaveTop();

  EnumerationOptions options_;
  EnumerationErrorHandler errorHandler_;
  FolderStream stream_;
  FolderStack folders_;
  std::vector<std::unique_ptr<Level>> levels_;
  std::string urlText_;   // of the current folder, with its "/"; one for all levels, as paths may be long
  std::size_t used_ = 0;  // levels in use; the others are kept for their memory
  Item item_;
  bool mayEnter_ = false;
};

}  // namespace sorrel
