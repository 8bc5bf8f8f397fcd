#include "SorrelFramework/Platform/Files/SharedReadStream.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/ProcessState.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel::test {
namespace {

using Lack = SharedReadStream::Lack;

class SharedReadStreams : public ::testing::Test {
 protected:
  [[nodiscard]] SharedReadStream open(Lack lack = Lack::Waits) const {
    return SharedReadStream::open(path_, FileReadStream::Link::Refused, lack);
  }
  static std::string errorOf(const SharedReadStream& stream) {
    return stream.isOpen() ? "open" : std::to_string(errno);
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.file("file", "content");
};

TEST_F(SharedReadStreams, readsTheFile) {
  SharedReadStream stream = open();
  ASSERT_TRUE(stream.isOpen());
  std::array<char, 10> bytes{};
  EXPECT_EQ(stream->read(bytes.data(), bytes.size()), 7);
  EXPECT_EQ((*stream).read(bytes.data(), bytes.size()), 0);
  stream.close();
  EXPECT_FALSE(stream.isOpen());
}

TEST_F(SharedReadStreams, otherFailureIsReportedAtOnce) {
  const SharedReadStream other = open();
  const SharedReadStream missing =
      SharedReadStream::open(folder_.path("missing"), FileReadStream::Link::Refused, Lack::Waits);
  EXPECT_EQ(errorOf(missing), std::to_string(ENOENT));
}

TEST_F(SharedReadStreams, lackFailsIfNoOtherThreadCouldCloseOne) {
  const std::string errors = inChild([this]() -> std::string {
    if (!leaveDescriptors(0)) return "no limit";
    return errorOf(open(Lack::Waits)) + ' ' + errorOf(open(Lack::Fails));
  });
  EXPECT_EQ(errors, std::to_string(EMFILE) + ' ' + std::to_string(EMFILE));
}

TEST_F(SharedReadStreams, lackFailsAtOnceForAThreadThatHasOne) {
  const std::string errors = inChild([this]() -> std::string {
    if (!leaveDescriptors(1)) return "no limit";
    const SharedReadStream first = open();
    return errorOf(first) + ' ' + errorOf(open(Lack::Fails));
  });
  EXPECT_EQ(errors, "open " + std::to_string(EMFILE));
}

TEST_F(SharedReadStreams, threadsTakeTurnsWithOneDescriptor) {
  const std::string failures = inChild([this]() -> std::string {
    if (!leaveDescriptors(1)) return "no limit";
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        for (int turn = 0; turn < 200; ++turn) {
          std::array<char, 10> bytes{};
          SharedReadStream stream = open();
          if (!stream.isOpen() || stream->read(bytes.data(), bytes.size()) != 7) ++failed;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    return std::to_string(failed);
  });
  EXPECT_EQ(failures, "0");
}

TEST_F(SharedReadStreams, moveKeepsTheCount) {
  const std::string errors = inChild([this]() -> std::string {
    if (!leaveDescriptors(1)) return "no limit";
    SharedReadStream first = open();
    SharedReadStream second = std::move(first);
    first = std::move(second);
    first = {};
    first = open();
    first.close();
    if (!leaveDescriptors(0)) return "no limit";
    return errorOf(open(Lack::Waits));  // would wait for good for a stream that is still counted
  });
  EXPECT_EQ(errors, std::to_string(EMFILE));
}

}  // namespace
}  // namespace sorrel::test
