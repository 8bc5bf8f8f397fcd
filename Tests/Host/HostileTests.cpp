// The reaction of sorrel to a hostile disk, script or catalogue, from outside.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::hosttests {
namespace {

using Words = std::vector<std::string>;

const std::string kNil = "Unexpectedly found nil while unwrapping an Optional value";

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

/// The trash of the only home of `volume`; its path as reported by the document.
std::string pathInTrash(const std::string& volume, const RunOptions& options = {}) {
  const ProgramRun run = sorrel({"--volume", volume, "--json", "scan", "trash"}, options);
  EXPECT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  const Json& records = document.at("feature").at("categoryInfo").at(0).at("childrens");
  EXPECT_EQ(records.size(), 1U) << run.out;
  return records.empty() ? "" : records.at(0).at("path").get<std::string>();
}

// The command line

TEST(HostileWords, anEmptyValueIsWrongUse) {
  for (const char* const option : {"--volume", "--catalogue", "--user", "--bundle-id", "--tools"}) {
    for (const Words& words : {Words{option, "", "modules"}, Words{"modules", option, ""}}) {
      const ProgramRun run = sorrel(words);
      EXPECT_EQ(run.status, 2) << option << run.err;
      EXPECT_EQ(run.out, "") << option;
    }
  }
}

TEST(HostileWords, anOptionThatStandsTwiceIsWrongUse) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  for (const Words& words : {Words{"--volume", volume.path(), "--volume", volume.path(), "modules"},
                             Words{"modules", "--volume", volume.path(), "--volume", volume.path()},
                             Words{"--volume", volume.path(), "modules", "--volume", volume.path()}}) {
    EXPECT_EQ(sorrel(words).status, 2) << testing::PrintToString(words);
  }
}

TEST(HostileWords, aFlagMayStandTwice) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const ProgramRun run = sorrel({"--json", "--volume", volume.path(), "scan", "trash", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("status"), "end");
}

TEST(HostileWords, aRelativeToolFolderInAFolderThatIsGoneIsWrongUse) {
  EXPECT_EQ(sorrel({"--tools", ".", "modules"}, {.inGoneFolder = true}).status, 2);
}

// Standard streams

TEST(HostileStreams, outputThatIsLostIsAFailure) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  for (const Words& command : {Words{"modules"}, Words{"--json", "modules"}, Words{"scan", "trash"},
                               Words{"--json", "scan", "trash"}, Words{"--help"}, Words{"--version"}}) {
    Words words = {"--volume", volume.path()};
    words.insert(words.end(), command.begin(), command.end());
    EXPECT_EQ(sorrel(words, {.output = "/dev/full"}).status, 1) << testing::PrintToString(command);
    EXPECT_EQ(sorrel(words, {.closed = {1}}).status, 1) << testing::PrintToString(command);
    EXPECT_EQ(sorrel(words, {.closed = {0, 1, 2}}).status, 1) << testing::PrintToString(command);
  }
}

TEST(HostileStreams, aScanNeedsNoStandardErrorOrInput) {
  const TemporaryFolder volume;
  volume.file("Users/alice/.Trash/a", 1);
  EXPECT_EQ(pathInTrash(volume.path(), {.closed = {0, 2}}), volume.path("Users/alice/.Trash/a"));
}

// The catalogue

struct Broken {
  std::string place;  // the text before the removed key
  std::string key;
  std::string value;  // its element
};

const std::vector<Broken>& requiredKeys() {
  static const std::string module = "<key>Only</key>";
  static const std::string feature = "<key>module</key>";
  static const std::string category = "<key>category</key>";
  static const std::vector<Broken> keys = {
      {module, "finder", "<integer>1</integer>"},
      {module, "title", "<string>Cleaner</string>"},
      {module, "image", "<string></string>"},
      {module, "description", "<string>Cleans</string>"},
      {module, "version", "<string>1.0</string>"},
      {module, "type", "<string>Main</string>"},
      {feature, "finder", "<integer>2</integer>"},
      {feature, "status", "<integer>0</integer>"},
      {feature, "image", "<string></string>"},
      {feature, "title", "<string>Feature 2</string>"},
      {feature, "description", "<string>About it</string>"},
      {category, "finder", "<integer>3</integer>"},
      {category, "status", "<integer>0</integer>"},
      {category, "title", "<string>Row 3</string>"},
      {category, "image", "<string></string>"},
      {category, "description", "<string>About row 3</string>"},
      {category, "type", "<string>Common</string>"},
      {"<key>urls</key>", "url", "<string>file://~/.Trash/</string>"},
  };
  return keys;
}

std::string catalogueWith(const Broken& row, const std::string& replacement) {
  std::string text = catalogue({{2, {{3, "Common", {"file://~/.Trash/"}}}}});
  const std::string element = "<key>" + row.key + "</key>" + row.value;
  const std::size_t at = text.find(element, text.find(row.place));
  EXPECT_NE(at, std::string::npos) << element;
  return at == std::string::npos ? text : text.replace(at, element.size(), replacement);
}

