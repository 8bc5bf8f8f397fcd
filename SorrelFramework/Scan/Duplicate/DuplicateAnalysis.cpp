#include "SorrelFramework/Scan/Duplicate/DuplicateAnalysis.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"
#include "SorrelFramework/Platform/Queues/Countdown.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"
#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "SorrelFramework/Units/FileHashBatch.hpp"

namespace sorrel {
namespace {

/// The files that a walk met in a folder.
struct FolderContent {
  std::vector<URL> urls;
  std::vector<std::int64_t> sizes;
  std::vector<bool> isRegular;
  std::string links;    // a NUL and the target of each link; other special files add nothing
  bool isWhole = true;  // every folder could be read
};

void addLink(const URL& url, std::string& links) {
  std::error_code error;
  links += '\0';
  links += std::filesystem::read_symlink(url.path(), error).native();
}

FolderContent contentOf(const URL& folder, const std::function<bool()>& isStopped) {
  FolderContent content;
  DirectoryEnumerator files(folder, NSDirectoryEnumerationSkipsHiddenFiles, [&](const URL&, int) {
    content.isWhole = false;
    return true;
  });
  while (const auto* item = files.next()) {
    if (isStopped && isStopped()) break;
    if (item->status.isDirectory()) continue;
    content.urls.push_back(item->url);
    content.sizes.push_back(item->status.size);
    content.isRegular.push_back(item->status.isRegularFile());
    if (!content.isRegular.back()) addLink(item->url, content.links);
  }
  return content;
}

std::vector<std::string> pathsOf(const std::vector<URL>& urls) {
  std::vector<std::string> paths;
  paths.reserve(urls.size());
  for (const URL& url : urls) paths.push_back(url.path());
  return paths;
}

/// Runs a batch on all threads of the pool, then `done` on the queue of the scan.
void hash(const std::shared_ptr<FinderRun>& run, std::vector<std::string> paths,
          std::function<void(const FileHashBatch&)> done) {
  const unsigned workers = GlobalQueue::width();
  const auto batch = std::make_shared<FileHashBatch>(std::move(paths), workers, bestMD5Kernel(),
                                                     [run] { return run->isStopped(); });
  const auto left = Countdown::from(
      workers, [batch, done = std::move(done)] { done(*batch); }, run->queue());
  for (unsigned i = 0; i < workers; ++i) {
    GlobalQueue::submit(
        [batch, left] {
          batch->run();
          left->arrive();
        },
        run->qosClass());
  }
}

/// On the queue. What is gone, no regular file or left unread by a stop hides no copy. A file is reported
/// once, though it may be read with its folder and by itself.
void reportUnread(DuplicateSearch& search, const FileHashBatch& batch) {
  if (search.run->isStopped()) return;
  for (std::size_t i = 0; i < batch.paths().size(); ++i) {
    const int error = batch.errors()[i];
    if (!UnreadFolders::isReason(error) || error == EINVAL || error == EISDIR) continue;
    if (search.unread.insert(batch.paths()[i]).second) search.run->addUnreadFile(batch.paths()[i], error);
  }
}

class FolderHash : public std::enable_shared_from_this<FolderHash> {
 public:
  FolderHash(DuplicateSearchRef search, StageThrough through)
      : search_(std::move(search)), through_(std::move(through)) {}

  void start() {
    groups_ = topmostFolders(std::move(search_->folders), search_->settings.limit);
    for (std::size_t group = 0; group < groups_.size(); ++group) {
      for (std::size_t i = 0; i < groups_[group].size(); ++i) folders_.push_back({group, i, {}});
    }
    if (folders_.empty()) return finish();
    const auto left = Countdown::from(folders_.size(), [self = shared_from_this()] { self->hashContents(); });
    for (std::size_t i = 0; i < folders_.size(); ++i) {
      GlobalQueue::submit(
          [self = shared_from_this(), left, i] {
            self->listFolder(i);
            left->arrive();
          },
          search_->run->qosClass());
    }
  }

 private:
  struct Folder {
    std::size_t group;
    std::size_t index;  // in the group
    FolderContent content;
  };

  void listFolder(std::size_t i) {
    const URL& path = groups_[folders_[i].group][folders_[i].index].path;
    folders_[i].content = contentOf(path, [this] { return search_->run->isStopped(); });
  }

  void hashContents() {
    std::vector<std::string> paths;
    for (const Folder& folder : folders_)
      std::ranges::move(pathsOf(folder.content.urls), std::back_inserter(paths));
    hash(search_->run, std::move(paths), [self = shared_from_this()](const FileHashBatch& batch) {
      reportUnread(*self->search_, batch);
      self->groupFolders(batch);
    });
  }

  struct HashedFile {
    URL url;
    std::size_t index;  // in the batch
  };

  /// Folders of one size with the same hashes and links, and their files.
  struct Twins {
    std::vector<DuplicateInfo> records;
    std::vector<HashedFile> files;
  };

  /// The folders of one size with the same hashes.
  struct SameHashes {
    std::map<std::string, Twins> byLinks;
    bool hasPartlyReadFolder = false;
    /// True if some of the folders are not twins although their hashes are the same.
    [[nodiscard]] bool isDivided() const { return hasPartlyReadFolder || byLinks.size() > 1; }
  };

