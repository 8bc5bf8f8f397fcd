// `sorrel clean`, from outside.
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

#include "Tests/Host/CleanVolume.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using test::goneBetween;
using test::snapshotOf;

// What goes

TEST(CleanCommand, allRemovesWhatTheScanFindsAndNothingElse) {
  const FullVolume volume;
  const auto before = volume.items();
  const ProgramRun run = volume.clean({"trash", "--all", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, "Removed:\n      900 B  " + volume.path(kTrashFolder + "film.mov") + "\n       30 B  " +
                         volume.path(kTrashFolder + "drafts") + "\n2 items removed, 930 B freed\n");
  const Words gone = {kTrashFolder + "drafts", kTrashFolder + "drafts/one", kTrashFolder + "drafts/sub",
                      kTrashFolder + "drafts/sub/two", kTrashFolder + "film.mov"};
  EXPECT_EQ(goneBetween(before, volume.items()), gone);
}

TEST(CleanCommand, selectRemovesWhatIsMatchedAndNothingElse) {
  const FullVolume volume;
  const auto before = volume.items();
  const ProgramRun run = volume.clean({"system-junk", "--select", "*/com.example", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  const Words gone = {kCacheFolder + "com.example", kCacheFolder + "com.example/data"};
  EXPECT_EQ(goneBetween(before, volume.items()), gone);
}

TEST(CleanCommand, exceptLeavesWhatItNames) {
  const FullVolume volume;
  const auto before = volume.items();
  const ProgramRun run = volume.clean({"trash", "--all", "--except", "*.mov", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(goneBetween(before, volume.items()),
            (Words{kTrashFolder + "drafts", kTrashFolder + "drafts/one", kTrashFolder + "drafts/sub",
                   kTrashFolder + "drafts/sub/two"}));
}

TEST(CleanCommand, exceptLeavesAFolderThatHoldsWhatItNamesWholeAndSaysSo) {
  const FullVolume volume;
  const auto before = volume.items();
  const std::string told = "sorrel: left whole, as --except names something in it: '" +
                           volume.path(kTrashFolder + "drafts") + "'\n";
  const Words words = {"trash", "--select", "*", "--except", "*/two", "--except=*/sub", "--quiet"};
  Words dry = words;
  dry.emplace_back("--dry-run");
  const ProgramRun plan = volume.clean(dry);
  EXPECT_EQ(plan.err, told);
  EXPECT_EQ(plan.out, "Would remove:\n      900 B  " + volume.path(kTrashFolder + "film.mov") +
                          "\n1 item, 900 B would go; nothing was removed\n");
  Words real = words;
  real.insert(real.end(), {"--yes", "--json"});
  const ProgramRun run = volume.clean(real);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, told);
  EXPECT_EQ(run.document().at("clean").at("size"), 900);
  EXPECT_EQ(goneBetween(before, volume.items()), Words{kTrashFolder + "film.mov"});
}

TEST(CleanCommand, anExceptionThatNamesNothingIsRefusedAndNothingGoes) {
  const FullVolume volume;
  const auto before = volume.bytes();
  const Words unused = {"drafts", "*/keep", "*/film.mov/x"};  // "drafts" does not start at the current folder
  for (const std::string& glob : unused) {
    for (const Words& more : {Words{"--yes"}, {"--yes", "--quiet"}, {"--yes", "--json"}, {"--dry-run"}}) {
      Words words = {"trash", "--select", "*.mov", "--except", "*/drafts", glob};
      words.insert(words.end(), more.begin(), more.end());
      const ProgramRun run = volume.clean(words);
      EXPECT_EQ(run.status, 2) << testing::PrintToString(words);
      EXPECT_EQ(run.out, "");
      EXPECT_EQ(run.err,
                "sorrel: nothing was removed: --except names nothing that was found by '" + glob + "'.\n");
    }
  }
  EXPECT_EQ(volume.bytes(), before);
}

TEST(CleanCommand, anExceptionMayNameWhatWasNotSelected) {
  const FullVolume volume;
  const ProgramRun run = volume.clean({"trash", "--select", "*.mov", "--except", "*/drafts", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(fs::exists(volume.path(kTrashFolder + "film.mov")));
}

TEST(CleanCommand, exceptionsMayNameAFolderAndWhatLiesInIt) {
  const FullVolume volume;
  const ProgramRun run =
      volume.clean({"trash", "--all", "--except", "*/drafts", "*/drafts/sub/two", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(fs::exists(volume.path(kTrashFolder + "drafts/one")));
}

TEST(CleanCommand, anExceptionFitsHoweverItSpellsThePath) {
  const std::string trash = kTrashFolder.substr(0, kTrashFolder.size() - 1);
  for (const std::string spelling :
       {"*/drafts/", "*/drafts//", "*/DRAFTS", "VOLUME/lnk/drafts", "VOLUME/lnk/dr*",
        "VOLUME/lnk/drafts/sub/*", "VOLUME/off/drafts", "drafts", "./d[r]afts", "VOLUME/to-drafts",
        "../.Trash/drafts/one", "VOLUME/\\lnk/\\drafts"}) {
    const FullVolume volume;
    fs::create_directory_symlink(trash, volume.path("lnk"));
    fs::create_directory_symlink("/" + trash, volume.path("off"));
    fs::create_directory_symlink(trash + "/drafts", volume.path("to-drafts"));
    const auto before = volume.items();
    std::string glob = spelling;
    if (glob.starts_with("VOLUME")) glob.replace(0, 6, volume.path());
    const ProgramRun run =
        volume.clean({"trash", "--all", "--except", glob, "--yes"}, {.folder = volume.path(trash)});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(goneBetween(before, volume.items()), Words{kTrashFolder + "film.mov"}) << spelling;
  }
}

TEST(CleanCommand, anExceptionThroughALinkWithWildcardsInItsNameFits) {
  const FullVolume volume;
  volume.file(kTrashFolder + "[a]*/keep", 5);
  fs::create_directory_symlink(kTrashFolder + "[a]*", volume.path("lnk"));
  const auto before = volume.items();
  const Words words = {"trash", "--all", "--except", volume.path("lnk/k*"), "--yes"};
  EXPECT_EQ(volume.clean(words).status, 0);
  EXPECT_TRUE(fs::exists(volume.path(kTrashFolder + "[a]*/keep")));
}

TEST(CleanCommand, aTerminalShowsTheProgressOfACleanAndIsLeftClean) {
  for (const char* const silent : {"", "--quiet", "--json"}) {
    const FullVolume volume;
    Words words = {"--volume", volume.path(), "clean", "trash", "--all", "--yes"};
    if (*silent != 0) words.emplace_back(silent);
    const ProgramRun run = sorrelOnTerminal(words);
    EXPECT_EQ(run.status, 0) << run.err;
    if (*silent != 0) {
      EXPECT_EQ(run.err, "") << silent;
      continue;
    }
    EXPECT_NE(run.err.find("0 s  removing: 0 of 2 items, 0 B"), std::string::npos) << run.err;
    EXPECT_TRUE(run.err.ends_with("\r\x1b[K")) << run.err;
    EXPECT_TRUE(run.out.ends_with("2 items removed, 930 B freed\n")) << run.out;
  }
}

TEST(CleanCommand, dryRunLeavesEveryByte) {
  const FullVolume volume;
  const auto before = volume.bytes();
  for (const Words& words : {Words{"trash", "--all", "--dry-run"}, Words{"2", "--select", "*", "--dry-run"},
                             Words{"system-junk", "--all", "--dry-run", "--json"}}) {
    EXPECT_EQ(volume.clean(words).status, 0) << testing::PrintToString(words);
  }
  EXPECT_EQ(volume.bytes(), before);
}

TEST(CleanCommand, dryRunListsWhatWouldGo) {
  const FullVolume volume;
  const ProgramRun run = volume.clean({"trash", "--select", "*.mov", "--dry-run"});
  EXPECT_EQ(run.out, "Would remove:\n      900 B  " + volume.path(kTrashFolder + "film.mov") +
                         "\n1 item, 900 B would go; nothing was removed\n");
}

TEST(CleanCommand, dryRunPrintsTheScansDocumentWithTicks) {
  const FullVolume volume;
  Json scan =
      sorrel({"--volume", volume.path(), "--catalogue", volume.path("test.plist"), "--json", "scan", "trash"})
          .document();
  Json document = volume.clean({"trash", "--select", "*.mov", "--dry-run", "--json"}).document();
  Json& feature = document.at("feature");
  Json& row = feature.at("categoryInfo").at(0);
  EXPECT_EQ(feature.at("state"), -1);
  EXPECT_EQ(row.at("state"), -1);
  EXPECT_EQ(row.at("childrens").at(0).at("state"), 0);
  EXPECT_EQ(row.at("childrens").at(1).at("state"), 1);
  for (Json* const ticked : {&feature, &row, &row.at("childrens").at(1)}) (*ticked)["state"] = 0;
  for (Json* const tree : {&document, &scan}) {
    for (Json& record : tree->at("feature").at("categoryInfo").at(0).at("childrens")) {
      record["dateSeconds"] = record["date"] = nullptr;  // depend on the current time
    }
  }
  EXPECT_EQ(document.dump(1), scan.dump(1));
}

TEST(CleanCommand, dryRunOfAllTicksEveryRow) {
  const FullVolume volume;
  const Json document = volume.clean({"trash", "--all", "--dry-run", "--json"}).document();
  EXPECT_EQ(document.at("feature").at("state"), 1);
  EXPECT_EQ(onlyRow(document).at("state"), 1);
  for (const Json& record : onlyRow(document).at("childrens")) EXPECT_EQ(record.at("state"), 1);
}

TEST(CleanCommand, theCataloguesTicksAreCleared) {
  Volume volume({{1,
                  {{0, "SystemCache", {"file://~/Library/Caches/"}, 1},
                   {1, "SystemCache", {"file://~/Library/Logs/"}, 1}},
                  1}});
  volume.file(kCacheFolder + "a", 1);
  volume.file("Users/alice/Library/Logs/b", 1);
  volume.file("Users/alice/Library/Logs/c", 1);
  const auto before = volume.items();
  const Json document = volume.clean({"1", "--select", "*/b", "--dry-run", "--json"}).document();
  EXPECT_EQ(onlyRow(document).at("state"), 0);
  EXPECT_EQ(onlyRow(document).at("childrens").at(0).at("state"), 0);
  EXPECT_EQ(volume.clean({"1", "--select", "*/b", "--yes"}).status, 0);
  EXPECT_EQ(goneBetween(before, volume.items()), Words{"Users/alice/Library/Logs/b"});
}

TEST(CleanCommand, linksGoAndWhatTheyLeadToStays) {
  const FullVolume volume;
  ASSERT_EQ(::symlink("../Documents", volume.path(kTrashFolder + "docs").c_str()), 0);
  ASSERT_EQ(::symlink("../../Documents/letter", volume.path(kTrashFolder + "drafts/link").c_str()), 0);
  EXPECT_EQ(volume.clean({"trash", "--all", "--yes"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_empty(volume.path(kTrashFolder)));
  EXPECT_TRUE(std::filesystem::exists(volume.path("Users/alice/Documents/letter")));
}

TEST(CleanCommand, trashesOfOtherVolumesAreCleanedToo) {
  const FullVolume volume;
  const std::string stick = "Volumes/USB/.Trashes/" + std::to_string(::getuid()) + "/";
  volume.file(stick + "old.zip", 300);
  volume.file("Volumes/USB/photo", 5);
  const auto before = volume.items();
  EXPECT_EQ(volume.clean({"trash", "--select", "*.zip", "--yes"}).status, 0);
  EXPECT_EQ(goneBetween(before, volume.items()), Words{stick + "old.zip"});
}

TEST(CleanCommand, namesOfAnyBytesGo) {
  const Volume volume({kCaches});
  const Words names = {"a\nb", "\xff\xfe", "100%41", "-rf", "a b", "*", "x?#"};
  for (const std::string& name : names) volume.file(kCacheFolder + name, 1);
  const Json document = volume.clean({"1", "--all", "--yes", "--json"}).document();
  EXPECT_EQ(document.at("clean").at("records").size(), names.size());
  EXPECT_TRUE(std::filesystem::is_empty(volume.path(kCacheFolder)));
}

TEST(CleanCommand, aHomeOnThisMachineLosesExactlyWhatIsSelected) {
  const TemporaryFolder home;
  const std::string trash = "data/Trash/files/";
  home.file(trash + "gone.txt", 11);
  home.file(trash + "kept.txt", 5);
  home.file("data/Trash/info/gone.txt.trashinfo", 50);
  home.file("data/Trash/info/kept.txt.trashinfo", 50);
  home.file("cache/thumbnails/t.png", 9);
  home.folder("data/org.sorrel.Sorrel");
  home.text("data/org.sorrel.Sorrel/org.sorrel.SorrelFrameworkLog.txt", "");
  const std::string file =
      home.text("test.plist", catalogue({{1, {{0, "SystemCache", {"file://~/.cache/"}}}}}));
  const RunOptions options = {.environment = {"HOME=" + home.path(), "XDG_DATA_HOME=" + home.path("data"),
                                              "XDG_CACHE_HOME=" + home.path("cache")}};
  const auto items = [&home] {
    auto entries = snapshotOf(home.path());
    std::erase_if(entries, [](const test::TreeEntry& entry) { return entry.path.ends_with("Log.txt"); });
    return entries;
  };
  const auto before = items();
  ProgramRun run = sorrel({"clean", "trash", "--select", home.path(trash + "g*"), "--yes"}, options);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(goneBetween(before, items()), (Words{trash + "gone.txt", "data/Trash/info/gone.txt.trashinfo"}));
  const auto between = items();
  run = sorrel({"--catalogue", file, "clean", "1", "--all", "--yes"}, options);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(goneBetween(between, items()), Words({"cache/thumbnails", "cache/thumbnails/t.png"}));
}

// The document

TEST(CleanCommand, documentTellsTheCleanBeforeTheRepairAndTheTreeAfterIt) {
  const FullVolume volume;
  const ProgramRun run = volume.clean({"trash", "--select", "*/drafts", "--yes", "--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const Json document = run.document();
  Words keys;
  for (const auto& [key, value] : document.items()) keys.push_back(key);
  EXPECT_EQ(keys, Words({"feature", "size", "status", "callbacks", "clean"}));
  // The scan's own values.
  EXPECT_EQ(document.at("size"), 930);
  EXPECT_EQ(document.at("status"), "end");

  Json clean = document.at("clean");
  ASSERT_EQ(clean.at("records").size(), 1U);
  Json& record = clean.at("records").at(0);
  EXPECT_EQ(record.at("finderID"), 0);
  EXPECT_EQ(record.at("path"), volume.path(kTrashFolder + "drafts"));
  EXPECT_EQ(record.at("state"), 1);
  EXPECT_EQ(record.at("deleteStatus"), 2);
  EXPECT_EQ(record.at("deleteErrorDesc"), "");
  EXPECT_EQ(record.size(), 18U);
  clean["records"] = nullptr;
  EXPECT_EQ(clean.dump(), R"({"size":30,"status":0,"desc":"","abnormalFiles":[],"progress":[0.25,0.5,0.75],)"
                          R"("records":null})");

  const Json& row = onlyRow(document);
  EXPECT_EQ(row.at("state"), 0);
  EXPECT_EQ(row.at("size"), 900);
  ASSERT_EQ(row.at("childrens").size(), 1U);
  EXPECT_EQ(row.at("childrens").at(0).at("title"), "film.mov");
  EXPECT_EQ(row.at("childrens").at(0).at("finderID"), 0);
  EXPECT_EQ(document.at("feature").at("state"), 0);
}

TEST(CleanCommand, aSelectionOfNothingIsNoFailure) {
  const FullVolume volume;
  const auto before = volume.bytes();
  ProgramRun run = volume.clean({"trash", "--select", "*/Trash", "x", "--yes", "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "sorrel: nothing is called '*/Trash'\nsorrel: nothing is called 'x'\n");
  const Json document = run.document();
  EXPECT_EQ(document.at("clean").dump(),
            R"({"size":0,"status":0,"desc":"","abnormalFiles":[],"progress":[0.25,0.5,0.75],"records":[]})");
  EXPECT_EQ(volume.bytes(), before);
  run = volume.clean({"trash", "--select", "x", "--yes", "--quiet"});
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, "0 items removed, 0 B freed\n");
}

TEST(CleanCommand, aFolderThatIsListedWithItsFilesIsReportedAsItWent) {
  const Volume volume({{1, {{0, "Common", {"file://~/Library/Caches/"}}}}});
  volume.file(kCacheFolder + "d/a", 10);
  ProgramRun run = volume.clean({"1", "--all", "--yes", "--json"});
  // The file was removed with its folder, before its own turn.
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  const Json document = run.document();
  const Json& records = document.at("clean").at("records");
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records.at(0).at("deleteStatus"), 2);
  EXPECT_EQ(records.at(1).at("deleteStatus"), 3);
  EXPECT_EQ(document.at("clean").at("size"), 10);
  EXPECT_TRUE(std::filesystem::is_empty(volume.path(kCacheFolder)));

  volume.file(kCacheFolder + "d/a", 10);
  run = volume.clean({"1", "--all", "--yes"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("d/a\n             There is no such item any more.\n"), std::string::npos)
      << run.out;
  EXPECT_EQ(run.err, "");
}

/// Random files in three folders of caches and logs, and random globs for them.
class RandomSelection {
 public:
  explicit RandomSelection(unsigned seed) : random_(seed) {
    const Words folders = {kCacheFolder, "Library/Caches/", "Users/alice/Library/Logs/"};
    for (int i = 0; i < 12; ++i) {
      const std::string name = folders[static_cast<std::size_t>(pick(3))] + static_cast<char>('a' + pick(5));
      if (std::ranges::find(tops_, name) != tops_.end()) continue;
      tops_.push_back(name);
      volume.file(pick(2) == 0 ? name : name + "/" + static_cast<char>('a' + pick(5)), 1);
    }
    const Words pieces = {"*/Caches/[ab]", "*/[!a-c]", "/*/Users/*c", "*e", volume.path(kCacheFolder) + "?",
                          "*/a/*",         "[a-e]"};
    for (int i = pick(2); i >= 0; --i) globs.push_back(pieces[static_cast<std::size_t>(pick(7))]);
  }

  /// True if it is, or lies in, an item of a folder that matches a glob.
  [[nodiscard]] bool takes(const std::string& name) const {
    return std::ranges::any_of(tops_, [&](const std::string& top) {
      const bool isPart = name == top || name.starts_with(top + "/");
      return isPart && std::ranges::any_of(globs, [&](const std::string& glob) {
               return ::fnmatch(glob.c_str(), volume.path(top).c_str(), 0) == 0;
             });
    });
  }

  const Volume volume{{{1,
                        {{0, "SystemCache", {"file://~/Library/Caches/"}},
                         {1, "SystemCache", {"file:///Library/Caches/", "file://~/Library/Logs/"}}}}}};
  Words globs;

 private:
  int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

  std::mt19937 random_;
  Words tops_;  // the items that become records
};

TEST(CleanCommand, randomSelectionsTakeWhatIsMatchedAndNothingElse) {
  std::size_t taken = 0;
  for (unsigned seed = 0; seed < 16; ++seed) {
    const RandomSelection selection(seed);
    const auto before = selection.volume.items();
    Words expected;
    for (const test::TreeEntry& entry : before) {
      if (selection.takes(entry.path)) expected.push_back(entry.path);
    }
    Words words = {"1", "--quiet", "--yes", "--select"};
    words.insert(words.end(), selection.globs.begin(), selection.globs.end());
    EXPECT_EQ(selection.volume.clean(words).status, 0) << seed;
    EXPECT_EQ(goneBetween(before, selection.volume.items()), expected)
        << seed << testing::PrintToString(selection.globs);
    taken += expected.size();
  }
  EXPECT_GT(taken, 20U);
}

}  // namespace
}  // namespace sorrel::hosttests
