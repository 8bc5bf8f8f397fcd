#include "SorrelFramework/Scan/TreeWalk.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

using test::makeFeature;
using test::namesOf;
using test::recordNamed;
using test::ScanVolume;
using Names = std::vector<std::string>;

constexpr Integer kFeature = 3;
constexpr Integer kScanID = 33;

class Walk : public testing::Test {
 protected:
  Walk() { SuperScanService::scanStatus.resetForTesting(); }

  /// Walks the folder "root/" of the volume on this thread.
  void run(EnumerationOptions options = 0, FilterFunc filter = {}, bool zeroItems = false) {
    runAt(volume.url("root/"), options, std::move(filter), zeroItems);
  }
  void runAt(const URL& url, EnumerationOptions options = 0, FilterFunc filter = {}, bool zeroItems = false) {
    SuperScanService::getListFromUrl(
        *feature, url, NSControlStateValueOn, keys, options, kScanID, errorHandler, std::move(filter),
        [this](const std::string& path, std::int64_t size) { progress.emplace_back(path, size); },
        [this](ScanFilesInformation found, FileRecords foundRecords) {
          totals = std::move(found);
          records = std::move(foundRecords);
          ++doneCount;
        },
        feature->categoryInfo[0], zeroItems);
    test::drainMainQueue();
  }
  [[nodiscard]] Names names() const { return namesOf(records, volume.url("root/")); }
  [[nodiscard]] Ref<FileInformation> record(std::string_view name) const {
    return recordNamed(records, volume.url("root/"), name);
  }
  [[nodiscard]] std::int64_t sizeNow(std::string_view name) const {
    return SuperScanService::calculateSize(volume.url("root/" + std::string(name)),
                                           rawValue(FilesKind::Folder));
  }

  ScanVolume volume;
  Ref<FeatureInformation> feature = makeFeature(kFeature, {{}});
  ResourceKeys keys = kRecordKeys;
  EnumerationErrorHandler errorHandler;
  ScanFilesInformation totals;
  FileRecords records;
  std::vector<std::pair<std::string, std::int64_t>> progress;
  int doneCount = 0;
};

TEST_F(Walk, parentsComeBeforeTheirChildrenAndChildrenByTheBytesOfTheirNames) {
  for (const char* name : {"root/b", "root/B", "root/a/z", "root/a/\xC3\xA4", "root/a.txt", "root/a/y/x"}) {
    volume.file(name, "1");
  }
  run();
  EXPECT_EQ(names(), (Names{"B", "a/", "a/y/", "a/y/x", "a/z", "a/\xC3\xA4", "a.txt", "b"}));
}

TEST_F(Walk, recordsAreNumberedInOrderFromZero) {
  for (const char* name : {"root/c", "root/a/b", "root/d"}) volume.file(name, "1");
  run();
  for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i]->finderID, static_cast<Integer>(i));
  EXPECT_EQ(records.size(), 4U);
}

TEST_F(Walk, recordHoldsWhatTheWalkKnows) {
  volume.file("root/Some.app/Contents/x", "4444");
  run(NSDirectoryEnumerationSkipsPackageDescendants);
  const auto app = record("Some.app/");
  ASSERT_TRUE(app);
  EXPECT_EQ(app->state, NSControlStateValueOn);
  EXPECT_EQ(app->parentFinderID, 1);
  EXPECT_EQ(app->title, "Some");
  EXPECT_EQ(app->icon, Image::iconOf(app->url));
  EXPECT_EQ(app->size, 4);
  EXPECT_TRUE(app->canDelete);
  EXPECT_FALSE(app->removeCategory);
  EXPECT_EQ(app->parentCategoryInfo.get(), &feature->categoryInfo[0]);
  EXPECT_EQ(app->fileKind, rawValue(FilesKind::Package));
  EXPECT_EQ(app->levelInt, 0);
  EXPECT_FALSE(app->parentFileInfo);
  EXPECT_EQ(app->hashValueString, "0:1:4:" + app->url.absoluteString());
}

