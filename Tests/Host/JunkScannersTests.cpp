// `sorrel scan` and `sorrel clean` for mail, itunes and photo-junk, from outside, with the catalogues that
// ship.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SorrelFramework/Platform/PropertyLists/PropertyList.hpp"
#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::hosttests {
namespace {

using Words = std::vector<std::string>;
using test::goneBetween;
using test::snapshotOf;

const std::string kLibrary = "Users/alice/Library/";
const std::string kStore = kLibrary + "Mail/V10/0A1B/INBOX.mbox/77/Data/";
const std::string kBackups = kLibrary + "Application Support/MobileSync/Backup/";
const std::string kPhotos = "Users/alice/Pictures/";

void backup(const TemporaryFolder& place, const std::string& folder, const std::string& name) {
  place.file(folder + "/ab/data", 40);
  PropertyList::Dictionary info;
  if (!name.empty()) info.set("Display Name", name);
  EXPECT_TRUE(writePropertyListFile(place.path(folder + "/Info.plist"), std::move(info)));
}

/// A home with files of Mail, device backups and two photo libraries.
struct Volume : TemporaryFolder {
  Volume() {
    file(kStore + "Messages/1.emlx", 100);
    file(kStore + "Attachments/1/2/report.pdf", 300);
    file(kLibrary + "Mail Downloads/opened/picture.heic", 50);
    backup(*this, kBackups + "00008030-001A", "Alice's phone");
    backup(*this, kBackups + "00008101-002B", "");
    file(kPhotos + "A.photoslibrary/resources/media/face/a.jpg", 5);
    file(kPhotos + "B.photoslibrary/resources/media/face/b.jpg", 7);
    file(kPhotos + "B.photoslibrary/originals/b.jpg", 700);
    text(kLibrary + "Application Support/org.sorrel.Sorrel/org.sorrel.SorrelFrameworkLog.txt", "");
  }
  [[nodiscard]] ProgramRun run(const Words& more) const {
    Words words = {"--volume", path()};
    words.insert(words.end(), more.begin(), more.end());
    return sorrel(words);
  }
};

/// Titles of all records of a scan.
Words titles(const Json& document) {
  Words found;
  for (const Json& row : document.at("feature").at("categoryInfo")) {
    for (const Json& record : row.at("childrens")) found.push_back(record.at("title"));
  }
  return found;
}

/// The paths that a clean of all results of the feature removes, except the log.
Words goneByCleaning(const Volume& volume, const std::string& feature) {
  const auto before = snapshotOf(volume.path());
  const ProgramRun run = volume.run({"clean", feature, "--all", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  return goneBetween(before, snapshotOf(volume.path()));
}

TEST(JunkScanners, mailListsAttachmentsAndOpenedOnes) {
  const Volume volume;
  const Json document = volume.run({"--json", "scan", "mail"}).document();
  EXPECT_EQ(titles(document), (Words{"report.pdf", "opened"}));
  EXPECT_EQ(document.at("size"), 350);
  EXPECT_EQ(document.at("status"), "end");
}

TEST(JunkScanners, mailCleanTakesAttachmentsAndLeavesMessages) {
  const Volume volume;
  EXPECT_EQ(goneByCleaning(volume, "mail"),
            (Words{kLibrary + "Mail Downloads/opened", kLibrary + "Mail Downloads/opened/picture.heic",
                   kStore + "Attachments/1/2/report.pdf"}));
}

TEST(JunkScanners, backupsBearTheNamesOfTheirDevices) {
  const Volume volume;
  EXPECT_EQ(titles(volume.run({"--json", "scan", "itunes"}).document()),
            (Words{"Alice's phone", "00008101-002B"}));
}

TEST(JunkScanners, backupIsCleanedAsAWholeAndTheOtherStays) {
  const Volume volume;
  const auto before = snapshotOf(volume.path());
  const ProgramRun run = volume.run({"clean", "itunes", "--select", "*/00008030-*", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  const std::string gone = kBackups + "00008030-001A";
  EXPECT_EQ(goneBetween(before, snapshotOf(volume.path())),
            (Words{gone, gone + "/Info.plist", gone + "/ab", gone + "/ab/data"}));
}

TEST(JunkScanners, photoJunkIsThatOfTheLastLibrary) {
  const Volume volume;
  EXPECT_EQ(titles(volume.run({"--json", "scan", "photo-junk"}).document()), Words{"b.jpg"});
  EXPECT_EQ(goneByCleaning(volume, "photo-junk"),
            Words{kPhotos + "B.photoslibrary/resources/media/face/b.jpg"});
}

TEST(JunkScanners, emptyVolumeGivesEmptyRows) {
  const TemporaryFolder empty;
  empty.folder("Users/alice");
  for (const char* const feature : {"mail", "itunes", "photo-junk"}) {
    const ProgramRun run = sorrel({"--volume", empty.path(), "--json", "scan", feature});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(titles(run.document()), Words{}) << feature;
  }
}

TEST(JunkScanners, photoFeatureWithoutCategoriesIsRefused) {
  const TemporaryFolder place;
  place.folder("Users/alice");
  const std::string file = place.text("test.plist", catalogue({{6, {}}}));
  const ProgramRun run = sorrel({"--volume", place.path(), "--catalogue", file, "scan", "photo-junk"});
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.err.find("has no categories"), std::string::npos) << run.err;
}

TEST(JunkScanners, desktopLeavesAMailFolderCalledAttachmentsAlone) {
  const TemporaryFolder home;
  // Folders in the layout of mail programs, one file for each message.
  const Words messages = {
      home.file(".thunderbird/p.default/Mail/Local Folders/Attachments/cur/1.eml", 3),
      home.file(".local/share/evolution/mail/local/folders/Attachments/cur/1", 3),
      home.file(".var/app/org.gnome.Evolution/data/evolution/mail/local/.Attachments/Attachments/cur/1", 3)};
  home.file(".cache/evolution/mail/account/folders.db", 4);
  const RunOptions options{.environment = {"HOME=" + home.path()}};
  const ProgramRun run = sorrel({"--json", "clean", "mail", "--all", "--yes"}, options);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("size"), 4);
  for (const std::string& message : messages) EXPECT_EQ(contentOf(message), "xxx") << message;
}

TEST(JunkScanners, desktopCleanOfPhotoJunkCountsAndRemovesTheLibraryOnce) {
  const TemporaryFolder home;
  home.file("Pictures/L.photoslibrary/resources/media/face/a.jpg", 7);
  home.file(".cache/thumbnails/normal/0a.png", 5);
  const RunOptions options{.environment = {"HOME=" + home.path()}};
  const ProgramRun run = sorrel({"--json", "clean", "photo-junk", "--all", "--yes"}, options);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("size"), 12);
  EXPECT_EQ(run.document().at("clean").at("size"), 12);
  EXPECT_EQ(contentOf(home.path("Pictures/L.photoslibrary/resources/media/face/a.jpg")), "");
}

TEST(JunkScanners, desktopFindsMailCachesBackupsAndThumbnails) {
  const TemporaryFolder home;
  home.file(".cache/evolution/mail/account/folders.db", 4);
  backup(home, ".local/share/MobileSync/Backup/00008030-001A", "Alice's phone");
  home.file(".local/share/MobileSync/Backup/00008030-001A/Manifest.db", 1);
  home.file(".cache/thumbnails/normal/0a.png", 5);
  home.file(".cache/shotwell/thumbs/thumbs128/t.jpg", 6);
  const RunOptions options{.environment = {"HOME=" + home.path()}};
  const auto found = [&](const char* feature) {
    return titles(sorrel({"--json", "scan", feature}, options).document());
  };
  EXPECT_EQ(found("mail"), Words{"account"});
  EXPECT_EQ(found("itunes"), Words{"Alice's phone"});
  EXPECT_EQ(found("photo-junk"), (Words{"t.jpg", "0a.png"}));
}

}  // namespace
}  // namespace sorrel::hosttests
