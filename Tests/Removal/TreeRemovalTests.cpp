#include "SorrelFramework/Removal/TreeRemoval.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/NumberFrom.hpp"
#include "Tests/Support/RandomRemoval.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;

using test::isThere;
using test::numberOf;
using test::textOf;

class TreeRemovalTest : public test::RemovalStage {};

TEST_F(TreeRemovalTest, removesAFileAndNothingElse) {
  volume_.file("top/a", "x");
  volume_.file("top/b", "x");
  const RemovalResult result = remove("top/a");
  EXPECT_TRUE(result.isSuccess());
  EXPECT_EQ(result.removedEntries, 1U);
  EXPECT_FALSE(isThere(volume_.path("top/a")));
  EXPECT_TRUE(isThere(volume_.path("top/b")));
}

TEST_F(TreeRemovalTest, removesAFolderWithAllThatLiesInIt) {
  for (int i = 0; i < 2000; ++i) volume_.file("top/many/" + std::to_string(i), "");
  for (int i = 0; i < 20; ++i) volume_.file("top/" + std::to_string(i) + "/below/file", "x");
  volume_.file("beside", "x");
  const RemovalResult result = remove("top");
  EXPECT_TRUE(result.isSuccess());
  EXPECT_EQ(result.removedEntries, 2000U + 1 + 20 * 3 + 1);
  EXPECT_FALSE(isThere(volume_.path("top")));
  EXPECT_TRUE(isThere(volume_.path("beside")));
}

TEST_F(TreeRemovalTest, removesALinkAndNotWhereItLeads) {
  volume_.file("target/file", "x");
  volume_.link("link", "target");
  volume_.link("broken", "none");
  EXPECT_TRUE(remove("link").isSuccess());
  EXPECT_TRUE(remove("broken").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("link")));
  EXPECT_TRUE(isThere(volume_.path("target/file")));
}

TEST_F(TreeRemovalTest, trash_with_links_removes_links_only) {
  volume_.file("outside/folder/file", "precious");
  volume_.file("trash/old", "x");
  volume_.link("trash/toFolder", "../outside/folder");
  volume_.link("trash/toFile", volume_.path("outside/folder/file"));
  volume_.link("trash/toTop", "/");
  volume_.link("trash/up", "..");
  const auto before = test::snapshotOf(volume_.path("outside"));
  EXPECT_TRUE(remove("trash").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("trash")));
  EXPECT_EQ(test::snapshotOf(volume_.path("outside")), before);
}

TEST_F(TreeRemovalTest, hardLinkKeepsItsOtherName) {
  volume_.file("keep/file", "precious");
  volume_.folder("top");
  ASSERT_EQ(::link(volume_.path("keep/file").c_str(), volume_.path("top/name").c_str()), 0);
  const auto before = test::snapshotOf(volume_.path("keep"));
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_EQ(test::snapshotOf(volume_.path("keep")), before);
}

TEST_F(TreeRemovalTest, namesAreBytes) {
  const std::vector<std::string> names = {
      "-rf",      "*",   "%20",       "a\nb",         "\xFF\xFE",
      " ",        "..x", "...",       "$(x)",         "'\"\\",
      "\x01\x7F", "é",   "e\xCC\x81", "\xE2\x80\xAE", std::string(255, 'n'),
      "~"};
  for (const std::string& name : names) {
    volume_.file("top/" + name + "/" + name, "x");
    volume_.file("one/" + name, "x");
  }
  for (const std::string& name : names) {
    EXPECT_TRUE(remove("one/" + name).isSuccess()) << name;
    EXPECT_FALSE(isThere(volume_.path("one/" + name))) << name;
  }
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("top")));
}

TEST_F(TreeRemovalTest, twinNamesAreTwoItems) {
  volume_.file("\xC3\xA9", "composed");
  volume_.file("e\xCC\x81", "decomposed");
  volume_.file("A", "");
  volume_.file("a", "");
  EXPECT_TRUE(remove("\xC3\xA9").isSuccess());
  EXPECT_TRUE(remove("a").isSuccess());
  EXPECT_TRUE(isThere(volume_.path("e\xCC\x81")));
  EXPECT_TRUE(isThere(volume_.path("A")));
}

