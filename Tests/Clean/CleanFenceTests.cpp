#include "SorrelFramework/Clean/CleanFence.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

class CleanFenceTest : public testing::Test {
 protected:
  CleanFenceTest() { volume_.install(); }
  ~CleanFenceTest() override { volume_.install(); }

  [[nodiscard]] int error(const std::string& path) const {
    return CleanFence().error(URL::fileURL(path, false));
  }

  /// The fence's error for the item that a removal finds at `path`, after `meanwhile` has run.
  [[nodiscard]] int errorOfFound(
      const std::string& path, const std::function<void()>& meanwhile = [] {}) const {
    const RemovalPolicy policy = RemovalPolicy::forUser();
    const RemovalTarget found = RemovalTarget::find(path, policy);
    EXPECT_EQ(found.error(), 0) << path;
    meanwhile();
    return CleanFence().error(path, found);
  }

  test::TemporaryVolume volume_;
  test::TemporaryFolder other_;
};

TEST_F(CleanFenceTest, refusesRecordsWithoutAPlace) {
  EXPECT_EQ(CleanFence().error(URL()), EINVAL);
  EXPECT_EQ(CleanFence().error(*URL::parse("https://example.org/a")), EINVAL);
  EXPECT_EQ(CleanFence().error(*URL::parse("relative")), EINVAL);
}

TEST_F(CleanFenceTest, refusesURLsThatSayMoreThanTheirPath) {
  volume_.file("a");
  volume_.folder("d");
  const std::string root = volume_.path();
  for (const std::string& text :
       {"file://" + root + "/a#1", "file://" + root + "/a?b", "file://" + root + "/d/#",
        "file://~" + root + "/a", "file://example.org" + root + "/a", "file://localhost.org" + root + "/a"}) {
    ASSERT_TRUE(URL::parse(text)->path().starts_with(root)) << text;
    EXPECT_EQ(CleanFence().error(*URL::parse(text)), EINVAL) << text;
  }
  for (const std::string& text : {"file://" + root + "/a%231", "file://" + root + "/a%3Fb",
                                  "file://localhost" + root + "/a", "file:" + root + "/a"}) {
    EXPECT_EQ(CleanFence().error(*URL::parse(text)), 0) << text;
  }
}

TEST_F(CleanFenceTest, letsItemsOfTheVolumePass) {
  EXPECT_EQ(error(volume_.file("Users/alice/a")), 0);
  EXPECT_EQ(error(volume_.folder("Users/alice/d")), 0);
  EXPECT_EQ(error(volume_.path("Users/alice/absent")), 0);
}

TEST_F(CleanFenceTest, refusesWhatLiesOutsideTheVolume) {
  const std::string outside = other_.file("d/a");
  volume_.link("out", other_.path("d"));
  EXPECT_EQ(error(outside), EACCES);
  EXPECT_EQ(error(volume_.path("out/a")), EACCES);
  EXPECT_EQ(error(volume_.path()), EACCES);
  EXPECT_EQ(error("/"), EACCES);
  EXPECT_EQ(error(volume_.path("../" + outside.substr(outside.find("sorrel-test")))), EACCES);
}

TEST_F(CleanFenceTest, refusesWhatWasFoundOutsideTheVolume) {
  const std::string outside = other_.file("d/a");
  volume_.link("out", other_.path("d"));
  volume_.link("in", "real");
  volume_.file("real/a");
  EXPECT_EQ(errorOfFound(outside), EACCES);
  EXPECT_EQ(errorOfFound(volume_.path("out/a")), EACCES);
  EXPECT_EQ(errorOfFound(volume_.path()), EACCES);
  EXPECT_EQ(errorOfFound(volume_.path("out")), 0);
  EXPECT_EQ(errorOfFound(volume_.path("in/a")), 0);
  EXPECT_EQ(errorOfFound(volume_.path("real/a")), 0);
  EXPECT_EQ(errorOfFound(volume_.path("real")), 0);
}

TEST_F(CleanFenceTest, onlyAVolumeHasAnOutsideForWhatWasFound) {
  Host::install(Host::linuxDesktop({}));
  EXPECT_EQ(errorOfFound(other_.file("a")), 0);
}

TEST_F(CleanFenceTest, goesByTheWayToWhatWasFoundAndNotByWhereThePathLeadsNow) {
  other_.file("d/a");
  volume_.link("way", other_.path("d"));
  const std::string path = volume_.path("way/a");
  const std::string way = volume_.path("way");
  EXPECT_EQ(errorOfFound(path,
                         [&] {
                           ASSERT_EQ(::unlink(way.c_str()), 0);
                           volume_.file("way/a");
                         }),
            EACCES);
  EXPECT_EQ(errorOfFound(path,
                         [&] {
                           ASSERT_EQ(::rename(way.c_str(), volume_.path("moved").c_str()), 0);
                           volume_.link("way", other_.path("d"));
                         }),
            0);
}

