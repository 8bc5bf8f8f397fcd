#include "SorrelFramework/Scan/UnreadFolders.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "Tests/Support/ActingAsPlainUser.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

constexpr Integer kFeature = 77;

class Unread : public testing::Test {
 protected:
  Unread() { UnreadFolders::clear(kFeature); }
  ~Unread() override { UnreadFolders::clear(kFeature); }
};

TEST_F(Unread, reportIsEmptyAtFirstAndAfterClearing) {
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 0);
  UnreadFolders::add(kFeature, "/a", EACCES);
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 1);
  EXPECT_EQ(UnreadFolders::of(kFeature + 1).count, 0);
  UnreadFolders::clear(kFeature);
  EXPECT_EQ(UnreadFolders::of(kFeature).count, 0);
}

TEST_F(Unread, onlyTheFirstFoldersAreNamed) {
  const auto handler = UnreadFolders::handler(kFeature);
  for (std::size_t i = 0; i < UnreadFolders::kMostNamed + 5; ++i) handler(std::to_string(i), EIO);
  const UnreadFolders::Report report = UnreadFolders::of(kFeature);
  EXPECT_EQ(report.count, static_cast<std::int64_t>(UnreadFolders::kMostNamed + 5));
  ASSERT_EQ(report.first.size(), UnreadFolders::kMostNamed);
  EXPECT_EQ(report.first[1], (UnreadFolders::Folder{"1", EIO}));
}

TEST_F(Unread, walkReportsFoldersOfRecordsAndFoldersThatAreOnlySized) {
  const test::TemporaryVolume volume;
  volume.install();
  volume.file("root/closed/a", "1");
  volume.file("root/.hidden/closed/a", "1");
  volume.file("root/unsearchable/a", "1");
  volume.setMode("root/closed", 0);
  volume.setMode("root/.hidden/closed", 0);
  volume.setMode("root/unsearchable", 0444);
  for (const char* const name : {"", "root", "root/.hidden"}) volume.setMode(name, 0755);
  const auto feature = test::makeFeature(kFeature, {{}});
  SuperScanService::scanStatus.set(kFeature, ScanState::start);
  const test::ActingAsPlainUser user;
  // The walk of "root/.hidden/" as a folder that is only sized needs a record above it.
  for (const char* const root : {"root/", "root/.hidden/"}) {
    SuperScanService::getListFromUrl(
        *feature, volume.url(root), 0, kRecordKeys, 0, kFeature, nullptr,
        [](const URL&, const ResourceValues&, EnumerationPosition* position) {
          position->skipDescendants();
          return true;
        },
        nullptr, [](const ScanFilesInformation&, const FileRecords&) {}, feature->categoryInfo[0]);
  }
  std::vector<std::string> paths;
  for (const auto& folder : UnreadFolders::of(kFeature).first) {
    EXPECT_EQ(folder.error, EACCES);
    paths.push_back(folder.path);
  }
  EXPECT_EQ(paths,
            (std::vector<std::string>{volume.path("root/.hidden/closed"), volume.path("root/closed"),
                                      volume.path("root/unsearchable"), volume.path("root/.hidden/closed")}));
}

TEST_F(Unread, sizeOfAnApplicationReportsToItsFeature) {
  const test::TemporaryVolume volume;
  volume.install();
  volume.file("App/closed/a", "1");
  volume.setMode("App/closed", 0);
  volume.setMode("", 0755);
  SuperScanService::scanStatus.set(kFeature, ScanState::start);
  const test::ActingAsPlainUser user;
  EXPECT_EQ(SuperScanService::appCalculateSize(volume.url("App/"), rawValue(FilesKind::Package), kFeature),
            0);
  EXPECT_EQ(UnreadFolders::of(kFeature).first,
            (std::vector<UnreadFolders::Folder>{{volume.path("App/closed"), EACCES}}));
}

TEST_F(Unread, filesAreCountedAndNamedBesideTheFolders) {
  UnreadFolders::add(kFeature, "/folder", EACCES);
  for (std::size_t i = 0; i < UnreadFolders::kMostNamed + 5; ++i)
    UnreadFolders::addFile(kFeature, std::to_string(i), EMFILE);
  UnreadFolders::add(kFeature, {.count = 0, .first = {}, .fileCount = 2, .firstFiles = {{"/more", EIO}}});
  const UnreadFolders::Report report = UnreadFolders::of(kFeature);
  EXPECT_EQ(report.count, 1);
  EXPECT_EQ(report.fileCount, static_cast<std::int64_t>(UnreadFolders::kMostNamed + 7));
  ASSERT_EQ(report.firstFiles.size(), UnreadFolders::kMostNamed);
  EXPECT_EQ(report.firstFiles[1], (UnreadFolders::Folder{"1", EMFILE}));
  UnreadFolders::clear(kFeature);
  EXPECT_EQ(UnreadFolders::of(kFeature).fileCount, 0);
}

TEST_F(Unread, aReportAddsToTheOneBefore) {
  UnreadFolders::add(kFeature, "/a", EACCES);
  UnreadFolders::add(kFeature, {.count = 30, .first = {{"/b", EIO}, {"/c", EPERM}}});
  const UnreadFolders::Report report = UnreadFolders::of(kFeature);
  EXPECT_EQ(report.count, 31);
  EXPECT_EQ(report.first, (std::vector<UnreadFolders::Folder>{{"/a", EACCES}, {"/b", EIO}, {"/c", EPERM}}));
}

TEST_F(Unread, aReportGoesThroughATextUnchanged) {
  for (const UnreadFolders::Report& report :
       {UnreadFolders::Report{}, UnreadFolders::Report{7, {{"/a\nb", EACCES}, {"/\xff 1", EIO}}}}) {
    const auto read = UnreadFolders::fromText(UnreadFolders::textOf(report));
    EXPECT_EQ(read.count, report.count);
    EXPECT_EQ(read.first, report.first);
  }
}

TEST_F(Unread, aDamagedTextGivesWhatIsBeforeTheDamage) {
  const UnreadFolders::Report report{2, {{"/a", EACCES}, {"/b", EIO}}};
  const std::string text = UnreadFolders::textOf(report);
  for (std::size_t length = 0; length < text.size(); ++length) {
    const auto read = UnreadFolders::fromText(text.substr(0, length));
    ASSERT_LE(read.first.size(), 1U) << length;
    if (!read.first.empty()) {
      EXPECT_EQ(read.first[0], report.first[0]);
    }
  }
  for (const std::string& damaged : {std::string("x"), std::string("-1\0", 3), std::string("1 \0", 3)})
    EXPECT_EQ(UnreadFolders::fromText(damaged).count, 0) << damaged;
}

TEST_F(Unread, aTextThatNamesTooManyFoldersIsCut) {
  UnreadFolders::Report report{0, {}};
  for (std::size_t i = 0; i < UnreadFolders::kMostNamed + 5; ++i) report.first.push_back({"/a", EIO});
  const auto read = UnreadFolders::fromText(UnreadFolders::textOf(report));
  EXPECT_EQ(read.first.size(), UnreadFolders::kMostNamed);
  EXPECT_EQ(read.count, static_cast<std::int64_t>(UnreadFolders::kMostNamed));
}

}  // namespace
}  // namespace sorrel
