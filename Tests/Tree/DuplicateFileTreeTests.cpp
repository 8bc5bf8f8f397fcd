#include "SorrelFramework/Tree/DuplicateFileTree.hpp"

#include <gtest/gtest.h>

namespace sorrel {
namespace {

TEST(DuplicateFolderInfo, valueIsTheDifferenceOfTheSumsOfCharacters) {
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("ab", "ba"), 0);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("a", "c"), 2);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("c", "a"), 2);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("", "a"), 97);
}

TEST(DuplicateFolderInfo, characterWithoutAnASCIIValueAddsNothing) {
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("a\u00e9", "a"), 0);
}

TEST(DuplicateNode, distanceStringIsTheSameInAnyOrder) {
  const std::string text = DuplicateNode::calculationDistanceString({"a", "c", "b"});
  EXPECT_EQ(text, DuplicateNode::calculationDistanceString({"c", "b", "a"}));
  EXPECT_EQ(text, "3944B025C9CA7EEC3154B44666AE04A0");  // of "cba"
  EXPECT_EQ(DuplicateNode::calculationDistanceString({}), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(DuplicateNode, keepsItsFields) {
  const auto shared = std::make_shared<DuplicateFolderInfo>();
  DuplicateNode node{1, 2, 3, {"/folder"}, {"/file"}, {}, {}, shared};
  node.inputNode(nullptr, nullptr, {"/other"}, "md5");
  EXPECT_EQ(node.nodeDeep, 1);
  EXPECT_EQ(node.nodePropertyValue, 2);
  EXPECT_EQ(node.fileOrFolderNode, 3);
  EXPECT_EQ(node.folderPaths, std::vector<std::string>{"/folder"});
  EXPECT_EQ(node.filePaths, std::vector<std::string>{"/file"});
  EXPECT_TRUE(node.sameFiles.empty());
  EXPECT_TRUE(node.childrenNode.empty());
  EXPECT_EQ(node.folderInfo, shared);
}

TEST(DuplicateFileTree, operationsDoNothing) {
  DuplicateFileTree tree;
  tree.addNode("md5", nullptr);
  tree.tree();
}

}  // namespace
}  // namespace sorrel
