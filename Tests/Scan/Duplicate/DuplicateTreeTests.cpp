#include "SorrelFramework/Scan/Duplicate/DuplicateTree.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <thread>

#include "SorrelFramework/Platform/Queues/GlobalQueue.hpp"
#include "Tests/Support/BusyThreads.hpp"
#include "Tests/Support/DuplicateKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;
using Groups = test::DuplicateGroups;
using test::DuplicateScan;
using test::DuplicateStages;
using test::operator""_B;  // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals

const CategoryInformation& row(const CategoryInformation& all, DuplicateScanService::DuplicateKind kind) {
  return (*all.childrenCateogry)[static_cast<std::size_t>(rawValue(kind))];
}

// The trees of whole scans.

TEST_F(DuplicateScan, manyGroupsComeInTheSameOrderEveryTime) {
  for (int i = 0; i < 100; ++i) {
    const std::string content(static_cast<std::size_t>(1 + i % 10), static_cast<char>('A' + i % 50));
    volume.file("Users/alice/Data/" + std::to_string(i), content);
    volume.file("Users/alice/Data/copy " + std::to_string(i), content);
  }
  runData();
  const Groups first = groups();
  EXPECT_GT(first.size(), 10U);
  for (int i = 0; i < 5; ++i) {
    scan.doneCount = 0;
    scan.percents.clear();
    runData();
    EXPECT_EQ(groups(), first);
  }
}

