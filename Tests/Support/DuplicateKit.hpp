#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {

/// Paths of the members of each group.
using DuplicateGroups = std::vector<std::vector<std::string>>;

/// The fixture of every test of the search for duplicates: a volume, its feature with the number 7 and one
/// category, a limit of 0, and a title for each kind.
class DuplicateFixture : public testing::Test {
 protected:
  static constexpr Integer kFeature = 7;

  DuplicateFixture();
  ~DuplicateFixture() override;

  void start(ScanRecord& record, const std::vector<URL>& paths);
  [[nodiscard]] CategoryInformation& all() const { return feature->categoryInfo[0]; }
  /// Members' paths below the folder.
  [[nodiscard]] DuplicateGroups groupsBelow(std::string_view place) const;
  /// Kinds of the rows that contain the group.
  [[nodiscard]] std::vector<Integer> rowsOf(std::size_t group) const;
  [[nodiscard]] static std::string logText();

  TemporaryVolume volume;
  ScanRecord scan;
  Ref<FeatureInformation> feature;
};

/// For whole scans, mostly of the folder Data in the home.
class DuplicateScan : public DuplicateFixture {
 protected:
  void run(const std::vector<URL>& paths);
  void runHome() { run({volume.url("Users/alice/")}); }
  void runData() { run({volume.url("Users/alice/Data/")}); }
  /// All threads of the process act as a user without special permissions.
  void runDataAsPlainUser();

  /// Paths below the home.
  [[nodiscard]] DuplicateGroups groups() const { return groupsBelow("Users/alice/"); }
};

/// Runs an action when the submission of a certain number arrives.
class CountingQueue : public RecordingQueue {
 public:
  void submit(Task task, Failure failure) override;

  std::function<void()> act;
  int number = 0;
  std::atomic<int> count{0};
};

/// For single stages, and for events between two of them.
class DuplicateStages : public DuplicateFixture {
 protected:
  static constexpr std::string_view kData = "Users/alice/Data/";

  DuplicateStages();
  ~DuplicateStages() override;

  void start(ScanRecord& record, std::string_view place = kData);
  void run();
  void stop();
  /// Stops at the submission of that number to the queue.
  void runWithAStopAt(int submission);
  [[nodiscard]] std::int64_t steps() const { return percent->currentStep; }

  void analyse(DuplicatesBySize files, DuplicatesBySize folders,
               std::shared_ptr<PercentService> bar = nullptr);
  void organise(DuplicatesByHash files, DuplicatesByHash folders);
  void waitForDone();

  [[nodiscard]] DuplicateInfo file(const std::string& name, std::string_view content) const;
  /// A folder with one file, and with folders of these sizes, as computed sizes, below it.
  [[nodiscard]] DuplicateInfo folder(const std::string& name, std::string_view content,
                                     const std::vector<std::int64_t>& below = {}) const;
  void twinFolders() const;
  void twinFiles() const;

  /// Paths below the folder Data.
  [[nodiscard]] DuplicateGroups groups() const { return groupsBelow(kData); }
  void expectStoppedWithoutATree() const;

  std::shared_ptr<CountingQueue> queue = std::make_shared<CountingQueue>();
  std::shared_ptr<PercentService> percent;
};

}  // namespace sorrel::test
