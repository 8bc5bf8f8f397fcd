#include "SorrelFramework/Scan/Duplicate/DuplicatePlaces.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;

class Places : public testing::Test {
 protected:
  Places() { volume.install(); }

  /// Paths below the root of the volume.
  [[nodiscard]] Names of(const Names& names) const {
    std::vector<URL> urls;
    for (const std::string& name : names) urls.push_back(volume.url(name));
    Names places;
    for (const URL& url : duplicatePlaces(urls))
      places.push_back(url.path().substr(volume.path().size() + 1));
    return places;
  }

  [[nodiscard]] Names ofHome(const std::string& home) const {
    Names places;
    for (const URL& url : DuplicateScanService::placesInHome(volume.url(home)))
      places.push_back(url.path().substr(volume.path().size() + 1));
    return places;
  }

  test::TemporaryVolume volume;
};

TEST_F(Places, pathOfFourComponentsIsWalkedItself) {
  volume.file("Users/alice/Data/sub/a");
  EXPECT_EQ(of({"Users/alice/Data/"}), Names{"Users/alice/Data"});
}

TEST_F(Places, shorterPathStandsForWhatLiesInIt) {
  volume.file("Users/alice/sub/a");
  volume.file("Users/alice/b");
  volume.file("Users/alice/.hidden/c");
  volume.file("Users/alice/Tool.app/d");
  EXPECT_EQ(of({"Users/alice/"}), (Names{"Users/alice/Tool.app", "Users/alice/b", "Users/alice/sub"}));
  EXPECT_EQ(of({"Users/"}), Names{"Users/alice"});
  EXPECT_EQ(of({""}), (Names{"Resources", "Users"}));
}

TEST_F(Places, linksAndSpecialFilesOfAShortPathAreLeftOut) {
  volume.file("Users/alice/sub/a");
  volume.link("Users/alice/link", "sub");
  volume.fifo("Users/alice/pipe");
  EXPECT_EQ(of({"Users/alice/"}), Names{"Users/alice/sub"});
}

TEST_F(Places, ofMountsInAShortPathOnlyVolumesAreTaken) {
  for (const std::string folder : {"Volumes/Stick", "Volumes/Plain", "Users/alice/view", "Users/alice/sub"})
    volume.folder(folder);
  const std::string text = test::inMountingChild([this]() -> std::string {
    const auto mount = [this](const std::string& name) {
      return ::mount("tmpfs", volume.path(name).c_str(), "tmpfs", 0, nullptr) == 0 &&
             ::close(::open((volume.path(name) + "/a").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644)) == 0;
    };
    const std::string alice = volume.path("Users/alice");
    if (!mount("Volumes/Stick") ||
        ::mount((alice + "/sub").c_str(), (alice + "/view").c_str(), nullptr, MS_BIND, nullptr) != 0)
      return "skip";
    std::string found;
    for (const std::string& place : of({"Users/alice/", "Volumes/"})) found += place + '\n';
    return found;
  });
  if (text == "skip") GTEST_SKIP() << "no mounting here";
  EXPECT_EQ(text, "Users/alice/sub\nVolumes/Plain\nVolumes/Stick\n");
}

TEST_F(Places, onTheDesktopRootAndHomesAreShortPaths) {
  const std::string text = test::inMountingChild([]() -> std::string {
    if (::mount("tmpfs", "/home", "tmpfs", 0, nullptr) != 0) return "skip";
    for (const char* const folder : {"/home/alice", "/home/alice/sub", "/home/alice/.hidden", "/home/bob"}) {
      if (::mkdir(folder, 0755) != 0) return "skip";
    }
    ::setenv("HOME", "/home/alice", 1);
    Host::install(Host::linuxDesktop({"org.example.test", "", {}}));
    std::string found;
    for (const char* const given : {"/home/alice/", "/home/", "/home/alice/sub/"}) {
      for (const URL& place : duplicatePlaces({URL::fileURL(given, true)})) found += place.path() + ' ';
      found += '\n';
    }
    for (const std::string& library : Names{"/home/alice/Library", "/home/bob/Library"})
      found += librariesOfHomes().contains(library) ? "known " : "unknown ";
    const std::vector<URL> ofRoot = duplicatePlaces({URL::fileURL("/", true)});
    const auto has = [&](const char* path) {
      return std::ranges::any_of(ofRoot, [path](const URL& url) { return url.path() == path; });
    };
    return found + (has("/etc") ? "etc " : "") + (has("/proc") ? "proc " : "") + (has("/") ? "root" : "");
  });
  if (text == "skip") GTEST_SKIP() << "no mounting here";
  EXPECT_EQ(text, "/home/alice/sub \n/home/alice /home/bob \n/home/alice/sub \nknown known etc ");
}

TEST_F(Places, homeStandsForItsVisibleItemsWithoutLibraryAndPackages) {
  for (const char* const name : {"Data/a", "Data/Library/a", "Library/a", "Tool.app/a", ".hidden/a", "file"})
    volume.file(std::string("Users/alice/") + name);
  volume.link("Users/alice/link", "Data");
  volume.fifo("Users/alice/pipe");
  EXPECT_EQ(ofHome("Users/alice/"), (Names{"Users/alice/Data", "Users/alice/file"}));
}

