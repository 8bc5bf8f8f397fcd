#include "Helper/ShredOperation.hpp"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Helper/EventKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/SystemCallFaults.hpp"

namespace sorrel::helper {
namespace {

using Seen = SenderView::Kind;

class ShredOperationTest : public test::EventKit {
 protected:
  /// The current content of a file that was opened before.
  static std::string rest(const FileDescriptor& file) {
    std::string text(100, '?');
    text.resize(static_cast<std::size_t>(::pread(file.get(), text.data(), text.size(), 0)));
    return text;
  }
  static FileDescriptor open(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  }
};

TEST_F(ShredOperationTest, aFileIsOverwrittenAndGone) {
  const std::string path = volume.file("file", "secret");
  volume.setOwner("file", kCaller);
  const FileDescriptor file = open(path);
  EXPECT_TRUE(shredAll({path}).flag);
  EXPECT_EQ(statusOf(path), Status::Success);
  EXPECT_FALSE(isThere(path));
  EXPECT_EQ(rest(file), std::string(6, '\0'));
}

TEST_F(ShredOperationTest, anEmptyAndAnUnreadableFileGo) {
  const std::string empty = volume.file("empty", "");
  const std::string closed = volume.file("closed", "secret");
  volume.setMode("closed", 0);
  EXPECT_TRUE(shredAll({empty, closed}).flag);
  EXPECT_FALSE(isThere(empty));
  EXPECT_FALSE(isThere(closed));
}

TEST_F(ShredOperationTest, shred_hard_link_keeps_other_name) {
  const std::string path = volume.file("file", "precious");
  ASSERT_EQ(::link(path.c_str(), volume.path("other").c_str()), 0);
  EXPECT_FALSE(shredAll({path}).flag);
  EXPECT_EQ(statusOf(path), Status::ShreadFail);
  EXPECT_EQ(descOf(path), "Couldn’t be overwritten: Too many links");
  EXPECT_EQ(test::contentOf(volume.path("other")), "precious");
  EXPECT_TRUE(isThere(path));
}

TEST_F(ShredOperationTest, aCloneGoesOnAFullDiskAndItsDataStaysWithTheOther) {
  const std::string answer = test::inMountingChild([&]() -> std::string {
    const test::LoopFileSystem disk("xfs", volume.path("image"), volume.path("disk"));
    if (!disk.isMounted()) return "skip";
    const std::string content(std::size_t{64} << 20, 's');
    const std::string path = volume.file("disk/file", content);
    const std::string other = volume.path("disk/other");
    if (!test::cloneFile(path, other)) return "skip";
    const FileDescriptor rest(::open(volume.path("disk/rest").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    // Fills the disk except for a few blocks.
    for (off_t at = 0, piece = off_t{32} << 20; piece > (off_t{1} << 18);) {
      if (::fallocate(rest.get(), 0, at, piece) == 0)
        at += piece;
      else
        piece /= 2;
    }
    const bool flag = shredAll({path}).flag;
    return std::string(flag ? "done " : "failed ") + descOf(path) + (isThere(path) ? " there" : "") +
           (test::contentOf(other) == content ? "" : " other changed");
  });
  if (answer == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(answer, "done Data in shared, compressed or copied blocks was not overwritten");
}

TEST_F(ShredOperationTest, anotherFileThatTookTheNameStays) {
  const std::string path = volume.file("file", "secret");
  const std::string other = volume.file("other", "precious");
  test::CallFault swap{SYS_fsync, 1};
  swap.meanwhile = [&] {
    ::syscall(SYS_renameat2, AT_FDCWD, path.c_str(), AT_FDCWD, other.c_str(), 2U /* RENAME_EXCHANGE */);
  };
  if (!test::runWithFault(swap, [&] { shredAll({path}); })) GTEST_SKIP() << "calls can't be watched here";
  EXPECT_EQ(statusOf(path), Status::DeleteError);
  EXPECT_EQ(test::contentOf(path), "precious");
}

TEST_F(ShredOperationTest, shred_folder_with_link_keeps_target) {
  const std::string target = volume.file("target", "precious");
  volume.file("targets/file", "precious");
  const std::vector<std::string> paths = {
      volume.folder("folder/sub"), volume.file("folder/file", "x"), volume.link("folder/sub/link", target),
      volume.link("folder/sub/to-folder", volume.path("targets")), volume.path("folder")};
  EXPECT_TRUE(shredAll(paths).flag);
  EXPECT_FALSE(isThere(volume.path("folder")));
  EXPECT_EQ(test::contentOf(target), "precious");
  EXPECT_EQ(test::contentOf(volume.path("targets/file")), "precious");
}

TEST_F(ShredOperationTest, foldersGoLastAndTheDeepestFirst) {
  const std::vector<std::string> paths = {volume.folder("a"), volume.folder("a/b"), volume.folder("a/b/c"),
                                          volume.file("a/b/c/file", "x"), volume.file("a/z", "x")};
  EXPECT_TRUE(shredAll(paths).flag);
  EXPECT_EQ(order, (std::vector<std::string>{paths[3], paths[4], paths[2], paths[1], paths[0]}));
}

TEST_F(ShredOperationTest, aFolderIsNeverShreddedWithWhatIsInIt) {
  const std::string inside = volume.file("folder/inside", "precious");
  EXPECT_FALSE(shredAll({volume.path("folder")}).flag);
  EXPECT_EQ(statusOf(volume.path("folder")), Status::ShreadFail);
  EXPECT_EQ(test::contentOf(inside), "precious");
}

TEST_F(ShredOperationTest, whatHasNoContentLosesItsName) {
  const std::string fifo = volume.fifo("fifo");
  EXPECT_TRUE(shredAll({fifo}).flag);
  EXPECT_FALSE(isThere(fifo));
}

TEST_F(ShredOperationTest, aDeviceLosesItsName) {
  const std::string device = volume.path("device");
  if (::mknod(device.c_str(), S_IFCHR | 0600, 0x103) != 0) {
    ASSERT_EQ(errno, EPERM);
    GTEST_SKIP() << "root of a user namespace makes no devices";
  }
  EXPECT_TRUE(shredAll({device}).flag);
  EXPECT_FALSE(isThere(device));
}

TEST_F(ShredOperationTest, whatIsRefusedIsNotOverwritten) {
  const std::string theirs = volume.file("theirs", "precious");
  volume.setOwner("theirs", kThird);
  const std::string file = volume.file("file", "x");
  EXPECT_FALSE(shredAll({theirs, "/etc/passwd", file}).flag);
  EXPECT_EQ(statusOf(theirs), Status::DeleteError);
  EXPECT_TRUE(isRefused(theirs));
  EXPECT_TRUE(isRefused("/etc/passwd"));
  EXPECT_EQ(test::contentOf(theirs), "precious");
  EXPECT_EQ(statusOf(file), Status::Success);
}

TEST_F(ShredOperationTest, onlyWhatTheSenderSeesIsShredded) {
  const std::string path = volume.file("file", "precious");
  const std::string folder = volume.folder("folder");
  SenderView other = viewOf(path);
  ++other.inode;
  SenderView otherFolder = viewOf(folder);
  ++otherFolder.inode;
  const auto outcome = run(HelperHanldeEventID::Shred,
                           {{path, HelperDictionary()}, {folder, HelperDictionary()}}, {other, otherFolder});
  EXPECT_FALSE(outcome.flag);
  EXPECT_TRUE(isRefused(path));
  EXPECT_TRUE(isRefused(folder));
  EXPECT_EQ(test::contentOf(path), "precious");
  EXPECT_TRUE(isThere(folder));
}

TEST_F(ShredOperationTest, whatNobodyFindsWasNotOverwritten) {
  EXPECT_FALSE(shredAll({volume.path("none")}).flag);
  EXPECT_EQ(statusOf(volume.path("none")), Status::ShreadFail);
}

TEST_F(ShredOperationTest, aFolderThatBecameAFileMeanwhileStays) {
  const std::string path = volume.file("file", "precious");
  const RemovalPolicy policy = RemovalPolicy::forHelper(caller);
  EXPECT_EQ(removeShreddedFolder(path, {Seen::CouldNotLook, 0, 0}, policy).status, Status::ShreadFail);
  EXPECT_EQ(test::contentOf(path), "precious");
}

TEST_F(ShredOperationTest, aFailedOverwriteLeavesTheFile) {
  const std::string path = volume.file("file", "x");
  const std::string told = test::inMountingChild([&]() -> std::string {
    // Without /proc no file can be reopened.
    const test::TemporaryFolder empty;
    const RemovalPolicy policy = RemovalPolicy::forHelper(caller);
    if (RemovalTarget::find(path, policy).error() != 0) return "not found before";  // opens the mount table
    if (::mount(empty.path().c_str(), "/proc", nullptr, MS_BIND, nullptr) != 0) return "skip";
    PathResult result;
    shredPath(path, viewOf(path), policy, result);
    ::umount("/proc");
    return std::to_string(static_cast<int>(result.status)) + (isThere(path) ? " there" : " gone");
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "4 there");
}

}  // namespace
}  // namespace sorrel::helper
