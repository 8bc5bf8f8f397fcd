#include "SorrelFramework/Scan/Duplicate/DuplicateAnalysis.hpp"

#include <gtest/gtest.h>

#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/DuplicateKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ReplacedRead.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;
using Groups = test::DuplicateGroups;
using test::DuplicateScan;
using test::DuplicateStages;

// The folders and files that whole scans find.

TEST_F(DuplicateScan, twinFoldersAreOneGroupAndTheirFilesNone) {
  for (const std::string top : {"One", "Two"}) {
    volume.file("Users/alice/Data/" + top + "/a", "aaaa");
    volume.file("Users/alice/Data/" + top + "/sub/b", "bbbbb");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
  EXPECT_EQ(all().childrens[0].fileKind, rawValue(FilesKind::Folder));
  EXPECT_EQ(scan.treeSize, 18);
}

TEST_F(DuplicateScan, foldersWithOtherContentOfTheSameSizesAreNoTwins) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/Two/a", "bbbb");
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, foldersOfSmallFilesAreTwinsIfTheirSumIsAboveTheLimit) {
  DuplicateScanService::limitSize = 1;
  for (const std::string top : {"Users/alice/Data/One/", "Users/alice/Data/Two/"}) {
    for (const std::string file : {"a", "b", "c"}) volume.file(top + file, std::string(400, file[0]));
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, packageIsNotEnteredByTheWalkButHashedFileByFile) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "Tool.app/Contents/x", top == "One/" ? "1" : "2");
    volume.file("Users/alice/Data/" + top + "big", "same");
  }
  volume.file("Users/alice/Data/y", "11");
  volume.file("Users/alice/Data/Lone.app/y", "11");
  runData();
  // The folders weigh the same and differ inside their packages; both were read, so their files are left out.
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, twinFoldersWithEqualPackagesAreFound) {
  for (const std::string top : {"One/", "Two/"}) volume.file("Users/alice/Data/" + top + "T.app/x", "1");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, foldersWhoseLinksLeadElsewhereAreNoCopiesOfEachOther) {
  for (const std::string top : {"One/", "Two/", "Three/", "Four/"}) {
    const bool isSame = top == "Three/" || top == "Four/";
    volume.file("Users/alice/Data/" + top + "a", isSame ? "twins" : "same");
    volume.link("Users/alice/Data/" + top + "link", isSame || top == "One/" ? "x" : "y");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/Four/", "Data/Three/"}, {"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, filesOfFoldersWhoseLinksAloneDifferAreFound) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "f1", "first file");
    volume.file("Users/alice/Data/" + top + "f2", "the second");
    volume.link("Users/alice/Data/" + top + "link", top == "One/" ? "x" : "y");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/f1", "Data/Two/f1"}, {"Data/One/f2", "Data/Two/f2"}}));
}

TEST_F(DuplicateScan, filesOfAFolderThatIsNoThirdTwinForItsLinkAloneAreFound) {
  for (const std::string top : {"One/", "Three/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "f1", "first file");
    volume.file("Users/alice/Data/" + top + "f2", "the second");
    volume.link("Users/alice/Data/" + top + "link", top == "Three/" ? "x" : "y");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"},
                              {"Data/One/f1", "Data/Three/f1", "Data/Two/f1"},
                              {"Data/One/f2", "Data/Three/f2", "Data/Two/f2"}}));
}

