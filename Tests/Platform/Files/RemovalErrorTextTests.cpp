#include "SorrelFramework/Platform/Files/RemovalErrorText.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace sorrel {
namespace {

TEST(RemovalErrorText, missingRightsAreNamed) {
  for (const int error : {EACCES, EPERM}) {
    EXPECT_EQ(
        removalErrorText("a b.txt", error),
        "\u201Ca b.txt\u201D couldn\u2019t be removed because you don\u2019t have permission to access it.");
  }
}

TEST(RemovalErrorText, stateOfTheVolumeIsNamed) {
  EXPECT_EQ(removalErrorText("a", EROFS),
            "\u201Ca\u201D couldn\u2019t be removed because the volume is read only.");
  for (const int error : {ENOSPC, EDQUOT}) {
    EXPECT_EQ(removalErrorText("a", error),
              "\u201Ca\u201D couldn\u2019t be removed because there isn\u2019t enough space.");
  }
}

TEST(RemovalErrorText, anyOtherErrorHasNoCause) {
  for (const int error : {ENOENT, EIO, ENOTEMPTY, EINVAL, EBUSY, 0, 9999}) {
    EXPECT_EQ(removalErrorText("a", error), "\u201Ca\u201D couldn\u2019t be removed.");
  }
}

TEST(RemovalErrorText, nameThatIsNoTextIsShownAsOne) {
  EXPECT_EQ(removalErrorText("a\xFF", ENOENT), "\u201Ca\uFFFD\u201D couldn\u2019t be removed.");
}

}  // namespace
}  // namespace sorrel
