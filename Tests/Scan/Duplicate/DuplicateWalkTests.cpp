#include "SorrelFramework/Scan/Duplicate/DuplicateWalk.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ActingAsPlainUser.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/LoopFileSystem.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::operator""_B;  // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals
using Names = std::vector<std::string>;
using Sizes = std::unordered_set<std::int64_t>;

// The values of the bytes of a type's text, times 1024.
constexpr std::int64_t kApplicationWeight = std::int64_t{2792} * 1024;  // com.apple.application-bundle
constexpr std::int64_t kFrameworkWeight = std::int64_t{1915} * 1024;    // com.apple.framework
constexpr std::int64_t kFolderWeight = std::int64_t{1321} * 1024;       // public.folder

class Weigh : public testing::Test {
 protected:
  Weigh() {
    volume.install();
    volume.setMode(".", 0755);  // for a child without privileges
  }

  DuplicateInfo run(std::string_view name = "Users/alice/Data/") {
    DuplicateWalk walk(rules, [this](DuplicateInfo info) { found.push_back(std::move(info)); });
    return walk.folderBackTracking(volume.url(name));
  }
  /// The candidates, in the order in which they came.
  [[nodiscard]] Names names() const {
    Names list;
    for (const DuplicateInfo& info : found)
      list.push_back(info.path.path().substr(volume.path("Users/alice/").size()));
    return list;
  }
  /// Runs `act` when the walk is about to visit an item.
  void beforeTheFirstItem(std::function<void()> act) {
    rules.isStopped = [act = std::move(act), isDone = false]() mutable {
      if (!std::exchange(isDone, true)) act();
      return false;
    };
  }

  test::TemporaryVolume volume;
  DuplicateWalkRules rules;
  std::vector<DuplicateInfo> found;
};

TEST_F(Weigh, folderIsTheSumOfAllThatLiesInIt) {
  volume.file("Users/alice/Data/a", 5_B);
  volume.file("Users/alice/Data/sub/b", 7_B);
  volume.file("Users/alice/Data/sub/deep/c", 11_B);
  volume.file("Users/alice/Data/.hidden", 100_B);
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, 23);
  EXPECT_EQ(info.fileNumSum, 3);
  EXPECT_FALSE(info.fileOrPath);
  EXPECT_EQ(info.path, volume.url("Users/alice/Data/"));
  EXPECT_EQ(info.sizeList.values(), (Sizes{18, 11}));
  EXPECT_EQ(names(), (Names{"Data/a", "Data/sub/b", "Data/sub/deep/c", "Data/sub/deep", "Data/sub", "Data"}));
}

TEST_F(Weigh, whatIsNotAboveTheLimitCountsButIsNoCandidate) {
  rules.limit = 10;
  volume.file("Users/alice/Data/sub/a", 10_B);
  volume.file("Users/alice/Data/b", 1_B);
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, 11);
  EXPECT_EQ(info.fileNumSum, 2);
  EXPECT_EQ(info.sizeList.values(), Sizes{10});
  EXPECT_EQ(names(), Names{"Data"});
}

TEST_F(Weigh, candidateKnowsItsKind) {
  volume.file("Users/alice/Data/a", 5_B);
  run();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_TRUE(found[0].fileOrPath);
  EXPECT_EQ(found[0].fileNumSum, 1);
  EXPECT_EQ(found[0].fileSize, 5);
  EXPECT_TRUE(found[0].sizeList.empty());
  EXPECT_FALSE(found[1].fileOrPath);
}

TEST_F(Weigh, packageWeighsTheTextOfItsTypeAndItsDirectEntries) {
  volume.file("Users/alice/Data/Tool.app/a", 5000_B);
  volume.file("Users/alice/Data/Tool.app/.hidden", 5000_B);
  volume.file("Users/alice/Data/Tool.app/Contents/b", 5000_B);
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, kApplicationWeight);
  EXPECT_EQ(info.fileNumSum, 3);
  EXPECT_TRUE(info.sizeList.empty());
  EXPECT_EQ(names(), Names{"Data"});
}

