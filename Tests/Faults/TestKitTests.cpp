// The safeguards that keep the tests themselves from doing harm.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tests/Support/CleanKit.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/TreeRemoval.hpp"

namespace sorrel {
namespace {

/// A folder with a file that the kit did not make.
class Foreign {
 public:
  Foreign() : path_((std::filesystem::temp_directory_path() / "sorrel-foreign-XXXXXX").string()) {
    EXPECT_NE(::mkdtemp(path_.data()), nullptr);
    std::ofstream(file()) << "precious";
  }
  ~Foreign() {
    ::unlink(file().c_str());
    ::rmdir(path_.c_str());
  }
  Foreign(const Foreign&) = delete;
  Foreign& operator=(const Foreign&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string file() const { return path_ + "/file"; }

 private:
  std::string path_;
};

TEST(TestKit, removesNothingOutsideItsFolders) {
  const Foreign foreign;
  const test::TemporaryFolder own;
  ASSERT_EQ(::symlink(foreign.path().c_str(), own.path("link").c_str()), 0);
  for (const std::string& path :
       {foreign.file(), foreign.path(), own.path("link/file"), std::string(),
        own.path() + "/../" + foreign.path().substr(foreign.path().rfind('/') + 1)}) {
    EXPECT_FALSE(test::removeTree(path)) << path;
  }
  EXPECT_EQ(test::contentOf(foreign.file()), "precious");
}

TEST(TestKit, removesWhatLiesInItsFolders) {
  const test::TemporaryFolder own;
  own.file("d/e/file");
  EXPECT_TRUE(test::removeTree(own.path("d")));
  EXPECT_FALSE(std::filesystem::exists(own.path("d")));
}

TEST(TestKit, scriptedHelperDeletesNothingOutsideItsFolders) {
  const Foreign foreign;
  const auto answer = test::deletingWhere([](const auto&) { return true; });
  const auto reply = answer({0, {{foreign.file(), HelperDictionary{{"0", 0}}}}});
  ASSERT_TRUE(reply.has_value());
  const HelperDictionary& entry = *reply->dictionary->at(foreign.file()).asDictionary();
  EXPECT_EQ(*entry.at("DeleteStatus").asNumber(), static_cast<std::int64_t>(HelperEventErrorID::DeleteError));
  EXPECT_EQ(test::contentOf(foreign.file()), "precious");
}

}  // namespace
}  // namespace sorrel
