// `sorrel clean` of items that the user may not remove, from outside, while the privileged helper is missing
// or silent.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <TestPlaces.hpp>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/ForkedChild.hpp"

namespace sorrel::hosttests {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

constexpr unsigned kUser = 10001;
const std::string kTrash = "Users/alice/.Trash/";

/// Replaces the system bus, and never answers.
class SilentBus {
 public:
  explicit SilentBus(const std::string& path) : path_(path), socket_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
    EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    EXPECT_EQ(::listen(socket_, 8), 0);
    fs::permissions(path, fs::perms::all);
  }
  ~SilentBus() { ::close(socket_); }
  SilentBus(const SilentBus&) = delete;
  SilentBus& operator=(const SilentBus&) = delete;

  [[nodiscard]] std::string variable() const { return "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + path_; }
  /// True if a caller connects within that time.
  [[nodiscard]] bool isCalled(int milliseconds) const {
    pollfd caller = {socket_, POLLIN, 0};
    return ::poll(&caller, 1, milliseconds) == 1;
  }

 private:
  std::string path_;
  int socket_;
};

/// The volume of user 10001, with a bus that never answers and a pkexec that records when it runs.
class CleanHelper : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::canBeOtherUsers()) GTEST_SKIP() << "needs root to give files away";
    volume_.file(kTrash + "mine", 10);
    fs::permissions(volume_.path(), fs::perms::all);
    volume_.text("tools/pkexec", "#!/bin/sh\n: >'" + volume_.path("asked") + "'\nexit 126\n");
    fs::permissions(volume_.path("tools/pkexec"), fs::perms::all);
  }
  /// Gives everything except `keep` to the user.
  void giveAway(const Words& keep = {}) const {
    for (const auto& entry : fs::recursive_directory_iterator(volume_.path())) {
      if (std::ranges::find(keep, entry.path().filename().string()) != keep.end()) continue;
      EXPECT_EQ(::lchown(entry.path().c_str(), kUser, kUser), 0) << entry.path();
    }
  }
  void pretendHelper() const {
    volume_.text("Library/LaunchDaemons/org.sorrel.SorrelHelper.plist", "");
    volume_.text("Library/PrivilegedHelperTools/org.sorrel.SorrelHelper", "");
  }
  [[nodiscard]] ProgramRun clean(const Words& more, RunOptions options = {}) const {
    Words words = {"--volume", volume_.path(), "--tools", volume_.path("tools"), "clean", "trash", "--yes"};
    words.insert(words.end(), more.begin(), more.end());
    options.environment.push_back(bus_.variable());
    options.user = kUser;
    return sorrel(words, options);
  }
  [[nodiscard]] Words wordsOfClean() const {
    return {"--volume", volume_.path(), "--tools", volume_.path("tools"), "clean", "trash", "--all", "--yes"};
  }
  [[nodiscard]] ProgramRun cleanAtTerminal(const std::string& program, const Typist& typist) const {
    RunOptions options;
    options.environment.push_back(bus_.variable());
    options.user = kUser;
    options.program = program;
    return sorrelAtTerminal(wordsOfClean(), typist, options);
  }
  /// A copy of the program that comes with an installer for the helper.
  [[nodiscard]] std::string programWithInstaller() const {
    fs::permissions(place_.path(), fs::perms::all);
    const std::string program = place_.folder("own/bin") + "/sorrel";
    fs::copy_file(SORREL_PROGRAM, program);
    const std::string resources = place_.folder("own/share/sorrel/Catalogue/macOS");
    fs::copy_file(SORREL_SOURCE_DIR "/Catalogue/macOS/Feature.plist", resources + "/Feature.plist");
    place_.text("own/share/sorrel/Catalogue/macOS/install-helper", "");
    return program;
  }
  [[nodiscard]] static bool isAskedFor(const std::string& screen) {
    return screen.find("Install it? [y/N] ") != std::string::npos;
  }
  /// Types that text once, when the question is on the screen.
  [[nodiscard]] static Typist answering(const std::string& text) {
    return [text, isTyped = false](const std::string& screen, int) mutable {
      return isAskedFor(screen) && !std::exchange(isTyped, true) ? text : std::string();
    };
  }
  [[nodiscard]] bool exists(const std::string& name) const {
    return fs::exists(fs::symlink_status(volume_.path(name)));
  }

  TemporaryFolder volume_;
  TemporaryFolder place_;
  SilentBus bus_{place_.path("bus")};
};

