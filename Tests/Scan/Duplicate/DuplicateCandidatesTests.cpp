#include "SorrelFramework/Scan/Duplicate/DuplicateCandidates.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using Names = std::vector<std::string>;
using Sizes = std::vector<std::int64_t>;

/// Folders with these sizes, side by side below one folder.
SubfolderSizes below(const Sizes& sizes) {
  auto walk = std::make_shared<WalkedSizes>();
  for (const std::int64_t size : sizes) walk->folders.push_back({size, walk->folders.size()});
  return {walk, 0, sizes.size()};
}

DuplicateInfo folder(const std::string& path, Integer size, Integer number, const Sizes& sizes = {}) {
  return {number, size, URL::fileURL(path, true), false, below(sizes)};
}
DuplicateInfo file(const std::string& path, Integer size) {
  return {1, size, URL::fileURL(path, false), true, {}};
}

DuplicatesBySize bySize(const std::vector<DuplicateInfo>& records) {
  DuplicatesBySize dictionary;
  for (const DuplicateInfo& record : records) dictionary[record.fileSize].push_back(record);
  return dictionary;
}

Names namesOf(const std::vector<DuplicateInfo>& records) {
  Names names;
  for (const DuplicateInfo& record : records) names.push_back(record.path.path());
  return names;
}

/// The candidates, the largest first.
Names candidates(const std::vector<DuplicateInfo>& folders) {
  const DuplicatesBySize found = candidateFolders(bySize(folders), [] { return false; });
  Names names;
  for (const Integer size : sizesDescending(found)) {
    for (std::string& name : namesOf(found.at(size))) names.push_back(std::move(name));
  }
  return names;
}

std::vector<Names> topmost(const std::vector<DuplicateInfo>& folders, std::int64_t limit = 0) {
  std::vector<Names> groups;
  for (const auto& group : topmostFolders(bySize(folders), limit)) groups.push_back(namesOf(group));
  return groups;
}

TEST(DuplicateCandidates, sizesComeTheLargestFirst) {
  EXPECT_EQ(sizesDescending(bySize({file("/a", 3), file("/b", 9), file("/c", 3), file("/d", 5)})),
            (std::vector<Integer>{9, 5, 3}));
}

TEST(DuplicateCandidates, recordsAreSortedByPathAndEachPlaceIsTakenOnce) {
  std::vector<DuplicateInfo> records = {file("/c", 1), file("/a", 1), file("/c", 1), file("/b", 1)};
  sortByPath(records);
  EXPECT_EQ(namesOf(records), (Names{"/a", "/b", "/c"}));
}

TEST(DuplicateCandidates, folderAloneInItsSizeIsNone) {
  EXPECT_EQ(candidates({folder("/a", 5, 1), folder("/b", 6, 1)}), Names{});
}

TEST(DuplicateCandidates, folderThatWasMetTwiceIsAlone) {
  EXPECT_EQ(candidates({folder("/a", 5, 1), folder("/a", 5, 1)}), Names{});
}

TEST(DuplicateCandidates, foldersOfOneSizeMustAgreeInTheirNumberOfFiles) {
  EXPECT_EQ(candidates({folder("/a", 5, 1), folder("/b", 5, 2), folder("/c", 5, 1), folder("/d", 5, 3)}),
            (Names{"/a", "/c"}));
  EXPECT_EQ(candidates({folder("/a", 5, 1), folder("/b", 5, 2), folder("/c", 5, 1), folder("/d", 5, 2)}),
            (Names{"/a", "/c", "/b", "/d"}));
}

TEST(DuplicateCandidates, largeFoldersCoverTheSizesOfThoseInThem) {
  EXPECT_EQ(candidates({folder("/a", 9, 2, {5}), folder("/a/x", 5, 1), folder("/b", 9, 2, {5}),
                        folder("/b/x", 5, 1)}),
            (Names{"/a", "/b"}));
}

