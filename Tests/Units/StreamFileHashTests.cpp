#include "SorrelFramework/Units/StreamFileHash.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/ReplacedRead.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

constexpr const char* kEmptyMessage = "d41d8cd98f00b204e9800998ecf8427e";  // RFC 1321, A.5
constexpr std::size_t kChunk = 16384;
constexpr int kSuspend = 2;

class StreamFileHash : public ::testing::Test {
 protected:
  StreamFileHash() { unit.scanState = 0; }
  ~StreamFileHash() override { unit.scanState = 0; }

  std::string fileOf(std::size_t length) const { return folder.file("file", std::string(length, 'x')); }

  StreamFileHashUnit& unit = StreamFileHashUnit::shard();
  TemporaryFolder folder;
};

TEST_F(StreamFileHash, emptyFileGivesTheDigestOfTheEmptyMessage) {
  EXPECT_EQ(unit.hashFile(fileOf(0)), kEmptyMessage);
}

TEST_F(StreamFileHash, givesThePublishedDigestInLowerCase) {
  EXPECT_EQ(unit.hashFile(folder.file("file", "message digest")), "f96b697d7cb7938d525a2f31aaf161d0");
}

// Reference: head -c 40000 /dev/zero | tr '\0' x | md5sum
TEST_F(StreamFileHash, readsAllChunksOfALongFile) {
  const ReplacedRead reads;
  EXPECT_EQ(unit.hashFile(fileOf(40000)), "33766cd480de06a6b2e053eb8f67583e");
  const auto notes = reads.notes();
  ASSERT_EQ(notes.size(), 4U);
  for (const auto& note : notes) EXPECT_EQ(note.asked, kChunk);
  EXPECT_EQ(notes[2].got, 40000 - 2 * 16384);
}

TEST_F(StreamFileHash, aFileOfOneWholeChunkTakesTwoReads) {
  const ReplacedRead reads;
  EXPECT_EQ(unit.hashFile(fileOf(kChunk)), "cc7fa4aff814016b4f2eff395e64ff7c");
  const auto notes = reads.notes();
  ASSERT_EQ(notes.size(), 2U);
  EXPECT_EQ(notes[0].got, 16384);
  EXPECT_EQ(notes[1].got, 0);
}

TEST_F(StreamFileHash, nothingForAPathThatDoesNotExist) {
  EXPECT_EQ(unit.hashFile(folder.path("absent")), std::nullopt);
  EXPECT_EQ(unit.hashFile(folder.path("absent/file")), std::nullopt);
}

TEST_F(StreamFileHash, nothingForAPathThatNamesNothing) {
  EXPECT_EQ(unit.hashFile(""), std::nullopt);
  EXPECT_EQ(unit.hashFile(fileOf(3) + '\0'), std::nullopt);
}

TEST_F(StreamFileHash, nothingForWhatIsNoRegularFile) {
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(unit.hashFile(folder.path("fifo")), std::nullopt);
  EXPECT_EQ(unit.hashFile(folder.path()), std::nullopt);
  EXPECT_EQ(unit.hashFile("/dev/null"), std::nullopt);
}

TEST_F(StreamFileHash, nothingForALinkButTheFileBehindALinkedFolder) {
  folder.file("real/file");
  std::filesystem::create_symlink(folder.path("real/file"), folder.path("link"));
  std::filesystem::create_symlink(folder.path("real"), folder.path("parent"));
  EXPECT_EQ(unit.hashFile(folder.path("link")), std::nullopt);
  EXPECT_EQ(unit.hashFile(folder.path("parent/file")), kEmptyMessage);
}

TEST_F(StreamFileHash, nothingAfterAReadErrorInMidFile) {
  const std::string path = fileOf(3 * kChunk);
  const ReplacedRead reads([](std::size_t number) { return number == 1 ? -1 : 0; });
  EXPECT_EQ(unit.hashFile(path), std::nullopt);
  EXPECT_EQ(reads.notes().size(), 2U);
}

TEST_F(StreamFileHash, nothingForAFileWhoseFirstReadFails) {
  EXPECT_EQ(unit.hashFile("/proc/self/mem"), std::nullopt);
}

TEST_F(StreamFileHash, aStopInMidFileTakesEffectBeforeTheNextChunk) {
  const std::string path = fileOf(10 * kChunk);
  const ReplacedRead reads([&](std::size_t number) {
    if (number == 3) unit.scanState = kSuspend;
    return 0;
  });
  EXPECT_EQ(unit.hashFile(path), std::nullopt);
  EXPECT_EQ(reads.notes().size(), 4U);
}

TEST_F(StreamFileHash, aStopDuringTheLastChunkComesBeforeTheEndIsSeen) {
  const std::string path = fileOf(kChunk);
  const ReplacedRead reads([&](std::size_t /*number*/) {
    unit.scanState = kSuspend;
    return 0;
  });
  EXPECT_EQ(unit.hashFile(path), std::nullopt);
  EXPECT_EQ(reads.notes().size(), 1U);
}

TEST_F(StreamFileHash, aStopThatIsStillSetReadsNothingOfAnyFile) {
  unit.scanState = kSuspend;
  const ReplacedRead reads;
  EXPECT_EQ(unit.hashFile(fileOf(kChunk)), std::nullopt);
  EXPECT_EQ(unit.hashFile(fileOf(0)), std::nullopt);
  EXPECT_TRUE(reads.notes().empty());
}

TEST_F(StreamFileHash, onlySuspendIsAStop) {
  for (const int state : {-1, 0, 1, 3}) {
    unit.scanState = state;
    EXPECT_EQ(unit.hashFile(fileOf(0)), kEmptyMessage) << state;
  }
}

TEST_F(StreamFileHash, aFileThatGrowsMeanwhileIsHashedToItsEnd) {
  const std::string path = fileOf(kChunk);
  const ReplacedRead reads([&](std::size_t number) {
    if (number == 1) fileOf(2 * kChunk);
    return 0;
  });
  EXPECT_EQ(unit.hashFile(path), "56593bcab74581f4f560cd13723e451a");
}

TEST_F(StreamFileHash, manyThreadsHashAtOnce) {
  const std::string path = fileOf(kChunk);
  std::vector<std::optional<std::string>> hashes(8);
  std::vector<std::thread> threads;
  threads.reserve(hashes.size());
  for (auto& hash : hashes) threads.emplace_back([&] { hash = unit.hashFile(path); });
  for (std::thread& thread : threads) thread.join();
  for (const auto& hash : hashes) EXPECT_EQ(hash, "cc7fa4aff814016b4f2eff395e64ff7c");
}

}  // namespace
}  // namespace sorrel::test
