#include "Tests/Support/CleanKit.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <any>
#include <map>
#include <utility>

#include "SorrelFramework/Clean/FileRemover.hpp"
#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TreeRemoval.hpp"

namespace sorrel::test {

Ref<FileInformation> makeRecord(const RecordSketch& sketch) {
  const Integer kind = rawValue(sketch.childrens.empty() ? FilesKind::File : FilesKind::Folder);
  return makeRef<FileInformation>(sketch.state, sketch.finderID, 0, sketch.url.lastPathComponent(), Image(),
                                  sketch.size, Date{0}, sketch.url, "", sketch.canDelete, false, std::any(),
                                  Children<FileInformation>(sketch.childrens), Ref<CategoryInformation>(),
                                  kind, 0);
}

Ref<CategoryInformation> makeCategory(const Ref<FeatureInformation>& feature, Integer state,
                                      const std::vector<Ref<FileInformation>>& records,
                                      bool needRemoveCategory) {
  return makeRef<CategoryInformation>(
      state, 77, "category", Image(), 0, "", rawValue(CategoryInfomationKind::Common), std::vector<URL>(),
      Children<FileInformation>(records), feature, std::any(), 0, needRemoveCategory);
}

void FinishRecord::cleanFinished(const std::vector<Ref<CategoryInformation>>& allCategorys, std::int64_t size,
                                 const FileRecords& abnormalFiles, Integer status, const std::string& desc) {
  const std::lock_guard lock(mutex_);
  finishes.push_back({allCategorys, size, abnormalFiles, status, desc});
  thread = std::this_thread::get_id();
  finished_.notify_all();
}

void FinishRecord::cleanProgress(float percent) {
  const std::lock_guard lock(mutex_);
  percents.push_back(percent);
  if (onProgress) onProgress(percent);
}

bool FinishRecord::waitUntilFinished() {
  std::unique_lock lock(mutex_);
  return finished_.wait_for(lock, kPatience, [this] { return !finishes.empty(); });
}

std::size_t FinishRecord::finishCount() {
  const std::lock_guard lock(mutex_);
  return finishes.size();
}

ScriptedHelper::Answer deletingWhere(std::function<bool(const std::string& path)> removes) {
  return [removes = std::move(removes)](const ScriptedHelper::Event& event) {
    ScriptedHelper::Reply reply{false, 12, event.dictionary};
    for (auto& [path, value] : *reply.dictionary) {
      const bool isAbsent = !statusOf(path).has_value();
      const bool isDeleted = isAbsent || (removes(path) && removeTree(path));
      HelperDictionary& entry = *value.asDictionary();
      entry.insert_or_assign("DeleteStatus",
                             static_cast<std::int64_t>(isDeleted ? HelperEventErrorID::Success
                                                                 : HelperEventErrorID::DeleteError));
      entry.insert_or_assign("DeleteDesc", isDeleted ? "" : "refused");
    }
    return std::optional(reply);
  };
}

std::vector<std::string> goneBetween(const std::vector<TreeEntry>& before,
                                     const std::vector<TreeEntry>& after) {
  const auto withoutFolderTimes = [](TreeEntry entry) {
    if (S_ISDIR(entry.mode)) entry.size = entry.modifiedSeconds = entry.modifiedNanoseconds = 0;
    return entry;
  };
  std::map<std::string, TreeEntry> left;
  for (const TreeEntry& entry : after) left.emplace(entry.path, withoutFolderTimes(entry));
  std::vector<std::string> gone;
  for (const TreeEntry& entry : before) {
    const auto found = left.find(entry.path);
    if (found == left.end()) {
      gone.push_back(entry.path);
    } else {
      EXPECT_EQ(found->second, withoutFolderTimes(entry));
      left.erase(found);
    }
  }
  EXPECT_TRUE(left.empty()) << left.begin()->first << " is new";
  return gone;
}

CleanStage::CleanStage() : feature(makeFeature(1, {})) {
  // As in an application that cleans duplicates.
  for (Integer kind = 0; kind < 7; ++kind) {
    DuplicateScanService::childrenCateogryDict[kind] = "Kind " + std::to_string(kind);
  }
  volume.install();
  setHelper(nullptr);
}

CleanStage::~CleanStage() {
  DuplicateScanService::childrenCateogryDict.clear();
  PrivilegeHelper::shard().useSystem();
  FileRemover::shard().setRemoveForTesting({});
}

void CleanStage::setHelper(const std::shared_ptr<HelperProtocol>& helper) {
  PrivilegeHelper::shard().use(std::make_shared<ScriptedInstallation>("", true),
                               [this, helper](const std::string& name) -> std::shared_ptr<HelperConnection> {
                                 helperNames.push_back(name);
                                 if (helper == nullptr) return nullptr;
                                 return std::make_shared<ScriptedConnection>(helper);
                               });
}

void CleanStage::refuseHelper() {
  // A path that never exists: the installation is attempted each time, and refused.
  const auto installation = std::make_shared<ScriptedInstallation>("/dev/null/no-folder");
  installation->setOutcome(PrivilegeInstallResult::getAdmainFail);
  PrivilegeHelper::shard().use(installation, [](const std::string&) { return nullptr; });
}

void CleanStage::failRemoving(std::vector<std::string> paths, int error) {
  FileRemover::shard().setRemoveForTesting(
      [this, paths = std::move(paths), error](const std::string& path, const RemovalPolicy& policy) {
        tried.push_back(path);
        if (std::ranges::find(paths, path) == paths.end()) return removeItem(path, policy);
        RemovalResult result;
        result.error = error;
        return result;
      });
}

}  // namespace sorrel::test
