#include "SorrelFramework/Scan/SuperScanService.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/PercentService.hpp"
#include "SorrelFramework/Units/LogService.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/ScanKit.hpp"

namespace sorrel {
namespace {

using test::makeFeature;
using test::ScanVolume;

class SuperScan : public testing::Test {
 protected:
  SuperScan() {
    SuperScanService::scanStatus.resetForTesting();
    SuperScanService::percentService.exchange(nullptr);
    LogService::resetForTesting();
  }

  [[nodiscard]] std::string log() const {
    LogService::shard().flushForTesting();
    return test::contentOf(LogService::shard().logPath.path());
  }

  ScanVolume volume;
  Ref<FeatureInformation> feature = makeFeature(3, {{}});
};

// Stopping

TEST_F(SuperScan, stopTwiceLogsTwiceAndChangesNothingTheSecondTime) {
  int ends = 0;
  SuperScanService::stopScan(*feature);
  SuperScanService::percentService.exchange(std::make_shared<PercentService>([&ends](float) { ++ends; }, 1));
  SuperScanService::stopScan(*feature);
  test::drainMainQueue();

  const std::string text = log();
  const auto first = text.find(":Info>:Stop Scan FeatureInfo:3\n");
  ASSERT_NE(first, std::string::npos);
  EXPECT_NE(text.find(":Info>:Stop Scan FeatureInfo:3\n", first + 1), std::string::npos);
  EXPECT_EQ(ends, 0);
  EXPECT_NE(SuperScanService::percentService.get(), nullptr);
}

TEST_F(SuperScan, stopSuspendsTheFeatureFromEveryOtherState) {
  SuperScanService::stopScan(*feature);
  EXPECT_EQ(SuperScanService::scanStatus.get(3), ScanState::suspend);
  for (const ScanState before : {ScanState::start, ScanState::end}) {
    SuperScanService::scanStatus.set(3, before);
    SuperScanService::stopScan(*feature);
    EXPECT_EQ(SuperScanService::scanStatus.get(3), ScanState::suspend);
  }
}

TEST_F(SuperScan, stopEndsTheBarAndForgetsIt) {
  float share = 0;
  SuperScanService::percentService.exchange(
      std::make_shared<PercentService>([&share](float s) { share = s; }, 5));
  SuperScanService::stopScan(*feature);
  test::drainMainQueue();
  EXPECT_EQ(share, 1.0F);
  EXPECT_EQ(SuperScanService::percentService.get(), nullptr);
}

TEST_F(SuperScan, stopOfTheDuplicateFeatureStopsAFileHashToo) {
  StreamFileHashUnit::shard().scanState = 0;
  SuperScanService::stopScan(*makeFeature(7, {}));
  EXPECT_EQ(StreamFileHashUnit::shard().scanState, static_cast<int>(ScanState::suspend));
}

TEST_F(SuperScan, stopOfAnyOtherFeatureLeavesAFileHashRunning) {
  StreamFileHashUnit::shard().scanState = 0;
  SuperScanService::stopScan(*feature);
  EXPECT_EQ(StreamFileHashUnit::shard().scanState, 0);
}

TEST_F(SuperScan, featureThatNeverRanHasNoStatus) {
  EXPECT_EQ(SuperScanService::scanStatus.get(99), std::nullopt);
}

// Texts and paths

TEST_F(SuperScan, urlTurnsIntoItsPathWithTheSlashAtItsEnd) {
  EXPECT_EQ(SuperScanService::handleURLToString(URL::fileURL("/a b/c", true)), "/a b/c/");
  EXPECT_EQ(SuperScanService::handleURLToString(URL::fileURL("/ö%20#", false)), "/ö%20#");
}

TEST_F(SuperScan, everySchemeIsTakenOutOfAText) {
  EXPECT_EQ(SuperScanService::handleStringToString("file://file:///a"), "/a");
}

TEST_F(SuperScan, blanksAreDecodedBeforeTheRest) {
  EXPECT_EQ(SuperScanService::handleStringToString("/a%20b%2520c"), "/a b%20c");
}

TEST_F(SuperScan, textThatCannotBeDecodedGivesNothing) {
  EXPECT_EQ(SuperScanService::handleStringToString("/a%zz"), "");
  EXPECT_EQ(SuperScanService::handleStringToString("/a%FF"), "");
  EXPECT_EQ(SuperScanService::handleURLToString(URL::fileURL("/a\xFF", false)), "");
}

TEST_F(SuperScan, plainTextPassesUnchanged) {
  EXPECT_EQ(SuperScanService::handleStringToString("a+b"), "a+b");
}

TEST_F(SuperScan, wholeMatchesComeWithoutTheirGroups) {
  EXPECT_EQ(SuperScanService::regexGetSub("a(b)?", "ab a"), (std::vector<std::string>{"ab", "a"}));
}

TEST_F(SuperScan, patternThatDoesNotCompileMatchesNothing) {
  EXPECT_TRUE(SuperScanService::regexGetSub("(", "((").empty());
}

TEST_F(SuperScan, textBeyondTheBasicPlaneIsSearchedOnlyInPart) {
  // Eight UTF-16 units, seven characters: the last unit is out of reach.
  EXPECT_EQ(SuperScanService::regexGetSub("[a-z]+", "\U0001F600 ab cd"),
            (std::vector<std::string>{"ab", "c"}));
}

TEST_F(SuperScan, filterOfAllFilesFiltersNothingIn) {
  EXPECT_TRUE(SuperScanService::largeAndOldFileFilterAllFile({feature->categoryInfo.ref(0)}).empty());
}

TEST_F(SuperScan, supportFolderIsTheDocumentsFolder) {
  EXPECT_EQ(SuperScanService::supportFolder(), volume.url("Users/alice/Documents/"));
}

TEST_F(SuperScan, defaultsAreEmpty) {
  EXPECT_EQ(SuperScanService::defaultTitle, "");
  EXPECT_EQ(SuperScanService::defaultSize, 0);
  EXPECT_EQ(SuperScanService::defaultSearchKeySize, 0);
  EXPECT_TRUE(SuperScanService::defaultURL().isEmptyPath());
}

// Sizes

TEST_F(SuperScan, missingFileHasNoSize) {
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("nothing"), rawValue(FilesKind::File)), 0);
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("nothing/"), rawValue(FilesKind::Folder)), 0);
}

