#include "SorrelFramework/Platform/Items/DirectoryEnumerator.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>

#include "Tests/Platform/Items/DirectoryEnumeratorKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {
namespace {

// Unusual contents of a disk, and changes during the walk.
using DirectoryEnumeratorDiskTest = DirectoryEnumeratorTest;

std::string joined(const Names& names) {
  std::string text;
  for (const std::string& name : names) text.append(name).append("\n");
  return text;
}

// Links, special files, mounts.

TEST_F(DirectoryEnumeratorDiskTest, linksAreMetNotEntered) {
  volume_.file("top/real/inner", "");
  volume_.link("top/link", "real");
  volume_.link("top/broken", "nowhere");
  volume_.link("top/loop", ".");
  EXPECT_EQ(walk(), (Names{"broken", "link", "loop", "real/", "real/inner"}));
}

TEST_F(DirectoryEnumeratorDiskTest, rootThatIsALinkIsEntered) {
  volume_.file("top/real/inner", "");
  volume_.link("top/link", "real");
  EXPECT_EQ(walkOf(URL::fileURL(volume_.path("top/link"), false)), Names{"inner"});
}

TEST_F(DirectoryEnumeratorDiskTest, rootThatIsNoFolderGivesNothing) {
  volume_.file("top/file", "");
  int told = 0;
  const auto count = [&told](const URL&, int) { return ++told > 0; };
  EXPECT_TRUE(walkOf(volume_.url("top/file"), 0, {}, count).empty());
  EXPECT_TRUE(walkOf(volume_.url("none/"), 0, {}, count).empty());
  EXPECT_EQ(told, 0);
}

TEST_F(DirectoryEnumeratorDiskTest, fifoIsMetAndNeverOpened) {
  volume_.fifo("top/pipe");
  volume_.file("top/z", "");
  EXPECT_EQ(walk(), (Names{"pipe", "z"}));
  EXPECT_TRUE(walkOf(volume_.url("top/pipe")).empty());
}

TEST_F(DirectoryEnumeratorDiskTest, mountPointsAreMetNotEntered) {
  const std::string point = volume_.folder("top/a");
  volume_.file("top/b", "");
  const std::string told = inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume_.file("top/a/inner", "");
    bool calledHandler = false;
    std::string names = joined(walk(0, {}, [&](const URL&, int) { return calledHandler = true; }));
    return names + (calledHandler ? "told" : "not told");
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "a/\nb\nnot told");
}

