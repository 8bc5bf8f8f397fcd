// Walks of a process that may open few files.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "SorrelFramework/Platform/Machine/Host.hpp"
#include "SorrelFramework/Scan/SuperScanService.hpp"
#include "SorrelFramework/Scan/TreeWalk.hpp"
#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/ScanKit.hpp"
#include "Tests/Support/TemporaryVolume.hpp"

namespace sorrel::test {
namespace {

constexpr int kThreads = 16;

/// Runs `work(i)` on this many threads at once.
template <class Work>
void onThreads(int count, const Work& work) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads) thread.join();
}

bool limitFiles(rlim_t count) {
  const rlimit few{count, count};
  return ::setrlimit(RLIMIT_NOFILE, &few) == 0;
}

WalkRequest keepingEverything() {
  WalkRequest request;
  request.keys = kRecordKeys;
  request.filter = [](const URL&, const ResourceValues&, EnumerationPosition*) { return true; };
  return request;
}

/// A folder of `levels` levels, each of which holds a file of 10 bytes.
void makeLadder(const TemporaryVolume& volume, const std::string& top, int levels) {
  std::string at = top;
  for (int level = 0; level < levels; ++level) {
    volume.file(at + "/x", "0123456789");
    at += "/d";
  }
}

TEST(WalkWithFewDescriptors, sixteenThreadsSizeTwentyThousandLevelsWithSixtyFour) {
  const std::string told = inMemoryChild([]() -> std::string {
    const TemporaryVolume deep;
    deep.install();
    deep.chain("top", "d", 20000);
    deep.file("top/d/x", "0123456789");
    if (!limitFiles(64)) return "no limit";
    std::vector<std::int64_t> sizes(kThreads);
    onThreads(kThreads, [&](int i) {
      sizes[static_cast<std::size_t>(i)] =
          SuperScanService::calculateSize(deep.url("top/"), rawValue(FilesKind::Folder));
    });
    std::string text;
    for (const std::int64_t size : sizes) text += std::to_string(size) + ' ';
    return text;
  });
  EXPECT_EQ(told, "10 10 10 10 10 10 10 10 10 10 10 10 10 10 10 10 ");
}

TEST(WalkWithFewDescriptors, everyFolderOfManyDeepRootsHasItsWholeSize) {
  constexpr int levels = 30;  // few enough for each walk to stay on its thread: a forked child has no pool
  const std::string told = inMemoryChild([]() -> std::string {
    const TemporaryVolume volume;
    volume.install();
    for (int i = 0; i < kThreads; ++i) makeLadder(volume, "root" + std::to_string(i), levels);
    if (!leaveDescriptors(kThreads + 4)) return "no limit";
    std::atomic<int> wrong{0};
    onThreads(kThreads, [&](int i) {
      const WalkResult result = walkTree(volume.url("root" + std::to_string(i) + "/"), keepingEverything());
      std::int64_t expected = 10LL * (levels - 1);
      for (const auto& record : result.records) {
        if (record->fileKind != rawValue(FilesKind::Folder)) continue;
        if (record->size != expected) ++wrong;
        expected -= 10;
      }
      if (expected != 0 || result.totals.fileSize != 10LL * levels) ++wrong;
    });
    return std::to_string(wrong) + " wrong";
  });
  EXPECT_EQ(told, "0 wrong");
}

TEST(WalkWithFewDescriptors, twoAreEnoughForAWalk) {
  const TemporaryVolume volume;
  volume.install();
  makeLadder(volume, "root", 30);
  const std::string told = inChild([&volume]() -> std::string {
    if (!leaveDescriptors(2)) return "no limit";
    const WalkResult result = walkTree(volume.url("root/"), keepingEverything());
    return std::to_string(result.totals.fileSize) + ' ' + std::to_string(result.records.at(0)->size);
  });
  EXPECT_EQ(told, "300 290");
}

TEST(WalkWithFewDescriptors, folderThatCouldNotBeReadIsToldAndHasNoRecord) {
  const TemporaryVolume volume;
  volume.install();
  makeLadder(volume, "root", 3);
  volume.file("root/z", "1");
  const std::string told = inChild([&volume]() -> std::string {
    Host::install(Host::linuxDesktop({}));  // where a root is opened by itself
    if (!leaveDescriptors(1)) return "no limit";
    WalkRequest request = keepingEverything();
    std::string text;
    request.errorHandler = [&](const URL& url, int error) {
      text += url.lastPathComponent() + (error == EMFILE ? " no descriptor; " : " other; ");
      return true;
    };
    const WalkResult result = walkTree(volume.url("root/"), request);
    for (const std::string& name : namesOf(result.records, volume.url("root/"))) text += name + ' ';
    return text + std::to_string(result.totals.folderNumber);
  });
  EXPECT_EQ(told, "d no descriptor; x z 0");
}

TEST(WalkWithFewDescriptors, rootThatCouldNotBeOpenedIsTold) {
  const TemporaryVolume volume;
  volume.install();
  volume.file("root/a", "1");
  const std::string told = inChild([&volume]() -> std::string {
    if (!leaveDescriptors(0)) return "no limit";
    WalkRequest request = keepingEverything();
    std::string text;
    request.errorHandler = [&](const URL& url, int error) {
      text += url.lastPathComponent() + (error == EMFILE ? " no descriptor; " : " other; ");
      return true;
    };
    const WalkResult result = walkTree(volume.url("root/"), request);
    return text + std::to_string(result.records.size());
  });
  EXPECT_EQ(told, "root no descriptor; 0");
}

TEST(WalkWithFewDescriptors, stopEndsTheWaitForADescriptor) {
  const TemporaryVolume volume;
  volume.install();
  makeLadder(volume, "root", 3);
  const std::string told = inChild([&volume]() -> std::string {
    const OpenFolderLimit::Walk another;  // which never returns a descriptor
    if (!leaveDescriptors(0)) return "no limit";
    ScanStatusTable::Cell cell = static_cast<int>(ScanState::suspend);
    WalkRequest request = keepingEverything();
    request.stop.first = &cell;
    int calls = 0;
    request.errorHandler = [&calls](const URL&, int) { return ++calls > 0; };
    const WalkResult result = walkTree(volume.url("root/"), request);
    return std::to_string(result.records.size());
  });
  EXPECT_EQ(told, "0");
}

}  // namespace
}  // namespace sorrel::test
