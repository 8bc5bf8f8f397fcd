// `sorrel scan`, from outside.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Text/URL.hpp"
#include "SorrelFramework/Units/MD5.hpp"
#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {
namespace {

using Words = std::vector<std::string>;

struct Volume : TemporaryFolder {
  explicit Volume(const std::vector<FeatureRow>& features) {
    folder("Users/alice");
    file_ = text("test.plist", catalogue(features));
  }
  ProgramRun scan(const std::string& feature, std::vector<std::string> more = {"--json"}) const {
    std::vector<std::string> words = {"--volume", path(), "--catalogue", file_};
    words.insert(words.end(), more.begin(), more.end());
    words.insert(words.end(), {"scan", feature});
    return sorrel(words);
  }

 private:
  std::string file_;
};

const FeatureRow kCaches = {1, {{0, "SystemCache", {"file://~/Library/Caches/"}}}};
const FeatureRow kTrash = {2, {{0, "Common", {"file://~/.Trash/"}}}};

/// Removes the two dates, which depend on the current time, from a record, after comparing them with each
/// other.
void takeDates(Json& record) {
  const double seconds = record.at("dateSeconds");
  EXPECT_GT(seconds, 1.0e9);
  const auto whole = static_cast<std::time_t>(seconds);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&whole));
  EXPECT_EQ(record.at("date"), text);
  record["date"] = nullptr;
  record["dateSeconds"] = 0;
}

Json record(std::int64_t finderID, std::int64_t parent, const std::string& title, std::int64_t size,
            const std::string& path, bool folder) {
  const std::string url = "file://" + path + (folder ? "/" : "");
  return {{"finderID", finderID},
          {"parentFinderID", parent},
          {"title", title},
          {"size", size},
          {"date", nullptr},
          {"dateSeconds", 0},
          {"url", url},
          {"path", path},
          {"canDelete", true},
          {"removeCategory", false},
          {"fileKind", folder ? 0 : 1},
          {"levelInt", 0},
          {"state", 0},
          {"deleteStatus", 0},
          {"deleteErrorDesc", ""},
          {"hashValueString",
           std::to_string(finderID) + ":" + std::to_string(parent) + ":" + std::to_string(size) + ":" + url},
          {"attachment", nullptr},
          {"childrens", Json::array()}};
}

TEST(ScanCommand, documentOfSystemJunkIsExact) {
  const Volume volume({{1, {{4, "SystemCache", {"file://~/Library/Caches/"}}}}});
  const std::string caches = volume.path("Users/alice/Library/Caches");
  volume.file("Users/alice/Library/Caches/a.bin", 700);
  volume.file("Users/alice/Library/Caches/com.example/deep/b.bin", 2000);
  volume.file("Users/alice/Library/Caches/com.example/.hidden", 5);

  const ProgramRun run = volume.scan("system-junk");

  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  Json document = run.document();
  Json& records = document.at("feature").at("categoryInfo").at(0).at("childrens");
  ASSERT_EQ(records.size(), 2U) << run.out;
  for (Json& found : records) takeDates(found);
  const std::string root = "file://" + caches + "/";
  const Json category = {
      {"finderID", 4},
      {"title", "Row 4"},
      {"description", "About row 4"},
      {"kind", 2},
      {"size", 2705},
      {"state", 0},
      {"levelInt", 0},
      {"needRemoveCategory", false},
      {"hashValueString", MD5("4:2:0:[" + root + "]:0")},
      {"urls", Json::array({root})},
      {"childrens", Json::array({record(0, 4, "a.bin", 700, caches + "/a.bin", false),
                                 record(1, 4, "com.example", 2005, caches + "/com.example", true)})},
      {"childrenCateogry", nullptr}};
  const Json expected = {
      {"feature",
       {{"finderID", 1}, {"title", "Feature 1"}, {"state", 0}, {"categoryInfo", Json::array({category})}}},
      {"size", 2705},
      {"status", "end"},
      {"callbacks", {{"done", 1}, {"singleDone", 1}, {"progress", 2}, {"lastPercent", 1.0}}}};
  EXPECT_EQ(document.dump(1), expected.dump(1));
}

