#pragma once

namespace sorrel {

/// For an application that quits: requests the privileged helper to end with it.
class ClosePrivilegeTool {
 public:
  ClosePrivilegeTool() = delete;

  /// PrivilegeHelper::closeHelper() of the shared instance.
  static void CloseHelper();
};

}  // namespace sorrel
