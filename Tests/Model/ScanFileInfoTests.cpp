#include "SorrelFramework/Model/ScanFileInfo.hpp"

#include <gtest/gtest.h>

#include "SorrelFramework/Platform/Text/URL.hpp"

namespace sorrel {
namespace {

TEST(ScanFilesInformation, aLocationAloneStartsAtNought) {
  const ScanFilesInformation totals(URL::fileURL("/a", true));
  EXPECT_EQ(totals.url.absoluteString(), "file:///a/");
  EXPECT_EQ(totals.folderSize, 0);
  EXPECT_EQ(totals.folderNumber, 0);
  EXPECT_EQ(totals.fileSize, 0);
  EXPECT_EQ(totals.fileNumber, 0);
}

TEST(ScanFilesInformation, argumentsGoToFoldersFirstThenToFiles) {
  const ScanFilesInformation totals(URL(), 1, 2, 3, 4);
  EXPECT_EQ(totals.folderSize, 1);
  EXPECT_EQ(totals.folderNumber, 2);
  EXPECT_EQ(totals.fileSize, 3);
  EXPECT_EQ(totals.fileNumber, 4);
}

TEST(ScanFilesInformation, sizesHoldMoreThanThirtyTwoBits) {
  ScanFilesInformation totals;
  totals.fileSize = std::int64_t{1} << 62;
  EXPECT_EQ(totals.fileSize, 4'611'686'018'427'387'904);
}

}  // namespace
}  // namespace sorrel