TEST_F(CleanFenceTest, goesByWhereAPathWithLinksLeadsNowAsWell) {
  volume_.file("real/a");
  other_.file("a");
  const std::string way = volume_.link("way", "real");
  EXPECT_EQ(errorOfFound(volume_.path("way/a"),
                         [&] {
                           ASSERT_EQ(::unlink(way.c_str()), 0);
                           volume_.link("way", other_.path());
                         }),
            EACCES);
}

TEST_F(CleanFenceTest, knowsTheVolumeFromItsNeighboursWhoseNamesBeginAlike) {
  Host::install(Host::macVolume(volume_.folder("one"), "alice", {}));
  volume_.file("one/a");
  volume_.file("one 2/a");
  volume_.folder("on");
  EXPECT_EQ(errorOfFound(volume_.path("one/a")), 0);
  EXPECT_EQ(errorOfFound(volume_.path("one 2/a")), EACCES);
  EXPECT_EQ(errorOfFound(volume_.path("one 2")), EACCES);
  EXPECT_EQ(errorOfFound(volume_.path("on")), EACCES);
}

TEST_F(CleanFenceTest, aWayThatLeavesTheVolumeAndComesBackCountsFromTheVolumeOn) {
  volume_.file("d/a");
  volume_.link("loop", "/");
  volume_.link("d/up", "../..");
  const std::string name = volume_.path().substr(volume_.path().rfind('/'));
  for (const std::string& root : {volume_.path("loop") + volume_.path(), volume_.path("d/up") + name}) {
    EXPECT_EQ(errorOfFound(root + "/d/a"), 0) << root;
    EXPECT_EQ(errorOfFound(root), EACCES) << root;
    EXPECT_EQ(errorOfFound(volume_.path("loop") + other_.file("a")), EACCES);
  }
}