TEST_F(TreeRemovalTest, fifo_in_tree_no_hang) {
  volume_.fifo("top/pipe");
  volume_.fifo("pipe");
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_TRUE(remove("pipe").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("top")));
}

TEST_F(TreeRemovalTest, worksWhereTheSystemDoesNotHaveOpenat2) {
  volume_.file("outside/file", "precious");
  const std::string home = volume_.folder("home");
  const test::ScopedVariable variable("HOME", home.c_str());
  for (const int error : {ENOSYS, EPERM}) {
    volume_.file("item/folder/file", "x");
    volume_.link("item/link", "../outside");
    EXPECT_EQ(test::inChild([&]() -> std::string {
                if (!test::takeAwayOpenat2(error)) return "no filter";
                return textOf(removeItem(volume_.path("item"), RemovalPolicy::forUser())) + ", " +
                       textOf(removeItem(home, RemovalPolicy::forUser()));
              }),
              "0, " + std::to_string(EPERM) + " refused");
    EXPECT_FALSE(isThere(volume_.path("item")));
    EXPECT_TRUE(isThere(volume_.path("outside/file")));
  }
}

TEST_F(TreeRemovalTest, missingItemIsAFailure) {
  volume_.file("file", "x");
  EXPECT_EQ(textOf(remove("none")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(textOf(remove("none/below")), std::to_string(ENOENT) + " absent");
  EXPECT_EQ(textOf(remove("file/below")), std::to_string(ENOTDIR));
  EXPECT_EQ(textOf(remove(std::string(256, 'n'))), std::to_string(ENAMETOOLONG));
  EXPECT_TRUE(remove("file").isSuccess());
  EXPECT_EQ(textOf(remove("file")), std::to_string(ENOENT) + " absent");
}

TEST_F(TreeRemovalTest, itemBehindATrustedLinkAboveItGoes) {
  volume_.file("real/file", "x");
  volume_.link("link", "real");
  EXPECT_TRUE(remove("link/file").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("real/file")));
}

TEST_F(TreeRemovalTest, onlyTheExpectedItemGoes) {
  const std::string file = volume_.file("file", "x");
  volume_.file("other", "x");
  EXPECT_EQ(textOf(removeExpectedItem(file, numberOf(volume_.path("other")), policy_)),
            std::to_string(ESTALE) + " refused");
  EXPECT_TRUE(isThere(file));
  EXPECT_TRUE(removeExpectedItem(file, numberOf(file), policy_).isSuccess());
  EXPECT_FALSE(isThere(file));
}
/// Random trees, in batches, each in a child with a file system in memory of its own where that is possible.
/// SORREL_PROPERTY_CASES sets the number of cases, SORREL_PROPERTY_SEED the first one's seed.
TEST(TreeRemovalProperty, onlyTheSelectionChangesAndSuccessMeansGone) {
  constexpr std::uint64_t batch = 500;
  const std::uint64_t first = test::numberFrom("SORREL_PROPERTY_SEED", 1);
  const std::uint64_t end = first + test::numberFrom("SORREL_PROPERTY_CASES", 2000);
  for (std::uint64_t seed = first; seed < end; seed += batch) {
    const std::string wrong = test::inMemoryChild([&]() -> std::string {
      const RemovalPolicy policy = RemovalPolicy::forUser();
      for (std::uint64_t at = seed; at < std::min(seed + batch, end); ++at) {
        const std::string fault = test::faultOfRandomRemoval(at, policy);
        if (!fault.empty()) return "SORREL_PROPERTY_SEED=" + std::to_string(at) + '\n' + fault;
      }
      return "";
    });
    ASSERT_EQ(wrong, "");
  }
}

// Several removals by one TreeRemover

class TreeRemoverTest : public testing::Test {
 protected:
  RemovalResult remove(const std::string& name) { return remover.removeItem(volume.path(name)); }

  test::TemporaryVolume volume;
  RemovalPolicy policy = RemovalPolicy::forUser();
  TreeRemover remover{policy};
};

TEST_F(TreeRemoverTest, itemsOfOneFolderGoOneAfterTheOther) {
  for (const char* const name : {"d/a", "d/b", "d/c/x", "d/stays"}) volume.file(name, "1");
  for (const char* const name : {"d/a", "d/b", "d/c"}) {
    EXPECT_TRUE(remove(name).isSuccess()) << name;
    EXPECT_FALSE(isThere(volume.path(name)));
  }
  EXPECT_TRUE(isThere(volume.path("d/stays")));
}

TEST_F(TreeRemoverTest, eachResultIsThatOfItsOwnItem) {
  volume.file("d/a", "1");
  volume.file("d/c/x", "1");
  EXPECT_EQ(remove("d/missing").error, ENOENT);
  EXPECT_EQ(remove("d/a").removedEntries, 1U);
  EXPECT_EQ(remove("d/missing").error, ENOENT);
  EXPECT_EQ(remove("d/c").removedEntries, 2U);
}

TEST_F(TreeRemoverTest, folderThatTookThePlaceOfTheLastOneIsTheOneThatCounts) {
  for (const char* const name : {"d/a", "d/b", "other/b"}) volume.file(name, "1");
  ASSERT_TRUE(remove("d/a").isSuccess());
  fs::rename(volume.path("d"), volume.path("moved"));
  fs::rename(volume.path("other"), volume.path("d"));
  EXPECT_TRUE(remove("d/b").isSuccess());
  EXPECT_TRUE(isThere(volume.path("moved/b")));
  EXPECT_FALSE(isThere(volume.path("d/b")));
}

TEST_F(TreeRemoverTest, linkOfAStrangerInThePlaceOfTheLastFolderIsNotFollowed) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give a link away";
  for (const char* const name : {"d/a", "precious/b"}) volume.file(name, "1");
  ASSERT_TRUE(remove("d/a").isSuccess());
  fs::rename(volume.path("d"), volume.path("moved"));
  volume.link("d", "precious");
  ASSERT_EQ(::lchown(volume.path("d").c_str(), test::kPlainUser, test::kPlainUser), 0);
  EXPECT_EQ(remove("d/b").error, ELOOP);
  EXPECT_TRUE(isThere(volume.path("precious/b")));
}

