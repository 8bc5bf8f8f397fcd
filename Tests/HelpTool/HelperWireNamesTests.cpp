#include "SorrelFramework/HelpTool/HelperWireNames.hpp"

#include <gtest/gtest.h>

#include <string>

namespace sorrel {
namespace {

TEST(HelperWireNames, followFromTheServiceName) {
  const HelperWireNames names("org.my-company.appHelper");
  EXPECT_EQ(names.service, "org.my-company.appHelper");
  EXPECT_EQ(names.interface, "org.my_company.appHelper");
  EXPECT_EQ(names.objectPath, "/org/my_company/appHelper");
  EXPECT_EQ(names.refusalName(), "org.my_company.appHelper.Error.Refused");
  EXPECT_TRUE(names.isValid());
}

TEST(HelperWireNames, theBusTakesNoOtherNames) {
  for (const char* name :
       {"", "Helper", ".Helper", "org.", "org..a", "org.1a", "org.a b", "org.a/b", ":1.5x", "org.\xc3\xa4"}) {
    EXPECT_FALSE(HelperWireNames(name).isValid()) << name;
  }
  EXPECT_TRUE(HelperWireNames("a." + std::string(253, 'b')).isValid());
  EXPECT_FALSE(HelperWireNames("a." + std::string(254, 'b')).isValid());
}

}  // namespace
}  // namespace sorrel
