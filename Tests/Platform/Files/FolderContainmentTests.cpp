#include "SorrelFramework/Platform/Files/FolderContainment.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

using test::TemporaryVolume;

TEST(FolderContainment, itemInTheFolderIsInside) {
  const TemporaryVolume volume;
  EXPECT_EQ(containmentError(volume.file("root/a"), volume.path("root")), 0);
  EXPECT_EQ(containmentError(volume.file("root/b/c/d"), volume.path("root")), 0);
  EXPECT_EQ(containmentError(volume.path("root/absent"), volume.path("root")), 0);
}

TEST(FolderContainment, itemElsewhereIsOutside) {
  const TemporaryVolume volume;
  volume.folder("root");
  EXPECT_EQ(containmentError(volume.file("rootless/a"), volume.path("root")), EXDEV);
  EXPECT_EQ(containmentError(volume.file("b"), volume.path("root")), EXDEV);
  EXPECT_EQ(containmentError("/", volume.path("root")), EXDEV);
}

TEST(FolderContainment, folderIsNotInItself) {
  const TemporaryVolume volume;
  EXPECT_EQ(containmentError(volume.folder("root"), volume.path("root")), EXDEV);
}

TEST(FolderContainment, linkAboveAnItemCountsForWhereItLeads) {
  const TemporaryVolume volume;
  volume.file("root/d/a");
  volume.file("other/a");
  volume.link("root/out", volume.path("other"));
  volume.link("root/up", "../other");
  volume.link("root/in", "d");
  volume.link("other/back", volume.path("root/d"));
  EXPECT_EQ(containmentError(volume.path("root/out/a"), volume.path("root")), EXDEV);
  EXPECT_EQ(containmentError(volume.path("root/up/a"), volume.path("root")), EXDEV);
  EXPECT_EQ(containmentError(volume.path("root/in/a"), volume.path("root")), 0);
  EXPECT_EQ(containmentError(volume.path("other/back/a"), volume.path("root")), 0);
}

TEST(FolderContainment, itemItselfIsNotFollowed) {
  const TemporaryVolume volume;
  volume.folder("root");
  EXPECT_EQ(containmentError(volume.link("root/out", "/"), volume.path("root")), 0);
}

TEST(FolderContainment, dotsCountForWhereTheyLead) {
  const TemporaryVolume volume;
  volume.file("root/d/a");
  volume.file("b");
  EXPECT_EQ(containmentError(volume.path("root/d/../../b"), volume.path("root")), EXDEV);
  EXPECT_EQ(containmentError(volume.path("root/d/../d/a"), volume.path("root")), 0);
}

TEST(FolderContainment, rootMayBeNamedThroughALink) {
  const TemporaryVolume volume;
  volume.file("root/a");
  volume.link("alias", volume.path("root"));
  EXPECT_EQ(containmentError(volume.path("root/a"), volume.path("alias")), 0);
  EXPECT_EQ(containmentError(volume.path("alias/a"), volume.path("root")), 0);
}

TEST(FolderContainment, whatCannotBeReachedIsTold) {
  const TemporaryVolume volume;
  volume.folder("root");
  volume.file("root/file");
  EXPECT_EQ(containmentError(volume.path("root/absent/a"), volume.path("root")), ENOENT);
  EXPECT_EQ(containmentError(volume.path("root/file/a"), volume.path("root")), ENOTDIR);
  EXPECT_EQ(containmentError(volume.path("root/a"), volume.path("absent")), ENOENT);
}

TEST(FolderContainment, onlyAnAbsolutePathOfBytesIsInside) {
  const TemporaryVolume volume;
  const std::string root = volume.folder("root");
  EXPECT_EQ(containmentError("root/a", root), EXDEV);
  EXPECT_EQ(containmentError("", root), EXDEV);
  EXPECT_EQ(containmentError(root + "/a" + std::string(1, '\0') + "b", root), EXDEV);
}

TEST(FolderContainment, pathsOfAnyLengthAreFollowed) {
  const TemporaryVolume volume;
  const std::string deep = volume.chain("root", std::string(200, 'n'), 40);
  ASSERT_GT(deep.size(), 8000U);
  EXPECT_EQ(containmentError(deep + "/a", volume.path("root")), 0);
  EXPECT_EQ(containmentError(deep + "/a", volume.path("Users")), EXDEV);
}

TEST(FolderContainment, foldersUpFromTheCurrentOneEndAtTheRoot) {
  const TemporaryVolume volume;
  volume.folder("a/b");
  const std::string answer = test::inChild([&] {
    if (::chdir(volume.path("a/b").c_str()) != 0) return std::string("no chdir");
    return std::string(foldersUpFrom(".") == foldersUpFrom(volume.path("a/b")) ? "same" : "differ");
  });
  EXPECT_EQ(answer, "same");
  EXPECT_EQ(foldersUpFrom(volume.path("a/b")).back(), foldersUpFrom("/").front());
  EXPECT_EQ(foldersUpFrom("/").size(), 1U);
  EXPECT_TRUE(foldersUpFrom(volume.path("absent")).empty());
}

}  // namespace
}  // namespace sorrel