TEST_F(CleanHelper, aCleanThatNeedsNoHelperAsksForNone) {
  pretendHelper();
  giveAway();
  fs::permissions(place_.path(), fs::perms::all);
  const ProgramRun run = clean({"--all"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_FALSE(exists(kTrash + "mine"));
  EXPECT_FALSE(bus_.isCalled(0));
  EXPECT_FALSE(exists("asked"));
}

TEST_F(CleanHelper, aCleanOfProtectedPlacesAloneAsksForNone) {
  pretendHelper();
  const std::string file =
      volume_.text("homes.plist", catalogue({{1, {{0, "SystemCache", {"file:///Users/"}}}}}));
  giveAway();
  fs::permissions(place_.path(), fs::perms::all);
  Words words = {"--volume",    volume_.path(), "--tools", volume_.path("tools"),
                 "--catalogue", file,           "clean",   "1",
                 "--select",    "*/alice",      "--yes"};
  const ProgramRun run = sorrel(words, {.environment = {bus_.variable()}, .user = kUser});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(exists(kTrash + "mine"));
  EXPECT_FALSE(bus_.isCalled(0));
  EXPECT_FALSE(exists("asked"));
}

TEST_F(CleanHelper, withoutAHelperWhatOnlyItMayRemoveStaysAndIsTold) {
  volume_.file(kTrash + "roots", 20);
  volume_.file(kTrash + "locked/file", 5);
  volume_.file(kTrash + "locked/sub/other", 6);
  giveAway({"roots"});
  fs::permissions(volume_.path(kTrash + "locked"), fs::perms::owner_read | fs::perms::owner_exec);
  const std::string trash = volume_.path(kTrash);

  const ProgramRun run = clean({"--all", "--engine-defaults"});

  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "sorrel: there is no privileged helper to remove what you may not remove yourself\n");
  EXPECT_EQ(run.out,
            "Removed:\n       10 B  " + trash + "mine\nNot removed:\n       20 B  " + trash +
                "roots\n             Only the privileged helper may remove it.\n       11 B  " + trash +
                "locked\n             “locked” couldn’t be removed because you don’t have permission "
                "to access it.\n1 item removed, 10 B freed; 2 items not removed\n");
  EXPECT_FALSE(exists(kTrash + "mine"));
  EXPECT_TRUE(exists(kTrash + "roots"));
  EXPECT_TRUE(exists(kTrash + "locked/file"));
  EXPECT_FALSE(bus_.isCalled(0));
  EXPECT_FALSE(exists("asked")) << "asked for a password with nobody there";
}

TEST_F(CleanHelper, theDocumentTellsWhatStaysAndWhy) {
  volume_.file(kTrash + "roots", 20);
  volume_.file(kTrash + "locked/file", 5);
  giveAway({"roots"});
  fs::permissions(volume_.path(kTrash + "locked"), fs::perms::owner_read | fs::perms::owner_exec);
  const std::string why = "“locked” couldn’t be removed because you don’t have permission to access it.";

  const ProgramRun run = clean({"--all", "--json", "--engine-defaults"});

  EXPECT_EQ(run.status, 1);
  const Json document = run.document();
  Json cleaned = document.at("clean");
  Json outcomes = Json::array();
  for (const Json& record : cleaned.at("records")) {
    outcomes.push_back({record.at("title"), record.at("state"), record.at("canDelete"),
                        record.at("deleteStatus"), record.at("deleteErrorDesc")});
  }
  EXPECT_EQ(outcomes,
            Json({{"locked", 1, true, 3, why}, {"mine", 1, true, 2, ""}, {"roots", 1, false, 1, ""}}));
  cleaned["records"] = nullptr;
  EXPECT_EQ(cleaned,
            Json({{"size", 10},
                  {"status", 3},
                  {"desc", why + ",,"},
                  {"abnormalFiles", {volume_.path(kTrash + "locked"), volume_.path(kTrash + "roots")}},
                  {"progress", {0.25, 0.5, 0.75}},
                  {"records", nullptr}}));
  // The remaining items are listed and renumbered.
  const Json& left = document.at("feature").at("categoryInfo").at(0);
  EXPECT_EQ(left.at("size"), 25);
  EXPECT_EQ(left.at("childrens").size(), 2U);
  EXPECT_EQ(left.at("childrens").at(1).at("finderID"), 1);
  EXPECT_EQ(left.at("childrens").at(1).at("state"), 0);
}

TEST_F(CleanHelper, anInterruptOfTheCleanEndsItAtOnce) {
  pretendHelper();
  volume_.file(kTrash + "roots", 20);
  giveAway({"roots"});
  fs::permissions(place_.path(), fs::perms::all);
  bool isCalled = false;
  const ProgramRun run = clean({"--all", "--json"}, {.meanwhile = [&](int process) {
                                 isCalled = bus_.isCalled(60000);  // the clean is in its last phase
                                 ::kill(process, SIGINT);
                               }});
  EXPECT_TRUE(isCalled);
  EXPECT_EQ(run.status, 130);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "sorrel: stopped. What was removed until now is gone, the rest was left as it is.\n");
  EXPECT_FALSE(exists(kTrash + "mine"));
  EXPECT_TRUE(exists(kTrash + "roots"));
}

