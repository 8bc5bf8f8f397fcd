// `sorrel clean trash` on this desktop, from outside: what other programs know about the trash goes too.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Tests/Host/CleanVolume.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using test::goneBetween;

/// A home of this machine with things in its trash.
class DesktopTrashClean : public testing::Test {
 protected:
  DesktopTrashClean() {
    throwAway("film.mov", "pictures");
    throwAway("note", "x");
    home_.text(kTrash + "files/project/a", "12345");
    home_.text(kTrash + "info/project.trashinfo", info("project"));
    home_.text(kTrash + "directorysizes", "5 1700000000000 project\n");
    home_.text("data/org.sorrel.Sorrel/org.sorrel.SorrelFrameworkLog.txt", "");
    home_.text("Documents/letter", "x");
  }

  [[nodiscard]] static std::string info(const std::string& name) {
    return "[Trash Info]\nPath=/home/alice/" + name + "\nDeletionDate=2026-01-02T03:04:05\n";
  }
  void throwAway(const std::string& name, const std::string& content) const {
    home_.text(kTrash + "files/" + name, content);
    home_.text(kTrash + "info/" + name + ".trashinfo", info(name));
  }
  /// The record of an item that is gone since long.
  void ghost() const {
    home_.text(kTrash + "info/ghost.trashinfo", info("ghost"));
    fs::last_write_time(home_.path(kTrash + "info/ghost.trashinfo"),
                        fs::file_time_type::clock::now() - std::chrono::hours(24));
  }
  [[nodiscard]] ProgramRun clean(Words words) const {
    words.insert(words.begin(), {"clean", "trash"});
    return sorrel(words, {.environment = {"HOME=" + home_.path(), "XDG_DATA_HOME=" + home_.path("data")}});
  }
  [[nodiscard]] std::vector<test::TreeEntry> items() const {
    auto entries = test::snapshotOf(home_.path());
    std::erase_if(entries, [](const test::TreeEntry& entry) { return entry.path.ends_with("Log.txt"); });
    return entries;
  }

  const std::string kTrash = "data/Trash/";  // hides that of the volumes
  const TemporaryFolder home_;
};

