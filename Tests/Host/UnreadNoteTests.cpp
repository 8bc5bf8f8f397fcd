#include "Host/UnreadNote.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>

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

TEST(UnreadNote, scanWritesItToStandardErrorUnlessQuiet) {
  const hosttests::TemporaryFolder volume;
  volume.file("Users/alice/Library/Caches/one/closed/a", 7);
  volume.file("Users/alice/Library/Caches/two", 5);
  constexpr unsigned plain = 10001;
  const std::string closed = volume.path("Users/alice/Library/Caches/one/closed");
  ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
  ASSERT_EQ(::chmod(volume.path().c_str(), 0755), 0);
  const hosttests::RunOptions options{.user = ::getuid() == 0 ? plain : 0};
  const auto scan = [&](const std::string& mode) {
    return hosttests::sorrel({"--volume", volume.path(), mode, "scan", "system-junk"}, options);
  };
  const hosttests::ProgramRun loud = scan("--json");
  EXPECT_EQ(loud.status, 0);
  EXPECT_EQ(loud.document().at("size"), 5);
  EXPECT_EQ(loud.err, "sorrel: 1 folder could not be read; what it holds is not counted:\nsorrel:   " +
                          closed + " (Permission denied)\n");
  EXPECT_EQ(scan("--quiet").err, "");
  ::chmod(closed.c_str(), 0700);
}

}  // namespace
}  // namespace sorrel::cli