TEST_F(Walk, dateIsThePresentMomentUnlessTheCreationDateWasAskedFor) {
  volume.file("root/a", "1");
  const Date before = Date::now();
  run();
  EXPECT_GE(records.at(0)->date, before);

  keys = keys | NSURLCreationDateKey;
  const auto created = resourceValues(volume.url("root/a"), NSURLCreationDateKey)->creationDate;
  ASSERT_TRUE(created);
  run();
  EXPECT_EQ(records.at(0)->date, *created);
}

TEST_F(Walk, withoutTheFolderKeysEveryItemCountsAsAFile) {
  volume.file("root/folder/a", "22");
  keys = NSURLFileSizeKey;
  run(0, {}, true);
  EXPECT_EQ(names(), (Names{"folder/", "folder/a"}));
  EXPECT_EQ(record("folder/")->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(record("folder/")->size, 0);
  EXPECT_EQ(totals.fileNumber, 2);
  EXPECT_EQ(totals.folderNumber, 0);
}

// Sizes and totals

TEST_F(Walk, everyFolderHasTheSizeThatASizingOfItsOwnFinds) {
  volume.file("root/a", "1");
  volume.file("root/one/.hidden", "22");
  volume.file("root/one/.hiddenFolder/x/y", "333");
  volume.file("root/one/two/Some.app/Contents/z", "4444");
  volume.file("root/one/two/three/b", "55555");
  ASSERT_EQ(::symlink("b", volume.path("root/one/two/three/link").c_str()), 0);
  run(NSDirectoryEnumerationSkipsHiddenFiles | NSDirectoryEnumerationSkipsPackageDescendants);
  EXPECT_EQ(names(), (Names{"a", "one/", "one/two/", "one/two/Some.app/", "one/two/three/", "one/two/three/b",
                            "one/two/three/link"}));
  for (const char* folder : {"one/", "one/two/", "one/two/Some.app/", "one/two/three/"}) {
    EXPECT_EQ(record(folder)->size, sizeNow(folder)) << folder;
  }
  EXPECT_EQ(record("one/")->size, 2 + 3 + 4 + 5 + 1);
}

TEST_F(Walk, prunedFolderIsSizedAsAWhole) {
  volume.file("root/one/two/b", "55555");
  volume.file("root/one/.c", "1");
  run(NSDirectoryEnumerationSkipsHiddenFiles,
      [](const URL&, const ResourceValues&, EnumerationPosition* position) {
        position->skipDescendants();
        return true;
      });
  EXPECT_EQ(names(), Names{"one/"});
  EXPECT_EQ(record("one/")->size, 6);
}

TEST_F(Walk, totalsCountFoldersAndFilesApart) {
  volume.file("root/a", "1");
  volume.file("root/one/b", "22");
  volume.folder("root/empty");
  run();
  EXPECT_EQ(totals.url, volume.url("root/"));
  EXPECT_EQ(totals.fileSize, 3);
  EXPECT_EQ(totals.fileNumber, 2);
  EXPECT_EQ(totals.folderSize, 2);
  EXPECT_EQ(totals.folderNumber, 2);
}

TEST_F(Walk, emptyItemsAreCountedButMakeNoRecord) {
  volume.folder("root/empty");
  volume.file("root/zero", "");
  run();
  EXPECT_EQ(names(), Names{});
  EXPECT_EQ(totals.folderNumber, 1);
  EXPECT_EQ(totals.fileNumber, 1);
  EXPECT_EQ(progress.size(), 2U);
}

TEST_F(Walk, emptyItemsMakeRecordsWhereTheyAreWanted) {
  volume.folder("root/empty");
  volume.file("root/zero", "");
  run(0, {}, true);
  EXPECT_EQ(names(), (Names{"empty/", "zero"}));
  EXPECT_EQ(record("zero")->finderID, 1);
}

// Filter

TEST_F(Walk, itemThatTheFilterDropsIsNeitherRecordedNorCountedButStillEntered) {
  volume.file("root/one/keep", "22");
  volume.file("root/drop", "1");
  run(0, [](const URL& url, const ResourceValues&, EnumerationPosition*) {
    return url.lastPathComponent() == "keep";
  });
  EXPECT_EQ(names(), Names{"one/keep"});
  EXPECT_EQ(totals.fileNumber, 1);
  EXPECT_EQ(totals.folderNumber, 0);
  EXPECT_EQ(progress.size(), 1U);
}

TEST_F(Walk, filterThatDropsAFolderMayKeepTheWalkOutOfIt) {
  volume.file("root/one/a", "22");
  volume.file("root/two/a", "22");
  run(0, [](const URL& url, const ResourceValues&, EnumerationPosition* position) {
    if (url.lastPathComponent() != "one") return true;
    position->skipDescendants();
    return false;
  });
  EXPECT_EQ(names(), (Names{"two/", "two/a"}));
}

TEST_F(Walk, filterSeesValuesAndTheLevelCountedFromOne) {
  volume.file("root/a/b/c", "1");
  std::mutex mutex;
  std::map<std::string, int> levels;
  run(0, [&](const URL& url, const ResourceValues& values, EnumerationPosition* position) {
    const std::lock_guard lock(mutex);
    EXPECT_EQ(values.isDirectory, url.lastPathComponent() != "c");
    EXPECT_EQ(values.path, std::nullopt);
    levels[url.lastPathComponent()] = position->level();
    return true;
  });
  EXPECT_EQ(levels, (std::map<std::string, int>{{"a", 1}, {"b", 2}, {"c", 3}}));
}

TEST_F(Walk, optionForOneLevelLeavesSubfoldersUnenteredButSized) {
  volume.file("root/a/b/c", "1");
  run(NSDirectoryEnumerationSkipsSubdirectoryDescendants);
  EXPECT_EQ(names(), Names{"a/"});
  EXPECT_EQ(record("a/")->size, 1);
}

// Progress

TEST_F(Walk, progressTellsPathAndOwnSizeOfEachKeptItem) {
  volume.file("root/a b", "22");
  volume.file("root/folder/c", "1");
  run();
  std::sort(progress.begin(), progress.end());
  EXPECT_EQ(progress, (std::vector<std::pair<std::string, std::int64_t>>{{volume.path("root/a b"), 2},
                                                                         {volume.path("root/folder/"), 0},
                                                                         {volume.path("root/folder/c"), 1}}));
}

// Roots

TEST_F(Walk, rootThatIsAPlainFileIsRecordedWithoutAQuestionToTheFilter) {
  volume.file("root", "333");
  runAt(volume.url("root"), 0, [](const URL&, const ResourceValues&, EnumerationPosition*) { return false; });
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0]->url, volume.url("root"));
  EXPECT_EQ(records[0]->size, 3);
  EXPECT_EQ(records[0]->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(records[0]->state, NSControlStateValueOn);
  EXPECT_TRUE(records[0]->canDelete);
  EXPECT_EQ(totals.fileSize, 3);
  EXPECT_EQ(totals.fileNumber, 1);
  EXPECT_EQ(progress, (std::vector<std::pair<std::string, std::int64_t>>{{volume.path("root"), 3}}));
}