TEST_F(DuplicateScan, textsOfLinksAreComparedOneByOne) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "same");
    volume.link("Users/alice/Data/" + top + "b", top == "One/" ? "xy" : "x");
    volume.link("Users/alice/Data/" + top + "c", top == "One/" ? "z" : "yz");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, ofTwinsOfTwoSizesWithTheSameHashesTheLargestAreFound) {
  // The type determines the weight of a package, the hashes are those of the files in it.
  for (const std::string top : {"One/T.app/", "Two/T.app/", "Three/", "Four/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", "bbbb");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, folderWithoutATwinHidesNoSmallerTwinsWithItsHashes) {
  for (const std::string top : {"One/T.app/", "Two/T.app/", "Three/", "Four/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", top == "Two/T.app/" ? "cccc" : "bbbb");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/Four/", "Data/Three/"}}));
}

TEST_F(DuplicateScan, filesOfTwinsAreKnownAgainWhateverBytesAreInTheirNames) {
  for (const std::string top : {"Users/alice/Data/One/deep ", "Users/alice/Data/Two/deep "}) {
    for (const std::string name :
         {"a b", "%41", "semi;colon", "\xC3\xBC", "\x75\xCC\x88", "\xFF\xFE", "#?", "back\\slash"}) {
      std::string below = name + "/";
      below += name;
      volume.file(top + below, name + name);
    }
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, subfoldersOfTwinsAreNoGroupsOfTheirOwn) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "sub/a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", "bb");
  }
  volume.file("Users/alice/Data/Three/sub/a", "aaaa");  // a twin of the covered ones
  runData();
  ASSERT_EQ(groups().size(), 1U);
  EXPECT_EQ(groups()[0], (Names{"Data/One/", "Data/Two/"}));
}

TEST_F(DuplicateScan, folderIsNoTwinOfTheOneFolderInIt) {
  volume.file("Users/alice/Data/Outer/Inner/a", "aaaa");
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, filesOfAFolderThatWasReadAreLeftOutWhetherOrNotItFoundATwin) {
  // One and Two have the same sizes and numbers and differ; the files of both were read with them.
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/One/b", "bbbb");
  volume.file("Users/alice/Data/Two/a", "cccc");
  volume.file("Users/alice/Data/Two/b", "dddd");
  volume.file("Users/alice/Data/a", "aaaa");
  volume.file("Users/alice/Data/a2", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/a", "Data/a2"}}));
}

TEST_F(DuplicateScan, fileOfAFolderWithOneFileAndNoTwinIsStillHashedAsAFile) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/Two/a", "bbbb");
  volume.file("Users/alice/Data/a", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/a", "Data/a"}}));
}

TEST_F(DuplicateScan, foldersWithAFileThatCannotBeReadAreNoCopiesOfEachOther) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", top == "One/" ? "1" : "2");
    volume.setMode("Users/alice/Data/" + top + "b", 0);
    volume.file("Users/alice/Data/Open " + top + "a", "bbbbbb");
  }
  runDataAsPlainUser();
  EXPECT_EQ(groups(), (Groups{{"Data/Open One/", "Data/Open Two/"}, {"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, foldersWithAFolderThatCannotBeReadAreNoCopiesOfEachOther) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "closed/b", top == "One/" ? "1" : "2");
    volume.setMode("Users/alice/Data/" + top + "closed", 0);
    volume.file("Users/alice/Data/Open " + top + "a", "bbbbbb");
  }
  runDataAsPlainUser();
  for (const std::string top : {"One/", "Two/"}) volume.setMode("Users/alice/Data/" + top + "closed", 0755);
  EXPECT_EQ(groups(), (Groups{{"Data/Open One/", "Data/Open Two/"}, {"Data/One/a", "Data/Two/a"}}));
}

TEST_F(DuplicateScan, filesOfAFolderThatIsNoTwinOfAPartlyReadOneAreFound) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "f1", "first file");
    volume.file("Users/alice/Data/" + top + "f2", "the second");
  }
  volume.file("Users/alice/Data/One/closed/b", "1");
  volume.setMode("Users/alice/Data/One/closed", 0);
  runDataAsPlainUser();
  volume.setMode("Users/alice/Data/One/closed", 0755);
  EXPECT_EQ(groups(), (Groups{{"Data/One/f1", "Data/Two/f1"}, {"Data/One/f2", "Data/Two/f2"}}));
}