TEST_F(TreeRemoverTest, strangersLinkAboveTheLastFolderIsNotFollowedEither) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give a link away";
  for (const char* const name : {"up/d/a", "up/d/b"}) volume.file(name, "1");
  ASSERT_TRUE(remove("up/d/a").isSuccess());
  // The same folder, by the same text, now through a link.
  fs::rename(volume.path("up"), volume.path("moved"));
  volume.link("up", "moved");
  ASSERT_EQ(::lchown(volume.path("up").c_str(), test::kPlainUser, test::kPlainUser), 0);
  EXPECT_EQ(remove("up/d/b").error, ELOOP);
  EXPECT_TRUE(isThere(volume.path("moved/d/b")));
}

TEST_F(TreeRemoverTest, protectedItemOfTheLastFolderIsRefused) {
  volume.file("d/a", "1");
  volume.file("d/home/x", "1");
  RemovalPolicy withHome = RemovalPolicy::forUser();
  withHome.protectSelfAndAncestors(volume.path("d/home"));
  TreeRemover careful(withHome);
  EXPECT_TRUE(careful.removeItem(volume.path("d/a")).isSuccess());
  EXPECT_EQ(careful.removeItem(volume.path("d/home")).error, EPERM);
  EXPECT_TRUE(isThere(volume.path("d/home/x")));
}

TEST_F(TreeRemoverTest, folderWithinAProtectedSubtreeIsRefusedEachTime) {
  volume.file("sub/d/a", "1");
  volume.file("sub/d/b", "1");
  RemovalPolicy withSubtree = RemovalPolicy::forUser();
  withSubtree.protectSubtree(volume.path("sub"));
  TreeRemover careful(withSubtree);
  for (const char* const name : {"sub/d/a", "sub/d/b"}) {
    EXPECT_EQ(careful.removeItem(volume.path(name)).error, EPERM) << name;
    EXPECT_TRUE(isThere(volume.path(name)));
  }
}

