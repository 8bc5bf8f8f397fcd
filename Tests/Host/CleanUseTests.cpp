// The arguments of `sorrel clean`, the paths that no argument exposes, and Ctrl-C, from outside.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Host/CleanVolume.hpp"

namespace sorrel::hosttests {
namespace {

// The words

TEST(CleanCommand, wrongUseRemovesNothing) {
  const FullVolume volume;
  const auto before = volume.bytes();
  for (const Words& words : {Words{"trash"},
                             {"trash", "--all"},
                             {"trash", "--yes"},
                             {"trash", "--dry-run"},
                             {"trash", "--select", "*"},
                             {"trash", "--all", "--dry-run", "--yes"},
                             {"trash", "--all", "--select", "*", "--yes"},
                             {"trash", "--all", "--select", "--yes"},
                             {"trash", "--select", "--yes"},
                             {"trash", "--yes", "--select"},
                             {"trash", "--select", "", "--yes"},
                             {"trash", "--select=", "--yes"},
                             {"trash", "--select", "*", "", "--yes"},
                             {"trash", "--except", "*", "--yes"},
                             {"trash", "--all", "--except", "--yes"},
                             {"trash", "--all", "--except", "", "--yes"},
                             {"trash", "--all", "--except=", "--yes"},
                             {"trash", "--all", "--yes", "--except"},
                             {"trash", "--select", "*", "--", "--yes"},
                             {"trash", "/tmp", "--all", "--yes"},
                             {"trash", "--all", "--yes", "--force"},
                             {"--select", "*", "trash", "--yes"},
                             {"--all", "--yes"},
                             {"nonsense", "--all", "--yes"},
                             {"privacy", "--all", "--yes"},
                             {"13", "--all", "--yes"}}) {
    for (const bool json : {false, true}) {
      Words all = words;
      if (json) all.insert(all.begin(), "--json");
      const ProgramRun run = volume.clean(all);
      EXPECT_EQ(run.status, 2) << testing::PrintToString(all) << run.out;
      EXPECT_EQ(run.out, "") << testing::PrintToString(all);
      EXPECT_TRUE(run.err.starts_with("sorrel: ")) << run.err;
    }
  }
  EXPECT_EQ(volume.bytes(), before);
}

TEST(CleanCommand, selectTakesAllGlobsUpToTheNextOptionAndStandsSeveralTimes) {
  const Volume volume({kCaches});
  for (const char* const name : {"a", "b", "c", "d", "-e", "[x]", "x"}) volume.file(kCacheFolder + name, 1);
  const std::string folder = volume.path(kCacheFolder);
  const std::vector<std::pair<Words, Words>> cases = {
      {{"1", "--select", "*/a", "*/b", "--dry-run"}, {"a", "b"}},
      {{"1", "--select", "*/a", "--dry-run", "--select", "*/b", "*/c"}, {"a", "b", "c"}},
      {{"--dry-run", "--select", "*/a", "--even-last-copy", "1"}, {"a"}},
      {{"1", "--select=*/a", "*/b", "--select=*/d", "--dry-run"}, {"a", "b", "d"}},
      {{"1", "--dry-run", "--select", "*/d", "--"}, {"d"}},
      {{"--dry-run", "--select", "*/d", "--", "1"}, {"d"}},
      {{"1", "--dry-run", "--select", "*/-e"}, {"-e"}},
      {{"1", "--dry-run", "--select", folder + "[ab]"}, {"a", "b"}},
      {{"1", "--dry-run", "--select", "*/\\[x]"}, {"[x]"}},
      // A word in brackets is one glob, for a path of one byte, and not a list of two globs.
      {{"1", "--dry-run", "--select", "[*,x]"}, {}},
  };
  for (const auto& [words, names] : cases) {
    Words all = words;
    all.insert(all.begin(), {"--json", "--quiet"});
    const Json document = volume.clean(all).document();
    Words ticked;
    for (const Json& record : onlyRow(document).at("childrens")) {
      if (record.at("state") == 1) ticked.push_back(record.at("title"));
    }
    std::ranges::sort(ticked);
    Words expected = names;
    std::ranges::sort(expected);
    EXPECT_EQ(ticked, expected) << testing::PrintToString(words);
  }
}

TEST(CleanCommand, helpNamesTheOrders) {
  const ProgramRun help = sorrel({"clean", "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* const word : {"FEATURE", "--all", "--select", "--dry-run", "--yes", "--even-last-copy"}) {
    EXPECT_NE(help.out.find(word), std::string::npos) << word;
  }
}

TEST(CleanCommand, aBrokenCatalogueRemovesNothing) {
  const Volume volume(std::vector<FeatureRow>{{2, {}}});
  volume.file(kTrashFolder + "a", 1);
  const auto before = volume.bytes();
  EXPECT_EQ(volume.clean({"trash", "--all", "--yes"}).status, 3);
  EXPECT_EQ(volume.clean({"system-junk", "--all", "--yes"}).status, 3);
  EXPECT_EQ(volume.bytes(), before);
}

TEST(CleanCommand, outputThatIsLostIsAFailure) {
  const FullVolume volume;
  for (const char* const last : {"--dry-run", "--yes"}) {
    EXPECT_EQ(volume.clean({"trash", "--all", last, "--json"}, {.output = "/dev/full"}).status, 1) << last;
  }
}

// Places

TEST(CleanCommand, aRowThatStandsForTheCurrentFolderTakesNothing) {
  // A text with a blank is not a URL and stands for the folder that the program runs in.
  const Volume volume({{1, {{0, "SystemCache", {"file://~/Library/My Caches/"}}}}});
  const TemporaryFolder canary;
  canary.file("a", 1);
  canary.file("d/b", 1);
  const auto before = snapshot(canary.path());
  volume.clean({"1", "--all", "--yes"}, {.folder = canary.path()});
  EXPECT_EQ(snapshot(canary.path()), before);
}

TEST(CleanCommand, slashesTooManyInACatalogueDoNoHarm) {
  const Volume volume({{1, {{0, "SystemCache", {"file://~//Library///Caches//"}}}}});
  volume.file(kCacheFolder + "d/a", 10);
  volume.file(kCacheFolder + "b", 10);
  const ProgramRun run = volume.clean({"1", "--all", "--yes"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(std::filesystem::is_empty(volume.path(kCacheFolder)));
}

TEST(CleanCommand, homesAndTrashesThemselvesStay) {
  // Rows that list items that a clean must never remove.
  const Volume volume({{1,
                        {{0, "SystemCache", {"file:///Users/"}},
                         {1, "SystemCache", {"file://~/"}},
                         {2, "SystemCache", {"file:///Volumes/USB/.Trashes/"}}}}});
  volume.file("Users/alice/.Trash/a", 1);
  volume.file("Users/zoe/letter", 1);
  volume.file("Volumes/USB/.Trashes/501/old.zip", 1);
  volume.file("Users/alice/Documents/letter", 1);
  const ProgramRun run =
      volume.clean({"1", "--select", "*/alice", "*/zoe", "*/501", "*/Volumes", "--user", "alice", "--yes"});
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  for (const char* const kept : {"Users/alice/.Trash/a", "Users/zoe/letter",
                                 "Volumes/USB/.Trashes/501/old.zip", "Users/alice/Documents/letter"}) {
    EXPECT_TRUE(std::filesystem::exists(volume.path(kept))) << kept;
  }
}

// Ctrl-C

TEST(CleanCommand, anInterruptOfTheScanRemovesNothing) {
  const FullVolume volume;
  const auto before = volume.bytes();
  for (const char* const last : {"--dry-run", "--yes"}) {
    const ProgramRun run = volume.clean({"trash", "--all", last, "--json"}, {.interrupted = true});
    EXPECT_EQ(run.status, 130) << run.err;
    EXPECT_EQ(run.err, "sorrel: stopped before anything was removed\n");
    const Json document = run.document();
    EXPECT_EQ(document.at("feature").at("finderID"), 2);
    EXPECT_EQ(onlyRow(document).at("state"), 0);
    EXPECT_FALSE(document.contains("clean"));
  }
  EXPECT_EQ(volume.bytes(), before);
}

}  // namespace
}  // namespace sorrel::hosttests
