#include "Helper/CallList.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace sorrel::helper {
namespace {

using Stage = HelperCall::Stage;

class CallListTest : public testing::Test {
 protected:
  std::uint64_t add(std::uint32_t uid, Stage stage = Stage::Asking, const std::string& sender = "") {
    auto call = std::make_unique<HelperCall>();
    call->uid = uid;
    call->stage = stage;
    call->sender = sender;
    return calls.add(std::move(call)).id;
  }

  CallList calls;
};

TEST_F(CallListTest, eachCallHasItsNumber) {
  const std::uint64_t first = add(1);
  const std::uint64_t second = add(2);
  EXPECT_NE(first, second);
  EXPECT_EQ(calls.find(first)->id, first);
  EXPECT_EQ(calls.take(first)->uid, 1U);
  EXPECT_EQ(calls.find(first), nullptr);
  EXPECT_EQ(calls.all(), std::vector<std::uint64_t>{second});
  EXPECT_NE(add(1), first);
}

TEST_F(CallListTest, aConnectionsCallsAreFoundByItsName) {
  const std::uint64_t first = add(1, Stage::Asking, ":1.1");
  add(1, Stage::Running, ":1.11");
  const std::uint64_t third = add(1, Stage::Identifying, ":1.1");
  EXPECT_EQ(calls.from(":1.1"), (std::vector<std::uint64_t>{first, third}));
  EXPECT_TRUE(calls.from(":1.2").empty());
}

TEST_F(CallListTest, anIdentifiedUserHasOne) {
  add(1, Stage::Identifying);
  EXPECT_FALSE(calls.hasCallOf(1));
  for (const Stage stage : {Stage::Asking, Stage::Filling, Stage::Running}) {
    const std::uint64_t call = add(1, stage);
    EXPECT_TRUE(calls.hasCallOf(1));
    EXPECT_FALSE(calls.hasCallOf(2));
    calls.take(call);
  }
  EXPECT_FALSE(calls.hasCallOf(1));
}

TEST_F(CallListTest, aConnectionHasOneThatIsNotIdentified) {
  EXPECT_TRUE(calls.canIdentify(":1.1"));
  const std::uint64_t call = add(kUnknownUser, Stage::Identifying, ":1.1");
  EXPECT_FALSE(calls.canIdentify(":1.1"));
  EXPECT_TRUE(calls.canIdentify(":1.11"));
  calls.find(call)->stage = Stage::Asking;
  EXPECT_TRUE(calls.canIdentify(":1.1"));
}

TEST_F(CallListTest, callsThatAreNotIdentifiedHaveALimitOfTheirOwn) {
  for (std::size_t i = 0; i < CallList::kMostUnidentified; ++i) {
    EXPECT_TRUE(calls.canIdentify(":1.1")) << i;
    add(kUnknownUser, Stage::Identifying, ":2." + std::to_string(i));
  }
  EXPECT_FALSE(calls.canIdentify(":1.1"));
  EXPECT_FALSE(calls.isFull()) << "identified users are not held up";
  EXPECT_FALSE(calls.hasWork());
}

TEST_F(CallListTest, allAuthorisedTogetherHaveSixteen) {
  for (std::uint32_t i = 0; i < 15; ++i) add(i, i % 2 == 0 ? Stage::Filling : Stage::Running);
  EXPECT_FALSE(calls.isFull());
  const std::uint64_t last = add(15, Stage::Running);
  EXPECT_TRUE(calls.isFull());
  EXPECT_TRUE(calls.mayAsk());
  calls.take(last);
  EXPECT_FALSE(calls.isFull());
}

TEST_F(CallListTest, questionsHoldUpNoAuthorisedUser) {
  for (std::uint32_t i = 0; i < CallList::kMostQuestions; ++i) {
    EXPECT_TRUE(calls.mayAsk()) << i;
    add(i, Stage::Asking);
  }
  EXPECT_FALSE(calls.mayAsk());
  EXPECT_FALSE(calls.isFull());
}

TEST_F(CallListTest, aQuestionIsWorkThatIsNotAuthorised) {
  const std::uint64_t call = add(1, Stage::Asking);
  calls.find(call)->bytes = 5;
  EXPECT_TRUE(calls.hasWork());
  EXPECT_FALSE(calls.hasAuthorisedWork());
  calls.find(call)->stage = Stage::Filling;
  EXPECT_TRUE(calls.hasAuthorisedWork());
}

TEST_F(CallListTest, onlyARunningEventHoldsRoomForItsReply) {
  const HelperCall& asker = *calls.find(add(1, Stage::Asking));
  const std::uint64_t other = add(2, Stage::Filling);
  calls.find(other)->bytes = 5;
  EXPECT_EQ(calls.mostReplyBytesBeside(asker), 0U);
  calls.find(other)->stage = Stage::Running;
  EXPECT_EQ(calls.mostReplyBytesBeside(asker), 5U);
  EXPECT_EQ(calls.mostReplyBytesBeside(*calls.find(other)), 0U);
}

TEST_F(CallListTest, theFirstTicketThatExpiresCounts) {
  EXPECT_FALSE(calls.firstDeadline().has_value());
  const HelperCall::Clock::time_point now = HelperCall::Clock::now();
  for (const int second : {7, 5, 6}) {
    calls.find(add(1, Stage::Filling))->fillDeadline = now + std::chrono::seconds(second);
  }
  calls.find(add(1, Stage::Running))->fillDeadline = now;
  EXPECT_EQ(calls.firstDeadline(), now + std::chrono::seconds(5));
}

}  // namespace
}  // namespace sorrel::helper
