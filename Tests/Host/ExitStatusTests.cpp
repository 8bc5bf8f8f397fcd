// The reaction of sorrel to wrong use and to broken catalogues, from outside.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {
namespace {

using Words = std::vector<std::string>;

const std::string kNil = "Unexpectedly found nil while unwrapping an Optional value";

TEST(ExitStatus, wrongUseIsTwoAndLeavesStandardOutputEmpty) {
  const TemporaryFolder folder;
  folder.folder("Users/ann");
  folder.folder("Users/zoe");
  folder.text("file", "");
  const std::vector<Words> cases = {
      {},
      {"scan"},
      {"nonsense"},
      {"--nonsense", "modules"},
      {"modules", "more"},
      {"scan", "nonsense"},
      {"scan", "0"},
      {"scan", "13"},
      {"scan", "01"},
      {"scan", ""},
      {"scan", "trash", "/tmp"},
      {"scan", "trash", "--nonsense"},
      {"scan", "trash", "--by"},
      {"scan", "trash", "--by", "0"},
      {"scan", "trash", "--by", "date"},
      {"scan", "privacy"},
      {"clean", "trash", "--all"},
      {"--volume"},
      {"--volume", folder.path("missing"), "modules"},
      {"--volume", folder.path("file"), "modules"},
      {"--volume", folder.path(), "--user", "bob", "modules"},
      {"--volume", folder.path(), "--user", "..", "modules"},
      {"--volume", folder.path(), "--user", "ann/../zoe", "modules"},
      {"--user", "somebody else", "modules"},
      {"--tools", folder.path("missing"), "modules"},
      {"--bundle-id", "../up", "modules"},
      {"--bundle-id", "a/b", "modules"},
      {"--bundle-id", ".a", "modules"},
      {"--bundle-id", "-a", "modules"},
      {"--bundle-id", "a_b", "modules"},
      {"--bundle-id", "a b", "modules"},
      {"--bundle-id", "\u00e4", "modules"},
      {"--bundle-id", "a\n", "modules"},
      {"modules", "--bundle-id", "[a]"},
  };
  for (Words words : cases) {
    for (const bool json : {false, true}) {
      if (json) words.insert(words.begin(), "--json");
      const ProgramRun run = sorrel(words);
      EXPECT_EQ(run.status, 2) << testing::PrintToString(words) << run.err;
      EXPECT_EQ(run.out, "") << testing::PrintToString(words);
      EXPECT_TRUE(run.err.starts_with("sorrel: ")) << run.err;
    }
  }
}

TEST(ExitStatus, aBundleIdentifierTakesLettersDigitsDotsAndHyphens) {
  for (const char* const name : {"a", "7", "org.Example-2.x", "a.", "a--b"}) {
    EXPECT_EQ(sorrel({"--bundle-id", name, "modules"}).status, 0) << name;
  }
}

TEST(ExitStatus, aVolumeWithSeveralHomesNeedsAUserThatIsThere) {
  const TemporaryFolder volume;
  // None of them is the login of the user who runs the test, because that one would be chosen.
  const passwd* const account = ::getpwuid(::geteuid());
  const std::string login = account == nullptr ? "" : account->pw_name;
  volume.folder("Users/not-" + login);
  volume.folder("Users/neither-" + login);
  const ProgramRun run = sorrel({"--volume", volume.path(), "scan", "trash"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("has no home for"), std::string::npos) << run.err;
}

TEST(ExitStatus, aSlipOfTheKeyboardGetsTheNearestName) {
  EXPECT_NE(sorrel({"scan", "tarsh"}).err.find("Did you mean 'trash'?"), std::string::npos);
  EXPECT_NE(sorrel({"scan", "systemjunk"}).err.find("Did you mean 'system-junk'?"), std::string::npos);
  EXPECT_NE(sorrel({"scna", "trash"}).err.find("Did you mean 'scan'?"), std::string::npos);
  EXPECT_EQ(sorrel({"scan", "zzz"}).err.find("Did you mean"), std::string::npos);
}

TEST(ExitStatus, aFeatureOfALaterVersionIsNamedAsSuch) {
  const ProgramRun run = sorrel({"scan", "privacy"});
  EXPECT_EQ(run.err, "sorrel: this version of sorrel cannot scan 'privacy'.\n");
}

TEST(ExitStatus, wordsOfTheUserCannotWriteToTheTerminal) {
  const ProgramRun run = sorrel({"scan", "a\x1b[31m\nb"});
  EXPECT_EQ(run.err, "sorrel: there is no feature 'a\\x1b[31m\\nb'.\n");
}

TEST(ExitStatus, helpAndVersionAreNoFailures) {
  const ProgramRun help = sorrel({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* const word : {"modules", "scan", "system-junk", "--catalogue", "--json"}) {
    EXPECT_NE(help.out.find(word), std::string::npos) << word;
  }
  EXPECT_EQ(sorrel({"scan", "--help"}).status, 0);
  EXPECT_EQ(sorrel({"--version"}).status, 0);
}

TEST(ExitStatus, aBrokenCatalogueIsAFatalStop) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const std::string whole = catalogue({{1, {{0, "SystemCache", {"file://~/Library/Caches/"}}}}});
  const auto without = [&](const std::string& piece, const std::string& other) {
    std::string text = whole;
    const std::size_t at = text.find(piece);
    EXPECT_NE(at, std::string::npos) << piece;
    return at == std::string::npos ? text : text.replace(at, piece.size(), other);
  };
  volume.text("damaged.plist", whole.substr(0, whole.size() / 2));
  volume.text("array.plist", "<plist version=\"1.0\"><array/></plist>");
  volume.text("nokey.plist", without("<key>version</key><string>1.0</string>", ""));
  volume.text("type.plist", without("<key>type</key><string>SystemCache</string>", ""));
  volume.text("wrong.plist", without("<integer>1</integer>", "<string>1</string>"));
  for (const char* const name : {"missing", "damaged", "array", "nokey", "type", "wrong"}) {
    const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue",
                                   volume.path(std::string(name) + ".plist"), "--json", "modules"});
    EXPECT_EQ(run.status, 3) << name << run.err;
    EXPECT_EQ(run.out, "") << name;
    EXPECT_NE(run.err, "") << name;
  }
}

