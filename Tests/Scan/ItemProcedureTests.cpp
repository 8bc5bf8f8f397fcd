#include "SorrelFramework/Scan/ItemProcedure.hpp"

#include <gtest/gtest.h>

namespace sorrel {
namespace {

ResourceValues values(std::optional<bool> isPackage, std::optional<bool> isDirectory) {
  ResourceValues found;
  found.isPackage = isPackage;
  found.isDirectory = isDirectory;
  return found;
}

TEST(ItemProcedure, packageWinsOverFolderAndAbsentValuesCountAsFalse) {
  EXPECT_EQ(kindOf(values(true, true)), rawValue(FilesKind::Package));
  EXPECT_EQ(kindOf(values(false, true)), rawValue(FilesKind::Folder));
  EXPECT_EQ(kindOf(values(std::nullopt, true)), rawValue(FilesKind::Folder));
  EXPECT_EQ(kindOf(values(true, std::nullopt)), rawValue(FilesKind::Package));
  EXPECT_EQ(kindOf(values(std::nullopt, std::nullopt)), rawValue(FilesKind::File));
}

TEST(ItemProcedure, itemOfAFolderThatCannotBeWrittenMayNotBeDeleted) {
  DeletionRule rule;
  EXPECT_FALSE(rule.canDelete(FolderRights{false, false}, 54321));
  EXPECT_TRUE(rule.canDelete(FolderRights{true, false}, 54321)) << "an id without a name belongs to nobody";
}

TEST(ItemProcedure, missingItemInAWritableFolderCountsAsNobodys) {
  EXPECT_TRUE(DeletionRule().canDelete("/tmp/there is no such item"));
  EXPECT_FALSE(DeletionRule().canDelete("/there is no such folder/item"));
}

}  // namespace
}  // namespace sorrel
