// Guards against a clean that removes the last of several equal files.
#include "SorrelFramework/Selection/LastCopies.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "SorrelFramework/Model/CategoryInfo.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;
using test::kMixed;
using test::kOff;
using test::kOn;
using Names = std::vector<std::string>;

/// A tree of groups over files of a volume.
class LastCopies : public testing::Test {
 protected:
  /// A group of these files; those with a "+" prefix are ticked.
  Ref<FileInformation> group(const std::string& title, const Names& members) {
    std::vector<Ref<FileInformation>> records;
    std::size_t ticked = 0;
    for (const std::string& member : members) {
      const bool isTicked = member.starts_with('+');
      ticked += isTicked ? 1 : 0;
      records.push_back(
          test::makeRecord({stage_.volume.url(member.substr(isTicked ? 1 : 0)), isTicked ? kOn : kOff}));
    }
    const Integer state = ticked == 0 ? kOff : ticked == members.size() ? kOn : kMixed;
    auto header = test::makeRecord({URL(), state, 0, true, records});
    header->title = title;
    all_->childrens.push_back(header);
    return header;
  }
  Names lost() {
    Names titles;
    for (const auto& group : groupsWithoutACopyLeft(*stage_.feature)) titles.push_back(group->title);
    return titles;
  }
  Names changed(const timespec& since) {
    Names names;
    for (const std::string& path : changesInTickedGroups(*stage_.feature, since)) {
      names.push_back(fs::relative(path, stage_.volume.path()).string());
    }
    return names;
  }
  /// A time before any item on the volume was made.
  static timespec longAgo() { return {0, 0}; }
  /// A time just after the last change of the file.
  timespec justBehind(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(::lstat(stage_.volume.path(name).c_str(), &status), 0);
    return status.st_ctim;
  }
  void makeFiles(const Names& names) {
    for (const std::string& name : names) stage_.volume.file(name, "same");
  }

  test::CleanStage stage_;
  Ref<CategoryInformation> all_ = [this] {
    auto category = test::makeCategory(stage_.feature, kMixed, {});
    stage_.feature->categoryInfo.push_back(category);
    return category;
  }();
};

TEST_F(LastCopies, featureWithoutCategoriesLosesNothing) {
  stage_.feature->categoryInfo.clear();
  EXPECT_EQ(lost(), Names());
  EXPECT_EQ(changed(longAgo()), Names());
}

TEST_F(LastCopies, memberThatIsNotTickedStays) {
  makeFiles({"a", "b", "c", "d"});
  group("one", {"+a", "b"});
  group("two", {"c", "d"});
  EXPECT_EQ(lost(), Names());
}

TEST_F(LastCopies, groupOfWhichAllIsTickedIsLost) {
  makeFiles({"a", "b"});
  group("one", {"+a", "+b"});
  EXPECT_EQ(lost(), Names{"one"});
}

TEST_F(LastCopies, memberThatIsGoneIsNoCopy) {
  makeFiles({"a"});
  group("one", {"+a", "b"});
  EXPECT_EQ(lost(), Names{"one"});
}

TEST_F(LastCopies, groupThatIsNotTouchedMayHaveGone) {
  makeFiles({"c"});
  group("one", {"a", "b"});
  EXPECT_EQ(lost(), Names());
}

TEST_F(LastCopies, memberInAFolderThatGoesIsNoCopy) {
  makeFiles({"a", "one/b", "one/x", "two/x"});
  group("folders", {"+one", "two"});
  group("files", {"+a", "one/b"});
  EXPECT_EQ(lost(), Names{"files"});
}

TEST_F(LastCopies, groupOfWhichAllLiesInFoldersThatGoIsLostUnticked) {
  makeFiles({"one/b", "one/c", "two/b"});
  group("folders", {"+one", "two"});
  group("files", {"one/b", "one/c"});
  EXPECT_EQ(lost(), Names{"files"});
}

TEST_F(LastCopies, folderThatLosesAFileIsNoCopy) {
  makeFiles({"one/x", "two/x", "y"});
  group("folders", {"+one", "two"});
  group("files", {"+two/x", "y"});
  EXPECT_EQ(lost(), Names{"folders"});
}

