#include "SorrelFramework/Platform/Machine/Host.hpp"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

// A macOS volume.

Host volumeAt(std::string root, std::string user = "alice") {
  return Host::macVolume(std::move(root), std::move(user), {"org.example.test", "", {}});
}

TEST(HostMacVolume, layoutBelowTheRoot) {
  const Host host = volumeAt("/mnt/disk");
  EXPECT_EQ(host.layout(), Host::Layout::MacVolume);
  EXPECT_EQ(host.root(), "/mnt/disk");
  EXPECT_EQ(host.userName(), "alice");
  EXPECT_EQ(host.home(), "/mnt/disk/Users/alice");
  EXPECT_EQ(host.homesFolder(), "/mnt/disk/Users");
  EXPECT_EQ(host.locate("/Library/Caches"), "/mnt/disk/Library/Caches");
  EXPECT_EQ(host.applicationSupportFolder(), "/mnt/disk/Users/alice/Library/Application Support");
  EXPECT_EQ(host.cachesFolder(), "/mnt/disk/Users/alice/Library/Caches");
  EXPECT_EQ(host.preferencesFolder(), "/mnt/disk/Users/alice/Library/Preferences");
  EXPECT_EQ(host.documentsFolder(), "/mnt/disk/Users/alice/Documents");
  EXPECT_TRUE(host.ignoresLetterCase());
  EXPECT_EQ(host.mainBundle().identifier, "org.example.test");
}

TEST(HostMacVolume, machinesOwnRootGivesThePathsOfMacOS) {
  for (const char* root : {"", "/"}) {
    const Host host = volumeAt(root);
    EXPECT_EQ(host.root(), "");
    EXPECT_EQ(host.home(), "/Users/alice");
    EXPECT_EQ(host.homesFolder(), "/Users");
    EXPECT_EQ(host.locate("/Library"), "/Library");
    EXPECT_EQ(host.layoutPath("/Users/alice/a"), "/Users/alice/a");
  }
}

TEST(HostMacVolume, slashesBehindTheRootDoNotCount) {
  const Host host = volumeAt("/mnt/disk//");
  EXPECT_EQ(host.root(), "/mnt/disk");
  EXPECT_EQ(host.locate("/Users"), "/mnt/disk/Users");
}

TEST(HostMacVolume, fileURLsAreReadBelowTheRoot) {
  const Host host = volumeAt("/mnt/my disk");
  EXPECT_EQ(host.locate(*URL::parse("file:///Users/alice/Library/")).absoluteString(),
            "file:///mnt/my%20disk/Users/alice/Library/");
  EXPECT_EQ(host.locate(*URL::parse("file:///a%20b")).absoluteString(), "file:///mnt/my%20disk/a%20b");
  EXPECT_EQ(host.locate(*URL::parse("file:///")).path(), "/mnt/my disk");
}

TEST(HostMacVolume, otherURLsComeBackAsTheyAre) {
  const Host host = volumeAt("/mnt/disk");
  EXPECT_EQ(host.locate(*URL::parse("https://example.org/a")).absoluteString(), "https://example.org/a");
  EXPECT_EQ(host.locate(URL()), URL());
}

TEST(HostMacVolume, layoutPathTakesTheRootAway) {
  const Host host = volumeAt("/mnt/disk");
  EXPECT_EQ(host.layoutPath("/mnt/disk/Volumes/X"), "/Volumes/X");
  EXPECT_EQ(host.layoutPath("/mnt/disk"), "/");
  EXPECT_EQ(host.layoutPath("/mnt/disk2/a"), "/mnt/disk2/a");
  EXPECT_EQ(host.layoutPath("/etc"), "/etc");
}

TEST(HostMacVolume, homeURLTextIsTheOneOfTheLayout) {
  EXPECT_EQ(volumeAt("/mnt/disk").homeURLText(), "file:///Users/alice/");
  EXPECT_EQ(volumeAt("/mnt/disk", "al ice").homeURLText(), "file:///Users/al%20ice/");
}

