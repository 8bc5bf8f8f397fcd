// The output shown in README.md is the real output.
#include <gtest/gtest.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;

/// The text that `page` shows below a command line, up to an empty line or the end of the block.
std::string shownBelow(const std::string& page, const std::string& command) {
  const std::string text = contentOf(SORREL_SOURCE_DIR "/" + page);
  const std::string line = "$ " + command + "\n";
  const std::size_t begin = text.find(line);
  if (begin == std::string::npos) return page + " has no \"" + command + "\"";
  const std::size_t from = begin + line.size();
  const std::size_t end = std::min(text.find("\n\n", from) + 1, text.find("```", from));
  return text.substr(from, end - from);
}

std::string replaced(std::string text, const std::string& word, const std::string& other) {
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += other.size()) {
    text.replace(at, word.size(), other);
  }
  return text;
}

TEST(Readme, showsWhatTheDemoPrints) {
  const TemporaryFolder volume;
  const std::string make = "'" SORREL_SOURCE_DIR "/scripts/make-volume' '" + volume.path() + "'";
  ASSERT_EQ(std::system(make.c_str()), 0);
  // The user's number, which is the name of a trash, is root's in README.md.
  const std::string trash = "/.Trashes/" + std::to_string(::getuid()) + "/";
  struct Shown {
    std::string page;
    std::string command;
    std::vector<std::string> words;
  };
  const std::vector<Shown> commands = {
      {"README.md", "scan system-junk", {"scan", "system-junk"}},
      {"docs/command-line.md",
       "clean trash --select '*/drafts' '*.zip' --dry-run",
       {"clean", "trash", "--select", "*/drafts", "*.zip", "--dry-run"}},
      {"docs/command-line.md", "clean trash --all --yes", {"clean", "trash", "--all", "--yes"}},
  };
  for (const auto& [page, shown, words] : commands) {
    std::vector<std::string> all = {"--volume", volume.path(), "--user", "alice"};
    all.insert(all.end(), words.begin(), words.end());
    const ProgramRun run = sorrel(all);
    EXPECT_EQ(replaced(replaced(run.out, volume.path(), "$volume"), trash, "/.Trashes/0/"),
              shownBelow(page, "sorrel --volume \"$volume\" --user alice " + shown));
  }
}

/// The files below a folder, by their names relative to it.
std::set<std::string> filesBelow(const std::string& folder) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_directory()) files.insert(entry.path().string().substr(folder.size()));
  }
  return files;
}

/// True if an installation can write its list of files, which CMake keeps in the build folder.
bool canWriteInTheBuild() { return ::access(SORREL_BINARY_DIR, W_OK) == 0; }

TEST(Readme, removalOfTheHelperNamesEachFileThatIsInstalled) {
  if (!canWriteInTheBuild()) GTEST_SKIP() << "the build folder belongs to another user";
  EXPECT_NE(contentOf(SORREL_SOURCE_DIR "/README.md").find("\n    sudo scripts/uninstall\n"),
            std::string::npos);
  const TemporaryFolder machine;
  const std::string there = "DESTDIR='" + machine.path() + "' ";
  ASSERT_EQ(
      std::system(
          (there + SORREL_CMAKE " --install '" SORREL_BINARY_DIR "' --component helper >/dev/null").c_str()),
      0);
  const std::set<std::string> installed = filesBelow(machine.path());
  std::set<std::string> removed;
  std::istringstream installer(contentOf(SORREL_BINARY_DIR "/libexec/sorrel/install-helper"));
  for (std::string line; std::getline(installer, line);) {
    const std::size_t begin = line.find(" /usr/");
    if (begin == std::string::npos || line[0] == '#') continue;
    removed.insert(line.substr(begin + 1, line.find(' ', begin + 1) - begin - 1));
  }
  EXPECT_EQ(installed.size(), 5U);
  EXPECT_EQ(removed, installed) << "what install-helper --remove takes away";
  const std::string bundle =
      SORREL_CMAKE " --install '" SORREL_BINARY_DIR "' --component helper-bundle >/dev/null";
  ASSERT_EQ(std::system((there + bundle).c_str()), 0);
  EXPECT_GT(filesBelow(machine.path()).size(), installed.size());
  machine.file("usr/lib/systemd/system/other.service", 1);
  ASSERT_EQ(
      std::system((there + "'" SORREL_SOURCE_DIR "/scripts/uninstall' '" SORREL_BINARY_DIR "'").c_str()), 0);
  EXPECT_EQ(filesBelow(machine.path()), std::set<std::string>{"/usr/lib/systemd/system/other.service"});
}

TEST(Readme, theBundleOfTheHelperLiesInLibexec) {
  if (!canWriteInTheBuild()) GTEST_SKIP() << "the build folder belongs to another user";
  EXPECT_NE(contentOf(SORREL_SOURCE_DIR "/README.md").find("--component helper-bundle"), std::string::npos);
  const TemporaryFolder prefix;
  const std::string install = SORREL_CMAKE " --install '" SORREL_BINARY_DIR
                                           "' --component helper-bundle --prefix '" +
                              prefix.path() + "' >/dev/null";
  ASSERT_EQ(std::system(install.c_str()), 0);
  std::set<std::string> expected = {"/libexec/sorrel/install-helper"};
  for (const char* file : {"actions.policy", "bus.conf", "bus.service", "sorrel-helper", "unit.service"}) {
    expected.insert(std::string("/libexec/sorrel/helper/") + file);
  }
  EXPECT_EQ(filesBelow(prefix.path()), expected);
}

}  // namespace
}  // namespace sorrel::hosttests
