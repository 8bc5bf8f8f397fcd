#include "SorrelFramework/Platform/Machine/DesktopTrash.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "SorrelFramework/Platform/Files/FileStatus.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

class DesktopTrashTest : public testing::Test {
 protected:
  void SetUp() override { Host::install(Host::linuxDesktop({})); }

  [[nodiscard]] std::string found(const std::string& files) const {
    const auto trash = DesktopTrash::withFiles(volume_.path(files));
    return trash ? trash->folder() : "";
  }
  /// Removes the lines of these items; "true" or "false", and the file after it.
  std::string withoutLinesOf(const std::set<std::string>& gone) {
    volume_.folder("data/Trash/files");
    const auto trash = DesktopTrash::withFiles(volume_.path("data/Trash/files"));
    if (!trash) return "no trash";
    const bool isDone = trash->removeSizes([&gone](const std::string& name) { return gone.contains(name); });
    return (isDone ? "true\n" : "false\n") + test::contentOf(volume_.path(kSizes));
  }

  const std::string kSizes = "data/Trash/directorysizes";
  const std::string uid_ = std::to_string(::getuid());
  test::TemporaryVolume volume_;
  const test::ScopedVariable data_{"XDG_DATA_HOME", volume_.path("data").c_str()};
};

TEST_F(DesktopTrashTest, isKnownByItsFilesFolder) {
  EXPECT_EQ(found("data/Trash/files"), "");
  volume_.folder("data/Trash/files");
  volume_.folder("data/Trash/info");
  EXPECT_EQ(found("data/Trash/files"), volume_.path("data/Trash"));
  EXPECT_EQ(found("data/Trash/info"), "");
  EXPECT_EQ(found("data/Trash"), "");
  volume_.folder("other/Trash/files");
  EXPECT_EQ(found("other/Trash/files"), "");
}

TEST_F(DesktopTrashTest, ofTheHomeMayBeALinkOfTheUsersOwn) {
  volume_.folder("elsewhere/files");
  volume_.folder("data");
  volume_.link("data/Trash", "../elsewhere");
  EXPECT_NE(found("data/Trash/files"), "");
  if (!test::canBeOtherUsers()) return;
  ASSERT_EQ(::lchown(volume_.path("data/Trash").c_str(), 4711, 4711), 0);
  EXPECT_EQ(found("data/Trash/files"), "");
}

TEST_F(DesktopTrashTest, isNoneWhereItsFilesAreALink) {
  volume_.folder("elsewhere/files");
  volume_.folder("data/Trash");
  volume_.link("data/Trash/files", "../../elsewhere/files");
  EXPECT_EQ(found("data/Trash/files"), "");
}

TEST_F(DesktopTrashTest, isNoneIfItBelongsToAnotherUser) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs a folder of another owner";
  volume_.folder("data/Trash/files");
  volume_.setOwner("data/Trash/files", 4711);
  EXPECT_EQ(found("data/Trash/files"), "");
  volume_.setOwner("data/Trash/files", ::getuid());
  volume_.setOwner("data/Trash", 4711);
  EXPECT_EQ(found("data/Trash/files"), "");
}

TEST_F(DesktopTrashTest, isNoneOnAMacOSVolume) {
  volume_.folder("data/Trash/files");
  volume_.install();
  EXPECT_EQ(found("data/Trash/files"), "");
}

TEST_F(DesktopTrashTest, namesItsFoldersAndRecords) {
  volume_.folder("data/Trash/files");
  const auto trash = DesktopTrash::withFiles(volume_.path("data/Trash/files"));
  ASSERT_TRUE(trash.has_value());
  EXPECT_EQ(trash->filesFolder(), volume_.path("data/Trash/files"));
  EXPECT_EQ(trash->expungedFolder(), volume_.path("data/Trash/expunged"));
  EXPECT_EQ(trash->infoFile("a b\xff"), volume_.path("data/Trash/info/a b\xff.trashinfo"));
  EXPECT_EQ(DesktopTrash::itemOfInfo("a.b.trashinfo"), "a.b");
  for (const char* name : {".trashinfo", "a", "a.trashinfo.x", "a.Trashinfo"}) {
    EXPECT_EQ(DesktopTrash::itemOfInfo(name), std::nullopt) << name;
  }
}

TEST_F(DesktopTrashTest, onAVolumeLiesAtItsTop) {
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string stick = volume_.folder("stick");
    if (::mount("tmpfs", stick.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    for (const std::string top : {"stick/", "stick/copy/", "plain/"}) {
      volume_.folder(top + ".Trash-" + uid_ + "/files");
      volume_.folder(top + ".Trash-4711/files");
      volume_.folder(top + ".Trash/" + uid_ + "/files");
      volume_.setMode(top + ".Trash", 01777);
    }
    std::string all;
    for (const std::string top : {"stick/", "stick/copy/", "plain/"}) {
      for (const std::string& trash : {".Trash-" + uid_, std::string(".Trash-4711"), ".Trash/" + uid_}) {
        all += found(top + trash + "/files").empty() ? "0" : "1";
      }
    }
    volume_.setMode("stick/.Trash", 0777);
    return all + (found("stick/.Trash/" + uid_ + "/files").empty() ? " 0" : " 1");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "101000000 0");
}

class DirectorySizes : public DesktopTrashTest {};

TEST_F(DirectorySizes, loseTheLinesOfWhatIsGoneAndNothingElse) {
  volume_.file(
      kSizes,
      "10 1700000000000 plain\n20 1 a%20b\n  odd line\n30 2 %c3%9f%FF\n40 3 plain%20too\n50\n60 4 last");
  EXPECT_EQ(withoutLinesOf({"plain", "a b", "\xc3\x9f\xff", "last"}),
            "true\n  odd line\n40 3 plain%20too\n50\n");
}

TEST_F(DirectorySizes, areReplacedInOneStepWithTheirMode) {
  const std::string path = volume_.file(kSizes, "1 2 a\n");
  volume_.setMode(kSizes, 0640);
  const auto before = statusOf(path);
  EXPECT_EQ(withoutLinesOf({"b"}), "true\n1 2 a\n");
  EXPECT_EQ(statusOf(path)->inode, before->inode);
  EXPECT_EQ(withoutLinesOf({"a"}), "true\n");
  EXPECT_NE(statusOf(path)->inode, before->inode);
  EXPECT_EQ(statusOf(path)->mode & 07777U, 0640U);
}

TEST_F(DirectorySizes, thatAreMissingNeedNothing) {
  volume_.folder("data/Trash/files");
  EXPECT_TRUE(
      DesktopTrash::withFiles(volume_.path("data/Trash/files"))->removeSizes([](auto&) { return true; }));
  EXPECT_FALSE(statusOf(volume_.path(kSizes)).has_value());
}

TEST_F(DirectorySizes, thatAreALinkOrBelongToAnotherUserStay) {
  volume_.file("letter", "1 2 a\n");
  volume_.folder("data/Trash");
  volume_.link(kSizes, volume_.path("letter"));
  EXPECT_EQ(withoutLinesOf({"a"}), "false\n1 2 a\n");
  if (::geteuid() != 0) return;
  ASSERT_EQ(::unlink(volume_.path(kSizes).c_str()), 0);
  volume_.file(kSizes, "1 2 a\n");
  volume_.setOwner(kSizes, 4711);
  EXPECT_EQ(withoutLinesOf({"a"}), "false\n1 2 a\n");
}

}  // namespace
}  // namespace sorrel
