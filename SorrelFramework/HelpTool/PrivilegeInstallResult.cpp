#include "SorrelFramework/HelpTool/PrivilegeInstallResult.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace sorrel {
namespace {

struct BlessText {
  std::int64_t code;
  std::string_view text;
};

constexpr BlessText kBlessTexts[] = {
    {2, "blessError: kSMErrorInternalFailure"},
    {3, "blessError: kSMErrorInvalidSignature"},
    {4, "blessError: kSMErrorAuthorizationFailure"},
    {5, "blessError: kSMErrorToolNotValid"},
    {6, "blessError: kSMErrorJobNotFound"},
    {7, "blessError: kSMErrorServiceUnavailable"},
    {9, "Privilege Helper is disabled by other process. The command has been copied to your pasteboard"},
    {10, "blessError: kSMErrorInvalidPlist"},
};

std::string blessText(std::int64_t code) {
  const auto row = std::ranges::find(kBlessTexts, code, &BlessText::code);
  return row == std::end(kBlessTexts) ? "bless unknown error:" + std::to_string(code)
                                      : std::string(row->text);
}

}  // namespace

std::string PrivilegeInstallResult::content() const {
  switch (case_) {
    case Case::BlessError:
      return blessText(code_);
    case Case::Success:
      return "";
    case Case::AuthorizationFail:
      return "Create authorization fail!";
    case Case::GetAdmainFail:
      return "Get admain authorization fail!";
  }
  return "";
}

}  // namespace sorrel