TEST_F(Weigh, frameworkIsNoPlainFolder) {
  volume.file("Users/alice/Data/Kit.framework/a", 5_B);
  EXPECT_EQ(run().fileSize, kFrameworkWeight);
  EXPECT_EQ(names(), Names{"Data"});
}

TEST_F(Weigh, folderWithAnUnknownExtensionIsAPlainOne) {
  volume.file("Users/alice/Data/v1.2/a", 5_B);
  EXPECT_EQ(run().fileSize, 5);
}

TEST_F(Weigh, emptyPackageCountsNoFile) {
  volume.folder("Users/alice/Data/Tool.app");
  EXPECT_EQ(run().fileNumSum, 0);
}

TEST_F(Weigh, foldersBelowACacheWeighTheTextOfTheirType) {
  volume.file("Users/alice/Data/Caches/a", 5_B);
  volume.file("Users/alice/Data/Caches/b", 5_B);
  volume.file("Users/alice/Data/My Cache/c", 5_B);  // the name does not begin with it
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, kFolderWeight + 5);
  EXPECT_EQ(info.fileNumSum, 3);
}

TEST_F(Weigh, rootInACacheIsWalkedItsFoldersAreNot) {
  volume.file("Users/alice/Cache/a", 5_B);
  volume.file("Users/alice/Cache/sub/b", 7_B);
  const DuplicateInfo info = run("Users/alice/Cache/");
  EXPECT_EQ(info.fileSize, 5 + kFolderWeight);
  EXPECT_EQ(info.fileNumSum, 2);
}

TEST_F(Weigh, libraryOfAHomeWeighsTheTextOfItsType) {
  rules.libraries = {volume.path("Users/alice/Library")};
  volume.file("Users/alice/Library/a", 5_B);
  volume.file("Users/alice/sub/Library/b", 7_B);  // another one
  const DuplicateInfo info = run("Users/alice/");
  EXPECT_EQ(info.fileSize, kFolderWeight + 7);
  EXPECT_EQ(info.fileNumSum, 2);
}

TEST_F(Weigh, packageThatCannotBeReadCountsOneFile) {
  volume.file("Users/alice/Data/Tool.app/a", 5_B);
  volume.file("Users/alice/Data/Tool.app/b", 5_B);
  volume.setMode("Users/alice/Data/Tool.app", 0);
  const std::string text = test::inPlainChild([this] {
    const DuplicateInfo info = run();
    return std::to_string(info.fileSize) + ' ' + std::to_string(info.fileNumSum);
  });
  volume.setMode("Users/alice/Data/Tool.app", 0755);
  EXPECT_EQ(text, std::to_string(kApplicationWeight) + " 1");
}

TEST_F(Weigh, folderThatCannotBeReadWeighsNothingAndItsSizeIsKnown) {
  volume.file("Users/alice/Data/closed/a", 5_B);
  volume.file("Users/alice/Data/b", 7_B);
  volume.setMode("Users/alice/Data/closed", 0);
  const std::string text = test::inPlainChild([this] {
    const DuplicateInfo info = run();
    return std::to_string(info.fileSize) + ' ' + std::to_string(info.fileNumSum) + ' ' +
           (info.sizeList.contains(0) ? "1" : "0");
  });
  volume.setMode("Users/alice/Data/closed", 0755);
  EXPECT_EQ(text, "7 1 1");
}

TEST_F(Weigh, folderThatWentAwayMeanwhileCountsOneByteAndOneFile) {
  for (const std::string name : {"gone", "Gone.app"}) {
    found.clear();
    volume.file("Users/alice/Data/a", 5_B);
    const std::string path = volume.folder("Users/alice/Data/" + name);
    beforeTheFirstItem([&] { ASSERT_EQ(::rmdir(path.c_str()), 0); });
    const DuplicateInfo info = run();
    EXPECT_EQ(info.fileSize, 6) << name;
    EXPECT_EQ(info.fileNumSum, 2) << name;
    EXPECT_TRUE(info.sizeList.empty()) << name;
  }
}