TEST(HostMacVolume, ownersOfTheHomesGoByTheirNames) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs folders of several owners";
  const test::TemporaryVolume volume;
  volume.folder("Users/bob");
  volume.folder("Users/Shared");
  volume.setOwner("Users/alice", 501);
  volume.setOwner("Users/bob", 502);
  volume.setOwner("Users/Shared", 503);
  const Host host = volumeAt(volume.path());
  EXPECT_EQ(host.ownerName(501), "alice");
  EXPECT_EQ(host.ownerName(502), "bob");
  EXPECT_NE(host.ownerName(503), "Shared");
  EXPECT_EQ(host.userID(), 501U);
}

TEST(HostMacVolume, userOfTheVolumeWinsWhereHomesShareAnOwner) {
  const test::TemporaryVolume volume;
  volume.folder("Users/aaron");
  volume.folder("Users/zoe");
  const Host host = volumeAt(volume.path());
  EXPECT_EQ(host.ownerName(::geteuid()), "alice");
}

TEST(HostMacVolume, otherOwnersGoByThePasswordFile) {
  const passwd* root = ::getpwuid(0);
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(volumeAt("/nonexistent/volume").ownerName(0), root->pw_name);
  constexpr uid_t nobodyHas = 4000000001;
  EXPECT_EQ(volumeAt("/nonexistent/volume").ownerName(nobodyHas), std::nullopt);
}

TEST(HostMacVolume, withoutAHomeTheUserIsTheCaller) {
  EXPECT_EQ(volumeAt("/nonexistent/volume").userID(), ::getuid());
}

// Letter case.

class HostLetterCase : public testing::Test {
 protected:
  [[nodiscard]] std::string matched(std::string_view name) const {
    const std::string path = volumeAt(volume_.path()).matchingLetterCase(volume_.path(name));
    return path.starts_with(volume_.path() + '/') ? path.substr(volume_.path().size() + 1) : path;
  }
  test::TemporaryVolume volume_;
};

TEST_F(HostLetterCase, nameIsSpelledAsOnDisk) {
  volume_.file("Users/alice/Library/Cookies", "");
  EXPECT_EQ(matched("users/ALICE/library/cookies"), "Users/alice/Library/Cookies");
}

TEST_F(HostLetterCase, exactNameComesFirst) {
  volume_.file("a/Cookies", "");
  volume_.file("a/cookies", "");
  EXPECT_EQ(matched("a/cookies"), "a/cookies");
  EXPECT_EQ(matched("a/Cookies"), "a/Cookies");
}

TEST_F(HostLetterCase, firstMatchInTheOrderOfTheBytes) {
  volume_.file("a/cookies", "");
  volume_.file("a/COOKIES", "");
  volume_.file("a/Cookies", "");
  EXPECT_EQ(matched("a/cookieS"), "a/COOKIES");
}

TEST_F(HostLetterCase, exactFolderIsKeptWhenOnlyItsChildDiffers) {
  volume_.folder("Profile");
  volume_.file("profile/Cookies", "");
  EXPECT_EQ(matched("profile/cookies"), "profile/Cookies");
}

TEST_F(HostLetterCase, pathWithoutAMatchIsKept) {
  volume_.folder("Library");
  EXPECT_EQ(matched("library/none"), "library/none");
  EXPECT_EQ(volumeAt(volume_.path()).matchingLetterCase("/ETC/passwd"), "/ETC/passwd");
}

TEST_F(HostLetterCase, lettersBeyondASCIIAndDecomposedOnesMatch) {
  volume_.file("Cafe\xCC\x81/A", "");
  EXPECT_EQ(matched("CAF\xC3\x89/a"), "Cafe\xCC\x81/A");
}