TEST_F(DuplicateScan, orderInWhichFilesWereMadeDoesNotMatter) {
  volume.file("Users/alice/Data/One/a", "aaaa");
  volume.file("Users/alice/Data/One/b", "bbb");
  volume.file("Users/alice/Data/Two/b", "bbb");
  volume.file("Users/alice/Data/Two/a", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, folderHashIsTheHashesOfItsFilesInOrder) {
  volume.file("Users/alice/Data/b", "");
  volume.file("Users/alice/Data/a.app/x", "abc");
  volume.file("Users/alice/Data/.hidden", "abc");
  volume.link("Users/alice/Data/c", "b");
  const auto [text, urls, total, sized] =
      DuplicateScanService::getMD5FromFolderPath(volume.url("Users/alice/Data/"));
  EXPECT_EQ(text, "900150983cd24fb0d6963f7d28e17f72d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(urls,
            (std::vector<URL>{volume.url("Users/alice/Data/a.app/x"), volume.url("Users/alice/Data/b")}));
  EXPECT_EQ(total, 3);
  EXPECT_EQ(sized.size(), 2U);
}

TEST_F(DuplicateScan, folderHashGoesOnBehindAFolderThatCannotBeRead) {
  volume.file("Users/alice/Data/closed/a", "abc");
  volume.file("Users/alice/Data/z", "");
  volume.setMode(".", 0755);
  volume.setMode("Users/alice/Data/closed", 0);
  const std::string text = test::inPlainChild([this] {
    return std::get<0>(DuplicateScanService::getMD5FromFolderPath(volume.url("Users/alice/Data/")));
  });
  volume.setMode("Users/alice/Data/closed", 0755);
  EXPECT_EQ(text, "d41d8cd98f00b204e9800998ecf8427e");
}

// The switches.

/// Five photos and a text, below "work" and "backup"; the texts differ.
void makeAlmostTwins(const test::TemporaryVolume& volume) {
  for (const std::string top : {"backup/", "work/"}) {
    for (const std::string photo : {"1", "2", "3", "4", "5"}) {
      volume.file("Users/alice/Data/" + top + photo + ".jpg", "photo " + photo);
    }
    volume.file("Users/alice/Data/" + top + "text", top == "work/" ? "rev 2" : "rev 1");
  }
}

TEST_F(DuplicateScan, filesOfFoldersThatDifferAreNotFoundByDefault) {
  makeAlmostTwins(volume);
  runData();
  EXPECT_TRUE(groups().empty());
}

TEST_F(DuplicateScan, filesOfFoldersThatDifferAreFoundWithTheSwitch) {
  DuplicateScanService::findsEveryEqualPair = true;
  makeAlmostTwins(volume);
  runData();
  Groups expected;
  for (const std::string photo : {"1.jpg", "2.jpg", "3.jpg", "4.jpg", "5.jpg"}) {
    expected.push_back({"Data/backup/" + photo, "Data/work/" + photo});
  }
  EXPECT_EQ(groups(), expected);
}

TEST_F(DuplicateScan, filesOfTwinFoldersAreNoGroupsWithTheSwitch) {
  DuplicateScanService::findsEveryEqualPair = true;
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "same");
    volume.file("Users/alice/Data/" + top + "b", "same");
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
}

TEST_F(DuplicateScan, copyOutsideOfTwinFoldersIsFoundWithTheSwitchOnly) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", "bbbb");
  }
  volume.file("Users/alice/Data/a", "aaaa");
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
  DuplicateScanService::findsEveryEqualPair = true;
  scan.doneCount = 0;
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}, {"Data/One/a", "Data/Two/a", "Data/a"}}));
}

TEST_F(DuplicateScan, filesOfTwinsThatAnotherSizeHidesAreFoundWithTheSwitch) {
  DuplicateScanService::findsEveryEqualPair = true;
  for (const std::string top : {"One/T.app/", "Two/T.app/", "Three/", "Four/"}) {
    volume.file("Users/alice/Data/" + top + "a", "aaaa");
    volume.file("Users/alice/Data/" + top + "b", "bbbb");
  }
  runData();
  EXPECT_EQ(
      groups(),
      (Groups{{"Data/One/", "Data/Two/"}, {"Data/Four/a", "Data/Three/a"}, {"Data/Four/b", "Data/Three/b"}}));
}