TEST(ScanCommand, eachCategoryIsReportedOnce) {
  const Volume volume({{1,
                        {{0, "SystemCache", {"file://~/Library/Caches/", "file:///Library/Caches/"}},
                         {1, "Common", {"file://~/Library/Logs/"}},
                         {2, "SystemCache", {"file:///Library/Missing/"}}}}});
  volume.file("Users/alice/Library/Caches/a", 10);
  volume.file("Library/Caches/b", 20);
  volume.file("Users/alice/Library/Logs/sub/c", 40);

  const Json document = volume.scan("system-junk").document();

  const Json& rows = document.at("feature").at("categoryInfo");
  EXPECT_EQ(rows.at(0).at("size"), 30);
  // The folder and the file in it are records of their own, and both count.
  EXPECT_EQ(rows.at(1).at("size"), 80);
  EXPECT_EQ(rows.at(1).at("childrens").size(), 2U);
  EXPECT_EQ(rows.at(2).at("size"), 0);
  EXPECT_EQ(document.at("size"), 110);
  EXPECT_EQ(document.at("callbacks").at("singleDone"), 3);
  EXPECT_EQ(document.at("callbacks").at("done"), 1);
  EXPECT_EQ(document.at("callbacks").at("lastPercent"), 1.0);
  // Numbered consecutively over both folders of the first row.
  EXPECT_EQ(rows.at(0).at("childrens").at(0).at("finderID"), 0);
  EXPECT_EQ(rows.at(0).at("childrens").at(1).at("finderID"), 1);
}

TEST(ScanCommand, trashListsWhatLiesDirectlyInIt) {
  const Volume volume({kTrash});
  volume.file("Users/alice/.Trash/film.mov", 900);
  volume.file("Users/alice/.Trash/drafts/one", 10);
  volume.file("Users/alice/.Trash/empty", 0);

  const Json document = volume.scan("trash").document();

  const Json& records = document.at("feature").at("categoryInfo").at(0).at("childrens");
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records.at(0).at("title"), "drafts");
  EXPECT_EQ(records.at(0).at("size"), 10);
  EXPECT_EQ(records.at(1).at("path"), volume.path("Users/alice/.Trash/film.mov"));
  EXPECT_EQ(document.at("size"), 910);
  EXPECT_EQ(document.at("callbacks").at("done"), 1);
  EXPECT_EQ(document.at("callbacks").at("singleDone"), 0);
}

TEST(ScanCommand, trashOfAnotherVolumeIsARowOfItsOwn) {
  const Volume volume({kTrash});
  const std::string owner = std::to_string(::getuid());
  volume.file("Volumes/USB/.Trashes/" + owner + "/old.zip", 300);
  volume.file("Volumes/Other/.Trashes/" + std::to_string(::getuid() + 1) + "/not mine", 5);
  volume.folder("Volumes/Bare");

  const Json document = volume.scan("trash").document();

  const Json& rows = document.at("feature").at("categoryInfo");
  ASSERT_EQ(rows.size(), 2U) << document.dump(1);
  EXPECT_EQ(rows.at(1).at("title"), "USB");
  EXPECT_EQ(rows.at(1).at("kind"), 3);
  EXPECT_EQ(rows.at(1).at("finderID"), 1);
  EXPECT_EQ(rows.at(1).at("size"), 300);
  EXPECT_EQ(rows.at(1).at("childrens").at(0).at("title"), "old.zip");
  EXPECT_EQ(document.at("size"), 300);
}

TEST(ScanCommand, aNumberServesInPlaceOfAName) {
  const Volume volume({kTrash});
  volume.file("Users/alice/.Trash/a", 5);
  const Json document = volume.scan("2").document();
  EXPECT_EQ(document.at("feature").at("finderID"), 2);
  EXPECT_EQ(document.at("size"), 5);
}