TEST_F(SuperScan, fileHasItsLogicalSize) {
  volume.file("a", "12345");
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("a"), rawValue(FilesKind::File)), 5);
}

TEST_F(SuperScan, folderAskedAsAFileHasNoSize) {
  volume.file("d/a", "12345");
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("d/"), rawValue(FilesKind::File)), 0);
}

TEST_F(SuperScan, fileAskedAsAFolderHasNoSize) {
  volume.file("a", "12345");
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("a"), rawValue(FilesKind::Folder)), 0);
}

TEST_F(SuperScan, folderCountsAllFilesBelowItButNoFolder) {
  volume.file("d/a", "1");
  volume.file("d/e/f/b", "22");
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("d/"), rawValue(FilesKind::Folder)), 3);
}

TEST_F(SuperScan, folderCountsHiddenFilesAndTheInsidesOfPackages) {
  volume.file("d/.hidden", "1");
  volume.file("d/.hiddenFolder/b", "22");
  volume.file("d/Some.app/Contents/c", "4444");
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("d/"), rawValue(FilesKind::Package)), 7);
}

TEST_F(SuperScan, emptyFolderHasNoSize) {
  volume.folder("d");
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("d/"), rawValue(FilesKind::Folder)), 0);
}

TEST_F(SuperScan, linkCountsWithItsOwnLengthAndIsNotFollowed) {
  volume.file("outside/big", std::string(1000, 'x'));
  volume.folder("d");
  ASSERT_EQ(::symlink("../outside", volume.path("d/link").c_str()), 0);
  ASSERT_EQ(::symlink(".", volume.path("d/loop").c_str()), 0);
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("d/"), rawValue(FilesKind::Folder)), 10 + 1);
}

TEST_F(SuperScan, fifoIsNeitherOpenedNorCounted) {
  volume.file("d/a", "1");
  ASSERT_EQ(::mkfifo(volume.path("d/fifo").c_str(), 0600), 0);
  EXPECT_EQ(SuperScanService::calculateSize(volume.url("d/"), rawValue(FilesKind::Folder)), 1);
}

TEST_F(SuperScan, locationThatIsNoFileHasNoSize) {
  EXPECT_EQ(SuperScanService::calculateSize(*URL::parse("http://example.org/"), rawValue(FilesKind::Folder)),
            0);
  EXPECT_EQ(SuperScanService::calculateSize(*URL::parse("http:/etc/passwd"), rawValue(FilesKind::File)), 0);
}

TEST_F(SuperScan, sizingOfAnApplicationGoesToTheEndWhileTheFeatureRuns) {
  volume.file("d/a/b", "333");
  SuperScanService::scanStatus.set(3, ScanState::start);
  EXPECT_EQ(SuperScanService::appCalculateSize(volume.url("d/"), rawValue(FilesKind::Package), 3), 3);
}

TEST_F(SuperScan, sizingOfAnApplicationStopsWithItsFeature) {
  for (int i = 0; i < 20; ++i) volume.file("d/" + std::to_string(i) + "/a", "333");
  SuperScanService::stopScan(*feature);
  EXPECT_EQ(SuperScanService::appCalculateSize(volume.url("d/"), rawValue(FilesKind::Package), 3), 0);
  EXPECT_EQ(SuperScanService::appCalculateSize(volume.url("d/"), rawValue(FilesKind::Package), 4), 60);
}

