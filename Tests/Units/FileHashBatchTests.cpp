#include "SorrelFramework/Units/FileHashBatch.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/EachMD5Kernel.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ReplacedRead.hpp"
#include "Tests/Support/SystemCallFaults.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

using Paths = std::vector<std::string>;
using Hashes = std::vector<std::optional<std::string>>;
constexpr std::size_t kChunk = 16384;
constexpr int kSuspend = 2;

class FileHashBatches : public ::testing::Test {
 protected:
  FileHashBatches() { unit.scanState = 0; }
  ~FileHashBatches() override { unit.scanState = 0; }

  std::string fileOf(std::size_t length) {
    std::string content(length, '\0');
    for (char& byte : content) byte = static_cast<char>(random());
    return folder.file("file " + std::to_string(made++), content);
  }
  Paths filesOf(std::size_t count, std::size_t length) {
    Paths paths;
    while (paths.size() < count) paths.push_back(fileOf(length));
    return paths;
  }
  [[nodiscard]] Hashes oneByOne(const Paths& paths) const {
    Hashes hashes;
    for (const std::string& path : paths) hashes.push_back(unit.hashFile(path));
    return hashes;
  }
  static Hashes hashesOf(const Paths& paths, const MD5Kernel& kernel = bestMD5Kernel()) {
    FileHashBatch batch(paths, 1, kernel);
    batch.run();
    return batch.hashes();
  }

  StreamFileHashUnit& unit = StreamFileHashUnit::shard();
  TemporaryFolder folder;
  std::mt19937 random{11};
  int made = 0;
};

TEST_F(FileHashBatches, equalHashFileForFilesOfMixedLengths) {
  Paths paths;
  for (const std::size_t length : {0, 1, 55, 56, 63, 64, 65, 119, 120, 16383, 16384, 16385, 32768, 100'000}) {
    paths.push_back(fileOf(length));
  }
  for (int i = 0; i < 60; ++i) paths.push_back(fileOf(random() % 70'000));
  const Hashes wanted = oneByOne(paths);
  for (const auto& hash : wanted) ASSERT_TRUE(hash.has_value());
  withEachMD5Kernel([&](const MD5Kernel& kernel) { EXPECT_EQ(hashesOf(paths, kernel), wanted); });
}

TEST_F(FileHashBatches, equalHashFileForAnyNumberOfFiles) {
  const Paths all = filesOf(40, 3000);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    for (std::size_t count = 0; count <= all.size(); ++count) {
      const Paths paths(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
      EXPECT_EQ(hashesOf(paths, kernel), oneByOne(paths)) << count;
    }
  });
}

TEST_F(FileHashBatches, giveNothingWhereHashFileGivesNothing) {
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  std::filesystem::create_symlink(fileOf(10), folder.path("link"));
  const Paths paths = {fileOf(5),           folder.path("absent"),
                       fileOf(6),           folder.path("fifo"),
                       "/dev/null",         "/proc/self/mem",
                       folder.path("link"), folder.path(),
                       fileOf(7),           "",
                       fileOf(8) + '\0',    fileOf(9),
                       fileOf(40000)};
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const Hashes hashes = hashesOf(paths, kernel);
    EXPECT_EQ(hashes, wanted);
    for (const std::size_t good : {0, 2, 8, 11, 12}) EXPECT_TRUE(hashes[good].has_value()) << good;
    EXPECT_EQ(std::count(hashes.begin(), hashes.end(), std::nullopt), 8);
  });
}

TEST_F(FileHashBatches, aReadErrorInMidFileConcernsThatFileAlone) {
  const Paths paths = filesOf(5, 3 * kChunk);
  const Hashes whole = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads([](std::size_t number) { return number == 6 ? -1 : 0; });
    const Hashes hashes = hashesOf(paths, kernel);
    ASSERT_EQ(std::count(hashes.begin(), hashes.end(), std::nullopt), 1);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      EXPECT_EQ(hashes[i], hashes[i] ? whole[i] : std::nullopt);
    }
  });
}

TEST_F(FileHashBatches, noReadAsksForMoreThanAChunk) {
  const Paths paths = filesOf(20, 50'000);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads;
    hashesOf(paths, kernel);
    EXPECT_EQ(reads.notes().size(), 20U * 5);
    for (const auto& note : reads.notes()) ASSERT_EQ(note.asked, kChunk);
  });
}

TEST_F(FileHashBatches, aStopTakesEffectBeforeTheNextChunkOfAnyFile) {
  const Paths paths = filesOf(20, 4 * kChunk);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    unit.scanState = 0;
    const ReplacedRead reads([&](std::size_t number) {
      if (number == 9) unit.scanState = kSuspend;
      return 0;
    });
    const Hashes hashes = hashesOf(paths, kernel);
    EXPECT_EQ(reads.notes().size(), 10U);
    // A lane has read one chunk of its file by then; with one file after the other, two are complete.
    EXPECT_EQ(std::count(hashes.begin(), hashes.end(), std::nullopt), kernel.lanes == 1 ? 18 : 20);
  });
}

