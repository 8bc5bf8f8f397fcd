#include "Host/UnreadNote.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "SorrelFramework/Scan/UnreadFolders.hpp"
#include "Tests/Host/HostKit.hpp"

namespace sorrel::cli {
namespace {

constexpr std::int64_t kFeature = 78;

std::string noteOf(int count) {
  UnreadFolders::clear(kFeature);
  for (int i = 0; i < count; ++i) UnreadFolders::add(kFeature, "/a" + std::to_string(i), EACCES);
  std::ostringstream out;
  writeUnreadFolders(out, kFeature);
  return out.str();
}

TEST(UnreadNote, scanThatReadAllWritesNothing) { EXPECT_EQ(noteOf(0), ""); }

TEST(UnreadNote, namesTheFoldersWithTheReason) {
  EXPECT_EQ(noteOf(1),
            "sorrel: 1 folder could not be read; what it holds is not counted:\n"
            "sorrel:   /a0 (Permission denied)\n");
  EXPECT_EQ(noteOf(2),
            "sorrel: 2 folders could not be read; what they hold is not counted:\n"
            "sorrel:   /a0 (Permission denied)\n"
            "sorrel:   /a1 (Permission denied)\n");
}

TEST(UnreadNote, namesTheFirstAndCountsTheRest) {
  const std::string note = noteOf(static_cast<int>(UnreadFolders::kMostNamed) + 3);
  EXPECT_TRUE(note.ends_with("sorrel:   and 3 more\n")) << note;
}

TEST(UnreadNote, namesTheFilesAfterTheFolders) {
  static_cast<void>(noteOf(1));
  std::ostringstream out;
  UnreadFolders::addFile(kFeature, "/f0", EMFILE);
  writeUnreadFolders(out, kFeature);
  EXPECT_EQ(out.str(),
            "sorrel: 1 folder could not be read; what it holds is not counted:\n"
            "sorrel:   /a0 (Permission denied)\n"
            "sorrel: 1 file could not be read; no copy of it is known:\n"
            "sorrel:   /f0 (Too many open files)\n");
  UnreadFolders::clear(kFeature);
  for (const char* const path : {"/f0", "/f1"}) UnreadFolders::addFile(kFeature, path, EIO);
  std::ostringstream files;
  writeUnreadFolders(files, kFeature);
  EXPECT_EQ(files.str(),
            "sorrel: 2 files could not be read; no copies of them are known:\n"
            "sorrel:   /f0 (Input/output error)\n"
            "sorrel:   /f1 (Input/output error)\n");
}

/// A volume with folders that its user can't read.
class UnreadVolume : public testing::Test {
 protected:
  UnreadVolume() {
    volume.folder("Users/alice/Data");
    for (const char* const name : {"", "Users", "Users/alice", "Users/alice/Data"})
      EXPECT_EQ(::chmod(volume.path(name).c_str(), 0755), 0);
  }
  ~UnreadVolume() override {
    for (const std::string& path : closed) ::chmod(path.c_str(), 0700);
  }

  void close(const std::string& folder) {
    closed.push_back(volume.path(folder));
    ASSERT_EQ(::chmod(closed.back().c_str(), 0), 0);
  }
  [[nodiscard]] hosttests::ProgramRun run(const std::vector<std::string>& words) const {
    constexpr unsigned plain = 10001;
    std::vector<std::string> all{"--volume", volume.path()};
    all.insert(all.end(), words.begin(), words.end());
    return hosttests::sorrel(all, {.user = ::getuid() == 0 ? plain : 0});
  }
  /// The note about `folder` only.
  [[nodiscard]] std::string noteAbout(const std::string& folder) const {
    return "sorrel: 1 folder could not be read; what it holds is not counted:\nsorrel:   " +
           volume.path(folder) + " (Permission denied)\n";
  }

