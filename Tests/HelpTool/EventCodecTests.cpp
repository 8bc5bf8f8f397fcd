#include "SorrelFramework/HelpTool/EventCodec.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/ForkedChild.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

namespace sorrel {
namespace {

using Kind = HelperMessage::Kind;
using View = SenderView::Kind;

HelperMessage eventOf(HelperDictionary dictionary) { return {Kind::Event, std::move(dictionary), {}}; }

std::string bytesOf(std::initializer_list<int> bytes) {
  std::string text;
  for (const int byte : bytes) text.push_back(static_cast<char>(byte));
  return text;
}

/// Little-endian, 4 bytes.
std::string word(std::uint32_t value) {
  std::string text;
  for (int i = 0; i < 4; ++i) text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

/// An event whose dictionary has these bytes.
std::string eventBytes(const std::string& dictionary) {
  return bytesOf({1, 1, 1}) + dictionary + bytesOf({0});
}

void expectRoundTrip(const HelperMessage& message) {
  const std::optional<std::string> bytes = encodeHelperMessage(message);
  ASSERT_TRUE(bytes.has_value());
  EXPECT_TRUE(decodeHelperMessage(*bytes, message.kind) == message);
}

HelperMessage sample() {
  HelperMessage message = eventOf({{"/a/\xff\n-rf %20", HelperDictionary{{"0", 1}, {"1", -2}}},
                                   {"/b", HelperDictionary{{"ToPath", std::string("/c\0d", 4)}}},
                                   {"OperationValue", 3}});
  message.views = {{View::Present, 0xfedcba9876543210, 42}, {View::Absent, 0, 0}, {View::NoPath, 0, 0}};
  return message;
}

TEST(EventCodec, whatWasWrittenIsRead) {
  expectRoundTrip(sample());
  expectRoundTrip(eventOf({}));
  expectRoundTrip({Kind::Reply, std::nullopt, {}});
  expectRoundTrip({Kind::Reply, HelperDictionary{{"", "text"}, {"x", HelperDictionary()}}, {}});
  expectRoundTrip(eventOf({{"min", std::numeric_limits<std::int64_t>::min()},
                           {"max", std::numeric_limits<std::int64_t>::max()}}));
  HelperMessage unseen = eventOf({{"/x", HelperDictionary()}});
  unseen.views = {{View::CouldNotLook, 0, 0}};
  expectRoundTrip(unseen);
}

TEST(EventCodec, theFormIsTheStatedOne) {
  HelperMessage message = eventOf({{"/a", HelperDictionary{{"0", 258}}}, {"k", "t"}});
  message.views = {{View::Present, 5, 6}, {View::NoPath, 0, 0}};
  EXPECT_EQ(encodeHelperMessage(message),
            bytesOf({1, 1, 1, 2, 0, 0, 0}) + word(2) + "/a" + bytesOf({3}) + word(1) + word(1) + "0" +
                bytesOf({1, 2, 1, 0, 0, 0, 0, 0, 0}) + word(1) + "k" + bytesOf({2}) + word(1) + "t" +
                bytesOf({1, 2, 5, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(EventCodec, aMessageThatIsCutAnywhereIsNothing) {
  const std::string bytes = encodeHelperMessage(sample()).value_or("");
  ASSERT_FALSE(bytes.empty());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(decodeHelperMessage(std::string_view(bytes).substr(0, size), Kind::Event).has_value())
        << size;
  }
}

TEST(EventCodec, aMessageWithMoreBehindItIsNothing) {
  EXPECT_FALSE(decodeHelperMessage(encodeHelperMessage(sample()).value_or("") + '\0', Kind::Event));
}

TEST(EventCodec, anEventIsNoReply) {
  const std::string bytes = encodeHelperMessage(sample()).value_or("");
  EXPECT_FALSE(decodeHelperMessage(bytes, Kind::Reply).has_value());
}

TEST(EventCodec, anotherVersionIsNothing) {
  std::string bytes = encodeHelperMessage(sample()).value_or("");
  bytes.at(0) = 2;
  EXPECT_FALSE(decodeHelperMessage(bytes, Kind::Event).has_value());
}

TEST(EventCodec, unknownTypesFlagsAndViewsAreNothing) {
  const std::string key = word(1) + word(1) + "k";
  EXPECT_TRUE(decodeHelperMessage(eventBytes(key + bytesOf({2}) + word(0)), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(eventBytes(key + bytesOf({0}) + word(0)), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(eventBytes(key + bytesOf({4}) + word(0)), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(bytesOf({1, 1, 2, 0}), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(bytesOf({1, 1, 0, 2}), Kind::Event).has_value());
  const std::string body = bytesOf({1, 1, 1}) + key + bytesOf({2}) + word(0) + bytesOf({1});
  EXPECT_TRUE(decodeHelperMessage(body + bytesOf({3}), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(body + bytesOf({4}), Kind::Event).has_value());
}

TEST(EventCodec, everyMessageHasOneSpelling) {
  const auto entry = [](const std::string& key) { return word(1) + key + bytesOf({2}) + word(0); };
  EXPECT_TRUE(decodeHelperMessage(eventBytes(word(2) + entry("a") + entry("b")), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(eventBytes(word(2) + entry("b") + entry("a")), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(eventBytes(word(2) + entry("a") + entry("a")), Kind::Event).has_value());
  EXPECT_FALSE(decodeHelperMessage(bytesOf({1, 1, 1, 0, 0, 0, 0, 1}), Kind::Event).has_value());
}

TEST(EventCodec, keysAreOrderedAsUnsignedBytes) {
  expectRoundTrip(eventOf({{"\x01", 1}, {"\x7f", 2}, {"\x80", 3}, {"\xff", 4}}));
}

TEST(EventCodec, aTextHasAMebibyteAtMost) {
  expectRoundTrip(eventOf({{std::string(HelperLimits::text, 'k'), std::string(HelperLimits::text, 't')}}));
  EXPECT_FALSE(encodeHelperMessage(eventOf({{std::string(HelperLimits::text + 1, 'k'), 0}})).has_value());
  EXPECT_FALSE(encodeHelperMessage(eventOf({{"k", std::string(HelperLimits::text + 1, 't')}})).has_value());
  const std::string tooLong = word(HelperLimits::text + 1) + std::string(HelperLimits::text + 1, 'k');
  EXPECT_FALSE(decodeHelperMessage(eventBytes(word(1) + tooLong + bytesOf({2}) + word(0)), Kind::Event));
}

HelperDictionary numbers(std::size_t count) {
  HelperDictionary dictionary;
  for (std::size_t i = 0; i < count; ++i) dictionary.emplace(std::to_string(i), i);
  return dictionary;
}

TEST(EventCodec, aPathHas64NumbersAtMost) {
  expectRoundTrip(eventOf({{"/a", numbers(64)}}));
  EXPECT_FALSE(encodeHelperMessage(eventOf({{"/a", numbers(65)}})).has_value());
}

TEST(EventCodec, aReplyHasRoomForItsWordsBesideTheNumbers) {
  const HelperMessage reply{Kind::Reply, HelperDictionary{{"/a", numbers(67)}}, {}};
  expectRoundTrip(reply);
  EXPECT_FALSE(encodeHelperMessage({Kind::Reply, HelperDictionary{{"/a", numbers(68)}}, {}}).has_value());
  std::string asEvent = encodeHelperMessage(reply).value_or("");
  asEvent.at(1) = 1;
  EXPECT_FALSE(decodeHelperMessage(asEvent, Kind::Event).has_value());
}

TEST(EventCodec, dictionariesAreTwoDeep) {
  EXPECT_FALSE(
      encodeHelperMessage(eventOf({{"/a", HelperDictionary{{"b", HelperDictionary()}}}})).has_value());
  const std::string inner = word(1) + word(1) + "b" + bytesOf({3}) + word(0);
  EXPECT_FALSE(decodeHelperMessage(eventBytes(word(1) + word(1) + "a" + bytesOf({3}) + inner), Kind::Event));
}

TEST(EventCodec, aCountBeyondTheBytesOrTheCapIsNothing) {
  for (const std::uint32_t count : {1U, 2'000'000U, 2'000'001U, 0xffffffffU}) {
    EXPECT_FALSE(decodeHelperMessage(eventBytes(word(count)), Kind::Event).has_value()) << count;
    EXPECT_FALSE(decodeHelperMessage(eventBytes(word(1) + word(count) + "k"), Kind::Event).has_value());
  }
}

TEST(EventCodec, twoMillionPathsAreTheCap) {
  HelperMessage message = eventOf({});
  HelperDictionary& paths = *message.dictionary;
  for (std::size_t i = 0; i < HelperLimits::paths; ++i) {
    paths.emplace_hint(paths.end(), word(static_cast<std::uint32_t>(i)), 0);
  }
  std::optional<std::string> full = encodeHelperMessage(message);
  ASSERT_TRUE(full.has_value());
  EXPECT_TRUE(decodeHelperMessage(*full, Kind::Event).has_value());
  paths.emplace("one more", 0);
  EXPECT_FALSE(encodeHelperMessage(message).has_value());
}

TEST(EventCodec, moreThan512MebibytesAreNotLookedAt) {
  const std::size_t size = HelperLimits::bytes + 1;
  void* const start = ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(start, MAP_FAILED);
  EXPECT_FALSE(decodeHelperMessage({static_cast<const char*>(start), size}, Kind::Event).has_value());
  ::munmap(start, size);
}

TEST(EventCodec, viewsThatDoNotFitTheDictionaryAreNotWritten) {
  HelperMessage message = sample();
  message.views.pop_back();
  EXPECT_FALSE(encodeHelperMessage(message).has_value());
  message.dictionary.reset();
  EXPECT_FALSE(encodeHelperMessage(message).has_value());
  message = sample();
  message.views[1].inode = 1;  // of an absent item
  EXPECT_FALSE(encodeHelperMessage(message).has_value());
}

TEST(EventCodec, aViewIsThatOfTheItemItself) {
  const test::TemporaryFolder folder;
  const std::string file = folder.file("file");
  const std::string link = folder.path("link");
  ASSERT_EQ(::symlink("nowhere", link.c_str()), 0);
  for (const std::string& path : {file, link}) {
    struct stat status {};
    ASSERT_EQ(::lstat(path.c_str(), &status), 0);
    EXPECT_TRUE(viewOf(path) == (SenderView{View::Present, status.st_dev, status.st_ino}));
  }
}

TEST(EventCodec, aViewOfNothingIsAbsent) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(viewOf(folder.path("missing")).kind, View::Absent);
  EXPECT_EQ(viewOf(folder.file("file") + "/below").kind, View::Absent);
}

TEST(EventCodec, aViewThatFailsSaysSo) {
  EXPECT_EQ(viewOf("/" + std::string(5000, 'x')).kind, View::CouldNotLook);
  EXPECT_EQ(viewOf(std::string("/a\0b", 4)).kind, View::CouldNotLook);
  const test::TemporaryFolder folder;
  const std::string closed = folder.file("closed/file");
  ASSERT_EQ(::chmod(folder.path("closed").c_str(), 0), 0);
  const std::string seen =
      test::inPlainChild([&] { return std::to_string(static_cast<int>(viewOf(closed).kind)); });
  EXPECT_EQ(seen, std::to_string(static_cast<int>(View::CouldNotLook)));
  ASSERT_EQ(::chmod(folder.path("closed").c_str(), 0700), 0);
}

TEST(EventCodec, aKeyThatIsNoPathHasNoView) {
  EXPECT_TRUE(viewOf("OperationValue") == SenderView());
  EXPECT_TRUE(viewOf("") == SenderView());
  EXPECT_TRUE(viewOf("relative/path") == SenderView());
}

}  // namespace
}  // namespace sorrel