TEST_F(HostLetterCase, placesAreFoundUnderOtherLetters) {
  volume_.folder("users/Alice/library/caches");
  volume_.folder("volumes");
  std::filesystem::remove_all(volume_.path("Users"));  // made by the kit
  const Host host = volumeAt(volume_.path(), "alice");
  EXPECT_EQ(host.userName(), "Alice");
  EXPECT_TRUE(host.hasHome());
  EXPECT_EQ(host.homesFolder(), volume_.path("users"));
  EXPECT_EQ(host.home(), volume_.path("users/Alice"));
  EXPECT_EQ(host.cachesFolder(), volume_.path("users/Alice/library/caches"));
  EXPECT_EQ(host.preferencesFolder(), volume_.path("users/Alice/Library/Preferences"));
  EXPECT_EQ(host.locate("/Volumes"), volume_.path("volumes"));
  EXPECT_EQ(host.locate(*URL::parse("file:///Users/alice/Library/Caches/")).path(),
            volume_.path("users/Alice/library/caches"));
}

// Links of a volume.

class HostLinks : public HostLetterCase {
 protected:
  HostLinks() { std::filesystem::remove_all(volume_.path("Users")); }
};

TEST_F(HostLinks, absoluteOnesLeadBelowTheRoot) {
  volume_.folder("Data/Users/alice/Lib/Caches");
  volume_.link("Users", "/Data/Users");
  volume_.link("Data/Users/alice/Library", "/Users/alice/Lib");
  const Host host = volumeAt(volume_.path());
  EXPECT_EQ(host.homesFolder(), volume_.path("Data/Users"));
  EXPECT_EQ(host.home(), volume_.path("Data/Users/alice"));
  EXPECT_EQ(host.userName(), "alice");
  EXPECT_TRUE(host.hasHome());
  EXPECT_EQ(host.cachesFolder(), volume_.path("Data/Users/alice/Lib/Caches"));
  EXPECT_EQ(host.locate("/Users/alice/Library/Caches"), volume_.path("Data/Users/alice/Lib/Caches"));
}

TEST_F(HostLinks, homeThatIsALinkBelongsToTheOwnerOfTheFolder) {
  volume_.folder("Data/alice");
  volume_.link("Users/alice", "/Data/alice");
  if (::getuid() == 0) volume_.setOwner("Data/alice", 4242);
  const Host host = volumeAt(volume_.path());
  EXPECT_EQ(host.home(), volume_.path("Data/alice"));
  EXPECT_EQ(host.userID(), ::getuid() == 0 ? 4242 : ::getuid());
}

TEST_F(HostLinks, homeOfThisMachineIsNoHomeOfTheVolume) {
  const test::TemporaryFolder machine;
  volume_.link("Users/alice", machine.path());
  EXPECT_FALSE(volumeAt(volume_.path()).hasHome());
  EXPECT_EQ(volumeAt(volume_.path()).home(), volume_.path() + machine.path());
}

TEST_F(HostLinks, linkAtTheEndIsLocatedAsItself) {
  volume_.folder("Documents");
  volume_.link("Users/alice/.Trash", "/Documents");
  const Host host = volumeAt(volume_.path());
  EXPECT_EQ(host.locate("/Users/alice/.trash"), volume_.path("Users/alice/.Trash"));
  EXPECT_EQ(host.followingLinks(host.locate("/Users/alice/.trash")), volume_.path("Documents"));
}

TEST_F(HostLetterCase, desktopKeepsTheCase) {
  volume_.file("Cookies", "");
  const Host host = Host::linuxDesktop({});
  EXPECT_FALSE(host.ignoresLetterCase());
  EXPECT_EQ(host.matchingLetterCase(volume_.path("cookies")), volume_.path("cookies"));
}

// The desktop.

/// A desktop whose home and variables the test sets.
class HostDesktop : public testing::Test {
 protected:
  [[nodiscard]] static Host host() { return Host::linuxDesktop({"org.example.test", "", {}}); }

  test::ScopedVariable home_{"HOME", "/home/alice"};
  test::ScopedVariable cache_{"XDG_CACHE_HOME", nullptr};
  test::ScopedVariable config_{"XDG_CONFIG_HOME", nullptr};
  test::ScopedVariable data_{"XDG_DATA_HOME", nullptr};
  test::ScopedVariable state_{"XDG_STATE_HOME", nullptr};
};