TEST_F(FileHashBatches, whatWasFinishedBeforeAStopStays) {
  Paths paths = filesOf(2, 100);
  for (std::string& path : filesOf(3, 10 * kChunk)) paths.push_back(std::move(path));
  const Hashes whole = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    unit.scanState = 0;
    const ReplacedRead reads([&](std::size_t number) {
      if (number == 12) unit.scanState = kSuspend;
      return 0;
    });
    EXPECT_EQ(hashesOf(paths, kernel),
              (Hashes{whole[0], whole[1], std::nullopt, std::nullopt, std::nullopt}));
    EXPECT_EQ(reads.notes().size(), 13U);
  });
}

TEST_F(FileHashBatches, ownTestStopsOneBatchBeforeTheNextChunkOfAnyFile) {
  for (const std::size_t count : {1U, 20U}) {
    const Paths paths = filesOf(count, 4 * kChunk);
    withEachMD5Kernel([&](const MD5Kernel& kernel) {
      std::size_t tests = 0;
      FileHashBatch stopped(paths, 1, kernel, [&tests] { return ++tests == 4; });  // true once
      FileHashBatch other(paths, 1, kernel);
      {
        const ReplacedRead reads;
        stopped.run();
        stopped.run();
        EXPECT_LE(reads.notes().size(), 3U);
      }
      EXPECT_EQ(stopped.hashes(), Hashes(count));
      other.run();
      EXPECT_EQ(other.hashes(), oneByOne(paths));
    });
  }
}

TEST_F(FileHashBatches, thatSawAStopStayStoppedWhenANewScanBegins) {
  const Paths paths = filesOf(40, 2 * kChunk);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads([&](std::size_t number) {
      if (number == 4) unit.scanState = kSuspend;
      return 0;
    });
    FileHashBatch batch(paths, 1, kernel);
    batch.run();
    unit.scanState = 0;
    batch.run();
    EXPECT_EQ(reads.notes().size(), 5U);
  });
}

TEST_F(FileHashBatches, readNothingWhileAStopIsSet) {
  const Paths paths = filesOf(20, 100);
  unit.scanState = kSuspend;
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads;
    EXPECT_EQ(hashesOf(paths, kernel), Hashes(paths.size()));
    EXPECT_TRUE(reads.notes().empty());
  });
}

TEST_F(FileHashBatches, filesThatGrowAreHashedToTheirEnd) {
  const Paths paths = filesOf(4, kChunk);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const std::string grown(2 * kChunk, 'g');
    folder.file("file 3", grown.substr(0, kChunk));
    const Hashes before = oneByOne(paths);
    std::size_t readsOfAll = 0;
    Hashes hashes;
    {
      const ReplacedRead reads([&](std::size_t number) {
        if (number == 4) folder.file("file 3", grown);
        readsOfAll = number + 1;
        return 0;
      });
      hashes = hashesOf(paths, kernel);
    }
    EXPECT_EQ(readsOfAll, 9U);
    EXPECT_NE(hashes[3], before[3]);
    EXPECT_EQ(hashes, oneByOne(paths));
  });
}

TEST_F(FileHashBatches, severalThreadsShareTheFiles) {
  Paths paths;
  for (int i = 0; i < 300; ++i) paths.push_back(fileOf(random() % 30'000));
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    FileHashBatch batch(paths, 4, kernel);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) threads.emplace_back([&] { batch.run(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(batch.hashes(), wanted);
    EXPECT_EQ(batch.paths(), paths);
  });
}

TEST_F(FileHashBatches, oneThreadTakesItsShareOfAFewFilesAtATime) {
  const Paths paths = filesOf(6, 3 * kChunk);
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads;
    FileHashBatch batch(paths, 2, kernel);
    batch.run();
    std::set<int> filesOfTheFirstReads;
    for (std::size_t i = 0; i < 6; ++i) filesOfTheFirstReads.insert(reads.notes()[i].file);
    EXPECT_EQ(filesOfTheFirstReads.size(), kernel.lanes == 1 ? 1U : 3U);
    EXPECT_EQ(batch.hashes(), wanted);
  });
}

TEST_F(FileHashBatches, filesAreSharedOutSoThatTheFirstThreadsTakeOneMore) {
  const Paths paths = filesOf(5, 3 * kChunk);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads;
    FileHashBatch(paths, 2, kernel).run();
    std::set<int> filesOfTheFirstReads;
    for (std::size_t i = 0; i < 3; ++i) filesOfTheFirstReads.insert(reads.notes()[i].file);
    EXPECT_EQ(filesOfTheFirstReads.size(), kernel.lanes == 1 ? 1U : 3U);
  });
}

TEST_F(FileHashBatches, oneThreadReadsAFileInEachLaneInTurn) {
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const Paths paths = filesOf(kernel.lanes, 3 * kChunk);
    const ReplacedRead reads;
    hashesOf(paths, kernel);
    std::set<int> filesOfTheFirstReads;
    for (std::size_t i = 0; i < kernel.lanes; ++i) filesOfTheFirstReads.insert(reads.notes()[i].file);
    EXPECT_EQ(filesOfTheFirstReads.size(), kernel.lanes);
  });
}

