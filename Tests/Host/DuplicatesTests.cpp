// `sorrel scan duplicates`, from outside.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Host/DuplicatesVolume.hpp"
#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using test::goneBetween;

TEST(DuplicatesCommand, documentHoldsTheGroupsAndTheSevenRowsThatRepeatThem) {
  const FullDuplicatesVolume volume;
  const ProgramRun run = volume.scan({"--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const Json document = run.document();
  EXPECT_EQ(volume.groupsIn(document), (Groups{{"Data/a.jpg", "Other/b.jpg"},
                                               {"Data/one.txt", "Data/two.txt", "Other/three.txt"},
                                               {"Pairs/left", "Pairs/right"}}));
  EXPECT_EQ(document.at("size"), 2 * 7 + 3 * 10 + 2 * 25);
  EXPECT_EQ(document.at("status"), "end");
  EXPECT_EQ(document.at("callbacks").dump(), R"({"done":1,"singleDone":0,"progress":0,"lastPercent":1.0})");

  const Json& all = DuplicatesVolume::all(document);
  EXPECT_EQ(all.at("size"), document.at("size"));
  Words titles;
  std::vector<std::size_t> counts;
  for (const Json& row : all.at("childrenCateogry")) {
    titles.push_back(row.at("title"));
    counts.push_back(row.at("childrens").size());
    EXPECT_EQ(row.at("finderID"), titles.size() - 1);
    for (const Json& header : row.at("childrens")) {
      EXPECT_NE(std::ranges::find(all.at("childrens"), header), all.at("childrens").end());
    }
  }
  EXPECT_EQ(titles, Words({"Files", "Folders", "Documents", "Movies", "Pictures", "Other", "Archives"}));
  EXPECT_EQ(counts.at(0), 2U);
  EXPECT_EQ(counts.at(1), 1U);
  EXPECT_EQ(counts.at(4), 1U);
  const Json& header = all.at("childrens").at(0);
  EXPECT_EQ(header.at("path"), "");
  EXPECT_EQ(header.at("state"), 0);
  EXPECT_EQ(header.at("finderID"), 0);
  EXPECT_EQ(header.at("childrens").at(1).at("finderID"), 1);
}

TEST(DuplicatesCommand, placesAreTakenOnceWhateverTheyAreCalled) {
  const FullDuplicatesVolume volume;
  const std::string data = volume.path(kHome + "Data");
  fs::create_directory_symlink(kHome + "Data", volume.path("link"));
  const Groups expected = {{"Data/one.txt", "Data/two.txt"}};
  EXPECT_EQ(volume.groups({data}), expected);
  EXPECT_EQ(volume.groups({data, data + "/", data + "/.", data + "/../Data", volume.path("link")}), expected);
  EXPECT_EQ(volume.groups({volume.path("link")}), expected);
  EXPECT_EQ(volume.groups({data + "/one.txt", data + "/two.txt", data + "/one.txt"}), expected);
}

TEST(DuplicatesCommand, placeInsideAnotherOneIsDropped) {
  const FullDuplicatesVolume volume;
  const std::string home = volume.path("Users/alice");
  const Groups expected = volume.groups();
  EXPECT_EQ(expected.size(), 3U);
  EXPECT_EQ(volume.groups({home + "/Data", home + "/Other", home, home + "/Pairs/left"}), expected);
  EXPECT_EQ(volume.groups({home + "/Data", home + "/Other"}).size(), 2U);
  volume.text(kHome + "Data 2/a.jpg", "picture");
  EXPECT_EQ(volume.groups({home + "/Data", home + "/Data 2"}),
            (Groups{{"Data 2/a.jpg", "Data/a.jpg"}, {"Data/one.txt", "Data/two.txt"}}));
}

TEST(DuplicatesCommand, relativePlacesLieBelowTheCurrentFolder) {
  const FullDuplicatesVolume volume;
  const ProgramRun run = volume.run("scan", {"--json", "Data"}, {.folder = volume.path("Users/alice")});
  EXPECT_EQ(volume.groupsIn(run.document()), (Groups{{"Data/one.txt", "Data/two.txt"}}));
}

TEST(DuplicatesCommand, placesInSquareBracketsAreTakenAsTheyAreCalled) {
  const DuplicatesVolume volume;
  for (const std::string name : {"[x]", "[a,b]", "[]", "[[x]]", "[x"}) {
    volume.text(kHome + name + "/one", name);
    volume.text(kHome + name + "/two", name);
  }
  const RunOptions home{.folder = volume.path("Users/alice")};
  for (const std::string name : {"[x]", "[a,b]", "[]", "[[x]]", "[x"}) {
    const ProgramRun run = volume.run("scan", {"--json", name}, home);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(volume.groupsIn(run.document()), (Groups{{name + "/one", name + "/two"}}));
  }
  const ProgramRun both = volume.run("scan", {"--json", "--", "[x]", "[a,b]"}, home);
  EXPECT_EQ(volume.groupsIn(both.document()), (Groups{{"[a,b]/one", "[a,b]/two"}, {"[x]/one", "[x]/two"}}));
  EXPECT_EQ(volume.run("scan", {"[y]"}, home).err,
            "sorrel: the PATH '[y]' can't be reached: No such file or directory.\n");
  const ProgramRun one = volume.run("clean", {"[x]", "[a,b]", "--select", "*/\\[a,b]/one", "--yes"}, home);
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_FALSE(fs::exists(volume.path(kHome + "[a,b]/one")));
  EXPECT_TRUE(fs::exists(volume.path(kHome + "[x]/one")));
}

TEST(DuplicatesCommand, volumeThatIsCalledByALinkKeepsThatName) {
  const FullDuplicatesVolume volume;
  const TemporaryFolder other;
  fs::create_directory_symlink(volume.path(), other.path("volume"));
  const std::string data = other.path("volume/Users/alice/Data");
  for (const std::string& place : {data, volume.path(kHome + "Data")}) {
    const Json document =
        sorrel({"--volume", other.path("volume"), "--json", "scan", "duplicates", "--limit", "0", place})
            .document();
    const Json& group = DuplicatesVolume::all(document).at("childrens").at(0);
    EXPECT_EQ(group.at("childrens").at(0).at("path"), data + "/one.txt");
  }
}

TEST(DuplicatesCommand, linksOfAVolumeLeadBelowItsRoot) {
  const DuplicatesVolume volume;
  for (const char* const name : {"Data/x/one", "Data/x/two"}) volume.text(name, "same");
  fs::create_directory_symlink("/Data/x", volume.path(kHome + "Ext"));
  fs::create_directory_symlink("../../Data", volume.path(kHome + "rel"));
  const Groups expected = {{"../../Data/x/one", "../../Data/x/two"}};
  const std::string home = volume.path("Users/alice/");
  for (const std::string& path :
       {home + "Ext", home + "rel/x/", home + "ext/../X", volume.path("users/ALICE/Rel"),
        volume.path("../" + fs::path(volume.path()).filename().string() + "/Users/./alice//Ext")}) {
    EXPECT_EQ(volume.groups({path}), expected) << path;
  }
  EXPECT_EQ(
      volume.groupsIn(
          volume.run("scan", {"--json", "../alice/Ext"}, {.folder = volume.path("Users/alice")}).document()),
      expected);
}

TEST(DuplicatesCommand, pathOffTheVolumeCannotBeReached) {
  const DuplicatesVolume volume;
  const TemporaryFolder machine;
  for (const char* const name : {"one", "two"}) machine.text(name, "same");
  fs::create_directory_symlink(machine.path(), volume.path(kHome + "Off"));
  fs::create_symlink("/loop", volume.path("loop"));
  for (const std::string& path : {volume.path(kHome + "Off"), volume.path(kHome + "Off/one"), machine.path(),
                                  volume.path(".."), volume.path("loop")}) {
    const ProgramRun run = volume.scan({path});
    EXPECT_EQ(run.status, 2) << path;
    EXPECT_TRUE(run.err.starts_with("sorrel: the PATH '" + path + "' can't be reached: ")) << run.err;
  }
}

TEST(DuplicatesCommand, filesOfFoldersThatDifferAreFoundUnlessTheEngineKeepsItsDefaults) {
  const DuplicatesVolume volume;
  for (const std::string top : {"Data/backup/", "Data/work/"}) {
    for (const std::string photo : {"1", "2"}) volume.text(kHome + top + photo, "photo " + photo);
    volume.text(kHome + top + "text", top == "Data/work/" ? "rev 2" : "rev 1");
  }
  EXPECT_EQ(volume.groups(), (Groups{{"Data/backup/1", "Data/work/1"}, {"Data/backup/2", "Data/work/2"}}));
  EXPECT_EQ(volume.groups({"--engine-defaults"}), Groups());
}

TEST(DuplicatesCommand, sizeLimitIsHalfAMebibyteUnlessGiven) {
  const DuplicatesVolume volume;
  for (const char* const name : {"Data/a", "Data/b"}) volume.file(kHome + name, 524289);
  for (const char* const name : {"Data/c", "Data/d"}) volume.file(kHome + name, 524288);
  const auto count = [&](const Words& more) {
    Words words = {"--volume", volume.path(), "--json", "scan", "duplicates"};
    words.insert(words.end(), more.begin(), more.end());
    return DuplicatesVolume::all(sorrel(words).document()).at("childrens").size();
  };
  EXPECT_EQ(count({}), 1U);
  EXPECT_EQ(count({"--limit", "511"}), 2U);
  EXPECT_EQ(count({"--limit", "513"}), 0U);
  EXPECT_EQ(count({"--limit", "9007199254740991"}), 0U);
}

TEST(DuplicatesCommand, homeOfThisMachineIsScannedByDefault) {
  const TemporaryFolder home;
  home.text("Pictures/a", "same");
  home.text("Documents/b", "same");
  home.text("Documents/else", "alone");
  home.text(".cache/c", "same");
  const ProgramRun run =
      sorrel({"--json", "scan", "duplicates", "--limit", "0"}, {.environment = {"HOME=" + home.path()}});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  const Json& groups = DuplicatesVolume::all(document).at("childrens");
  ASSERT_EQ(groups.size(), 1U);
  EXPECT_EQ(groups.at(0).at("childrens").at(0).at("path"), home.path("Documents/b"));
  EXPECT_EQ(groups.at(0).at("childrens").at(1).at("path"), home.path("Pictures/a"));
}

TEST(DuplicatesCommand, libraryAndPackagesOfTheHomeAreNotScannedByDefault) {
  const DuplicatesVolume volume;
  for (const char* const name : {"Data/a", "b", "Library/c", "Tool.app/d"}) volume.text(kHome + name, "same");
  for (const char* const name : {"Data/1", "Library/22", "Tool.app/333"}) volume.text(kHome + name, name);
  EXPECT_EQ(volume.groups(), (Groups{{"Data/a", "b"}}));
  EXPECT_EQ(volume.groups({volume.path(kHome)}), (Groups{{"Data/a", "Library/c", "Tool.app/d", "b"}}));
}

TEST(DuplicatesCommand, homeThatCannotBeReachedIsWrongUse) {
  const ProgramRun run = sorrel({"scan", "duplicates"}, {.environment = {"HOME=/nonexistent"}});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "sorrel: the PATH '/nonexistent' can't be reached: No such file or directory.\n");
}

TEST(DuplicatesCommand, wrongUseIsTwoAndSaysWhy) {
  const FullDuplicatesVolume volume;
  const auto before = volume.items();
  ASSERT_EQ(::mkfifo(volume.path("pipe").c_str(), 0600), 0);
  const std::string missing = volume.path("missing");
  const std::vector<std::pair<Words, std::string>> cases = {
      {{"duplicates", missing}, "the PATH '" + missing + "' can't be reached: No such file or directory."},
      {{"duplicates", volume.path(kHome), missing}, "can't be reached"},
      {{"duplicates", ""}, "can't be reached"},
      {{"duplicates", volume.path("pipe")}, "is neither a folder nor a file"},
      {{"duplicates", "--limit", "-1"}, "--limit"},
      {{"duplicates", "--limit", "9007199254740992"}, "--limit"},
      {{"duplicates", "--limit", "much"}, "--limit"},
      {{"duplicates", "--limit", ""}, "--limit"},
      {{"duplicates", "--limit", "1", "--limit", "2"}, "--limit"},
      {{"trash", "--limit", "1"}, "'trash' takes no --limit."},
      {{"trash", volume.path()}, "'trash' takes no PATH."},
  };
  for (const auto& [words, why] : cases) {
    for (const std::string command : {"scan", "clean"}) {
      Words all = {"--volume", volume.path(), command};
      all.insert(all.end(), words.begin(), words.end());
      if (command == "clean") all.insert(all.end(), {"--all", "--even-last-copy", "--yes"});
      const ProgramRun run = sorrel(all);
      EXPECT_EQ(run.status, 2) << testing::PrintToString(all);
      EXPECT_EQ(run.out, "");
      EXPECT_NE(run.err.find(why), std::string::npos) << run.err;
    }
  }
  fs::remove(volume.path("pipe"));
  EXPECT_EQ(goneBetween(before, volume.items()), Words());
}

TEST(DuplicatesCommand, catalogueWithoutACategoryIsAFatalStop) {
  const DuplicatesVolume volume;
  const std::string file = volume.text("test.plist", catalogue({{7, {}}}));
  const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue", file, "scan", "duplicates"});
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.err.find("has no categories"), std::string::npos) << run.err;
}

