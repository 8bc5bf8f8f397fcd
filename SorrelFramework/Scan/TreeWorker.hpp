#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Files/FolderListing.hpp"
#include "SorrelFramework/Platform/Files/FolderStack.hpp"
#include "SorrelFramework/Platform/Files/FolderStream.hpp"
#include "SorrelFramework/Scan/ProgressPost.hpp"
#include "SorrelFramework/Scan/WalkRequest.hpp"
#include "SorrelFramework/Scan/WalkTeam.hpp"

namespace sorrel {

struct WalkFolder;

/// An item of a folder that matters for the result: it has a record, or is an ancestor of items that may have
/// one.
struct WalkItem {
  Ref<FileInformation> record;
  WalkFolder* below = nullptr;  ///< set for folders
};

/// The data that a walk keeps of one folder.
struct WalkFolder {
  std::vector<WalkItem> items;         ///< by name
  std::atomic<std::int64_t> bytes{0};  ///< of everything below that has no WalkFolder of its own
  std::atomic<bool> isCut{false};      ///< the walk was stopped before it had read the whole folder

  void addBytes(std::int64_t count);
};

/// A folder that is still to be walked.
struct WalkWork {
  FileDescriptor folder;
  WalkFolder* result = nullptr;
  std::string urlText;  ///< with a trailing "/"; empty if only sizes are wanted
  int level = 0;        ///< of the folder's items
  bool wantsBytes = false;

  [[nodiscard]] bool makesRecords() const noexcept { return !urlText.empty(); }
};

/// One walk: the request, the totals of the members of its team, and the storage for their folders.
class TreeJob {
 public:
  explicit TreeJob(const WalkRequest& walkRequest) : request(walkRequest) {}

  const WalkRequest& request;  ///< outlives all work, but not a helper that starts too late
  WalkTeam<WalkWork> team;

  /// Storage for one member's folders; lives as long as the job.
  std::deque<WalkFolder>& newArena();
  void addFiles(std::int64_t bytes, Integer count);
  /// Reports a folder that could not be read to both handlers; the error handler may end the walk.
  void report(const URL& url, int error);
  /// The same for a folder that is only sized.
  void note(const std::string& path, int error);

  [[nodiscard]] bool isStopped() const {
    return ended_.load(std::memory_order_relaxed) || request.stop.isStopped();
  }
  [[nodiscard]] std::int64_t fileBytes() const noexcept { return fileBytes_; }
  [[nodiscard]] Integer fileCount() const noexcept { return fileCount_; }

 private:
  std::mutex mutex_;
  std::deque<std::deque<WalkFolder>> arenas_;
  std::int64_t fileBytes_ = 0;
  Integer fileCount_ = 0;
  std::atomic<bool> ended_{false};
};

/// One member of a walk: walks depth first through its folders, with one system call for each item, a bounded
/// number of open files and, for folders that are only sized, no growing memory.
class TreeWorker {
 public:
  explicit TreeWorker(TreeJob& job);
  ~TreeWorker();

  /// Called once, when the walk has met enough folders to make helpers worthwhile; set by the owner of the
  /// walk.
  std::function<void()> onLargeWalk;

  void run(WalkWork work);

 private:
  /// A folder below the current one that is still to be entered.
  struct Pending {
    std::size_t name;  // its offset in names
    WalkFolder* result;
    bool makesRecords;
    bool wantsBytes;
  };
  struct Frame {
    std::string names;  // of the pending folders, each with its NUL
    std::vector<Pending> pending;
    std::size_t next = 0;
    std::size_t urlLength = 0;  // of the folder's part of urlText_; folders that are only sized have none
    WalkFolder* result = nullptr;
    int level = 0;
    bool makesRecords = false;
    bool wantsBytes = false;
  };

  Frame& newFrame(WalkFolder* result, int level, bool makesRecords, bool wantsBytes);
  void enter(const Frame& above, const Pending& pending);
  void readFolder(Frame& frame);
  void sizeFolder(Frame& frame);
  void recordFolder(Frame& frame);
  void recordItem(Frame& frame, std::string_view name, const FileStatus& status, const FolderRights& rights);
  void keepForLater(Frame& frame, std::string_view name, WalkFolder* result, bool makesRecords,
                    bool wantsBytes);
  void giveAway();
  void leave();
  /// Marks the folders that are still pending as cut: they will not be entered.
  static void cutOff(Frame& frame);
  [[nodiscard]] std::string_view urlOf(const Frame& frame) const {
    return {urlText_.data(), frame.urlLength};
  }
  /// `folder` is the open folder of `above`, -1 if it could not be reopened.
  void reportUnreadable(const Frame& above, int folder, const Pending& pending, int error);
  /// The same for the current folder, unless `error` is 0.
  void reportTop(const Frame& frame, int error);

  TreeJob& job_;
  std::deque<WalkFolder>& arena_;
  FolderStream stream_;
  FolderListing listing_;
  FolderStack folders_;
  std::vector<std::unique_ptr<Frame>> frames_;
  std::size_t used_ = 0;  // frames in use; the others are kept for their memory
  std::size_t visited_ = 0;
  std::string urlText_;  // of the current folder, with its "/"; the texts of its ancestors are prefixes of it
  std::string tail_;     // encoded name of the current item
  DeletionRule deletion_;
  ProgressPost progress_;
  std::int64_t fileBytes_ = 0;
  Integer fileCount_ = 0;
};

}  // namespace sorrel
