#include "SorrelFramework/HelpTool/ClosePrivilegeTool.hpp"

#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"

namespace sorrel {

void ClosePrivilegeTool::CloseHelper() { PrivilegeHelper::shard().closeHelper(); }

}  // namespace sorrel
