// `sorrel scan duplicates` and `sorrel clean duplicates`, from outside.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Groups = std::vector<Words>;
using test::goneBetween;
using test::snapshotOf;

const std::string kHome = "Users/alice/";
const std::string kLog =
    "Users/alice/Library/Application Support/org.sorrel.Sorrel/org.sorrel.SorrelFrameworkLog.txt";

/// A volume with the catalogue that comes with the program, and its log in place.
struct DuplicatesVolume : TemporaryFolder {
  DuplicatesVolume() { text(kLog, ""); }

  /// `command` is "scan" or "clean"; every file takes part, whatever its size.
  ProgramRun run(const std::string& command, const Words& more, const RunOptions& options = {}) const {
    Words words = {"--volume", path(), command, "duplicates", "--limit", "0"};
    words.insert(words.end(), more.begin(), more.end());
    return sorrel(words, options);
  }
  ProgramRun scan(const Words& more = {}) const { return run("scan", more); }
  ProgramRun clean(const Words& more, const RunOptions& options = {}) const {
    return run("clean", more, options);
  }
  [[nodiscard]] std::vector<test::TreeEntry> items() const {
    auto entries = snapshotOf(path());
    std::erase_if(entries, [](const test::TreeEntry& entry) { return entry.path == kLog; });
    return entries;
  }
  /// Paths below the home of the members of each group.
  [[nodiscard]] Groups groupsIn(const Json& document) const {
    Groups groups;
    for (const Json& header : all(document).at("childrens")) {
      Words members;
      for (const Json& member : header.at("childrens")) {
        members.push_back(fs::relative(member.at("path").get<std::string>(), path(kHome)).string());
      }
      groups.push_back(members);
    }
    std::ranges::sort(groups);
    return groups;
  }
  [[nodiscard]] Groups groups(Words more = {}) const {
    more.insert(more.begin(), "--json");
    const ProgramRun run = scan(more);
    EXPECT_EQ(run.status, 0) << run.err;
    return groupsIn(run.document());
  }
  static Json::const_reference all(const Json& document) {
    return document.at("feature").at("categoryInfo").at(0);
  }
};

/// Two copies of one file, three of another, and two twin folders.
struct FullDuplicatesVolume : DuplicatesVolume {
  FullDuplicatesVolume() {
    for (const char* const name : {"Data/a.jpg", "Other/b.jpg"}) text(kHome + name, "picture");
    for (const char* const name : {"Data/one.txt", "Data/two.txt", "Other/three.txt"}) {
      text(kHome + name, "some words");
    }
    for (const char* const name : {"Pairs/left/", "Pairs/right/"}) {
      text(kHome + name + "x", "content of x");
      text(kHome + name + "sub/y", "content of y!");
    }
    text(kHome + "Data/alone", "nobody is like me");
  }
};

// The scan

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

TEST(DuplicatesCommand, textShowsEachMemberWithWhatItsRemovalFrees) {
  const DuplicatesVolume volume;
  volume.text(kHome + "Data/a", "12345");
  volume.text(kHome + "Data/b", "12345");
  fs::create_hard_link(volume.path(kHome + "Data/a"), volume.path(kHome + "Data/c"));
  volume.text(kHome + "Pairs/left/x", "content of x");
  volume.text(kHome + "Pairs/right/x", "content of x");
  volume.text(kHome + "Pairs/right/.hidden", "mine alone");
  const ProgramRun run = volume.scan();
  EXPECT_EQ(run.status, 0) << run.err;
  const std::string home = volume.path("Users/alice");
  EXPECT_EQ(run.out,
            "       49 B  Duplicates\n"
            "       49 B    Duplicates\n"
            "       34 B      left\n"
            "       12 B        " +
                home +
                "/Pairs/left\n"
                "       22 B        " +
                home +
                "/Pairs/right  (hidden items in it were not compared)\n"
                "       15 B      a\n"
                "        0 B        " +
                home +
                "/Data/a  (has other hard links)\n"
                "        5 B        " +
                home +
                "/Data/b\n"
                "        0 B        " +
                home + "/Data/c  (hard link of " + home +
                "/Data/a)\n"
                "       15 B      Files\n"
                "       34 B      Folders\n"
                "        0 B      Documents\n"
                "        0 B      Movies\n"
                "        0 B      Pictures\n"
                "       49 B      Other\n"
                "        0 B      Archives\n"
                "5 items in 2 groups, 49 B\n");
}

