#include "SorrelFramework/Scan/WalkTeam.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace sorrel {
namespace {

TEST(WalkTeam, ownerAloneEndsWhenItHasNothingLeft) {
  WalkTeam<int> team;
  EXPECT_EQ(team.next(), std::nullopt);
}

TEST(WalkTeam, giftComesBackToItsGiver) {
  WalkTeam<int> team;
  team.give(7);
  EXPECT_EQ(team.next(), 7);
  EXPECT_EQ(team.next(), std::nullopt);
}

TEST(WalkTeam, helperThatComesTooLateIsSentAway) {
  WalkTeam<int> team;
  EXPECT_EQ(team.next(), std::nullopt);
  EXPECT_FALSE(team.join());
}

TEST(WalkTeam, nobodyWantsWorkWhileEverybodyHasSome) {
  const WalkTeam<int> team;
  EXPECT_FALSE(team.wantsWork());
}

/// Every piece of work n makes two of n - 1: each is done exactly once, by any member.
TEST(WalkTeam, membersDoEachPieceOnceAndEndTogether) {
  WalkTeam<int> team;
  std::atomic<int> pieces{0};
  const auto work = [&](std::optional<int> piece) {
    while (piece) {
      ++pieces;
      if (*piece > 0) {
        team.give(*piece - 1);
        team.give(*piece - 1);
      }
      piece = team.next();
    }
  };
  std::vector<std::thread> helpers;
  helpers.reserve(3);
  for (int i = 0; i < 3; ++i) {
    helpers.emplace_back([&] {
      if (team.join()) work(team.next());
    });
  }
  work(10);
  for (std::thread& helper : helpers) helper.join();
  EXPECT_EQ(pieces, 2047);
}

}  // namespace
}  // namespace sorrel