TEST_F(HostDesktop, layoutIsThatOfTheMachine) {
  EXPECT_EQ(host().layout(), Host::Layout::LinuxDesktop);
  EXPECT_EQ(host().root(), "");
  EXPECT_EQ(host().home(), "/home/alice");
  EXPECT_EQ(host().homesFolder(), "/home");
  EXPECT_EQ(host().locate("/usr/share"), "/usr/share");
  EXPECT_EQ(host().layoutPath("/home/alice/a"), "/home/alice/a");
  EXPECT_EQ(host().userID(), ::getuid());
  EXPECT_EQ(host().mainBundle().identifier, "org.example.test");
}

TEST_F(HostDesktop, userNameIsThatOfTheAccount) {
  const passwd* account = ::getpwuid(::geteuid());
  EXPECT_EQ(host().userName(), account != nullptr ? account->pw_name : std::to_string(::geteuid()));
}

TEST_F(HostDesktop, userWithoutAnAccountGoesByItsNumber) {
  const std::string told = test::inPlainChild([] { return host().userName(); });
  const passwd* account = ::getpwuid(::geteuid() == 0 ? test::kPlainUser : ::geteuid());
  EXPECT_EQ(told, account != nullptr ? account->pw_name : std::to_string(test::kPlainUser));
}

TEST_F(HostDesktop, baseDirectoriesLieInTheHome) {
  EXPECT_EQ(host().applicationSupportFolder(), "/home/alice/.local/share");
  EXPECT_EQ(host().cachesFolder(), "/home/alice/.cache");
  EXPECT_EQ(host().preferencesFolder(), "/home/alice/.config");
  EXPECT_EQ(host().locate("/home/alice/.cache/x"), "/home/alice/.cache/x");
}

TEST_F(HostDesktop, absoluteVariablesMoveThem) {
  const test::ScopedVariable cache("XDG_CACHE_HOME", "/fast/cache/");
  const test::ScopedVariable config("XDG_CONFIG_HOME", "/etc/alice");
  const test::ScopedVariable data("XDG_DATA_HOME", "/data");
  const test::ScopedVariable state("XDG_STATE_HOME", "/state");
  EXPECT_EQ(host().cachesFolder(), "/fast/cache");
  EXPECT_EQ(host().preferencesFolder(), "/etc/alice");
  EXPECT_EQ(host().applicationSupportFolder(), "/data");
  EXPECT_EQ(host().locate("/home/alice/.cache"), "/fast/cache");
  EXPECT_EQ(host().locate("/home/alice/.cache/a/b"), "/fast/cache/a/b");
  EXPECT_EQ(host().locate("/home/alice/.local/share/Trash"), "/data/Trash");
  EXPECT_EQ(host().locate("/home/alice/.local/state/log"), "/state/log");
  EXPECT_EQ(host().locate("/home/alice/.cached"), "/home/alice/.cached");
  EXPECT_EQ(host().locate("/home/bob/.cache/a"), "/home/bob/.cache/a");
}

TEST_F(HostDesktop, relativeAndEmptyVariablesDoNotCount) {
  const test::ScopedVariable cache("XDG_CACHE_HOME", "cache");
  const test::ScopedVariable config("XDG_CONFIG_HOME", "");
  EXPECT_EQ(host().cachesFolder(), "/home/alice/.cache");
  EXPECT_EQ(host().preferencesFolder(), "/home/alice/.config");
}

TEST_F(HostDesktop, movedFoldersHoldForURLsToo) {
  const test::ScopedVariable cache("XDG_CACHE_HOME", "/fast/my cache");
  EXPECT_EQ(host().locate(*URL::parse("file:///home/alice/.cache/x/")).absoluteString(),
            "file:///fast/my%20cache/x/");
  EXPECT_EQ(host().locate(*URL::parse("file:///home/alice/x")).absoluteString(), "file:///home/alice/x");
}