/// By the names of members: what the document tells of them beyond their size.
using Notes = std::map<std::string, std::string>;
Notes notesIn(const Json& document) {
  Notes notes;
  for (const Json& header : DuplicatesVolume::all(document).at("childrens")) {
    for (const Json& member : header.at("childrens")) {
      std::string& note = notes[member.at("title")];
      if (member.contains("frees"))
        note = member.at("frees").dump() + ' ' + member.at("note").get<std::string>();
    }
  }
  return notes;
}

TEST(DuplicatesCommand, documentTellsWhatFreesNothing) {
  const DuplicatesVolume volume;
  const std::string a = volume.text(kHome + "Data/a", "12345");
  volume.text(kHome + "Data/b", "12345");
  fs::create_hard_link(a, volume.path(kHome + "Data/c"));
  volume.text(kHome + "Pairs/left/x", "content of x");
  volume.text(kHome + "Pairs/right/x", "content of x");
  volume.text(kHome + "Pairs/right/.hidden", "mine alone");
  const Notes expected = {{"a", "0 has other hard links"},
                          {"b", ""},
                          {"c", "0 hard link of " + a},
                          {"left", ""},
                          {"right", "22 hidden items in it were not compared"}};
  const Words plan = {"--json", "--dry-run", "--select", "*/c"};
  const Json document = volume.scan({"--json"}).document();
  EXPECT_EQ(notesIn(document), expected);
  EXPECT_EQ(notesIn(volume.clean(plan).document()), expected);
  const Json& all = DuplicatesVolume::all(document);
  EXPECT_EQ(all.at("childrenCateogry").at(0).at("childrens").at(0).at("childrens").at(2).at("frees"), 0);
  // A clean tells of what went, and of what is left no more than before.
  const std::string cleaned = volume.clean({"--json", "--yes", "--select", "*/b"}).out;
  EXPECT_NE(cleaned.find("/Data/c"), std::string::npos);
  EXPECT_EQ(cleaned.find("\"frees\""), std::string::npos);
}

