#include "Host/CleanSession.hpp"

#include <cstdlib>
#include <iostream>
#include <memory>
#include <utility>

#include "Host/CleanProgress.hpp"
#include "Host/ExitStatus.hpp"
#include "Host/StopSwitch.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "SorrelFramework/Model/FileInfo.hpp"
#include "SorrelFramework/Platform/Queues/MainQueue.hpp"
#include "SorrelFramework/Selection/RecordHolders.hpp"

namespace sorrel::cli {
namespace {

/// The last progress, after the deletions and before the repair of the tree.
constexpr float kDeletionsOver = 0.75F;

/// The topmost records that have a status: a fresh scan has given them none.
void collectHanded(Children<FileInformation>& records, FileRecords& handed) {
  for (FileInformation& record : records) {
    if (record.deleteStatus != rawValue(DeleteStatus::None)) {
      handed.emplace_back(record);
    } else {
      collectHanded(record.childrens, handed);
    }
  }
}

/// Collects the callbacks of one clean, which come one after the other on background threads; the main thread
/// reads them when its loop has ended.
class Listener : public CleanServiceProtocol {
 public:
  Listener(Ref<FeatureInformation> feature, HandedFunc onDeleted)
      : feature_(std::move(feature)), onDeleted_(std::move(onDeleted)) {}

  void cleanProgress(float percent) override {
    result_.progress.push_back(percent);
    if (percent >= kDeletionsOver) tellHanded();
  }

  void cleanFinished(const std::vector<Ref<CategoryInformation>>& allCategorys, std::int64_t size,
                     const FileRecords& abnormalFiles, Integer status, const std::string& desc) override {
    tellHanded();
    categories_ = allCategorys;
    result_.size = size;
    result_.abnormalFiles = abnormalFiles;
    result_.status = status;
    result_.desc = desc;
    MainQueue::post([] { MainQueue::quit(); });
  }

  [[nodiscard]] const std::vector<Ref<CategoryInformation>>& categories() const { return categories_; }
  CleanResult takeResult() { return std::move(result_); }

 private:
  /// Runs once; a clean that ends early reports no progress.
  void tellHanded() {
    if (isTold_) return;
    isTold_ = true;
    FileRecords handed;
    for (CategoryInformation* const holder : recordHolders(*feature_))
      collectHanded(holder->childrens, handed);
    onDeleted_(handed);
  }

  Ref<FeatureInformation> feature_;
  HandedFunc onDeleted_;
  bool isTold_ = false;
  std::vector<Ref<CategoryInformation>> categories_;
  CleanResult result_;
};

/// The categories that the clean returns replace those that it was given; a feature with one category has it
/// repaired in place.
void takeRepairedTree(const Cleaner& cleaner, FeatureInformation& feature,
                      const std::vector<Ref<CategoryInformation>>& categories) {
  if (cleaner.shape == TreeShape::Categories)
    feature.categoryInfo = Children<CategoryInformation>(categories);
  feature.state = NSControlStateValueOff;
}

/// While the helper works, its replies decide what was removed, and the clean ends with them.
void stopClean() {
  if (PrivilegeHelper::shard().stopEvents()) return;
  std::cerr << "sorrel: stopped. What was removed until now is gone, the rest was left as it is."
            << std::endl;
  std::_Exit(static_cast<int>(ExitStatus::Stopped));
}

}  // namespace

std::optional<CleanResult> runClean(const Cleaner& cleaner, const Ref<FeatureInformation>& feature,
                                    StopSwitch& stop, CleanProgress& progress, HandedFunc onDeleted) {
  const auto listener = std::make_shared<Listener>(feature, std::move(onDeleted));
  bool isStarted = false;
  stop.setAction({});
  // After a Ctrl-C that waits on the main queue.
  MainQueue::post([&] {
    if (stop.isPulled()) return MainQueue::quit();
    isStarted = true;
    stop.setAction([&progress] {
      progress.end();
      stopClean();
    });
    progress.begin();
    cleaner.start(cleaner, feature, listener);
  });
  MainQueue::run();
  stop.setAction({});
  progress.end();
  if (!isStarted) return std::nullopt;
  takeRepairedTree(cleaner, *feature, listener->categories());
  return listener->takeResult();
}

}  // namespace sorrel::cli