TEST_F(TreeRemoverTest, protectedSubtreeInThePlaceOfTheLastFolderIsRefused) {
  volume.file("d/a", "1");
  volume.file("sub/b", "1");
  RemovalPolicy withSubtree = RemovalPolicy::forUser();
  withSubtree.protectSubtree(volume.path("sub"));
  TreeRemover careful(withSubtree);
  EXPECT_TRUE(careful.removeItem(volume.path("d/a")).isSuccess());
  std::filesystem::rename(volume.path("d"), volume.path("moved"));
  std::filesystem::rename(volume.path("sub"), volume.path("d"));
  EXPECT_EQ(careful.removeItem(volume.path("d/b")).error, EPERM);
  EXPECT_TRUE(isThere(volume.path("d/b")));
}

/// Removals that keep files with bytes.
class RemovalWithoutBytes : public TreeRemovalTest {
 protected:
  /// Finds the item, runs `meanwhile`, and then removes.
  RemovalResult remove(
      const std::string& name, const std::function<void()>& meanwhile = [] {}) {
    TreeRemover remover(policy_);
    RemovalTarget target = remover.find(volume_.path(name));
    meanwhile();
    return remover.removeWithoutBytes(std::move(target));
  }
};

TEST_F(RemovalWithoutBytes, removesFoldersOfEmptyFilesAndLinks) {
  volume_.file("top/a", "");
  volume_.file("top/sub/b", "");
  volume_.link("top/link", "/nowhere");
  volume_.fifo("top/pipe");
  EXPECT_TRUE(remove("top").isSuccess());
  EXPECT_FALSE(isThere(volume_.path("top")));
}

TEST_F(RemovalWithoutBytes, keepsWhatGotBytesSinceItWasFound) {
  volume_.file("top/a", "");
  volume_.file("top/sub/b", "");
  volume_.file("top/sub/c", "");
  const RemovalResult result = remove("top", [this] { volume_.file("top/sub/b", "x"); });
  EXPECT_EQ(result.error, ENOTEMPTY);
  EXPECT_EQ(result.removedEntries, 2U);
  EXPECT_TRUE(isThere(volume_.path("top/sub/b")));
  EXPECT_FALSE(isThere(volume_.path("top/a")));
}

TEST_F(RemovalWithoutBytes, keepsAFileWithBytesThatCameIntoTheFolder) {
  volume_.folder("top/sub");
  const RemovalResult result = remove("top", [this] { volume_.file("top/sub/new", "x"); });
  EXPECT_EQ(result.error, ENOTEMPTY);
  EXPECT_TRUE(isThere(volume_.path("top/sub/new")));
}

TEST_F(RemovalWithoutBytes, keepsTheItemItselfThatGotBytes) {
  volume_.file("a", "");
  EXPECT_EQ(remove("a", [this] { volume_.file("a", "x"); }).error, ENOTEMPTY);
  EXPECT_TRUE(isThere(volume_.path("a")));
  volume_.link("link", "/nowhere");
  EXPECT_EQ(remove("link").error, ENOTEMPTY);
  EXPECT_TRUE(isThere(volume_.path("link")));
}

TEST_F(RemovalWithoutBytes, keepsAnItemThatTookThePlaceOfTheOneFound) {
  volume_.file("a", "");
  const RemovalResult result = remove("a", [this] {
    fs::rename(volume_.path("a"), volume_.path("b"));
    volume_.file("a", "");
  });
  EXPECT_EQ(result.error, ESTALE);
  EXPECT_TRUE(isThere(volume_.path("a")));
  EXPECT_TRUE(isThere(volume_.path("b")));
}

TEST_F(RemovalWithoutBytes, isNoRuleForTheNextRemoval) {
  volume_.file("a", "x");
  volume_.file("b", "x");
  TreeRemover remover(policy_);
  EXPECT_EQ(remover.removeWithoutBytes(remover.find(volume_.path("a"))).error, ENOTEMPTY);
  EXPECT_TRUE(remover.remove(remover.find(volume_.path("b"))).isSuccess());
}

}  // namespace
}  // namespace sorrel