TEST(DuplicatesCommand, scanChangesNothing) {
  const FullDuplicatesVolume volume;
  const auto before = volume.bytes();
  EXPECT_EQ(volume.scan().status, 0);
  EXPECT_EQ(volume.clean({"--select", "*/Data/*.jpg", "--dry-run"}).status, 0);
  EXPECT_EQ(volume.bytes(), before);
}

TEST(DuplicatesCommand, folderThatIsMountedTwiceIsNoCopyOfItself) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const DuplicatesVolume volume;
  volume.text(kHome + "Data/x/a", "12345");
  volume.text(kHome + "Data/x/b", "1234567");
  volume.text(kHome + "Data/copy of a", "12345");
  volume.folder("mount");
  const std::string mount =
      "mount --bind '" + volume.path(kHome + "Data/x") + "' '" + volume.path("mount") + "'";
  const auto runMounted = [&](const std::string& command, const std::string& more) {
    const std::string script = mount + " && " + SORREL_PROGRAM + " --quiet --volume '" + volume.path() +
                               "' " + command + " duplicates --limit 0 '" + volume.path(kHome + "Data") +
                               "' '" + volume.path("mount") + "' " + more + " >'" + volume.path("out") +
                               "' 2>&1";
    const int status = std::system(("unshare -m sh -c \"" + script + "\"").c_str());
    return WEXITSTATUS(status);
  };
  EXPECT_EQ(runMounted("scan", "--json"), 0);
  const Json document = Json::parse(contentOf(volume.path("out")));
  EXPECT_EQ(volume.groupsIn(document), (Groups{{"Data/copy of a", "Data/x/a"}}));
  EXPECT_EQ(runMounted("clean", "--select '*/mount*' --yes"), 0);  // which selects nothing
  EXPECT_EQ(contentOf(volume.path(kHome + "Data/x/a")), "12345");
}

}  // namespace
}  // namespace sorrel::hosttests
