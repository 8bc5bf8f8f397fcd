#include "Helper/DeleteOperation.hpp"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>

#include "Tests/Helper/EventKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/SilentFileSystem.hpp"

namespace sorrel::helper {
namespace {

using Seen = SenderView::Kind;

class DeleteOperationTest : public test::EventKit {
 protected:
  PathResult deleteSeeing(const std::string& path, const SenderView& seen) {
    return deletePath(path, seen, RemovalPolicy::forHelper(caller));
  }
  PathResult deleteAsIs(const std::string& path) { return deleteSeeing(path, viewOf(path)); }
};

bool isRefusal(const PathResult& result) {
  return result.status == HelperEventErrorID::DeleteError && result.desc.starts_with(kRefusedItemText);
}
bool isFailure(const PathResult& result) {
  return result.status == HelperEventErrorID::DeleteError && !result.desc.starts_with(kRefusedItemText);
}

TEST_F(DeleteOperationTest, filesFoldersAndLinksThemselvesGo) {
  volume.file("folder/sub/file", "x");
  volume.file("kept/file", "x");
  volume.link("folder/link", volume.path("kept"));
  volume.link("link", "kept/file");
  EXPECT_TRUE(deleteAsIs(volume.path("folder")).isSuccess());
  EXPECT_TRUE(deleteAsIs(volume.path("link")).isSuccess());
  EXPECT_FALSE(isThere(volume.path("folder")));
  EXPECT_FALSE(isThere(volume.path("link")));
  EXPECT_TRUE(isThere(volume.path("kept/file")));
}

TEST_F(DeleteOperationTest, namesAreBytes) {
  for (const char* name : {"new\nline", "\xff\xfe", "-rf", "%20", "a'b\"$()", "*"}) {
    const std::string path = volume.file(name, "x");
    EXPECT_TRUE(deleteAsIs(path).isSuccess()) << name;
    EXPECT_FALSE(isThere(path)) << name;
  }
}

TEST_F(DeleteOperationTest, pathsThatAreNotNormalAreRefused) {
  const std::string file = volume.file("file", "x");
  const std::string folder = volume.path();
  for (const std::string& path :
       {std::string(), std::string("/"), std::string("."), std::string("relative"), folder + "/./file",
        folder + "//file", folder + "/x/../file", folder + "/", file + std::string("\0", 1),
        "/" + std::string((std::size_t{1} << 20), 'x')}) {
    EXPECT_TRUE(isRefusal(deleteSeeing(path, {Seen::CouldNotLook, 0, 0})));
  }
  EXPECT_TRUE(isThere(file));
}

TEST_F(DeleteOperationTest, aPathTooLongForOneCallIsWalked) {
  const std::string top = volume.chain("top", std::string(200, 'n'), 30);
  EXPECT_TRUE(deleteSeeing(top + "/missing", {Seen::Absent, 0, 0}).isSuccess());
  EXPECT_TRUE(isThere(volume.path("top")));
}

TEST_F(DeleteOperationTest, onlyWhatTheSenderSeesIsDeleted) {
  const std::string path = volume.file("file", "x");
  const SenderView seen = viewOf(path);
  EXPECT_TRUE(isRefusal(deleteSeeing(path, {Seen::Present, seen.device, seen.inode + 1})));
  EXPECT_TRUE(isRefusal(deleteSeeing(path, {Seen::Present, seen.device + 1, seen.inode})));
  EXPECT_TRUE(isRefusal(deleteSeeing(path, {Seen::Absent, 0, 0})));
  EXPECT_TRUE(isRefusal(deleteSeeing(path, {Seen::NoPath, 0, 0})));
  EXPECT_TRUE(isThere(path));
  EXPECT_TRUE(deleteSeeing(path, seen).isSuccess());
}

TEST_F(DeleteOperationTest, aSenderWhoCouldNotLookLeavesItToTheOtherRules) {
  const std::string path = volume.file("file", "x");
  EXPECT_TRUE(deleteSeeing(path, {Seen::CouldNotLook, 0, 0}).isSuccess());
  EXPECT_TRUE(isFailure(deleteSeeing(path, {Seen::CouldNotLook, 0, 0})));
}

TEST_F(DeleteOperationTest, whatNeitherSideFindsIsDone) {
  volume.folder("folder");
  EXPECT_TRUE(deleteSeeing(volume.path("folder/none"), {Seen::Absent, 0, 0}).isSuccess());
  EXPECT_TRUE(deleteSeeing(volume.path("none/below"), {Seen::Absent, 0, 0}).isSuccess());
  const PathResult vanished = deleteSeeing(volume.path("folder/none"), {Seen::Present, 1, 1});
  EXPECT_EQ(vanished.desc, "Couldn’t be removed: No such file or directory");
  EXPECT_TRUE(isFailure(vanished));
}

TEST_F(DeleteOperationTest, nothingInAPlaceThatIsNotSafeIsNoSuccess) {
  volume.folder("theirs");
  volume.setOwner("theirs", kThird);
  EXPECT_TRUE(isRefusal(deleteSeeing(volume.path("theirs/none"), {Seen::Absent, 0, 0})));
  EXPECT_TRUE(isRefusal(deleteSeeing(volume.path("theirs/none/below"), {Seen::Absent, 0, 0})));
  EXPECT_TRUE(isRefusal(deleteSeeing("/etc/there-is-no-such-file", {Seen::Absent, 0, 0})));
}

TEST_F(DeleteOperationTest, objectsOfAThirdUserAreRefused) {
  const std::string file = volume.file("file", "x");
  volume.setOwner("file", kThird);
  EXPECT_TRUE(isRefusal(deleteAsIs(file)));
  volume.setOwner("file", kCaller);
  EXPECT_TRUE(deleteAsIs(file).isSuccess());
}

TEST_F(DeleteOperationTest, objectsOfAThirdUserInAFolderStayAndTheRestGoes) {
  volume.file("folder/a", "x");
  volume.file("folder/b", "x");
  volume.setOwner("folder/a", kThird);
  EXPECT_TRUE(isRefusal(deleteAsIs(volume.path("folder"))));
  EXPECT_TRUE(isThere(volume.path("folder/a")));
  EXPECT_FALSE(isThere(volume.path("folder/b")));
}

TEST_F(DeleteOperationTest, aFolderOfAThirdUserOnTheWayIsRefused) {
  const std::string file = volume.file("theirs/file", "x");
  volume.setOwner("theirs", kThird);
  EXPECT_TRUE(isRefusal(deleteAsIs(file)));
  EXPECT_TRUE(isThere(file));
}

TEST_F(DeleteOperationTest, aLinkOfTheCallerOnTheWayIsRefused) {
  const std::string file = volume.file("real/file", "x");
  volume.link("link", "real");
  ASSERT_EQ(::lchown(volume.path("link").c_str(), kCaller, kCaller), 0);
  EXPECT_TRUE(isRefusal(deleteAsIs(volume.path("link/file"))));
  EXPECT_TRUE(isThere(file));
}

TEST_F(DeleteOperationTest, everyRefusalHasTheOneText) {
  volume.file("theirs/file", "x");
  volume.setOwner("theirs", kThird);
  const std::string theirs = volume.path("theirs/");
  std::vector<std::string> texts;
  for (const std::string& path :
       {theirs + "file", theirs + "none", theirs + "file/x", std::string("/etc/passwd"), std::string("/usr"),
        std::string("/"), std::string("/home")}) {
    texts.push_back(deleteAsIs(path).desc);
  }
  EXPECT_EQ(texts, std::vector<std::string>(7, std::string(kRefusedItemText)));
}

TEST_F(DeleteOperationTest, theSystemsErrorsAreTold) {
  volume.file("point/file", "x");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string point = volume.path("point");
    if (::mount(point.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    ::mount("none", point.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
    return deleteAsIs(volume.path("point/file")).desc;
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "Couldn’t be removed: Read-only file system");
}

TEST_F(DeleteOperationTest, aMountInTheFolderSurvives) {
  volume.file("outside/file", "x");
  volume.file("folder/file", "x");
  volume.folder("folder/point");
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string point = volume.path("folder/point");
    if (::mount(volume.path("outside").c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    return deleteAsIs(volume.path("folder")).desc + deleteAsIs(point).desc;
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "Couldn’t be removed: Device or resource busy" + std::string(kRefusedItemText));
  EXPECT_TRUE(isThere(volume.path("outside/file")));
  EXPECT_FALSE(isThere(volume.path("folder/file")));
}

}  // namespace
}  // namespace sorrel::helper
