#include "Helper/FileShredder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::helper {
namespace {

constexpr std::size_t kOddSize = 2 * FileShredder::kBlock + 12345;

class FileShredderTest : public testing::Test {
 protected:
  [[nodiscard]] FileDescriptor make(std::size_t size) const {
    return FileDescriptor(::open(folder_.file("file", std::string(size, 's')).c_str(), O_RDWR | O_CLOEXEC));
  }
  [[nodiscard]] std::string content() const { return test::contentOf(folder_.path("file")); }

  test::TemporaryFolder folder_;
};

bool isAll(const std::string& text, char byte) {
  return std::ranges::all_of(text, [byte](char each) { return each == byte; });
}

TEST_F(FileShredderTest, writesOnesThenRandomBytesThenZerosAndSyncsEach) {
  const FileDescriptor file = make(kOddSize);
  std::vector<std::string> passes;
  FileShredder shredder(file.get(), [&](int descriptor) {
    passes.push_back(content());
    return ::fsync(descriptor);
  });
  EXPECT_EQ(shredder.run(), 0);
  ASSERT_EQ(passes.size(), 3U);
  for (const std::string& pass : passes) EXPECT_EQ(pass.size(), kOddSize);
  EXPECT_TRUE(isAll(passes[0], '\xff'));
  EXPECT_EQ(std::set<char>(passes[1].begin(), passes[1].end()).size(), 256U);
  EXPECT_NE(passes[1].substr(0, 4096), passes[1].substr(FileShredder::kBlock, 4096));
  EXPECT_FALSE(isAll(passes[1].substr(2 * FileShredder::kBlock), '\0'));
  EXPECT_TRUE(isAll(passes[2], '\0'));
  EXPECT_EQ(content(), passes[2]);
}

TEST_F(FileShredderTest, randomBytesDifferFromRunToRun) {
  std::set<std::string> seen;
  for (int i = 0; i < 2; ++i) {
    const FileDescriptor file = make(64);
    int syncs = 0;
    EXPECT_EQ(
        FileShredder(file.get(), [&](int) { return ++syncs == 2 ? seen.insert(content()), 0 : 0; }).run(), 0);
  }
  EXPECT_EQ(seen.size(), 2U);
}

TEST_F(FileShredderTest, keepsTheSizeOfAnyFile) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, FileShredder::kBlock - 1,
                                 FileShredder::kBlock, FileShredder::kBlock + 1}) {
    const FileDescriptor file = make(size);
    EXPECT_EQ(FileShredder(file.get()).run(), 0) << size;
    EXPECT_EQ(content(), std::string(size, '\0')) << size;
  }
}

TEST_F(FileShredderTest, aFileWithAnotherNameIsLeftAlone) {
  const FileDescriptor file = make(100);
  ASSERT_EQ(::link(folder_.path("file").c_str(), folder_.path("other").c_str()), 0);
  EXPECT_EQ(FileShredder(file.get()).run(), EMLINK);
  EXPECT_EQ(content(), std::string(100, 's'));
}

TEST_F(FileShredderTest, aNameThatAppearsBetweenThePassesEndsIt) {
  const FileDescriptor file = make(100);
  int syncs = 0;
  FileShredder shredder(file.get(), [&](int) {
    if (++syncs == 1) return ::link(folder_.path("file").c_str(), folder_.path("other").c_str());
    return 0;
  });
  EXPECT_EQ(shredder.run(), EMLINK);
  EXPECT_EQ(syncs, 1);
}

TEST_F(FileShredderTest, aSyncThatFailsIsAFailure) {
  const FileDescriptor file = make(100);
  FileShredder shredder(file.get(), [](int) {
    errno = ENOSPC;
    return -1;
  });
  EXPECT_EQ(shredder.run(), ENOSPC);
}

TEST_F(FileShredderTest, bytesThatComeBackDifferentAreAFailure) {
  for (const std::size_t at : {std::size_t{0}, kOddSize - 1}) {
    const FileDescriptor file = make(kOddSize);
    int syncs = 0;
    FileShredder shredder(file.get(), [&](int descriptor) {
      return ++syncs == 3 && ::pwrite(descriptor, "x", 1, static_cast<off_t>(at)) != 1 ? -1 : 0;
    });
    EXPECT_EQ(shredder.run(), EIO) << at;
  }
}

TEST_F(FileShredderTest, aFileThatShrinksIsAFailure) {
  const FileDescriptor file = make(100);
  int syncs = 0;
  FileShredder shredder(file.get(),
                        [&](int descriptor) { return ++syncs == 3 ? ::ftruncate(descriptor, 10) : 0; });
  EXPECT_EQ(shredder.run(), EIO);
}

TEST_F(FileShredderTest, aShortWriteIsAFailure) {
  const FileDescriptor file = make(2 * FileShredder::kBlock);
  const std::string told = test::inChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{FileShredder::kBlock / 2, FileShredder::kBlock / 2};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return std::to_string(FileShredder(file.get()).run());
  });
  EXPECT_EQ(told, std::to_string(EIO));
}

TEST_F(FileShredderTest, aSparseFileFillsNoDisk) {
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string disk = folder_.path();
    if (::mount("disk", disk.c_str(), "tmpfs", 0, "size=16m") != 0) return "skip";
    const std::string path = folder_.file("sparse", std::string(kOddSize, 's'));
    const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    constexpr off_t kSize = off_t{8} << 30;
    if (::pwrite(file.get(), "end", 3, kSize - 3) != 3) return "no sparse files";
    std::vector<fsblkcnt_t> room;
    const auto measure = [&](int) {
      struct statvfs status {};
      if (::statvfs(disk.c_str(), &status) == 0) room.push_back(status.f_bfree);
      return 0;
    };
    measure(0);
    if (const int error = FileShredder(file.get(), measure).run()) return "error " + std::to_string(error);
    std::string end(3, '?');
    if (::pread(file.get(), end.data(), 3, kSize - 3) != 3 || !isAll(end, '\0')) return "end kept";
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || status.st_size != kSize) return "size changed";
    return std::set<fsblkcnt_t>(room.begin(), room.end()).size() == 1 ? "no more room taken" : "grown";
  });
  if (told == "skip") GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(told, "no more room taken");
}

TEST_F(FileShredderTest, onlyRegularFilesThatMayBeWritten) {
  const FileDescriptor folder(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_EQ(FileShredder(folder.get()).run(), EINVAL);
  const FileDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  EXPECT_EQ(FileShredder(null.get()).run(), EINVAL);
  folder_.file("file", "content");
  const FileDescriptor unwritable(::open(folder_.path("file").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(FileShredder(unwritable.get()).run(), EBADF);
  EXPECT_EQ(content(), "content");
}

}  // namespace
}  // namespace sorrel::helper
