#include "SorrelFramework/Platform/FileReadStream.hpp"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "Tests/Support/ForkedChild.hpp"
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

// A regular file of the system, whose first page is never there.
TEST(FileReadStream, tellsOfAReadError) {
  FileReadStream stream = FileReadStream::open("/proc/self/mem", Link::Refused);
  ASSERT_TRUE(stream.isOpen());
  char byte = 0;
  EXPECT_EQ(stream.read(&byte, 1), -1);
  EXPECT_EQ(errno, EIO);
}

TEST(FileReadStream, aClosedStreamCannotBeRead) {
  char byte = 0;
  EXPECT_EQ(FileReadStream().read(&byte, 1), -1);
}

}  // namespace
}  // namespace sorrel::test
