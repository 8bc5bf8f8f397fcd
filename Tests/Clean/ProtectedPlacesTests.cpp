#include "SorrelFramework/Clean/ProtectedPlaces.hpp"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Removal/RemovalPolicy.hpp"
#include "SorrelFramework/Removal/TreeRemoval.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/SystemCallFaults.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

/// The error of a removal of `path` under the host's policy.
int errorOf(const std::string& path) {
  RemovalPolicy policy = RemovalPolicy::forUser();
  protectPlacesOfHost(policy);
  return removeItem(path, policy).error;
}

class ProtectedPlacesTest : public testing::Test {
 protected:
  ProtectedPlacesTest() { volume_.install(); }
  ~ProtectedPlacesTest() override { volume_.install(); }

  test::TemporaryVolume volume_;
};

TEST_F(ProtectedPlacesTest, homesThatCannotBeListedAreNotPassedOver) {
  RemovalPolicy policy = RemovalPolicy::forUser();
  const auto calls = test::runWithFault({SYS_getdents64, 1, EIO}, [&policy] { protectPlacesOfHost(policy); });
  if (!calls) GTEST_SKIP() << "no system calls can be watched here";
  EXPECT_EQ(policy.error(), EIO);
}

TEST_F(ProtectedPlacesTest, placesOfAVolumeStay) {
  const std::string uid = std::to_string(::getuid());
  volume_.file("Users/zoe/.Trash/a");
  volume_.file("Users/alice/.Trash/a");
  volume_.file("Volumes/USB/.Trashes/" + uid + "/a");
  volume_.file("Volumes/USB/.Trashes/4711/a");
  volume_.file(".Trashes/" + uid + "/a");
  const auto before = test::snapshotOf(volume_.path());
  EXPECT_EQ(errorOf(volume_.path()), EPERM);
  for (const std::string name :
       {"Users", "Users/alice", "Users/zoe", "Users/alice/.Trash", "Users/zoe/.Trash", "Volumes",
        "Volumes/USB", "Volumes/USB/.Trashes", "Volumes/USB/.Trashes/4711", ".Trashes"}) {
    EXPECT_EQ(errorOf(volume_.path(name)), EPERM) << name;
  }
  EXPECT_EQ(errorOf(volume_.path("Volumes/USB/.Trashes/" + uid)), EPERM);
  EXPECT_EQ(errorOf(volume_.path(".Trashes/" + uid)), EPERM);
  EXPECT_EQ(test::snapshotOf(volume_.path()), before);
}

TEST_F(ProtectedPlacesTest, whatLiesInThemMayGo) {
  for (const std::string name :
       {"Users/alice/Documents/a", "Users/zoe/a", "Users/alice/.Trash/a", "Users/note",
        "Volumes/USB/.Trashes/4711/a", "Volumes/USB/photo", "Library/a"}) {
    const std::string path = volume_.file(name);
    EXPECT_EQ(errorOf(path), 0) << name;
    EXPECT_FALSE(statusOf(path)) << name;
  }
}

TEST_F(ProtectedPlacesTest, anotherNameOfAHomeIsTheHome) {
  volume_.file("Users/alice/a");
  volume_.link("alias", "Users");
  EXPECT_EQ(errorOf(volume_.path("alias/alice")), EPERM);
  EXPECT_TRUE(statusOf(volume_.path("Users/alice/a")));
}

TEST_F(ProtectedPlacesTest, placesOfThisDesktopStay) {
  const test::TemporaryFolder home;
  home.file("data/Trash/files/a");
  home.file("data/Trash/info/a.trashinfo");
  const test::ScopedVariable homeVariable("HOME", home.path("").c_str());
  const test::ScopedVariable dataVariable("XDG_DATA_HOME", home.path("data").c_str());
  Host::install(Host::linuxDesktop({}));
  for (const std::string name : {"data/Trash/files", "data/Trash/info", "data/Trash", "data"}) {
    EXPECT_EQ(errorOf(home.path(name)), EPERM) << name;
  }
  EXPECT_EQ(errorOf(home.path()), EPERM);
  EXPECT_EQ(errorOf(home.path("data/Trash/files/a")), 0);
}

}  // namespace
}  // namespace sorrel
