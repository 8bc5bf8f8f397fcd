#include "Helper/PathResult.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace sorrel::helper {
namespace {

TEST(PathResult, aRefusalTellsNothing) {
  const PathResult result = failed(HelperEventErrorID::MoveFail, "Couldn’t be moved", EBUSY, true);
  EXPECT_EQ(result.status, HelperEventErrorID::MoveFail);
  EXPECT_EQ(result.desc, "This item isn’t one that may be changed this way.");
  EXPECT_EQ(refused(HelperEventErrorID::DeleteError).desc, kRefusedItemText);
}

TEST(PathResult, aFailureIsToldInTheSystemsWords) {
  const PathResult result = failed(HelperEventErrorID::DeleteError, "Couldn’t be removed", ENOTEMPTY);
  EXPECT_FALSE(result.isSuccess());
  EXPECT_EQ(result.desc, "Couldn’t be removed: Directory not empty");
  EXPECT_EQ(failed(HelperEventErrorID::DeleteError, "No", 99999).desc, "No: unknown error");
}

TEST(PathResult, aSuccessHasNoText) {
  EXPECT_TRUE(succeeded().isSuccess());
  EXPECT_EQ(succeeded().desc, "");
}

}  // namespace
}  // namespace sorrel::helper
