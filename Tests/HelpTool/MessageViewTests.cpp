#include "SorrelFramework/HelpTool/MessageView.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Fuzz/PlainReader.hpp"

namespace sorrel {
namespace {

using Kind = HelperMessage::Kind;
using Type = MessageView::Type;
using Seen = SenderView::Kind;

std::string coded(const HelperMessage& message) { return encodeHelperMessage(message).value_or(""); }

HelperMessage sample() {
  HelperMessage message{Kind::Event,
                        HelperDictionary{{"/a", HelperDictionary{{"0", -7}, {"10", 8}}},
                                         {"/b\xff", HelperDictionary()},
                                         {"/c", HelperDictionary{{"ToPath", "/d"}}},
                                         {"OperationValue", 3}},
                        {}};
  message.views = {{Seen::Present, 1, 2}, {Seen::Absent, 0, 0}, {Seen::CouldNotLook, 0, 0}, {}};
  return message;
}

TEST(MessageView, showsTheEntriesInTheOrderOfTheKeys) {
  const std::string bytes = coded(sample());
  const auto view = MessageView::of(bytes, Kind::Event);
  ASSERT_TRUE(view.has_value());
  EXPECT_EQ(view->dictionary().size(), 4U);
  std::vector<std::string> keys;
  for (const MessageView::Entry& entry : view->dictionary()) {
    EXPECT_EQ(entry.index, keys.size());
    keys.emplace_back(entry.key);
  }
  EXPECT_EQ(keys, (std::vector<std::string>{"/a", "/b\xff", "/c", "OperationValue"}));
}

TEST(MessageView, showsValuesOfEachType) {
  const std::string bytes = coded(sample());
  auto entry = MessageView::of(bytes, Kind::Event).value().dictionary().begin();
  ASSERT_EQ(entry->type, Type::Dictionary);
  ASSERT_EQ(entry->below.size(), 2U);
  auto number = entry->below.begin();
  EXPECT_EQ(number->key, "0");
  EXPECT_EQ(number->number, -7);
  ++number;
  EXPECT_EQ(number->key, "10");
  EXPECT_EQ(number->number, 8);
  EXPECT_EQ(number->index, 1U);
  ++number;
  EXPECT_TRUE(number == entry->below.end());
  ++entry;
  EXPECT_TRUE(entry->below.empty());
  ++entry;
  EXPECT_EQ(entry->below.begin()->type, Type::Text);
  EXPECT_EQ(entry->below.begin()->text, "/d");
  ++entry;
  EXPECT_EQ(entry->type, Type::Number);
  EXPECT_EQ(entry->number, 3);
}

TEST(MessageView, eachEntryComesWithWhatTheSenderSees) {
  const HelperMessage message = sample();
  const std::string bytes = coded(message);
  const auto view = MessageView::of(bytes, Kind::Event);
  ASSERT_TRUE(view.has_value());
  EXPECT_TRUE(view->hasViews());
  std::vector<SenderView> seen;
  for (const MessageView::Entry& entry : view->dictionary()) seen.push_back(entry.seen);
  EXPECT_TRUE(seen == message.views);
}

TEST(MessageView, withoutViewsNothingIsSeen) {
  const std::string bytes = coded({Kind::Event, HelperDictionary{{"/a", 1}}, {}});
  const auto view = MessageView::of(bytes, Kind::Event);
  ASSERT_TRUE(view.has_value());
  EXPECT_FALSE(view->hasViews());
  EXPECT_EQ(view->dictionary().begin()->seen.kind, Seen::NoPath);
}

TEST(MessageView, noDictionaryIsNotAnEmptyOne) {
  const std::string none = coded({Kind::Reply, std::nullopt, {}});
  const std::string empty = coded({Kind::Reply, HelperDictionary(), {}});
  EXPECT_FALSE(MessageView::of(none, Kind::Reply).value().hasDictionary());
  EXPECT_TRUE(MessageView::of(empty, Kind::Reply).value().hasDictionary());
  EXPECT_TRUE(MessageView::of(empty, Kind::Reply).value().dictionary().empty());
}

TEST(MessageView, entriesOfADictionaryCanBeCopiedAsTheyAre) {
  const std::string bytes = coded(sample());
  const auto view = MessageView::of(bytes, Kind::Event);
  ASSERT_TRUE(view.has_value());
  const std::string_view numbers = view->dictionary().begin()->below.coded();
  EXPECT_EQ(numbers.size(), (4U + 1 + 1 + 8) + (4U + 2 + 1 + 8));
  EXPECT_NE(bytes.find(numbers), std::string::npos);
}

TEST(MessageView, anyCutOfAMessageIsNone) {
  const std::string bytes = coded(sample());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(MessageView::of(std::string_view(bytes).substr(0, size), Kind::Event).has_value()) << size;
  }
  EXPECT_FALSE(MessageView::of(bytes + '\0', Kind::Event).has_value());
  EXPECT_FALSE(MessageView::of(bytes, Kind::Reply).has_value());
}

TEST(MessageView, anyChangedByteIsNoneOrAnotherMessage) {
  const std::string bytes = coded(sample());
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      std::string changed = bytes;
      changed[at] = static_cast<char>(value);
      if (!MessageView::of(changed, Kind::Event).has_value()) continue;
      EXPECT_EQ(coded(decodeHelperMessage(changed, Kind::Event).value()), changed) << at << " " << value;
    }
  }
}

