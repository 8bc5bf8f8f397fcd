// Removals while another thread changes the same folder.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "SorrelFramework/Clean/FileRemover.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/MainLoop.hpp"
#include "Tests/Support/RemovalKit.hpp"

namespace sorrel {
namespace {

using test::isThere;
using test::numberOf;

/// Swaps two names as fast as it can while it lives.
class Swapper {
 public:
  /// Returns when the swapping has begun.
  Swapper(std::string a, std::string b)
      : thread_([this, one = std::move(a), two = std::move(b)] {
          while (!isDone_) {
            ::syscall(SYS_renameat2, AT_FDCWD, one.c_str(), AT_FDCWD, two.c_str(), 2U /* RENAME_EXCHANGE */);
            hasBegun_ = true;
          }
        }) {
    while (!hasBegun_) std::this_thread::yield();
  }
  ~Swapper() {
    isDone_ = true;
    thread_.join();
  }
  Swapper(const Swapper&) = delete;
  Swapper& operator=(const Swapper&) = delete;

 private:
  std::atomic<bool> isDone_{false};
  std::atomic<bool> hasBegun_{false};
  std::thread thread_;
};

constexpr int kRounds = 100;

class RacingRemoval : public test::RemovalStage {
 protected:
  RacingRemoval() {
    for (const char* name : {"a", "b/c", "d/item", "item", "f/item/g"}) {
      volume_.file(std::string("canary/") + name, "precious");
    }
    before_ = test::snapshotOf(volume_.path("canary"));
  }
  void expectCanaries() const { EXPECT_EQ(test::snapshotOf(volume_.path("canary")), before_); }
  /// Some rounds, and more until the race has been both won and lost: the winner depends on the machine and
  /// its load. Each round returns whether its removal succeeded.
  static void race(const std::function<bool()>& round) {
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    int won = 0;
    int lost = 0;
    while (won + lost < kRounds || ((won == 0 || lost == 0) && std::chrono::steady_clock::now() < end)) {
      ++(round() ? won : lost);
    }
    EXPECT_GT(won, 0);
    EXPECT_GT(lost, 0);
  }

  std::vector<test::TreeEntry> before_;
};

TEST_F(RacingRemoval, swap_leaf_while_removing) {
  volume_.folder("work");
  const std::string item = volume_.path("work/item");
  const std::string link = volume_.path("work/link");
  {
    const Swapper swapper(item, link);
    race([&] {
      volume_.folder("fill/x/y");
      ::symlink("../canary", link.c_str());
      // rename() never replaces a link by a folder, so this can't land among the canaries.
      ::rename(volume_.path("fill").c_str(), item.c_str());
      return remove("work/item").isSuccess();
    });
  }
  expectCanaries();
}

TEST_F(RacingRemoval, swap_folder_in_the_tree_while_removing) {
  volume_.folder("work");
  const std::string item = volume_.path("work/item");
  const std::string aside = volume_.path("aside");
  {
    const Swapper swapper(item + "/sub", aside);
    race([&] {
      volume_.folder("fill/sub/x/y");
      ::symlink("canary", aside.c_str());
      ::rename(volume_.path("fill").c_str(), item.c_str());
      return remove("work/item").isSuccess();
    });
  }
  expectCanaries();
}

/// A folder above the item is swapped for another user's link to the canaries, which include an item of that
/// name too.
TEST_F(RacingRemoval, swap_parent_while_removing) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give links away";
  const std::string parent = volume_.folder("work/parent");
  volume_.link("work/link", "../canary");
  volume_.setOwner("work/link", test::kPlainUser);
  const FileDescriptor real(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  {
    const Swapper swapper(parent, volume_.path("work/link"));
    race([&] {
      ::mkdirat(real.get(), "item", 0700);
      ::mkdirat(real.get(), "item/x", 0700);
      return remove("work/parent/item").isSuccess();
    });
  }
  expectCanaries();
}

/// The item is swapped for another folder, which was not named.
TEST_F(RacingRemoval, swap_root_while_removing) {
  for (int round = 0; round < kRounds; ++round) {
    volume_.folder("work/item/x/y");
    const std::string item = volume_.path("work/item");
    const ItemNumber expected = numberOf(item);
    {
      const Swapper swapper(item, volume_.path("canary"));
      static_cast<void>(removeExpectedItem(item, expected, policy_));
    }
    // Restores the canaries, if the last swap left them elsewhere.
    if (!isThere(volume_.path("canary/a")) && isThere(item + "/a")) {
      ASSERT_EQ(::syscall(SYS_renameat2, AT_FDCWD, item.c_str(), AT_FDCWD, volume_.path("canary").c_str(),
                          isThere(volume_.path("canary")) ? 2U : 0U),
                0);
    }
  }
  expectCanaries();
}

/// Swapped once, in the middle of the removal, for an empty folder, which the last step could remove by
/// mistake.
TEST_F(RacingRemoval, swap_root_with_an_empty_folder_while_removing) {
  const std::string item = volume_.path("work/item");
  int swapped = 0;
  const auto end = std::chrono::steady_clock::now() + test::kPatience;
  while (swapped < 5 && std::chrono::steady_clock::now() < end) {
    for (int i = 0; i < 1000; ++i) volume_.file("work/item/" + std::to_string(i), "");
    const std::string other = volume_.folder("empty");
    const ItemNumber empty = numberOf(other);
    const ItemNumber expected = numberOf(item);
    bool isSwapped = false;
    std::thread swapper([&] {
      const auto hasBegun = [&] {
        for (int i = 0; i < 8; ++i) {
          if (!isThere(item + '/' + std::to_string(i))) return true;
        }
        return false;
      };
      while (!hasBegun()) {
      }
      isSwapped = ::syscall(SYS_renameat2, AT_FDCWD, item.c_str(), AT_FDCWD, other.c_str(),
                            2U /* RENAME_EXCHANGE */) == 0;
    });
    const RemovalResult result = removeExpectedItem(item, expected, policy_);
    swapper.join();
    if (isSwapped) {
      ++swapped;
      EXPECT_EQ(result.error, ESTALE);
      ASSERT_TRUE(isThere(item));
      EXPECT_EQ(numberOf(item), empty);
    }
    for (const char* name : {"work/item", "empty"}) static_cast<void>(remove(name));
  }
  EXPECT_EQ(swapped, 5);
}

/// Moves a folder out of a tree that is being removed, to a folder among the canaries: a removal that climbed
/// up from there by ".." would reach them. "" if they are unchanged.
std::string moveUpWhileRemoving(const RemovalPolicy& policy) {
  constexpr int depth = 120;
  const test::TemporaryVolume volume;
  volume.file("canary/a/file", "precious");
  const auto before = test::snapshotOf(volume.path("canary/a"));
  int moved = 0;
  for (int round = 0; round < 2000 && moved < 10; ++round) {
    const std::string bottom = volume.chain("work/item", "d", depth);
    std::string middle = volume.path("work/item");
    for (int i = 0; i < depth / 2; ++i) middle += "/d";
    std::thread mover([&] {
      // Now the removal is on its way back up, and the topmost folders are closed.
      while (isThere(bottom)) {
      }
      ::rename(middle.c_str(), volume.path("canary/moved").c_str());
    });
    static_cast<void>(removeItem(volume.path("work/item"), policy));
    mover.join();
    if (removeItem(volume.path("canary/moved"), policy).isSuccess()) ++moved;
    if (!isThere(volume.path("work"))) return "more than the item is gone";
    static_cast<void>(removeItem(volume.path("work"), policy));
  }
  if (moved == 0) return "was never moved";
  return test::snapshotOf(volume.path("canary/a")) == before ? "" : "canaries changed";
}

/// In a file system of its own, with all others read-only: a mistake here would climb up to "/".
TEST_F(RacingRemoval, dir_moved_up_while_removing) {
  const std::string point = volume_.folder("memory");
  const std::string told = test::inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
      return "skip";
    }
    ::setenv("TMPDIR", point.c_str(), 1);
    return moveUpWhileRemoving(policy_);
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "");
}

