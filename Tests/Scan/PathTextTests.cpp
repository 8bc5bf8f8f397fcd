#include "SorrelFramework/Scan/PathText.hpp"

#include <gtest/gtest.h>

namespace sorrel {
namespace {

TEST(PathText, schemeIsRemovedAndThePathIsDecoded) {
  EXPECT_EQ(pathTextOf(URL::fileURL("/a b/ö%20#", false)), "/a b/ö%20#");
  EXPECT_EQ(pathInText("file://file:///a%20b"), "/a b");
}

TEST(PathText, textThatCannotBeDecodedGivesNothing) {
  EXPECT_EQ(pathTextOf(URL::fileURL("/a\xFF", false)), "");
  EXPECT_EQ(pathInText("/a%zz"), "");
}

}  // namespace
}  // namespace sorrel