TEST_F(CleanFenceTest, volumeThatIsMountedHasTheSameInside) {
  volume_.folder("mounted");
  volume_.folder("bound");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string root = volume_.path("mounted");
    if (::mount("tmpfs", root.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume_.file("mounted/d/a");
    volume_.file("bound/a");
    volume_.link("mounted/in", "d");
    volume_.link("mounted/out", volume_.path("bound"));
    volume_.link("alias", "mounted");
    Host::install(Host::macVolume(root, "alice", {}));
    std::string errors;
    for (const char* name : {"mounted/d/a", "mounted/in/a", "alias/in/a", "mounted/out/a", "bound/a"})
      errors += std::to_string(errorOfFound(volume_.path(name))) + " ";
    return errors;
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  const std::string outside = std::to_string(EACCES) + " ";
  EXPECT_EQ(told, "0 0 0 " + outside + outside);
}

TEST_F(CleanFenceTest, aVolumeThatIsGoneLetsNothingPassBehindALink) {
  volume_.file("root/d/a");
  volume_.link("root/in", "d");
  Host::install(Host::macVolume(volume_.path("root"), "alice", {}));
  const RemovalPolicy policy = RemovalPolicy::forUser();
  const std::string path = volume_.path("root/in/a");
  ASSERT_EQ(::rename(volume_.path("root").c_str(), volume_.path("aside").c_str()), 0);
  const CleanFence fence;
  ASSERT_EQ(::rename(volume_.path("aside").c_str(), volume_.path("root").c_str()), 0);
  EXPECT_EQ(fence.error(path, RemovalTarget::find(path, policy)), EACCES);
}

TEST_F(CleanFenceTest, volumeThatIsNamedByALinkHasTheSameInside) {
  const std::string alias = other_.path("alias");
  ASSERT_EQ(::symlink(volume_.path().c_str(), alias.c_str()), 0);
  Host::install(Host::macVolume(alias, "alice", {}));
  volume_.file("d/a");
  volume_.link("out", other_.path());
  other_.file("a");
  EXPECT_EQ(errorOfFound(alias + "/d/a"), 0);
  EXPECT_EQ(errorOfFound(volume_.path("d/a")), 0);
  EXPECT_EQ(errorOfFound(alias + "/out/a"), EACCES);
  EXPECT_EQ(errorOfFound(other_.path("a")), EACCES);
}

TEST_F(CleanFenceTest, refusesTheCurrentFolderAndThoseAboveAsTheyWereFound) {
  volume_.folder("a/b/c");
  volume_.file("a/file");
  volume_.link("alias", volume_.path("a"));
  const RemovalPolicy policy = RemovalPolicy::forUser();
  const std::string answer = test::inChild([&] {
    if (::chdir(volume_.path("a/b").c_str()) != 0) return std::string("no chdir");
    const CleanFence fence;
    std::string errors;
    for (const char* name : {"a", "a/b", "alias/b", "a/b/c", "a/file", "alias"}) {
      const std::string path = volume_.path(name);
      errors += std::to_string(fence.error(path, RemovalTarget::find(path, policy))) + " ";
    }
    return errors;
  });
  const std::string busy = std::to_string(EBUSY) + " ";
  EXPECT_EQ(answer, busy + busy + busy + "0 0 0 ");
}

TEST_F(CleanFenceTest, unknownCurrentFolderHoldsUpFoldersAlone) {
  volume_.folder("d");
  volume_.file("a");
  volume_.setMode("", 0755);
  const std::string current = volume_.folder("current");
  if (::geteuid() == 0) volume_.setOwner("current", test::kPlainUser);
  const std::string told = test::inPlainChild([&]() -> std::string {
    if (::chdir(current.c_str()) != 0 || ::chmod(current.c_str(), 0) != 0) return "no folder";
    const std::string errors = std::to_string(errorOfFound(volume_.path("d"))) + " " +
                               std::to_string(errorOfFound(volume_.path("a")));
    ::chmod(current.c_str(), 0700);
    return errors;
  });
  EXPECT_EQ(told, std::to_string(EACCES) + " 0");
}

TEST_F(CleanFenceTest, letsALinkPassThatLeadsOutsideItself) {
  EXPECT_EQ(error(volume_.link("out", other_.path())), 0);
}

TEST_F(CleanFenceTest, goesByNamesWhereAFolderIsMissing) {
  EXPECT_EQ(error(volume_.path("absent/a")), 0);
  EXPECT_EQ(error(other_.path("absent/a")), EACCES);
  EXPECT_EQ(error(volume_.path("absent/../../a")), EACCES);
}

TEST_F(CleanFenceTest, refusesWhatALinkHidesThatLeadsNowhere) {
  volume_.file("real/a");
  volume_.link("broken", other_.path("absent"));
  volume_.link("inside", "real");
  EXPECT_EQ(error(volume_.path("broken/a")), EACCES);
  EXPECT_EQ(error(volume_.path("broken/a/b")), EACCES);
  EXPECT_EQ(error(volume_.path("inside/absent/a")), 0);
}

TEST_F(CleanFenceTest, refusesWhatALinkHidesThatLeadsIntoAClosedFolder) {
  const std::string closed = other_.folder("closed/d");
  volume_.link("out", closed);
  volume_.folder("shut/d");
  for (const std::string& folder : {volume_.path("shut"), other_.path("closed")}) {
    ASSERT_EQ(::chmod(folder.c_str(), 0), 0);
  }
  for (const std::string& folder : {volume_.path(), other_.path()})
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
  const std::string told = test::inPlainChild([&] {
    return std::to_string(error(volume_.path("out/a"))) + " " +
           std::to_string(error(volume_.path("shut/d/a")));
  });
  EXPECT_EQ(told, std::to_string(EACCES) + " 0");
}

TEST_F(CleanFenceTest, refusesWhatItCannotLookUp) {
  const std::string folder = volume_.folder("d");
  volume_.link("out", other_.path());
  const std::string told = test::inChild([&]() -> std::string {
    const CleanFence fence;
    const rlimit none{0, 0};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return "no limit";
    const CleanFence blind;
    Host::install(Host::linuxDesktop({}));
    const CleanFence blindOnThisMachine;
    std::string errors;
    for (const CleanFence* each : {&fence, &blind}) {
      errors += std::to_string(each->error(URL::fileURL(volume_.path("out/a"), false))) + " ";
    }
    return errors + std::to_string(blindOnThisMachine.error(URL::fileURL(folder, false)));
  });
  const std::string full = std::to_string(EMFILE);
  EXPECT_EQ(told, full + " " + full + " " + full);
}

TEST_F(CleanFenceTest, removedCurrentFolderHoldsNothingUp) {
  const std::string current = volume_.folder("current");
  const std::string folder = volume_.folder("d");
  const std::string told = test::inChild([&]() -> std::string {
    if (::chdir(current.c_str()) != 0 || ::rmdir(current.c_str()) != 0) return "no folder";
    return std::to_string(error(folder));
  });
  EXPECT_EQ(told, "0");
}

TEST_F(CleanFenceTest, onlyAVolumeHasAnOutside) {
  Host::install(Host::linuxDesktop({}));
  EXPECT_EQ(error(other_.file("a")), 0);
}

TEST_F(CleanFenceTest, refusesTheCurrentFolderAndThoseAboveByEveryName) {
  volume_.folder("a/b/c");
  volume_.folder("a/other");
  volume_.link("alias", volume_.path("a"));
  const std::string answer = test::inChild([&] {
    if (::chdir(volume_.path("a/b").c_str()) != 0) return std::string("no chdir");
    std::string errors;
    for (const char* name : {"a", "a/b", "alias/b", "a/b/c", "a/other", "alias"}) {
      errors += std::to_string(error(volume_.path(name))) + " ";
    }
    return errors;
  });
  const std::string busy = std::to_string(EBUSY) + " ";
  EXPECT_EQ(answer, busy + busy + busy + "0 0 0 ");
}

}  // namespace
}  // namespace sorrel
