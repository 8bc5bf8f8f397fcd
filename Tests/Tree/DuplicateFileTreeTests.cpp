#include "SorrelFramework/Tree/DuplicateFileTree.hpp"

#include <gtest/gtest.h>

#include "SorrelFramework/Units/MD5.hpp"

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
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("ae\u0301a", "aa"), 0);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("\u06001a", "a"), 0);  // a sign that precedes its number
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("\u00e9a", "a"), 0);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("a\u65e5b", "ab"), 0);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("a\xff", "a"), 0);
}

TEST(DuplicateFolderInfo, endOfLineIsOneCharacter) {
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("\r\n", ""), 10);
  EXPECT_EQ(DuplicateFolderInfo::calculateValue("\n\r", ""), 23);
}

TEST(DuplicateNode, distanceStringIsTheSameInAnyOrder) {
  const std::string text = DuplicateNode::calculationDistanceString({"a", "c", "b"});
  EXPECT_EQ(text, DuplicateNode::calculationDistanceString({"c", "b", "a"}));
  EXPECT_EQ(text, "3944B025C9CA7EEC3154B44666AE04A0");  // of "cba"
  EXPECT_EQ(DuplicateNode::calculationDistanceString({}), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(DuplicateNode, distanceStringOrdersTextsAsPeopleReadThem) {
  // "z" sorts after "e" and before a composed "é", in any encoding form.
  EXPECT_EQ(DuplicateNode::calculationDistanceString({"e\u0301", "z"}), MD5(std::string("e\u0301z")));
  EXPECT_EQ(DuplicateNode::calculationDistanceString({"e\u0301", "\u00e9"}),
            DuplicateNode::calculationDistanceString({"\u00e9", "e\u0301"}));
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
