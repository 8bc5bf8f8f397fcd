#include "Helper/HelperLog.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "Tests/Support/ScopedVariable.hpp"

namespace sorrel::helper {
namespace {

using std::chrono::seconds;

TEST(HelperLog, aForeignTextIsOneFieldOfOneLine) {
  EXPECT_EQ(escapedForLog("/plain path -rf %20$(x)"), "/plain path -rf %20$(x)");
  EXPECT_EQ(escapedForLog("a\nb\r\t\x1b[0m"), "a\\x0ab\\x0d\\x09\\x1b[0m");
  EXPECT_EQ(escapedForLog("\" why=\"\\x0a"), "\\x22 why=\\x22\\x5cx0a");
  EXPECT_EQ(escapedForLog(std::string("\0\x7f\xc3\xa9\xff", 5)), "\\x00\\x7f\\xc3\\xa9\\xff");
}

TEST(HelperLog, aLongTextIsCut) {
  EXPECT_EQ(escapedForLog(std::string(kMostEscaped, 'x')), std::string(kMostEscaped, 'x'));
  EXPECT_EQ(escapedForLog(std::string(kMostEscaped + 1, 'x')), std::string(kMostEscaped, 'x') + "...");
}

TEST(RateLimit, letsABurstThroughInEachInterval) {
  RateLimit limit(2, seconds(10));
  const RateLimit::Clock::time_point start = RateLimit::Clock::now();
  EXPECT_TRUE(limit.admits(start));
  EXPECT_TRUE(limit.admits(start + seconds(9)));
  EXPECT_FALSE(limit.admits(start + seconds(9)));
  EXPECT_FALSE(limit.admits(start + seconds(9)));
  EXPECT_TRUE(limit.admits(start + seconds(10)));
  EXPECT_EQ(limit.takeHeldBack(), 2U);
  EXPECT_EQ(limit.takeHeldBack(), 0U);
  EXPECT_TRUE(limit.admits(start + seconds(19)));
  EXPECT_FALSE(limit.admits(start + seconds(19)));
}

/// The lines that `work` writes to a log.
std::vector<std::string> linesOf(const std::function<void(HelperLog&)>& work,
                                 HelperLog::Now now = RateLimit::Clock::now) {
  const test::ScopedVariable journal("JOURNAL_STREAM", "1:1");
  testing::internal::CaptureStderr();
  {
    HelperLog log("helper", std::move(now));
    work(log);
  }
  std::istringstream text(testing::internal::GetCapturedStderr());
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line.substr(line.find('>') + 1));
  return lines;
}

void write(HelperLog& log, std::uint32_t uid, int lines) {
  for (int i = 0; i < lines; ++i) log.limited(uid, [uid] { return "user " + std::to_string(uid); });
}

TEST(HelperLog, everyLineThatIsHeldBackIsCounted) {
  const auto lines = linesOf([](HelperLog& log) {
    write(log, 7, 300);
    log.reportHeldBack(7);
    log.reportHeldBack(7);
    write(log, 7, 2);
  });
  ASSERT_EQ(lines.size(), HelperLog::kMostOfUser + 2);
  EXPECT_EQ(lines[HelperLog::kMostOfUser], "250 more lines for uid=7 were not logged");
  EXPECT_EQ(lines.back(), "2 more lines for uid=7 were not logged") << "at the end of the log";
}

TEST(HelperLog, oneUsersFloodCostsAnotherNoLine) {
  const auto lines = linesOf([](HelperLog& log) {
    write(log, 7, 1000);
    write(log, 8, 1);
    log.limited(kUnknownUser, [] { return "unknown"; });
  });
  EXPECT_NE(std::ranges::find(lines, "user 8"), lines.end());
  EXPECT_NE(std::ranges::find(lines, "unknown"), lines.end());
}

TEST(HelperLog, manyUsersShareTheLastLimit) {
  const auto lines = linesOf([](HelperLog& log) {
    for (std::uint32_t uid = 0; uid < 1000; ++uid) write(log, uid, 1);
  });
  EXPECT_EQ(std::ranges::count_if(lines, [](const auto& line) { return line.starts_with("user "); }),
            static_cast<std::ptrdiff_t>(HelperLog::kMostUsers + HelperLog::kMostOfUser));
}

TEST(HelperLog, aUserHasALimitOfItsOwnAgainWhenOthersAreQuiet) {
  RateLimit::Clock::time_point now{};
  const auto lines = linesOf(
      [&now](HelperLog& log) {
        for (std::uint32_t uid = 0; uid < 1000; ++uid) write(log, uid, 1);
        write(log, 5, 100);
        now += seconds(10);
        write(log, kUnknownUser, 1000);
        write(log, 2000, 1);
      },
      [&now] { return now; });
  EXPECT_NE(std::ranges::find(lines, "user 2000"), lines.end());
  EXPECT_NE(std::ranges::find(lines, "51 more lines for uid=5 were not logged"), lines.end())
      << "none is forgotten with its user";
}

}  // namespace
}  // namespace sorrel::helper
