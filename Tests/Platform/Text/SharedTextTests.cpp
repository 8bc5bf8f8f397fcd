#include "SorrelFramework/Platform/Text/SharedText.hpp"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace sorrel {
namespace {

TEST(SharedText, copiesShareOneBlock) {
  const SharedText text("/Users/alice");
  const SharedText copy = text;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.view().data(), text.view().data());
}

TEST(SharedText, isOnePointerWide) { EXPECT_EQ(sizeof(SharedText), sizeof(void*)); }

TEST(SharedText, joinsTwoPieces) {
  EXPECT_EQ(SharedText("file://", "/a").view(), "file:///a");
  EXPECT_EQ(SharedText("", "/a").view(), "/a");
  EXPECT_EQ(SharedText("file://", "").view(), "file://");
}

TEST(SharedText, keepsEveryByte) {
  const std::string bytes("a\0\xFF\n", 4);
  EXPECT_EQ(SharedText(bytes).view(), bytes);
}

TEST(SharedText, emptyTextsAreEqualAndEmpty) {
  EXPECT_TRUE(SharedText().empty());
  EXPECT_TRUE(SharedText("").empty());
  EXPECT_TRUE(SharedText("", "").empty());
  EXPECT_EQ(SharedText(""), SharedText());
  EXPECT_EQ(SharedText().view(), "");
}

TEST(SharedText, equalityGoesByContent) {
  EXPECT_EQ(SharedText("abc"), SharedText("a", "bc"));
  EXPECT_FALSE(SharedText("abc") == SharedText("abd"));
  EXPECT_FALSE(SharedText("abc") == SharedText());
}

TEST(SharedText, movedFromTextIsEmpty) {
  SharedText text("abc");
  const SharedText taken = std::move(text);
  EXPECT_EQ(taken.view(), "abc");
  EXPECT_TRUE(text.empty());  // NOLINT(bugprone-use-after-move): that is the question
}

TEST(SharedText, assignmentKeepsTheTextOfOthers) {
  SharedText text("old");
  const SharedText copy = text;
  text = SharedText("new");
  EXPECT_EQ(text.view(), "new");
  EXPECT_EQ(copy.view(), "old");
  const SharedText& itself = text;
  text = itself;
  EXPECT_EQ(text.view(), "new");
}

TEST(SharedText, lastCopyMayEndOnAnyThread) {
  for (int round = 0; round < 50; ++round) {
    std::vector<std::thread> threads;
    {
      const SharedText text("shared by all threads");
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = text] {
          const SharedText another = copy;  // NOLINT(performance-unnecessary-copy-initialization)
          EXPECT_EQ(another.view(), "shared by all threads");
        });
      }
    }
    for (std::thread& thread : threads) thread.join();
  }
}

}  // namespace
}  // namespace sorrel