TEST_F(CleanHelper, aTerminalIsToldBeforeTheHelperMayAskForAPassword) {
  pretendHelper();
  volume_.file(kTrash + "roots", 20);
  giveAway({"roots"});
  fs::permissions(place_.path(), fs::perms::all);
  bool isTold = false;
  const ProgramRun run = cleanAtTerminal({}, [&](const std::string& screen, int process) {
    if (!isTold && screen.find("waiting for the privileged helper") != std::string::npos) {
      isTold = true;
      EXPECT_FALSE(isAskedFor(screen));
      ::kill(process, SIGINT);
    }
    return std::string();
  });
  EXPECT_TRUE(isTold) << run.err;
  EXPECT_EQ(run.status, 130);
  EXPECT_NE(run.err.find("\r\x1b[Ksorrel: waiting for the privileged helper; the system may ask for an "
                         "administrator's password\r\n"),
            std::string::npos)
      << run.err;
  EXPECT_TRUE(exists(kTrash + "roots"));
}

TEST_F(CleanHelper, atATerminalNothingIsInstalledWithoutAYes) {
  volume_.file(kTrash + "roots", 20);
  giveAway({"roots"});
  const std::string program = programWithInstaller();
  for (const char* const answer : {"\n", "n\n", "no yes\n", "\x04"}) {
    const ProgramRun run = cleanAtTerminal(program, answering(answer));
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_TRUE(isAskedFor(run.err)) << run.err;
    EXPECT_NE(run.err.find("org.sorrel.SorrelHelper"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("there is no privileged helper"), std::string::npos) << run.err;
    EXPECT_FALSE(exists("asked")) << answer;
    EXPECT_TRUE(exists(kTrash + "roots"));
  }
}

TEST_F(CleanHelper, atATerminalAYesInstalls) {
  volume_.file(kTrash + "roots", 20);
  giveAway({"roots"});
  const ProgramRun run = cleanAtTerminal(programWithInstaller(), answering("y\n"));
  EXPECT_EQ(run.status, 1) << run.err;  // this pkexec refuses
  EXPECT_NE(run.err.find("waiting for an administrator's password to install it"), std::string::npos)
      << run.err;
  EXPECT_TRUE(exists("asked"));
}

TEST_F(CleanHelper, aQuestionThatAYesCouldNotFollowIsNotAsked) {
  volume_.file(kTrash + "roots", 20);
  giveAway({"roots"});
  const ProgramRun run = cleanAtTerminal({}, answering("y\n"));  // it comes without an installer
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_FALSE(isAskedFor(run.err)) << run.err;
  EXPECT_NE(run.err.find("there is no privileged helper"), std::string::npos) << run.err;
  EXPECT_FALSE(exists("asked"));
}

TEST_F(CleanHelper, onTheDesktopTheInstallerBesideTheProgramRuns) {
  if (fs::exists("/usr/share/dbus-1/system-services/org.sorrel.SorrelHelper.service")) {
    GTEST_SKIP() << "this machine has a helper";
  }
  volume_.file(".local/share/Trash/files/roots", 20);
  giveAway({"roots"});
  const std::string program = programWithInstaller();
  const std::string installer = place_.text("own/libexec/sorrel/install-helper", "");
  const std::string resources = place_.folder("own/share/sorrel/Catalogue/Linux");
  fs::copy_file(SORREL_SOURCE_DIR "/Catalogue/Linux/Feature.plist", resources + "/Feature.plist");
  volume_.text("tools/pkexec", "#!/bin/sh\necho \"$2\" >'" + volume_.path("asked") + "'\nexit 126\n");
  RunOptions options;
  options.environment = {"HOME=" + volume_.path(), bus_.variable()};
  options.user = kUser;
  options.program = program;
  const ProgramRun run = sorrelAtTerminal(
      {"--tools", volume_.path("tools"), "clean", "trash", "--all", "--yes"}, answering("y\n"), options);
  EXPECT_EQ(run.status, 1) << run.err;
  ASSERT_TRUE(exists("asked")) << run.err;
  EXPECT_EQ(contentOf(volume_.path("asked")), installer + "\n");
}

TEST_F(CleanHelper, withoutATerminalForTheAnswerNothingIsAskedOrInstalled) {
  volume_.file(kTrash + "roots", 20);
  giveAway({"roots"});
  RunOptions options;
  options.program = programWithInstaller();
  const ProgramRun run = clean({"--all"}, options);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "sorrel: there is no privileged helper to remove what you may not remove yourself\n");
  options.environment.push_back(bus_.variable());
  options.user = kUser;
  const ProgramRun shown = sorrelOnTerminal(wordsOfClean(), options);  // a screen, but no keyboard
  EXPECT_EQ(shown.status, 1);
  EXPECT_FALSE(isAskedFor(shown.err)) << shown.err;
  EXPECT_FALSE(exists("asked"));
}

}  // namespace
}  // namespace sorrel::hosttests
