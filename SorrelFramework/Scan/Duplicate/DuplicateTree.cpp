#include "SorrelFramework/Scan/Duplicate/DuplicateTree.hpp"

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Queues/Countdown.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"
#include "SorrelFramework/Scan/FileGroups.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"

namespace sorrel {
namespace {

/// One hash with its members.
struct Group {
  FilesKind kind;
  std::vector<DuplicateInfo> twins;
  FileRecords members;
  std::vector<Integer> kinds;

  /// Bytes of all members; groups are ordered by it.
  [[nodiscard]] std::int64_t weight() const {
    std::int64_t bytes = 0;
    if (__builtin_mul_overflow(twins.front().fileSize, static_cast<std::int64_t>(twins.size()), &bytes))
      return INT64_MAX;
    return bytes;
  }
};

class DuplicateTree : public std::enable_shared_from_this<DuplicateTree> {
 public:
  DuplicateTree(const DuplicateSearchRef& search, const DuplicateTitles& titles, StageThrough through)
      : run_(search->run),
        titles_(titles),
        through_(std::move(through)),
        queue_(std::make_shared<WeftSerialQueue>(WeftQOS::Default)) {
    take(search->filesByHash, FilesKind::File);
    take(search->foldersByHash, FilesKind::Folder);
    // Sorted, because threads finish in any order: a scan of the same files must give the same tree.
    std::ranges::sort(groups_, [](const Group& a, const Group& b) {
      if (a.weight() != b.weight()) return a.weight() > b.weight();
      return a.twins.front().path < b.twins.front().path;
    });
  }

  void start() {
    if (!run_->changeTree([this] { clear(); })) return leaveTree();
    const std::size_t batches = (groups_.size() + kBatch - 1) / kBatch;
    const auto left = Countdown::from(
        batches, [self = shared_from_this()] { self->build(); }, queue_);
    for (std::size_t first = 0; first < groups_.size(); first += kBatch) {
      GlobalQueue::submit([self = shared_from_this(), left, first] {
        self->makeMembers(first);
        left->arrive();
      });
    }
  }

 private:
  /// Number of groups whose members one task makes.
  static constexpr std::size_t kBatch = 32;

  [[nodiscard]] CategoryInformation& category() { return run_->feature().categoryInfo[0]; }

  void take(DuplicatesByHash& twins, FilesKind kind) {
    for (auto& [hash, records] : twins) {
      if (records.size() > 1) groups_.push_back({kind, std::move(records), {}, {}});
    }
  }

  void clear() {
    if (run_->feature().categoryInfo.empty()) fatalStop("Index out of range", "the feature has no category");
    category().childrens.clear();
    resetChildCategories(category(), titles_);
  }

  void makeMembers(std::size_t first) {
    const std::size_t last = std::min(first + kBatch, groups_.size());
    for (std::size_t i = first; i < last && !run_->isStopped(); ++i) makeMembers(groups_[i]);
  }

  void makeMembers(Group& group) {
    dropOtherMounts(group.twins);
    for (const DuplicateInfo& twin : group.twins) {
      // Made without the category, whose children may belong to a newer scan: the member is numbered in its
      // group.
      Ref<FileInformation> member = SuperScanService::getFileInformationFromUrl(twin.path, kMemberKeys);
      if (!member) continue;
      member->parentCategoryInfo = Ref<CategoryInformation>(category());
      group.members.push_back(std::move(member));
    }
    if (group.kind == FilesKind::File && !group.members.empty())
      group.kinds = kindsOfFile(*group.members.front());
  }

  /// Runs on the queue, when all members exist.
  void build() {
    for (Group& group : groups_) {
      if (group.members.size() > 1) addHeader(group);
      group = {};
    }
    const auto fill = [this] {
      for (const auto& [header, kinds] : headers_) {
        addToChildCategories(category(), header, kinds);
        category().childrens.push_back(header);
      }
    };
    if (!run_->changeTree(fill)) return leaveTree();
    through_(std::to_string(headers_.size()) + " groups, " + std::to_string(total_) + " bytes");
    run_->finish(total_);
  }

  /// The tree belongs to a newer scan, which has stopped this one.
  void leaveTree() { std::ignore = run_->endsByStop(); }

  void addHeader(Group& group) {
    const FileInformation& first = *group.members.front();
    const Ref<FileInformation> header =
        makeGroupHeader(category(), {headers_.size(), first.title, first.icon, group.kind});
    addGroupMembers(header, group.members);
    total_ = checkedAdd(total_, header->size);
    headers_.emplace_back(header, group.kind == FilesKind::File ? std::move(group.kinds) : kindsOf(*header));
  }

  std::shared_ptr<FinderRun> run_;
  const DuplicateTitles& titles_;
  StageThrough through_;
  std::shared_ptr<WeftSerialQueue> queue_;
  std::vector<Group> groups_;
  std::vector<std::pair<Ref<FileInformation>, std::vector<Integer>>> headers_;  // with their rows
  std::int64_t total_ = 0;
};

}  // namespace

void buildDuplicateTree(const DuplicateSearchRef& search, const DuplicateTitles& titles,
                        StageThrough through) {
  std::make_shared<DuplicateTree>(search, titles, std::move(through))->start();
}

}  // namespace sorrel
