#include "Helper/Reply.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "Helper/HelperCall.hpp"
#include "SorrelFramework/HelpTool/EventCodec.hpp"
#include "SorrelFramework/HelpTool/SealedMemory.hpp"

namespace sorrel::helper {
namespace {

using Error = HelperEventErrorID;

struct Case {
  Case(std::int32_t id, const HelperDictionary& event)
      : message{HelperMessage::Kind::Event, event, std::vector<SenderView>(event.size())},
        bytes(encodeHelperMessage(message).value()),
        view(MessageView::of(bytes, HelperMessage::Kind::Event).value()),
        form(EventForm::of(id, view).value()),
        results(event.size()) {}

  [[nodiscard]] Reply reply(bool flag, std::int32_t code = 0, std::size_t most = SIZE_MAX) const {
    return Reply::of(form, view, results, {flag, code}, most);
  }

  HelperMessage message;
  std::string bytes;
  MessageView view;
  EventForm form;
  ResultTable results;
};

HelperDictionary dictionaryOf(const Reply& reply) {
  const auto memory =
      SealedMemory::map(reply.message.get(), HelperLimits::bytesOf(HelperMessage::Kind::Reply));
  if (!memory.has_value()) return {{"unsealed", 0}};
  const auto message = decodeHelperMessage(memory->bytes(), HelperMessage::Kind::Reply);
  if (!message.has_value() || !message->dictionary.has_value()) return {{"unsound", 0}};
  return *message->dictionary;
}

const HelperDictionary kEmpty;

TEST(Reply, repliesWithoutEntriesAreTheSameMemory) {
  const auto inodeOf = [](const Reply& reply) {
    struct stat status {};
    EXPECT_EQ(::fstat(reply.message.get(), &status), 0);
    return status.st_ino;
  };
  const Case caches(2, {{"OperationValue", 0}});
  const Case nothing(0, kEmpty);
  const Reply whole = caches.reply(false);
  EXPECT_TRUE(dictionaryOf(whole).empty());
  EXPECT_EQ(whole.bytes, 0U);
  EXPECT_EQ(inodeOf(caches.reply(true)), inodeOf(whole));
  EXPECT_EQ(inodeOf(nothing.reply(true)), inodeOf(whole));
  // No change by one receiver reaches another.
  EXPECT_NE(::pwrite(whole.message.get(), "x", 1, 0), 1);
  EXPECT_TRUE(dictionaryOf(nothing.reply(true)).empty());
}

TEST(Reply, aDeleteListsAllPathsWithTheirNumbers) {
  Case example(
      0,
      {{"/a", HelperDictionary{{"0", 5}, {"12", -6}}}, {"/b", HelperDictionary{{"0", 7}}}, {"/c", kEmpty}});
  example.results.set(0, Error::Success, "");
  example.results.set(1, Error::DeleteError, "why");
  const Reply reply = example.reply(false, 2);
  EXPECT_FALSE(reply.flag);
  EXPECT_EQ(reply.code, 2);
  const HelperDictionary done{{"0", 5}, {"12", -6}, {"DeleteStatus", 0}, {"DeleteDesc", ""}};
  const HelperDictionary failed{{"0", 7}, {"DeleteStatus", 2}, {"DeleteDesc", "why"}};
  const HelperDictionary open{{"DeleteStatus", 2}, {"DeleteDesc", std::string(kUnfinishedText)}};
  EXPECT_TRUE(dictionaryOf(reply) ==
              (HelperDictionary{{"0000000", done}, {"0000001", failed}, {"0000002", open}}));
}

TEST(Reply, aDoneDeleteStillListsItsPaths) {
  Case example(0, {{"/a", HelperDictionary{{"0", 5}}}});
  example.results.set(0, Error::Success, "");
  const Reply reply = example.reply(true);
  EXPECT_TRUE(reply.flag);
  const HelperDictionary done{{"0", 5}, {"DeleteStatus", 0}, {"DeleteDesc", ""}};
  EXPECT_TRUE(dictionaryOf(reply) == (HelperDictionary{{"0000000", done}}));
}

TEST(Reply, aShredListsEachPathUnlessAllAreDone) {
  Case example(1, {{"/a\xff", kEmpty}, {"/b", kEmpty}});
  example.results.set(0, Error::Success, "");
  const HelperDictionary done{{"Path", "/a\xff"}, {"DeleteStatus", 0}, {"DeleteDesc", ""}};
  const HelperDictionary open{
      {"Path", "/b"}, {"DeleteStatus", 4}, {"DeleteDesc", std::string(kUnfinishedText)}};
  EXPECT_TRUE(dictionaryOf(example.reply(false)) == (HelperDictionary{{"0000000", done}, {"0000001", open}}));
  example.results.set(1, Error::Success, "");
  const Reply reply = example.reply(true);
  EXPECT_TRUE(reply.flag);
  EXPECT_TRUE(dictionaryOf(reply).empty());
}

TEST(Reply, cleanAndMoveListWhatFailedUnderItsPath) {
  for (const int operation : {2, 3}) {
    const HelperDictionary below = operation == 3 ? HelperDictionary{{"ToPath", "/x"}} : kEmpty;
    Case example(2, {{"OperationValue", operation}, {"/a", below}, {"/b", below}, {"Z", below}});
    // In the order of the bytes: /a, /b, OperationValue, Z.
    example.results.set(0, Error::Success, "");
    example.results.set(1, Error::DeleteError, "why");
    const HelperDictionary failed{{"DeleteStatus", 2}, {"DeleteDesc", "why"}};
    const HelperDictionary open{{"DeleteStatus", operation == 3 ? 5 : 2},
                                {"DeleteDesc", std::string(kUnfinishedText)}};
    EXPECT_TRUE(dictionaryOf(example.reply(false)) == (HelperDictionary{{"/b", failed}, {"Z", open}}));
  }
}

TEST(Reply, successAsAWholeNeverCoversAPathThatIsNotDone) {
  for (const auto& [id, event] : {std::pair<int, HelperDictionary>{0, {{"/a", kEmpty}}},
                                  {1, {{"/a", kEmpty}}},
                                  {2, {{"OperationValue", 2}, {"/a", kEmpty}}}}) {
    const Case example(id, event);
    const Reply reply = example.reply(true);
    EXPECT_FALSE(reply.flag) << id;
    EXPECT_EQ(reply.code, static_cast<int>(example.form.failure()));
    EXPECT_EQ(dictionaryOf(reply).size(), 1U);
  }
}

TEST(Reply, withoutPathsTheOutcomeIsAll) {
  const Case example(2, {{"OperationValue", 0}});
  EXPECT_TRUE(example.reply(true, 0).flag);
  const Reply failed = example.reply(false, 77);
  EXPECT_FALSE(failed.flag);
  EXPECT_EQ(failed.code, 77);
  EXPECT_TRUE(dictionaryOf(failed).empty());
}

TEST(Reply, textsThatHaveNoRoomAreLeftOut) {
  HelperDictionary event;
  for (int i = 0; i < 9; ++i) event.emplace("/" + std::to_string(i), HelperDictionary{{"0", i}});
  Case example(0, event);
  const std::string text(kMostResultText, 'x');
  for (std::size_t i = 0; i < 9; ++i) example.results.set(i, Error::DeleteError, text);
  const std::size_t whole = example.reply(false).bytes;
  HelperCall call;
  call.form = example.form;
  call.bytes = example.bytes.size();
  EXPECT_GT(whole, call.mostReplyBytes());
  for (const std::size_t most : {whole, call.mostReplyBytes()}) {
    const Reply reply = example.reply(false, 2, most);
    EXPECT_LE(reply.bytes, most);
    const HelperDictionary dictionary = dictionaryOf(reply);
    EXPECT_EQ(dictionary.size(), 9U);
    EXPECT_EQ(*dictionary.at("0000000").asDictionary()->at("DeleteDesc").asText(),
              most == whole ? text : kUnfinishedText);
  }
}

TEST(Reply, manyPathsStayInOrder) {
  HelperDictionary event;
  for (int i = 0; i < 12'345; ++i) event.emplace("/" + std::to_string(i), HelperDictionary{{"0", i}});
  const Case example(0, event);
  const HelperDictionary reply = dictionaryOf(example.reply(false));
  ASSERT_EQ(reply.size(), 12'345U);
  auto path = event.begin();
  for (const auto& [key, entry] : reply) {
    EXPECT_EQ(*entry.asDictionary()->at("0").asNumber(), *path->second.asDictionary()->at("0").asNumber());
    ++path;
  }
}

TEST(Reply, anEventWithEveryNumberItMayHaveHasAReply) {
  HelperDictionary numbers;
  for (std::size_t i = 0; i < HelperLimits::numbersOfPath; ++i) numbers.emplace(std::to_string(i), i);
  const Case example(0, {{"/a", numbers}});
  EXPECT_EQ(dictionaryOf(example.reply(false)).at("0000000").asDictionary()->size(), numbers.size() + 2);
}

}  // namespace
}  // namespace sorrel::helper