TEST_F(FileHashBatches, filesBehindAnotherLotThatCannotBeReadAreHashed) {
  const Paths paths = filesOf(40, 100);
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads([&](std::size_t number) { return number < kernel.lanes ? -1 : 0; });
    const Hashes hashes = hashesOf(paths, kernel);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      EXPECT_EQ(hashes[i], i < kernel.lanes ? std::nullopt : wanted[i]) << i;
    }
  });
}

TEST_F(FileHashBatches, thatAreToHaveNoThreadHaveOne) {
  const Paths paths = filesOf(3, 100);
  FileHashBatch batch(paths, 0);
  batch.run();
  EXPECT_EQ(batch.hashes(), oneByOne(paths));
}

TEST_F(FileHashBatches, fileThatFindsNoDescriptorWaitsForTheOthersOrDropsOutAlone) {
  const Paths paths = filesOf(6, 2 * kChunk);
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    if (kernel.lanes == 1) return;
    for (const int error : {EMFILE, ENFILE}) {
      for (const std::uint64_t when : {1, 3}) {
        Hashes hashes;
        const auto calls = runWithFault({SYS_openat, when, error}, [&] { hashes = hashesOf(paths, kernel); });
        if (!calls) GTEST_SKIP() << "calls can't be watched here";
        Hashes expected = wanted;
        if (when == 1) expected[0] = std::nullopt;  // there is nothing to wait for
        EXPECT_EQ(hashes, expected) << error << ' ' << when;
      }
    }
  });
}

TEST_F(FileHashBatches, fewDescriptorsMakeDoWithFewerFilesAtOnce) {
  const Paths paths = filesOf(40, 2 * kChunk);
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const auto inFewDescriptors = [&] {
      const rlimit few{12, 12};
      if (::setrlimit(RLIMIT_NOFILE, &few) != 0) return std::string("no limit");
      return std::string(hashesOf(paths, kernel) == wanted ? "same" : "different");
    };
    EXPECT_EQ(inChild(inFewDescriptors), "same");
  });
}

/// Hashes on 16 threads in a process that can open only so many more files.
std::string inManyThreads(const Paths& paths, const MD5Kernel& kernel, unsigned descriptors,
                          const std::function<std::string(const FileHashBatch&)>& report) {
  return inChild([&]() -> std::string {
    constexpr std::size_t kThreads = 16;
    if (!leaveDescriptors(descriptors)) return "no limit";
    FileHashBatch batch(paths, kThreads, kernel);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) threads.emplace_back([&batch] { batch.run(); });
    for (std::thread& thread : threads) thread.join();
    return report(batch);
  });
}

TEST_F(FileHashBatches, manyThreadsLoseNoFileForLackOfDescriptors) {
  const Paths paths = filesOf(300, 2 * kChunk);
  const Hashes wanted = oneByOne(paths);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    for (const unsigned descriptors : {1U, 5U, 20U}) {
      const auto report = [&](const FileHashBatch& batch) {
        return std::to_string(std::count(batch.hashes().begin(), batch.hashes().end(), std::nullopt)) +
               " lost, " + (batch.hashes() == wanted ? "the same" : "others");
      };
      EXPECT_EQ(inManyThreads(paths, kernel, descriptors, report), "0 lost, the same") << descriptors;
    }
  });
}

TEST_F(FileHashBatches, withoutADescriptorEveryFileHasTheErrorOfThat) {
  const Paths paths = filesOf(300, 10);
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const auto report = [](const FileHashBatch& batch) {
      return std::to_string(std::count(batch.errors().begin(), batch.errors().end(), EMFILE));
    };
    EXPECT_EQ(inManyThreads(paths, kernel, 0, report), "300");
  });
}

TEST_F(FileHashBatches, haveTheErrorsOfFilesThatCouldNotBeRead) {
  const Paths paths = {fileOf(5), folder.path("absent"), folder.path(), fileOf(3 * kChunk), fileOf(6)};
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    const ReplacedRead reads([](std::size_t) {
      errno = EIO;
      return -1;
    });
    FileHashBatch batch(paths, 1, kernel);
    batch.run();
    EXPECT_EQ(batch.errors(), (std::vector<int>{EIO, ENOENT, EISDIR, EIO, EIO}));
  });
  FileHashBatch batch({fileOf(5), fileOf(6)});
  batch.run();
  EXPECT_EQ(batch.errors(), (std::vector<int>{0, 0}));
}

TEST_F(FileHashBatches, descriptorsAreClosedAlsoAfterAStop) {
  const auto openFiles = [] {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
  };
  const Paths paths = filesOf(20, 2 * kChunk);
  const std::size_t before = openFiles();
  withEachMD5Kernel([&](const MD5Kernel& kernel) {
    hashesOf(paths, kernel);
    EXPECT_EQ(openFiles(), before);
    const ReplacedRead reads([&](std::size_t number) {
      if (number == 5) unit.scanState = kSuspend;
      return 0;
    });
    hashesOf(paths, kernel);
    unit.scanState = 0;
    EXPECT_EQ(openFiles(), before);
  });
}

}  // namespace
}  // namespace sorrel::test
