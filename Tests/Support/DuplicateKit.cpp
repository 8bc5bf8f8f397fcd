#include "Tests/Support/DuplicateKit.hpp"

#include <unistd.h>

#include <utility>

#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"

namespace sorrel::test {

DuplicateFixture::DuplicateFixture() {
  SuperScanService::scanStatus.resetForTesting();
  volume.install();
  LogService::resetForTesting();
  DuplicateScanService::limitSize = 0;
  DuplicateScanService::childrenCateogryDict = {{0, "File"},    {1, "Folder"}, {2, "Document"}, {3, "Media"},
                                                {4, "Picture"}, {5, "Other"},  {6, "Archive"}};
  feature = makeFeature(kFeature, {{CategoryInfomationKind::Common, {}}});
}

DuplicateFixture::~DuplicateFixture() {
  SuperScanService::percentService.exchange(nullptr);  // it reports to a record that is destroyed now
  DuplicateScanService::limitSize = 512;
  DuplicateScanService::findsEveryEqualPair = false;
  DuplicateScanService::ignoresFoldersWithoutHashes = false;
  DuplicateScanService::childrenCateogryDict.clear();
}

void DuplicateFixture::start(ScanRecord& record, const std::vector<URL>& paths) {
  DuplicateScanService::scanDuplicate(*feature, paths, record.progress(), record.percent(),
                                      record.singleDone(), record.treeDone(), record.queue,
                                      WeftQOS::UserInitiated);
}

DuplicateGroups DuplicateFixture::groupsBelow(std::string_view place) const {
  DuplicateGroups found;
  for (const FileInformation& header : all().childrens)
    found.push_back(namesOf(header.childrens.refs(), volume.url(place)));
  return found;
}

std::vector<Integer> DuplicateFixture::rowsOf(std::size_t group) const {
  std::vector<Integer> rows;
  for (const CategoryInformation& row : *all().childrenCateogry) {
    for (const FileInformation& header : row.childrens)
      if (&header == &all().childrens[group]) rows.push_back(row.finderID);
  }
  return rows;
}

std::string DuplicateFixture::logText() {
  LogService::shard().flushForTesting();
  return contentOf(LogService::shard().logPath.path());
}

void DuplicateScan::run(const std::vector<URL>& paths) {
  start(scan, paths);
  ASSERT_TRUE(scan.waitUntilDone());
}

void DuplicateScan::runDataAsPlainUser() {
  volume.setMode(".", 0755);
  const uid_t own = ::geteuid();
  ASSERT_EQ(::seteuid(own == 0 ? kPlainUser : own), 0);
  runData();
  ASSERT_EQ(::seteuid(own), 0);
}

void CountingQueue::submit(Task task, Failure failure) {
  if (++count == number) act();
  RecordingQueue::submit(std::move(task), std::move(failure));
}

DuplicateStages::DuplicateStages() {
  StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
  scan.queue = queue;
}

DuplicateStages::~DuplicateStages() {
  SuperScanService::scanStatus.resetForTesting();
  StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
}

void DuplicateStages::start(ScanRecord& record, std::string_view place) {
  DuplicateFixture::start(record, {volume.url(place)});
}

void DuplicateStages::run() {
  start(scan);
  ASSERT_TRUE(scan.waitUntilDone());
  if (!percent) percent = SuperScanService::percentService.get();
}

void DuplicateStages::stop() {
  percent = SuperScanService::percentService.get();  // which releases it now
  SuperScanService::stopScan(*feature);
}

void DuplicateStages::runWithAStopAt(int submission) {
  queue->number = submission;
  queue->act = [this] { stop(); };
  run();
}

void DuplicateStages::analyse(DuplicatesBySize files, DuplicatesBySize folders,
                              std::shared_ptr<PercentService> bar) {
  DuplicateScanService::analysisDataForDuplicate(
      std::move(files), std::move(folders), *feature, scan.progress(), scan.percent(), scan.singleDone(),
      scan.treeDone(), scan.queue, std::move(bar), WeftQOS::UserInitiated);
  waitForDone();
}

void DuplicateStages::organise(DuplicatesByHash files, DuplicatesByHash folders) {
  DuplicateScanService::organizeDataForDuplicate(std::move(files), std::move(folders), *feature,
                                                 scan.progress(), scan.percent(), scan.singleDone(),
                                                 scan.treeDone(), scan.queue, nullptr);
  waitForDone();
}

void DuplicateStages::waitForDone() {
  ASSERT_TRUE(runMainLoopUntil([this] { return scan.doneCount > 0; }));
  drainMainQueue();
}

DuplicateInfo DuplicateStages::file(const std::string& name, std::string_view content) const {
  return {1,
          static_cast<Integer>(content.size()),
          URL::fileURL(volume.file(std::string(kData) + name, content), false),
          true,
          {}};
}

DuplicateInfo DuplicateStages::folder(const std::string& name, std::string_view content,
                                      const std::vector<std::int64_t>& below) const {
  volume.file(std::string(kData) + name + "/x", content);
  auto walk = std::make_shared<WalkedSizes>();
  for (const std::int64_t size : below) walk->folders.push_back({size, walk->folders.size()});
  return {1, static_cast<Integer>(content.size()), volume.url(std::string(kData) + name + "/"), false,
          SubfolderSizes(walk, 0, below.size())};
}

void DuplicateStages::twinFolders() const {
  for (const std::string top : {"One/", "Two/"}) volume.file(std::string(kData) + top + "a", "aaaa");
}

void DuplicateStages::twinFiles() const {
  for (const std::string name : {"x", "y"}) volume.file(std::string(kData) + name, "same");
}

void DuplicateStages::expectStoppedWithoutATree() const {
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_TRUE(all().childrens.empty());
  EXPECT_FALSE(all().childrenCateogry.has_value());
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
  const std::string text = logText();
  EXPECT_NE(text.find("DuplicateScanService stopDuplicate Supend\n"), std::string::npos);
  EXPECT_EQ(text.find("DuplicateScanService Finish"), std::string::npos);
}

}  // namespace sorrel::test