/// Mounts the canaries on the item and unmounts them, as fast as it can, until `isDone`.
void keepMounting(const std::string& canaries, const std::string& item, const std::atomic<bool>& isDone) {
  while (!isDone) {
    if (::mount(canaries.c_str(), item.c_str(), nullptr, MS_BIND, nullptr) == 0)
      ::umount2(item.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
  }
}

TEST_F(RacingRemoval, bind_mount_appears_on_the_root_while_removing) {
  const std::string item = volume_.path("work/item");
  const std::string told = test::inMountingChild([&]() -> std::string {
    volume_.folder("work/item");
    if (::mount(volume_.path("canary").c_str(), item.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    ::umount(item.c_str());
    std::atomic<bool> isDone{false};
    std::thread mounter([&] { keepMounting(volume_.path("canary"), item, isDone); });
    int won = 0;
    for (int round = 0; round < 5 * kRounds; ++round) {
      for (const char* below : {"", "/x", "/x/y"}) ::mkdir((item + below).c_str(), 0700);
      if (remove("work/item").isSuccess()) ++won;
    }
    isDone = true;
    mounter.join();
    // While the folder is mounted, the rounds put a file of their own into it.
    static_cast<void>(remove("canary/x"));
    return won > 0 ? "" : "nothing was ever removed";
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "");
  for (const test::TreeEntry& canary : before_) {
    EXPECT_TRUE(isThere(volume_.path("canary/" + canary.path))) << canary.path;
  }
}

/// The user's own clean of a volume, in which a folder above the item is swapped for a link out of it.
class RacingClean : public RacingRemoval {
 protected:
  RacingClean() { stage_.volume.file("work/item", ""); }

  void raceAgainst(const std::string& parent, const std::string& link, const std::string& real) {
    const FileRemover::Session session = FileRemover::shard().begin();
    const FileDescriptor folder(::open(stage_.volume.path(real).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Swapper swapper(stage_.volume.path(parent), stage_.volume.path(link));
    race([&] {
      ::mkdirat(folder.get(), "item", 0700);
      ::mkdirat(folder.get(), "item/x", 0700);
      return !session.removeItem(stage_.volume.url(parent + "/item")).has_value();
    });
  }

  test::CleanStage stage_;
};

TEST_F(RacingClean, swap_parent_for_a_link_out_of_the_volume_while_cleaning) {
  stage_.volume.folder("work/parent");
  stage_.volume.link("work/link", volume_.path("canary"));
  raceAgainst("work/parent", "work/link", "work/parent");
  expectCanaries();
}

TEST_F(RacingClean, swap_link_above_for_one_out_of_the_volume_while_cleaning) {
  stage_.volume.folder("work/real");
  stage_.volume.link("work/parent", "real");
  stage_.volume.link("work/link", volume_.path("canary"));
  raceAgainst("work/parent", "work/link", "work/real");
  expectCanaries();
}

}  // namespace
}  // namespace sorrel