TEST(ExitStatus, aMissingKeyIsNamedInTheFixedWords) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  std::string text = catalogue({{1, {{0, "SystemCache", {"file://~/Library/Caches/"}}}}});
  const std::string key = "<key>version</key><string>1.0</string>";
  text.replace(text.find(key), key.size(), "");
  const std::string file = volume.text("nokey.plist", text);
  const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue", file, "modules"});
  EXPECT_EQ(run.err.substr(0, run.err.find('\n')), kNil);
}

TEST(ExitStatus, aScanThatCouldNeverEndIsRefused) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const std::vector<std::pair<std::string, std::vector<FeatureRow>>> cases = {
      {"no categories", {{1, {}}}},
      {"no urls", {{1, {{0, "SystemCache", {"file://~/Library/Caches/"}}, {1, "SystemCache", {}}}}}},
      {"no feature", {{2, {{0, "Common", {"file://~/.Trash/"}}}}}},
  };
  for (const auto& [name, features] : cases) {
    const std::string file = volume.text("test.plist", catalogue(features));
    const ProgramRun run =
        sorrel({"--volume", volume.path(), "--catalogue", file, "--json", "scan", "system-junk"});
    EXPECT_EQ(run.status, 3) << name;
    EXPECT_EQ(run.out, "") << name;
    EXPECT_TRUE(run.err.starts_with("sorrel: the catalogue")) << run.err;
  }
}

}  // namespace
}  // namespace sorrel::hosttests