/// A volume with a btrfs on which files have clones; only where it can be mounted.
struct ClonesVolume : DuplicatesVolume {
  /// Files: "a", its clone "b" with the hard link "d", "c" with the same content in blocks of its own; "e"
  /// and its clone "f", of which one block was written again.
  bool makeFiles() const {
    const std::string picture(65536, 'p');
    const std::string words(65536, 'w');
    const std::string a = text("disk/a", picture);
    text("disk/c", picture);
    const std::string e = text("disk/e", words);
    if (!test::cloneFile(a, path("disk/b")) || !test::cloneFile(e, path("disk/f"))) return false;
    fs::create_hard_link(path("disk/b"), path("disk/d"));
    std::fstream file(path("disk/f"), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(8192);
    return static_cast<bool>(file.write(words.data(), 4096).flush());
  }
  /// What `work` tells in a child where the files are there; "skip" where they can't be.
  [[nodiscard]] std::string withFiles(const std::function<std::string()>& work) const {
    return test::inMountingChild([&]() -> std::string {
      const test::LoopFileSystem btrfs("btrfs", path("image"), path("disk"));
      if (!btrfs.isMounted()) return "skip";
      return makeFiles() ? work() : "no clones could be made";
    });
  }
};
constexpr const char* kWhyNoClones = "no btrfs, no loop device or no right to mount";

TEST(DuplicatesCommand, textTellsClonesAndWhatFilesShare) {
  const ClonesVolume volume;
  const std::string disk = volume.path("disk/");
  const std::string out = volume.withFiles([&] { return volume.scan({volume.path("disk")}).out; });
  if (out == "skip") GTEST_SKIP() << kWhyNoClones;
  const Words lines = {"        0 B        " + disk + "a  (has clones)\n",
                       "        0 B        " + disk + "b  (clone of " + disk + "a, has other hard links)\n",
                       "   64.0 KiB        " + disk + "c\n",
                       "        0 B        " + disk + "d  (hard link of " + disk + "b)\n",
                       "        0 B        " + disk + "e  (shares all of it with other files)\n",
                       "    4.0 KiB        " + disk + "f  (shares 60.0 KiB with other files)\n"};
  for (const std::string& line : lines) EXPECT_NE(out.find(line), std::string::npos) << line << out;
}

TEST(DuplicatesCommand, documentTellsClonesAndWhatFilesShare) {
  const ClonesVolume volume;
  const std::string disk = volume.path("disk/");
  const std::string out = volume.withFiles([&] { return volume.scan({"--json", volume.path("disk")}).out; });
  if (out == "skip") GTEST_SKIP() << kWhyNoClones;
  EXPECT_EQ(notesIn(Json::parse(out, nullptr, false)),
            (Notes{{"a", "0 has clones"},
                   {"b", "0 clone of " + disk + "a, has other hard links"},
                   {"c", ""},
                   {"d", "0 hard link of " + disk + "b"},
                   {"e", "0 shares all of it with other files"},
                   {"f", "4096 shares 60.0 KiB with other files"}}));
}

TEST(DuplicatesCommand, placesAreTakenOnceWhateverTheyAreCalled) {
  const FullDuplicatesVolume volume;
  const std::string data = volume.path(kHome + "Data");
  fs::create_directory_symlink(data, volume.path("link"));
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
  const auto lines = [&volume] {
    auto all = snapshot(volume.path());
    std::erase_if(all, [&](const std::string& line) { return line.starts_with(volume.path(kLog)); });
    return all;
  };
  const auto before = lines();
  EXPECT_EQ(volume.scan().status, 0);
  EXPECT_EQ(volume.clean({"--select", "*/Data/*.jpg", "--dry-run"}).status, 0);
  EXPECT_EQ(lines(), before);
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

// The clean

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
  // Behind the repair one group is left, which is off and numbered anew.
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

TEST(DuplicatesCommand, hardLinkThatStaysKeepsTheContent) {
  const DuplicatesVolume volume;
  volume.text(kHome + "Data/a", "12345");
  volume.text(kHome + "Data/b", "12345");
  fs::create_hard_link(volume.path(kHome + "Data/a"), volume.path(kHome + "Data/c"));
  const ProgramRun run = volume.clean({"--select", "*/Data/[ab]", "--yes"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(fs::exists(volume.path(kHome + "Data/a")));
  EXPECT_FALSE(fs::exists(volume.path(kHome + "Data/b")));
  EXPECT_EQ(contentOf(volume.path(kHome + "Data/c")), "12345");
}

TEST(DuplicatesCommand, hardLinksAreCopiesOfWhichOneHasToStay) {
  const DuplicatesVolume volume;
  volume.text(kHome + "Data/a", "12345");
  fs::create_hard_link(volume.path(kHome + "Data/a"), volume.path(kHome + "Data/b"));
  EXPECT_EQ(volume.clean({"--select", "*/Data/[ab]", "--yes"}).status, 2);
  EXPECT_EQ(volume.clean({"--select", "*/Data/a", "--yes"}).status, 0);
  EXPECT_EQ(contentOf(volume.path(kHome + "Data/b")), "12345");
}

TEST(DuplicatesCommand, cloneIsAWholeCopy) {
  const ClonesVolume volume;
  const std::string told = volume.withFiles([&]() -> std::string {
    const std::string disk = volume.path("disk");
    const auto statusOf = [&](const char* glob) {
      return std::to_string(volume.clean({disk, "--select", glob, "--yes"}).status) + ' ';
    };
    fs::remove(disk + "/c");
    fs::remove(disk + "/d");
    std::string statuses = statusOf("*/[ab]");
    statuses += statusOf("*/a");
    return statuses + (fs::exists(disk + "/a") ? "kept" : contentOf(disk + "/b").substr(65530));
  });
  if (told == "skip") GTEST_SKIP() << kWhyNoClones;
  EXPECT_EQ(told, "2 0 pppppp");
}

TEST(DuplicatesCommand, matchOfAMemberWithoutAPathOfItsOwnTakesNoOtherGroup) {
  const FullDuplicatesVolume volume;
  const auto before = volume.items();
  // The header of a group is called by the title of its first member: "one.txt" means the whole group.
  EXPECT_EQ(volume.clean({"--select", "one.txt", "--yes"}).status, 2);
  EXPECT_EQ(volume.clean({"--select", "two.txt", "--yes"}).status, 0);
  EXPECT_EQ(goneBetween(before, volume.items()), Words());
}

TEST(DuplicatesCommand, folderThatIsMountedTwiceIsNoCopyOfItself) {
  if (::getuid() != 0) GTEST_SKIP() << "needs root to mount";
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
