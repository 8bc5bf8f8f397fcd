#include "SorrelFramework/Scan/PackageSize.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace sorrel {
namespace {

TEST(PackageSize, logicalSizeWinsOverThePhysicalOne) {
  EXPECT_EQ(packageSizeInOutput("kMDItemPhysicalSize = 4096\nkMDItemFSSize       = 10\n"), 10);
}

TEST(PackageSize, physicalSizeCountsWhereItStandsAlone) {
  EXPECT_EQ(packageSizeInOutput("kMDItemKind = \"Application\"\nkMDItemPhysicalSize = 4096\n"), 4096);
}

TEST(PackageSize, outputWithoutASizeLineGivesZero) {
  EXPECT_EQ(packageSizeInOutput(""), 0);
  EXPECT_EQ(packageSizeInOutput("Error"), 0);
  EXPECT_EQ(packageSizeInOutput("kMDItemLogicalSize = 7\n"), 0);
}

TEST(PackageSize, lineWithoutDigitsGivesZero) {
  EXPECT_EQ(packageSizeInOutput("kMDItemFSSize = (null)\n"), 0);
}

TEST(PackageSize, firstLineInTextOrderWinsEvenWithoutDigits) {
  EXPECT_EQ(packageSizeInOutput("kMDItemPhysicalSize = 4096\nkMDItemFSSize = (null)"), 0);
}

TEST(PackageSize, lastLineNeedsNoLineFeed) { EXPECT_EQ(packageSizeInOutput("kMDItemFSSize = 12"), 12); }

TEST(PackageSize, firstNumberOfTheLineCountsWithoutItsSign) {
  EXPECT_EQ(packageSizeInOutput("kMDItemFSSize = -12.75"), 12);
}

TEST(PackageSize, numberBeyondTheTypeGivesTheLargestOne) {
  EXPECT_EQ(packageSizeInOutput("kMDItemFSSize = 99999999999999999999"),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(packageSizeInOutput("kMDItemFSSize = 9223372036854775807"),
            std::numeric_limits<std::int64_t>::max());
}

}  // namespace
}  // namespace sorrel
