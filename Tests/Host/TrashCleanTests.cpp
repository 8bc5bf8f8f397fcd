// `sorrel clean trash` on this desktop, from outside: the records that other programs keep about the trash
// are removed too.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Host/CleanVolume.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using test::goneBetween;

/// A home of this machine with items in its trash.
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
  /// The record of an item that has long been gone.
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

TEST_F(DesktopTrashClean, youngRecordWithoutAnItemStaysAndIsNamed) {
  const std::string record = home_.text(kTrash + "info/young.trashinfo", info("young"));
  const std::string why =
      "Its item is not in the trash, and may be on the way there: the record can go when it is an hour old.";
  const std::string row = record + "\n             " + why + "\n";
  const ProgramRun plan = clean({"--all", "--dry-run"});
  EXPECT_EQ(plan.status, 0) << plan.err;
  EXPECT_NE(plan.out.find("Would stay:\n"), std::string::npos) << plan.out;
  EXPECT_NE(plan.out.find(row), std::string::npos) << plan.out;
  EXPECT_NE(plan.out.find("3 items, 14 B would go"), std::string::npos) << plan.out;
  EXPECT_EQ(clean({"--all", "--dry-run", "--json"}).err, "sorrel: left '" + record + "'. " + why + "\n");

  const ProgramRun run = clean({"--all", "--yes"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("Not removed:\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find(row), std::string::npos) << run.out;
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(fs::exists(record));
  const ProgramRun document = clean({"--all", "--yes", "--json"});
  EXPECT_EQ(document.status, 1);
  EXPECT_EQ(document.err, "sorrel: left '" + record + "'. " + why + "\n");
}

TEST_F(DesktopTrashClean, recordThatStaysIsAFailureAndNamed) {
  fs::remove(home_.path(kTrash + "info/note.trashinfo"));
  home_.text(kTrash + "info/note.trashinfo/x", "x");
  const ProgramRun run = clean({"--select", "*/note", "--yes"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "sorrel: could not clear away '" + home_.path(kTrash + "info/note.trashinfo") + "'\n");
  EXPECT_FALSE(fs::exists(home_.path(kTrash + "files/note")));
}

TEST_F(DesktopTrashClean, recordsInAFolderOfAnotherUserStayAndAreNamed) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs root";
  ghost();
  home_.text(kTrash + "files/empty", "");
  home_.text(kTrash + "info/empty.trashinfo", info("empty"));
  fs::remove(home_.path(kTrash + "directorysizes"));
  for (const auto& entry : fs::recursive_directory_iterator(home_.path()))
    ASSERT_EQ(::lchown(entry.path().c_str(), test::kPlainUser, test::kPlainUser), 0);
  ASSERT_EQ(::chown(home_.path().c_str(), test::kPlainUser, test::kPlainUser), 0);
  ASSERT_EQ(::chown(home_.path(kTrash + "info").c_str(), 0, 0), 0);
  ASSERT_EQ(::chmod(home_.path(kTrash + "info").c_str(), 0755), 0);
  const auto before = items();
  const ProgramRun run =
      sorrel({"clean", "trash", "--all", "--yes"},
             {.environment = {"HOME=" + home_.path(), "XDG_DATA_HOME=" + home_.path("data")},
              .user = test::kPlainUser});
  EXPECT_EQ(run.status, 1);
  std::string named;
  for (const char* const name : {"empty", "film.mov", "ghost", "note", "project"})
    named += "sorrel: could not clear away '" + home_.path(kTrash + "info/" + name + ".trashinfo") + "'\n";
  EXPECT_EQ(run.err, named);
  Words gone = goneBetween(before, items());
  std::erase_if(gone, [](const std::string& path) { return path.find("/files/") != std::string::npos; });
  EXPECT_EQ(gone, Words());
  EXPECT_TRUE(fs::is_empty(home_.path(kTrash + "files")));
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

/// Output of a shell command with this home.
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

/// A trash of many items; a clean that is interrupted after the first removes only few of them.
class InterruptedTrashClean : public testing::Test {
 protected:
  static constexpr int kItems = 2'000;

  /// Runs the clean on items with this content, and interrupts it when it has removed one.
  ProgramRun interruptedClean(const std::string& content) {
    for (int i = 0; i < kItems; ++i) {
      home_.text(kFiles + std::to_string(i), content);
      home_.text(kInfo + std::to_string(i) + ".trashinfo", "[Trash Info]\n");
    }
    const sorrel::FileDescriptor watch(::inotify_init1(IN_CLOEXEC));
    EXPECT_GE(::inotify_add_watch(watch.get(), home_.path(kFiles).c_str(), IN_DELETE), 0);
    RunOptions options{.environment = {"HOME=" + home_.path(), "XDG_DATA_HOME=" + home_.path("data")}};
    options.meanwhile = [&watch](int process) {
      std::array<char, 4096> event{};
      EXPECT_GT(::read(watch.get(), event.data(), event.size()), 0);
      ::kill(process, SIGINT);
    };
    return sorrel({"clean", "trash", "--all", "--yes"}, options);
  }
  [[nodiscard]] int count(bool withItem, bool withRecord) const {
    int found = 0;
    for (int i = 0; i < kItems; ++i) {
      const std::string name = std::to_string(i);
      found += fs::exists(home_.path(kFiles + name)) == withItem &&
               fs::exists(home_.path(kInfo + name + ".trashinfo")) == withRecord;
    }
    return found;
  }

  const std::string kFiles = "data/Trash/files/";
  const std::string kInfo = "data/Trash/info/";
  const TemporaryFolder home_;
};

TEST_F(InterruptedTrashClean, itemsThatStayKeepTheirRecords) {
  const ProgramRun run = interruptedClean("x");
  EXPECT_EQ(run.status, 130) << run.err;
  EXPECT_EQ(run.err, "sorrel: stopped. What was removed until now is gone, the rest was left as it is.\n");
  EXPECT_GT(count(true, true), 0);
  EXPECT_EQ(count(true, false), 0);
  EXPECT_LE(count(false, true), 1);  // the item being removed
}

TEST_F(InterruptedTrashClean, remainsThatStayKeepTheirRecords) {
  const ProgramRun run = interruptedClean("");
  EXPECT_EQ(run.status, 130) << run.err;
  EXPECT_EQ(run.err, "sorrel: stopped. What is listed as removed is gone, the rest was left as it is.\n");
  EXPECT_GT(count(true, true), 0);
  EXPECT_EQ(count(true, false), 0);
  EXPECT_EQ(count(false, true), 0);  // it ends between two items
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