TEST_F(SuperScan, sizingOfAnApplicationStopsAtItsNextElement) {
  for (int i = 0; i < 20; ++i) volume.file("d/" + std::to_string(i), "333");
  SuperScanService::stopScan(*feature);
  EXPECT_EQ(SuperScanService::appCalculateSize(volume.url("d/"), rawValue(FilesKind::Package), 3), 0);
}

TEST_F(SuperScan, sizingOfAPlainFileGoesOnAfterAStop) {
  volume.file("a", "333");
  SuperScanService::stopScan(*feature);
  EXPECT_EQ(SuperScanService::appCalculateSize(volume.url("a"), rawValue(FilesKind::File), 3), 3);
}

using SuperScanDeathTest = SuperScan;

TEST_F(SuperScanDeathTest, sumOfSizesThatOverflowsIsAFatalStop) {
  const std::string shm = "/dev/shm/sorrel-overflow-" + std::to_string(::getpid());
  ASSERT_EQ(::mkdir(shm.c_str(), 0700), 0);
  const std::string names[] = {shm + "/a", shm + "/b"};
  bool isSparse = true;
  for (const std::string& name : names) {
    ::close(::creat(name.c_str(), 0600));
    isSparse = isSparse && ::truncate(name.c_str(), INT64_MAX) == 0;
  }
  if (isSparse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(SuperScanService::calculateSize(URL::fileURL(shm, true), 0), "overflow");
  }
  for (const auto& name : names) ::unlink(name.c_str());
  ::rmdir(shm.c_str());
  ASSERT_TRUE(isSparse) << "this machine has no memory file system that takes files of 2^63-1 bytes";
}

// The size from the metadata store

class PackageSizeTool : public SuperScan {
 protected:
  void answer(const std::string& commands) {
    volume.script("tools/mdls", commands);
    Host host = Host::macVolume(volume.path(), "alice", {"org.example.scan", "", {}});
    host.setToolFolder(volume.path("tools"));
    Host::install(std::move(host));
  }
};

TEST_F(PackageSizeTool, asksForThePathAndReadsTheSizeLine) {
  answer("printf 'kMDItemPhysicalSize = 8\\nkMDItemFSSize = 5\\n' >&1; [ \"$1\" = '" +
         volume.path("My App.app") + "' ] && [ $# = 1 ] || echo kMDItemFSSize = 0");
  EXPECT_EQ(SuperScanService::getPackageSizeFromTerminal(volume.url("My App.app/")), 5);
}

TEST_F(PackageSizeTool, toolThatKnowsNothingGivesZero) {
  answer("echo \"$1: could not find $1.\"; exit 1");
  EXPECT_EQ(SuperScanService::getPackageSizeFromTerminal(volume.url("a.app/")), 0);
}

TEST_F(PackageSizeTool, missingToolGivesZero) {
  EXPECT_EQ(SuperScanService::getPackageSizeFromTerminal(volume.url("a.app/")), 0);
}

// Records of single items

constexpr ResourceKeys kAllRecordKeys = kRecordKeys | NSURLCreationDateKey;

TEST_F(SuperScan, itemBehindALinkOfTheVolumeIsFoundBelowItsRoot) {
  const test::TemporaryFolder machine;
  machine.file("a", "123");
  const std::string below = machine.path().substr(1);
  volume.file(below + "/a", "12345");
  std::filesystem::create_directory_symlink(machine.path(), volume.path("Ext"));
  for (const std::string name : {"Ext/a", "ext/A"}) {
    const auto record = SuperScanService::getFileInformationFromUrl(volume.url(name), kAllRecordKeys);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->size, 5) << name;
    EXPECT_EQ(record->url, volume.url(below + "/a")) << name;
    EXPECT_EQ(SuperScanService::calculateSize(volume.url(name), rawValue(FilesKind::File)), 5) << name;
  }
}

TEST_F(SuperScan, recordOfAFileHoldsWhatTheDiskSays) {
  volume.file("Users/alice/note.txt", "12345");
  CategoryInformation& category = feature->categoryInfo[0];
  const URL url = volume.url("Users/alice/note.txt");
  const auto record = SuperScanService::getFileInformationFromUrl(url, kAllRecordKeys, category);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->state, NSControlStateValueOff);
  EXPECT_EQ(record->finderID, 0);
  EXPECT_EQ(record->parentFinderID, 1);
  EXPECT_EQ(record->title, "note.txt");
  EXPECT_EQ(record->icon, Image::iconOf(url));
  EXPECT_EQ(record->size, 5);
  EXPECT_EQ(record->url, url);
  EXPECT_TRUE(record->canDelete);
  EXPECT_FALSE(record->removeCategory);
  EXPECT_FALSE(record->attachInformation.has_value());
  EXPECT_TRUE(record->childrens.empty());
  EXPECT_EQ(record->parentCategoryInfo.get(), &category);
  EXPECT_EQ(record->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(record->levelInt, 0);
  EXPECT_FALSE(record->parentFileInfo);
  EXPECT_EQ(record->deleteStatus, rawValue(DeleteStatus::None));
  EXPECT_EQ(record->deleteErrorDesc, "");
}