  hosttests::TemporaryFolder volume;
  std::vector<std::string> closed;
};

TEST_F(UnreadVolume, scanWritesItToStandardErrorUnlessQuiet) {
  volume.file("Users/alice/Library/Caches/one/closed/a", 7);
  volume.file("Users/alice/Library/Caches/two", 5);
  close("Users/alice/Library/Caches/one/closed");
  const hosttests::ProgramRun loud = run({"--json", "scan", "system-junk"});
  EXPECT_EQ(loud.status, 0);
  EXPECT_EQ(loud.document().at("size"), 5);
  EXPECT_EQ(loud.err, noteAbout("Users/alice/Library/Caches/one/closed"));
  EXPECT_EQ(run({"--quiet", "scan", "system-junk"}).err, "");
}

TEST_F(UnreadVolume, scanOfDuplicatesWritesIt) {
  for (const char* const name : {"Data/closed/a", "Data/b", "Data/c"})
    volume.text(std::string("Users/alice/") + name, "alike");
  close("Users/alice/Data/closed");
  const hosttests::ProgramRun loud = run({"--json", "scan", "duplicates", "--limit", "0"});
  EXPECT_EQ(loud.status, 0);
  EXPECT_EQ(loud.document().at("size"), 10);
  EXPECT_EQ(loud.err, noteAbout("Users/alice/Data/closed"));
  EXPECT_EQ(run({"--quiet", "scan", "duplicates", "--limit", "0"}).err, "");
}

TEST_F(UnreadVolume, scanOfDuplicatesNamesAFileThatItCouldNotHash) {
  for (const char* const folder : {"One/", "Two/"}) {
    volume.text(std::string("Users/alice/Data/") + folder + "a", "alike");
    volume.text(std::string("Users/alice/Data/") + folder + "b", "as well");
  }
  close("Users/alice/Data/One/b");
  const hosttests::ProgramRun loud = run({"--json", "scan", "duplicates", "--limit", "0"});
  EXPECT_EQ(loud.status, 0);
  EXPECT_EQ(loud.document().at("size"), 10);
  EXPECT_EQ(loud.err, "sorrel: 1 file could not be read; no copy of it is known:\nsorrel:   " +
                          volume.path("Users/alice/Data/One/b") + " (Permission denied)\n");
}

TEST_F(UnreadVolume, scanOfLargeFilesWritesItWithAndWithoutItsTool) {
  constexpr std::int64_t size = 60 << 20;
  for (const char* const name : {"Data/closed/a", "Data/b"}) {
    const std::string path = volume.file(std::string("Users/alice/") + name, 0);
    std::filesystem::resize_file(path, size);
  }
  close("Users/alice/Data/closed");
  volume.folder("no tools");
  for (const std::vector<std::string>& tools :
       {std::vector<std::string>{}, {"--tools", volume.path("no tools")}}) {
    std::vector<std::string> words = tools;
    words.insert(words.end(), {"--json", "scan", "large-old"});
    const hosttests::ProgramRun loud = run(words);
    EXPECT_EQ(loud.status, 0);
    EXPECT_EQ(loud.document().at("size"), size);
    EXPECT_EQ(loud.err, noteAbout("Users/alice/Data/closed"));
    words.insert(words.begin(), "--quiet");
    EXPECT_EQ(run(words).err, "");
  }
}

TEST_F(UnreadVolume, scansWithFewDescriptorsFindEverythingOrSayWhatIsMissing) {
  std::filesystem::resize_file(volume.file("Users/alice/Data/big", 0), 60 << 20);
  for (int i = 0; i < 40; ++i) volume.text("Users/alice/Data/" + std::to_string(i), std::string(5000, 'x'));
  for (std::uint64_t files = 10; files < 26; ++files) {
    for (const std::vector<std::string>& scan :
         {std::vector<std::string>{"large-old"}, {"duplicates", "--limit", "1"}}) {
      std::vector<std::string> words{"--volume", volume.path(), "--json", "scan"};
      words.insert(words.end(), scan.begin(), scan.end());
      const hosttests::ProgramRun run = hosttests::sorrel(words, {.files = files});
      if (run.status != 0 || !run.err.empty()) continue;
      EXPECT_EQ(run.document().at("size"), scan[0] == "large-old" ? 60 << 20 : 40 * 5000)
          << scan[0] << " with " << files;
    }
  }
}

TEST_F(UnreadVolume, cleanOfDuplicatesWritesItBeforeItsPlan) {
  for (const char* const name : {"Data/closed/a", "Data/b", "Data/c"})
    volume.text(std::string("Users/alice/") + name, "alike");
  close("Users/alice/Data/closed");
  EXPECT_EQ(run({"clean", "duplicates", "--limit", "0", "--all", "--even-last-copy", "--dry-run"}).err,
            noteAbout("Users/alice/Data/closed"));
}

}  // namespace
}  // namespace sorrel::cli