TEST(HostileCatalogue, eachRequiredKeyIsMissedInTheFixedWords) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  for (const Broken& row : requiredKeys()) {
    const std::string file = volume.text("test.plist", catalogueWith(row, ""));
    const ProgramRun run =
        sorrel({"--volume", volume.path(), "--catalogue", file, "--json", "scan", "trash"});
    EXPECT_EQ(run.status, 3) << row.place << row.key;
    EXPECT_EQ(run.out, "") << row.place << row.key;
    EXPECT_EQ(firstLine(run.err), kNil) << row.place << row.key;
  }
}

TEST(HostileCatalogue, eachRequiredKeyOfAnotherTypeIsAFatalStop) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  for (const Broken& row : requiredKeys()) {
    const std::string file =
        volume.text("test.plist", catalogueWith(row, "<key>" + row.key + "</key><data>AAAA</data>"));
    const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue", file, "scan", "trash"});
    EXPECT_EQ(run.status, 3) << row.place << row.key;
    EXPECT_TRUE(run.err.starts_with("Could not cast")) << run.err;
  }
}

TEST(HostileCatalogue, whatIsNoRegularFileIsAFatalStopAndNoWait) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  ASSERT_EQ(::mkfifo(volume.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("loop", volume.path("loop").c_str()), 0);
  for (const std::string& file :
       {volume.path("fifo"), volume.path("loop"), volume.path("Users"), std::string("/dev/zero")}) {
    const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue", file, "modules"});
    EXPECT_EQ(run.status, 3) << file;
    EXPECT_EQ(firstLine(run.err), kNil) << file;
  }
}

TEST(HostileCatalogue, itsKeysCannotWriteToTheTerminal) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const std::string file = volume.text(
      "test.plist", "<plist version=\"1.0\"><dict><key>a\xc2\x9b\x33\x31mb</key><dict/></dict></plist>");
  const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue", file, "modules"});
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.err.find("\"a\\xc2\\x9b31mb\""), std::string::npos) << run.err;
}

// The volume

TEST(HostileVolume, itsFolderMayHaveAnyName) {
  for (const char* const name : {"with blank", "#1?;[x]", "100%41", "line\nfeed", "\xc3\xb6", "-rf"}) {
    const TemporaryFolder place;
    place.file(std::string(name) + "/Users/alice/.Trash/a", 1);
    EXPECT_EQ(pathInTrash(place.path(name)), place.path(std::string(name) + "/Users/alice/.Trash/a"));
  }
}

TEST(HostileVolume, itsFolderNeedNotBeUTF8) {
  const TemporaryFolder place;
  place.file("v\xff/Users/alice/.Trash/a", 1);
  EXPECT_EQ(pathInTrash(place.path("v\xff")), place.path("v\xef\xbf\xbd/Users/alice/.Trash/a"));
}

TEST(HostileVolume, everySpellingOfItsFolderPrintsOnePath) {
  const TemporaryFolder place;
  place.file("v/Users/alice/.Trash/a", 1);
  const std::string expected = place.path("v/Users/alice/.Trash/a");
  for (const char* const spelling : {"v/", "v//", "v/.", "./v", "v/Users/..", "v/../v/"}) {
    EXPECT_EQ(pathInTrash(place.path(spelling)), expected) << spelling;
  }
  // The program runs in "/".
  EXPECT_EQ(pathInTrash(place.path("v").substr(1)), expected);
}

TEST(HostileVolume, itMayBeReachedByALink) {
  const TemporaryFolder place;
  place.file("v/Users/alice/.Trash/a", 1);
  ASSERT_EQ(::symlink("v", place.path("link").c_str()), 0);
  EXPECT_EQ(pathInTrash(place.path("link")), place.path("link/Users/alice/.Trash/a"));
}

