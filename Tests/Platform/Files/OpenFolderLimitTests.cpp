#include "SorrelFramework/Platform/Files/OpenFolderLimit.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <optional>
#include <thread>

namespace sorrel {
namespace {

FileDescriptor failing(int error) {
  errno = error;
  return {};
}

FileDescriptor openNull() { return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

bool keepsEverything() { return false; }

TEST(OpenFolderLimit, isFullUntilAWalkIsShortOfDescriptors) {
  EXPECT_EQ(OpenFolderLimit::most(), OpenFolderLimit::kMost);
  EXPECT_FALSE(OpenFolderLimit::isShort());
}

TEST(OpenFolderLimit, halvesDownToOneAndIsFullAgainAfterTheLastWalk) {
  std::optional<OpenFolderLimit::Walk> one(std::in_place);
  std::optional<OpenFolderLimit::Walk> two(std::in_place);
  OpenFolderLimit::lower();
  EXPECT_EQ(OpenFolderLimit::most(), OpenFolderLimit::kMost / 2);
  for (int i = 0; i < 20; ++i) OpenFolderLimit::lower();
  EXPECT_EQ(OpenFolderLimit::most(), 1U);
  EXPECT_TRUE(OpenFolderLimit::isShort());
  one.reset();
  EXPECT_EQ(OpenFolderLimit::most(), 1U);
  two.reset();
  EXPECT_EQ(OpenFolderLimit::most(), OpenFolderLimit::kMost);
}

TEST(OpenFolderLimit, givesBackOwnFoldersUntilThereIsADescriptor) {
  const OpenFolderLimit::Walk walk;
  int held = 3;
  const FileDescriptor opened = OpenFolderLimit::openSparing(
      [&held] { return held > 1 ? failing(EMFILE) : openNull(); }, [&held] { return --held > 0; }, {});
  EXPECT_TRUE(opened.isOpen());
  EXPECT_EQ(held, 1);
}

TEST(OpenFolderLimit, anyOtherErrorIsReportedAtOnce) {
  int asked = 0;
  const auto giveBack = [&asked] { return ++asked > 0; };
  EXPECT_FALSE(OpenFolderLimit::openSparing([] { return failing(EACCES); }, giveBack, {}).isOpen());
  EXPECT_EQ(errno, EACCES);
  EXPECT_FALSE(OpenFolderLimit::openFirst([] { return failing(ENOENT); }, {}).isOpen());
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(asked, 0);
}

TEST(OpenFolderLimit, doesNotWaitWithoutAnotherWalk) {
  const OpenFolderLimit::Walk walk;
  int tries = 0;
  const auto open = [&tries] {
    ++tries;
    return failing(ENFILE);
  };
  EXPECT_FALSE(OpenFolderLimit::openSparing(open, keepsEverything, {}).isOpen());
  EXPECT_EQ(errno, ENFILE);
  EXPECT_EQ(tries, 1);
}

TEST(OpenFolderLimit, triesAgainWhileAnotherWalkMayGiveSomethingBack) {
  const OpenFolderLimit::Walk walk;
  const OpenFolderLimit::Walk another;
  std::atomic<bool> isFree{false};
  std::atomic<bool> isWaiting{false};
  std::thread other([&] {
    while (!isWaiting) std::this_thread::yield();
    isFree = true;
    OpenFolderLimit::wakeWaiting();
  });
  const FileDescriptor opened = OpenFolderLimit::openSparing(
      [&] {
        if (isFree) return openNull();
        isWaiting = true;
        return failing(EMFILE);
      },
      keepsEverything, {});
  other.join();
  EXPECT_TRUE(opened.isOpen());
}

TEST(OpenFolderLimit, stopEndsTheWait) {
  const OpenFolderLimit::Walk walk;
  const OpenFolderLimit::Walk another;
  int tests = 0;
  const auto isStopped = [&tests] { return ++tests > 2; };
  EXPECT_FALSE(
      OpenFolderLimit::openSparing([] { return failing(EMFILE); }, keepsEverything, isStopped).isOpen());
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(tests, 3);
}

TEST(OpenFolderLimit, givesUpWhenNoOtherWalkGivesAnythingBack) {
  const OpenFolderLimit::Walk walk;
  const OpenFolderLimit::Walk another;
  int tries = 0;
  const auto open = [&tries] {
    ++tries;
    return failing(EMFILE);
  };
  EXPECT_FALSE(OpenFolderLimit::openSparing(open, keepsEverything, {}).isOpen());
  EXPECT_GT(tries, 1);
  // It waited long once; a thousand folders must not cost a thousand waits.
  tries = 0;
  EXPECT_FALSE(OpenFolderLimit::openSparing(open, keepsEverything, {}).isOpen());
  EXPECT_EQ(tries, 1);
}

}  // namespace
}  // namespace sorrel