TEST_F(DesktopTrashClean, whatWasNotTickedKeepsItsRecords) {
  ghost();
  home_.text(kTrash + "expunged/1/x", "x");
  home_.text(kTrash + "files/empty", "");
  const auto before = items();
  const ProgramRun run = clean({"--select", "*/film.mov", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(goneBetween(before, items()),
            (Words{kTrash + "files/film.mov", kTrash + "info/film.mov.trashinfo"}));
  EXPECT_EQ(contentOf(home_.path(kTrash + "directorysizes")), "5 1700000000000 project\n");
}

TEST_F(DesktopTrashClean, lineOfAFolderGoesWithIt) {
  home_.text(kTrash + "files/other/a", "1");
  home_.text(kTrash + "directorysizes", "1 2 other\n5 1700000000000 project\n");
  EXPECT_EQ(clean({"--select", "*/project", "--yes"}).status, 0);
  EXPECT_EQ(contentOf(home_.path(kTrash + "directorysizes")), "1 2 other\n");
}

TEST_F(DesktopTrashClean, allLeavesTheTrashEmpty) {
  ghost();
  home_.text(kTrash + "files/unknown", "x");
  home_.text(kTrash + "files/unknown and empty", "");
  home_.text(kTrash + "expunged/1/x", "x");
  home_.text(kTrash + "directorysizes", "5 1700000000000 project\n1 2 ghost\n");
  throwAway("empty", "");
  const ProgramRun run = clean({"--all", "--yes", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.document().at("clean").at("records").size(), 4U);
  for (const char* folder : {"files", "info", "expunged"}) {
    EXPECT_TRUE(fs::is_empty(home_.path(kTrash + folder))) << folder;
  }
  EXPECT_EQ(contentOf(home_.path(kTrash + "directorysizes")), "");
  EXPECT_TRUE(fs::exists(home_.path("Documents/letter")));
}

TEST_F(DesktopTrashClean, dryRunOfAllLeavesTheRecords) {
  ghost();
  home_.text(kTrash + "expunged/1/x", "x");
  const auto before = items();
  EXPECT_EQ(clean({"--all", "--dry-run"}).status, 0);
  EXPECT_EQ(items(), before);
}

TEST_F(DesktopTrashClean, remainsThatStayAreAFailureAndNamed) {
  home_.text(kTrash + "info/ghost.trashinfo/x", "x");
  fs::last_write_time(home_.path(kTrash + "info/ghost.trashinfo"),
                      fs::file_time_type::clock::now() - std::chrono::hours(24));
  const ProgramRun run = clean({"--all", "--yes"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "sorrel: could not clear away '" + home_.path(kTrash + "info/ghost.trashinfo") + "'\n");
}

TEST_F(DesktopTrashClean, textsNameWhatNoScanLists) {
  ghost();
  home_.text(kTrash + "expunged/1/x", "123");
  home_.text(kTrash + "files/zerodir/z", "");
  const std::string plan = clean({"--all", "--dry-run"}).out;
  const ProgramRun run = clean({"--all", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* name : {"info/ghost.trashinfo", "expunged/1", "files/zerodir"}) {
    EXPECT_NE(plan.find(home_.path(kTrash + name) + "\n"), std::string::npos) << name << plan;
    EXPECT_NE(run.out.find(home_.path(kTrash + name) + "\n"), std::string::npos) << name << run.out;
    EXPECT_FALSE(fs::exists(home_.path(kTrash + name))) << name;
  }
}

TEST_F(DesktopTrashClean, recordThatStaysIsAFailureAndNamed) {
  fs::remove(home_.path(kTrash + "info/note.trashinfo"));
  home_.text(kTrash + "info/note.trashinfo/x", "x");
  const ProgramRun run = clean({"--select", "*/note", "--yes"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "sorrel: could not clear away '" + home_.path(kTrash + "info/note.trashinfo") + "'\n");
  EXPECT_FALSE(fs::exists(home_.path(kTrash + "files/note")));
}

TEST_F(DesktopTrashClean, trashThatIsALinkOfTheUsersOwnIsEmptied) {
  ghost();
  home_.text(kTrash + "expunged/1/x", "x");
  fs::rename(home_.path("data/Trash"), home_.path("elsewhere"));
  fs::create_symlink("../elsewhere", home_.path("data/Trash"));
  const ProgramRun run = clean({"--all", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* folder : {"files", "info", "expunged"}) {
    EXPECT_TRUE(fs::is_empty(home_.path("elsewhere/") + folder)) << folder;
  }
}

TEST_F(DesktopTrashClean, trashOfAMacOSVolumeHasNoRecords) {
  const Volume volume({hosttests::kTrash});
  volume.file(kTrashFolder + "files/a", 1);
  volume.file(kTrashFolder + "info/a.trashinfo", 1);
  volume.file(kTrashFolder + "expunged/b", 1);
  const auto before = volume.items();
  EXPECT_EQ(volume.clean({"2", "--select", "*/files", "--yes"}).status, 0);
  EXPECT_EQ(goneBetween(before, volume.items()), (Words{kTrashFolder + "files", kTrashFolder + "files/a"}));
}

/// Text of a command of the shell with this home.
std::string told(const TemporaryFolder& home, const std::string& command) {
  const std::string out = home.path("out");
  const std::string line = "HOME='" + home.path() + "' XDG_DATA_HOME='" + home.path("data") + "' sh -c '" +
                           command + "' > '" + out + "' 2>&1";
  EXPECT_EQ(std::system(line.c_str()), 0) << command;  // NOLINT(concurrency-mt-unsafe)
  return contentOf(out);
}

TEST_F(DesktopTrashClean, otherProgramsSeeAnEmptyTrashAfterwards) {
  if (!fs::exists("/usr/bin/trash-list")) GTEST_SKIP() << "needs trash-cli (scripts/setup --test)";
  home_.text("a b%41", "x");
  home_.text("new folder/x", "x");
  home_.text("empty", "");
  told(home_, "cd && trash-put a* new* empty");
  const std::string listed = told(home_, "trash-list");
  EXPECT_NE(listed.find("a b%41\n"), std::string::npos) << listed;
  EXPECT_NE(listed.find("/home/alice/film.mov\n"), std::string::npos) << listed;
  ASSERT_EQ(clean({"--select", "*/a b*", "--yes"}).status, 0);
  EXPECT_EQ(told(home_, "trash-list").find("a b%41\n"), std::string::npos);
  EXPECT_NE(told(home_, "trash-list").find("new folder\n"), std::string::npos);
  ASSERT_EQ(clean({"--all", "--yes"}).status, 0);
  EXPECT_EQ(told(home_, "trash-list"), "");
}

TEST_F(DesktopTrashClean, letterCaseOfAnExceptionCounts) {
  const auto before = items();
  const ProgramRun run = clean({"--all", "--except", "*/PROJECT", "--yes"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("'*/PROJECT'"), std::string::npos) << run.err;
  EXPECT_EQ(goneBetween(before, items()), Words());
}

TEST_F(DesktopTrashClean, exceptionsKeepWhatNoScanLists) {
  home_.text(kTrash + "files/empty", "");
  home_.text(kTrash + "info/empty.trashinfo", info("empty"));
  home_.text(kTrash + "expunged/1/x", "x");
  const auto before = items();
  const ProgramRun run = clean({"--all", "--except", "*/empty", "*/project", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(goneBetween(before, items()),
            (Words{kTrash + "files/film.mov", kTrash + "files/note", kTrash + "info/film.mov.trashinfo",
                   kTrash + "info/note.trashinfo"}));
}

}  // namespace
}  // namespace sorrel::hosttests
