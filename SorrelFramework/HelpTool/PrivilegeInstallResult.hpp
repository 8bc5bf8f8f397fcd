#pragma once

#include <cstdint>
#include <string>

namespace sorrel {

/// The result of the installation of the privileged helper: one of four cases, the first of them with a code.
class PrivilegeInstallResult {
 public:
  /// The installer failed. Codes 2 to 7, 9 and 10 have texts of their own.
  [[nodiscard]] static constexpr PrivilegeInstallResult blessError(std::int64_t code) {
    return {Case::BlessError, code};
  }
  static const PrivilegeInstallResult success;
  /// No program or service of the system can ask for the authorisation.
  static const PrivilegeInstallResult authorizationFail;
  /// The user declined, or the system denied the authorisation.
  static const PrivilegeInstallResult getAdmainFail;

  /// The message for the user; "" for `success`. The text of code 9 promises a pasteboard: the application
  /// must provide it.
  [[nodiscard]] std::string content() const;

  friend bool operator==(const PrivilegeInstallResult&, const PrivilegeInstallResult&) = default;

 private:
  enum class Case { BlessError, Success, AuthorizationFail, GetAdmainFail };
  constexpr PrivilegeInstallResult(Case kind, std::int64_t code) : case_(kind), code_(code) {}

  Case case_;
  std::int64_t code_;
};

inline constexpr PrivilegeInstallResult PrivilegeInstallResult::success{Case::Success, 0};
inline constexpr PrivilegeInstallResult PrivilegeInstallResult::authorizationFail{Case::AuthorizationFail, 0};
inline constexpr PrivilegeInstallResult PrivilegeInstallResult::getAdmainFail{Case::GetAdmainFail, 0};

}  // namespace sorrel
