#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "SorrelFramework/Platform/Files/FolderListing.hpp"
#include "SorrelFramework/Platform/Files/FolderStack.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateInfo.hpp"
#include "SorrelFramework/Scan/WalkRequest.hpp"

namespace sorrel {

/// Settings shared by all walks of one scan.
struct DuplicateWalkRules {
  std::int64_t limit = 0;  ///< bytes; only larger files and folders are candidates
  /// Paths of the folders "Library" of all homes: weighed, not entered.
  std::unordered_set<std::string> libraries;
  std::function<bool()> isStopped;
  UnreadFolderHandler unread;  ///< may be called on several threads at a time
};

/// Collects the files and folders above a limit. Hidden items do not count; no mount point below the root is
/// entered, because if two mounts show the same files one would be taken for a copy of the other.
///
/// The size computed for a folder is a fingerprint: the bytes of its files, whatever their size, plus the
/// computed sizes of the folders in it. A bundle, a user's Library and a folder below a cache are not
/// entered: each byte of the text of their content type counts 1024 times its value, and their direct entries
/// count as their files.
class DuplicateWalk {
 public:
  using Sink = std::function<void(DuplicateInfo)>;

  /// `sink` takes each candidate on the walking thread: a folder after everything in it.
  DuplicateWalk(const DuplicateWalkRules& rules, Sink sink);

  /// Weighs the file at `url`; a candidate if it is above the limit.
  DuplicateInfo fileInfo(const URL& url);
  /// Walks the folder at `url`. An unreadable folder counts as empty, and is reported to `rules.unread`.
  DuplicateInfo folderBackTracking(const URL& url);

 private:
  /// The contribution of an item to its parent folder.
  struct Weight {
    Integer files = 0;
    Integer bytes = 0;  // computed, for a folder
  };
  /// The weight of a folder that vanished after its parent was read.
  static constexpr Weight kGoneFolder{1, 1};
  struct Level {
    FolderListing listing;
    std::size_t next = 0;
    std::size_t pathLength = 0;
    std::size_t firstBelow = 0;  // index in sizes_
    Weight weight;
  };
  [[nodiscard]] Level& top() { return *levels_[used_ - 1]; }
  void enterTop();
  void leaveTop(DuplicateInfo& result);
  void weighFiles();
  /// Skips the rest of the top folder, which can't be found again.
  void passOver(int error);
  void visitNext();
  void weighFolder(std::string_view name);
  void weighClosedFolder(std::string_view name);
  void add(Weight weight);
  /// Reports the folder at `path`, unless `error` means that nothing is missing.
  void reportUnread(const std::string& path, int error) const;
  [[nodiscard]] bool isStopped() const;
  [[nodiscard]] bool isWalkedInto(std::string_view name) const;

  const DuplicateWalkRules& rules_;
  Sink sink_;
  FolderStack folders_;
  FolderStream stream_;
  std::vector<std::unique_ptr<Level>> levels_;  // kept for the next folder of that depth
  std::size_t used_ = 0;
  std::string path_;              // of the current item
  std::size_t layoutOffset_ = 0;  // offset in path_ of the part below the root of the volume
  std::shared_ptr<WalkedSizes> sizes_;
};

}  // namespace sorrel
