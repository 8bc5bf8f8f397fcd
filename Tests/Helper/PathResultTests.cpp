#include "Helper/PathResult.hpp"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Helper/DeleteOperation.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/RemovalKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::helper {
namespace {

TEST(PathResult, aRefusalSaysNothingAboutTheItem) {
  const RemovalTarget target = RemovalTarget::find("/", RemovalPolicy::forUser());
  const PathResult result = failed(HelperEventErrorID::MoveFail, "Couldn’t be moved", target);
  EXPECT_EQ(result.status, HelperEventErrorID::MoveFail);
  EXPECT_EQ(result.desc, "This item isn’t one that may be changed this way.");
  EXPECT_EQ(refused(HelperEventErrorID::DeleteError).desc, kRefusedItemText);
}

TEST(PathResult, aRefusalOfAThirdUsersItemNamesTheUser) {
  if (!test::canBeOtherUsers()) GTEST_SKIP() << "only root can give files away";
  const test::TemporaryVolume volume;
  const std::string file = volume.file("folder/file", "x");
  const RemovalPolicy policy = RemovalPolicy::forHelper(test::kKnownUser);
  const auto textOf = [&](const std::string& path) {
    return deletePath(path, viewOf(path), policy).desc.substr(kRefusedItemText.size());
  };
  volume.setOwner("folder/file", 1);
  const std::string name = ::getpwuid(1)->pw_name;
  EXPECT_EQ(textOf(file), " It belongs to " + name + ".");
  EXPECT_EQ(textOf(volume.path("folder")), " Something in it belongs to " + name + ".");
  uid_t nameless = test::kKnownUser - 1;  // a user namespace has no higher ones
  while (::getpwuid(nameless) != nullptr) --nameless;
  volume.setOwner("folder/file", nameless);
  EXPECT_EQ(textOf(file), " It belongs to user " + std::to_string(nameless) + ".");
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