TEST_F(Weigh, fileThatWentAwayMeanwhileCountsAsAnEmptyOne) {
  volume.file("Users/alice/Data/a", 5_B);
  const std::string path = volume.file("Users/alice/Data/b", 7_B);
  beforeTheFirstItem([&] { ASSERT_EQ(::unlink(path.c_str()), 0); });
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, 5);
  EXPECT_EQ(info.fileNumSum, 2);
  EXPECT_EQ(names(), (Names{"Data/a", "Data"}));
}

TEST_F(Weigh, linkWeighsItsTextAndIsNotEntered) {
  volume.file("Users/alice/Elsewhere/a", 500_B);
  volume.link("Users/alice/Data/link", "../Elsewhere");
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, 12);
  EXPECT_EQ(info.fileNumSum, 1);
}

TEST_F(Weigh, missingRootIsAnEmptyFolder) {
  const DuplicateInfo info = run("Users/alice/None/");
  EXPECT_EQ(info.fileSize, 0);
  EXPECT_EQ(info.fileNumSum, 0);
  EXPECT_FALSE(info.fileOrPath);
  EXPECT_EQ(info.path, volume.url("Users/alice/None/"));
  EXPECT_TRUE(found.empty());
}

TEST_F(Weigh, rootThatIsNoCandidateIsStillWeighed) {
  rules.limit = 12;
  volume.file("Users/alice/Data/a", 5_B);
  volume.file("Users/alice/Data/sub/b", 7_B);
  const DuplicateInfo info = run();
  EXPECT_EQ(info.fileSize, 12);
  EXPECT_EQ(info.fileNumSum, 2);
  EXPECT_EQ(info.sizeList.values(), Sizes{7});
  EXPECT_TRUE(found.empty());
}

TEST_F(Weigh, pathsBelowTheRootOfAllFoldersHaveOneSlash) {
  volume.file("a", 5_B);
  volume.file("sub/b", 7_B);
  const std::string text = test::inMountingChild([this]() -> std::string {
    if (::chroot(volume.path().c_str()) != 0) return "skip";
    std::string paths;
    DuplicateWalk walk(rules, [&](const DuplicateInfo& info) { paths += info.path.path() + ' '; });
    walk.folderBackTracking(URL::fileURL("/", true));
    return paths;
  });
  if (text == "skip") GTEST_SKIP() << "no other root here";
  EXPECT_EQ(text, "/a /sub/b /sub / ");
}

TEST_F(Weigh, fileSystemThatDoesNotSayWhatItsNamesAreIsWalkedAlike) {
  const std::string text = test::inMountingChild([this]() -> std::string {
    const test::LoopFileSystem disk("ext2", volume.path("image"), volume.path("Users/alice/Disk"), "",
                                    "-O ^filetype");
    if (!disk.isMounted()) return "skip";
    volume.file("Users/alice/Disk/Data/a", 5_B);
    volume.file("Users/alice/Disk/Data/sub/b", 7_B);
    volume.file("Users/alice/Disk/Data/.hidden/c", 100_B);
    volume.link("Users/alice/Disk/Data/link", "sub");
    const DuplicateInfo info = run("Users/alice/Disk/Data/");
    std::string told = std::to_string(info.fileSize) + ' ' + std::to_string(info.fileNumSum);
    for (const std::string& name : names()) told += ' ' + name;
    return told;
  });
  if (text == "skip") GTEST_SKIP() << "no ext2, no loop device or no right to mount";
  EXPECT_EQ(text, "15 3 Disk/Data/a Disk/Data/link Disk/Data/sub/b Disk/Data/sub Disk/Data");
}