TEST_F(Walk, rootThatIsAnEmptyFileIsCountedWithoutARecord) {
  volume.file("root", "");
  runAt(volume.url("root"));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(totals.fileNumber, 1);
}

TEST_F(Walk, rootThatDoesNotExistGivesZeros) {
  run();
  EXPECT_EQ(doneCount, 1);
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(totals.url, volume.url("root/"));
  EXPECT_EQ(totals.fileNumber + totals.folderNumber + totals.fileSize + totals.folderSize, 0);
}

TEST_F(Walk, rootThatIsAFifoIsNotOpened) {
  ASSERT_EQ(::mkfifo(volume.path("root").c_str(), 0600), 0);
  runAt(volume.url("root"));
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, rootThatIsALinkToAFolderIsEntered) {
  volume.file("elsewhere/a", "1");
  ASSERT_EQ(::symlink("elsewhere", volume.path("root").c_str()), 0);
  run();
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(Walk, rootThatLeadsOutOfTheVolumeIsNotEntered) {
  const test::TemporaryFolder outside;
  outside.file("a", "1");
  ASSERT_EQ(::symlink(outside.path().c_str(), volume.path("root").c_str()), 0);
  run();
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, locationThatIsNoFileGivesZeros) {
  runAt(*URL::parse("http://example.org/tmp/"));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(doneCount, 1);
}

TEST_F(Walk, pathWithoutASchemeGivesZeros) {
  volume.file("root/a", "1");
  runAt(*URL::parse(volume.path("root/")));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(doneCount, 1);
}

TEST_F(Walk, pathWithANULNamesNothing) {
  volume.file("root/a", "1");
  runAt(*URL::parse(volume.url("root").absoluteString() + "%00/b/"));
  EXPECT_TRUE(records.empty());
  EXPECT_EQ(doneCount, 1);
}

// What a disk may hold

TEST_F(Walk, linksAreItemsAndNeverEntered) {
  volume.file("root/folder/a", "1");
  ASSERT_EQ(::symlink("folder", volume.path("root/link").c_str()), 0);
  ASSERT_EQ(::symlink("..", volume.path("root/folder/up").c_str()), 0);
  run();
  EXPECT_EQ(names(), (Names{"folder/", "folder/a", "folder/up", "link"}));
  EXPECT_EQ(record("link")->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(record("link")->size, 6);
}

TEST_F(Walk, namesOfAnyBytesComeThrough) {
  const std::vector<std::string> odd = {"line\nfeed", "\xFF\xFE",           "%20", "-rf", "a:b",
                                        "#?;",        std::string(255, 'n')};
  for (const std::string& name : odd) volume.file("root/" + name, "1");
  run();
  auto expected = odd;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names(), expected);
  EXPECT_EQ(record("\xFF\xFE")->title, "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(record("\xFF\xFE")->url.path(), volume.path("root/\xFF\xFE"));
}

TEST_F(Walk, deepTreeNeedsFewOpenFiles) {
  std::string path = volume.folder("root");
  int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < 1000; ++level) {
    ASSERT_EQ(::mkdirat(folder, "d", 0700), 0);
    ASSERT_EQ(::mkdirat(folder, "side", 0700), 0);
    const int file = ::openat(folder, "side/f", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_EQ(::write(file, "x", 1), 1);
    ::close(file);
    const int below = ::openat(folder, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(folder);
    folder = below;
  }
  ::close(folder);

  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{256, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  run();
  EXPECT_EQ(sizeNow(""), 1000);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);

  EXPECT_EQ(totals.fileNumber, 1000);
  EXPECT_EQ(totals.folderNumber, 2000);
  ASSERT_EQ(records.size(), 2999U);  // the folder at the very bottom is empty
  EXPECT_EQ(record("d/")->size, 999);
}

TEST(WalkOfADeepTree, memoryDoesNotGrowWithTheSquareOfTheDepth) {
  constexpr long mostKiB = 600L * 1024;
  const test::TemporaryVolume deep;
  // One text for each level would take 1.1 GB.
  deep.chain("root", std::string(250, 'n'), 3000);
  const std::string told = test::inChild([&deep]() -> std::string {
    rusage before{};
    rusage after{};
    int count = 0;
    WalkRequest request;
    request.filter = [&count](const URL&, const ResourceValues&, EnumerationPosition*) {
      ++count;
      return false;
    };
    ::getrusage(RUSAGE_SELF, &before);
    walkTree(deep.url("root/"), request);
    ::getrusage(RUSAGE_SELF, &after);
    const bool isSmall = after.ru_maxrss - before.ru_maxrss < mostKiB;
    return std::to_string(count) + (isSmall ? " items" : " items, too much memory");
  });
  EXPECT_EQ(told, "3000 items");
}

TEST_F(Walk, filesOpenedByAWalkAreGivenBack) {
  for (int i = 0; i < 100; ++i) volume.file("root/" + std::to_string(i) + "/a/b/c", "1");
  run();
  const std::size_t before = test::openDescriptors();
  run();
  // Helpers that come too late touch nothing; those that helped gave back what they had before the walk
  // ended.
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(Walk, unreadableFolderIsAnEmptyItemAndTold) {
  volume.file("root/closed/a", "1");
  volume.file("root/open/a", "1");
  ASSERT_EQ(::chmod(volume.path("root/closed").c_str(), 0), 0);
  // Root reads everything: the walk runs as somebody else in a process of its own.
  ASSERT_EQ(::chmod(volume.path().c_str(), 0755), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::getuid() == 0 && ::setresuid(10001, 10001, 10001) != 0) ::_exit(9);
    std::vector<URL> told;
    WalkRequest request;
    request.keys = kRecordKeys;
    request.filter = [](const URL&, const ResourceValues&, EnumerationPosition*) { return true; };
    request.errorHandler = [&](const URL& url, int error) {
      EXPECT_EQ(error, EACCES);
      told.push_back(url);
      return true;
    };
    request.isContainZeroItem = true;
    const WalkResult result = walkTree(volume.url("root/"), request);
    const bool good = told == std::vector<URL>{volume.url("root/closed/")} &&
                      namesOf(result.records, volume.url("root/")) == Names{"closed/", "open/", "open/a"} &&
                      result.records[0]->size == 0 && !result.records[0]->canDelete;
    ::_exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  ::chmod(volume.path("root/closed").c_str(), 0700);
}

TEST_F(Walk, largeTreeIsTheSameWhateverThreadsHelp) {
  std::set<std::string> expected;
  for (int a = 0; a < 20; ++a) {
    for (int b = 0; b < 20; ++b) {
      const std::string name = "f" + std::to_string(a) + "/g" + std::to_string(b) + "/file";
      volume.file("root/" + name, "1");
      expected.insert(name);
    }
  }
  run();
  const Names first = names();
  EXPECT_EQ(totals.fileNumber, 400);
  EXPECT_EQ(totals.folderNumber, 420);
  EXPECT_EQ(totals.folderSize, 800);
  EXPECT_EQ(progress.size(), 820U);
  for (const std::string& name : expected) EXPECT_EQ(std::count(first.begin(), first.end(), name), 1) << name;
  for (int round = 0; round < 5; ++round) {
    run();
    EXPECT_EQ(names(), first);
  }
}

TEST_F(Walk, folderThatIsOnlySizedIsNotTold) {
  volume.file("root/a/x", "1");
  int told = 0;
  errorHandler = [&told](const URL&, int) {
    ++told;
    return true;
  };
  const auto vanishing = [&](bool isPruned) {
    run(0, [&, isPruned](const URL& url, const ResourceValues&, EnumerationPosition* position) {
      if (url.lastPathComponent() != "a") return true;
      ::unlink(volume.path("root/a/x").c_str());
      ::rmdir(volume.path("root/a").c_str());
      if (isPruned) position->skipDescendants();
      return true;
    });
  };
  vanishing(true);
  EXPECT_EQ(told, 0);
  volume.file("root/a/x", "1");
  vanishing(false);
  EXPECT_EQ(told, 1);
}

// Stopping

TEST_F(Walk, suspendedFeatureWalksNothing) {
  volume.file("root/a", "1");
  SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
  run();
  EXPECT_EQ(doneCount, 1);
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, suspendedScanIDWalksNothing) {
  volume.file("root/a", "1");
  SuperScanService::scanStatus.set(kScanID, ScanState::suspend);
  run();
  EXPECT_EQ(doneCount, 1);
  EXPECT_TRUE(records.empty());
}

TEST_F(Walk, stopInMidWalkDeliversWhatWasFound) {
  for (const char* name : {"root/a", "root/b", "root/c/d"}) volume.file(name, "1");
  run(0, [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
    if (url.lastPathComponent() == "b") SuperScanService::scanStatus.set(kFeature, ScanState::suspend);
    return true;
  });
  EXPECT_EQ(names(), (Names{"a", "b"}));
  EXPECT_EQ(totals.fileNumber, 2);
  EXPECT_EQ(doneCount, 1);
}

TEST_F(Walk, errorHandlerMayEndTheWalk) {
  volume.file("root/a/x", "1");
  for (int i = 0; i < 3; ++i) volume.file("root/z" + std::to_string(i) + "/x", "1");
  errorHandler = [](const URL&, int) { return false; };
  int asked = 0;
  run(0, [&](const URL& url, const ResourceValues&, EnumerationPosition*) {
    ++asked;
    // The folder vanishes between its listing and its turn.
    if (url.lastPathComponent() == "z0") {
      ::unlink(volume.path("root/a/x").c_str());
      ::rmdir(volume.path("root/a").c_str());
    }
    return true;
  });
  EXPECT_EQ(asked, 4);
}

// Several roots

class Roots : public Walk {
 protected:
  void runAll(const std::vector<URL>& urls) {
    SuperScanService::getListFromUrls(
        *feature, urls, NSControlStateValueOff, keys, 0, kScanID, scan.progress(), scan.percent(), {},
        [this](std::map<URL, FileRecords> found, std::map<URL, ScanFilesInformation> foundTotals) {
          allRecords = std::move(found);
          allTotals = std::move(foundTotals);
          places.push_back(scan.here());
          ++scan.doneCount;
        },
        scan.queue, feature->categoryInfo[0]);
  }
  [[nodiscard]] bool wait() {
    return test::runMainLoopUntil([this] { return scan.doneCount > 0; }) && test::drain(*scan.queue);
  }

  test::ScanRecord scan;
  std::map<URL, FileRecords> allRecords;
  std::map<URL, ScanFilesInformation> allTotals;
  std::vector<test::ScanRecord::Place> places;
};

TEST_F(Roots, doneComesOnceOnTheSerialQueueWithEveryRoot) {
  volume.file("one/a", "1");
  volume.file("two/b", "22");
  runAll({volume.url("one/"), volume.url("two/"), volume.url("missing/")});
  ASSERT_TRUE(wait());
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_TRUE(places.at(0).onSerial);
  EXPECT_EQ(scan.percents, std::vector<float>{1.0F});
  ASSERT_EQ(allRecords.size(), 3U);
  EXPECT_EQ(allRecords.at(volume.url("one/")).size(), 1U);
  EXPECT_EQ(allTotals.at(volume.url("two/")).fileSize, 2);
  EXPECT_TRUE(allRecords.at(volume.url("missing/")).empty());
  EXPECT_EQ(allTotals.at(volume.url("missing/")).fileNumber, 0);
}

TEST_F(Roots, rootsThatShareAFolderNumberTheirRecordsEachFromZero) {
  volume.file("one/first", "1");
  volume.file("one/two/b", "22");
  runAll({volume.url("one/"), volume.url("one/two/")});
  ASSERT_TRUE(wait());
  const auto inner = recordNamed(allRecords.at(volume.url("one/two/")), volume.url("one/two/"), "b");
  const auto outer = recordNamed(allRecords.at(volume.url("one/")), volume.url("one/"), "two/b");
  EXPECT_EQ(inner->url, outer->url);
  EXPECT_EQ(inner->finderID, 0);
  EXPECT_EQ(outer->finderID, 2);
}

TEST_F(Roots, taskThatTheQueueRefusesIsSubmittedAgainEveryHalfSecond) {
  const test::VirtualClock clock;
  volume.file("one/a", "1");
  scan.queue->refuseNext(3);
  runAll({volume.url("one/")});
  ASSERT_TRUE(wait());
  EXPECT_EQ(clock.waits(), (std::vector<std::uint64_t>{500'000, 500'000, 500'000}));
  EXPECT_EQ(scan.doneCount, 1);
}

TEST_F(Roots, queueThatShutDownDropsTheTask) {
  volume.file("one/a", "1");
  scan.queue->refuseNext(1, WeftRunError::ShutDown);
  runAll({volume.url("one/")});
  ASSERT_TRUE(test::runMainLoopUntil([this] { return scan.queue->refused() == 1; }));
  EXPECT_EQ(scan.queue->accepted(), 0U);
}

TEST_F(Roots, noRootsNeverCallDone) {
  runAll({});
  test::drainMainQueue();
  ASSERT_TRUE(test::drain(*scan.queue));
  EXPECT_EQ(scan.doneCount, 0);
  EXPECT_TRUE(scan.percents.empty());
}

TEST_F(Roots, progressRunsOnTheMainQueueInTheOrderOfTheWalk) {
  for (const char* name : {"one/c", "one/a", "one/b"}) volume.file(name, "1");
  runAll({volume.url("one/")});
  ASSERT_TRUE(wait());
  test::drainMainQueue();
  Names paths;
  for (const auto& [path, size] : scan.progressCalls) paths.push_back(path);
  EXPECT_EQ(paths, (Names{volume.path("one/a"), volume.path("one/b"), volume.path("one/c")}));
  for (const auto& place : scan.progressPlaces) EXPECT_TRUE(place.onMain);
}

}  // namespace
}  // namespace sorrel