TEST_F(LastCopies, folderWhoseNameBeginsLikeOneThatGoesStays) {
  makeFiles({"one/x", "one 2/x"});
  group("folders", {"+one", "one 2"});
  EXPECT_EQ(lost(), Names());
}

TEST_F(LastCopies, otherHardLinkStays) {
  makeFiles({"a"});
  fs::create_hard_link(stage_.volume.path("a"), stage_.volume.path("b"));
  group("one", {"+a", "b"});
  EXPECT_EQ(lost(), Names());
}

TEST_F(LastCopies, sameEntryByAnotherPathGoesWithIt) {
  makeFiles({"one/a", "one/f/x"});
  stage_.volume.link("two", stage_.volume.path("one"));
  group("files", {"+one/a", "two/a"});
  group("folders", {"one/f", "+two/f"});
  EXPECT_EQ(lost(), Names({"files", "folders"}));
}

TEST_F(LastCopies, memberInAFolderThatGoesByAnotherPathIsNoCopy) {
  makeFiles({"a", "one/f/b", "one/f/x", "two/x"});
  stage_.volume.link("way", "one");
  group("folders", {"+one/f", "two"});
  group("files", {"+a", "way/f/b"});
  EXPECT_EQ(lost(), Names{"files"});
}

TEST_F(LastCopies, folderThatLosesAFileByAnotherPathIsNoCopy) {
  makeFiles({"one/f/x", "two/x", "y", "z"});
  stage_.volume.link("way", "one");
  stage_.volume.link("root", "one/f");
  group("folders", {"way/f", "+two"});
  group("roots", {"root", "+z"});
  group("files", {"+one/f/x", "y"});
  EXPECT_EQ(lost(), Names({"folders", "roots"}));
}

TEST_F(LastCopies, sameItemBehindAnotherMountIsNoCopy) {
  makeFiles({"Data/sub/a", "Data/sub/b", "b", "c", "View/other"});
  const std::string told = test::inMountingChild([&]() -> std::string {
    const std::string from = stage_.volume.path("Data/sub");
    if (::mount(from.c_str(), stage_.volume.path("View").c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return "skip";
    }
    group("above", {"View/a", "+c"});
    group("itself", {"View/b", "+b"});
    group("left", {"View/a", "b", "c"});
    group("folders", {"+Data", "Other"});
    std::string names;
    for (const std::string& name : lost()) names += name + " ";
    return names;
  });
  if (told == "skip") GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(told, "above itself left folders ");
}

// Changes since the scan

TEST_F(LastCopies, membersThatWereAsTheyAreBeforeTheScanHaveNotChanged) {
  makeFiles({"a", "b"});
  group("one", {"+a", "b"});
  EXPECT_EQ(changed(justBehind("b")), Names());
}

TEST_F(LastCopies, memberThatChangedIsTold) {
  makeFiles({"a", "b"});
  group("one", {"+a", "b"});
  EXPECT_EQ(changed(longAgo()), Names({"a", "b"}));
}

TEST_F(LastCopies, groupOfWhichNothingGoesMayChange) {
  makeFiles({"a", "b"});
  group("one", {"a", "b"});
  EXPECT_EQ(changed(longAgo()), Names());
}

TEST_F(LastCopies, whatChangedInAFolderIsToldHiddenItemsToo) {
  makeFiles({"one/x", "two/x"});
  const timespec before = beginOfChanges();
  group("folders", {"+one", "two"});
  EXPECT_EQ(changed(before), Names());
  stage_.volume.file("two/sub/.hidden", "new");
  const Names names = changed(before);
  EXPECT_EQ(std::set(names.begin(), names.end()),
            (std::set<std::string>{"two", "two/sub", "two/sub/.hidden"}));
}

TEST_F(LastCopies, tickedMemberThatIsGoneIsNoChange) {
  makeFiles({"b"});
  group("one", {"+a", "b"});
  EXPECT_EQ(changed(justBehind("b")), Names());
}

}  // namespace
}  // namespace sorrel