TEST_F(DuplicateScan, foldersWithoutAHashAreTwinsByDefaultOnly) {
  for (const std::string top : {"One/", "Two/"}) {
    volume.file("Users/alice/Data/" + top + "Tool.app/.content", top);
  }
  runData();
  EXPECT_EQ(groups(), (Groups{{"Data/One/", "Data/Two/"}}));
  DuplicateScanService::ignoresFoldersWithoutHashes = true;
  scan.doneCount = 0;
  runData();
  EXPECT_TRUE(groups().empty());
}

// The stage by itself.

TEST_F(DuplicateStages, analysisBehindAStopReadsNothing) {
  const auto bar = std::make_shared<PercentService>(scan.percent(), 4);
  const test::ReplacedRead reads;
  SuperScanService::stopScan(*feature);
  StreamFileHashUnit::shard().scanState = static_cast<int>(ScanState::start);
  analyse({{4, {file("a", "same"), file("b", "same")}}}, {}, bar);
  expectStoppedWithoutATree();
  EXPECT_EQ(bar->currentStep, 0);
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(DuplicateStages, analysisOfNothingEndsWithSevenEmptyRows) {
  analyse({}, {});
  EXPECT_EQ(scan.treeSize, 0);
  ASSERT_TRUE(all().childrenCateogry.has_value());
  EXPECT_EQ(all().childrenCateogry->size(), 7U);
  EXPECT_EQ(SuperScanService::scanStatus.get(kFeature), ScanState::end);
}

TEST_F(DuplicateStages, analysisHashesFilesAndFolders) {
  analyse({{4, {file("a", "same"), file("b", "same"), file("c", "else")}}, {5, {file("d", "alone")}}},
          {{6, {folder("One", "twins!"), folder("Two", "twins!"), folder("Three", "loner!")}}});
  EXPECT_EQ(groups(), (Groups{Names{"One/", "Two/"}, Names{"a", "b"}}));
  EXPECT_EQ(scan.treeSize, 20);
}

TEST_F(DuplicateStages, analysisDropsSizesOfFoldersBelowACandidate) {
  analyse({}, {{6, {folder("One", "twins!"), folder("Two", "twins!")}},
               {4, {folder("Three", "same", {6}), folder("Four", "same")}}});
  EXPECT_EQ(groups(), Groups{Names({"Three/", "Four/"})});
}

TEST_F(DuplicateStages, analysisDropsCandidatesBelowTheLimit) {
  DuplicateScanService::limitSize = 1;
  analyse({}, {{1023, {folder("One", std::string(1023, 'x')), folder("Two", std::string(1023, 'x'))}},
               {1024, {folder("Three", std::string(1024, 'x')), folder("Four", std::string(1024, 'x'))}}});
  EXPECT_EQ(groups(), Groups{Names({"Three/", "Four/"})});
}

TEST_F(DuplicateStages, filesOfHashedFoldersAreReadOnce) {
  twinFolders();
  const test::ReplacedRead reads;
  run();
  EXPECT_EQ(groups(), Groups{Names({"One/", "Two/"})});
  EXPECT_EQ(reads.notes().size(), 4U);  // each file to its end, which is a separate read
}

TEST_F(DuplicateStages, sizesWithOneFileAreNeverRead) {
  volume.file(std::string(kData) + "a", "1");
  volume.file(std::string(kData) + "sub/b", "22");
  const test::ReplacedRead reads;
  run();
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(DuplicateStages, fileThatIsGoneBeforeItIsReadDropsOut) {
  DuplicateInfo gone = file("c", "same");
  gone.path = volume.url(std::string(kData) + "gone");
  analyse({{4, {file("a", "same"), gone, file("b", "same")}}}, {});
  EXPECT_EQ(groups(), Groups{Names({"a", "b"})});
}

}  // namespace
}  // namespace sorrel