TEST_F(Weigh, restOfAFolderThatIsNotFoundAgainIsPassedOver) {
  // Deeper than the number of folders kept open.
  constexpr int kDeep = 40;
  constexpr int kMoved = 3;
  std::string moved = "Users/alice/Data";
  for (int i = 0; i < kMoved; ++i) moved += "/folder";
  volume.chain("Users/alice/Data", "folder", kDeep);
  std::string deepest = moved;
  for (int i = kMoved; i < kDeep; ++i) deepest += "/folder";
  volume.file(deepest + "/a", 5_B);
  volume.file(moved + "/z", 7_B);
  volume.file("Users/alice/Data/z", 11_B);
  Names unread;
  rules.unread = [&unread](const std::string& path, int /*error*/) { unread.push_back(path); };
  DuplicateWalk walk(rules, [&](const DuplicateInfo& info) {
    found.push_back(info);
    if (!info.path.path().ends_with("/a")) return;
    std::filesystem::rename(volume.path(moved + "/folder"), volume.path("Users/alice/below"));
    std::filesystem::rename(volume.path(moved), volume.path("Users/alice/moved"));
  });
  const DuplicateInfo info = walk.folderBackTracking(volume.url("Users/alice/Data/"));
  EXPECT_EQ(info.fileSize, 23);
  EXPECT_EQ(info.fileNumSum, 3);
  const Names all = names();
  EXPECT_EQ(std::ranges::count(all, moved.substr(std::string("Users/alice/").size()) + "/z"), 0);
  EXPECT_EQ(std::ranges::count(all, "Data/z"), 1);
  EXPECT_EQ(all.back(), "Data");
  EXPECT_EQ(unread, Names());  // it is gone
}

TEST_F(Weigh, restOfAFolderThatIsClosedMeanwhileIsReported) {
  constexpr int kDeep = 40;  // deeper than the number of folders kept open
  const std::string closed = "Users/alice/Data/folder/folder";
  volume.chain("Users/alice/Data", "folder", kDeep);
  std::string deepest = "Users/alice/Data";
  for (int i = 0; i < kDeep; ++i) {
    deepest += "/folder";
    volume.setMode(deepest, 0755);
  }
  for (const char* const name : {"Users", "Users/alice", "Users/alice/Data"}) volume.setMode(name, 0755);
  volume.file(deepest + "/a", 5_B);
  volume.file(closed + "/z", 7_B);
  Names unread;
  rules.unread = [&unread](const std::string& path, int error) {
    EXPECT_EQ(error, EACCES);
    unread.push_back(path);
  };
  const test::ActingAsPlainUser user;
  DuplicateWalk walk(rules, [&](const DuplicateInfo& info) {
    if (!info.path.path().ends_with("/a")) return;
    const uid_t acting = ::geteuid();
    ASSERT_EQ(::seteuid(::getuid()), 0);
    volume.setMode(closed, 0);
    ASSERT_EQ(::seteuid(acting), 0);
  });
  walk.folderBackTracking(volume.url("Users/alice/Data/"));
  EXPECT_EQ(unread, Names{volume.path(closed)});
}

TEST_F(Weigh, stopLeavesTheRestUnseen) {
  volume.file("Users/alice/Data/a", 5_B);
  volume.file("Users/alice/Data/sub/b", 7_B);
  int asked = 0;
  rules.isStopped = [&asked] { return ++asked > 2; };  // once the two items of the top are listed
  EXPECT_EQ(run().fileSize, 5);
  EXPECT_LE(asked, 4);
  EXPECT_EQ(names(), Names{"Data"});
}

TEST_F(Weigh, stopAmongTheFilesOfAFolderCountsNoMoreOfThem) {
  for (const char* name : {"a", "b", "c"}) volume.file(std::string("Users/alice/Data/") + name, 5_B);
  int asked = 0;
  rules.isStopped = [&asked] { return ++asked > 2; };
  EXPECT_EQ(run().fileSize, 10);
  EXPECT_EQ(asked, 3);
}

TEST_F(Weigh, fileAloneIsACandidateAboveTheLimitOnly) {
  rules.limit = 5;
  const URL small = URL::fileURL(volume.file("Users/alice/a", 5_B), false);
  const URL large = URL::fileURL(volume.file("Users/alice/b", 6_B), false);
  DuplicateWalk walk(rules, [this](DuplicateInfo info) { found.push_back(std::move(info)); });
  EXPECT_EQ(walk.fileInfo(small).fileSize, 5);
  EXPECT_EQ(walk.fileInfo(large).fileSize, 6);
  const DuplicateInfo none = walk.fileInfo(volume.url("Users/alice/none"));
  EXPECT_EQ(none.fileSize, 0);
  EXPECT_EQ(none.fileNumSum, 1);
  EXPECT_TRUE(none.fileOrPath);
  EXPECT_EQ(names(), Names{"b"});
}

