#include "SorrelFramework/Platform/Digest/MD5Lanes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "SorrelFramework/Platform/Digest/Digest.hpp"
#include "Tests/Support/EachMD5Kernel.hpp"

namespace sorrel::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Random bytes; every message is a piece of them.
const Bytes& noise() {
  static const Bytes bytes = [] {
    Bytes made(200'000);
    std::mt19937 random(7);
    for (std::uint8_t& byte : made) byte = static_cast<std::uint8_t>(random());
    return made;
  }();
  return bytes;
}

struct Message {
  std::size_t from;
  std::size_t length;
};

std::string digestByTheLibrary(const Message& message) {
  Digest digest(DigestKind::MD5);
  std::array<std::uint8_t, 16> bytes{};
  EXPECT_TRUE(digest.start() && digest.update(noise().data() + message.from, message.length) &&
              digest.finish(bytes.data()));
  return lowerCaseHex(bytes);
}

/// Returns the length of the next piece of a message, at most the available room.
using Split = std::function<std::size_t()>;
std::size_t wholeChunks() { return MD5Lanes::kChunk; }

/// Sends messages through at most `busyLanes` lanes, refilled as messages end; their digests in order.
std::vector<std::string> digests(const MD5Kernel& kernel, const std::vector<Message>& messages,
                                 std::size_t busyLanes, const Split& split) {
  constexpr std::size_t kNone = SIZE_MAX;
  MD5Lanes lanes(kernel);
  std::vector<std::string> results(messages.size());
  std::vector<std::size_t> message(lanes.count(), kNone);
  std::vector<std::size_t> taken(lanes.count());
  std::size_t begun = 0;
  for (std::size_t done = 0; done < messages.size();) {
    for (std::size_t lane = 0; lane < std::min(busyLanes, lanes.count()); ++lane) {
      if (message[lane] == kNone && begun < messages.size()) {
        lanes.start(lane);
        taken[lane] = 0;
        message[lane] = begun++;
      }
      while (lanes.wantsBytes(lane)) {
        const Message& own = messages[message[lane]];
        const std::size_t length = std::min({split(), own.length - taken[lane], MD5Lanes::kChunk});
        if (length == 0) {
          lanes.end(lane);
          continue;
        }
        std::memcpy(lanes.room(lane).data(), noise().data() + own.from + taken[lane], length);
        lanes.add(lane, length);
        taken[lane] += length;
      }
    }
    lanes.run();
    for (std::size_t lane = 0; lane < lanes.count(); ++lane) {
      if (!lanes.isDone(lane)) continue;
      results[message[lane]] = lowerCaseHex(lanes.digest(lane));
      message[lane] = kNone;
      ++done;
    }
  }
  return results;
}

void expectAllEqual(const MD5Kernel& kernel, const std::vector<Message>& messages,
                    std::size_t busyLanes = kMostMD5Lanes, const Split& split = wholeChunks) {
  const auto results = digests(kernel, messages, busyLanes, split);
  for (std::size_t i = 0; i < messages.size(); ++i) {
    ASSERT_EQ(results[i], digestByTheLibrary(messages[i]))
        << "message " << i << " of " << messages[i].length << " bytes";
  }
}

std::vector<Message> oneOfEachLength(std::size_t first, std::size_t last) {
  std::vector<Message> messages;
  for (std::size_t length = first; length <= last; ++length) messages.push_back({length % 97, length});
  return messages;
}

TEST(MD5Lanes, everyLengthUpTo1024EqualsTheLibrary) {
  withEachMD5Kernel([](const MD5Kernel& kernel) { expectAllEqual(kernel, oneOfEachLength(0, 1024)); });
}

TEST(MD5Lanes, everyLengthUpTo200EqualsTheLibraryInEveryLane) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    for (std::size_t length = 0; length <= 200; ++length) {
      std::vector<Message> messages;
      for (std::size_t lane = 0; lane < kernel.lanes; ++lane) messages.push_back({lane * 211, length});
      expectAllEqual(kernel, messages);
    }
  });
}

TEST(MD5Lanes, lengthsAroundTheEndOfAChunkEqualTheLibrary) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    expectAllEqual(kernel, oneOfEachLength(MD5Lanes::kChunk - 70, MD5Lanes::kChunk + 70));
    expectAllEqual(kernel, oneOfEachLength(2 * MD5Lanes::kChunk - 10, 2 * MD5Lanes::kChunk + 10));
  });
}

TEST(MD5Lanes, anyNumberOfBusyLanesGivesTheSame) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    for (std::size_t busy = 1; busy <= kernel.lanes; ++busy) {
      expectAllEqual(kernel, oneOfEachLength(100, 160), busy);
    }
  });
}

TEST(MD5Lanes, everySplitOfAShortMessageInTwoGivesTheSame) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    for (std::size_t at = 1; at <= 200; ++at) {
      const std::vector<Message> messages(kernel.lanes, Message{3, 200});
      expectAllEqual(kernel, messages, kMostMD5Lanes, [at] { return at; });
    }
  });
}

TEST(MD5Lanes, mixedLengthsInRandomPiecesEqualTheLibrary) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    std::mt19937 random(20);
    std::vector<Message> messages;
    for (int i = 0; i < 200; ++i) {
      const std::size_t longest = i % 10 == 0 ? 150'000 : 3000;
      messages.push_back({random() % 1000, random() % longest});
    }
    const Split split = [&random] { return random() % 3 == 0 ? MD5Lanes::kChunk : 1 + random() % 1500; };
    expectAllEqual(kernel, messages, kMostMD5Lanes, split);
  });
}

TEST(MD5Lanes, aDroppedMessageLeavesNoTrace) {
  withEachMD5Kernel([](const MD5Kernel& kernel) {
    MD5Lanes lanes(kernel);
    lanes.start(0);
    lanes.add(0, 100);
    lanes.drop(0);
    EXPECT_FALSE(lanes.isBusy(0));
    lanes.start(0);
    lanes.end(0);
    lanes.run();
    ASSERT_TRUE(lanes.isDone(0));
    EXPECT_EQ(lowerCaseHex(lanes.digest(0)), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_FALSE(lanes.isBusy(0));
  });
}

}  // namespace
}  // namespace sorrel::test
