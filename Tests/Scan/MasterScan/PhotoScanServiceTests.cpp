#include "SorrelFramework/Scan/MasterScan/PhotoScanService.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Scan/MasterScan/JunkScanKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;

const std::string kPictures = "Users/alice/Pictures/";
const std::string kLibrary = kPictures + "Photos Library.photoslibrary/";

class PhotoScan : public test::JunkScanFixture {
 protected:
  void run(const std::vector<URL>& urls = {}) {
    runScan(PhotoScanService::scaniPhotoJunk, 6, {CategoryInfomationKind::Common, urls});
  }
  /// A scan of several categories; each is given by its urls.
  void runCategories(const std::vector<std::vector<URL>>& categories) {
    std::vector<test::CategorySketch> sketches;
    for (const std::vector<URL>& urls : categories)
      sketches.push_back({CategoryInfomationKind::Common, urls});
    feature = test::makeFeature(6, sketches);
    PhotoScanService::scaniPhotoJunk(*feature, scan.progress(), scan.percent(), scan.singleDone(),
                                     scan.done(), scan.queue);
    ASSERT_TRUE(scan.waitUntilDone());
  }
  [[nodiscard]] Names names(const std::string& root = kLibrary) const { return namesBelow(root); }
};

TEST_F(PhotoScan, picturesOfTheThreeFoldersAtAnyDepthAreRecords) {
  volume.file(kLibrary + "resources/media/face/00/a.jpg", "1");
  volume.file(kLibrary + "resources/media/master/b.png", "22");
  volume.file(kLibrary + "resources/Version/x/y/c.jpeg", "333");
  volume.file(kLibrary + "resources/media/moduleresources/d.jpg", "1");
  volume.file(kLibrary + "originals/e.jpg", "1");
  volume.file(kLibrary + "resources/media/master/.hidden.png", "1");
  run();
  EXPECT_EQ(names(), (Names{"resources/Version/x/y/c.jpeg", "resources/media/face/00/a.jpg",
                            "resources/media/master/b.png"}));
  EXPECT_EQ(scan.results.at(0).second.fileSize, 6);
}

TEST_F(PhotoScan, foldersUnderOtherLettersAreFound) {
  volume.file(kLibrary + "Resources/Media/Face/a.jpg", "1");
  run();
  EXPECT_EQ(names(), Names{"Resources/Media/Face/a.jpg"});
}

TEST_F(PhotoScan, endingInCapitalsIsNotKeptAndOneInTheMiddleIs) {
  volume.file(kLibrary + "resources/media/face/A.JPG", "1");
  volume.file(kLibrary + "resources/media/face/b.jpg.part", "1");
  volume.file(kLibrary + "resources/media/face/c.gif", "1");
  run();
  EXPECT_EQ(names(), Names{"resources/media/face/b.jpg.part"});
}

TEST_F(PhotoScan, testIsOnTheLastComponentAlone) {
  volume.file(kLibrary + "resources/media/face/album.jpgs/c.txt", "1");
  run();
  EXPECT_EQ(names(), Names{"resources/media/face/album.jpgs/"});
}

TEST_F(PhotoScan, withoutALibraryEachCategoryEndsEmpty) {
  volume.file("Users/alice/a.jpg", "1");
  run({volume.url("Users/alice/")});
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(scan.results.at(0).second.fileSize, 0);
  EXPECT_EQ(scan.doneCount, 1);
  EXPECT_EQ(scan.singles, (std::vector<std::pair<Integer, std::int64_t>>{{0, 0}}));
}

TEST_F(PhotoScan, onlyAnItemDirectlyInThePicturesIsALibrary) {
  volume.folder(kPictures + "deeper/Other.photoslibrary");
  EXPECT_EQ(PhotoScanService::getPhotoslibraryPath(), std::nullopt);
  volume.folder(kPictures + "my photoslibrary folder");
  EXPECT_EQ(PhotoScanService::getPhotoslibraryPath(), volume.url(kPictures + "my photoslibrary folder/"));
}

TEST_F(PhotoScan, hiddenLibraryIsNone) {
  volume.folder(kPictures + ".old.photoslibrary");
  EXPECT_EQ(PhotoScanService::getPhotoslibraryPath(), std::nullopt);
}

TEST_F(PhotoScan, lastOfTwoLibrariesIsScanned) {
  volume.file(kPictures + "A.photoslibrary/resources/media/face/a.jpg", "1");
  volume.file(kPictures + "B.photoslibrary/resources/media/face/b.jpg", "1");
  run();
  EXPECT_EQ(names(kPictures), Names{"B.photoslibrary/resources/media/face/b.jpg"});
}