TEST_F(DirectoryEnumeratorDiskTest, loopOfMountsEnds) {
  const std::string point = volume_.folder("top/a/b");
  const std::string source = volume_.path("top");
  const std::string told = inMountingChild([&]() -> std::string {
    if (::mount(source.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
    return joined(walk());
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "a/\na/b/\n");
}

TEST_F(DirectoryEnumeratorDiskTest, rootMayBeAMountPoint) {
  const std::string point = volume_.path("top");
  const std::string told = inMountingChild([&]() -> std::string {
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume_.file("top/a/inner", "");
    return joined(walk());
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "a/\na/inner\n");
}

// Folders that can't be read.

class UnreadableFolder : public DirectoryEnumeratorTest {
 protected:
  UnreadableFolder() {
    volume_.file("top/a", "");
    volume_.file("top/b/inner", "");
    volume_.file("top/c/inner", "");
    volume_.file("top/d/inner", "");
    for (const char* name : {".", "top", "top/c", "top/d"}) volume_.setMode(name, 0755);
  }
  std::string walkAsPlainUser(const EnumerationErrorHandler& handler = {}) {
    return inPlainChild([&] { return joined(walk(0, {}, handler)); });
  }
};

TEST_F(UnreadableFolder, isMetAndPassedOver) {
  volume_.setMode("top/b", 0);
  EXPECT_EQ(walkAsPlainUser(), "a\nb/\nc/\nc/inner\nd/\nd/inner\n");
}

TEST_F(UnreadableFolder, isReportedOnceWithItsURLAndErrno) {
  volume_.setMode("top/b", 0);
  volume_.setMode("top/c", 0);
  const std::string told = inPlainChild([this] {
    Names reports;
    walk(0, {}, [&reports](const URL& url, int error) {
      reports.push_back(url.lastPathComponent() + (error == EACCES ? " denied" : " other"));
      return true;
    });
    return joined(reports);
  });
  EXPECT_EQ(told, "b denied\nc denied\n");
}

TEST_F(UnreadableFolder, handlerThatAnswersFalseEndsTheWalk) {
  volume_.setMode("top/c", 0);
  volume_.setMode("top/b", 0755);
  EXPECT_EQ(walkAsPlainUser([](const URL&, int) { return false; }), "a\nb/\nb/inner\nc/\n");
}

TEST_F(UnreadableFolder, isNotReportedIfItIsNotToBeEntered) {
  volume_.setMode("top/b", 0);
  const std::string told = inPlainChild([this] {
    bool called = false;
    walk(NSDirectoryEnumerationSkipsSubdirectoryDescendants, {},
         [&called](const URL&, int) { return called = true; });
    return std::string(called ? "told" : "not told");
  });
  EXPECT_EQ(told, "not told");
}

TEST_F(UnreadableFolder, rootIsReportedToo) {
  volume_.setMode("top", 0);
  const std::string told = inPlainChild([this] {
    std::string report;
    const Names met = walk(0, {}, [&](const URL& url, int error) {
      report = url == volume_.url("top/") && error == EACCES ? "root denied" : "other";
      return true;
    });
    return met.empty() ? report : joined(met);
  });
  EXPECT_EQ(told, "root denied");
}

TEST_F(UnreadableFolder, readableOneThatCannotBeSearchedHidesItsItems) {
  volume_.setMode("top/b", 0444);
  EXPECT_EQ(walkAsPlainUser(), "a\nb/\nc/\nc/inner\nd/\nd/inner\n");
}

// Names.

TEST_F(DirectoryEnumeratorDiskTest, oddNamesComeBackByteForByte) {
  Names names = {"\n",        "a\nb",      "\xFF",     "%20",      "-rf", std::string(255, 'x'),
                 " ",         "e\xCC\x81", "\xC3\xA9", "\xC0\xAF", "...", "*?[",
                 "#fragment", "?query",    "a\\b",     "~"};
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) volume_.file("top/" + name, "");
  EXPECT_EQ(walk(), names);
}

TEST_F(DirectoryEnumeratorDiskTest, everyByteSurvivesTheWayIntoTheURLAndBack) {
  Names names;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/') names.push_back(std::string("n") + static_cast<char>(byte) + "n");
  }
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    volume_.file(std::string("top/").append(name).append("/").append(name), "");
  DirectoryEnumerator enumerator(volume_.url("top/"));
  for (const std::string& name : names) {
    const DirectoryEnumerator::Item* item = enumerator.next();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->name, name);
    item = enumerator.next();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->url.path(), volume_.path(std::string("top/").append(name).append("/").append(name)));
    EXPECT_TRUE(URL::parse(item->url.absoluteString())) << item->url.absoluteString();
  }
  EXPECT_EQ(enumerator.next(), nullptr);
}

// The names of a volume.

TEST_F(DirectoryEnumeratorDiskTest, rootIsFoundUnderOtherLettersAndByAbsoluteLinks) {
  volume_.file("Data/Pictures/a", "");
  volume_.link("Users/alice/pictures", "/Data/Pictures");
  DirectoryEnumerator enumerator(volume_.url("users/alice/Pictures/"));
  const DirectoryEnumerator::Item* const item = enumerator.next();
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->url, volume_.url("Data/Pictures/a"));
}

// Depth.

TEST_F(DirectoryEnumeratorDiskTest, thousandLevelsNeedFewOpenFiles) {
  constexpr int levels = 1000;
  volume_.chain("top", "d", levels);
  const std::string told = inChild([this]() -> std::string {
    const rlimit few{64, 64};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) return "no limit";
    int deepest = 0;
    const Names met = walk(0, [&deepest](DirectoryEnumerator& at, const std::string&) {
      deepest = std::max(deepest, at.level());
    });
    return std::to_string(met.size()) + " items, level " + std::to_string(deepest);
  });
  EXPECT_EQ(told, "1000 items, level 1000");
}

TEST_F(DirectoryEnumeratorDiskTest, goesOnBesideADeepFolder) {
  volume_.chain("top/a", "d", 200);
  volume_.file("top/a/z", "");
  volume_.file("top/b", "");
  const Names met = walk();
  ASSERT_EQ(met.size(), 203U);
  EXPECT_EQ(met[201], "a/z");
  EXPECT_EQ(met[202], "b");
}

