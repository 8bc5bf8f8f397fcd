#include "SorrelFramework/Scan/TreeWalk.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "Tests/Scan/TreeWalkKit.hpp"
#include "Tests/Support/ActingAsPlainUser.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {
namespace {

// Unusual contents of a disk.
using WalkOfADisk = Walk;

TEST_F(WalkOfADisk, linksAreItemsAndNeverEntered) {
  volume.file("root/folder/a", "1");
  ASSERT_EQ(::symlink("folder", volume.path("root/link").c_str()), 0);
  ASSERT_EQ(::symlink("..", volume.path("root/folder/up").c_str()), 0);
  run();
  EXPECT_EQ(names(), (Names{"folder/", "folder/a", "folder/up", "link"}));
  EXPECT_EQ(record("link")->fileKind, rawValue(FilesKind::File));
  EXPECT_EQ(record("link")->size, 6);
}

TEST_F(WalkOfADisk, namesOfAnyBytesComeThrough) {
  const std::vector<std::string> odd = {"line\nfeed", "\xFF\xFE",           "%20", "-rf", "a:b",
                                        "#?;",        std::string(255, 'n')};
  for (const std::string& name : odd) volume.file("root/" + name, "1");
  run();
  auto expected = odd;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names(), expected);
  EXPECT_EQ(record("\xFF\xFE")->title, "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(record("\xFF\xFE")->url.path(), volume.path("root/\xFF\xFE"));
}

TEST_F(WalkOfADisk, deepTreeNeedsFewOpenFiles) {
  std::string path = volume.folder("root");
  int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < 1000; ++level) {
    ASSERT_EQ(::mkdirat(folder, "d", 0700), 0);
    ASSERT_EQ(::mkdirat(folder, "side", 0700), 0);
    const int file = ::openat(folder, "side/f", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_EQ(::write(file, "x", 1), 1);
    ::close(file);
    const int below = ::openat(folder, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(folder);
    folder = below;
  }
  ::close(folder);

  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{256, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  run();
  EXPECT_EQ(sizeNow(""), 1000);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);

  EXPECT_EQ(totals.fileNumber, 1000);
  EXPECT_EQ(totals.folderNumber, 2000);
  ASSERT_EQ(records.size(), 2999U);  // the deepest folder is empty
  EXPECT_EQ(record("d/")->size, 999);
}

TEST(WalkOfADeepTree, memoryDoesNotGrowWithTheSquareOfTheDepth) {
  constexpr long mostKiB = 600L * 1024;
  const TemporaryVolume deep;
  // One text for each level would take 1.1 GB.
  deep.chain("root", std::string(250, 'n'), 3000);
  const std::string told = inChild([&deep]() -> std::string {
    rusage before{};
    rusage after{};
    int count = 0;
    WalkRequest request;
    request.filter = [&count](const URL&, const ResourceValues&, EnumerationPosition*) {
      ++count;
      return false;
    };
    ::getrusage(RUSAGE_SELF, &before);
    walkTree(deep.url("root/"), request);
    ::getrusage(RUSAGE_SELF, &after);
    const bool isSmall = after.ru_maxrss - before.ru_maxrss < mostKiB;
    return std::to_string(count) + (isSmall ? " items" : " items, too much memory");
  });
  EXPECT_EQ(told, "3000 items");
}

TEST_F(WalkOfADisk, filesOpenedByAWalkAreGivenBack) {
  for (int i = 0; i < 100; ++i) volume.file("root/" + std::to_string(i) + "/a/b/c", "1");
  run();
  const std::size_t before = openDescriptors();
  run();
  // Helpers that start too late change nothing; those that helped returned their descriptors before the walk
  // ended.
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(WalkOfADisk, unreadableFolderIsAnEmptyItemAndTold) {
  volume.file("root/closed/a", "1");
  volume.file("root/open/a", "1");
  ASSERT_EQ(::chmod(volume.path("root/closed").c_str(), 0), 0);
  // Root can read everything: its walk runs as another user, who may not delete root's items.
  ASSERT_EQ(::chmod(volume.path().c_str(), 0755), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const bool isOwner = ::getuid() != 0;
    if (!isOwner && ::setresuid(10001, 10001, 10001) != 0) ::_exit(9);
    std::vector<URL> told;
    WalkRequest request;
    request.keys = kRecordKeys;
    request.filter = [](const URL&, const ResourceValues&, EnumerationPosition*) { return true; };
    request.errorHandler = [&](const URL& url, int error) {
      EXPECT_EQ(error, EACCES);
      told.push_back(url);
      return true;
    };
    request.isContainZeroItem = true;
    const WalkResult result = walkTree(volume.url("root/"), request);
    const bool good = told == std::vector<URL>{volume.url("root/closed/")} &&
                      namesOf(result.records, volume.url("root/")) == Names{"closed/", "open/", "open/a"} &&
                      result.records[0]->size == 0 && result.records[0]->canDelete == isOwner;
    ::_exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  ::chmod(volume.path("root/closed").c_str(), 0700);
}

TEST_F(WalkOfADisk, largeTreeIsTheSameWhateverThreadsHelp) {
  std::set<std::string> expected;
  for (int a = 0; a < 20; ++a) {
    for (int b = 0; b < 20; ++b) {
      const std::string name = "f" + std::to_string(a) + "/g" + std::to_string(b) + "/file";
      volume.file("root/" + name, "1");
      expected.insert(name);
    }
  }
  run();
  const Names first = names();
  EXPECT_EQ(totals.fileNumber, 400);
  EXPECT_EQ(totals.folderNumber, 420);
  EXPECT_EQ(totals.folderSize, 800);
  EXPECT_EQ(progress.size(), 820U);
  for (const std::string& name : expected) EXPECT_EQ(std::count(first.begin(), first.end(), name), 1) << name;
  for (int round = 0; round < 5; ++round) {
    run();
    EXPECT_EQ(names(), first);
  }
}

TEST_F(WalkOfADisk, rootThatCanNotBeOpenedIsTold) {
  volume.file("root/a", "1");
  volume.file("above/root/a", "1");
  ASSERT_EQ(::chmod(volume.path("root").c_str(), 0), 0);
  ASSERT_EQ(::chmod(volume.path("above").c_str(), 0), 0);
  ASSERT_EQ(::chmod(volume.path().c_str(), 0755), 0);
  std::vector<URL> told;
  errorHandler = [&told](const URL& url, int error) {
    EXPECT_EQ(error, EACCES);
    told.push_back(url);
    return true;
  };
  const ActingAsPlainUser user;
  runAt(volume.url("root/"));
  runAt(volume.url("above/root/"));
  runAt(volume.url("none/"));
  EXPECT_EQ(told, (std::vector<URL>{volume.url("root/"), volume.url("above/root/")}));
}

TEST_F(WalkOfADisk, folderThatIsOnlySizedIsNotTold) {
  volume.file("root/a/x", "1");
  int told = 0;
  errorHandler = [&told](const URL&, int) {
    ++told;
    return true;
  };
  const auto vanishing = [&](bool isPruned) {
    run(0, [&, isPruned](const URL& url, const ResourceValues&, EnumerationPosition* position) {
      if (url.lastPathComponent() != "a") return true;
      ::unlink(volume.path("root/a/x").c_str());
      ::rmdir(volume.path("root/a").c_str());
      if (isPruned) position->skipDescendants();
      return true;
    });
  };
  vanishing(true);
  EXPECT_EQ(told, 0);
  volume.file("root/a/x", "1");
  vanishing(false);
  EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace sorrel::test