class RandomMessages {
 public:
  explicit RandomMessages(std::uint32_t seed) : random_(seed) {}

  HelperMessage message() {
    HelperMessage message{below(2) == 0 ? Kind::Event : Kind::Reply, std::nullopt, {}};
    if (below(16) != 0) message.dictionary = dictionary(1, below(12));
    const std::size_t keys = message.dictionary.has_value() ? message.dictionary->size() : 0;
    const bool hasViews = below(2) == 0;
    for (std::size_t i = 0; hasViews && i < keys; ++i) message.views.push_back(view());
    return message;
  }
  /// Changes, cuts or repeats a few bytes.
  void damage(std::string& bytes) {
    for (std::size_t times = below(4); times-- > 0 && !bytes.empty();) {
      const std::size_t at = below(bytes.size());
      if (below(4) == 0) {
        bytes.erase(at, 1 + below(4));
      } else if (below(4) == 0) {
        bytes.insert(at, bytes.substr(below(bytes.size()), 1 + below(8)));
      } else {
        bytes[at] = static_cast<char>(below(2) == 0 ? below(5) : below(256));
      }
    }
  }

 private:
  std::size_t below(std::size_t end) { return random_() % end; }
  std::string text() {
    std::string text(below(4), '\0');
    for (char& byte : text) byte = static_cast<char>(below(256));
    return text;
  }
  SenderView view() {
    const auto kind = static_cast<Seen>(below(4));
    return kind == Seen::Present ? SenderView{kind, random_(), random_()} : SenderView{kind, 0, 0};
  }
  HelperDictionary dictionary(int depth, std::size_t count) {
    HelperDictionary made;
    for (std::size_t i = 0; i < count; ++i) made[text()] = value(depth);
    return made;
  }
  HelperValue value(int depth) {
    switch (below(depth < HelperLimits::depth ? 3 : 2)) {
      case 0:
        return static_cast<std::int64_t>(random_());
      case 1:
        return text();
      default:
        return dictionary(depth + 1, below(6));
    }
  }

  std::mt19937_64 random_;
};

/// Compares with an independent reader; true if it is a message.
bool isReadAlike(std::string_view bytes, Kind kind) {
  const std::optional<HelperMessage> plain = fuzz::PlainReader(bytes, kind).message();
  EXPECT_TRUE(decodeHelperMessage(bytes, kind) == plain) << testing::PrintToString(std::string(bytes));
  EXPECT_EQ(MessageView::of(bytes, kind).has_value(), plain.has_value());
  return plain.has_value();
}

TEST(MessageView, randomAndDamagedMessagesAreReadAsThePlainReaderReadsThem) {
  RandomMessages random(20261121);
  int damaged = 0;
  for (int i = 0; i < 20'000; ++i) {
    const HelperMessage message = random.message();
    std::string bytes = coded(message);
    ASSERT_TRUE(decodeHelperMessage(bytes, message.kind) == message);
    random.damage(bytes);
    damaged += isReadAlike(bytes, message.kind) ? 0 : 1;
  }
  EXPECT_GT(damaged, 5'000);
}

TEST(MessageView, everyChangeOfAByteIsReadAsThePlainReaderReadsIt) {
  const std::string bytes = coded(sample());
  int sound = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      std::string other = bytes;
      other[at] = static_cast<char>(value);
      sound += isReadAlike(other, Kind::Event) ? 1 : 0;
    }
  }
  EXPECT_GT(sound, 256);
}

}  // namespace
}  // namespace sorrel
