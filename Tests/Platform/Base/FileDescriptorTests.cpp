#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>

namespace sorrel {
namespace {

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) >= 0; }
FileDescriptor openNull() { return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

TEST(FileDescriptor, holdsNothingAtFirst) {
  const FileDescriptor none;
  EXPECT_FALSE(none.isOpen());
  EXPECT_EQ(none.get(), -1);
}

TEST(FileDescriptor, closesAtTheEndOfItsLife) {
  int number = -1;
  {
    const FileDescriptor file = openNull();
    number = file.get();
    ASSERT_TRUE(file.isOpen());
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, resetClosesAtOnce) {
  FileDescriptor file = openNull();
  const int number = file.get();
  file.reset();
  EXPECT_FALSE(isOpen(number));
  EXPECT_FALSE(file.isOpen());
  file.reset();
  EXPECT_EQ(file.get(), -1);
}

TEST(FileDescriptor, movingHandsTheFileOn) {
  FileDescriptor first = openNull();
  const int number = first.get();
  const FileDescriptor second = std::move(first);
  EXPECT_EQ(second.get(), number);
  EXPECT_FALSE(
      first.isOpen());  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move): that is the question
  EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptor, assignmentOfATemporaryClosesTheOldFile) {
  FileDescriptor file = openNull();
  const int old = file.get();
  file = openNull();
  EXPECT_TRUE(file.isOpen());
  EXPECT_NE(file.get(), old);
  EXPECT_FALSE(isOpen(old));
}

TEST(FileDescriptor, closeSaysWhetherThereWasOneToClose) {
  FileDescriptor file = openNull();
  const int number = file.get();
  EXPECT_TRUE(file.close());
  EXPECT_FALSE(isOpen(number));
  EXPECT_FALSE(file.isOpen());
  EXPECT_FALSE(file.close());
}

TEST(WriteAll, writesMoreThanAPipeHolds) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const FileDescriptor out(ends[0]);
  FileDescriptor in(ends[1]);
  const std::string bytes(1 << 20, 'x');
  std::size_t got = 0;
  std::thread reader([&] {
    std::string buffer(4096, '\0');
    for (ssize_t count = 0; (count = ::read(out.get(), buffer.data(), buffer.size())) > 0;)
      got += static_cast<std::size_t>(count);
  });
  EXPECT_TRUE(writeAll(in.get(), bytes));
  in.reset();
  reader.join();
  EXPECT_EQ(got, bytes.size());
}

TEST(WriteAll, saysThatACallFailed) {
  EXPECT_FALSE(writeAll(-1, "x"));
  EXPECT_EQ(errno, EBADF);
  EXPECT_TRUE(writeAll(-1, ""));
}

}  // namespace
}  // namespace sorrel
