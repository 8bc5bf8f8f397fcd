#include "SorrelFramework/Scan/MasterScan/EmailScanService.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Scan/MasterScan/JunkScanKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;

const std::string kMail = "Users/alice/Library/Mail/";

class EmailScan : public test::JunkScanFixture {
 protected:
  void run(CategoryInfomationKind kind, const std::vector<URL>& urls) {
    runScan(EmailScanService::scanEmailJunk, 4, {kind, urls});
  }
  void runAttachments() { run(CategoryInfomationKind::EmailAttachment, {volume.url("elsewhere/")}); }
  [[nodiscard]] Names names(const std::string& root = kMail) const { return namesBelow(root); }
  /// The list beside a mail store, with the names of its version folders.
  void persistenceInfo(const std::string& folder, const Names& versions) const {
    PropertyList::Dictionary identifiers;
    for (const std::string& version : versions) identifiers.set(version, "an identifier");
    PropertyList::Dictionary list;
    list.set("LastUsedVersionDirectoryName", "V10");
    list.set("VersionDirectoryIdentifiers", std::move(identifiers));
    volume.folder(folder);
    EXPECT_TRUE(writePropertyListFile(volume.path(folder + "PersistenceInfo.plist"), std::move(list)));
  }
};

TEST_F(EmailScan, attachmentsAreTheFilesBelowAFolderOfThatName) {
  volume.file(kMail + "V10/ID/INBOX.mbox/U/Data/Messages/1.emlx", "mail");
  volume.file(kMail + "V10/ID/INBOX.mbox/U/Data/Attachments/1/2/a.pdf", "333");
  volume.file(kMail + "V10/ID/INBOX.mbox/U/Data/Attachments/1/2/.hidden", "1");
  volume.file(kMail + "V10/ID/INBOX.mbox/U/Data/Attachments/1/3/My.app/Contents/x", "22");
  runAttachments();
  const std::string data = "V10/ID/INBOX.mbox/U/Data/Attachments/1/";
  EXPECT_EQ(names(), (Names{data + "2/.hidden", data + "2/a.pdf", data + "3/My.app/Contents/x"}));
  EXPECT_EQ(scan.results.at(0).second.fileSize, 6);
  EXPECT_EQ(scan.results.at(0).second.folderSize, 0);
}

TEST_F(EmailScan, storesOfAllVersionsAreSearchedAtAnyDepth) {
  const Names versions = {"V2/IMAP-a@example.org/INBOX.mbox/Attachments/1/a",
                          "V6/ID/INBOX.mbox/U/Data/Attachments/1/2/a",
                          "V9/ID/Work.mbox/Old.mbox/U/Data/1/2/Attachments/34/2/a"};
  for (const std::string& name : versions) volume.file(kMail + name, "1");
  runAttachments();
  EXPECT_EQ(names(), versions);
}

/// A position that no walk has reached.
struct Position : EnumerationPosition {
  explicit Position(int level) { level_ = level; }
};

ResourceValues valuesOf(const std::string& path, std::optional<bool> isDirectory = false) {
  ResourceValues values;
  values.path = path;
  values.isDirectory = isDirectory;
  return values;
}

TEST_F(EmailScan, levelsFromFourOnAreKept) {
  const auto values = valuesOf(volume.path(kMail + "x/Attachments/a"));
  for (const int level : {0, 1, 2, 3, 4, 5, 6, 20}) {
    Position position(level);
    EXPECT_EQ(EmailScanService::attachmentFilter({}, values, &position), level > 3) << level;
  }
  EXPECT_FALSE(EmailScanService::attachmentFilter({}, values, nullptr));
}

TEST_F(EmailScan, itemOfUnknownPathOrSortIsDropped) {
  Position position(5);
  const std::string path = volume.path(kMail + "x/Attachments/a");
  EXPECT_TRUE(EmailScanService::attachmentFilter({}, valuesOf(path), &position));
  EXPECT_FALSE(EmailScanService::attachmentFilter({}, valuesOf(path, std::nullopt), &position));
  EXPECT_FALSE(EmailScanService::attachmentFilter({}, valuesOf(path, true), &position));
  auto pathless = valuesOf(path);
  pathless.path.reset();
  EXPECT_FALSE(EmailScanService::attachmentFilter({}, pathless, &position));
}