TEST(DuplicateCandidates, coveredSizeHidesAnyFoldersThatBearIt) {
  EXPECT_EQ(candidates({folder("/a", 9, 2, {5}), folder("/b", 9, 2, {}), folder("/c", 5, 1),
                        folder("/d", 5, 1), folder("/e", 4, 1), folder("/f", 4, 1)}),
            (Names{"/a", "/b", "/e", "/f"}));
}

TEST(DuplicateCandidates, eachMemberOfAGroupCovers) {
  EXPECT_EQ(candidates({folder("/a", 9, 2), folder("/b", 9, 2, {5}), folder("/c", 5, 1), folder("/d", 5, 1)}),
            (Names{"/a", "/b"}));
}

TEST(DuplicateCandidates, folderThatIsNoCandidateCoversNothing) {
  // The two of size 9 differ in number, the one of size 8 is single, that of size 7 is covered itself.
  EXPECT_EQ(candidates({folder("/a", 9, 2, {5}), folder("/b", 9, 3, {5}), folder("/c", 8, 2, {5}),
                        folder("/d", 5, 1), folder("/e", 5, 1)}),
            (Names{"/d", "/e"}));
  EXPECT_EQ(candidates({folder("/a", 9, 2, {7}), folder("/b", 9, 2, {7}), folder("/c", 7, 2, {5}),
                        folder("/d", 7, 2, {5}), folder("/e", 5, 1), folder("/f", 5, 1)}),
            (Names{"/a", "/b", "/e", "/f"}));
}

TEST(DuplicateCandidates, candidatesOfOneSizeMayCoverTheirOwnSize) {
  // Only the later sizes are affected: this one was checked already.
  EXPECT_EQ(candidates({folder("/a", 5, 1, {5}), folder("/b", 5, 1)}), (Names{"/a", "/b"}));
}

TEST(DuplicateCandidates, stopLeavesTheSmallerOnesOut) {
  int asked = 0;
  const DuplicatesBySize found = candidateFolders(
      bySize({folder("/a", 9, 1), folder("/b", 9, 1), folder("/c", 5, 1), folder("/d", 5, 1)}),
      [&asked] { return ++asked > 1; });
  EXPECT_EQ(sizesDescending(found), std::vector<Integer>{9});
}

TEST(DuplicateTopmost, groupsComeTheLargestFirst) {
  EXPECT_EQ(topmost({folder("/a", 5, 1), folder("/b", 5, 1), folder("/c", 9, 1), folder("/d", 9, 1)}),
            (std::vector<Names>{Names{"/c", "/d"}, Names{"/a", "/b"}}));
}

TEST(DuplicateTopmost, sizeOfAFolderBelowAnyCandidateIsDropped) {
  // A smaller candidate drops a larger size as well, and a candidate its own.
  EXPECT_EQ(topmost({folder("/a", 9, 1), folder("/b", 9, 1), folder("/c", 5, 1, {9}), folder("/d", 5, 1)}),
            (std::vector<Names>{Names{"/c", "/d"}}));
  EXPECT_EQ(topmost({folder("/a", 5, 1, {5}), folder("/a/b", 5, 1)}), std::vector<Names>{});
  EXPECT_EQ(topmost({folder("/a", 9, 1), folder("/b", 9, 1), folder("/c", 5, 1), folder("/d", 5, 1, {9})}),
            (std::vector<Names>{Names{"/c", "/d"}}));
}

TEST(DuplicateTopmost, sizeBelowTheLimitIsDropped) {
  EXPECT_EQ(topmost({folder("/a", 5, 1), folder("/b", 5, 1), folder("/c", 4, 1), folder("/d", 4, 1)}, 5),
            (std::vector<Names>{Names{"/a", "/b"}}));
}

TEST(DuplicateFilesToHash, areThoseWithAnotherOneOfTheirSizeTheLargestFirst) {
  EXPECT_EQ(namesOf(filesToHash(
                bySize({file("/b", 5), file("/a", 5), file("/c", 7), file("/d", 9), file("/e", 9)}), {})),
            (Names{"/d", "/e", "/a", "/b"}));
}

