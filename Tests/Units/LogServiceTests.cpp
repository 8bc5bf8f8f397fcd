#include "SorrelFramework/Units/LogService.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Base/Fatal.hpp"
#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/RecordingQueue.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/VirtualClock.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;
using enum LogService::LogLevel;

constexpr const char* kIdentifier = "org.example.cleaner";

/// True if `text` has the form of `pattern`, where "d" matches a digit.
bool hasForm(std::string_view text, std::string_view pattern) {
  return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                    [](char c, char form) { return form == 'd' ? c >= '0' && c <= '9' : c == form; });
}

/// The text with each time replaced by DATE.
std::string withoutDates(std::string text) {
  constexpr std::string_view kForm = "dddd-dd-dd dd:dd:dd";
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (hasForm(std::string_view(text).substr(at, kForm.size()), kForm))
      text.replace(at, kForm.size(), "DATE");
  }
  return text;
}

class LogServiceTest : public testing::Test {
 protected:
  LogServiceTest() : log_(support_, kIdentifier) {}

  std::string written() {
    log_.flushForTesting();
    return withoutDates(test::contentOf(path_));
  }

  test::TemporaryFolder folder_;
  const std::string support_ = folder_.path("not made yet/Application Support");
  const std::string path_ = support_ + "/org.example.cleaner/org.example.cleanerFrameworkLog.txt";
  LogService log_;
};

TEST_F(LogServiceTest, makesFoldersAndAnEmptyFileAtTheDoubledName) {
  EXPECT_EQ(log_.logPath.path(), path_);
  EXPECT_TRUE(log_.logPath.isFileURL());
  EXPECT_EQ(fs::file_size(path_), 0U);
}

TEST_F(LogServiceTest, entryIsOneLineWithDateLevelAndText) {
  log_.log(Debug, "first");
  log_.log(Info, "Stop Scan FeatureInfo:7");
  EXPECT_EQ(written(), "<DATE:Debug>:first\n<DATE:Info>:Stop Scan FeatureInfo:7\n");
}

TEST_F(LogServiceTest, emptyTextWritesTheHeadAlone) {
  log_.log(Info, "");
  EXPECT_EQ(written(), "<DATE:Info>:\n");
}

TEST_F(LogServiceTest, textIsWrittenAsItIs) {
  log_.log(Debug, "two\nlines with ü, 字 and %s");
  EXPECT_EQ(written(), "<DATE:Debug>:two\nlines with ü, 字 and %s\n");
}

TEST_F(LogServiceTest, dictionarySpreadsOverLines) {
  log_.logDict(Info, {{"key", "value"}, {"other", ""}});
  EXPECT_EQ(written(), "<DATE:Info>:\nkey:value\n\nother:\n\n");
}

TEST_F(LogServiceTest, emptyDictionaryWritesTheHeadAlone) {
  log_.logDict(Debug, {});
  EXPECT_EQ(written(), "<DATE:Debug>:\n");
}

TEST_F(LogServiceTest, textThatIsNoUTF8IsDroppedAlone) {
  log_.log(Info, "before");
  log_.log(Info, "broken \xff text");
  log_.log(Info, "after");
  EXPECT_EQ(written(), "<DATE:Info>:before\n<DATE:Info>:after\n");
}

TEST_F(LogServiceTest, appendsToTheEntriesOfAnEarlierRun) {
  log_.log(Info, "first run");
  log_.flushForTesting();
  LogService again(support_, kIdentifier);
  again.log(Info, "second run");
  again.flushForTesting();
  EXPECT_EQ(written(), "<DATE:Info>:first run\n<DATE:Info>:second run\n");
}

TEST_F(LogServiceTest, keepsTheOrderOfEachThreadAndNeverMixesEntries) {
  constexpr int kEntries = 200;
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([this, t] {
        for (int i = 0; i < kEntries; ++i) log_.log(Debug, std::to_string(t) + "-" + std::to_string(i));
      });
    }
  }
  std::istringstream lines(written());
  std::vector<int> next(4, 0);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_TRUE(line.starts_with("<DATE:Debug>:")) << line;
    const auto thread = static_cast<std::size_t>(line[13] - '0');
    ASSERT_LT(thread, next.size());
    EXPECT_EQ(line.substr(15), std::to_string(next[thread]++));
  }
  EXPECT_EQ(count, 4 * kEntries);
}