TEST_F(DuplicateScan, headerStandsForItsMembers) {
  volume.file("Users/alice/Data/a.png", "12345");
  volume.file("Users/alice/Data/b.png", "12345");
  all().finderID = 3;
  const Date before = Date::now();
  runData();
  ASSERT_EQ(all().childrens.size(), 1U);
  const FileInformation& header = all().childrens[0];
  EXPECT_EQ(header.state, NSControlStateValueOff);
  EXPECT_EQ(header.finderID, 0);
  EXPECT_EQ(header.parentFinderID, 3);
  EXPECT_EQ(header.title, "a.png");
  EXPECT_EQ(header.icon, Image::iconOf(header.childrens[0].url));
  EXPECT_EQ(header.size, 10);
  EXPECT_GE(header.date, before);
  EXPECT_LE(header.date, Date::now());
  EXPECT_TRUE(header.url.isEmptyPath());
  EXPECT_TRUE(header.canDelete);
  EXPECT_FALSE(header.removeCategory);
  EXPECT_FALSE(header.attachInformation.has_value());
  EXPECT_EQ(header.parentCategoryInfo.get(), &all());
  EXPECT_EQ(header.fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(header.levelInt, 0);
  EXPECT_FALSE(header.parentFileInfo);
  for (Integer i = 0; i < 2; ++i) {
    const FileInformation& member = header.childrens[static_cast<std::size_t>(i)];
    EXPECT_EQ(member.parentFileInfo.get(), &header);
    EXPECT_EQ(member.parentFinderID, 0);
    EXPECT_EQ(member.finderID, i);
    EXPECT_EQ(member.state, NSControlStateValueOff);
    EXPECT_EQ(member.size, 5);
    EXPECT_EQ(member.parentCategoryInfo.get(), &all());
  }
}

TEST_F(DuplicateScan, membersPointAtTheNumberOfTheirHeader) {
  for (const char* name : {"a", "b"}) volume.file(std::string("Users/alice/Data/") + name, "first");
  for (const char* name : {"c", "d"}) volume.file(std::string("Users/alice/Data/") + name, "2nd");
  runData();
  ASSERT_EQ(all().childrens.size(), 2U);
  for (Integer number = 0; number < 2; ++number) {
    const FileInformation& header = all().childrens[static_cast<std::size_t>(number)];
    EXPECT_EQ(header.finderID, number);
    for (const FileInformation& member : header.childrens) EXPECT_EQ(member.parentFinderID, number);
  }
}

TEST_F(DuplicateScan, membersAreMadeOfTheirOwnValues) {
  volume.file("Users/alice/Data/a.png", "12345");
  volume.file("Users/alice/Data/b.png", "12345");
  volume.file("Users/alice/Data/One/x", "1234567");
  volume.file("Users/alice/Data/Two/x", "1234567");
  runData();
  ASSERT_EQ(all().childrens.size(), 2U);
  const FileInformation& folder = all().childrens[0].childrens[0];
  EXPECT_EQ(folder.title, "One");
  EXPECT_EQ(folder.fileKind, rawValue(FilesKind::Folder));
  EXPECT_EQ(folder.size, 7);
  const FileInformation& file = all().childrens[1].childrens[1];
  EXPECT_EQ(file.title, "b.png");
  EXPECT_EQ(file.icon, Image::iconOf(file.url));
  EXPECT_EQ(file.fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(file.size, 5);
}

TEST_F(DuplicateScan, packagesThatWereAskedForAreMembersOfAGroupOfFolders) {
  for (const std::string name : {"One.app", "Two.app"}) volume.file("Users/alice/Data/" + name + "/x", "1");
  run({volume.url("Users/alice/Data/One.app/"), volume.url("Users/alice/Data/Two.app/")});
  ASSERT_EQ(groups(), (Groups{{"Data/One.app/", "Data/Two.app/"}}));
  EXPECT_EQ(all().childrens[0].fileKind, rawValue(FilesKind::Folder));
  EXPECT_EQ(all().childrens[0].childrens[1].fileKind, rawValue(FilesKind::Package));
}

TEST_F(DuplicateScan, statusReadsEndWhenDoneIsCalled) {
  volume.file("Users/alice/Data/a", "same");
  volume.file("Users/alice/Data/b", "same");
  std::optional<ScanState> atDone;
  scan.onDone = [&] { atDone = SuperScanService::scanStatus.get(7); };
  runData();
  EXPECT_EQ(atDone, ScanState::end);
}

TEST_F(DuplicateScan, headersAreSharedByTheRowsOfTheirKinds) {
  volume.file("Users/alice/Data/a.png", "12345");
  volume.file("Users/alice/Data/b.png", "12345");
  volume.file("Users/alice/Data/c.unheard", "1234");
  volume.file("Users/alice/Data/d.unheard", "1234");
  volume.file("Users/alice/Data/One/f", "123");
  volume.file("Users/alice/Data/Two/f", "123");
  runData();
  ASSERT_EQ(all().childrens.size(), 3U);
  EXPECT_EQ(rowsOf(0), (std::vector<Integer>{0, 4}));
  EXPECT_EQ(rowsOf(1), (std::vector<Integer>{0, 5}));
  EXPECT_EQ(rowsOf(2), (std::vector<Integer>{1, 5}));
  EXPECT_EQ(row(all(), DuplicateScanService::DuplicateKind::File).size, 18);
  EXPECT_EQ(row(all(), DuplicateScanService::DuplicateKind::Other).size, 14);
  EXPECT_EQ(scan.treeSize, 24);
}

TEST_F(DuplicateScan, noGroupsLeaveSevenEmptyRows) {
  volume.file("Users/alice/Data/a", "1");
  runData();
  ASSERT_EQ(all().childrenCateogry->size(), 7U);
  Integer kind = 0;
  for (const CategoryInformation& row : *all().childrenCateogry) {
    EXPECT_EQ(row.finderID, kind);
    EXPECT_EQ(row.title, DuplicateScanService::childrenCateogryDict.at(kind++));
    EXPECT_EQ(row.state, NSControlStateValueOff);
    EXPECT_EQ(row.size, 0);
    EXPECT_EQ(row.icon, Image());
    EXPECT_EQ(row.description, "");
    EXPECT_EQ(row.levelInt, 0);
    EXPECT_FALSE(row.needRemoveCategory);
    EXPECT_EQ(row.kind, rawValue(CategoryInfomationKind::Common));
    EXPECT_TRUE(row.urls.empty());
    EXPECT_TRUE(row.childrens.empty());
    EXPECT_EQ(row.featureInfo.get(), feature.get());
  }
}

TEST_F(DuplicateScan, rescanBeginsWithAnEmptyTree) {
  volume.file("Users/alice/Data/a", "same");
  const std::string copy = volume.file("Users/alice/Data/b", "same");
  runData();
  ASSERT_EQ(groups().size(), 1U);
  ::unlink(copy.c_str());
  scan.doneCount = 0;
  scan.percents.clear();
  runData();
  EXPECT_TRUE(groups().empty());
  EXPECT_TRUE(row(all(), DuplicateScanService::DuplicateKind::File).childrens.empty());
}

// The stage by itself.

TEST_F(DuplicateStages, stopBeforeTheTreeLeavesTheOldOne) {
  organise({{"a", {file("1", "same"), file("2", "same")}}}, {});
  ASSERT_EQ(groups().size(), 1U);
  SuperScanService::stopScan(*feature);
  scan.doneCount = 0;
  organise({}, {});
  EXPECT_EQ(scan.treeSize, 0);
  EXPECT_EQ(groups().size(), 1U);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(DuplicateStages, stopBeforeMembersAreMadeLeavesNoGroup) {
  {
    const test::BusyThreads all(GlobalQueue::width());
    DuplicateScanService::organizeDataForDuplicate({{"one", {file("a", "same"), file("b", "same")}}}, {},
                                                   *feature, {}, {}, {}, scan.treeDone(), scan.queue,
                                                   nullptr);
    SuperScanService::stopScan(*feature);
  }
  waitForDone();
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(scan.treeSize, 0);
}

TEST_F(DuplicateStages, memberThatIsReachedTwiceIsOne) {
  volume.link("Users/alice/Link", "Data");
  DuplicateInfo again = file("a", "same");
  again.path = volume.url("Users/alice/Link/a");
  organise({{"one", {file("a", "same"), again}}, {"two", {file("b", "1"), file("c", "1")}}}, {});
  EXPECT_EQ(groups(), Groups{Names({"b", "c"})});
}

TEST_F(DuplicateStages, stopWhileTheTreeIsBuiltLeavesWholeGroupsAndTheirBytes) {
  DuplicatesByHash twins;
  for (int i = 0; i < 400; ++i) {
    const std::string name = std::to_string(i);
    twins[name] = {file(name, name), file(name + " copy", name), file(name + " again", name)};
  }
  std::thread stopper([this] { SuperScanService::stopScan(*feature); });
  organise(std::move(twins), {});
  stopper.join();
  EXPECT_EQ(scan.doneCount, 1);
  std::int64_t bytes = 0;
  for (const FileInformation& header : all().childrens) {
    EXPECT_EQ(header.childrens.size(), 3U);
    bytes += header.size;
  }
  EXPECT_EQ(scan.treeSize, bytes);
}

TEST_F(DuplicateStages, groupOfThreeFilesOfAMillionBytesIsThreeMillionBytes) {
  DuplicatesByHash twins;
  for (const std::string name : {"a", "b", "c"}) {
    twins["hash"].push_back(
        {1, 1'000'000, URL::fileURL(volume.file(std::string(kData) + name, 1'000'000_B), false), true, {}});
  }
  organise(std::move(twins), {});
  ASSERT_EQ(all().childrens.size(), 1U);
  EXPECT_EQ(all().childrens[0].size, 3'000'000);
  EXPECT_EQ(scan.treeSize, 3'000'000);
}

TEST_F(DuplicateStages, hashWithOneMemberIsNoGroup) {
  organise({{"a", {file("1", "same")}}}, {{"b", {folder("One", "same")}}});
  EXPECT_TRUE(groups().empty());
  EXPECT_EQ(scan.treeSize, 0);
}

TEST_F(DuplicateStages, groupsComeTheLargestFirstAndThoseOfOneWeightByTheirPaths) {
  DuplicatesByHash twins;
  Groups wanted = {Names{"0", "0 copy", "0 too"}};
  twins["0"] = {file("0", "12"), file("0 copy", "12"), file("0 too", "12")};
  for (const char name : {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'}) {
    const std::string one(1, name);
    twins[one] = {file(one, "12"), file(one + " copy", "12")};
    wanted.push_back({one, one + " copy"});
  }
  twins["z"] = {file("1", "z"), file("2", "z"), file("3", "z")};
  wanted.push_back({"1", "2", "3"});
  organise(std::move(twins), {});
  EXPECT_EQ(groups(), wanted);
}

TEST_F(DuplicateStages, memberThatIsGoneLeavesItsGroupSmaller) {
  DuplicateInfo gone = file("9", "same");
  gone.path = volume.url(std::string(kData) + "gone");
  organise({{"a", {gone, file("1", "same"), file("2", "same")}}, {"b", {file("3", "some"), gone}}}, {});
  EXPECT_EQ(groups(), Groups{Names({"1", "2"})});
  EXPECT_EQ(all().childrens[0].childrens[0].finderID, 0);
  EXPECT_EQ(scan.treeSize, 8);
}

TEST_F(DuplicateStages, groupsStandInTheRowsOfTheirKinds) {
  organise({{"a", {file("1.jpg", "123456"), file("2.jpg", "123456")}},
            {"b", {file("1.unheard", "12345"), file("2.unheard", "12345")}}},
           {{"c", {folder("One", "same"), folder("Two", "same")}}});
  ASSERT_EQ(all().childrens.size(), 3U);
  EXPECT_EQ(rowsOf(0), (std::vector<Integer>{0, 4}));
  EXPECT_EQ(rowsOf(1), (std::vector<Integer>{0, 5}));
  EXPECT_EQ(rowsOf(2), (std::vector<Integer>{1, 5}));
  EXPECT_EQ(all().childrens[2].fileKind, rawValue(FilesKind::Folder));
  for (Integer i = 0; i < 3; ++i) EXPECT_EQ(all().childrens[static_cast<std::size_t>(i)].finderID, i);
}

TEST_F(DuplicateStages, kindsAreThoseOfTheFirstMember) {
  organise({{"a", {file("1.jpg", "same"), file("2.unheard", "same")}}}, {});
  EXPECT_EQ(rowsOf(0), (std::vector<Integer>{0, 4}));
}

TEST_F(DuplicateStages, bytesOfAFolderAreThoseOnDiskWithHiddenFiles) {
  volume.file(std::string(kData) + "One/.hidden", "12345");
  organise({}, {{"a", {folder("One", "same"), folder("Two", "same")}}});
  ASSERT_EQ(all().childrens.size(), 1U);
  EXPECT_EQ(all().childrens[0].childrens[0].size, 9);
  EXPECT_EQ(scan.treeSize, 13);
}

TEST_F(DuplicateStages, treeIsBuiltOnASerialQueueOfItsOwn) {
  organise({{"a", {file("1", "same"), file("2", "same")}}}, {});
  ASSERT_EQ(scan.donePlaces.size(), 1U);
  EXPECT_FALSE(scan.donePlaces[0].onSerial);
  EXPECT_FALSE(scan.donePlaces[0].onMain);
  EXPECT_EQ(queue->count, 0);
}

TEST_F(DuplicateStages, featureWithoutACategoryIsAFatalStop) {
  EXPECT_EQ(test::inChild([this] {
              feature->categoryInfo.clear();
              organise({}, {});
              return std::string("lived");
            }),
            "ended by signal 6");
}

}  // namespace
}  // namespace sorrel