TEST_F(HostDesktop, homeIsReadOnceWhenTheHostIsMade) {
  const Host made = host();
  const test::ScopedVariable other("HOME", "/home/bob");
  EXPECT_EQ(made.home(), "/home/alice");
}

TEST_F(HostDesktop, withoutAUsableHomeTheAccountTells) {
  const passwd* account = ::getpwuid(::geteuid());
  if (account == nullptr) GTEST_SKIP() << "this user has no account";
  const std::string home = account->pw_dir;
  const test::ScopedVariable none("HOME", nullptr);
  EXPECT_EQ(host().home(), home);
  const test::ScopedVariable relative("HOME", "alice");
  EXPECT_EQ(host().home(), home);
}

TEST_F(HostDesktop, homeURLTextIsCoded) {
  const test::ScopedVariable home("HOME", "/home/al ice/");
  EXPECT_EQ(host().homeURLText(), "file:///home/al%20ice/");
}

TEST_F(HostDesktop, documentsFolderIsTheOneTheUserChose) {
  EXPECT_EQ(host().documentsFolder(), "/home/alice/Documents");
  const test::TemporaryFolder config;
  const test::ScopedVariable variable("XDG_CONFIG_HOME", config.path().c_str());
  EXPECT_EQ(host().documentsFolder(), "/home/alice/Documents");
  config.file("user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n");
  EXPECT_EQ(host().documentsFolder(), "/home/alice/Dokumente");
  config.file("user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"Dokumente\"\n");
  EXPECT_EQ(host().documentsFolder(), "/home/alice/Documents");
}

TEST_F(HostDesktop, ownersGoByThePasswordFile) {
  EXPECT_EQ(host().ownerName(0), ::getpwuid(0)->pw_name);
  EXPECT_EQ(host().ownerName(4000000001), std::nullopt);
}

// Both.

TEST(Host, installedHostIsTheCurrentOne) {
  const test::TemporaryVolume volume;
  volume.install();
  const Host& first = Host::current();
  EXPECT_EQ(first.root(), volume.path());
  Host::install(volumeAt("/mnt/other"));
  EXPECT_EQ(Host::current().root(), "/mnt/other");
  EXPECT_EQ(first.root(), volume.path());
}

TEST(Host, toolIsTheStandInWhereThereIsOne) {
  const test::TemporaryFolder tools;
  tools.script("mdls", "exit 0");
  tools.file("plain", "no program");
  Host host = volumeAt("/mnt/disk");
  EXPECT_EQ(host.tool("/usr/bin/mdls"), "/usr/bin/mdls");
  host.setToolFolder(tools.path());
  EXPECT_EQ(host.tool("/usr/bin/mdls"), tools.path("mdls"));
  EXPECT_EQ(host.tool("/usr/bin/mdfind"), "/usr/bin/mdfind");
  EXPECT_EQ(host.tool("/usr/bin/plain"), "/usr/bin/plain");
}

TEST(Host, folderIsNoTool) {
  const test::TemporaryFolder tools;
  tools.folder("mdls");
  Host host = volumeAt("/mnt/disk");
  host.setToolFolder(tools.path());
  EXPECT_EQ(host.tool("/usr/bin/mdls"), "/usr/bin/mdls");
}

TEST(Host, resourcesAreFoundByNameAndType) {
  const test::TemporaryFolder resources;
  resources.file("Feature.plist", "");
  resources.file("Readme", "");
  const Host host = Host::macVolume("/mnt/disk", "alice", {"", resources.path(), {}});
  EXPECT_EQ(host.resourcePath("Feature", "plist"), resources.path("Feature.plist"));
  EXPECT_EQ(host.resourcePath("Readme", ""), resources.path("Readme"));
  EXPECT_EQ(host.resourcePath("Feature", "png"), std::nullopt);
  EXPECT_EQ(volumeAt("/mnt/disk").resourcePath("Feature", "plist"), std::nullopt);
}

}  // namespace
}  // namespace sorrel
