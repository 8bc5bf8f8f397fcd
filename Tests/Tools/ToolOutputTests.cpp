// The tools as the framework runs them: real child processes and their output.
#include "Tools/ToolOutput.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "SorrelFramework/Platform/Base/FileDescriptor.hpp"
#include "SorrelFramework/Platform/Machine/ChildProcess.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Platform/Text/Text.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Units/TerminalTool.hpp"
#include "Tests/Support/ScopedVariable.hpp"
#include "Tests/Support/TemporaryVolume.hpp"
#include "Tests/Tools/InMemory.hpp"
#include "Tools/TreeSearch.hpp"

namespace sorrel::tools {
namespace {

using test::operator""_KiB;  // NOLINT(misc-unused-using-decls): clang-tidy overlooks literals
using Names = std::vector<std::string>;
const std::string kFolder = std::string(SORREL_BINARY_DIR) + "/libexec/sorrel/";

class ToolProgram : public testing::Test {
 protected:
  ToolProgram() {
    Host host = Host::macVolume(volume.path(), "alice", {});
    host.setToolFolder(kFolder);
    Host::install(std::move(host));
  }
  ~ToolProgram() override { Host::install(Host::linuxDesktop({})); }

  struct Run {
    std::string out;
    int status = -1;
    int signal = 0;
  };
  static Run run(const std::string& tool, const Names& arguments) {
    Run run;
    ChildProcess child(kFolder + tool, arguments);
    const auto ending = child.run([&run](std::string_view piece) {
      run.out += piece;
      return true;
    });
    run.status = ending.exitStatus;
    run.signal = ending.signal;
    return run;
  }
  /// The exit status of the tool in a shell, with these redirections.
  static int shellStatus(const std::string& command) {
    return WEXITSTATUS(std::system(("exec 2>/dev/null; " + command).c_str()));
  }