TEST(ScanCommand, optionsAreTakenBehindTheCommandToo) {
  const Volume volume({kTrash});
  const ProgramRun run = sorrel({"scan", "trash", "--json", "--volume", volume.path()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("size"), 0);
}

TEST(ScanCommand, valuesOfOptionsMayStandInSquareBrackets) {
  const TemporaryFolder folder;
  folder.file("[v]/Users/alice/.Trash/a", 5);
  const RunOptions options{.folder = folder.path()};
  EXPECT_EQ(sorrel({"scan", "trash", "--json", "--volume", "[v]"}, options).document().at("size"), 5);
  EXPECT_EQ(sorrel({"--json", "--volume", "[v]", "scan", "trash"}, options).document().at("size"), 5);
  EXPECT_EQ(sorrel({"scan", "trash", "--json", "--volume=[v]"}, options).document().at("size"), 5);
  EXPECT_EQ(sorrel({"scan", "[trash]"}).err,
            "sorrel: there is no feature '[trash]'. Did you mean 'trash'?\n");
}

TEST(ScanCommand, treeShowsSizesAndASum) {
  const Volume volume({kCaches});
  volume.file("Users/alice/Library/Caches/com.example/data", std::size_t{3} << 20);
  volume.file("Users/alice/Library/Caches/note", 512);

  const ProgramRun run = volume.scan("system-junk", {});

  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "    3.0 MiB  Feature 1\n"
            "    3.0 MiB    Row 0\n"
            "    3.0 MiB      com.example\n"
            "      512 B      note\n"
            "2 items, 3.0 MiB\n");
  EXPECT_EQ(run.err, "");
}

/// The titles of the rows of records, in their order, from the text of a scan with one category.
Words rowsOf(const std::string& text) {
  const std::string indent = "      ";  // below the size, the feature and the category
  Words rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find(indent, 8);
    if (at != std::string::npos) rows.push_back(line.substr(at + indent.size()));
  }
  return rows;
}

TEST(ScanCommand, rowsGoBySizeOrByNameAndTheDocumentKeepsItsOrder) {
  const Volume volume(
      {{1,
        {{0, "SystemCache", {"file://~/Library/Caches/"}}, {1, "SystemCache", {"file://~/Library/Logs/"}}}}});
  volume.file("Users/alice/Library/Caches/alpha", 5);
  volume.file("Users/alice/Library/Caches/beta", 5);
  volume.file("Users/alice/Library/Caches/gamma", 7);
  volume.file("Users/alice/Library/Logs/large", 1000);
  const auto text = [&](const Words& more) {
    Words words = {"--volume", volume.path(), "--catalogue", volume.path("test.plist"),
                   "scan",     "system-junk"};
    words.insert(words.end(), more.begin(), more.end());
    const ProgramRun run = sorrel(words);
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
  };
  const std::string bySize =
      "     1017 B  Feature 1\n"
      "     1000 B    Row 1\n"
      "     1000 B      large\n"
      "       17 B    Row 0\n"
      "        7 B      gamma\n"
      "        5 B      alpha\n"
      "        5 B      beta\n"
      "4 items, 1017 B\n";
  EXPECT_EQ(text({}), bySize);
  EXPECT_EQ(text({"--by", "size"}), bySize);
  EXPECT_EQ(text({"--by", "name"}),
            "     1017 B  Feature 1\n"
            "       17 B    Row 0\n"
            "        5 B      alpha\n"
            "        5 B      beta\n"
            "        7 B      gamma\n"
            "     1000 B    Row 1\n"
            "     1000 B      large\n"
            "4 items, 1017 B\n");
  for (const Words& more : {Words{"--json"}, Words{"--json", "--by", "name"}}) {
    const Json rows = Json::parse(text(more)).at("feature").at("categoryInfo");
    EXPECT_EQ(rows.at(0).at("title"), "Row 0");
    EXPECT_EQ(rows.at(0).at("childrens").at(0).at("title"), "alpha");
    EXPECT_EQ(rows.at(0).at("childrens").at(2).at("title"), "gamma");
  }
}

