// `sorrel clean duplicates`, from outside.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Tests/Host/DuplicatesVolume.hpp"
#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using test::goneBetween;

TEST(DuplicatesCommand, selectedMembersGoAndNothingElse) {
  const FullDuplicatesVolume volume;
  const auto before = volume.items();
  const TemporaryFolder canary;
  canary.file("a", 1);
  canary.file("d/b", 1);
  const auto still = snapshot(canary.path());
  const ProgramRun run = volume.clean(
      {"--select", "*/Data/one.txt", "*/Pairs/right", "*/Other/b.jpg", "*/Data/alone", "--yes", "--json"},
      {.folder = canary.path()});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(goneBetween(before, volume.items()),
            Words({kHome + "Data/one.txt", kHome + "Other/b.jpg", kHome + "Pairs/right",
                   kHome + "Pairs/right/sub", kHome + "Pairs/right/sub/y", kHome + "Pairs/right/x"}));
  EXPECT_EQ(snapshot(canary.path()), still);
  const Json document = run.document();
  const Json& clean = document.at("clean");
  EXPECT_EQ(clean.at("size"), 10 + 7 + 25);
  EXPECT_EQ(clean.at("status"), 0);
  EXPECT_EQ(clean.at("records").size(), 3U);
  for (const Json& record : clean.at("records")) EXPECT_EQ(record.at("deleteStatus"), 2);
  // After the repair one group is left, which is off and renumbered.
  EXPECT_EQ(volume.groupsIn(document), (Groups{{"Data/two.txt", "Other/three.txt"}}));
  const Json& all = DuplicatesVolume::all(document);
  EXPECT_EQ(all.at("size"), 20);
  EXPECT_EQ(all.at("childrens").at(0).at("state"), 0);
  EXPECT_EQ(all.at("childrens").at(0).at("finderID"), 0);
  EXPECT_EQ(all.at("childrenCateogry").at(0).at("childrens").size(), 1U);
  EXPECT_EQ(all.at("childrenCateogry").at(1).at("childrens").size(), 0U);
}

TEST(DuplicatesCommand, dryRunShowsTheTicksOfAllViews) {
  const FullDuplicatesVolume volume;
  const Json document = volume.clean({"--select", "*/Data/a.jpg", "--dry-run", "--json"}).document();
  const Json& all = DuplicatesVolume::all(document);
  EXPECT_EQ(all.at("state"), -1);
  EXPECT_EQ(all.at("childrenCateogry").at(4).at("state"), -1);
  EXPECT_EQ(all.at("childrenCateogry").at(4).at("childrens").at(0).at("childrens").at(0).at("state"), 1);
  EXPECT_EQ(all.at("childrenCateogry").at(1).at("state"), 0);
}

