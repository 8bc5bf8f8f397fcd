#include "SorrelFramework/HelpTool/ClosePrivilegeTool.hpp"

#include <gtest/gtest.h>

#include <memory>

#include "SorrelFramework/HelpTool/PrivilegeHelper.hpp"
#include "Tests/Support/ScriptedHelper.hpp"

namespace sorrel {
namespace {

TEST(ClosePrivilegeTool, closesTheHelperOfTheSharedInstance) {
  const auto helper = std::make_shared<test::ScriptedHelper>();
  const test::HelperForShard shard(helper);
  ClosePrivilegeTool::CloseHelper();
  EXPECT_TRUE(helper->events().empty());
  ASSERT_EQ(PrivilegeHelper::shard().getHelperTool("org.example.testHelper", kSMDomainSystemLaunchd).helper,
            helper);
  ClosePrivilegeTool::CloseHelper();
  ASSERT_EQ(helper->events().size(), 1U);
  EXPECT_EQ(helper->events()[0].id, 3);
}

}  // namespace
}  // namespace sorrel