TEST(HostileVolume, aUserMayHaveAnyName) {
  const TemporaryFolder volume;
  for (const std::string user : {"al\nice", "%41", "-x", "a b#", "\xc3\xb6"}) {
    const std::string trash = "Users/" + user + "/.Trash/";
    volume.file(trash + user, 1);
    const ProgramRun run = sorrel({"--volume", volume.path(), "--user=" + user, "--json", "scan", "trash"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Json document = run.document();
    EXPECT_EQ(document.at("feature").at("categoryInfo").at(0).at("childrens").at(0).at("title"), user);
  }
}

TEST(HostileVolume, linksLeadToNoTrash) {
  const TemporaryFolder place;
  const std::string owner = std::to_string(::getuid());
  place.file("out/secret", 1);
  place.file("out/.Trashes/" + owner + "/secret", 1);
  place.folder("v/Users/alice");
  place.folder("v/Volumes/USB/.Trashes");
  place.folder("v/Volumes/Disk");
  const std::vector<std::pair<std::string, std::string>> links = {
      {"out", "v/Users/alice/.Trash"},
      {"out", "v/Volumes/Link"},
      {"out", "v/Volumes/USB/.Trashes/" + owner},
      {"out/.Trashes", "v/Volumes/Disk/.Trashes"}};
  for (const auto& [target, link] : links) {
    ASSERT_EQ(::symlink(place.path(target).c_str(), place.path(link).c_str()), 0) << link;
  }
  const ProgramRun run = sorrel({"--volume", place.path("v"), "--json", "scan", "trash"});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  EXPECT_EQ(document.at("feature").at("categoryInfo").size(), 1U) << run.out;
  EXPECT_EQ(document.at("size"), 0);
}

TEST(HostileVolume, loopsAndFIFOsHoldNothingUp) {
  const TemporaryFolder volume;
  const std::string caches = volume.folder("Users/alice/Library/Caches");
  volume.file("Users/alice/Library/Caches/folder/data", 100);
  ASSERT_EQ(::symlink(".", (caches + "/self").c_str()), 0);
  ASSERT_EQ(::symlink("../..", (caches + "/folder/up").c_str()), 0);
  ASSERT_EQ(::mkfifo((caches + "/fifo").c_str(), 0600), 0);
  const ProgramRun run = sorrel({"--volume", volume.path(), "--json", "scan", "system-junk"});
  ASSERT_EQ(run.status, 0) << run.err;
  // The links count with their own lengths.
  EXPECT_EQ(run.document().at("size"), 100 + 1 + 5);
}

TEST(HostileVolume, aThousandLevelsNeedFewOpenFiles) {
  const TemporaryFolder volume;
  const std::string top = volume.folder("Users/alice/Library/Caches/top");
  const auto before = std::filesystem::current_path();
  ASSERT_EQ(::chdir(top.c_str()), 0);
  const std::string name(20, 'd');
  for (int level = 0; level < 1000; ++level) {
    ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
    ASSERT_EQ(::chdir(name.c_str()), 0);
  }
  ASSERT_EQ(::symlink("seven b", "leaf"), 0);
  std::filesystem::current_path(before);

  const ProgramRun run = sorrel({"--volume", volume.path(), "--json", "scan", "system-junk"}, {.files = 256});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("size"), 7);
}

TEST(HostileVolume, manyDeepFoldersCountWholeWithFewOpenFiles) {
  const TemporaryFolder volume;
  for (int top = 0; top < 12; ++top) {
    std::string at = "Users/alice/Library/Caches/top" + std::to_string(top);
    for (int level = 0; level < 80; ++level) {
      at += "/d";
      volume.file(at + "/x", 10);
    }
  }
  const ProgramRun run = sorrel({"--volume", volume.path(), "--json", "scan", "system-junk"}, {.files = 48});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.document().at("size"), 12 * 80 * 10);
}

TEST(HostileVolume, namesMatchWithoutLetterCase) {
  const TemporaryFolder volume;
  volume.file("users/alice/library/caches/a/x", 7);
  const ProgramRun run =
      sorrel({"--volume", volume.path(), "--user", "Alice", "--json", "scan", "system-junk"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("size"), 7);
}

TEST(HostileVolume, homeOfThisMachineIsNoHomeOfTheVolume) {
  const TemporaryFolder volume;
  const TemporaryFolder machine;
  volume.folder("Users");
  std::filesystem::create_symlink(machine.path(), volume.path("Users/alice"));
  EXPECT_EQ(sorrel({"--volume", volume.path(), "--user", "alice", "modules"}).status, 2);
}

TEST(HostileVolume, whatSomebodyElseOwnsIsNotTheUsersToDelete) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs root to give files away";
  const TemporaryFolder volume;
  volume.file("Users/alice/.Trash/mine", 1);
  volume.file("Users/zoe/.Trash/hers", 1);
  const uid_t nobodysNumber = 54321;
  ASSERT_EQ(::lchown(volume.file("Users/alice/.Trash/daemons", 1).c_str(), 1, 1), 0);
  ASSERT_EQ(::lchown(volume.file("Users/alice/.Trash/unknown", 1).c_str(), nobodysNumber, 1), 0);
  ASSERT_EQ(::lchown(volume.path("Users/zoe").c_str(), 2, 2), 0);
  ASSERT_EQ(::lchown(volume.file("Users/alice/.Trash/zoes", 1).c_str(), 2, 2), 0);
  const ProgramRun run = sorrel({"--volume", volume.path(), "--user", "alice", "--json", "scan", "trash"});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  Json found = Json::object();
  for (const Json& record : document.at("feature").at("categoryInfo").at(0).at("childrens")) {
    found[record.at("title").get<std::string>()] = record.at("canDelete");
  }
  EXPECT_EQ(found, Json({{"daemons", false}, {"mine", true}, {"unknown", true}, {"zoes", false}}));
}

}  // namespace
}  // namespace sorrel::hosttests