TEST_F(Weigh, oneWalkAfterTheOtherKeepsTheSizesApart) {
  volume.file("Users/alice/One/sub/a", 5_B);
  volume.file("Users/alice/Two/sub/a", 7_B);
  DuplicateWalk walk(rules, [](const DuplicateInfo&) {});
  const DuplicateInfo one = walk.folderBackTracking(volume.url("Users/alice/One/"));
  const DuplicateInfo two = walk.folderBackTracking(volume.url("Users/alice/Two/"));
  EXPECT_EQ(one.sizeList.values(), Sizes{5});
  EXPECT_EQ(two.sizeList.values(), Sizes{7});
}

TEST_F(Weigh, chainOf5000FoldersNeedsFewDescriptors) {
  const std::string text = test::inMemoryChild([]() -> std::string {
    const test::TemporaryVolume memory;
    memory.install();
    memory.chain("Users/alice/Data", "folder", 5000);
    memory.file("Users/alice/Data/folder/a", 5_B);
    const rlimit few{64, 64};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) return "no limit";
    const DuplicateWalkRules bare;
    DuplicateWalk walk(bare, [](const DuplicateInfo&) {});
    const DuplicateInfo info = walk.folderBackTracking(memory.url("Users/alice/Data/"));
    return std::to_string(info.fileSize) + ' ' + std::to_string(info.fileNumSum) + ' ' +
           std::to_string(info.sizeList.values().size());
  });
  EXPECT_EQ(text, "5 1 2");  // the folders hold 5 bytes or nothing
}

TEST_F(Weigh, bytesThatDoNotFitIntoASumAreAFatalStop) {
  const auto weighTwo = [](std::uint64_t bytes) {
    return test::inMemoryChild([bytes]() -> std::string {
      const test::TemporaryVolume memory;
      memory.install();
      for (const std::string name : {"Users/alice/Data/a", "Users/alice/Data/sub/b"}) {
        memory.file(name, test::ByteCount{bytes});
        if (std::filesystem::file_size(memory.path(name)) != bytes) return "skip";
      }
      const DuplicateWalkRules bare;
      DuplicateWalk walk(bare, [](const DuplicateInfo&) {});
      return std::to_string(walk.folderBackTracking(memory.url("Users/alice/Data/")).fileSize);
    });
  };
  if (weighTwo(1) == "skip") GTEST_SKIP() << "no file system in memory";
  EXPECT_EQ(weighTwo((1ULL << 62U) - 1), "9223372036854775806");
  EXPECT_EQ(weighTwo(1ULL << 62U), "ended by signal 6");
}

TEST_F(Weigh, unreadableFoldersAreReported) {
  volume.file("Users/alice/Data/closed/a", 5_B);
  volume.file("Users/alice/Data/unsearchable/a", 5_B);
  volume.file("Users/alice/Data/Closed.app/a", 5_B);
  volume.file("Users/alice/Data/.hidden/a", 5_B);
  volume.file("Users/alice/Data/open/a", 5_B);
  for (const char* const name : {"closed", "Closed.app", ".hidden"})
    volume.setMode(std::string("Users/alice/Data/") + name, 0);
  volume.setMode("Users/alice/Data/unsearchable", 0444);
  for (const char* const name : {"Users", "Users/alice", "Users/alice/Data", "Users/alice/Data/open"})
    volume.setMode(name, 0755);
  Names unread;
  rules.unread = [&unread](const std::string& path, int error) {
    EXPECT_EQ(error, EACCES) << path;
    unread.push_back(path);
  };
  const test::ActingAsPlainUser user;
  run();
  EXPECT_EQ(unread, (Names{volume.path("Users/alice/Data/Closed.app"), volume.path("Users/alice/Data/closed"),
                           volume.path("Users/alice/Data/unsearchable")}));
  unread.clear();
  run("Users/alice/Data/closed/");
  run("Users/alice/Data/missing/");
  EXPECT_EQ(unread, Names{volume.path("Users/alice/Data/closed")});
}

}  // namespace
}  // namespace sorrel
