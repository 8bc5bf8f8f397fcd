// Kills a clean at many points and checks what is left. SORREL_KILL_POINTS sets the number of points.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "Tests/Faults/TickedTree.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/NumberFrom.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;
using Snapshot = std::vector<test::TreeEntry>;

constexpr int kCannotWatch = 77;  // exit status of the victim

/// Runs the program, found by $PATH, to its end; returns its wait status, -1 if it can't be started. Its home
/// and its temporary folder lie in the volume, so that a snapshot includes them.
int run(Names words, const test::TemporaryVolume& volume) {
  Names environment = {"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + volume.path("Users/alice"),
                       "TMPDIR=" + volume.folder("tmp")};
  const auto pointers = [](Names& texts) {
    std::vector<char*> list;
    for (std::string& text : texts) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
  };
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::posix_spawn_file_actions_addopen(&actions, file, "/dev/null", O_RDWR, 0);
  }
  pid_t child = -1;
  int status = -1;
  if (::posix_spawnp(&child, words[0].c_str(), &actions, nullptr, pointers(words).data(),
                     pointers(environment).data()) == 0) {
    ::waitpid(child, &status, 0);
  }
  ::posix_spawn_file_actions_destroy(&actions);
  return status;
}

Names selectedIn(const Snapshot& before) {
  Names selected;
  for (const test::TreeEntry& entry : before) {
    if (test::tickedtree::isSelected(entry.path)) selected.push_back(entry.path);
  }
  return selected;
}

/// A clean killed at the entry of removal number `point`, and another one that is not killed.
void killAt(std::size_t point) {
  const test::TemporaryVolume volume;
  test::tickedtree::makeFiles(volume);
  volume.folder("tmp");
  const Snapshot before = test::snapshotOf(volume.path());
  const int status = run({SORREL_CLEAN_VICTIM, volume.path(), std::to_string(point)}, volume);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;

  const Names gone = test::goneBetween(before, test::snapshotOf(volume.path()));
  EXPECT_EQ(gone.size(), point - 1);
  for (const std::string& path : gone) EXPECT_TRUE(test::tickedtree::isSelected(path)) << path;

  EXPECT_EQ(run({SORREL_CLEAN_VICTIM, volume.path(), "0"}, volume), 0);
  EXPECT_EQ(test::goneBetween(before, test::snapshotOf(volume.path())), selectedIn(before));
}

/// "skip" if the victim can't be killed here, otherwise the number of removals of an undisturbed clean.
std::string countRemovals() {
  const test::TemporaryVolume volume;
  test::tickedtree::makeFiles(volume);
  const std::size_t removals = selectedIn(test::snapshotOf(volume.path())).size();
  const int status = run({SORREL_CLEAN_VICTIM, volume.path(), "0"}, volume);
  return WIFEXITED(status) && WEXITSTATUS(status) == kCannotWatch ? "skip" : std::to_string(removals);
}

TEST(KillSweep, killedCleanLeavesEveryLeafWholeOrGoneAndTheNextOneEnds) {
  constexpr std::size_t kBatch = 10;  // for one child
  const std::size_t points = test::numberFrom("SORREL_KILL_POINTS", 10);
  const std::string told = test::inMemoryChild(countRemovals);
  if (told == "skip") GTEST_SKIP() << "no system calls can be watched here";
  const std::size_t removals = std::strtoul(told.c_str(), nullptr, 10);
  ASSERT_GT(removals, 1000U) << told;
  for (std::size_t first = 0; first < points; first += kBatch) {
    ASSERT_EQ(test::inMemoryChild([&]() -> std::string {
                for (std::size_t i = first; i < std::min(points, first + kBatch); ++i) {
                  const std::size_t point = 1 + i * (removals - 1) / std::max<std::size_t>(points - 1, 1);
                  SCOPED_TRACE(point);
                  killAt(point);
                  if (testing::Test::HasFailure()) return "killed at removal " + std::to_string(point);
                }
                return "";
              }),
              "");
  }
}

}  // namespace
}  // namespace sorrel
