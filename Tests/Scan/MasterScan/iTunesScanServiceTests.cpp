#include "SorrelFramework/Scan/MasterScan/iTunesScanService.hpp"

#include <gtest/gtest.h>

#include <cstdio>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Scan/MasterScan/JunkScanKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;

const std::string kBackups = "Users/alice/Library/Application Support/MobileSync/Backup/";

class BackupScan : public test::JunkScanFixture {
 protected:
  void info(const std::string& backup, PropertyList::Dictionary list) const {
    volume.folder(backup);
    ASSERT_TRUE(writePropertyListFile(volume.path(backup + "/Info.plist"), std::move(list),
                                      PropertyListFormat::Binary));
  }
  void run(const std::string& folder) {
    runScan(iTunesScanService::scaniTunesJunk, 5, {CategoryInfomationKind::Common, {volume.url(folder)}});
  }
  [[nodiscard]] Names titles() const {
    Names found;
    for (const auto& record : scan.results.at(0).first) found.push_back(record->title);
    return found;
  }
};

TEST_F(BackupScan, backupBearsTheNameOfItsDevice) {
  info(kBackups + "00008030-001A", {{"Display Name", "Alice\u2019s phone"}, {"Device Name", "other"}});
  volume.file(kBackups + "00008030-001A/ab/abcdef", "4444");
  run(kBackups);
  EXPECT_EQ(titles(), Names{"Alice\u2019s phone"});
  EXPECT_GT(scan.results.at(0).first[0]->size, 4);
  EXPECT_EQ(scan.results.at(0).first[0]->url, volume.url(kBackups + "00008030-001A/"));
}

TEST_F(BackupScan, backupWithoutANameKeepsTheTitleOfTheWalk) {
  volume.file(kBackups + "none/data", "1");
  info(kBackups + "nameless", {{"Device Name", "other"}});
  info(kBackups + "number", {{"Display Name", 7}});
  volume.file(kBackups + "damaged/Info.plist", "bplist00 and no more");
  run(kBackups);
  EXPECT_EQ(titles(), (Names{"damaged", "nameless", "none", "number"}));
}

TEST_F(BackupScan, recordOutsideTheBackupsIsNeverTouched) {
  info("Users/alice/Library/iTunes/Updates/one", {{"Display Name", "a name"}});
  volume.file("Users/alice/Library/iTunes/Updates/one/Manifest.db", "1");
  run("Users/alice/Library/iTunes/Updates/");
  EXPECT_EQ(titles(), Names{"one"});
}

TEST_F(BackupScan, backupThatIsALinkIsNotFollowed) {
  info("elsewhere", {{"Display Name", "a name"}});
  volume.folder(kBackups);
  volume.link(kBackups + "link", volume.path("elsewhere"));
  run(kBackups);
  EXPECT_EQ(titles(), Names{"link"});
}

TEST_F(BackupScan, backupUnderOtherLettersIsNamed) {
  const std::string folder = "Users/alice/library/application support/mobilesync/backup/";
  info(folder + "one", {{"Display Name", "a name"}});
  ASSERT_EQ(::rename(volume.path(folder + "one/Info.plist").c_str(),
                     volume.path(folder + "one/info.plist").c_str()),
            0);
  run(kBackups);
  EXPECT_EQ(titles(), Names{"a name"});
}

TEST_F(BackupScan, infoThatIsALinkIsNotRead) {
  info("elsewhere", {{"Display Name", "a name"}});
  volume.file(kBackups + "one/data", "1");
  volume.link(kBackups + "one/Info.plist", volume.path("elsewhere/Info.plist"));
  run(kBackups);
  EXPECT_EQ(titles(), Names{"one"});
}

TEST_F(BackupScan, onlyDirectChildrenAreRecordsAndHiddenOnesAreNone) {
  volume.file(kBackups + "one/deep/er/data", "333");
  volume.file(kBackups + ".hidden/data", "1");
  volume.file(kBackups + "two.app/data", "1");
  run(kBackups);
  EXPECT_EQ(titles(), (Names{"one", "two"}));
  EXPECT_EQ(scan.results.at(0).second.folderSize, 4);
}

TEST_F(BackupScan, scanLeavesNoTrace) {
  volume.folder("Users/alice/Documents");
  info(kBackups + "one", {{"Display Name", "a name"}});
  const auto documents = test::snapshotOf(volume.path("Users/alice/Documents"));
  const auto backups = test::snapshotOf(volume.path(kBackups));
  run(kBackups);
  EXPECT_EQ(titles(), Names{"a name"});
  EXPECT_EQ(test::snapshotOf(volume.path("Users/alice/Documents")), documents);
  EXPECT_EQ(test::snapshotOf(volume.path(kBackups)), backups);
}

TEST_F(BackupScan, desktopKnowsABackupByItsFilesWhereverItLies) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  info("home/phones/one", {{"Display Name", "a phone"}});
  volume.file("home/phones/one/Manifest.db", "1");
  info("home/phones/two", {{"Display Name", "a tablet"}});
  volume.file("home/phones/two/Manifest.plist", "1");
  info("home/phones/three", {{"Display Name", "no backup"}});
  run("home/phones/");
  EXPECT_EQ(titles(), (Names{"a phone", "three", "a tablet"}));
}

}  // namespace
}  // namespace sorrel
