#include "SorrelFramework/Platform/Machine/UserDirectories.hpp"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

std::optional<std::string> documentsIn(std::string_view text) {
  return userDirectoryIn(text, "XDG_DOCUMENTS_DIR", "/home/alice");
}

TEST(UserDirectories, pathsBelowTheHomeAndAbsoluteOnes) {
  EXPECT_EQ(documentsIn("XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n"), "/home/alice/Dokumente");
  EXPECT_EQ(documentsIn("XDG_DOCUMENTS_DIR=\"/data/papers/\"\n"), "/data/papers");
  EXPECT_EQ(documentsIn("XDG_DOCUMENTS_DIR=\"$HOME/\"\n"), "/home/alice");
  EXPECT_EQ(documentsIn("XDG_DOCUMENTS_DIR=\"/\""), "/");
}

TEST(UserDirectories, otherLinesAreIgnored) {
  EXPECT_EQ(documentsIn("# This file is written by xdg-user-dirs-update\n"
                        "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                        "XDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n"
                        "XDG_MUSIC_DIR=\"$HOME/Music\"\n"),
            "/home/alice/Papers");
  EXPECT_FALSE(documentsIn("#XDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIRECTORY=\"$HOME/Papers\"\n"));
  EXPECT_FALSE(documentsIn(""));
}

TEST(UserDirectories, valuesOfNoUseAreIgnored) {
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR=$HOME/Papers\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR=\"Papers\"\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR=\"$HOME\"\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR=\"$HOMEX/Papers\"\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR=\"$HOME/Papers\n\"\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR=\"\"\n"));
  EXPECT_FALSE(documentsIn("XDG_DOCUMENTS_DIR"));
}

TEST(UserDirectories, lastUsableLineCounts) {
  EXPECT_EQ(documentsIn("XDG_DOCUMENTS_DIR=\"/one\"\nXDG_DOCUMENTS_DIR=\"/two\"\nXDG_DOCUMENTS_DIR=\"no\"\n"),
            "/two");
}

TEST(UserDirectories, blanksAndEscapedCharacters) {
  EXPECT_EQ(documentsIn("  XDG_DOCUMENTS_DIR = \"$HOME/My \\\"Papers\\\" \\\\ \\$\" # mine\n"),
            "/home/alice/My \"Papers\" \\ $");
}

TEST(UserDirectories, readsTheFileOfTheConfigFolder) {
  const test::TemporaryFolder config;
  EXPECT_FALSE(userDirectory(config.path(), "XDG_DOCUMENTS_DIR", "/home/alice"));
  config.file("user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n");
  EXPECT_EQ(userDirectory(config.path(), "XDG_DOCUMENTS_DIR", "/home/alice"), "/home/alice/Papers");
}

}  // namespace
}  // namespace sorrel
