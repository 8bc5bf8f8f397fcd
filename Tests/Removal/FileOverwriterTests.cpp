#include "SorrelFramework/Removal/FileOverwriter.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

constexpr std::size_t kPiece = 64 * 1024;
constexpr std::size_t kFar = 40 * kPiece;

void fillWithX(FileOverwriter::Block block) { std::ranges::fill(block, 'x'); }

class FileOverwriterTest : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor opened(const std::string& name) const {
    return FileDescriptor(::open(volume_.path(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  }
  /// Data, a hole, data, an unwritten extent, and a hole at the end.
  [[nodiscard]] FileDescriptor patchy(const std::string& name) const {
    FileDescriptor file = opened(name);
    const std::string piece(kPiece, 's');
    EXPECT_EQ(::pwrite(file.get(), piece.data(), piece.size(), 0), kPiece);
    EXPECT_EQ(::pwrite(file.get(), piece.data(), piece.size(), kFar), kPiece);
    EXPECT_EQ(::fallocate(file.get(), 0, 2 * kFar, kPiece), 0);
    EXPECT_EQ(::ftruncate(file.get(), 3 * kFar), 0);
    EXPECT_EQ(::fsync(file.get()), 0);
    return file;
  }
  static std::string at(int file, std::size_t offset) {
    std::string text(kPiece, '?');
    text.resize(
        static_cast<std::size_t>(::pread(file, text.data(), text.size(), static_cast<off_t>(offset))));
    return text;
  }
  static std::int64_t blocksOf(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 ? status.st_blocks : -1;
  }
  /// "" if all data of the file of patchy(), and nothing else, was overwritten.
  static std::string faultOf(int file) {
    ::fsync(file);
    const std::int64_t before = blocksOf(file);
    FileOverwriter overwriter(file);
    if (const int error = overwriter.write(fillWithX)) return "write: error " + std::to_string(error);
    if (overwriter.verify('x') != 0 || overwriter.verify('s') != EIO) return "not what was written";
    for (const std::size_t data : {std::size_t{0}, kFar}) {
      if (at(file, data) != std::string(kPiece, 'x')) return "data is left";
    }
    for (const std::size_t hole : {kPiece, 2 * kFar, 3 * kFar - kPiece}) {
      if (at(file, hole) != std::string(kPiece, '\0')) return "a hole was filled";
    }
    return blocksOf(file) <= before ? "" : "the file has grown";
  }

  const test::TemporaryVolume volume_;
};

TEST_F(FileOverwriterTest, writesOverDataOnly) { EXPECT_EQ(faultOf(patchy("file").get()), ""); }

class FileOverwriterOn : public FileOverwriterTest, public testing::WithParamInterface<const char*> {};

TEST_P(FileOverwriterOn, holesAndUnwrittenExtentsTakeNoRoom) {
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string type = GetParam();
    if (type == "tmpfs") {
      if (::mount("disk", volume_.folder("disk").c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
      return faultOf(patchy("disk/file").get());
    }
    const test::LoopFileSystem disk(type, volume_.path("image"), volume_.path("disk"));
    if (!disk.isMounted()) return "skip";
    return faultOf(patchy("disk/file").get());
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "");
}
INSTANTIATE_TEST_SUITE_P(FileOverwriter, FileOverwriterOn, testing::Values("tmpfs", "xfs"));

/// Files on a small disk whose data is in shared blocks, or moves when it is written.
class FileOverwriterOnDisk : public FileOverwriterTest {
 protected:
  /// Runs `work` in a child with the disk mounted; "skip" where that can't be done.
  void onDisk(const std::string& type, const std::string& options, const std::function<std::string()>& work) {
    const std::string answer = test::inMountingChild([&]() -> std::string {
      const test::LoopFileSystem disk(type, volume_.path("image"), volume_.path("disk"), options);
      return disk.isMounted() ? work() : "skip";
    });
    if (answer == "skip") GTEST_SKIP() << "nothing can be mounted here";
    EXPECT_EQ(answer, "");
  }
  [[nodiscard]] std::string written(const std::string& name, std::size_t size) const {
    std::string text(size, 's');
    const FileDescriptor file = opened(name);
    if (!writeAll(file.get(), text) || ::fsync(file.get()) != 0) return "skip";
    return "";
  }
  [[nodiscard]] std::uint64_t freeBlocks() const {
    struct statvfs disk {};
    const FileDescriptor point(::open(volume_.path("disk").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::syncfs(point.get());
    return ::fstatvfs(point.get(), &disk) == 0 ? disk.f_bfree : 0;
  }
  /// "" if all passes leave the data of the file as it is, and the disk as full.
  [[nodiscard]] std::string faultOfLeaving(const std::string& name, std::size_t size) const {
    const FileDescriptor file = opened(name);
    const std::uint64_t before = freeBlocks();
    FileOverwriter overwriter(file.get());
    if (const int error = overwriter.write(fillWithX)) return "write: error " + std::to_string(error);
    if (!overwriter.hasLeftData()) return "nothing was left";
    if (freeBlocks() + 256 < before) return "the disk is fuller";
    if (overwriter.verify('x') != 0) return "what was left was read back";
    return test::contentOf(volume_.path(name)) == std::string(size, 's') ? "" : "data has changed";
  }

  static constexpr std::size_t kMuch = std::size_t{8} << 20;
};

TEST_F(FileOverwriterOnDisk, aCloneIsLeftAsItIs) {
  onDisk("xfs", "", [&]() -> std::string {
    if (!written("disk/file", kMuch).empty()) return "skip";
    if (!test::cloneFile(volume_.path("disk/file"), volume_.path("disk/clone"))) return "skip";
    return faultOfLeaving("disk/clone", kMuch);
  });
}

TEST_F(FileOverwriterOnDisk, ofAPartlySharedFileItsOwnBlocksAreOverwritten) {
  onDisk("xfs", "", [&]() -> std::string {
    if (!written("disk/file", 3 * kFar).empty()) return "skip";
    if (!test::cloneFile(volume_.path("disk/file"), volume_.path("disk/clone"))) return "skip";
    const FileDescriptor file = opened("disk/clone");
    const std::string own(kFar, 'o');
    if (::pwrite(file.get(), own.data(), own.size(), kFar) != static_cast<ssize_t>(kFar)) return "skip";
    FileOverwriter overwriter(file.get());
    if (overwriter.write(fillWithX) != 0 || overwriter.verify('x') != 0) return "not overwritten";
    if (!overwriter.hasLeftData()) return "nothing was left";
    const std::string found = test::contentOf(volume_.path("disk/clone"));
    return found == std::string(kFar, 's') + std::string(kFar, 'x') + std::string(kFar, 's') ? ""
                                                                                             : "other data";
  });
}

TEST_F(FileOverwriterOnDisk, whatIsCopiedOnWriteIsLeftAsItIs) {
  onDisk("btrfs", "", [&]() -> std::string {
    if (!written("disk/file", kMuch).empty()) return "skip";
    return faultOfLeaving("disk/file", kMuch);
  });
}

TEST_F(FileOverwriterOnDisk, compressedDataIsLeftAsItIs) {
  onDisk("btrfs", "compress-force=zstd", [&]() -> std::string {
    if (!written("disk/file", kMuch).empty()) return "skip";
    return faultOfLeaving("disk/file", kMuch);
  });
}

TEST_F(FileOverwriterOnDisk, aFileThatIsExemptFromCopyingIsOverwritten) {
  onDisk("btrfs", "", [&]() -> std::string {
    const FileDescriptor file = opened("disk/file");
    int attributes = FS_NOCOW_FL;
    if (::ioctl(file.get(), FS_IOC_SETFLAGS, &attributes) != 0) return "skip";
    if (!written("disk/file", kFar).empty()) return "skip";
    FileOverwriter overwriter(file.get());
    if (overwriter.write(fillWithX) != 0 || overwriter.hasLeftData()) return "left";
    return test::contentOf(volume_.path("disk/file")) == std::string(kFar, 'x') ? "" : "not overwritten";
  });
}

TEST_F(FileOverwriterTest, keepsToTheSizeOfTheFirstPass) {
  const FileDescriptor file = opened("file");
  ASSERT_EQ(::pwrite(file.get(), "secret", 6, 0), 6);
  FileOverwriter overwriter(file.get());
  ASSERT_EQ(overwriter.write(fillWithX), 0);
  ASSERT_EQ(::pwrite(file.get(), "later", 5, 6), 5);
  EXPECT_EQ(overwriter.write([](FileOverwriter::Block block) { std::ranges::fill(block, 'y'); }), 0);
  EXPECT_EQ(test::contentOf(volume_.path("file")), "yyyyyylater");
}

TEST_F(FileOverwriterTest, opensTheItemThatIsHeldWhateverHasItsName) {
  const std::string path = volume_.file("file", "secret");
  const FileDescriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
  const auto identity = identityOf(item.get());
  ASSERT_EQ(::rename(path.c_str(), volume_.path("moved").c_str()), 0);
  volume_.file("file", "other");
  const FileDescriptor file = FileOverwriter::open(item.get(), *identity);
  ASSERT_TRUE(file.isOpen());
  EXPECT_EQ(FileOverwriter(file.get()).write(fillWithX), 0);
  EXPECT_EQ(test::contentOf(path), "other");
  EXPECT_EQ(test::contentOf(volume_.path("moved")), "xxxxxx");
}

TEST_F(FileOverwriterTest, opensNoOtherItem) {
  const std::string path = volume_.file("file", "secret");
  const std::string other = volume_.file("other", "x");
  const FileDescriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
  EXPECT_FALSE(FileOverwriter::open(item.get(), *identityOf(AT_FDCWD, other.c_str())).isOpen());
  EXPECT_EQ(errno, ESTALE);
}

TEST_F(FileOverwriterTest, opensRegularFilesOnly) {
  // Opening a FIFO without a reader or writer would succeed, and a device might do anything.
  const std::string fifo = volume_.fifo("fifo");
  for (const std::string& path : {fifo, volume_.folder("folder"), std::string("/dev/null")}) {
    const FileDescriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
    EXPECT_FALSE(FileOverwriter::open(item.get(), *identityOf(item.get())).isOpen()) << path;
    EXPECT_EQ(errno, EINVAL) << path;
  }
}

TEST_F(FileOverwriterTest, aFileWithAnotherNameIsLeftAlone) {
  const std::string path = volume_.file("file", "precious");
  ASSERT_EQ(::link(path.c_str(), volume_.path("other").c_str()), 0);
  const FileDescriptor file = opened("file");
  EXPECT_EQ(FileOverwriter(file.get()).write(fillWithX), EMLINK);
  EXPECT_EQ(test::contentOf(path), "precious");
}

}  // namespace
}  // namespace sorrel