TEST_F(Places, entryOfAShortHomeStandsForItsItemsWithoutPackages) {
  for (const char* const name : {"alice/Data/a", "alice/Tool.app/a", "alice/file", "Tool.app/a"})
    volume.file(std::string("Users/") + name);
  EXPECT_EQ(ofHome("Users/"), (Names{"Users/alice/Data", "Users/alice/file"}));
}

TEST_F(Places, homeThatCannotBeReadHasNone) { EXPECT_EQ(ofHome("Users/none/"), Names{}); }

TEST_F(Places, shortPathThatCannotBeReadAddsNothing) { EXPECT_EQ(of({"Users/none/"}), Names{}); }

TEST_F(Places, linkBesideWhatItLeadsToIsLeftOut) {
  volume.file("Users/alice/Data/a");
  volume.link("Users/alice/Link", "Data");
  EXPECT_EQ(of({"Users/alice/Data/", "Users/alice/Link/"}), Names{"Users/alice/Data"});
  EXPECT_EQ(of({"Users/alice/Link/", "Users/alice/Data/"}), Names{"Users/alice/Data"});
  EXPECT_EQ(of({"Users/alice/Link/"}), Names{"Users/alice/Link"});
}

TEST_F(Places, placeBelowTheEndOfALinkIsLeftOut) {
  volume.file("Users/alice/Data/sub/deep/a");
  volume.link("Users/alice/Link", "Data");
  volume.link("Users/alice/Data/sub/up", "../sub");
  EXPECT_EQ(of({"Users/alice/Link/", "Users/alice/Data/sub/"}), Names{"Users/alice/Link"});
  EXPECT_EQ(of({"Users/alice/Data/", "Users/alice/Link/sub/deep/"}), Names{"Users/alice/Data"});
  EXPECT_EQ(of({"Users/alice/Data/", "Users/alice/Data/sub/up/"}), Names{"Users/alice/Data"});
  EXPECT_EQ(of({"Users/alice/Data/", "Users/alice/Link/sub/deep/a"}), Names{"Users/alice/Data"});
}

TEST_F(Places, placeInAnotherIsLeftOutWithItIfALinkLeadsToBoth) {
  volume.file("Users/alice/Data/sub/deep/a");
  volume.link("Users/alice/Link", "Data");
  EXPECT_EQ(of({"Users/alice/Data/sub/deep/", "Users/alice/Data/sub/", "Users/alice/Link/"}),
            Names{"Users/alice/Link"});
}

TEST_F(Places, placeInAnotherIsKeptAsItMayLieWhereThatOneIsNotEntered) {
  volume.file("Users/alice/Data/Caches/sub/a");
  const Names both = {"Users/alice/Data", "Users/alice/Data/Caches/sub"};
  EXPECT_EQ(of({"Users/alice/Data/", "Users/alice/Data/Caches/sub/"}), both);
  // Two paths through one link are nested like their targets.
  volume.link("Users/alice/Link", "Data");
  EXPECT_EQ(of({"Users/alice/Link/Caches/", "Users/alice/Link/Caches/sub/"}),
            (Names{"Users/alice/Link/Caches", "Users/alice/Link/Caches/sub"}));
}

TEST_F(Places, twoLinksToOnePlaceAreOne) {
  volume.file("Users/alice/Data/a");
  volume.link("Users/alice/One", "Data");
  volume.link("Users/alice/Two", "Data");
  EXPECT_EQ(of({"Users/alice/One/", "Users/alice/Two/"}), Names{"Users/alice/One"});
}

TEST_F(Places, linkToAFileIsNotFollowed) {
  volume.file("Data/a");
  volume.link("Users/alice/absolute", "/Data/a");
  volume.link("Users/alice/relative", "../../Data/a");
  EXPECT_EQ(of({"Users/alice/absolute", "users/alice/relative"}),
            (Names{"Users/alice/absolute", "Users/alice/relative"}));
}

TEST_F(Places, missingPlaceIsKept) { EXPECT_EQ(of({"Users/alice/None/"}), Names{"Users/alice/None"}); }

TEST_F(Places, eachHomeHasALibrary) {
  volume.folder("Users/bob");
  volume.folder("Users/.hidden");
  EXPECT_EQ(librariesOfHomes(), (std::unordered_set<std::string>{volume.path("Users/alice/Library"),
                                                                 volume.path("Users/bob/Library")}));
}

TEST_F(Places, libraryOfAHomeIsKnownAsTheDiskSpellsIt) {
  volume.folder("Users/bob/LIBRARY");
  volume.file("Users/bob/Data/a");
  volume.link("Users/link", "bob");
  EXPECT_TRUE(librariesOfHomes().contains(volume.path("Users/bob/LIBRARY")));
  EXPECT_EQ(ofHome("Users/bob/"), Names{"Users/bob/Data"});
  EXPECT_EQ(ofHome("Users/link/"), Names{"Users/link/Data"});
}

TEST_F(Places, folderBesideTheLibraryThatDiffersInLetterCaseIsOrdinary) {
  volume.folder("Users/alice/Library");
  volume.file("Users/alice/library/a");
  EXPECT_FALSE(librariesOfHomes().contains(volume.path("Users/alice/library")));
  EXPECT_EQ(ofHome("Users/alice/"), Names{"Users/alice/library"});
}

}  // namespace
}  // namespace sorrel
