#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Removal/FolderRemoval.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/SystemCallFaults.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

// Another process exchanges two folders while a removal is between two system calls.

namespace sorrel {
namespace {

class FolderRemovalSwap : public testing::Test {
 protected:
  /// Removes "item", with "item/inner" and "other" exchanged right before the `when`-th call of that number;
  /// returns the error, and whether the former "other" still exists ("there" or "gone").
  [[nodiscard]] std::string errorWithSwapBefore(int call, std::uint64_t when) const {
    const std::string inner = volume_.path("item/inner");
    const std::string other = volume_.path("other");
    const ItemNumber meant = test::numberOf(other);
    const RemovalPolicy policy = RemovalPolicy::forUser();
    FolderRemoval removal(policy);
    test::CallFault swap{call, when};
    swap.meanwhile = [&] {
      ::syscall(SYS_renameat2, AT_FDCWD, inner.c_str(), AT_FDCWD, other.c_str(), 2U /* RENAME_EXCHANGE */);
    };
    if (!runIn(swap, removal)) return "skip";
    const auto now = identityOf(AT_FDCWD, inner.c_str());
    return std::to_string(removal.error()) + (now && now->number == meant ? " there" : " gone");
  }
  /// False if calls can't be watched.
  [[nodiscard]] bool runIn(const test::CallFault& fault, FolderRemoval& removal) const {
    return test::runWithFault(
               fault,
               [&] {
                 FileDescriptor top(::open(volume_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
                 const auto item = identityOf(top.get(), "item");
                 removal.run(std::move(top), "item", *item);
               })
        .has_value();
  }
  static void expectStale(const std::string& answer) {
    if (answer == "skip") GTEST_SKIP() << "calls can't be watched here";
    EXPECT_EQ(answer, std::to_string(ESTALE) + " there");
  }

  const test::TemporaryVolume volume_;
};

TEST_F(FolderRemovalSwap, aFolderThatTookTheNameBeforeItWasOpenedIsNotEntered) {
  volume_.file("item/inner/file", "x");
  volume_.file("other/precious", "x");
  // The first one opens the item.
  expectStale(errorWithSwapBefore(SYS_openat2, 2));
  EXPECT_TRUE(test::isThere(volume_.path("item/inner/precious")));
}

TEST_F(FolderRemovalSwap, anEmptyFolderThatTookTheNameOfAnEmptiedOneStays) {
  volume_.file("item/inner/file", "x");
  volume_.folder("other");
  expectStale(errorWithSwapBefore(SYS_unlinkat, 1));
}

TEST_F(FolderRemovalSwap, anEmptyFolderThatTookTheNameOfAnUnreadableOneStays) {
  volume_.folder("item/inner");
  volume_.folder("other");
  for (const char* name : {"item/inner", "other"}) volume_.setMode(name, 0300);
  for (const char* name : {"", "item", "item/inner", "other"}) {
    if (test::canBeOtherUsers()) volume_.setOwner(name, test::kPlainUser);
  }
  expectStale(test::inPlainChild([&] { return errorWithSwapBefore(SYS_openat2, 2); }));
}

TEST_F(FolderRemovalSwap, aFolderThatWasMovedAwayLeadsUpToNoOther) {
  // So deep that the upper levels are closed when the last one is reached.
  std::string deep = "item";
  for (std::size_t i = 0; i < FolderRemoval::kMostOpen + 20; ++i) deep += "/d";
  volume_.file(deep + "/file", "x");
  volume_.file("elsewhere/precious", "x");
  const RemovalPolicy policy = RemovalPolicy::forUser();
  FolderRemoval removal(policy);
  test::CallFault move{SYS_unlinkat, 1};
  move.meanwhile = [&] {
    ::rename(volume_.path("item/d/d/d/d").c_str(), volume_.path("elsewhere/d").c_str());
  };
  if (!runIn(move, removal)) GTEST_SKIP() << "calls can't be watched here";
  EXPECT_EQ(removal.error(), ESTALE);
  EXPECT_TRUE(test::isThere(volume_.path("elsewhere/precious")));
  EXPECT_FALSE(test::isThere(volume_.path("elsewhere/d/d"))) << "it lay in the item when it was entered";
}

TEST_F(FolderRemovalSwap, anotherProcessThatKeepsAddingFilesDoesNotKeepItBusy) {
  volume_.file("item/file", "x");
  const RemovalPolicy policy = RemovalPolicy::forUser();
  FolderRemoval removal(policy);
  test::CallFault add{SYS_unlinkat, 1};
  add.step = 1;
  int added = 0;
  add.meanwhile = [&] { volume_.file("item/" + std::to_string(++added), "x"); };
  if (!runIn(add, removal)) GTEST_SKIP() << "calls can't be watched here";
  EXPECT_EQ(removal.error(), ENOTEMPTY);
}

}  // namespace
}  // namespace sorrel