TEST_F(LogServiceTest, deletedFileIsNotMadeAgain) {
  fs::remove(path_);
  log_.log(Info, "lost");
  log_.flushForTesting();
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(LogServiceTest, writesAgainWhenTheFileIsBack) {
  fs::rename(path_, path_ + ".away");
  log_.log(Info, "lost");
  log_.flushForTesting();
  fs::rename(path_ + ".away", path_);
  log_.log(Info, "kept");
  EXPECT_EQ(written(), "<DATE:Info>:kept\n");
}

TEST_F(LogServiceTest, followsNoLink) {
  const std::string victim = folder_.file("victim", "untouched");
  fs::remove(path_);
  fs::create_symlink(victim, path_);
  log_.log(Info, "lost");
  log_.flushForTesting();
  EXPECT_EQ(test::contentOf(victim), "untouched");
}

TEST_F(LogServiceTest, danglingLinkMakesNoFile) {
  fs::remove(path_);
  fs::create_symlink(folder_.path("elsewhere"), path_);
  LogService again(support_, kIdentifier);
  again.log(Info, "lost");
  again.flushForTesting();
  EXPECT_FALSE(fs::exists(folder_.path("elsewhere")));
}

TEST_F(LogServiceTest, fifoInItsPlaceHoldsNothingUp) {
  fs::remove(path_);
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  log_.log(Info, "lost");
  log_.flushForTesting();
  EXPECT_TRUE(fs::is_fifo(path_));
}

TEST_F(LogServiceTest, folderInItsPlaceIsLeftAlone) {
  fs::remove(path_);
  fs::create_directory(path_);
  LogService again(support_, kIdentifier);
  again.log(Info, "lost");
  again.flushForTesting();
  EXPECT_TRUE(fs::is_empty(path_));
}

TEST_F(LogServiceTest, folderThatCannotBeMadeIsNoFailure) {
  const std::string blocked = folder_.file("a file");
  LogService lost(blocked, kIdentifier);
  lost.log(Info, "lost");
  lost.flushForTesting();
  EXPECT_EQ(test::contentOf(blocked), "");
}

TEST_F(LogServiceTest, readOnlyVolumeIsNoFailure) {
  // Not through the log: a process with a second thread may not fork and start threads in the child.
  std::ofstream(path_) << "before\n";
  const std::string missing = folder_.folder("volume without a log");
  const std::string outcome = test::inMountingChild([&]() -> std::string {
    for (const std::string& volume : {support_, missing}) {
      if (::mount(volume.c_str(), volume.c_str(), nullptr, MS_BIND, nullptr) != 0) return "skip";
      if (::mount(nullptr, volume.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        return "skip";
      LogService readOnly(volume, kIdentifier);
      readOnly.log(Info, "lost");
      readOnly.flushForTesting();
    }
    return "went on";
  });
  if (outcome == "skip") GTEST_SKIP() << "nothing may be mounted here";
  EXPECT_EQ(outcome, "went on");
  EXPECT_EQ(test::contentOf(path_), "before\n");
  EXPECT_TRUE(fs::is_empty(missing));
}

TEST_F(LogServiceTest, fullDiskLosesEntriesAndNothingElse) {
  const std::string outcome = test::inMountingChild([&]() -> std::string {
    const std::string disk = folder_.folder("disk");
    if (::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=64k") != 0) return "skip";
    LogService full(disk, kIdentifier);
    full.log(Info, "first");
    full.log(Info, std::string(200'000, 'x'));
    full.log(Info, "lost");
    full.flushForTesting();
    const std::string text = withoutDates(test::contentOf(full.logPath.path()));
    return text.starts_with("<DATE:Info>:first\n") ? "went on" : text.substr(0, 100);
  });
  if (outcome == "skip") GTEST_SKIP() << "nothing may be mounted here";
  EXPECT_EQ(outcome, "went on");
}

TEST_F(LogServiceTest, leavesNoDescriptorOpen) {
  const std::size_t before = test::openDescriptors();
  for (int i = 0; i < 50; ++i) log_.log(Info, "text");
  log_.flushForTesting();
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(LogServiceTest, textAfterShutDownOfItsQueueIsDropped) {
  log_.serialQueue->shutDown();
  log_.log(Info, "lost");
  EXPECT_EQ(test::contentOf(path_), "");
}

TEST_F(LogServiceTest, endOfTheLogWritesWhatWasLogged) {
  {
    LogService other(support_, "other");
    for (int i = 0; i < 100; ++i) other.log(Info, "x");
  }
  const std::string text = withoutDates(test::contentOf(support_ + "/other/otherFrameworkLog.txt"));
  EXPECT_EQ(text.size(), 100U * std::string("<DATE:Info>:x\n").size());
}

TEST_F(LogServiceTest, dateHasTheFormOfTheEntries) {
  EXPECT_EQ(withoutDates(log_.dateToString()), "DATE");
  EXPECT_TRUE(hasForm(log_.dateToString("HH'h'mm"), "ddhdd"));
}

TEST_F(LogServiceTest, levelsHaveTheirRawValues) {
  EXPECT_EQ(LogService::rawValue(Debug), "Debug");
  EXPECT_EQ(LogService::rawValue(Info), "Info");
}

class LogServiceShard : public testing::Test {
 protected:
  LogServiceShard() { LogService::resetForTesting(); }
  ~LogServiceShard() override { LogService::resetForTesting(); }

  void installHost(const std::string& identifier) {
    folder_.folder("Users/alice");
    Host::MainBundle bundle;
    bundle.identifier = identifier;
    Host::install(Host::macVolume(folder_.path(), "alice", bundle));
  }

  test::TemporaryFolder folder_;
};

using LogServiceShardDeathTest = LogServiceShard;

TEST_F(LogServiceShard, writesBelowTheApplicationSupportFolderOfTheUser) {
  installHost("com.example.app");
  EXPECT_EQ(&LogService::shard(), &LogService::shard());
  LogService::shard().log(Info, "hello");
  LogService::shard().flushForTesting();
  EXPECT_EQ(withoutDates(test::contentOf(folder_.path(
                "Users/alice/Library/Application Support/com.example.app/com.example.appFrameworkLog.txt"))),
            "<DATE:Info>:hello\n");
}

TEST_F(LogServiceShardDeathTest, mainBundleWithoutAnIdentifierIsAFatalStop) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  installHost("");
  EXPECT_DEATH(LogService::shard().log(Info, "x"),
               "Unexpectedly found nil while unwrapping an Optional value");
}

/// A disk on which each entry takes `stepsPerEntry` waits of the ending process: a task before each entry
/// blocks the log's queue for that long.
class SlowDisk {
 public:
  explicit SlowDisk(int stepsPerEntry)
      : stepsPerEntry_(stepsPerEntry), clock_([this](std::uint64_t /*microseconds*/) { step(); }) {}

  void log(int entries) {
    LogService& log = LogService::shard();
    entries_ = entries;
    for (int i = 0; i < entries; ++i) {
      log.serialQueue->submit([this] { hold(); }, nullptr);
      log.log(Info, "x");
    }
    log.serialQueue->submit([this] { arrive(); }, nullptr);
  }

 private:
  /// Lets one entry through if it is time, and returns when that entry is written.
  void step() {
    if (++steps_ % stepsPerEntry_ != 0) return;
    std::unique_lock lock(mutex_);
    if (released_ == entries_) return;
    ++released_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return arrived_ > released_; });
  }
  int arrive() {
    const std::lock_guard lock(mutex_);
    changed_.notify_all();
    return ++arrived_;
  }
  void hold() {
    const int own = arrive();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this, own] { return released_ >= own; });
  }

  const int stepsPerEntry_;
  int entries_ = 0;
  int steps_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  int arrived_ = 0;
  int released_ = 0;
  test::VirtualClock clock_;
};

class LogServiceExitDeathTest : public LogServiceShard {
 protected:
  LogServiceExitDeathTest() {
    // The statement runs in a fork of this process, so that both see the same folder.
    testing::FLAGS_gtest_death_test_style = "fast";
    installHost("app");
  }

  [[nodiscard]] std::string written() const {
    return withoutDates(
        test::contentOf(folder_.path("Users/alice/Library/Application Support/app/appFrameworkLog.txt")));
  }
  static std::string entries(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "<DATE:Info>:x\n";
    return text;
  }
};

[[noreturn]] void exitAfterLogging(int entries, int stepsPerEntry) {
  SlowDisk disk(stepsPerEntry);
  disk.log(entries);
  std::exit(5);
}

TEST_F(LogServiceExitDeathTest, entriesOfTheLastMomentAreWritten) {
  EXPECT_EXIT(
      {
        for (int i = 0; i < 300; ++i) LogService::shard().log(Info, "x");
        std::exit(5);
      },
      testing::ExitedWithCode(5), "");
  EXPECT_EQ(written(), entries(300));
}

TEST_F(LogServiceExitDeathTest, slowDiskLosesNoEntry) {
  EXPECT_EXIT(exitAfterLogging(5, 999), testing::ExitedWithCode(5), "");
  EXPECT_EQ(written(), entries(5));
}

TEST_F(LogServiceExitDeathTest, diskThatHangsHoldsTheEndForASecond) {
  EXPECT_EXIT(exitAfterLogging(5, 1'001), testing::ExitedWithCode(5), "");
  EXPECT_EQ(written(), "");
}

TEST_F(LogServiceExitDeathTest, slowDiskHoldsTheEndForTenSeconds) {
  EXPECT_EXIT(exitAfterLogging(20, 900), testing::ExitedWithCode(5), "");
  EXPECT_EQ(written(), entries(11));
}

TEST_F(LogServiceExitDeathTest, endFromTheLogsOwnQueueDoesNotWait) {
  EXPECT_EXIT(
      {
        const test::VirtualClock clock([](std::uint64_t /*microseconds*/) { ::_exit(6); });
        LogService::shard().serialQueue->submit([] { std::exit(5); }, nullptr);
        for (;;) ::pause();
      },
      testing::ExitedWithCode(5), "");
}

}  // namespace
}  // namespace sorrel
