#include "SorrelFramework/Clean/FileRemover.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include "SorrelFramework/Platform/Files/RemovalErrorText.hpp"
#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

class FileRemoverTest : public testing::Test {
 protected:
  test::CleanStage stage_;
};

TEST_F(FileRemoverTest, removedItemHasNoText) {
  const std::string path = stage_.volume.file("a", "x");
  EXPECT_EQ(FileRemover::shard().begin().removeItem(stage_.volume.url("a")), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileRemoverTest, missingItemIsToldByName) {
  EXPECT_EQ(FileRemover::shard().begin().removeItem(stage_.volume.url("d/a b/")),
            "“a b” couldn’t be removed.");
}

TEST_F(FileRemoverTest, whatTheFenceRefusesIsNotTried) {
  stage_.failRemoving({}, 0);
  const FileRemover::Session session = FileRemover::shard().begin();
  EXPECT_NE(session.removeItem(URL()), std::nullopt);
  EXPECT_EQ(session.removeItem(URL::fileURL("/usr/bin/env", false)),
            "“env” couldn’t be removed because you don’t have permission to access it.");
  EXPECT_TRUE(stage_.tried.empty());
}

TEST_F(FileRemoverTest, whatTheFenceRefusesStays) {
  const test::TemporaryFolder other;
  const std::string outside = other.file("d/a");
  stage_.volume.link("out", other.path("d"));
  stage_.volume.folder("d");
  const FileRemover::Session session = FileRemover::shard().begin();
  for (const std::string& path : {outside, stage_.volume.path("out/a"), other.path("absent")}) {
    EXPECT_EQ(session.removeItem(URL::fileURL(path, false)),
              "“" + std::filesystem::path(path).filename().string() +
                  "” couldn’t be removed because you don’t have permission to access it.");
  }
  EXPECT_NE(session.removeItem(*URL::parse(stage_.volume.url("d").absoluteString() + "#1")), std::nullopt);
  EXPECT_NE(session.removeItem(URL()), std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(outside));
  EXPECT_TRUE(std::filesystem::exists(stage_.volume.path("d")));
}

TEST_F(FileRemoverTest, currentFolderIsBusyRatherThanProtected) {
  const std::string folder = stage_.volume.folder("d/current");
  const std::string told = test::inChild([&]() -> std::string {
    if (::chdir(folder.c_str()) != 0) return "no chdir";
    const FileRemover::Session session = FileRemover::shard().begin();
    return session.removeItem(stage_.volume.url("d/")).value_or("gone");
  });
  EXPECT_EQ(told, removalErrorText("d", EBUSY));
  EXPECT_TRUE(std::filesystem::exists(folder));
}

TEST_F(FileRemoverTest, errorOfTheRemovalGivesTheText) {
  stage_.failRemoving({stage_.volume.path("a")}, ENOSPC);
  EXPECT_EQ(FileRemover::shard().begin().removeItem(stage_.volume.url("a")),
            "“a” couldn’t be removed because there isn’t enough space.");
}

TEST_F(FileRemoverTest, spellingOfAPathDoesNotCount) {
  stage_.failRemoving({}, 0);
  const std::string root = URL::fileURL(stage_.volume.path(), false).absoluteString();
  for (const std::string spelling : {"/d/a", "/d/a/", "//d///a//", "/./d/./a/.", "/d/%61", "/d/a%2F"}) {
    stage_.volume.file("d/a/b", "x");
    EXPECT_EQ(FileRemover::shard().begin().removeItem(*URL::parse(root + spelling)), std::nullopt)
        << spelling;
    EXPECT_FALSE(std::filesystem::exists(stage_.volume.path("d/a"))) << spelling;
    EXPECT_EQ(stage_.tried.back(), stage_.volume.path("d/a")) << spelling;
  }
}

TEST_F(FileRemoverTest, stepsUpAreRefused) {
  stage_.volume.file("d/a", "x");
  stage_.volume.folder("e");
  const std::string root = URL::fileURL(stage_.volume.path(), false).absoluteString();
  EXPECT_NE(FileRemover::shard().begin().removeItem(*URL::parse(root + "/e/../d/a")), std::nullopt);
  EXPECT_NE(FileRemover::shard().begin().removeItem(*URL::parse(root + "/e/..")), std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(stage_.volume.path("d/a")));
}

TEST_F(FileRemoverTest, ownReadOnlyFolderIsEmptiedWithTheSwitchAlone) {
  stage_.volume.setMode("", 0777);
  stage_.volume.file("cache/module/file", "x");
  if (::geteuid() == 0) stage_.volume.setOwner("cache", test::kPlainUser);
  if (::geteuid() == 0) stage_.volume.setOwner("cache/module", test::kPlainUser);
  stage_.volume.setMode("cache/module", 0555);
  const auto removed = [this](bool opens) {
    return test::inPlainChild([this, opens] {
      CleanService::opensOwnFolders = opens;
      return FileRemover::shard().begin().removeItem(stage_.volume.url("cache/")).value_or("gone");
    });
  };
  EXPECT_EQ(removed(false), removalErrorText("cache", EACCES));
  EXPECT_EQ(std::filesystem::status(stage_.volume.path("cache/module")).permissions(),
            std::filesystem::perms{0555});
  EXPECT_EQ(removed(true), "gone");
}

TEST_F(FileRemoverTest, homesAndTrashesStay) {
  stage_.volume.file("Users/alice/.Trash/a", "x");
  const FileRemover::Session session = FileRemover::shard().begin();
  for (const std::string name : {"Users/", "Users/alice/", "Users/alice/.Trash/", "Users/alice/.Trash//"}) {
    EXPECT_NE(session.removeItem(stage_.volume.url(name)), std::nullopt) << name;
  }
  EXPECT_EQ(session.removeItem(stage_.volume.url("Users/alice/.Trash/a")), std::nullopt);
}

}  // namespace
}  // namespace sorrel
