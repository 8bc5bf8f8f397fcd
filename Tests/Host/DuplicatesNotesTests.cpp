// What `sorrel scan duplicates` reports of members whose removal frees less than their size, and their
// removal.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Tests/Host/DuplicatesVolume.hpp"
#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;

/// The document's remarks on members besides their size, by name.
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

/// A volume with a btrfs on which files have clones; only where it can be mounted.
struct ClonesVolume : DuplicatesVolume {
  /// Files: "a", its clone "b" with the hard link "d", "c" with the same content in blocks of its own; "e"
  /// and its clone "f", one block of which was rewritten.
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
  /// The result of `work` in a child with these files; "skip" where they can't be made.
  [[nodiscard]] std::string withFiles(const std::function<std::string()>& work) const {
    return test::inMountingChild([&]() -> std::string {
      const test::LoopFileSystem btrfs("btrfs", path("image"), path("disk"));
      if (!btrfs.isMounted()) return "skip";
      return makeFiles() ? work() : "no clones could be made";
    });
  }
};
constexpr const char* kWhyNoClones = "no btrfs, no loop device or no right to mount";

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
                "       49 B      Other\n"
                "       34 B      Folders\n"
                "       15 B      Files\n"
                "        0 B      Documents\n"
                "        0 B      Movies\n"
                "        0 B      Pictures\n"
                "        0 B      Archives\n"
                "5 items in 2 groups, 49 B\n");
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
  // A clean reports the removed items, and no more than before about the rest.
  const std::string cleaned = volume.clean({"--json", "--yes", "--select", "*/b"}).out;
  EXPECT_NE(cleaned.find("/Data/c"), std::string::npos);
  EXPECT_EQ(cleaned.find("\"frees\""), std::string::npos);
}

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

}  // namespace
}  // namespace sorrel::hosttests
