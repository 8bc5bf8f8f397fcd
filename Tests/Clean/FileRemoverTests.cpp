#include "SorrelFramework/Clean/FileRemover.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include "Tests/Support/CleanKit.hpp"

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

TEST_F(FileRemoverTest, errorOfTheRemovalGivesTheText) {
  stage_.failRemoving({stage_.volume.path("a")}, ENOSPC);
  EXPECT_EQ(FileRemover::shard().begin().removeItem(stage_.volume.url("a")),
            "“a” couldn’t be removed because there isn’t enough space.");
}

}  // namespace
}  // namespace sorrel