TEST_F(EmailScan, volumeOrHomeInAFolderAttachmentsMakesNoMessageAnAttachment) {
  Host::install(Host::macVolume(volume.path("Attachments/disk"), "alice", {"org.example.test", "", {}}));
  const std::string mail = "Attachments/disk/" + kMail;
  volume.file(mail + "V10/ID/INBOX.mbox/1.emlx", "1");
  volume.file(mail + "V10/ID/INBOX.mbox/Attachments/a", "1");
  runAttachments();
  EXPECT_EQ(names(mail), Names{"V10/ID/INBOX.mbox/Attachments/a"});

  const test::ScopedVariable home("HOME", volume.path("Attachments/home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("Attachments/home/store/a/b/c/INBOX", "1");
  volume.file("Attachments/home/store/a/b/Attachments/d", "1");
  scan.doneCount = 0;
  scan.percents.clear();
  run(CategoryInfomationKind::EmailAttachment, {volume.url("Attachments/home/store/")});
  EXPECT_EQ(names("Attachments/home/store/"), Names{"a/b/Attachments/d"});
}

TEST_F(EmailScan, scanOfAttachmentsChangesNothing) {
  volume.file(kMail + "a/b/c/Attachments/d", "1");
  volume.folder("Users/alice/Documents");
  const auto before = test::snapshotOf(volume.path());
  runAttachments();
  EXPECT_EQ(names(), Names{"a/b/c/Attachments/d"});
  EXPECT_EQ(test::snapshotOf(volume.path()), before);
}

TEST_F(EmailScan, fileAtLevelThreeIsDroppedAndOneAtLevelFourKept) {
  volume.file(kMail + "V10/Attachments/three", "1");
  volume.file(kMail + "V10/Box/Attachments/four", "1");
  runAttachments();
  EXPECT_EQ(names(), Names{"V10/Box/Attachments/four"});
}

TEST_F(EmailScan, folderNeverMakesARecord) {
  volume.file(kMail + "a/b/c/Attachments/d/Attachments/f", "1");
  volume.folder(kMail + "a/b/c/Attachments/empty");
  runAttachments();
  EXPECT_EQ(names(), Names{"a/b/c/Attachments/d/Attachments/f"});
}

TEST_F(EmailScan, letterCaseOfAttachmentsCounts) {
  volume.file(kMail + "a/b/c/attachments/d", "1");
  runAttachments();
  EXPECT_TRUE(names().empty());
}

TEST_F(EmailScan, attachmentsComeFromTheMailFolderWhateverTheCatalogueSays) {
  volume.file("elsewhere/a/b/c/Attachments/d", "1");
  runAttachments();
  EXPECT_TRUE(names().empty());
}

TEST_F(EmailScan, missingMailFolderGivesZeroTotals) {
  runAttachments();
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(scan.results.at(0).second.fileSize, 0);
  EXPECT_EQ(scan.singles, (std::vector<std::pair<Integer, std::int64_t>>{{0, 0}}));
}

TEST_F(EmailScan, otherKindGivesTheDirectChildrenOfItsFolders) {
  volume.file("Downloads/one/a/deep", "333");
  volume.file("Downloads/two", "22");
  volume.file("Downloads/.hidden", "1");
  run(CategoryInfomationKind::Common, {volume.url("Downloads/")});
  EXPECT_EQ(names("Downloads/"), (Names{"one/", "two"}));
  EXPECT_EQ(scan.results.at(0).first[0]->size, 3);
}

TEST_F(EmailScan, desktopWalksTheFoldersOfTheCatalogue) {
  const test::ScopedVariable home("HOME", volume.path("home").c_str());
  Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
  volume.file("home/store/a/b/Attachments/d", "1");
  volume.file("home/store/a/b/c/d", "1");
  run(CategoryInfomationKind::EmailAttachment, {volume.url("home/store/")});
  EXPECT_EQ(names("home/store/"), Names{"a/b/Attachments/d"});
}

TEST_F(EmailScan, versionFoldersAreTheKeysOfTheirIdentifiers) {
  volume.folder("Users/alice/Documents");
  persistenceInfo(kMail, {"V2", "V10"});
  // In the order of the file.
  EXPECT_EQ(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)), (Names{"V10", "V2"}));
}

TEST_F(EmailScan, listIsCopiedToTheDocumentsOverAnOlderOne) {
  persistenceInfo("Users/alice/Documents/", {"V1"});
  const std::string other = volume.file("Users/alice/Documents/other", "mine");
  persistenceInfo(kMail, {"V10"});
  EXPECT_EQ(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)), Names{"V10"});
  EXPECT_EQ(test::contentOf(volume.path("Users/alice/Documents/PersistenceInfo.plist")),
            test::contentOf(volume.path(kMail + "PersistenceInfo.plist")));
  EXPECT_EQ(test::contentOf(other), "mine");
}

TEST_F(EmailScan, linkInThePlaceOfTheCopyGoesAndItsTargetStays) {
  persistenceInfo(kMail, {"V10"});
  const std::string target = volume.file("Users/alice/precious", "mine");
  volume.folder("Users/alice/Documents");
  volume.link("Users/alice/Documents/PersistenceInfo.plist", target);
  EXPECT_EQ(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)), Names{"V10"});
  EXPECT_EQ(test::contentOf(target), "mine");
}

TEST_F(EmailScan, folderInThePlaceOfTheCopyStaysAndTheListItselfIsRead) {
  persistenceInfo(kMail, {"V10"});
  const std::string inside = volume.file("Users/alice/Documents/PersistenceInfo.plist/precious", "mine");
  EXPECT_EQ(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)), Names{"V10"});
  EXPECT_EQ(test::contentOf(inside), "mine");
}

TEST_F(EmailScan, withoutADocumentsFolderTheListItselfIsRead) {
  persistenceInfo(kMail, {"V10"});
  EXPECT_EQ(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)), Names{"V10"});
}

TEST_F(EmailScan, missingOrDamagedListGivesNoNames) {
  volume.folder("Users/alice/Documents");
  EXPECT_TRUE(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)).empty());
  volume.file(kMail + "PersistenceInfo.plist", "bplist00 and no more");
  EXPECT_TRUE(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)).empty());
}

TEST_F(EmailScan, identifiersThatAreNoDictionaryAreSkipped) {
  PropertyList::Dictionary list;
  list.set("VersionDirectoryIdentifiers", "a text");
  list.set("OldVersionDirectoryIdentifiers", PropertyList::Dictionary({{"V9", "id"}}));
  list.set("Other", PropertyList::Dictionary({{"V1", "id"}}));
  volume.folder(kMail);
  ASSERT_TRUE(writePropertyListFile(volume.path(kMail + "PersistenceInfo.plist"), std::move(list)));
  EXPECT_EQ(EmailScanService::getMailAttachmentsDirectoryId(volume.url(kMail)), Names{"V9"});
}

}  // namespace
}  // namespace sorrel
