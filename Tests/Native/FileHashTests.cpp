#include "SorrelFramework/Native/FileHash.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "SorrelFramework/Units/StreamFileHash.hpp"
#include "Tests/Support/ReplacedRead.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

/// Records the operations on it; its digest is the bytes 0xA0, 0xA1, 0xA2.
struct RecordingDigest {
  static constexpr std::size_t kLength = 3;
  std::vector<std::string> steps;
  std::string fed;
  std::string failing;

  bool note(const std::string& step) {
    steps.push_back(step);
    return step != failing;
  }
  FileHashComputationContext context() {
    return {[](void* digest) { return static_cast<RecordingDigest*>(digest)->note("init"); },
            [](void* digest, const void* bytes, std::uint32_t count) {
              static_cast<RecordingDigest*>(digest)->fed.append(static_cast<const char*>(bytes), count);
              return static_cast<RecordingDigest*>(digest)->note(std::to_string(count));
            },
            [](std::uint8_t* output, void* digest) {
              for (std::size_t i = 0; i < kLength; ++i) output[i] = static_cast<std::uint8_t>(0xA0 + i);
              return static_cast<RecordingDigest*>(digest)->note("final");
            },
            kLength, this};
  }
};

using Steps = std::vector<std::string>;

TEST(FileHash, md5GivesThePublishedDigestsInLowerCase) {
  const TemporaryFolder folder;
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(folder.file("a", "")), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(folder.file("b", "abc")), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(FileHash, sha512Gives128LowerCaseDigits) {
  const TemporaryFolder folder;
  EXPECT_EQ(FileHash::SHA512HashOfFileAtPath(folder.file("a", "abc")),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
  EXPECT_EQ(FileHash::SHA512HashOfFileAtPath(folder.file("b", "")),
            "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
            "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
}

TEST(FileHash, readsTheWholeFileInChunksOf4096Bytes) {
  const TemporaryFolder folder;
  std::string content(10'000, 'x');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 % 251);
  RecordingDigest digest;
  const ReplacedRead reads;
  EXPECT_EQ(FileHash::hashOfFileAtPath(folder.file("file", content), digest.context()), "a0a1a2");
  EXPECT_EQ(digest.steps, (Steps{"init", "4096", "4096", "1808", "final"}));
  EXPECT_EQ(digest.fed, content);
  for (const auto& note : reads.notes()) EXPECT_EQ(note.asked, 4096U);
}

TEST(FileHash, readsOnBehindAReadThatGaveLessThanAChunk) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", std::string(100, 'x'));
  RecordingDigest digest;
  const ReplacedRead reads([&](std::size_t number) {
    if (number == 1) folder.file("file", std::string(300, 'x'));
    return 0;
  });
  EXPECT_EQ(FileHash::hashOfFileAtPath(path, digest.context()), "a0a1a2");
  EXPECT_EQ(digest.steps, (Steps{"init", "100", "200", "final"}));
}

TEST(FileHash, anEmptyFileRunsNoUpdate) {
  const TemporaryFolder folder;
  RecordingDigest digest;
  EXPECT_EQ(FileHash::hashOfFileAtPath(folder.file("file"), digest.context()), "a0a1a2");
  EXPECT_EQ(digest.steps, (Steps{"init", "final"}));
}

TEST(FileHash, whatCannotBeOpenedGivesTheEmptyTextAndRunsNoOperation) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  RecordingDigest digest;
  for (const std::string& path : {folder.path("absent"), std::string(), folder.path(), folder.path("fifo"),
                                  std::string("/dev/null"), folder.file("file") + '\0'}) {
    EXPECT_EQ(FileHash::hashOfFileAtPath(path, digest.context()), "") << path;
    EXPECT_EQ(FileHash::md5HashOfFileAtPath(path), "") << path;
    EXPECT_EQ(FileHash::SHA512HashOfFileAtPath(path), "") << path;
  }
  EXPECT_TRUE(digest.steps.empty());
}

TEST(FileHash, aReadErrorGivesTheEmptyTextAfterTheFinalOperation) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", std::string(10'000, 'x'));
  RecordingDigest digest;
  const ReplacedRead reads([](std::size_t number) { return number == 1 ? -1 : 0; });
  EXPECT_EQ(FileHash::hashOfFileAtPath(path, digest.context()), "");
  EXPECT_EQ(digest.steps, (Steps{"init", "4096", "final"}));
  EXPECT_EQ(FileHash::md5HashOfFileAtPath("/proc/self/mem"), "");
}

TEST(FileHash, anOperationThatFailsGivesTheEmptyText) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "abc");
  for (const std::string& step : Steps{"init", "3", "final"}) {
    RecordingDigest digest;
    digest.failing = step;
    EXPECT_EQ(FileHash::hashOfFileAtPath(path, digest.context()), "") << step;
  }
}

TEST(FileHash, followsALink) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink(folder.file("real", "abc"), folder.path("link"));
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(folder.path("link")), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(FileHash, noStopReachesIt) {
  const TemporaryFolder folder;
  StreamFileHashUnit::shard().scanState = 2;
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(folder.file("file", "abc")), "900150983cd24fb0d6963f7d28e17f72");
  StreamFileHashUnit::shard().scanState = 0;
}

}  // namespace
}  // namespace sorrel::test
