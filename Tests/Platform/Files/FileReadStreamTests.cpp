#include "SorrelFramework/Platform/Files/FileReadStream.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/SystemCallFaults.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

using Link = FileReadStream::Link;

std::string firstBytes(FileReadStream stream) {
  std::array<char, 100> bytes{};
  const std::ptrdiff_t count = stream.read(bytes.data(), bytes.size());
  return count < 0 ? "failed" : std::string(bytes.data(), static_cast<std::size_t>(count));
}

int errorOf(const std::string& path, Link link = Link::Refused) {
  errno = 0;
  return FileReadStream::open(path, link).isOpen() ? 0 : errno;
}

TEST(FileReadStream, readsToTheEndAndThenGivesNothing) {
  const TemporaryFolder folder;
  FileReadStream stream = FileReadStream::open(folder.file("file", "abcde"), Link::Refused);
  ASSERT_TRUE(stream.isOpen());
  std::array<char, 3> bytes{};
  EXPECT_EQ(stream.read(bytes.data(), 3), 3);
  EXPECT_EQ(std::string(bytes.data(), 3), "abc");
  EXPECT_EQ(stream.read(bytes.data(), 3), 2);
  EXPECT_EQ(std::string(bytes.data(), 2), "de");
  EXPECT_EQ(stream.read(bytes.data(), 3), 0);
}

TEST(FileReadStream, saysWhyItDoesNotOpen) {
  const TemporaryFolder folder;
  EXPECT_EQ(errorOf(folder.path("absent")), ENOENT);
  EXPECT_EQ(errorOf(""), ENOENT);
  EXPECT_EQ(errorOf(folder.path()), EISDIR);
  EXPECT_EQ(errorOf("/dev/null"), EINVAL);
  EXPECT_EQ(errorOf(folder.file("file") + '\0' + "more"), ENOENT);
}

TEST(FileReadStream, followsALinkOnlyIfAsked) {
  const TemporaryFolder folder;
  folder.file("real/file", "content");
  std::filesystem::create_symlink(folder.path("real/file"), folder.path("link"));
  std::filesystem::create_symlink(folder.path("real"), folder.path("parent"));
  std::filesystem::create_symlink("/dev/null", folder.path("device"));
  EXPECT_EQ(errorOf(folder.path("link")), EINVAL);
  EXPECT_EQ(firstBytes(FileReadStream::open(folder.path("link"), Link::Followed)), "content");
  EXPECT_EQ(firstBytes(FileReadStream::open(folder.path("parent/file"), Link::Refused)), "content");
  EXPECT_EQ(errorOf(folder.path("device"), Link::Followed), EINVAL);
}

TEST(FileReadStream, doesNotEvenOpenAFIFO) {
  const TemporaryFolder folder;
  const std::string fifo = folder.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(::inotify_add_watch(watch.get(), fifo.c_str(), IN_OPEN), 0);
  EXPECT_EQ(errorOf(fifo), EINVAL);
  EXPECT_EQ(errorOf(fifo, Link::Followed), EINVAL);
  std::array<char, 1000> events{};
  EXPECT_EQ(::read(watch.get(), events.data(), events.size()), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(FileReadStream, refusesASocket) {
  const TemporaryFolder folder;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, folder.path("s").c_str(), sizeof address.sun_path - 1);
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(errorOf(folder.path("s")), EINVAL);
}

TEST(FileReadStream, refusesAFileThatMayNotBeRead) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "secret");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  EXPECT_EQ(inPlainChild([&] { return std::to_string(errorOf(path)); }), std::to_string(EACCES));
}

// A regular file of the system, whose first page is never readable.
TEST(FileReadStream, tellsOfAReadError) {
  FileReadStream stream = FileReadStream::open("/proc/self/mem", Link::Refused);
  ASSERT_TRUE(stream.isOpen());
  char byte = 0;
  EXPECT_EQ(stream.read(&byte, 1), -1);
  EXPECT_EQ(errno, EIO);
}

TEST(FileReadStream, readThatASignalBrokeOffIsMadeAgain) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "content");
  std::string text;
  const auto calls = runWithFault({SYS_read, 1, EINTR},
                                  [&] { text = firstBytes(FileReadStream::open(path, Link::Refused)); });
  if (!calls) GTEST_SKIP() << "calls can't be watched here";
  EXPECT_EQ(text, "content");
}

TEST(FileReadStream, fileThatCannotBeLookedAtOnceItIsOpenIsClosed) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "content");
  bool isOpen = true;
  const auto calls = runWithFault({SYS_newfstatat, 2, EIO},
                                  [&] { isOpen = FileReadStream::open(path, Link::Refused).isOpen(); });
  if (!calls) GTEST_SKIP() << "calls can't be watched here";
  EXPECT_FALSE(isOpen);
}

TEST(FileReadStream, isNotHandedToProgramsThatAreStartedMeanwhile) {
  const TemporaryFolder folder;
  const FileReadStream stream = FileReadStream::open(folder.file("file"), Link::Refused);
  EXPECT_EQ(::fcntl(stream.descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

/// Another thread replaces the file "file" by `other` and back, over and over; what is opened meanwhile is
/// always that file with its bytes.
void expectTheFileAlone(const TemporaryFolder& folder, const std::string& other) {
  const std::string file = folder.file("file", "content");
  std::atomic<bool> isOver{false};
  std::atomic<int> swaps{0};
  std::thread swapper([&] {
    while (!isOver) {
      ::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
      ++swaps;
    }
  });
  for (int met = 0; met < 20000 || swaps < 20000; ++met) {
    FileReadStream stream = FileReadStream::open(file, Link::Refused);
    if (!stream.isOpen()) continue;
    const std::string bytes = firstBytes(std::move(stream));
    if (bytes == "content") continue;
    ADD_FAILURE() << bytes;
    break;
  }
  isOver = true;
  swapper.join();
}

TEST(FileReadStream, linkThatTakesThePlaceOfTheFileIsNotFollowed) {
  const TemporaryFolder folder;
  folder.file("elsewhere", "secret");
  std::filesystem::create_symlink(folder.path("elsewhere"), folder.path("other"));
  expectTheFileAlone(folder, folder.path("other"));
}

TEST(FileReadStream, fifoThatTakesThePlaceOfTheFileNeitherBlocksNorIsRead) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.path("other").c_str(), 0600), 0);
  expectTheFileAlone(folder, folder.path("other"));
}

TEST(FileReadStream, aClosedStreamCannotBeRead) {
  char byte = 0;
  EXPECT_EQ(FileReadStream().read(&byte, 1), -1);
}

}  // namespace
}  // namespace sorrel::test