TEST_F(SuperScan, recordIsNumberedByTheChildrenOfItsCategoryAndNotAttached) {
  volume.file("a", "1");
  CategoryInformation& category = feature->categoryInfo[0];
  category.childrens.push_back(SuperScanService::getFileInformationFromUrl(volume.url("a"), kAllRecordKeys));
  const auto record = SuperScanService::getFileInformationFromUrl(volume.url("a"), kAllRecordKeys, category);
  EXPECT_EQ(record->finderID, 1);
  EXPECT_EQ(category.childrens.size(), 1U);
  EXPECT_EQ(category.size, 0);
}

TEST_F(SuperScan, recordWithoutACategoryHasNoNumbers) {
  volume.file("a", "1");
  const auto record = SuperScanService::getFileInformationFromUrl(volume.url("a"), kAllRecordKeys);
  EXPECT_EQ(record->finderID, 0);
  EXPECT_EQ(record->parentFinderID, 0);
  EXPECT_FALSE(record->parentCategoryInfo);
}

TEST_F(SuperScan, kindOfARecordComesFromTheKeysThatWereAskedFor) {
  volume.file("Some.app/x", "1");
  volume.file("folder/x", "1");
  const auto kind = [&](const char* name, ResourceKeys keys) {
    return SuperScanService::getFileInformationFromUrl(volume.url(name), keys)->fileKind;
  };
  EXPECT_EQ(kind("Some.app/", kRecordKeys), rawValue(FilesKind::Package));
  EXPECT_EQ(kind("folder/", kRecordKeys), rawValue(FilesKind::Folder));
  EXPECT_EQ(kind("folder/", NSURLFileSizeKey), rawValue(FilesKind::File));
}

TEST_F(SuperScan, folderRecordIsSizedAsAWhole) {
  volume.file("folder/.a", "1");
  volume.file("folder/b/c", "22");
  EXPECT_EQ(SuperScanService::getFileInformationFromUrl(volume.url("folder/"), kRecordKeys)->size, 3);
}

TEST_F(SuperScan, givenSizeSparesTheSizing) {
  volume.file("folder/a", "1");
  EXPECT_EQ(SuperScanService::getFileInformationFromUrl(volume.url("folder/"), kRecordKeys, 0)->size, 0);
  EXPECT_EQ(SuperScanService::getFileInformationFromUrl(volume.url("folder/"), kRecordKeys, 77)->size, 77);
}

TEST_F(SuperScan, itemThatIsGoneGivesNoRecord) {
  EXPECT_FALSE(SuperScanService::getFileInformationFromUrl(volume.url("nothing"), kRecordKeys));
  EXPECT_FALSE(SuperScanService::getFileInformationFromUrl(volume.url("nothing"), kRecordKeys,
                                                           feature->categoryInfo[0], 5));
}

TEST_F(SuperScan, absentValuesFallBackToTheDefaults) {
  volume.file("a", "1");
  const Date before = Date::now();
  const auto record = SuperScanService::getFileInformationFromUrl(volume.url("a"), NSURLFileSizeKey);
  EXPECT_EQ(record->title, "");
  EXPECT_EQ(record->icon, SuperScanService::defaultImage());
  EXPECT_GE(record->date, before);
  EXPECT_LE(record->date, Date::now());
}

TEST_F(SuperScan, fileOfAnotherUserIsLeftToTheHelper) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  volume.folder("Users/bob");
  ASSERT_EQ(::chown(volume.path("Users/alice").c_str(), 10001, 10001), 0);
  ASSERT_EQ(::chown(volume.path("Users/bob").c_str(), 10002, 10002), 0);
  Host::install(Host::macVolume(volume.path(), "alice", {"org.example.scan", "", {}}));
  const auto canDelete = [&](const char* name, uid_t owner) {
    const std::string path = volume.file(name, "1");
    EXPECT_EQ(::chown(path.c_str(), owner, owner), 0);
    return SuperScanService::getFileInformationFromUrl(volume.url(name), kRecordKeys)->canDelete;
  };
  EXPECT_TRUE(canDelete("mine", 10001));
  EXPECT_FALSE(canDelete("hers", 10002));
  EXPECT_FALSE(canDelete("the system's", 0));
  EXPECT_TRUE(canDelete("nobody's by name", 54321));
}

}  // namespace
}  // namespace sorrel
