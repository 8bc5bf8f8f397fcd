#include "SorrelFramework/Platform/FileDescriptor.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace sorrel
