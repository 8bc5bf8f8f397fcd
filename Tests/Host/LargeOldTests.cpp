// `sorrel scan large-old` and `sorrel clean large-old`, from outside.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Tests/Host/HostKit.hpp"
#include "Tests/Support/CleanKit.hpp"

namespace sorrel::hosttests {
namespace {

using Words = std::vector<std::string>;
constexpr std::int64_t kMiB = 1 << 20;

/// A volume with the home of alice, scanned with the program's own catalogue.
class LargeOld : public testing::Test {
 protected:
  LargeOld() { volume.folder("Users/alice"); }

  /// A sparse file.
  std::string big(const std::string& name, std::int64_t size = 60 * kMiB) const {
    std::string path = volume.file(name, 0);
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
    return path;
  }
  ProgramRun run(const Words& words, Words options = {}) const {
    options.insert(options.end(), {"--volume", volume.path(), "--user", "alice"});
    options.insert(options.end(), words.begin(), words.end());
    return sorrel(options);
  }
  Json scan(const Words& options = {}) const {
    const ProgramRun scanned = run({"--json", "scan", "large-old"}, options);
    EXPECT_EQ(scanned.status, 0) << scanned.err;
    return scanned.document();
  }
  static Words titles(const Json& category) {
    Words found;
    for (const Json& record : category.at("childrens")) found.push_back(record.at("title"));
    return found;
  }

  /// Large files that a scan of `home` finds, and beside them files that it must not find.
  void fill(const std::string& home) const {
    big(home + "backup.zip", 120 * kMiB);
    big(home + "Movies/film.mov", 52'428'801);
    big(home + "Movies/exact.mov", 50 * kMiB);
    big(home + ".cache/store.bin");
    big(home + "Game.app/Contents/data.pak");
    big(home + "../other/film.mov");
    volume.file(home + "letter", 7);
    std::filesystem::create_symlink(volume.path(home + "../other/film.mov"), volume.path(home + "link.mov"));
    std::filesystem::create_symlink(volume.path(home + "../other"), volume.path(home + "others"));
  }
  /// All items except the log, which each command writes.
  [[nodiscard]] std::vector<test::TreeEntry> items() const {
    auto entries = test::snapshotOf(volume.path());
    std::erase_if(entries, [](const test::TreeEntry& entry) { return entry.path.ends_with(kLogName); });
    return entries;
  }
  /// Creates the log, which the first command would create.
  void makeLog(const std::string& support) const {
    volume.text(support + "org.sorrel.Sorrel/" + kLogName, "");
  }