  void groupFolders(const FileHashBatch& batch) {
    std::vector<std::unordered_map<std::string, SameHashes>> groups(groups_.size());
    std::size_t at = 0;
    for (Folder& folder : folders_) {
      std::string text;
      std::vector<HashedFile> hashed;
      bool isWhole = folder.content.isWhole;
      for (std::size_t i = 0; i < folder.content.urls.size(); ++i, ++at) {
        if (const auto& one = batch.hashes()[at]) {
          text += *one;
          hashed.push_back({std::move(folder.content.urls[i]), at});
        } else {
          isWhole = isWhole && !folder.content.isRegular[i];
        }
      }
      if (search_->settings.ignoresFoldersWithoutHashes && hashed.empty()) continue;
      SameHashes& same = groups[folder.group][text];
      if (!isWhole) {
        same.hasPartlyReadFolder = true;  // its unread files may differ
        continue;
      }
      // Links are not hashed, yet folders whose links have other targets are not copies.
      Twins& twins = same.byLinks[folder.content.links];
      twins.records.push_back(std::move(groups_[folder.group][folder.index]));
      std::ranges::move(hashed, std::back_inserter(twins.files));
    }
    for (auto& group : groups) {
      for (auto& [text, same] : group) keepGroups(text, same, batch);
    }
    finish();
  }

  void keepGroups(const std::string& text, SameHashes& same, const FileHashBatch& batch) {
    const bool isDivided = same.isDivided();
    for (auto& [links, twins] : same.byLinks) {
      if (search_->settings.findsEveryEqualPair) {
        keepTwins(text + links, twins, batch);
      } else {
        keep(text + links, twins, isDivided);
      }
    }
  }

  /// Leaves out the files of every folder that was read, whether or not it has a twin, unless only its links
  /// or unread files keep another folder from being its twin: the files of both are then compared as files.
  /// Of twins of different sizes with the same hashes, which packages bring about, the largest are kept.
  void keep(const std::string& text, Twins& twins, bool isDivided) {
    if (twins.records.size() > 1) search_->foldersByHash.try_emplace(text, std::move(twins.records));
    if (isDivided || twins.files.size() <= 1) return;
    for (HashedFile& file : twins.files) search_->leftOut.insert(std::move(file.url));
  }

  /// Keeps the same twins, but only the hashes of their own files: all other files are treated as single
  /// files.
  void keepTwins(const std::string& text, Twins& twins, const FileHashBatch& batch) {
    dropOtherMounts(twins.records);  // a folder that is mounted twice would end up without a group
    if (twins.records.size() < 2) return;
    if (!search_->foldersByHash.try_emplace(text, std::move(twins.records)).second) return;
    for (HashedFile& file : twins.files)
      search_->hashesInTwins.emplace(std::move(file.url), *batch.hashes()[file.index]);
  }

  void finish() {
    search_->run->step();
    through_(std::to_string(folders_.size()) + " folders read, " +
             std::to_string(search_->foldersByHash.size()) + " groups");
  }

  DuplicateSearchRef search_;
  StageThrough through_;
  std::vector<std::vector<DuplicateInfo>> groups_;
  std::vector<Folder> folders_;
};

/// A group is dropped if every member lies in a twin folder: the group of that folder covers it.
void groupFiles(DuplicateSearch& search, std::vector<DuplicateInfo>& records, const FileHashBatch& batch) {
  std::size_t at = 0;
  for (DuplicateInfo& record : records) {
    const auto known = search.hashesInTwins.find(record.path);
    const auto text = known != search.hashesInTwins.end() ? known->second : batch.hashes()[at++];
    if (text) search.filesByHash[*text].push_back(std::move(record));
  }
  std::erase_if(search.filesByHash, [&search](const auto& group) {
    return std::ranges::all_of(group.second, [&search](const DuplicateInfo& file) {
      return search.hashesInTwins.contains(file.path);
    });
  });
}

}  // namespace

void hashFolders(const DuplicateSearchRef& search, StageThrough through) {
  search->run->step();
  if (search->folders.empty()) return through("0 folders read, 0 groups");
  std::make_shared<FolderHash>(search, std::move(through))->start();
}

void hashFiles(const DuplicateSearchRef& search, const StageThrough& through) {
  if (search->files.empty()) return through("0 files read, 0 hashes");
  auto records =
      std::make_shared<std::vector<DuplicateInfo>>(filesToHash(std::move(search->files), search->leftOut));
  std::vector<std::string> paths;
  paths.reserve(records->size());
  for (const DuplicateInfo& record : *records) {
    if (!search->hashesInTwins.contains(record.path)) paths.push_back(record.path.path());
  }
  hash(search->run, std::move(paths), [search, records, through](const FileHashBatch& batch) {
    reportUnread(*search, batch);
    groupFiles(*search, *records, batch);
    through(std::to_string(batch.paths().size()) + " files read, " +
            std::to_string(search->filesByHash.size()) + " hashes");
  });
}

std::tuple<std::string, std::vector<URL>, std::int64_t, std::unordered_set<URL>> hashesInFolder(
    const URL& folder) {
  const FolderContent content = contentOf(folder, nullptr);
  FileHashBatch batch(pathsOf(content.urls));
  batch.run();
  std::string text;
  std::vector<URL> hashed;
  std::int64_t total = 0;
  for (std::size_t i = 0; i < content.urls.size(); ++i) {
    if (!batch.hashes()[i]) continue;
    text += *batch.hashes()[i];
    hashed.push_back(content.urls[i]);
    total = checkedAdd(total, content.sizes[i]);
  }
  std::unordered_set<URL> sized(hashed.begin(), hashed.end());
  return {std::move(text), std::move(hashed), total, std::move(sized)};
}

}  // namespace sorrel