TEST_F(PhotoScan, desktopAlsoWalksTheFoldersOfTheCatalogue) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("home/Pictures/L.photoslibrary/resources/media/face/a.jpg", "1");
  volume.file("home/.cache/thumbnails/normal/0a.png", "1");
  volume.file("home/.cache/thumbnails/readme", "1");
  run({volume.url("home/.cache/thumbnails/")});
  EXPECT_EQ(names("home/"), (Names{".cache/thumbnails/normal/0a.png",
                                   "Pictures/L.photoslibrary/resources/media/face/a.jpg"}));
}

TEST_F(PhotoScan, desktopListsTheLibraryInTheFirstCategoryOnly) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("home/Pictures/L.photoslibrary/resources/media/face/a.jpg", "22");
  volume.file("home/.cache/thumbnails/0a.png", "1");
  runCategories({{}, {volume.url("home/.cache/thumbnails/")}});
  EXPECT_EQ(names("home/"), Names{"Pictures/L.photoslibrary/resources/media/face/a.jpg"});
  EXPECT_EQ(test::namesOf(scan.results.at(1).first, volume.url("home/")), Names{".cache/thumbnails/0a.png"});
  EXPECT_EQ(scan.results.at(1).second.fileSize, 1);
}

TEST_F(PhotoScan, desktopWalksAFolderThatSeveralCategoriesNameOnce) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("home/a/one/1.png", "1");
  volume.file("home/a/two/2.png", "1");
  volume.file("home/ab/3.png", "1");
  runCategories({{volume.url("home/a/one/"), volume.url("home/a/one/")},
                 {volume.url("home/a/"), volume.url("home/ab/")},
                 {volume.url("home/ab")}});
  EXPECT_EQ(names("home/"), Names{});
  EXPECT_EQ(test::namesOf(scan.results.at(1).first, volume.url("home/")),
            (Names{"a/one/1.png", "a/two/2.png", "ab/3.png"}));
  EXPECT_TRUE(scan.results.at(2).first.empty());
}

TEST_F(PhotoScan, desktopWalksAFolderThatTheWalkAboveItDoesNotEnter) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("home/ph/1.png", "1");
  volume.file("home/ph/.hid/t/2.png", "22");
  volume.file("home/elsewhere/3.png", "333");
  std::filesystem::create_directory_symlink("../elsewhere", volume.path("home/ph/link"));
  runCategories({{volume.url("home/ph/")}, {volume.url("home/ph/.hid/t/")}, {volume.url("home/ph/link/")}});
  const auto sizeOf = [&](std::size_t category) { return scan.results.at(category).second.fileSize; };
  EXPECT_EQ(sizeOf(0), 1);
  EXPECT_EQ(sizeOf(1), 2);
  EXPECT_EQ(sizeOf(2), 3);
}

TEST_F(PhotoScan, desktopWalksAFolderOnceByWhateverPath) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("home/ph/t/1.png", "1");
  volume.file("home/ph/2.png", "22");
  volume.file("home/ph/readme", "4444");
  std::filesystem::create_directory_symlink("ph/t", volume.path("home/link"));
  std::filesystem::create_symlink("ph/2.png", volume.path("home/picture"));
  runCategories({{volume.url("home/ph/")},
                 {volume.url("home/link/"), volume.url("home/ph/2.png"), volume.url("home/ph/readme"),
                  volume.url("home/picture"), volume.url("home/missing/")}});
  EXPECT_EQ(names("home/"), (Names{"ph/2.png", "ph/t/1.png"}));
  EXPECT_EQ(test::namesOf(scan.results.at(1).first, volume.url("home/")), (Names{"ph/readme", "picture"}));
}

TEST_F(PhotoScan, volumeListsTheLibraryInEachCategory) {
  volume.file(kLibrary + "resources/media/face/a.jpg", "22");
  runCategories({{}, {}});
  EXPECT_EQ(scan.results.at(0).second.fileSize, 2);
  EXPECT_EQ(scan.results.at(1).second.fileSize, 2);
}

TEST_F(PhotoScan, scanChangesNothing) {
  volume.file(kLibrary + "resources/media/face/a.jpg", "1");
  const auto before = test::snapshotOf(volume.path(kPictures));
  run();
  EXPECT_EQ(test::snapshotOf(volume.path(kPictures)), before);
}

}  // namespace
}  // namespace sorrel
