#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "SorrelFramework/Clean/CleanService.hpp"
#include "SorrelFramework/Clean/TreeRepair.hpp"
#include "SorrelFramework/HelpTool/HelperProtocol.hpp"
#include "Tests/Support/ScriptedHelper.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

inline constexpr Integer kOn = NSControlStateValueOn;
inline constexpr Integer kOff = NSControlStateValueOff;
inline constexpr Integer kMixed = NSControlStateValueMixed;
inline constexpr Integer kStatusNone = rawValue(DeleteStatus::None);
inline constexpr Integer kDeleteing = rawValue(DeleteStatus::Deleteing);
inline constexpr Integer kDeleteSuccess = rawValue(DeleteStatus::DeleteSuccess);
inline constexpr Integer kDeleteError = rawValue(DeleteStatus::DeleteError);

/// A record under test.
struct RecordSketch {
  URL url;
  Integer state = NSControlStateValueOn;
  std::int64_t size = 0;
  bool canDelete = true;
  std::vector<Ref<FileInformation>> childrens = {};
  Integer finderID = 0;
};
Ref<FileInformation> makeRecord(const RecordSketch& sketch);

/// A category of `feature`, with these records.
Ref<CategoryInformation> makeCategory(const Ref<FeatureInformation>& feature, Integer state,
                                      const std::vector<Ref<FileInformation>>& records,
                                      bool needRemoveCategory = false);

/// Records the callbacks of a clean.
class FinishRecord : public CleanServiceProtocol {
 public:
  struct Finish {
    std::vector<Ref<CategoryInformation>> allCategorys;
    std::int64_t size;
    FileRecords abnormalFiles;
    Integer status;
    std::string desc;
  };

  void cleanFinished(const std::vector<Ref<CategoryInformation>>& allCategorys, std::int64_t size,
                     const FileRecords& abnormalFiles, Integer status, const std::string& desc) override;
  void cleanProgress(float percent) override;

  /// Waits for cleanFinished; false after kPatience.
  [[nodiscard]] bool waitUntilFinished();
  [[nodiscard]] std::size_t finishCount();

  std::function<void(float percent)> onProgress;
  // Read by the test when the clean has ended.
  std::vector<float> percents;
  std::vector<Finish> finishes;
  std::thread::id thread;

 private:
  std::mutex mutex_;
  std::condition_variable finished_;
};

/// While it lives, a clean of large and old files does not repair the tree: for categories without the rows
/// that its repair needs.
class UnrepairedLargeFiles {
 public:
  UnrepairedLargeFiles() : repair_(registerTreeRepair(CleanServiceType::LargeAndOldFile, nullptr)) {}
  ~UnrepairedLargeFiles() { registerTreeRepair(CleanServiceType::LargeAndOldFile, repair_); }
  UnrepairedLargeFiles(const UnrepairedLargeFiles&) = delete;
  UnrepairedLargeFiles& operator=(const UnrepairedLargeFiles&) = delete;

 private:
  TreeRepairFunc repair_;
};

/// The answer of a helper that really deletes the paths that `removes` accepts; an absent item counts as
/// deleted, and the others get "refused". The flag and the code are meaningless.
ScriptedHelper::Answer deletingWhere(std::function<bool(const std::string& path)> removes);

/// Paths that were removed between two snapshots. The rest must be unchanged, except times and sizes of
/// folders, and there must be no new items.
std::vector<std::string> goneBetween(const std::vector<TreeEntry>& before,
                                     const std::vector<TreeEntry>& after);

/// A volume that is installed as the host, and the replaced parts of a clean, which are restored at the end.
class CleanStage {
 public:
  CleanStage();
  ~CleanStage();
  CleanStage(const CleanStage&) = delete;
  CleanStage& operator=(const CleanStage&) = delete;

  /// The helper that PrivilegeHelper::shard() returns as an installed one; null, the initial value, for none.
  void setHelper(const std::shared_ptr<HelperProtocol>& helper);
  /// The same with a user who refuses to install a helper.
  static void refuseHelper();
  /// These paths fail with that errno for this process; the others are removed as always. All attempted paths
  /// are in `tried`.
  void failRemoving(std::vector<std::string> paths, int error);

  TemporaryVolume volume;
  Ref<FeatureInformation> feature;
  // Written by the clean, read by the test when it has ended.
  std::vector<std::string> helperNames;  ///< requested helpers
  std::vector<std::string> tried;
};

/// Shared by tests of a clean: a stage, a listener, and the parts of a clean.
class CleanFixture : public testing::Test {
 protected:
  using Records = std::vector<Ref<FileInformation>>;
  using Categorys = std::vector<Ref<CategoryInformation>>;

  [[nodiscard]] Ref<CategoryInformation> category(Integer state, const Records& records,
                                                  bool needRemove = false) const {
    return makeCategory(stage_.feature, state, records, needRemove);
  }
  [[nodiscard]] std::shared_ptr<HelperCleanService> makeService(
      const Categorys& categorys = {}, CleanServiceType type = CleanServiceType::Common) const {
    return std::make_shared<HelperCleanService>(finish_, type, categorys);
  }
  [[nodiscard]] std::string path(const std::string& name) const { return stage_.volume.path(name); }

  CleanStage stage_;
  std::shared_ptr<FinishRecord> finish_ = std::make_shared<FinishRecord>();
};

}  // namespace sorrel::test