  static constexpr const char* kLogName = "org.sorrel.SorrelFrameworkLog.txt";
  TemporaryFolder volume;
};

TEST_F(LargeOld, documentHoldsAllAndItsTwelveRows) {
  big("Users/alice/Movies/film.mov", 600 * kMiB);
  big("Users/alice/backup.zip", 120 * kMiB);
  big("Users/alice/small.zip", 40 * kMiB);
  big("Users/bob/film.mov");
  const Json document = scan();
  EXPECT_EQ(document.at("size"), 720 * kMiB);
  EXPECT_EQ(document.at("status"), "end");
  EXPECT_EQ(document.at("callbacks"),
            (Json{{"done", 1}, {"singleDone", 0}, {"progress", 2}, {"lastPercent", 1.0}}));
  ASSERT_EQ(document.at("feature").at("categoryInfo").size(), 1U);
  const Json& all = document.at("feature").at("categoryInfo").at(0);
  EXPECT_EQ(all.at("title"), "All");
  EXPECT_EQ(all.at("kind"), 5);
  EXPECT_EQ(all.at("size"), 720 * kMiB);
  EXPECT_EQ(titles(all), (Words{"film.mov", "backup.zip"}));
  EXPECT_EQ(all.at("childrens").at(0).at("attachment"), nullptr);
  const Json& rows = all.at("childrenCateogry");
  const std::vector<Words> expected = {
      {"backup.zip"}, {}, {"film.mov"}, {}, {}, {}, {}, {}, {"film.mov", "backup.zip"}, {"film.mov"},
      {"backup.zip"}, {}};
  ASSERT_EQ(rows.size(), expected.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(titles(rows.at(i)), expected[i]) << i;
    EXPECT_EQ(rows.at(i).at("finderID"), i);
    EXPECT_EQ(rows.at(i).at("levelInt"), 1);
  }
}

TEST_F(LargeOld, withoutItsToolsTheProgramFindsTheSame) {
  big("Users/alice/b/c/film.mov", 600 * kMiB);
  big("Users/alice/b.zip");
  big("Users/alice/Game.app/Contents/data.pak");
  const Json fast = scan();
  const Json walked = scan({"--tools", volume.folder("no tools")});
  EXPECT_EQ(fast.dump(1), walked.dump(1));
  EXPECT_EQ(titles(fast.at("feature").at("categoryInfo").at(0)).size(), 2U);
}

TEST_F(LargeOld, linuxDesktopIsSearchedFromItsHome) {
  big("home/Downloads/disc.iso");
  big("home/.cache/store.bin");
  const ProgramRun scanned = sorrel({"scan", "large-old"}, {.environment = {"HOME=" + volume.path("home")}});
  EXPECT_EQ(scanned.status, 0) << scanned.err;
  EXPECT_NE(scanned.out.find("disc.iso"), std::string::npos);
  EXPECT_EQ(scanned.out.find("store.bin"), std::string::npos);
  EXPECT_TRUE(scanned.out.ends_with("1 item, 60.0 MiB; files below 50 MiB are not listed\n")) << scanned.out;
}

TEST_F(LargeOld, aTitleIsSharedOnlyByRecordsThatDiffer) {
  big("Users/alice/work/backup.zip");
  big("Users/alice/home/film.mov");
  EXPECT_EQ(run({"scan", "large-old"}).out.find("(in "), std::string::npos);  // each is in four rows
  big("Users/alice/home/backup.zip");
  const std::string shown = run({"scan", "large-old"}).out;
  for (const char* const folder : {"work", "home"}) {
    EXPECT_NE(shown.find("backup.zip  (in " + volume.path(std::string("Users/alice/") + folder) + ")\n"),
              std::string::npos)
        << shown;
  }
}

TEST_F(LargeOld, textTreeShowsTheRowsBelowAll) {
  big("Users/alice/backup.zip");
  const ProgramRun scanned = run({"scan", "large-old"});
  for (const char* line :
       {"   60.0 MiB    All\n", "   60.0 MiB      backup.zip\n", "   60.0 MiB      Archives\n",
        "   60.0 MiB        backup.zip\n", "        0 B      Huge\n"}) {
    EXPECT_NE(scanned.out.find(line), std::string::npos) << line << scanned.out;
  }
}

TEST_F(LargeOld, rowsBelowAllGoBySizeOrByName) {
  big("Users/alice/film.mov", 600 * kMiB);
  big("Users/alice/backup.zip", 120 * kMiB);
  // The lines without their sizes, from the first row below "All" on.
  const auto rows = [](const ProgramRun& scanned) {
    std::string text;
    std::istringstream lines(scanned.out);
    std::string line;
    for (int i = 0; std::getline(lines, line); ++i) {
      if (i > 3 && line.starts_with(' ')) text += line.substr(17) + '\n';
    }
    return text;
  };
  EXPECT_EQ(rows(run({"scan", "large-old"})),
            "From this week\n  film.mov\n  backup.zip\nMovies\n  film.mov\nHuge\n  film.mov\n"
            "Archives\n  backup.zip\nAverage\n  backup.zip\nPictures\nMusic\nOther\n"
            "Older than a year\nOlder than a month\nOlder than a week\nSmall\n");
  EXPECT_EQ(rows(run({"scan", "large-old", "--by", "name"})),
            "Archives\n  backup.zip\nAverage\n  backup.zip\nFrom this week\n  backup.zip\n  film.mov\n"
            "Huge\n  film.mov\nMovies\n  film.mov\nMusic\nOlder than a month\nOlder than a week\n"
            "Older than a year\nOther\nPictures\nSmall\n");
}

TEST_F(LargeOld, anInterruptEndsTheToolAtOnce) {
  const std::string found = big("Users/alice/backup.zip");
  const std::string pipe = volume.path("tools/pipe");
  const std::string tool =
      volume.text("tools/mdfind", "#!/bin/sh\ntrap '' INT\necho '" + found + "'\necho $$ >'" + pipe +
                                      "'\nexec /bin/sleep 1000\n");
  std::filesystem::permissions(tool, std::filesystem::perms::all);
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  pid_t child = 0;
  const ProgramRun scanned =
      sorrel({"--json", "--volume", volume.path(), "--tools", volume.path("tools"), "scan", "large-old"},
             {.meanwhile = [&](int process) {
               std::ifstream(pipe) >> child;  // returns once the tool has printed
               ::kill(process, SIGINT);
             }});
  EXPECT_EQ(scanned.status, 130) << scanned.err;
  EXPECT_EQ(titles(scanned.document().at("feature").at("categoryInfo").at(0)), Words{"backup.zip"});
  ASSERT_GT(child, 0);
  EXPECT_EQ(::kill(child, 0), -1);
}

TEST_F(LargeOld, aTerminalShowsThatTheToolIsAtWork) {
  const std::string found = big("Users/alice/backup.zip");
  const std::string pipe = volume.path("tools/pipe");
  const std::string tool =
      volume.text("tools/mdfind", "#!/bin/sh\nread go <'" + pipe + "'\necho '" + found + "'\n");
  std::filesystem::permissions(tool, std::filesystem::perms::all);
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  bool isShown = false;
  const ProgramRun scanned =
      sorrelAtTerminal({"--volume", volume.path(), "--tools", volume.path("tools"), "scan", "large-old"},
                       [&](const std::string& screen, int) {
                         if (!isShown && screen.find(" s  0 %  0 items, 0 B") != std::string::npos) {
                           isShown = true;
                           std::ofstream(pipe) << "go\n";  // the tool ends only now
                         }
                         return std::string();
                       });
  EXPECT_TRUE(isShown);
  EXPECT_EQ(scanned.status, 0) << scanned.err;
  EXPECT_NE(scanned.err.find("1 item, 60.0 MiB  backup.zip"), std::string::npos) << scanned.err;
}

TEST_F(LargeOld, namesThatTheToolCannotTellAreCountedOnStandardError) {
  big("Users/alice/line\nfeed.zip");
  big("Users/alice/ok.zip");
  const ProgramRun scanned = run({"--json", "scan", "large-old"});
  EXPECT_EQ(scanned.status, 0);
  EXPECT_EQ(titles(scanned.document().at("feature").at("categoryInfo").at(0)), Words{"ok.zip"});
  EXPECT_NE(scanned.err.find("1 found, but their names fit on no line"), std::string::npos) << scanned.err;
}

TEST_F(LargeOld, catalogueWithTooFewRowsIsAFatalStop) {
  std::string text = catalogue({{3, {{0, "Common", {}}}}});
  const std::string title = "<string>Feature 3</string>";
  text.insert(text.find(title) + title.size(), "<key>type</key><string>LaregeAndOldFiles</string>");
  const std::string file = volume.text("test.plist", text);
  const ProgramRun scanned = run({"scan", "large-old"}, {"--catalogue", file});
  EXPECT_EQ(scanned.status, 3);
  EXPECT_NE(scanned.err.find("Unexpectedly found nil while unwrapping an Optional value"), std::string::npos);
}

TEST_F(LargeOld, cleanTakesWhatWasSelectedAndNothingElse) {
  const std::string gone = big("Users/alice/backup.zip");
  const std::string kept = big("Users/alice/film.mov");
  const std::string small = big("Users/alice/small.zip", 1);
  const ProgramRun cleaned = run({"--json", "clean", "large-old", "--select", "*.zip", "--yes"});
  EXPECT_EQ(cleaned.status, 0) << cleaned.err;
  EXPECT_FALSE(std::filesystem::exists(gone));
  EXPECT_TRUE(std::filesystem::exists(kept));
  EXPECT_TRUE(std::filesystem::exists(small));
  const Json document = cleaned.document();
  EXPECT_EQ(titles(document.at("feature").at("categoryInfo").at(0)), Words{"film.mov"});
  EXPECT_EQ(document.at("clean").at("size"), 60 * kMiB);
}

TEST_F(LargeOld, cleanOfAllOnAVolumeTakesWhatWasFoundAndLeavesEmptyRows) {
  fill("Users/alice/");
  makeLog("Users/alice/Library/Application Support/");
  const auto before = items();
  const ProgramRun cleaned = run({"--json", "clean", "large-old", "--all", "--yes"});
  EXPECT_EQ(cleaned.status, 0) << cleaned.err;
  EXPECT_EQ(test::goneBetween(before, items()),
            (Words{"Users/alice/Movies/film.mov", "Users/alice/backup.zip"}));
  const Json document = cleaned.document();
  EXPECT_EQ(document.at("clean").at("size"), 120 * kMiB + 52'428'801);
  const Json& all = document.at("feature").at("categoryInfo").at(0);
  EXPECT_EQ(all.at("size"), 0);
  EXPECT_EQ(titles(all), Words());
  ASSERT_EQ(all.at("childrenCateogry").size(), 12U);
  for (const Json& row : all.at("childrenCateogry")) {
    EXPECT_EQ(row.at("size"), 0);
    EXPECT_EQ(titles(row), Words());
  }
}

TEST_F(LargeOld, cleanOnTheDesktopTakesWhatWasSelectedAndNothingElse) {
  fill("home/");
  makeLog("home/.local/share/");
  const RunOptions options{.environment = {"HOME=" + volume.path("home")}};
  const auto before = items();
  const ProgramRun dry = sorrel({"clean", "large-old", "--all", "--dry-run"}, options);
  EXPECT_EQ(dry.status, 0) << dry.err;
  EXPECT_EQ(items(), before);
  const ProgramRun cleaned = sorrel({"clean", "large-old", "--select", "*.mov", "--yes"}, options);
  EXPECT_EQ(cleaned.status, 0) << cleaned.err;
  EXPECT_EQ(test::goneBetween(before, items()), Words{"home/Movies/film.mov"});
  EXPECT_TRUE(cleaned.out.ends_with("1 item removed, 50.0 MiB freed\n")) << cleaned.out;
}

TEST_F(LargeOld, scanLeavesEveryItemAsItWas) {
  fill("Users/alice/");
  makeLog("Users/alice/Library/Application Support/");
  const auto before = items();
  EXPECT_EQ(titles(scan().at("feature").at("categoryInfo").at(0)).size(), 2U);
  scan({"--tools", volume.path()});  // there are no tools: the home is walked
  EXPECT_EQ(items(), before);
}

}  // namespace
}  // namespace sorrel::hosttests
