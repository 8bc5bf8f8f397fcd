// The output that README.md shows is what a newcomer gets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "Tests/Host/HostKit.hpp"

namespace sorrel::hosttests {
namespace {

/// What README.md shows below a command line; it ends at an empty line or at the end of the block.
std::string shownBelow(const std::string& command) {
  const std::string readme = contentOf(SORREL_SOURCE_DIR "/README.md");
  const std::string line = "$ " + command + "\n";
  const std::size_t begin = readme.find(line);
  if (begin == std::string::npos) return "README.md has no \"" + command + "\"";
  const std::size_t from = begin + line.size();
  const std::size_t end = std::min(readme.find("\n\n", from) + 1, readme.find("```", from));
  return readme.substr(from, end - from);
}

TEST(Readme, showsWhatTheDemoPrints) {
  const TemporaryFolder volume;
  const std::string make = "'" SORREL_SOURCE_DIR "/scripts/make-volume' '" + volume.path() + "'";
  ASSERT_EQ(std::system(make.c_str()), 0);
  for (const std::string feature : {"system-junk", "trash"}) {
    const ProgramRun run = sorrel({"--volume", volume.path(), "--user", "alice", "scan", feature});
    EXPECT_EQ(run.out, shownBelow("sorrel --volume \"$volume\" --user alice scan " + feature));
  }
}

}  // namespace
}  // namespace sorrel::hosttests
