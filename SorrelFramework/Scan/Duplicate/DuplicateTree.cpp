#include "SorrelFramework/Scan/Duplicate/DuplicateTree.hpp"

#include <algorithm>
#include <atomic>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/CheckedMath.hpp"
#include "SorrelFramework/Platform/Base/Date.hpp"
#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateCategories.hpp"

namespace sorrel {
namespace {

/// One hash with its members.
struct Group {
  FilesKind kind;
  std::vector<DuplicateInfo> twins;
  FileRecords members;
  std::vector<Integer> kinds;

  /// Bytes of all members, for the order of the groups.
  [[nodiscard]] std::int64_t weight() const {
    std::int64_t bytes = 0;
    if (__builtin_mul_overflow(twins.front().fileSize, static_cast<std::int64_t>(twins.size()), &bytes))
      return INT64_MAX;
    return bytes;
  }
};

class DuplicateTree : public std::enable_shared_from_this<DuplicateTree> {
 public:
  DuplicateTree(std::shared_ptr<FinderRun> run, DuplicatesByHash files, DuplicatesByHash folders)
      : run_(std::move(run)), queue_(std::make_shared<WeftSerialQueue>(WeftQOS::Default)) {
    take(files, FilesKind::File);
    take(folders, FilesKind::Folder);
    // Not in the order in which threads come to an end: a scan of the same files gives the same tree.
    std::ranges::sort(groups_, [](const Group& a, const Group& b) {
      if (a.weight() != b.weight()) return a.weight() > b.weight();
      return a.twins.front().path < b.twins.front().path;
    });
  }

  void start() {
    if (!run_->changeTree([this] { clear(); })) return leaveTree();
    left_ = (groups_.size() + kBatch - 1) / kBatch;
    if (left_ == 0) return submitWithRetry(queue_, [self = shared_from_this()] { self->build(); });
    for (std::size_t first = 0; first < groups_.size(); first += kBatch) {
      GlobalQueue::submit([self = shared_from_this(), first] { self->makeMembers(first); });
    }
  }

 private:
  /// Groups whose members one task makes.
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
    resetChildCategories(category());
  }

  void makeMembers(std::size_t first) {
    const std::size_t last = std::min(first + kBatch, groups_.size());
    for (std::size_t i = first; i < last && !run_->isStopped(); ++i) makeMembers(groups_[i]);
    submitWithRetry(queue_, [self = shared_from_this()] {
      if (--self->left_ == 0) self->build();
    });
  }

  void makeMembers(Group& group) {
    dropOtherMounts(group.twins);
    for (const DuplicateInfo& twin : group.twins) {
      // Without the category, whose children may belong to a newer scan: the member is numbered in its group.
      Ref<FileInformation> member = SuperScanService::getFileInformationFromUrl(twin.path, kMemberKeys);
      if (!member) continue;
      member->parentCategoryInfo = Ref<CategoryInformation>(category());
      group.members.push_back(std::move(member));
    }
    if (group.kind == FilesKind::File && !group.members.empty())
      group.kinds = DuplicateScanService::sortFile(*group.members.front());
  }

  /// On the queue, when all members are there.
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
    run_->finish(total_);
  }

  /// The tree belongs to a newer scan, which has stopped this one.
  void leaveTree() { std::ignore = run_->endsByStop(); }

  void addHeader(Group& group) {
    const Ref<FileInformation> header = makeHeader(group);
    Integer index = 0;
    for (const Ref<FileInformation>& member : group.members) {
      member->parentFileInfo = header;
      member->parentFinderID = header->finderID;
      member->finderID = index++;
      header->size = checkedAdd(header->size, member->size);
      header->childrens.push_back(member);
    }
    total_ = checkedAdd(total_, header->size);
    headers_.emplace_back(header, group.kind == FilesKind::File ? std::move(group.kinds) : kindsOf(*header));
  }

  Ref<FileInformation> makeHeader(const Group& group) {
    CategoryInformation& category = this->category();
    const FileInformation& first = *group.members.front();
    return makeRef<FileInformation>(NSControlStateValueOff, static_cast<Integer>(headers_.size()),
                                    category.finderID, first.title, first.icon, 0, Date::now(), URL(), "",
                                    true, false, std::any{}, Children<FileInformation>{},
                                    Ref<CategoryInformation>(category), rawValue(group.kind), 0);
  }

  std::shared_ptr<FinderRun> run_;
  std::shared_ptr<WeftSerialQueue> queue_;
  std::vector<Group> groups_;
  std::size_t left_ = 0;  // batches; changes on the queue alone
  std::vector<std::pair<Ref<FileInformation>, std::vector<Integer>>>
      headers_;  // with the rows they belong to
  std::int64_t total_ = 0;
};

}  // namespace

void organizeDuplicates(const std::shared_ptr<FinderRun>& run, DuplicatesByHash files,
                        DuplicatesByHash folders) {
  if (run->endsByStop()) return;
  std::make_shared<DuplicateTree>(run, std::move(files), std::move(folders))->start();
}

}  // namespace sorrel
