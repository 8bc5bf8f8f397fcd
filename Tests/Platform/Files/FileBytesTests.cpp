#include "SorrelFramework/Platform/Files/FileBytes.hpp"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

std::size_t entriesIn(const std::string& folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

TEST(ReadFileBytes, readsTheWholeFileAndNoMoreThanTheLimit) {
  const TemporaryFolder folder;
  const std::string text(10'000, 'x');
  const std::string path = folder.file("file", text);
  EXPECT_EQ(readFileBytes(path, 10'000), text);
  EXPECT_FALSE(readFileBytes(path, 9'999).has_value());
  EXPECT_EQ(readFileBytes(folder.file("empty", ""), 0), "");
}

TEST(ReadFileBytes, readsFilesThatTellNoSize) {
  const auto status = readFileBytes("/proc/self/status", 1 << 20);
  ASSERT_TRUE(status.has_value());
  EXPECT_NE(status->find("Pid:"), std::string::npos);
}

TEST(ReadFileBytes, nothingForFoldersDevicesAndFIFOs) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(readFileBytes(folder.path("fifo"), 100).has_value());
  EXPECT_FALSE(readFileBytes(folder.path(), 100).has_value());
  EXPECT_FALSE(readFileBytes("/dev/null", 100).has_value());
  EXPECT_FALSE(readFileBytes(folder.path("absent"), 100).has_value());
}

TEST(WriteFileAtomically, makesAndReplacesAFile) {
  const TemporaryFolder folder;
  const std::string path = folder.path("file");
  EXPECT_TRUE(writeFileAtomically(path, "one"));
  EXPECT_TRUE(writeFileAtomically(path, ""));
  EXPECT_EQ(readFileBytes(path, 100), "");
  EXPECT_TRUE(writeFileAtomically(path, std::string(100'000, 'y')));
  EXPECT_EQ(readFileBytes(path, 1 << 20), std::string(100'000, 'y'));
  EXPECT_EQ(entriesIn(folder.path()), 1U);
}

TEST(WriteFileAtomically, keepsTheMode) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  for (const mode_t mode : {mode_t{0600}, mode_t{0644}, mode_t{0444}, mode_t{0755}}) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    EXPECT_TRUE(writeFileAtomically(path, "new"));
    EXPECT_EQ(modeOf(path), mode);
  }
}

TEST(WriteFileAtomically, keepsTheOwner) {
  if (!canBeOtherUsers()) GTEST_SKIP() << "only root can give a file away";
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  ASSERT_EQ(::chown(path.c_str(), 1234, 2345), 0);
  EXPECT_TRUE(writeFileAtomically(path, "new"));
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 2345U);
}

TEST(WriteFileAtomically, leavesOtherNamesOfTheOldFileAlone) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  std::filesystem::create_hard_link(path, folder.path("other"));
  EXPECT_TRUE(writeFileAtomically(path, "new"));
  EXPECT_EQ(readFileBytes(folder.path("other"), 100), "old");
}

TEST(WriteFileAtomically, refusesALinkAndLeavesItsTarget) {
  const TemporaryFolder folder;
  const std::string real = folder.file("real", "old");
  std::filesystem::create_symlink(real, folder.path("link"));
  std::filesystem::create_symlink(folder.path("absent"), folder.path("dangling"));
  EXPECT_FALSE(writeFileAtomically(folder.path("link"), "new"));
  EXPECT_FALSE(writeFileAtomically(folder.path("dangling"), "new"));
  EXPECT_EQ(readFileBytes(real, 100), "old");
  EXPECT_EQ(entriesIn(folder.path()), 3U);
}

TEST(WriteFileAtomically, refusesFoldersFIFOsAndMissingFolders) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(writeFileAtomically(folder.path("fifo"), "new"));
  EXPECT_FALSE(writeFileAtomically(folder.folder("inner"), "new"));
  EXPECT_FALSE(writeFileAtomically(folder.path("inner/"), "new"));
  EXPECT_FALSE(writeFileAtomically(folder.path("absent/file"), "new"));
  EXPECT_FALSE(writeFileAtomically("", "new"));
  EXPECT_EQ(entriesIn(folder.path()), 2U);
}

TEST(WriteFileAtomically, takesNamesOfTheGreatestLength) {
  const TemporaryFolder folder;
  const std::string path = folder.path(std::string(255, 'n'));
  EXPECT_TRUE(writeFileAtomically(path, "one"));
  EXPECT_EQ(readFileBytes(path, 100), "one");
}

TEST(WriteFileAtomically, aFullDiskLeavesTheOldFile) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{1000, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool written = writeFileAtomically(path, std::string(5000, 'x'));
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(written);
  EXPECT_EQ(readFileBytes(path, 100), "old");
  EXPECT_EQ(entriesIn(folder.path()), 1U);
}

}  // namespace
}  // namespace sorrel::test
