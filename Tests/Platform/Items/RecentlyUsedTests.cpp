#include "SorrelFramework/Platform/Items/RecentlyUsed.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

/// An application's note in an entry; `command` as it is written in the list.
std::string note(const std::string& command, const std::string& modified) {
  return "<bookmark:application name=\"" + command + "\" exec=\"&apos;" + command + "&apos;\"" +
         (modified.empty() ? "" : " modified=\"" + modified + "\"") + " count=\"1\"/>";
}

std::string entry(const std::string& url, const std::string& visited, const std::string& notes = "") {
  return "<bookmark href=\"" + url + "\" added=\"2020-01-01T00:00:00Z\" modified=\"2030-01-01T00:00:00Z\"" +
         (visited.empty() ? "" : " visited=\"" + visited + "\"") +
         "><info><metadata owner=\"http://freedesktop.org\"><mime:mime-type type=\"text/plain\"/>"
         "<bookmark:applications>" +
         notes + "</bookmark:applications></metadata></info></bookmark>";
}

std::string list(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><xbel version=\"1.0\" "
         "xmlns:bookmark=\"http://www.freedesktop.org/standards/desktop-bookmarks\" "
         "xmlns:mime=\"http://www.freedesktop.org/standards/shared-mime-info\">" +
         entries + "</xbel>";
}

constexpr Date kOld{1'584'705'730};  // 2020-03-20T12:02:10Z
constexpr Date kNew{1'600'000'000};  // 2020-09-13T12:26:40Z

class RecentlyUsedTest : public testing::Test {
 protected:
  [[nodiscard]] RecentlyUsed read(const std::string& entries) const {
    const auto found = RecentlyUsed::read(volume.file("list.xbel", list(entries)));
    EXPECT_TRUE(found.has_value());
    return found.value();
  }
  test::TemporaryVolume volume;
};

TEST_F(RecentlyUsedTest, fileWasOpenedWhenItWasLastVisited) {
  const auto found = read(entry("file:///home/a/x%20y.txt", "2020-03-20T12:02:10Z") +
                          entry("file:///home/a/n", "2020-09-13T14:26:40.900000+02:00"));
  EXPECT_EQ(found.opened("/home/a/x y.txt"), kOld);
  EXPECT_EQ(found.opened("/home/a/n"), kNew);
  EXPECT_EQ(found.opened("/home/a"), std::nullopt);
  EXPECT_EQ(found.opened("/home/a/x%20y.txt"), std::nullopt);
}

TEST_F(RecentlyUsedTest, sameFileUnderTwoUrlsWasOpenedWhenItWasOpenedLast) {
  for (const char* const order : {"ab", "ba"}) {
    const std::string first = entry("file:///home/a%2Bb", "2020-03-20T12:02:10Z");
    const std::string second = entry("file:///home/a+b", "2020-09-13T12:26:40Z");
    const auto found = read(order == std::string("ab") ? first + second : second + first);
    EXPECT_EQ(found.opened("/home/a+b"), kNew);
  }
}

TEST_F(RecentlyUsedTest, entriesWithoutAVisitOrAPathTellNothing) {
  const auto found = read(entry("file:///home/a", "", note("sh", "")) +
                          entry("https://host/home/b", "2020-03-20T12:02:10Z"));
  EXPECT_EQ(found.opened("/home/a"), std::nullopt);
  EXPECT_EQ(found.opened("/home/b"), std::nullopt);
  EXPECT_EQ(found.ran(std::filesystem::canonical("/bin/sh").string()), std::nullopt);
}

TEST_F(RecentlyUsedTest, programRanWhenItLastNotedAnything) {
  const std::string program = volume.script("bin/real viewer", "true");
  const std::string link = volume.link("bin/viewer", "real viewer");
  const auto found = read(entry("file:///a", "", note(link + " %u", "2020-03-20T12:02:10Z")) +
                          entry("https://host/b", "", note(link, "2020-09-13T12:26:40Z")) +
                          entry("file:///c", "", note(volume.path("bin/gone"), "2020-09-13T12:26:40Z")));
  EXPECT_EQ(found.ran(program), kNew);
  EXPECT_EQ(found.ran(link), std::nullopt);
  EXPECT_EQ(found.ran(volume.path("bin/gone")), std::nullopt);
  EXPECT_EQ(found.opened(program), std::nullopt);
}

TEST_F(RecentlyUsedTest, programIsSearchedForAsAShellDoes) {
  const auto found = read(entry("file:///a", "", note("sh %u", "2020-03-20T12:02:10Z")));
  const std::string shell = std::filesystem::canonical("/bin/sh").string();
  EXPECT_EQ(found.ran(shell), kOld);
}

TEST_F(RecentlyUsedTest, anythingButAListIsNothing) {
  EXPECT_FALSE(RecentlyUsed::read(volume.path("missing")).has_value());
  EXPECT_FALSE(RecentlyUsed::read(volume.folder("folder")).has_value());
  EXPECT_FALSE(RecentlyUsed::read(volume.fifo("pipe")).has_value());
  EXPECT_FALSE(RecentlyUsed::read(volume.file("empty", "")).has_value());
  EXPECT_FALSE(RecentlyUsed::read(volume.file("text", "no list")).has_value());
  EXPECT_FALSE(RecentlyUsed::read(volume.file("cut", list("").substr(0, 200))).has_value());
  EXPECT_FALSE(RecentlyUsed::read(volume.file("huge", test::operator""_MiB(17))).has_value());
  EXPECT_TRUE(RecentlyUsed::read(volume.file("nothing", list(""))).has_value());
}

}  // namespace
}  // namespace sorrel
