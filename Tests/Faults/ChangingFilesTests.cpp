// A scan for duplicates while its files change.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <thread>

#include "SorrelFramework/Scan/Duplicate/DuplicateScanService.hpp"
#include "Tests/Support/ReplacedRead.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel {
namespace {

namespace fs = std::filesystem;
using test::ScanRecord;
using test::TemporaryVolume;

constexpr int kFiles = 40;

class ChangingFiles : public testing::Test {
 protected:
  ChangingFiles() {
    SuperScanService::scanStatus.resetForTesting();
    volume.install();
    DuplicateScanService::limitSize = 0;
    for (Integer kind = 0; kind < 7; ++kind) DuplicateScanService::childrenCateogryDict[kind] = "Kind";
    feature = test::makeFeature(7, {{CategoryInfomationKind::Common, {}}});
  }
  ~ChangingFiles() override {
    DuplicateScanService::limitSize = 512;
    DuplicateScanService::childrenCateogryDict.clear();
  }

  /// Files of several reads each, four of each content, and twin folders.
  void makeFiles() const {
    for (int i = 0; i < kFiles; ++i)
      volume.file(nameOf(i), std::string(40000, static_cast<char>('a' + i / 4)));
    for (const std::string folder : {"One", "Two"}) {
      for (int i = 0; i < 4; ++i) {
        volume.file("Users/alice/Data/" + folder + "/" + std::to_string(i),
                    std::string(40000, static_cast<char>('A' + i)));
      }
    }
  }
  static std::string nameOf(int i) {
    return "Users/alice/Data/d" + std::to_string(i % 5) + "/f" + std::to_string(i);
  }
  void run(ScanRecord& scan) {
    DuplicateScanService::scanDuplicate(*feature, {volume.url("Users/alice/Data/")}, scan.progress(),
                                        scan.percent(), scan.singleDone(), scan.treeDone(), scan.queue,
                                        WeftQOS::UserInitiated);
    ASSERT_TRUE(scan.waitUntilDone());
    EXPECT_EQ(scan.doneCount, 1);
    EXPECT_EQ(SuperScanService::scanStatus.get(7), ScanState::end);
  }
  /// Does not wait for the reader of a pipe.
  static void write(const std::string& path, int flags, std::size_t count, char byte) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC | flags, 0600);
    if (file < 0) return;
    static_cast<void>(::write(file, std::string(count, byte).data(), count) == 0);
    ::close(file);
  }
  /// Changes a file: it grows, shrinks, changes, vanishes, becomes a folder, a pipe, or a link.
  void change(int i, unsigned how) const {
    const std::string path = volume.path(nameOf(i));
    std::error_code error;  // another thread may have changed it
    switch (how % 8) {
      case 0:
        write(path, O_APPEND, 50000, 'x');
        break;
      case 1:
        fs::resize_file(path, 1, error);
        break;
      case 2:
        write(path, O_TRUNC, 40000, 'y');
        break;
      case 3:
        fs::remove_all(path, error);
        break;
      case 4:
        fs::remove_all(path, error);
        fs::create_directory(path, error);
        break;
      case 5:
        fs::remove_all(path, error);
        static_cast<void>(::mkfifo(path.c_str(), 0600));
        break;
      case 6:
        fs::remove_all(path, error);
        fs::create_symlink("f0", path, error);
        break;
      default:
        fs::remove_all(path, error);
        write(path, O_TRUNC, 40000, 'a');
    }
  }
  /// Each group has at least two members, and its sum is that of its members.
  void expectWellFormed(const ScanRecord& scan) const {
    std::int64_t sum = 0;
    for (const FileInformation& header : feature->categoryInfo[0].childrens) {
      EXPECT_GT(header.childrens.size(), 1U);
      std::int64_t size = 0;
      for (const FileInformation& member : header.childrens) size += member.size;
      EXPECT_EQ(header.size, size);
      sum += size;
    }
    EXPECT_EQ(scan.treeSize, sum);
  }

  TemporaryVolume volume;
  Ref<FeatureInformation> feature;
};

TEST_F(ChangingFiles, filesThatChangeWhileTheyAreReadEndTheScanOnce) {
  for (unsigned seed = 0; seed < 12; ++seed) {
    makeFiles();
    std::mutex mutex;
    std::mt19937 random(seed);
    ScanRecord scan;
    const test::ReplacedRead reads([&](std::size_t) {
      const std::lock_guard lock(mutex);
      change(static_cast<int>(random() % kFiles), static_cast<unsigned>(random()));
      return std::ptrdiff_t{0};
    });
    ASSERT_NO_FATAL_FAILURE(run(scan)) << seed;
    expectWellFormed(scan);
    fs::remove_all(volume.path("Users/alice/Data"));
  }
}

TEST_F(ChangingFiles, folderThatVanishesBelowTheScanEndsItOnce) {
  for (std::size_t atRead : {0U, 3U, 20U}) {
    makeFiles();
    ScanRecord scan;
    const test::ReplacedRead reads([&](std::size_t number) {
      if (number == atRead) fs::rename(volume.path("Users/alice/Data"), volume.path("elsewhere"));
      return std::ptrdiff_t{0};
    });
    ASSERT_NO_FATAL_FAILURE(run(scan)) << atRead;
    // Files that were open then are read to their end; no record can be made of them.
    EXPECT_EQ(scan.treeSize, 0);
    EXPECT_TRUE(feature->categoryInfo[0].childrens.empty());
    fs::remove_all(volume.path("elsewhere"));
  }
}

TEST_F(ChangingFiles, filesThatChangeDuringEveryStageEndEachScanOnce) {
  makeFiles();
  std::atomic<bool> isOver{false};
  std::thread changer([&] {
    std::mt19937 random(1);
    while (!isOver) {
      change(static_cast<int>(random() % kFiles), static_cast<unsigned>(random()));
      std::error_code error;
      const std::string folder = volume.path("Users/alice/Data/d" + std::to_string(random() % 5));
      fs::rename(folder, folder + " moved", error);
      fs::rename(folder + " moved", folder, error);
    }
  });
  for (int i = 0; i < 30 && !HasFatalFailure(); ++i) {
    ScanRecord scan;
    run(scan);
    expectWellFormed(scan);
  }
  isOver = true;
  changer.join();
}

TEST_F(ChangingFiles, fileThatChangedBeforeItWasReadIsNoCopy) {
  volume.file("Users/alice/Data/a", "12345");
  volume.file("Users/alice/Data/b", "12345");
  volume.file("Users/alice/Data/c", "12345");
  ScanRecord scan;
  const test::ReplacedRead reads([&](std::size_t number) {
    if (number == 0) {
      for (const char* const name : {"a", "b", "c"}) {
        std::ofstream(volume.path(std::string("Users/alice/Data/") + name)) << name << "4321";
      }
    }
    return std::ptrdiff_t{0};
  });
  run(scan);
  EXPECT_TRUE(feature->categoryInfo[0].childrens.empty());
}

}  // namespace
}  // namespace sorrel
