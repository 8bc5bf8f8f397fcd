// `sorrel clean` of a user's own read-only folders, from outside.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Tests/Host/CleanVolume.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;

class ReadOnlyFolderClean : public testing::Test {
 protected:
  static constexpr unsigned kUser = 10001;

  void SetUp() override {
    if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs root to give files away";
    volume_.file(kCacheFolder + "module/sub/file", 10);
    volume_.file(kCacheFolder + "plain", 5);
    fs::permissions(volume_.path(), fs::perms::all);
    for (const auto& entry : fs::recursive_directory_iterator(volume_.path())) {
      ASSERT_EQ(::lchown(entry.path().c_str(), kUser, kUser), 0) << entry.path();
    }
    setMode("module/sub", 0555);
    setMode("module", 0555);
  }
  void setMode(const std::string& name, mode_t mode) const {
    ASSERT_EQ(::chmod(volume_.path(kCacheFolder + name).c_str(), mode), 0);
  }
  [[nodiscard]] ProgramRun clean(const Words& more) const {
    Words words = {"1", "--all", "--yes"};
    words.insert(words.end(), more.begin(), more.end());
    return volume_.clean(words, {.user = kUser});
  }

  const Volume volume_{{kCaches}};
};

TEST_F(ReadOnlyFolderClean, goesWithoutAHelper) {
  const ProgramRun run = clean({});
  EXPECT_EQ(run.status, 0) << run.err << run.out;
  EXPECT_TRUE(fs::is_empty(volume_.path(kCacheFolder)));
}

TEST_F(ReadOnlyFolderClean, recordsInOneAreLeftForTheHelper) {
  setMode("", 0555);
  const Json document = clean({"--json"}).document();
  ASSERT_FALSE(document.at("clean").at("records").empty());
  for (const Json& record : document.at("clean").at("records")) {
    EXPECT_EQ(record.at("canDelete"), false) << record.at("path");
  }
  EXPECT_TRUE(fs::exists(volume_.path(kCacheFolder + "plain")));
  EXPECT_TRUE(fs::exists(volume_.path(kCacheFolder + "module/sub/file")));
  EXPECT_EQ(fs::status(volume_.path(kCacheFolder)).permissions(), fs::perms{0555});
}

TEST_F(ReadOnlyFolderClean, withEngineDefaultsStaysForTheHelper) {
  const ProgramRun run = clean({"--engine-defaults"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(fs::exists(volume_.path(kCacheFolder + "module/sub/file")));
  EXPECT_FALSE(fs::exists(volume_.path(kCacheFolder + "plain")));
  EXPECT_EQ(fs::status(volume_.path(kCacheFolder + "module")).permissions(), fs::perms{0555});
}

}  // namespace
}  // namespace sorrel::hosttests