TEST(ScanCommand, aTitleThatSaysNothingShowsWhereTheItemLies) {
  const Volume volume({{1, {{0, "SystemCache", {"file://~/Library/Caches/", "file:///Library/Caches/"}}}}});
  volume.file("Users/alice/Library/Caches/12", 1);
  volume.file("Users/alice/Library/Caches/content-v2/data", 2);
  volume.file("Users/alice/Library/Caches/com.example", 3);
  volume.file("Users/alice/Library/Caches/com.twice", 4);
  volume.file("Library/Caches/com.twice", 5);
  const std::string own = "  (in " + volume.path("Users/alice/Library/Caches") + ")";
  EXPECT_EQ(rowsOf(volume.scan("system-junk", {}).out),
            (Words{"com.twice  (in " + volume.path("Library/Caches") + ")", "com.twice" + own, "com.example",
                   "content-v2" + own, "12" + own}));
}

TEST(ScanCommand, quietShowsTheTreeAndNothingElse) {
  const Volume volume({kCaches});
  volume.file("Users/alice/Library/Caches/note", 512);
  const ProgramRun loud = volume.scan("system-junk", {});
  const ProgramRun quiet = volume.scan("system-junk", {"--quiet"});
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.out, loud.out);
  EXPECT_EQ(quiet.err, "");
}

TEST(ScanCommand, namesCannotWriteToTheTerminal) {
  const Volume volume({kCaches});
  volume.file("Users/alice/Library/Caches/line\nfeed", 1);
  volume.file("Users/alice/Library/Caches/red\x1b[31m", 1);
  volume.file("Users/alice/Library/Caches/raw\xff", 1);
  volume.file("Users/alice/Library/Caches/turn\xe2\x80\xaegnp.exe", 1);

  const ProgramRun run = volume.scan("system-junk", {});

  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* const shown :
       {"line\\nfeed\n", "red\\x1b[31m\n", "raw\xef\xbf\xbd\n", "turn\\u202egnp.exe\n"}) {
    EXPECT_NE(run.out.find(shown), std::string::npos) << shown;
  }
  EXPECT_EQ(run.out.find('\x1b'), std::string::npos);
}

TEST(ScanCommand, aTerminalShowsTheItemOfTheMomentAndIsLeftClean) {
  const TemporaryFolder volume;
  volume.file("Users/alice/.Trash/red\x1b[31m/data", 512);
  const Words words = {"--volume", volume.path(), "scan", "trash"};

  const ProgramRun run = sorrelOnTerminal(words);

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, sorrel(words).out);
  EXPECT_NE(run.err.find(" %  1 item, 0 B  red\\x1b[31m"), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("\x1b[31m"), std::string::npos);
  EXPECT_TRUE(run.err.ends_with("\r\x1b[K")) << run.err;
}

TEST(ScanCommand, noProgressIsShownForADocumentOrWhenQuiet) {
  const TemporaryFolder volume;
  volume.file("Users/alice/.Trash/a", 512);
  for (const char* const option : {"--json", "--quiet"}) {
    EXPECT_EQ(sorrelOnTerminal({option, "--volume", volume.path(), "scan", "trash"}).err, "") << option;
  }
}

TEST(ScanCommand, documentKeepsEveryByteOfAName) {
  const Volume volume({kCaches});
  volume.file("Users/alice/Library/Caches/a\nb\xff %41", 1);

  const Json document = volume.scan("system-junk").document();

  const Json& found = document.at("feature").at("categoryInfo").at(0).at("childrens").at(0);
  const std::string folder = volume.path("Users/alice/Library/Caches/");
  EXPECT_EQ(found.at("url"), "file://" + folder + "a%0Ab%FF%20%2541");
  EXPECT_EQ(found.at("path"), folder + "a\nb\xef\xbf\xbd %41");
}