TEST(DuplicateFilesToHash, areNeitherLeftOutNorTheLastOfTheirSize) {
  const std::unordered_set<URL> leftOut = {URL::fileURL("/a", false), URL::fileURL("/d", false)};
  EXPECT_EQ(namesOf(filesToHash(bySize({file("/a", 5), file("/b", 5), file("/c", 5), file("/d", 9),
                                        file("/e", 9), file("/f", 3), file("/f", 3)}),
                                leftOut)),
            (Names{"/b", "/c"}));
}

// Mounts.

/// The remaining members below the volume, whose folder Data is mounted on View as well, and Data/sub on Sub.
std::string leftThroughMounts(const test::TemporaryVolume& volume, const Names& names) {
  return test::inMountingChild([&]() -> std::string {
    const auto bind = [&volume](const std::string& from, const std::string& on) {
      return ::mount(volume.path(from).c_str(), volume.path(on).c_str(), nullptr, MS_BIND, nullptr) == 0;
    };
    volume.folder("View");
    volume.folder("Sub");
    if (!bind("Data", "View") || !bind("Data/sub", "Sub")) return "skip";
    std::vector<DuplicateInfo> records;
    for (const std::string& name : names) {
      records.push_back(name.ends_with('/') ? folder(volume.path(name), 5, 1) : file(volume.path(name), 5));
    }
    dropOtherMounts(records);
    std::string left;
    for (const std::string& path : namesOf(records)) left += path.substr(volume.path().size() + 1) + ' ';
    return left;
  });
}

TEST(DuplicateMounts, fileThroughAnotherMountIsNoMember) {
  const test::TemporaryVolume volume;
  volume.file("Data/a", "same");
  volume.file("Data/sub/a", "same");
  const std::string left =
      leftThroughMounts(volume, {"Data/a", "Data/sub/a", "Sub/a", "View/a", "View/sub/a"});
  if (left == "skip") GTEST_SKIP() << "no mounting here";
  EXPECT_EQ(left, "Data/a Data/sub/a ");
}

TEST(DuplicateMounts, folderThroughAnotherMountIsNoMember) {
  const test::TemporaryVolume volume;
  volume.file("Data/sub/a", "same");
  volume.file("Data/twin/a", "same");
  const std::string left =
      leftThroughMounts(volume, {"Data/sub/", "Data/twin/", "Sub/", "View/sub/", "View/twin/"});
  if (left == "skip") GTEST_SKIP() << "no mounting here";
  EXPECT_EQ(left, "Data/sub Data/twin ");
}

TEST(DuplicateMounts, hardLinksAreMembersAlsoOfOneNameInTwoFolders) {
  const test::TemporaryVolume volume;
  const std::string path = volume.file("Data/a", "same");
  volume.folder("Data/sub");
  std::filesystem::create_hard_link(path, volume.path("Data/b"));
  std::filesystem::create_hard_link(path, volume.path("Data/sub/a"));
  const std::string left = leftThroughMounts(volume, {"Data/a", "Data/b", "Data/sub/a", "Sub/a", "View/b"});
  if (left == "skip") GTEST_SKIP() << "no mounting here";
  EXPECT_EQ(left, "Data/a Data/b Data/sub/a ");
}

TEST(DuplicateMounts, folderByALinkIsTheFolder) {
  const test::TemporaryVolume volume;
  volume.file("Data/a", "same");
  volume.link("Link", "Data");
  std::vector<DuplicateInfo> records = {folder(volume.path("Data"), 5, 1), folder(volume.path("Link"), 5, 1)};
  dropOtherMounts(records);
  EXPECT_EQ(namesOf(records), Names{volume.path("Data")});
}

TEST(DuplicateMounts, whatIsGoneStays) {
  std::vector<DuplicateInfo> records = {file("/none/a", 5), file("/none/a", 5), folder("/none", 5, 1)};
  dropOtherMounts(records);
  EXPECT_EQ(records.size(), 3U);
}

}  // namespace
}  // namespace sorrel
