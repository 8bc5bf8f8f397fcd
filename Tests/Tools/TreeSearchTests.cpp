#include "Tools/TreeSearch.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryVolume.hpp"
#include "Tests/Tools/InMemory.hpp"

namespace sorrel::tools {
namespace {

using Names = std::vector<std::string>;

class TreeSearch : public testing::Test {
 protected:
  Names search(const std::string& query, const std::string& folder = "top") {
    return below(searchTree(volume.path(folder), FindQuery::parse(query).value()));
  }
  Names below(const std::vector<std::string>& paths) {
    Names names;
    for (const std::string& path : paths) {
      const std::string root = volume.path("top") + "/";
      names.push_back(path.starts_with(root) ? path.substr(root.size()) : path);
    }
    return names;
  }

  test::InMemory memory;
  test::TemporaryVolume volume;
};

const std::string kNotEmpty = "kMDItemFSSize > 0";
const std::string kAll = "kMDItemFSName == *";

TEST_F(TreeSearch, findsAtEveryDepthAFolderBeforeWhatLiesInIt) {
  for (const char* name : {"top/a.b", "top/a/z", "top/a/b/c", "top/B", "top/a/Z"}) volume.file(name, "1");
  EXPECT_EQ(search(kNotEmpty), (Names{"B", "a/Z", "a/b/c", "a/z", "a.b"}));
  EXPECT_EQ(search(kAll), (Names{"B", "a", "a/Z", "a/b", "a/b/c", "a/z", "a.b"}));
}

TEST_F(TreeSearch, hiddenFilesAreFoundAndWhatLiesInHiddenFoldersIsNot) {
  volume.file("top/.file", "1");
  volume.file("top/.folder/file", "1");
  EXPECT_EQ(search(kAll), Names{".file"});
}

TEST_F(TreeSearch, packagesAreFoundAndWhatLiesInThemIsNot) {
  volume.file("top/Editor.app/Contents/Inner.app/a", "1");
  volume.file("top/Frame.framework/Other.app/a", "1");
  EXPECT_EQ(search("kMDItemContentType=com.apple.application-bundle"),
            (Names{"Editor.app", "Frame.framework/Other.app"}));
  EXPECT_EQ(search(kNotEmpty), Names());
}

TEST_F(TreeSearch, linksAndSpecialFilesAreNotFound) {
  volume.file("top/a", "1");
  volume.link("top/link", "a");
  volume.link("top/loop", ".");
  volume.link("top/up", "..");
  volume.fifo("top/pipe");
  EXPECT_EQ(search(kAll), Names{"a"});
}

TEST_F(TreeSearch, namesOfAnyBytesAreFound) {
  volume.file("top/\xFF\n%2F \"", "1");
  EXPECT_EQ(search(kNotEmpty), Names{"\xFF\n%2F \""});
  EXPECT_EQ(search(kAll), Names{"\xFF\n%2F \""});
}

TEST_F(TreeSearch, missingFolderHoldsNothing) {
  volume.file("file", "1");
  EXPECT_EQ(search(kNotEmpty, "missing"), Names());
  EXPECT_EQ(search(kNotEmpty, "file"), Names());
}

TEST_F(TreeSearch, unreadableFoldersArePassedOverAndReported) {
  volume.file("top/closed/a", "1");
  volume.file("top/open/b", "1");
  volume.setMode(".", 0755);
  volume.folder("top/.hidden/closed");
  volume.setMode("top/closed", 0);
  volume.setMode("top/.hidden/closed", 0);
  const std::string found = test::inPlainChild([this] {
    std::string text;
    for (const std::string& name : below(searchTree(volume.path("top"), FindQuery::parse(kNotEmpty).value(),
                                                    [&text](const std::string&path, int error) {
                                                      text += path + " (" + std::to_string(error) + "),";
                                                    })))
      text += name + ",";
    return text;
  });
  volume.setMode("top/closed", 0700);
  volume.setMode("top/.hidden/closed", 0700);
  EXPECT_EQ(found, volume.path("top/closed") + " (" + std::to_string(EACCES) + "),open/b,");
}

TEST_F(TreeSearch, otherFileSystemsAreEnteredOnlyIfAskedFor) {
  volume.file("top/a", "1");
  volume.folder("top/mount");
  const std::string found = test::inMountingChild([this]() -> std::string {
    if (::mount("tmpfs", volume.path("top/mount").c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
    volume.file("top/mount/b", "1");
    std::string text;
    for (const std::string& name : search(kNotEmpty)) text += name + ",";
    for (const std::string& name : search(kNotEmpty, "top/mount")) text += name + ",";
    return text;
  });
  if (found == "skip") GTEST_SKIP() << "no mounts";
  EXPECT_EQ(found, "a,mount/b,");
}

TEST_F(TreeSearch, noLinkLeadsOutOfAMountedVolume) {
  volume.folder("root/Users");
  volume.file("elsewhere/a", "1");
  volume.link("root/Users/alice", volume.path("elsewhere"));
  Host::install(Host::macVolume(volume.path("root"), "", {}));
  const Names found = search(kNotEmpty, "root/Users/alice");
  Host::install(Host::linuxDesktop({}));
  EXPECT_EQ(found, Names());
  EXPECT_EQ(search(kNotEmpty, "root/Users/alice").size(), 1U);
}

TEST_F(TreeSearch, veryDeepFoldersAreSearched) {
  const std::string last = volume.chain("top/deep", std::string(200, 'd'), 40);
  EXPECT_EQ(search(kAll).size(), 41U);
}

TEST_F(TreeSearch, sizesThatOverflowTogetherDoNoHarm) {
  for (const char* name : {"top/a", "top/b"}) {
    volume.file(name);
    if (::truncate(volume.path(name).c_str(), INT64_MAX) != 0) GTEST_SKIP() << "no such sizes here";
  }
  EXPECT_EQ(search(kNotEmpty), (Names{"a", "b"}));
}

}  // namespace
}  // namespace sorrel::tools