TEST_F(DirectoryEnumeratorDiskTest, pathsGrowLongerThanTheSystemAllows) {
  const std::string name(250, 'n');
  constexpr int levels = 40;
  const std::string deepest = volume_.chain("top", name, levels);
  ASSERT_GT(deepest.size(), static_cast<std::size_t>(PATH_MAX));
  DirectoryEnumerator enumerator(volume_.url("top/"));
  std::string last;
  int count = 0;
  for (; const DirectoryEnumerator::Item* item = enumerator.next(); ++count) {
    last = item->url.path();
    EXPECT_EQ(enumerator.values(NSURLIsDirectoryKey).isDirectory, true);
  }
  EXPECT_EQ(count, levels);
  EXPECT_EQ(last, deepest);
}

TEST_F(DirectoryEnumeratorDiskTest, memoryDoesNotGrowWithTheSquareOfTheDepth) {
  constexpr int levels = 3000;
  constexpr long mostKiB = 600L * 1024;
  // One text for each level would take 1.1 GB.
  volume_.chain("top", std::string(250, 'n'), levels);
  const std::string told = inChild([this]() -> std::string {
    rusage before{};
    rusage after{};
    ::getrusage(RUSAGE_SELF, &before);
    DirectoryEnumerator enumerator(volume_.url("top/"));
    int count = 0;
    while (enumerator.next() != nullptr) ++count;
    ::getrusage(RUSAGE_SELF, &after);
    const bool isSmall = after.ru_maxrss - before.ru_maxrss < mostKiB;
    return std::to_string(count) + (isSmall ? " items" : " items, too much memory");
  });
  EXPECT_EQ(told, "3000 items");
}

TEST_F(DirectoryEnumeratorDiskTest, openFilesAreGivenBack) {
  volume_.chain("top", "d", 10);
  const std::size_t before = openDescriptors();
  walk();
  { DirectoryEnumerator(volume_.url("top/")).next(); }
  EXPECT_EQ(openDescriptors(), before);
}

// A tree that changes during the walk.

TEST_F(DirectoryEnumeratorDiskTest, itemRemovedWhileItIsThePresentOneDoesNotEndTheWalk) {
  for (const char* name : {"a/inner", "b", "c/inner"}) volume_.file("top/" + std::string(name), "");
  const auto removeIt = [this](DirectoryEnumerator&, const std::string& name) {
    if (name == "a/") std::filesystem::remove_all(volume_.path("top/a"));
  };
  EXPECT_EQ(walk(0, removeIt), (Names{"a/", "b", "c/", "c/inner"}));
}

TEST_F(DirectoryEnumeratorDiskTest, entryThatVanishedAfterTheListingIsNotMet) {
  for (const char* name : {"a", "b", "c"}) volume_.file("top/" + std::string(name), "");
  const auto removeNext = [this](DirectoryEnumerator&, const std::string& name) {
    if (name == "a") std::filesystem::remove(volume_.path("top/b"));
  };
  EXPECT_EQ(walk(0, removeNext), (Names{"a", "c"}));
}

TEST_F(DirectoryEnumeratorDiskTest, folderSwappedForALinkIsNotEntered) {
  volume_.file("outside/secret", "");
  volume_.file("top/a/inner", "");
  volume_.file("top/b", "");
  const auto swapIt = [this](DirectoryEnumerator&, const std::string& name) {
    if (name != "a/") return;
    std::filesystem::remove_all(volume_.path("top/a"));
    volume_.link("top/a", "../outside");
  };
  EXPECT_EQ(walk(0, swapIt), (Names{"a/", "b"}));
}

TEST_F(DirectoryEnumeratorDiskTest, folderMovedAwayBelowTheWalkDoesNotLeadItAstray) {
  volume_.chain("top/a", "d", 100);
  volume_.file("top/a/d/z", "");
  volume_.file("top/b", "");
  volume_.file("elsewhere/secret", "");
  volume_.folder("elsewhere/z");
  const auto moveAtTheBottom = [this](DirectoryEnumerator& at, const std::string&) {
    if (at.level() == 101) {
      std::filesystem::rename(volume_.path("top/a/d/d"), volume_.path("elsewhere/moved"));
    }
  };
  const Names met = walk(0, moveAtTheBottom);
  ASSERT_EQ(met.size(), 103U);
  EXPECT_EQ(met[101], "a/d/z");
  EXPECT_EQ(met[102], "b");
}

TEST_F(DirectoryEnumeratorDiskTest, walkLeavesTheTreeAsItIs) {
  volume_.file("top/a/b", "content");
  volume_.link("top/link", "a");
  volume_.fifo("top/pipe");
  const auto before = snapshotOf(volume_.path());
  walk();
  EXPECT_EQ(snapshotOf(volume_.path()), before);
}

}  // namespace
}  // namespace sorrel::test