TEST(ScanCommand, theOnlyHomeOfAVolumeIsTheUsers) {
  const TemporaryFolder volume;
  volume.folder("Users/Shared");
  volume.text("Users/.localized", "");
  volume.file("Users/zoe/.Trash/a", 7);
  const ProgramRun run = sorrel({"--volume", volume.path(), "--json", "scan", "trash"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.document().at("size"), 7);
}

TEST(ScanCommand, theUserChoosesAmongSeveralHomes) {
  const TemporaryFolder volume;
  volume.file("Users/ann/.Trash/a", 7);
  volume.file("Users/zoe/.Trash/a", 9);
  const ProgramRun run = sorrel({"--volume", volume.path(), "--user", "zoe", "--json", "scan", "trash"});
  EXPECT_EQ(run.document().at("size"), 9);
}

TEST(ScanCommand, trashOfThisMachineLiesInTheDataFolder) {
  const TemporaryFolder home;
  home.file(".local/share/Trash/files/gone.txt", 11);
  home.file(".local/share/Trash/info/gone.txt.trashinfo", 50);
  const ProgramRun run = sorrel({"--json", "scan", "trash"}, {.environment = {"HOME=" + home.path()}});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json document = run.document();
  const Json& rows = document.at("feature").at("categoryInfo");
  EXPECT_EQ(rows.at(0).at("size"), 11);
  EXPECT_EQ(rows.at(0).at("childrens").at(0).at("path"), home.path(".local/share/Trash/files/gone.txt"));
}

TEST(ScanCommand, anInterruptPrintsWhatIsThereAndEndsWith130) {
  const Volume volume({kCaches});
  volume.file("Users/alice/Library/Caches/note", 512);
  const ProgramRun run =
      sorrel({"--volume", volume.path(), "--json", "scan", "system-junk"}, {.interrupted = true});
  EXPECT_EQ(run.status, 130) << run.err;
  const Json document = run.document();
  EXPECT_EQ(document.at("feature").at("finderID"), 1);
  EXPECT_EQ(document.at("callbacks").at("done"), 1);
  EXPECT_EQ(document.at("callbacks").at("lastPercent"), 1.0);
}

TEST(ScanCommand, anInterruptIsWrittenToTheLogBeforeTheEnd) {
  const Volume volume({kCaches});
  sorrel({"--volume", volume.path(), "--bundle-id", "test.id", "scan", "system-junk"}, {.interrupted = true});
  const std::string log =
      contentOf(volume.path("Users/alice/Library/Application Support/test.id/test.idFrameworkLog.txt"));
  EXPECT_TRUE(log.ends_with(":Info>:Stop Scan FeatureInfo:1\n")) << log;
}

TEST(ScanCommand, leavesNothingButTheLog) {
  const Volume volume({kCaches, kTrash});
  volume.file("Users/alice/Library/Caches/com.example/deep/data", 100);
  volume.file("Users/alice/.Trash/a", 7);
  volume.file("Volumes/USB/.Trashes/" + std::to_string(::getuid()) + "/old.zip", 300);
  const std::string log = "Users/alice/Library/Application Support/test.id/test.idFrameworkLog.txt";
  volume.text(log, "");
  const auto withoutLog = [&] {
    auto lines = snapshot(volume.path());
    std::erase_if(lines, [&](const std::string& line) { return line.starts_with(volume.path(log)); });
    return lines;
  };

  const auto before = withoutLog();
  for (const char* const feature : {"system-junk", "trash"}) {
    EXPECT_EQ(volume.scan(feature, {"--json", "--bundle-id", "test.id"}).status, 0);
  }
  EXPECT_EQ(withoutLog(), before);
}

}  // namespace
}  // namespace sorrel::hosttests
