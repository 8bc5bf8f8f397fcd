// `sorrel modules`, from outside.
#include <gtest/gtest.h>

#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {
namespace {

TEST(ModulesCommand, documentHoldsTheWholeCatalogue) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const std::string file =
      volume.text("test.plist", catalogue({{1, {{0, "SystemCache", {"file://~/Library/Caches/"}}}}}));
  const std::string url = "file://" + volume.path("Users/alice/Library/Caches/");

  const ProgramRun run = sorrel({"--volume", volume.path(), "--catalogue", file, "--json", "modules"});

  EXPECT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  const std::string hash =
      document.at("modules").at(0).at("featureInfo").at(0).at("categoryInfo").at(0).at("hashValueString");
  EXPECT_EQ(hash.size(), 32U);
  const Json category = {{"finderID", 0},
                         {"title", "Row 0"},
                         {"description", "About row 0"},
                         {"kind", 2},
                         {"size", 0},
                         {"state", 0},
                         {"levelInt", 0},
                         {"needRemoveCategory", false},
                         {"hashValueString", hash},
                         {"urls", Json::array({url})},
                         {"childrens", Json::array()},
                         {"childrenCateogry", nullptr}};
  const Json feature = {{"finderID", 1},
                        {"state", 0},
                        {"title", "Feature 1"},
                        {"description", "About it"},
                        {"categoryInfo", Json::array({category})}};
  const Json module = {{"finderID", 1},    {"title", "Cleaner"},
                       {"type", "Main"},   {"description", "Cleans"},
                       {"version", "1.0"}, {"featureInfo", Json::array({feature})}};
  EXPECT_EQ(run.out, Json({{"modules", Json::array({module})}}).dump() + "\n");
  EXPECT_EQ(run.err, "");
}

TEST(ModulesCommand, childRowsOfASyntheticRowAreNested) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const ProgramRun run = sorrel({"--volume", volume.path(), "--json", "modules"});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  for (const Json& module : document.at("modules")) {
    for (const Json& feature : module.at("featureInfo")) {
      if (feature.at("finderID") != 3) continue;
      EXPECT_EQ(feature.at("categoryInfo").size(), 1U);
      EXPECT_EQ(feature.at("categoryInfo").at(0).at("childrenCateogry").size(), 12U);
      return;
    }
  }
  FAIL() << "no feature 3";
}

TEST(ModulesCommand, treeNamesTheFeaturesAsScanTakesThem) {
  const TemporaryFolder volume;
  volume.folder("Users/alice");
  const ProgramRun run = sorrel({"--volume", volume.path(), "modules"});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* const name :
       {"system-junk", "trash", "large-old", "mail", "itunes", "photo-junk", "duplicates", "similar",
        "privacy", "uninstaller", "maintenance", "optimization"}) {
    EXPECT_NE(run.out.find(std::string("  ") + name + " "), std::string::npos) << name << "\n" << run.out;
  }
  EXPECT_NE(run.out.find(volume.path("Users/alice/Library/Caches")), std::string::npos);
}

TEST(ModulesCommand, thisMachineHasTheDesktopsCatalogue) {
  const TemporaryFolder home;
  const ProgramRun run = sorrel({"--json", "modules"}, {.environment = {"HOME=" + home.path()}});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("file://" + home.path(".cache/")), std::string::npos) << run.out;
}

TEST(ModulesCommand, xdgFoldersTakeThePlaceOfTheUsualOnes) {
  const TemporaryFolder home;
  const ProgramRun run =
      sorrel({"--json", "modules"},
             {.environment = {"HOME=" + home.path(), "XDG_CACHE_HOME=" + home.path("elsewhere")}});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("file://" + home.path("elsewhere/")), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("/.cache/"), std::string::npos) << run.out;
}

}  // namespace
}  // namespace sorrel::hosttests