TEST(DuplicatesCommand, everyCopyOfAGroupNeedsItsOwnOption) {
  const FullDuplicatesVolume volume;
  const auto before = volume.items();
  for (const Words& selection : {Words{"--all"},
                                 {"--select", "*"},
                                 {"--select", "*.jpg"},
                                 {"--select", "*/Data/one.txt", "*/a.jpg", "*/b.jpg"}}) {
    for (const char* const last : {"--dry-run", "--yes"}) {
      Words words = selection;
      words.insert(words.begin(), last);
      const ProgramRun run = volume.clean(words);
      EXPECT_EQ(run.status, 2) << testing::PrintToString(words);
      EXPECT_EQ(run.out, "");
      EXPECT_NE(run.err.find("'a.jpg'"), std::string::npos) << run.err;
    }
  }
  EXPECT_EQ(goneBetween(before, volume.items()), Words());
  const ProgramRun run = volume.clean({"--select", "*/a.jpg", "*/b.jpg", "--even-last-copy", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(goneBetween(before, volume.items()), Words({kHome + "Data/a.jpg", kHome + "Other/b.jpg"}));
}

TEST(DuplicatesCommand, allOfNothingIsNoFailure) {
  const DuplicatesVolume volume;
  volume.text(kHome + "Data/a", "a");
  const ProgramRun run = volume.clean({"--all", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "0 items removed, 0 B freed\n");
}

TEST(DuplicatesCommand, matchOfAMemberWithoutAPathOfItsOwnTakesNoOtherGroup) {
  const FullDuplicatesVolume volume;
  const auto before = volume.items();
  // The header of a group has the title of its first member: "one.txt" means the whole group.
  EXPECT_EQ(volume.clean({"--select", "one.txt", "--yes"}).status, 2);
  EXPECT_EQ(volume.clean({"--select", "two.txt", "--yes"}).status, 0);
  EXPECT_EQ(goneBetween(before, volume.items()), Words());
}

TEST(DuplicatesCommand, interruptEndsWithAnEmptyTreeAndRemovesNothing) {
  const FullDuplicatesVolume volume;
  const auto before = volume.items();
  ProgramRun run = volume.run("scan", {"--json"}, {.interrupted = true});
  EXPECT_EQ(run.status, 130) << run.err;
  EXPECT_EQ(run.document().at("feature").at("finderID"), 7);
  run = volume.clean({"--select", "*/Data/*", "--yes"}, {.interrupted = true});
  EXPECT_EQ(run.status, 130) << run.err;
  EXPECT_EQ(goneBetween(before, volume.items()), Words());
}

/// Twin folders, and one more copy of one of their files.
struct CoveredVolume : DuplicatesVolume {
  CoveredVolume() {
    for (const std::string top : {"Data/One/", "Data/Two/"}) {
      text(kHome + top + "a", "aaaa");
      text(kHome + top + "b", "bbbbb");
    }
    text(kHome + "Data/a", "aaaa");
  }
};

TEST(DuplicatesCommand, fileThatGoesWithItsFolderIsRemovedAndCountedOnce) {
  const CoveredVolume volume;
  const ProgramRun plan = volume.clean({"--select", "*/One*", "--dry-run"});
  EXPECT_NE(plan.out.find("1 item, 9 B would go"), std::string::npos) << plan.out;
  const ProgramRun run = volume.clean({"--select", "*/One*", "--yes", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  EXPECT_EQ(document.at("clean").at("size"), 9);
  ASSERT_EQ(document.at("clean").at("records").size(), 1U);
  EXPECT_EQ(document.at("clean").at("records").at(0).at("path"), volume.path(kHome + "Data/One"));
  EXPECT_EQ(volume.groupsIn(document), (Groups{{"Data/Two/a", "Data/a"}}));
  EXPECT_FALSE(fs::exists(volume.path(kHome + "Data/One")));
  EXPECT_TRUE(fs::exists(volume.path(kHome + "Data/Two/a")));
}

TEST(DuplicatesCommand, planAsADocumentTicksAFileThatGoesWithItsFolder) {
  const CoveredVolume volume;
  const Json document = volume.clean({"--select", "*/One*", "--dry-run", "--json"}).document();
  Words ticked;
  for (const Json& group : DuplicatesVolume::all(document).at("childrens")) {
    for (const Json& member : group.at("childrens")) {
      if (member.at("state") == 1)
        ticked.push_back(fs::path(member.at("path").get<std::string>()).filename());
    }
  }
  std::ranges::sort(ticked);
  EXPECT_EQ(ticked, Words({"One", "a"}));
}

TEST(DuplicatesCommand, lastCopyOfAFileGoesWithNoFolder) {
  const CoveredVolume volume;
  const auto before = volume.items();
  // No copy of "a" would be left, though a twin of the folder is.
  const ProgramRun run = volume.clean({"--select", "*/One", "*/Two/a", "*/Data/a", "--yes"});
  EXPECT_EQ(run.status, 2) << run.out;
  EXPECT_EQ(goneBetween(before, volume.items()), Words());
}

}  // namespace
}  // namespace sorrel::hosttests
