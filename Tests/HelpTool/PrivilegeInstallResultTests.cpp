#include "SorrelFramework/HelpTool/PrivilegeInstallResult.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace sorrel {
namespace {

TEST(PrivilegeInstallResult, casesWithoutACodeHaveTheirTexts) {
  EXPECT_EQ(PrivilegeInstallResult::success.content(), "");
  EXPECT_EQ(PrivilegeInstallResult::authorizationFail.content(), "Create authorization fail!");
  EXPECT_EQ(PrivilegeInstallResult::getAdmainFail.content(), "Get admain authorization fail!");
}

TEST(PrivilegeInstallResult, blessErrorNamesTheCode) {
  const std::pair<std::int64_t, const char*> kRows[] = {
      {2, "blessError: kSMErrorInternalFailure"},
      {3, "blessError: kSMErrorInvalidSignature"},
      {4, "blessError: kSMErrorAuthorizationFailure"},
      {5, "blessError: kSMErrorToolNotValid"},
      {6, "blessError: kSMErrorJobNotFound"},
      {7, "blessError: kSMErrorServiceUnavailable"},
      {9, "Privilege Helper is disabled by other process. The command has been copied to your pasteboard"},
      {10, "blessError: kSMErrorInvalidPlist"},
  };
  for (const auto& [code, text] : kRows) EXPECT_EQ(PrivilegeInstallResult::blessError(code).content(), text);
}

TEST(PrivilegeInstallResult, blessErrorOfAnyOtherCodeIsUnknown) {
  EXPECT_EQ(PrivilegeInstallResult::blessError(8).content(), "bless unknown error:8");
  EXPECT_EQ(PrivilegeInstallResult::blessError(0).content(), "bless unknown error:0");
  EXPECT_EQ(PrivilegeInstallResult::blessError(1).content(), "bless unknown error:1");
  EXPECT_EQ(PrivilegeInstallResult::blessError(11).content(), "bless unknown error:11");
  EXPECT_EQ(PrivilegeInstallResult::blessError(-60005).content(), "bless unknown error:-60005");
}

TEST(PrivilegeInstallResult, casesDiffer) {
  EXPECT_EQ(PrivilegeInstallResult::blessError(2), PrivilegeInstallResult::blessError(2));
  EXPECT_NE(PrivilegeInstallResult::blessError(2), PrivilegeInstallResult::blessError(3));
  EXPECT_NE(PrivilegeInstallResult::blessError(0), PrivilegeInstallResult::success);
}

}  // namespace
}  // namespace sorrel