  test::InMemory memory;
  test::TemporaryVolume volume;
};

TEST_F(ToolProgram, hostFindsTheStandIns) {
  EXPECT_EQ(Host::current().tool("/usr/bin/mdfind"), kFolder + "/mdfind");
  EXPECT_EQ(Host::current().tool("/usr/bin/mdls"), kFolder + "/mdls");
}

TEST_F(ToolProgram, findPrintsOnePathALine) {
  volume.file("Users/alice/b c", "1");
  volume.file("Users/alice/a/a", "1");
  const std::string home = volume.path("Users/alice");
  const std::string lines = home + "/a/a\n" + home + "/b c\n";
  for (const std::string& folder : {home, home + "/", home + "//"}) {
    const Run found = run("mdfind", {"-onlyin", folder, "kMDItemFSSize > 0"});
    EXPECT_EQ(found.out, lines);
    EXPECT_EQ(found.status, 0);
  }
}

TEST_F(ToolProgram, findSearchesTheWholeVolumeIfNoFolderIsNamed) {
  volume.folder("Applications/Editor.app");
  volume.folder("Users/alice/Applications/Player.app");
  EXPECT_EQ(
      TerminalUtils::runTerminal("/usr/bin/mdfind", {"kMDItemContentType=com.apple.application-bundle"}),
      volume.path("Applications/Editor.app") + "\n" + volume.path("Users/alice/Applications/Player.app") +
          "\n");
}

TEST_F(ToolProgram, findEndsWellWithNothing) {
  const Run empty = run("mdfind", {"-onlyin", volume.path("Users"), "kMDItemFSSize > 0"});
  EXPECT_EQ(empty.out, "");
  EXPECT_EQ(empty.status, 0);
  EXPECT_EQ(run("mdfind", {"-onlyin", volume.path("missing"), "kMDItemFSSize > 0"}).status, 0);
}

TEST_F(ToolProgram, wrongUseEndsWithOneAndPrintsNothing) {
  const std::vector<std::pair<std::string, Names>> uses = {
      {"mdfind", {}},
      {"mdfind", {"a", "b"}},
      {"mdfind", {"-onlyin", volume.path("Users")}},
      {"mdfind", {"-onlyin", "", "kMDItemFSSize > 0"}},
      {"mdfind", {"no query"}},
      {"mdls", {}},
      {"mdls", {""}},
      {"mdls", {"-name"}},
      {"mdls", {"-other", "/"}},
      {"mdls", {"/", "/"}},
      {"mdls", {volume.path("missing")}},
  };
  for (const auto& [tool, arguments] : uses) {
    const Run wrong = run(tool, arguments);
    EXPECT_EQ(wrong.status, 1) << tool << ' ' << arguments.size();
    EXPECT_EQ(wrong.out, "") << tool << ' ' << arguments.size();
  }
}

TEST_F(ToolProgram, findLeavesOutNamesThatFitOnNoLine) {
  volume.file("Users/alice/ok", "1");
  volume.file("Users/alice/line\nfeed", "1");
  volume.file("Users/alice/\xFF", "1");
  EXPECT_EQ(run("mdfind", {"-onlyin", volume.path("Users/alice"), "kMDItemFSSize > 0"}).out,
            volume.path("Users/alice/ok") + "\n");
}

TEST_F(ToolProgram, findLeavesOutPathsThatNobodyCouldName) {
  const std::string last = volume.chain("Users/alice/deep", std::string(200, 'd'), 30);
  const Run found = run("mdfind", {"-onlyin", volume.path("Users/alice"), "kMDItemFSName == d*"});
  for (const std::string& line : componentsSeparatedBy(found.out, "\n")) EXPECT_LT(line.size(), 4096U);
  EXPECT_GT(found.out.size(), 4096U);
}

TEST_F(ToolProgram, outputThatIsClosedOrFullEndsWithOne) {
  volume.file("Users/alice/a", "1");
  const std::string command =
      kFolder + "mdfind -onlyin " + volume.path("Users/alice") + " 'kMDItemFSSize > 0' ";
  EXPECT_EQ(shellStatus(command + ">/dev/null"), 0);
  EXPECT_EQ(shellStatus(command + ">&-"), 1);
  EXPECT_EQ(shellStatus(command + "<&- >&- 2>&-"), 1);
  EXPECT_EQ(shellStatus(command + ">/dev/full"), 1);
  EXPECT_EQ(shellStatus(kFolder + "mdls " + volume.path() + " >&-"), 1);
  EXPECT_EQ(shellStatus(kFolder + "mdls " + volume.path() + " >/dev/full"), 1);
}

TEST_F(ToolProgram, readerThatGoesEndsTheTool) {
  volume.file("Users/alice/a", "1");
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  ::close(ends[0]);
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGPIPE, SIG_DFL);
    ::dup2(ends[1], STDOUT_FILENO);
    ::execl((kFolder + "mdfind").c_str(), "mdfind", "-onlyin", volume.path("Users/alice").c_str(),
            "kMDItemFSSize > 0", nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
}

TEST_F(ToolProgram, toolThatIsKilledWhileItPrintsLeavesWholeLines) {
  // Far more than the capacity of a pipe: the tool blocks in the middle of its output until it is killed.
  for (int i = 0; i < 2'000; ++i)
    volume.file("Users/alice/" + std::string(100, 'n') + std::to_string(i), "1");
  ChildProcess child(kFolder + "mdfind", {"-onlyin", volume.path("Users/alice"), "kMDItemFSSize > 0"});
  std::string out;
  const auto ending = child.run([&](std::string_view piece) {
    out += piece;
    return false;  // interrupt
  });
  EXPECT_EQ(ending.signal, SIGINT);
  ASSERT_FALSE(out.empty());
  EXPECT_EQ(out.back(), '\n');
  for (const std::string& line : componentsSeparatedBy(out, "\n")) {
    struct stat status {};
    EXPECT_TRUE(line.empty() || ::stat(line.c_str(), &status) == 0) << line;
  }
}

TEST_F(ToolProgram, hundredThousandFilesAreSearchedInLinearTime) {
  const auto make = [this](const std::string& folder, int count) {
    const std::string path = volume.folder(folder);
    const FileDescriptor at(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < count; ++i) {
      const std::string name = "f" + std::to_string(i);
      ASSERT_EQ(::mknodat(at.get(), name.c_str(), S_IFREG | 0600, 0), 0);
    }
  };
  make("few", 10'000);
  make("many", 100'000);
  const auto query = FindQuery::parse("kMDItemFSName == f*").value();
  const auto workFor = [&](const std::string& folder, std::size_t count) {
    const std::clock_t start = std::clock();
    EXPECT_EQ(searchTree(volume.path(folder), query).size(), count);
    return static_cast<double>(std::clock() - start);
  };
  workFor("few", 10'000);  // the first walk starts threads and fills caches
  const double few = workFor("few", 10'000);
  const double many = workFor("many", 100'000);
  EXPECT_LT(many, 40 * few);  // 10 if linear, 100 if quadratic
  EXPECT_EQ(
      componentsSeparatedBy(run("mdfind", {"-onlyin", volume.path("many"), "kMDItemFSName == f*"}).out, "\n")
          .size(),
      100'001U);
}

TEST_F(ToolProgram, listPrintsAlignedAttributes) {
  volume.file("A.app/a", 5_KiB);
  const Run listed = run("mdls", {volume.path("A.app")});
  EXPECT_EQ(listed.status, 0);
  EXPECT_NE(listed.out.find("kMDItemFSSize                  = 5120\n"), std::string::npos) << listed.out;
  EXPECT_NE(listed.out.find("kMDItemContentModificationDate = 2"), std::string::npos) << listed.out;
  EXPECT_EQ(listed.out.back(), '\n');
}

TEST_F(ToolProgram, listPrintsTheAttributesThatWereNamed) {
  volume.file("A.app/a", 5_KiB);
  const std::string path = volume.path("A.app");
  EXPECT_EQ(run("mdls", {"-name", "kMDItemFSSize", path}).out, "kMDItemFSSize = 5120\n");
  EXPECT_EQ(run("mdls", {"-name", "kMDItemKind", "-name", "kMDItemOther", path}).out,
            "kMDItemKind  = \"Application\"\nkMDItemOther = (null)\n");
  EXPECT_EQ(run("mdls", {"-raw", "-name", "kMDItemKind", path}).out, "Application");
  EXPECT_EQ(run("mdls", {"-name", "kMDItemKind", "-name", "kMDItemFSSize", "-raw", path}).out,
            std::string("Application\0005120", 16));
}

TEST_F(ToolProgram, listTellsOfALastUseThatIsKnownAndNamesNoneThatIsNot) {
  const std::string path = volume.file("letter", "1");
  const std::string word = "kMDItemLastUsedDate";
  EXPECT_EQ(run("mdls", {path}).out.find(word), std::string::npos);
  EXPECT_EQ(run("mdls", {"-name", word, path}).out, word + " = (null)\n");

  volume.file("data/recently-used.xbel",
              "<xbel version=\"1.0\"><bookmark href=\"file://" + path +
                  "\" added=\"2020-01-01T00:00:00Z\" modified=\"2020-03-20T12:02:10Z\" "
                  "visited=\"2020-03-20T12:02:10Z\"></bookmark></xbel>");
  const test::ScopedVariable data("XDG_DATA_HOME", volume.path("data").c_str());
  EXPECT_EQ(run("mdls", {path}).out.find(word), std::string::npos)
      << "the volume knows nothing of the desktop";
  Host::install(Host::linuxDesktop({}));
  const std::string line = "kMDItemLastUsedDate            = 2020-03-20 12:02:10 +0000\n";
  EXPECT_NE(run("mdls", {path}).out.find(line), std::string::npos) << run("mdls", {path}).out;
  EXPECT_EQ(run("mdls", {"-raw", "-name", word, path}).out, "2020-03-20 12:02:10 +0000");
}

TEST_F(ToolProgram, sizeOfAnApplicationComesFromTheTool) {
  volume.file("Applications/Editor.app/Contents/a", 5_KiB);
  volume.file("Applications/Editor.app/Contents/.b", 1_KiB);
  const URL url = volume.url("Applications/Editor.app/");
  EXPECT_EQ(SuperScanService::getPackageSizeFromTerminal(url), 6 * 1024);
  EXPECT_EQ(SuperScanService::getPackageSizeFromTerminal(volume.url("Applications/missing.app/")), 0);
}

}  // namespace
}  // namespace sorrel::tools
