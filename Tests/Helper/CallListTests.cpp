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
    return calls.add(std::move(call));
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

TEST_F(CallListTest, aUserHasTwo) {
  add(1, Stage::Identifying);
  add(1, Stage::Identifying);
  add(1, Stage::Asking);
  EXPECT_TRUE(calls.hasRoomFor(1)) << "who is not known yet takes no place";
  const std::uint64_t second = add(1, Stage::Running);
  EXPECT_FALSE(calls.hasRoomFor(1));
  EXPECT_TRUE(calls.hasRoomFor(2));
  calls.take(second);
  EXPECT_TRUE(calls.hasRoomFor(1));
}

TEST_F(CallListTest, aConnectionHasEight) {
  for (int i = 0; i < 7; ++i) add(HelperCall::kUnknownUser, Stage::Identifying, ":1.1");
  EXPECT_TRUE(calls.hasRoomForCaller(":1.1"));
  const std::uint64_t last = add(1, Stage::Running, ":1.1");
  EXPECT_FALSE(calls.hasRoomForCaller(":1.1"));
  EXPECT_TRUE(calls.hasRoomForCaller(":1.11"));
  calls.take(last);
  EXPECT_TRUE(calls.hasRoomForCaller(":1.1"));
}

TEST_F(CallListTest, allTogetherHaveSixteen) {
  for (std::uint32_t i = 0; i < 15; ++i) add(i);
  EXPECT_TRUE(calls.hasRoomFor(100));
  const std::uint64_t last = add(15);
  EXPECT_FALSE(calls.hasRoomFor(100));
  EXPECT_FALSE(calls.hasRoomFor(0));
  calls.take(last);
  EXPECT_TRUE(calls.hasRoomFor(100));
}

}  // namespace
}  // namespace sorrel::helper
